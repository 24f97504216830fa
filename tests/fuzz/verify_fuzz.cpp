// quillfence-data verify over files of any content. It changes nothing, and says the same twice.
//
//     per file    which one (a byte), how many bytes (16 bits), the bytes
#include <map>

#include "fuzz_support.h"
#include "verify.h"

namespace quillfence::testing {

namespace {

constexpr char base[] = "c:/quillfence";
constexpr size_t most_files = 6;

// One of each kind that verify looks into, and two that belong together.
constexpr const char *names[] = {
    "control/enabled",
    "control/rules.enabled",
    "control/bms.enabled",
    "control/valid_domain_ips",
    "rbl.enabled",
    "bms/lists_to_update",
    "bms/map",
    "from_whitelist",
    "from_blacklist",
    "exempt_ips",
    "exempt_ips.range",
    "blocked_ips.range",
    "dynaregex/dyna.cregexes",
    "log/.counterv2.dat.hourly",
    "log/.counterv2.dat.02",
    "nobody_knows_me",
};

std::string path_of(const std::string &name) {
    return std::string(base) + "/" + name;
}

std::map<std::string, std::string> write_files(fuzz_input &input) {
    std::map<std::string, std::string> files;
    for (size_t i = 0; i < most_files && !input.empty(); ++i) {
        const char *const name = names[input.byte() % std::size(names)];
        files[name] = input.bytes(input.number16());
    }
    for (const auto &[name, bytes] : files) {
        fuzz_drive().write(path_of(name), bytes);
    }
    return files;
}

} // namespace

void fuzz_one(fuzz_input &input) {
    without_debug_lines();
    fuzz_drive().make_folder(base);
    const std::map<std::string, std::string> files = write_files(input);
    const std::vector<verification::finding> findings = verification::verify_tree(base).findings;
    QF_PROMISE(verification::verify_tree(base).findings == findings);
    for (const verification::finding &found : findings) {
        QF_PROMISE(!found.file.empty() && !found.text.empty());
        for (const char c : found.text) {
            QF_PROMISE(c >= 0x20 && c < 0x7F);
        }
    }
    for (const auto &[name, bytes] : files) {
        QF_PROMISE(file_bytes(path_of(name)) == bytes);
        fuzz_drive().remove(path_of(name));
    }
}

} // namespace quillfence::testing
