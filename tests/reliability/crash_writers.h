// Everything that writes files, each with a file to write over and the engine's own reader of it:
// what the reader sees is to be the old or the new state, whatever stopped the writer.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../matching/range_bytes.h"
#include "case_check.h"
#include "data_program.h"
#include "drive_c.h"
#include "heap_text.h"
#include "lookup.h"
#include "open_file.h"
#include "quillfence-file.h"
#include "quillfence-iprange.h"
#include "quillfence-log.h"
#include "quillfence-spam-hooks.h"
#include "quillfence_program.h"
#include "started_engine.h"
#include "tar_reader.h"
#include "tiny_rex_storage.h"
#include "vc_hashmap.h"
#include "vc_text.h"

namespace quillfence::testing {

inline constexpr char crash_dir[] = "c:/quillfence";

struct crash_writer {
    std::string name;
    std::string path;                                 // of the file
    std::function<void(const drive_c &)> prepare;     // puts the old file there
    std::function<bool()> write;                      // whether it reports success
    std::function<std::string(const drive_c &)> seen; // by the engine's reader
    bool lasts = true;                                // what was reported outlives a loss of power
    bool again_says = true;                           // writing once more is reported as success
    bool again_edits = true;                          // and is an edit like any other
    unsigned calls_apart = 1;                         // not every call of a long run is a kill
};

// Runs something of the tool, whose report is not wanted here.
inline bool quietly(const std::function<bool()> &run) {
    ::testing::internal::CaptureStdout();
    const bool result = run();
    ::testing::internal::GetCapturedStdout();
    return result;
}

// --- what readers see ---

inline std::string *lines_seen;
inline std::string list_seen(const drive_c &) {
    std::string all;
    lines_seen = &all;
    vc_iterate_file(crash_dir, "list", [](const char *line, uint32_t length) {
        lines_seen->append(line, length) += '\n';
    });
    return all;
}

// The counted records as bytes, and the answers to lookups. No file and one without records are the
// same.
inline std::string ranges_seen(const drive_c &drive) {
    const std::string path = std::string(crash_dir) + "/ranges";
    const std::string bytes = drive.exists(path) ? drive.read(path) : "";
    const size_t record = bytes.size() > 8 && bytes[8] == 1 ? 8 : 264;
    const size_t counted = bytes.size() < 16 ? 0 : static_cast<unsigned char>(bytes[12]) * record;
    std::string seen = counted ? bytes.substr(8, 4) + bytes.substr(16, counted) : "";
    for (const char *address : {"10.1.0.5", "10.2.0.5", "10.3.0.5"}) {
        const bool current = record == 264;
        seen += current && file_contains_ip_range_match("ranges", address, crash_dir) ? '1' : '0';
    }
    return seen;
}

inline std::string map_seen(const drive_c &) {
    vc_hashmap *map = vc_map_load("c:/quillfence/map");
    std::string seen = map ? std::to_string(vc_map_count(map)) : "none";
    for (uint32_t i = 0; map && i < vc_map_count(map); ++i) {
        const char *key = nullptr;
        void *value = nullptr;
        vc_map_index(map, i, &key, &value);
        seen += std::string(" ") + key + "=" + static_cast<const char *>(value);
    }
    vc_map_destroy(map);
    return seen;
}

inline std::string patterns_seen(const drive_c &) {
    std::string seen;
    for (const char *name : {"dyn1.example", "pool-1.example", "mail.example"}) {
        seen += compiled_regex_match("c:/quillfence/out", name) ? '1' : '0';
    }
    return seen;
}

// The names and bytes in an archive, but for the manifest, which has the time in it.
inline std::string archive_seen(const drive_c &) {
    data_files::open_file file;
    decision::tar_reader reader([&file](void *bytes, size_t size, size_t *got) {
        *got = 0;
        return file.is_open() ? file.read(bytes, size, got) : 0;
    });
    file.open("c:/quillfence/out");
    std::string seen;
    for (decision::tar_entry entry; reader.next(&entry);) {
        std::string bytes(static_cast<size_t>(entry.size), '\0');
        size_t got = 0;
        reader.read(bytes.data(), bytes.size(), &got);
        seen += entry.name == "manifest.json" ? "" : entry.name + "=" + bytes.substr(0, got) + "\n";
    }
    return seen + reader.problem();
}

inline std::string map_file_seen(const drive_c &) {
    std::string seen;
    for (const ipv4 &one : {ipv4{10, 9, 9, 9}, ipv4{11, 1, 2, 3}, ipv4{12, 1, 2, 3}}) {
        seen += lookupMapFile("c:/quillfence/out", address(one)) ? '1' : '0';
    }
    return seen;
}

inline std::string counts_seen(const drive_c &drive, const std::string &path) {
    const vc_handle file = vc_open_ex(path.c_str(), 0, 0, 0);
    const bool hourly = path.ends_with("hourly");
    uint32_t ham = 0;
    for (int i = 0; i < (hourly ? ql_hours : ql_days); ++i) {
        ql_counter counter = {};
        if (hourly ? ql_read_counter_hour(file, i, &counter)
                   : ql_read_counter_day(file, i, &counter)) {
            ham += counter.ham;
        }
    }
    vc_close(file);
    return std::to_string(ham) + " of " + std::to_string(drive.read(path).size());
}

// --- the writers ---

inline void have_ranges(const drive_c &drive, const std::string &behind = "") {
    drive.write("c:/quillfence/ranges",
                header(2, 2) + record({10, 1, 0, 0}, {10, 1, 0, 9}, "one") +
                    record({10, 2, 0, 0}, {10, 2, 0, 9}, std::string(255, 't')) + behind);
}
inline void have_legacy_ranges(const drive_c &drive) {
    drive.write("c:/quillfence/ranges", header(1, 2) + legacy_record({10, 1, 0, 0}, {10, 1, 0, 9}) +
                                            legacy_record({10, 2, 0, 0}, {10, 2, 0, 9}));
}

// More of each than one write takes, with one that is there already.
inline bool add_entries() {
    std::vector<std::string> texts = {"a@a.example"};
    for (int i = 0; i < 30; ++i) {
        texts.push_back("*@" + std::string(200, 'd') + std::to_string(i));
    }
    std::vector<list_addition> all;
    for (const std::string &text : texts) {
        all.push_back({text.c_str(), addition::added});
    }
    return !vc_add_entries(crash_dir, "list", all.data(), static_cast<uint32_t>(all.size()));
}
inline bool add_ranges() {
    std::vector<range_addition> all = {{{address({10, 1, 0, 0}), address({10, 1, 0, 9})}, {}},
                                       {{address({10, 3, 0, 0}), address({10, 3, 0, 9})}, {}}};
    for (int i = 0; i < 20; ++i) {
        all.push_back({{address({10, 4, i, 0}), address({10, 4, i, 9})}, {}});
    }
    return ipr_add_all(crash_dir, "ranges", all.data(), static_cast<uint32_t>(all.size()), "x",
                       nullptr) == 1;
}

inline bool save_map(int from, int entries) {
    vc_hashmap *map = vc_map_create(3, 20);
    for (int i = from; i < from + entries; ++i) {
        const std::string key = "key" + std::to_string(i);
        const std::string value = key + std::string(100, 'v');
        vc_map_store_ex(map, key.c_str(), heap_text(value.c_str()), value.size() + 1, 0, free);
    }
    const bool saved = vc_map_save(map, "c:/quillfence/map", 1);
    vc_map_destroy(map);
    return saved;
}

inline bool run_tool(std::vector<std::string> words,
                     int (*program)(int, char **) = data_tool::run) {
    words.insert(words.begin(), "quillfence-data");
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return program(static_cast<int>(words.size()), argv.data()) == 0;
}
inline bool compile_patterns() {
    return run_tool({"regex", "compile", "c:/quillfence/in", "c:/quillfence/out"});
}
inline bool collect_server() {
    return run_tool({"collect", "c:/quillfence/out"}, programs::run_quillfence);
}
inline bool build_map() {
    return run_tool({"blockmap", "build", "c:/quillfence/in", "c:/quillfence/out"});
}

inline bool log_a_line() {
    smtp_state state = {};
    char ip[] = "192.0.2.1";
    state.ip = ip;
    log_message(&state, "rule", log_type_ham);
    return true;
}
inline void have_log(const drive_c &drive) {
    drive.remove("c:/quillfence/log");
    drive.make_folder("c:/quillfence/log");
    log_a_line();
    log_a_line();
}
// Lines without the thread and the time, which differ.
inline std::string log_seen(const drive_c &drive) {
    const std::string bytes = drive.read("c:/quillfence/log/qflog");
    std::string seen;
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = bytes.find("\r\n", at);
        const size_t behind_thread = bytes.find("]: ", at);
        seen += end == std::string::npos || behind_thread > end
                    ? "torn"
                    : bytes.substr(behind_thread + 3, end - behind_thread - 3) + "\n";
        at = end == std::string::npos ? bytes.size() : end + 2;
    }
    return seen;
}

