// A file that was read beforehand answers, tells and complains as the file itself.
//
//     what kind of file    a byte
//     what is looked for   a line
//     the file
#include "evidence_watch.h"
#include "fuzz_support.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "owned_snapshot.h"
#include "platform/net.h"
#include "quillfence-file.h"
#include "quillfence-iprange.h"
#include "tiny_rex_storage.h"
#include "vc_text.h"

namespace quillfence::testing {

namespace {

constexpr char base[] = "c:/quillfence/";
constexpr char patterns[] = "c:/quillfence/dynaregex/dyna.cregexes";
constexpr char declarations[] = "c:/quillfence/control/valid_domain_ips";
constexpr char map[] = "c:/quillfence/bms//one";

int count_lines(const char *directory, const char *name) {
    vc_list_entry *lines = vc_file_to_list(directory, name);
    int count = 0;
    for (const vc_list_entry *line = lines; line; line = line->next) {
        ++count;
    }
    if (lines) {
        vc_destroy_list(&lines, free);
    }
    return count;
}

// Each kind of file and a question to it.
const struct {
    const char *path;
    int (*ask)(const char *value);
} kinds[] = {
    {"c:/quillfence/from_blacklist",
     [](const char *value) {
         return __file_contains_line(base, "from_blacklist", value, __wildcardmatch);
     }},
    {"c:/quillfence/blocked_ips",
     [](const char *value) { return __file_contains_line(base, "blocked_ips", value, _stricmp); }},
    {"c:/quillfence/blocked_ips.range",
     [](const char *value) {
         return file_contains_ip_range_match("blocked_ips.range", value, base);
     }},
    {patterns, [](const char *value) { return compiled_regex_match(patterns, value); }},
    {map, [](const char *value) { return lookupMapFile(map, platform::net_inet_addr(value)); }},
    {declarations,
     [](const char *value) {
         return ksf_check_domain_to_ip_restriction("192.0.2.1", value, declarations);
     }},
    {"c:/quillfence/rbl.enabled",
     [](const char *) {
         return count_lines(base, "rbl.enabled") + vc_file_to_int(base, "rbl.enabled");
     }},
};

struct answer {
    int result;
    std::vector<std::string> told; // ERROR lines, too
    bool operator==(const answer &) const = default;
};

answer ask(int (*question)(const char *), const std::string &value,
           const frozen_files *configuration) {
    evidence_watch watch;
    current_call_context()->configuration = configuration;
    const int result = question(value.c_str());
    return {result, watch.take()};
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const auto &[path, question] = kinds[input.byte() % std::size(kinds)];
    const std::string value = input.line();
    fuzz_drive().remove(base);
    fuzz_drive().write("c:/quillfence/control/bms.enabled", "one");
    fuzz_drive().write(path, input.rest());
    snapshot_report report;
    const owned_snapshot frozen(snapshot_load(nullptr, &report));
    snapshot_report_release(&report);
    QF_PROMISE(frozen != nullptr);
    QF_PROMISE(ask(question, value, frozen.get()) == ask(question, value, nullptr));
    fuzz_drive().remove(base);
}

} // namespace quillfence::testing
