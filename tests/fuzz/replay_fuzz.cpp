// Whole runs, from the command line's arguments to the report, on a small configuration. Every run
// gives the same report twice, and changes no file of the configuration.
//
//     how many arguments there are, the program's name counted   a byte
//     what DNS answers where nothing is scripted                 a byte
//     the client's PTR names                                     a line, split at blanks
//     mode, ip, port, tls, authuser, mua, helo, sender, recipient   a line each
#include <filesystem>
#include <map>
#include <sstream>

#include "dns_script.h"
#include "fuzz_support.h"
#include "owned_session.h"
#include "platform/file.h"
#include "process_state.h"
#include "qfd-packet.h"
#include "quillfence-checks.h"
#include "quillfence-log.h"
#include "quillfence-spam-hooks.h"
#include "quillfence.h"
#include "report.h"
#include "tiny_rex_storage.h"
#include "vc_dns.h"

namespace quillfence::testing {

namespace {

namespace fs = std::filesystem;

constexpr size_t most_arguments = 11;
constexpr char written_path[] = "c:/quillfence/written.json";

void write_patterns(const char *path, std::initializer_list<const char *> patterns) {
    fuzz_drive().write(path, "");
    FILE *stream = platform::stream_open(path, "w+b");
    QF_PROMISE(stream && trs_set_header(stream));
    for (const char *pattern : patterns) {
        TRex *expression = trex_compile_ex(pattern, trex_fold_case);
        QF_PROMISE(trs_store(stream, expression));
        trex_free(expression);
    }
    fclose(stream);
}

// A map with one /8 that is listed whole.
std::string map_of(uint8_t octet) {
    std::string map(1024, '\0');
    map.replace(4u * octet, 4, "\xFF\xFF\xFF\xFF");
    return map;
}

bool configure() {
    static const struct {
        const char *path, *text;
    } files[] = {
        {"c:/quillfence/bms/lists_to_update", "ten\nprivate\nmissing\n"},
        {"c:/quillfence/bms.enabled", "ten\n"},
        {"c:/quillfence/control/bms.enabled", "ten\nprivate\n"},
        {"c:/quillfence/rbl.enabled", "rbl.example.net\n"},
        {"c:/quillfence/control/enabled", "1\n"},
        {"c:/quillfence/control/valid_domain_ips", "example.org : 192.0.2.0/24, 10.9.0.0/16\n"},
        {"c:/quillfence/from_whitelist", "friend@*\n*@example.com\n"},
        {"c:/quillfence/from_blacklist", "*@spam.example\n"},
        {"c:/quillfence/exempt_users", "abuse@example.net\n"},
        {"c:/quillfence/exempt_ips", "192.0.2.77\n"},
        {"c:/quillfence/blocked_ips", "192.0.2.66\n2001:db8::66\n"},
    };
    for (const auto &file : files) {
        fuzz_drive().write(file.path, file.text);
    }
    fuzz_drive().write("c:/quillfence/bms/ten", map_of(10));
    fuzz_drive().write("c:/quillfence/bms/private", map_of(192));
    write_patterns(dyna_regex_file, {"^(?:host|dyn)[-.]?\\d+", "dsl"});
    write_patterns(spam_regex_file, {"^spam.*\\.example$"});
    write_patterns(confirmed_regex_file, {"\\.pool\\."});
    write_patterns(exempt_regex_file, {"^mail\\."});
    fuzz_drive().make_folder("c:/quillfence/log");
    QF_PROMISE(quillfence_init());
    return true;
}

// Every file of the drive with its bytes, but for the log and what this target writes.
std::map<std::string, std::string> configuration() {
    std::map<std::string, std::string> files;
    for (const auto &entry :
         fs::recursive_directory_iterator(fuzz_drive().native("c:/quillfence"))) {
        const std::string path = entry.path().generic_string();
        if (entry.is_regular_file() && path.find("/log/") == std::string::npos &&
            !path.ends_with("written.json")) {
            files[path] = fuzz_drive().read(path);
        }
    }
    return files;
}

std::string written(const vc_json *report) {
    FILE *stream = platform::stream_open(written_path, "wb");
    QF_PROMISE(stream && vc_json_dump(stream, report));
    fclose(stream);
    return file_bytes(written_path);
}

owned_session session_of(std::vector<std::string> &arguments) {
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    qfd_request_packet *packet =
        qfd_request_packet_from_args(static_cast<int>(arguments.size()), argv.data());
    owned_session session(packet ? qfd_request_packet_to_smtp_state(packet) : nullptr);
    qfd_request_packet_free(packet);
    return session;
}

// The report of a run; empty when the run fails.
std::string run(std::vector<std::string> &arguments) {
    const owned_session session = session_of(arguments);
    if (!session || !__process_state(session.get())) {
        return "";
    }
    vc_json *report = build_report(session.get(), quillfence_rules());
    QF_PROMISE(report);
    const std::string text = written(report);
    vc_json_free(report);
    print_state(drop_line, 6, session.get(), 0);
    QF_PROMISE(text.starts_with("{\"spam_hits\":[") && text.ends_with("]}"));
    return text;
}

// What the daemon does with a session: exemptions, decisions, the log.
void decide(std::vector<std::string> &arguments) {
    const owned_session session = session_of(arguments);
    if (!session || !__process_state(session.get())) {
        return;
    }
    is_exempt(session.get(), "c:/quillfence/");
    global_spam_hit_r(session.get(), quillfence_rules());
    global_bms_r(session.get(), quillfence_rules());
    global_rbl_r(session.get(), quillfence_rules());
    log_message(session.get(), session->hit_name ? session->hit_name : "", log_type_spam);
    fuzz_drive().remove("c:/quillfence/log/qflog");
}

void script_dns(dns_script &dns, uint8_t status, const std::string &ptr_names,
                const std::string &ip) {
    static constexpr uint32_t statuses[] = {0, 9003, 9002, 9005, 9501, 1460, 123, 9502};
    dns.otherwise(statuses[status % std::size(statuses)]);
    std::vector<std::string> names;
    std::istringstream words(ptr_names);
    for (std::string name; names.size() < 5 && words >> name;) {
        names.push_back(name);
    }
    text_slot reverse;
    if (!names.empty() && vc_arpa(reverse.slot(), ip.c_str())) {
        dns.ptr(reverse.str(), names);
    }
}

} // namespace

void fuzz_one(fuzz_input &input) {
    static const bool configured = configure();
    static const std::map<std::string, std::string> before = configuration();
    static_cast<void>(configured);
    const size_t count = input.byte() % most_arguments;
    const uint8_t status = input.byte();
    const std::string ptr_names = input.line();
    std::vector<std::string> arguments = {"quillfence-replayer"};
    while (arguments.size() < count) {
        arguments.push_back(input.line());
    }
    dns_script dns;
    script_dns(dns, status, ptr_names, count > 2 ? arguments[2] : "");
    const std::string report = run(arguments);
    QF_PROMISE(run(arguments) == report);
    decide(arguments);
    QF_PROMISE(configuration() == before);
}

} // namespace quillfence::testing