// A case that expects something else than an engine that is switched off decides.
inline void have_case(const drive_c &drive) {
    drive.write("c:/quillfence/control/enabled", "0\n");
    drive.write("c:/quillfence/case.json",
                R"({"schema": "quillfence.case/1", "transaction": {"ip": "10.1.2.3"},
                    "expect": {"verdict": "reject", "by": "engine_off"}})");
}
inline bool correct_case() {
    const programs::started_engine engine;
    const programs::check_options options = {.update = [](const programs::case_result &) {}};
    return programs::check_case("c:/quillfence/case.json", options).is ==
           programs::case_outcome::as_expected;
}
inline std::string case_seen(const drive_c &drive) {
    decision::json_problem problem;
    const auto read = decision::read_case(drive.read("c:/quillfence/case.json"), &problem);
    return read ? read->expect.verdict[0] + " by " + read->expect.by[0] : problem.text;
}

inline std::vector<crash_writer> crash_writers() {
    const std::string list = "c:/quillfence/list";
    const std::string ranges = "c:/quillfence/ranges";
    const std::string out = "c:/quillfence/out";
    const auto lists = [list](const char *bytes) {
        return [list, bytes](const drive_c &drive) { drive.write(list, bytes); };
    };
    const auto nothing = [](const std::string &path) {
        return [path](const drive_c &drive) { drive.remove(path); };
    };
    // A star alone exempts everybody: no part of a pattern may pass for a line.
    static constexpr char old_list[] = "# old\na@a.example\n*@b.example\n\tall of b\nc@c.example\n";
    std::vector<crash_writer> writers = {
        {"list add", list, lists(old_list),
         [] { return !vc_add_entry(crash_dir, "list", "*@d.example", nullptr, _stricmp); },
         list_seen, true, false},
        {"list add, first", list, nothing(list),
         [] { return !vc_add_entry(crash_dir, "list", "*@d.example", nullptr, _stricmp); },
         list_seen, true, false},
        {"list add, many", list, lists(old_list), add_entries, list_seen},
        {"list add, many, first", list, nothing(list), add_entries, list_seen},
        {"list comment", list, lists(old_list),
         [] { return !vc_add_entry(crash_dir, "list", "a@a.example", "why", _stricmp); },
         list_seen},
        {"list del", list, lists(old_list),
         [] { return !vc_del_entry(crash_dir, "list", "*@b.example", 0, _stricmp); }, list_seen,
         true, false},
        {"range add", ranges, [](const drive_c &drive) { have_ranges(drive); },
         [] { return ipr_add(crash_dir, "ranges", "10.3.0.0", "10.3.0.9", "x", nullptr) == 1; },
         ranges_seen},
        {"range add, first", ranges, nothing(ranges),
         [] { return ipr_add(crash_dir, "ranges", "10.3.0.0", "10.3.0.9", "x", nullptr) == 1; },
         ranges_seen},
        {"range add behind uncounted bytes", ranges,
         [](const drive_c &drive) {
             have_ranges(drive, record({10, 9, 0, 0}, {10, 9, 0, 9}).substr(0, 200));
         },
         [] { return ipr_add(crash_dir, "ranges", "10.3.0.0", "10.3.0.9", "x", nullptr) == 1; },
         ranges_seen},
        {"range add, many", ranges, [](const drive_c &drive) { have_ranges(drive); }, add_ranges,
         ranges_seen},
        {"range add, many, first", ranges, nothing(ranges), add_ranges, ranges_seen},
        {"range comment", ranges, [](const drive_c &drive) { have_ranges(drive); },
         [] { return ipr_add(crash_dir, "ranges", "10.2.0.0", "10.2.0.9", "new", nullptr) == 1; },
         ranges_seen},
        {"range del", ranges, [](const drive_c &drive) { have_ranges(drive); },
         [] {
             return ipr_del_range_from_file(crash_dir, "ranges", "10.1.0.0", "10.1.0.9", nullptr) ==
                    1;
         },
         ranges_seen, true, false},
        {"range convert", ranges, have_legacy_ranges,
         [] { return ipr_convert_file(crash_dir, "ranges") == 1; }, ranges_seen, true, true, false},
        {"saved map", "c:/quillfence/map", [](const drive_c &) { save_map(0, 50); },
         [] { return save_map(3, 20); }, map_seen},
        {"regex compile", out,
         [](const drive_c &drive) {
             drive.write("c:/quillfence/in", "^dyn[0-9]+\\.\n");
             compile_patterns();
             drive.write("c:/quillfence/in", "^pool-\n^mail\\.\n");
         },
         compile_patterns, patterns_seen},
        {"blockmap build", out,
         [](const drive_c &drive) {
             drive.write("c:/quillfence/in", "10.0.0.0/8\n11.1.2.3\n");
             build_map();
             drive.write("c:/quillfence/in", "12.1.2.0/24\n");
         },
         build_map, map_file_seen},
        {"case update", "c:/quillfence/case.json", have_case, correct_case, case_seen, true, true,
         false, 3},
        {"collect", out,
         [](const drive_c &drive) {
             drive.write("c:/quillfence/from_blacklist", "*@old.example\n");
             collect_server();
             drive.write("c:/quillfence/from_blacklist", "*@new.example\n");
         },
         collect_server, archive_seen, true, true, true, 7},
        {"mail log", "c:/quillfence/log/qflog", have_log, log_a_line, log_seen, false},
    };
    for (const bool hourly : {false, true}) {
        const auto path = [hourly] {
            int64_t midnight = 0;
            int month = 0;
            int day = 0;
            __absolute_date(&midnight, &month, &day);
            const std::string number = (month < 10 ? "0" : "") + std::to_string(month);
            return "c:/quillfence/log/.counterv2.dat." + (hourly ? "hourly" : number);
        };
        writers.push_back(
            {hourly ? "hourly counter" : "daily counter", path(), have_log, log_a_line,
             [path](const drive_c &drive) { return counts_seen(drive, path()); }, false});
    }
    return writers;
}

} // namespace quillfence::testing
