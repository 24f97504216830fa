#include "policyd_check.h"

#include <algorithm>

#include "answers.h"
#include "platform/edit.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "quillfence.h"
#include "surroundings.h"
#include "text.h"
#include "verify.h"

namespace quillfence::programs {

// --- the configuration --------------------------------------------------------------------------

// A replay fails without a list of block maps; the service decides as well without.
static constexpr verification::finding_id no_maps = "maps-unlisted";

static check_line line_of(const verification::finding &found) {
    const std::string place = found.file + (found.line > 0 ? ":" + std::to_string(found.line) : "");
    const bool is_error = found.level() == verification::severity::error && found.id != no_maps;
    return {is_error ? check_result::error : check_result::warning, place, found.text};
}

void check_configuration(const std::string &base, check_report *report) {
    try {
        const verification::tree seen = verification::verify_tree(base);
        report->push_back({check_result::ok, base, counted(seen.files, "file") + " looked over"});
        for (const verification::finding &one : seen.findings) {
            if (one.level() != verification::severity::info) {
                report->push_back(line_of(one));
            }
        }
    } catch (const failure &wrong) {
        report->push_back({check_result::error, base,
                           std::string(wrong.what()) + "; name the folder that holds quillfence/ "
                                                       "with --drive-c"});
    }
}

// --- what is written ----------------------------------------------------------------------------

// Makes a file beside the path and removes it. 0 or a Win32 error number.
static uint32_t try_folder_of(const std::string &path) {
    platform::replacement trial;
    const uint32_t error = platform::replacement_begin(path.c_str(), ".check", &trial,
                                                       platform::file_rights::of_owner);
    return error ? error : platform::replacement_end(&trial);
}

static constexpr char folder_advice[] =
    "; make its folder, and let the user that runs the service write there";

static void check_present_log(const std::string &path, platform::file_handle log,
                              check_report *report) {
    report->push_back({check_result::ok, path, "can be written"});
    bool is_private = true;
    if (!platform::file_is_private(log, &is_private) && !is_private) {
        report->push_back({check_result::warning, path,
                           "others can read it, and it holds mail addresses; chmod 600"});
    }
}

void check_log(const std::string &path, check_report *report) {
    platform::file_handle log = platform::invalid_file;
    const uint32_t error = platform::file_open(path.c_str(), {.append = true}, &log);
    if (!error) {
        check_present_log(path, log, report);
        platform::file_close(log);
        return;
    }
    if (!data_files::is_missing(error)) {
        report->push_back(
            {check_result::error, path, "can't be written: " + data_files::system_text(error)});
        return;
    }
    if (const uint32_t failed = try_folder_of(path)) {
        report->push_back({check_result::error, path,
                           "can't be made: " + data_files::system_text(failed) + folder_advice});
        return;
    }
    report->push_back({check_result::ok, path, "can be made"});
}

void check_metrics(const std::string &path, check_report *report) {
    if (const uint32_t error = try_folder_of(path)) {
        report->push_back({check_result::error, path,
                           "can't be written: " + data_files::system_text(error) + folder_advice});
        return;
    }
    report->push_back({check_result::ok, path, "can be written"});
    if (!path.ends_with(".prom")) {
        report->push_back(
            {check_result::warning, path,
             "does not end in .prom; node_exporter's textfile collector passes it over"});
    }
}

// --- all of it ----------------------------------------------------------------------------------

static void check_dns(const policyd_arguments &arguments, check_report *report) {
    if (arguments.dns == dns_is_off) {
        report->push_back({check_result::warning, "DNS", "is not asked, as --dns off says"});
        return;
    }
    const auto live = live_dns(arguments.server);
    check_resolver(*live, report);
    check_block_lists(*live, block_list_zones(), report);
}

exit_status check_policyd(const policyd_arguments &arguments, uint32_t socket_mode,
                          std::ostream &out) {
    const surroundings chosen(arguments.configuration.drive_c, arguments.configuration.registry);
    check_report report;
    check_listening(arguments.listen, socket_mode, mail_server_users(), &report);
    if (arguments.listen.empty()) {
        report.push_back({check_result::warning, "--listen",
                          "no place is named, so that only sockets of systemd would do"});
    }
    check_configuration(quillfence_base_dir, &report);
    if (!arguments.log.empty()) {
        check_log(arguments.log, &report);
    }
    if (!arguments.metrics.empty()) {
        check_metrics(arguments.metrics, &report);
    }
    check_dns(arguments, &report);
    write_report(report, out);
    return has_errors(report) ? exit_status::no : exit_status::done;
}

// --- the report ---------------------------------------------------------------------------------

void write_report(const check_report &report, std::ostream &out) {
    static constexpr const char *words[] = {"ok       ", "warning  ", "error    "};
    for (const check_line &line : report) {
        out << words[static_cast<size_t>(line.is)] << data_files::printable(line.subject) << ": "
            << data_files::printable(line.text) << '\n';
    }
}

bool has_errors(const check_report &report) {
    return std::ranges::any_of(
        report, [](const check_line &line) { return line.is == check_result::error; });
}

} // namespace quillfence::programs
