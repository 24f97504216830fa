#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "failing_memory.h"
#include "quillfence-iprange.h"
#include "range_bytes.h"
#include "vc_file.h"

namespace quillfence::testing {
namespace {

constexpr char dir[] = "c:/quillfence";
constexpr char path[] = "c:/quillfence/ips.range";
constexpr char new_path[] = "c:/quillfence/ips.range.new";
constexpr char backup_path[] = "c:/quillfence/ips.range.bak";

const std::string first = record({10, 0, 0, 1}, {10, 0, 0, 5}, "first");
const std::string second = record({10, 0, 1, 1}, {10, 0, 1, 5});
const std::string third = record({10, 0, 2, 1}, {10, 0, 2, 5}, "third");

std::string shown(const char *message) {
    return message ? message : "success";
}

class range_editor_test : public drive_test {
  protected:
    void put(const std::string &bytes) {
        drive.write(path, bytes);
    }
    std::string get() {
        return drive.read(path);
    }
    std::string add(const char *low, const char *high, const char *comment = nullptr) {
        const char *text = "unset";
        const int done = ipr_add(dir, "ips.range", low, high, comment, &text);
        EXPECT_EQ(done, text == nullptr);
        return shown(text);
    }
    // The error text; "absent" for a 0 without one.
    std::string del(const char *low, const char *high) {
        const char *text = "unset";
        const int done = ipr_del_range_from_file(dir, "ips.range", low, high, &text);
        EXPECT_FALSE(done && text);
        return done ? "success" : text ? text : "absent";
    }
    void expect_no_leftovers(const std::string &name) {
        EXPECT_FALSE(drive.exists(new_path)) << name;
        EXPECT_FALSE(drive.exists(backup_path)) << name;
    }
};

// --- ipr_add ---

TEST_F(range_editor_test, add_begins_a_file) {
    EXPECT_EQ(add("10.0.0.1", "10.0.0.5", "first"), "success");
    EXPECT_EQ(get(), header(2, 1) + first);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "success");
    EXPECT_EQ(get(), header(2, 2) + first + second);
    EXPECT_EQ(add("10.0.2.1", "10.0.2.5", "third"), "success");
    EXPECT_EQ(get(), header(2, 3) + first + second + third);
    EXPECT_EQ(file_contains_ip_range_match("ips.range", "10.0.1.3", dir), 1);
    EXPECT_EQ(ipr_add(dir, "ips.range", "10.9.0.1", "10.9.0.1", nullptr, nullptr), 1)
        << "nobody need ask for the text";
}

TEST_F(range_editor_test, add_begins_a_file_without_a_valid_header_anew) {
    for (const std::string &bytes :
         {std::string(), std::string("short"), header(3, 7) + second, std::string(500, 'x')}) {
        put(bytes);
        EXPECT_EQ(add("10.0.0.1", "10.0.0.5", "first"), "success");
        EXPECT_EQ(get(), header(2, 1) + first);
    }
}

TEST_F(range_editor_test, the_same_range_again) {
    const std::string before = header(2, 3) + first + second + third;
    put(before);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Entry already exists");
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5", ""), "Entry already exists")
        << "an empty comment is none";
    EXPECT_EQ(get(), before);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5", "now with a comment"), "success");
    EXPECT_EQ(get(), header(2, 3) + first +
                         record({10, 0, 1, 1}, {10, 0, 1, 5}, "now with a comment") + third);
    EXPECT_EQ(add("10.0.0.1", "10.0.0.5", "x"), "success");
    EXPECT_EQ(get().substr(16, 264), record({10, 0, 0, 1}, {10, 0, 0, 5}, "x"))
        << "nothing of the longer comment is left";
}

TEST_F(range_editor_test, comments_have_up_to_255_characters) {
    const std::string x255(255, 'x');
    EXPECT_EQ(add("10.0.0.1", "10.0.0.5", x255.c_str()), "success");
    EXPECT_EQ(get(), header(2, 1) + record({10, 0, 0, 1}, {10, 0, 0, 5}, x255));
    EXPECT_EQ(add("10.0.0.6", "10.0.0.7", (x255 + "x").c_str()), "Invalid arguments to add");
}

TEST_F(range_editor_test, add_refuses) {
    put(header(2, 1) + first);
    EXPECT_EQ(add(nullptr, "10.0.0.5"), "Invalid arguments to add");
    EXPECT_EQ(add("10.0.0.5", ""), "Invalid arguments to add");
    EXPECT_EQ(log.errors(), lines(2, "__sane_ip: IP address argument is empty or NULL"));
    EXPECT_EQ(add("10.0.0.5", "x"), "Invalid arguments to add");
    EXPECT_EQ(log.errors(), lines{"__sane_ip: Invalid IP address argument [x]"});
    EXPECT_EQ(add("10.0.0.5", "10.0.0.1"), "Invalid ip range to add");
    EXPECT_EQ(add("10.0.0.5", "10.1.0.5"), "Invalid ip range to add");
    EXPECT_EQ(get(), header(2, 1) + first);
    const char *text = nullptr;
    EXPECT_EQ(ipr_add("", "ips.range", "10.0.0.1", "10.0.0.5", nullptr, &text), 0);
    EXPECT_STREQ(text, "Error opening file");
    EXPECT_EQ(log.errors(), lines{"__range_path: prefix argument is empty or NULL"});
    EXPECT_EQ(ipr_add("c:/quillfence/gone", "ips.range", "10.0.0.1", "10.0.0.5", nullptr, &text),
              0);
    EXPECT_STREQ(text, "Error opening file");
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 3"});

    const std::string legacy = header(1, 1) + legacy_record({10, 0, 0, 1}, {10, 0, 0, 5});
    put(legacy);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Legacy format detected, abort");
    EXPECT_EQ(get(), legacy);
    const std::string cut = header(2, 2) + first + second.substr(0, 100);
    put(cut);
    EXPECT_EQ(add("10.0.2.1", "10.0.2.5"), "Error traversing file");
    EXPECT_EQ(log.errors(), lines{"ipr_add: file c:/quillfence/ips.range is corrupt"});
    EXPECT_EQ(get(), cut);
}

// An add that was killed leaves such bytes. The new record goes behind the counted ones, so that it
// is found, and what stood there is not counted in its stead.
TEST_F(range_editor_test, add_cuts_bytes_behind_the_records) {
    for (const std::string &behind : {third, third.substr(0, 100), std::string("x"), third + "x"}) {
        put(header(2, 1) + first + behind);
        EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "success");
        EXPECT_EQ(get(), header(2, 2) + first + second);
    }
    put(header(2, 0) + first);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "success");
    EXPECT_EQ(get(), header(2, 1) + second);
    // A range that is found changes nothing; its comment is changed in a file without those bytes.
    put(header(2, 1) + first + third);
    EXPECT_EQ(add("10.0.0.1", "10.0.0.5"), "Entry already exists");
    EXPECT_EQ(get(), header(2, 1) + first + third);
    EXPECT_EQ(add("10.0.0.1", "10.0.0.5", "x"), "success");
    EXPECT_EQ(get(), header(2, 1) + record({10, 0, 0, 1}, {10, 0, 0, 5}, "x"));
}

TEST_F(range_editor_test, a_range_that_is_refused_has_begun_its_file) {
    EXPECT_EQ(add("10.0.0.5", "10.0.0.1"), "Invalid ip range to add");
    EXPECT_EQ(get(), header(2, 0));
}

// --- ipr_add_all ---

range_addition addition_of(const ipv4 &low, const ipv4 &high) {
    return {{address(low), address(high)}, range_outcome::added};
}

std::string outcomes_of(const std::vector<range_addition> &all) {
    std::string letters;
    for (const range_addition &one : all) {
        letters += "arp"[static_cast<int>(one.outcome)]; // added, repeated, present
    }
    return letters;
}

std::string add_all(std::vector<range_addition> *all, const char *comment = nullptr) {
    const char *text = "unset";
    const int done = ipr_add_all(dir, "ips.range", all->data(), static_cast<uint32_t>(all->size()),
                                 comment, &text);
    EXPECT_EQ(done, text == nullptr);
    return shown(text);
}

TEST_F(range_editor_test, add_all_begins_a_file) {
    std::vector<range_addition> all = {addition_of({10, 0, 1, 1}, {10, 0, 1, 5}),
                                       addition_of({10, 0, 0, 1}, {10, 0, 0, 5})};
    EXPECT_EQ(add_all(&all, "x"), "success");
    EXPECT_EQ(get(), header(2, 2) + record({10, 0, 1, 1}, {10, 0, 1, 5}, "x") +
                         record({10, 0, 0, 1}, {10, 0, 0, 5}, "x"));
    EXPECT_EQ(outcomes_of(all), "aa");
}

TEST_F(range_editor_test, add_all_passes_over_what_is_there) {
    put(header(2, 2) + first + third + second.substr(0, 40)); // an add was killed
    std::vector<range_addition> all = {
        addition_of({10, 0, 2, 1}, {10, 0, 2, 5}), addition_of({10, 0, 1, 1}, {10, 0, 1, 5}),
        addition_of({10, 0, 2, 1}, {10, 0, 2, 5}), addition_of({10, 0, 1, 1}, {10, 0, 1, 5}),
        addition_of({10, 0, 0, 1}, {10, 0, 0, 4})};
    EXPECT_EQ(add_all(&all), "success");
    EXPECT_EQ(outcomes_of(all), "parra");
    const std::string after =
        header(2, 4) + first + third + second + record({10, 0, 0, 1}, {10, 0, 0, 4});
    EXPECT_EQ(get(), after);
    call_watch calls;
    EXPECT_EQ(add_all(&all, "no comment is changed"), "success");
    EXPECT_EQ(outcomes_of(all), "pprrp");
    EXPECT_EQ(get(), after);
    EXPECT_EQ(calls.count("file_write"), 0);
}

TEST_F(range_editor_test, add_all_refuses) {
    const std::string before = header(2, 1) + first;
    put(before);
    for (const auto &[low, high] :
         std::vector<std::pair<ipv4, ipv4>>{{{10, 0, 0, 5}, {10, 0, 0, 1}},
                                            {{10, 0, 0, 5}, {10, 1, 0, 5}},
                                            {{0, 0, 0, 0}, {0, 0, 0, 9}},
                                            {{255, 255, 0, 0}, {255, 255, 255, 255}}}) {
        std::vector<range_addition> all = {addition_of({10, 0, 1, 1}, {10, 0, 1, 5}),
                                           addition_of(low, high)};
        EXPECT_EQ(add_all(&all), "Invalid ip range to add");
    }
    std::vector<range_addition> all = {addition_of({10, 0, 1, 1}, {10, 0, 1, 5})};
    EXPECT_EQ(add_all(&all, std::string(256, 'x').c_str()), "Invalid arguments to add");
    EXPECT_EQ(log.errors(), lines{"ipr_add_all: Invalid argument"});
    EXPECT_EQ(get(), before);
    put(header(1, 1) + legacy_record({10, 0, 0, 1}, {10, 0, 0, 5}));
    EXPECT_EQ(add_all(&all), "Legacy format detected, abort");
    const std::string cut = header(2, 2) + first + second.substr(0, 100);
    put(cut);
    EXPECT_EQ(add_all(&all), "Error traversing file");
    EXPECT_EQ(log.errors(), lines{"ipr_add_all: file c:/quillfence/ips.range is corrupt"});
    EXPECT_EQ(get(), cut);
}

// Two steps to stable storage, and no write for each record.
TEST_F(range_editor_test, add_ten_thousand) {
    put(header(2, 1) + first);
    std::vector<range_addition> all;
    std::string records;
    for (int i = 0; i < 10000; ++i) {
        const ipv4 low = {20 + i / 250, i % 250, 3, 4};
        all.push_back(addition_of(low, low));
        records += record(low, low, "many");
    }
    call_watch calls;
    EXPECT_EQ(add_all(&all, "many"), "success");
    EXPECT_EQ(get(), header(2, 10001) + first + records);
    EXPECT_EQ(calls.count("file_sync"), 2);
    EXPECT_EQ(calls.count("edit_lock_take"), 1);
    EXPECT_EQ(calls.count("path_replace"), 0);
    EXPECT_LE(calls.count("file_write"), static_cast<int>(records.size() / 4096 + 124));
    EXPECT_EQ(file_contains_ip_range_match("ips.range", "59.249.3.4", dir), 1);
}

// Whichever write fails, none of the records stays.
TEST_F(range_editor_test, add_all_on_a_full_disk) {
    const std::string before = header(2, 1) + first;
    put(before);
    std::vector<range_addition> all;
    for (int i = 0; i < 300; ++i) { // more than one piece
        const ipv4 low = {20, i / 250, i % 250, 4};
        all.push_back(addition_of(low, low));
    }
    int failures = 0;
    for (;; ++failures) {
        call_watch calls;
        calls.fail("file_write", failures + 1, 112);
        const std::string said = add_all(&all);
        if (!calls.failed()) {
            EXPECT_EQ(said, "success");
            break;
        }
        EXPECT_EQ(said, "Error writing file");
        EXPECT_EQ(get(), before) << failures;
    }
    EXPECT_GT(failures, 3);
    EXPECT_EQ(log.errors(), lines(static_cast<size_t>(failures),
                                  "vc_write: fatal error on block write (w32) got error code 112"));
    EXPECT_EQ(get().size(), 16 + 301 * 264u);
}

// --- ipr_del_range_from_file ---

TEST_F(range_editor_test, del) {
    const std::string all = header(2, 3) + first + second + third;
    const std::string same_low = record({10, 0, 0, 1}, {10, 0, 0, 9});
    const std::string same_high = record({10, 0, 0, 0}, {10, 0, 0, 5});
    const struct {
        const char *name;
        std::string before;
        const char *low, *high, *want;
        std::string after;
    } cases[] = {
        {"the first", all, "10.0.0.1", "10.0.0.5", "success", header(2, 2) + second + third},
        {"the middle", all, "10.0.1.1", "10.0.1.5", "success", header(2, 2) + first + third},
        {"the last", all, "10.0.2.1", "10.0.2.5", "success", header(2, 2) + first + second},
        {"the only one", header(2, 1) + first, "10.0.0.1", "10.0.0.5", "success", header(2, 0)},
        {"every equal one", header(2, 3) + first + second + first, "10.0.0.1", "10.0.0.5",
         "success", header(2, 1) + second},
        {"one that shares an end stays", header(2, 3) + same_low + first + same_high, "10.0.0.1",
         "10.0.0.5", "success", header(2, 2) + same_low + same_high},
        {"another low", all, "10.0.0.2", "10.0.0.5", "absent", all},
        {"another high", all, "10.0.0.1", "10.0.0.4", "absent", all},
        {"ends the wrong way round", all, "10.0.0.5", "10.0.0.1", "absent", all},
        {"an address that is none", all, "x", "10.0.0.1", "Invalid arguments to add", all},
        {"legacy", header(1, 0), "10.0.0.1", "10.0.0.5", "Legacy format detected, abort",
         header(1, 0)},
        {"empty file", "", "10.0.0.1", "10.0.0.5", "Error opening file", ""},
        {"bad header", header(3, 0), "10.0.0.1", "10.0.0.5", "Error opening file", header(3, 0)},
        {"cut behind the record", header(2, 3) + first + second, "10.0.0.1", "10.0.0.5",
         "Error reading file", header(2, 3) + first + second},
        {"cut before the record", header(2, 3) + first + second, "10.0.2.1", "10.0.2.5",
         "Error reading file", header(2, 3) + first + second},
        {"bytes behind the records go", all + "rest", "10.0.2.1", "10.0.2.5", "success",
         header(2, 2) + first + second},
    };
    for (const auto &c : cases) {
        put(c.before);
        EXPECT_EQ(del(c.low, c.high), c.want) << c.name;
        EXPECT_EQ(get(), c.after) << c.name;
        expect_no_leftovers(c.name);
        log.errors();
    }
    drive.remove(path);
    EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), "Error opening file");
    EXPECT_FALSE(drive.exists(path));
    EXPECT_EQ(ipr_del_range_from_file(dir, "ips.range", "x", "10.0.0.5", nullptr), 0);
    log.errors();
}

TEST_F(range_editor_test, del_of_many_records) {
    std::string before = header(2, 300);
    std::string after = header(2, 299);
    for (int i = 0; i < 300; ++i) {
        const std::string one = record({10, i / 200, i % 200, 1}, {10, i / 200, i % 200, 9});
        before += one;
        after += i == 250 ? "" : one;
    }
    put(before);
    EXPECT_EQ(del("10.1.50.1", "10.1.50.9"), "success");
    EXPECT_EQ(get(), after);
}

TEST_F(range_editor_test, left_over_files_do_no_harm) {
    put(header(2, 2) + first + second);
    drive.write(new_path, header(2, 9) + third + third);
    drive.write(backup_path, "an old backup");
    EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), "success");
    EXPECT_EQ(get(), header(2, 1) + second);
    expect_no_leftovers("");
}

TEST_F(range_editor_test, a_backup_without_its_range_file_is_put_back) {
    const std::string old = header(2, 2) + first + second;
    const struct {
        const char *name;
        std::function<std::string()> edit;
        std::string operation;
        std::string after;
    } cases[] = {
        {"add", [&] { return add("10.0.2.1", "10.0.2.5", "third"); }, "ipr_add",
         header(2, 3) + first + second + third},
        {"del", [&] { return del("10.0.0.1", "10.0.0.5"); }, "ipr_del_range_from_file",
         header(2, 1) + second},
        {"convert",
         [] { return std::string(ipr_convert_file(dir, "ips.range") ? "success" : "failure"); },
         "ipr_convert_file", old},
    };
    for (const auto &c : cases) {
        drive.remove(path);
        drive.write(backup_path, old);
        EXPECT_EQ(c.edit(), "success") << c.name;
        EXPECT_EQ(log.errors(), lines{c.operation + ": file " + path +
                                      " was missing and has been restored from " + backup_path})
            << c.name;
        EXPECT_EQ(get(), c.after) << c.name;
        expect_no_leftovers(c.name);
    }
}

TEST_F(range_editor_test, a_backup_that_cannot_be_put_back_stays) {
    drive.write(backup_path, header(2, 1) + first);
    call_watch calls;
    calls.fail("path_rename", 1, 5);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error opening file");
    EXPECT_EQ(log.errors(), lines{"ipr_add: Failed to rename " + std::string(backup_path) + " to " +
                                  path + ": " + std::strerror(EACCES)});
    EXPECT_FALSE(drive.exists(path));
    EXPECT_EQ(drive.read(backup_path), header(2, 1) + first);
}

class range_editor_trace_test : public traced_drive_test {};

TEST_F(range_editor_trace_test, add_traces_what_it_cuts) {
    drive.write(path, header(2, 1) + first + "xyz");
    EXPECT_EQ(ipr_add(dir, "ips.range", "10.0.1.1", "10.0.1.5", nullptr, nullptr), 1);
    const lines trace = log.transcript();
    EXPECT_EQ(std::count(trace.begin(), trace.end(),
                         "D ipr_add: file c:/quillfence/ips.range had 3 bytes behind its records, "
                         "which are cut"),
              1);
}

TEST_F(range_editor_trace_test, del_traces_an_absent_range) {
    drive.write(path, header(2, 1) + first);
    EXPECT_EQ(ipr_del_range_from_file(dir, "ips.range", "10.0.0.1", "10.0.0.4", nullptr), 0);
    const lines trace = log.transcript();
    EXPECT_EQ(std::count(trace.begin(), trace.end(),
                         "D ipr_del_range_from_file: file c:/quillfence/ips.range does not contain "
                         "range 10.0.0.1-10.0.0.4 - nothing to remove"),
              1);
}

// --- ipr_convert_file ---

TEST_F(range_editor_test, convert) {
    put(header(1, 3) + legacy_record({10, 0, 0, 1}, {10, 0, 0, 5}) +
        legacy_record({10, 0, 1, 1}, {10, 0, 1, 5}) + legacy_record({10, 0, 9, 9}, {10, 0, 0, 1}));
    EXPECT_EQ(ipr_convert_file(dir, "ips.range"), 1);
    EXPECT_EQ(get(), header(2, 3) + record({10, 0, 0, 1}, {10, 0, 0, 5}) + second +
                         record({10, 0, 9, 9}, {10, 0, 0, 1}))
        << "records are not judged";
    expect_no_leftovers("");
    EXPECT_EQ(add("10.0.2.1", "10.0.2.5", "third"), "success");
}

TEST_F(range_editor_test, convert_leaves_the_rest_alone) {
    EXPECT_EQ(ipr_convert_file(dir, "ips.range"), 1) << "a missing file";
    EXPECT_FALSE(drive.exists(path));
    const struct {
        const char *name;
        std::string bytes;
        int want;
        lines want_errors;
    } cases[] = {
        {"version 2", header(2, 1) + first, 1, {}},
        {"version 0x102", header(0x102, 1) + first, 1, {}},
        {"empty", "", 0, {}},
        {"short", "x", 0, {}},
        {"version 3",
         header(3, 0),
         0,
         {"__open_range_file: file c:/quillfence/ips.range is corrupt"}},
        {"legacy, cut",
         header(1, 2) + legacy_record({10, 0, 0, 1}, {10, 0, 0, 5}) + "abc",
         0,
         {"ipr_convert_file: file c:/quillfence/ips.range is corrupt"}},
    };
    for (const auto &c : cases) {
        put(c.bytes);
        EXPECT_EQ(ipr_convert_file(dir, "ips.range"), c.want) << c.name;
        EXPECT_EQ(get(), c.bytes) << c.name;
        EXPECT_EQ(log.errors(), c.want_errors) << c.name;
        expect_no_leftovers(c.name);
    }
}

// A file that somebody else holds open for writing can't be opened for that here.
TEST_F(range_editor_test, convert_writes_to_legacy_files_only) {
    const std::string current = header(2, 1) + first;
    const std::string legacy = header(1, 1) + legacy_record({10, 0, 0, 1}, {10, 0, 0, 5});
    put(current);
    vc_handle other = vc_open_ex(path, 1, 1, 0);
    EXPECT_EQ(ipr_convert_file(dir, "ips.range"), 1);
    EXPECT_EQ(log.errors(), lines{});
    vc_close(other);
    EXPECT_EQ(get(), current);

    put(legacy);
    other = vc_open_ex(path, 1, 1, 0);
    EXPECT_EQ(ipr_convert_file(dir, "ips.range"), 0);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 32"});
    vc_close(other);
    EXPECT_EQ(get(), legacy);
}

// --- the replacement and its failures ---

struct failing_call {
    const char *name;
    const char *call;
    int n;
    const char *want;
    std::string want_error; // without the operation; empty for that of opening
    bool leaves_backup;
};

TEST_F(range_editor_test, each_step_of_the_replacement_can_fail) {
    const std::string before = header(2, 2) + first + second;
    const std::string after = header(2, 1) + second;
    const std::string denied = std::strerror(EACCES);
    const std::string replacing =
        "Failed to rename " + std::string(new_path) + " to " + path + ": " + denied;
    const std::vector<failing_call> cases = {
        {"new file is made", "temporary_create", 1, "Error opening file", "", true},
        {"old backup is deleted", "path_delete", 1, "Error removing old backup file",
         "Failed to remove old backup file " + std::string(backup_path) + ": " + denied, true},
        {"backup is linked", "path_link", 1, "Error writing file",
         "Failed to link " + std::string(path) + " to " + backup_path + ": " + denied, false},
        {"new file is synced", "file_sync", 1, "Error writing file", replacing, false},
        {"new file takes the place", "path_replace", 1, "Error writing file", replacing, false},
        {"backup is deleted", "path_delete", 2, "success",
         "Failed to remove backup file " + std::string(backup_path) + ": " + denied, true},
    };
    for (const auto &c : cases) {
        put(before);
        drive.write(backup_path, "an old backup");
        {
            call_watch calls;
            calls.fail(c.call, c.n, 5);
            EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), c.want) << c.name;
            EXPECT_EQ(calls.failed(), 1) << c.name;
        }
        EXPECT_EQ(log.errors(),
                  lines{c.want_error.empty() ? "vc_open_ex: unknown error opening - "
                                               "got error code 5"
                                             : "ipr_del_range_from_file: " + c.want_error})
            << c.name;
        EXPECT_EQ(get(), std::string(c.want) == "success" ? after : before) << c.name;
        EXPECT_EQ(drive.exists(backup_path), c.leaves_backup) << c.name;
        EXPECT_FALSE(drive.exists(new_path)) << c.name;
        drive.remove(backup_path);
    }
}

TEST_F(range_editor_test, where_there_are_no_links_there_is_no_backup) {
    put(header(2, 2) + first + second);
    call_watch calls;
    calls.fail("path_link", 1, 50);
    EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), "success");
    EXPECT_EQ(calls.failed(), 1);
    EXPECT_EQ(get(), header(2, 1) + second);
    expect_no_leftovers("");
}

TEST_F(range_editor_test, convert_and_a_new_comment_are_replacements_too) {
    const std::string legacy = header(1, 1) + legacy_record({10, 0, 0, 1}, {10, 0, 0, 5});
    const std::string failed =
        "Failed to rename " + std::string(new_path) + " to " + path + ": " + std::strerror(EACCES);
    call_watch calls;
    put(legacy);
    calls.fail("path_replace", 1, 5);
    EXPECT_EQ(ipr_convert_file(dir, "ips.range"), 0);
    EXPECT_EQ(log.errors(), lines{"ipr_convert_file: " + failed});
    EXPECT_EQ(get(), legacy);
    expect_no_leftovers("");
    EXPECT_EQ(ipr_convert_file(dir, "ips.range"), 1);
    const std::string before = get();
    calls.fail("path_replace", 1, 5);
    EXPECT_EQ(add("10.0.0.1", "10.0.0.5", "x"), "Error writing file");
    EXPECT_EQ(log.errors(), lines{"ipr_add: " + failed});
    EXPECT_EQ(get(), before);
    expect_no_leftovers("");
}

// A record is on stable storage before it is counted, and the count before the add is reported.
TEST_F(range_editor_test, adds_in_this_order) {
    put(header(2, 1) + first);
    call_watch watch;
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "success");
    lines steps = watch.take();
    std::erase_if(steps, [](const std::string &call) {
        return call != "file_write" && call != "file_sync" && call != "edit_lock_take";
    });
    EXPECT_EQ(steps,
              (lines{"edit_lock_take", "file_write", "file_sync", "file_write", "file_sync"}));
}

// Whichever of the two can't be brought to stable storage: the add fails, and the file is the old
// one.
TEST_F(range_editor_test, an_add_that_is_not_on_stable_storage_has_failed) {
    const std::string before = header(2, 1) + first;
    for (int n = 1; n <= 2; ++n) {
        put(before);
        call_watch calls;
        calls.fail("file_sync", n, 1117);
        EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error writing file");
        EXPECT_EQ(get(), before) << n;
        EXPECT_EQ(log.errors(), lines{"ipr_add: Failed to sync " + std::string(path) + ": " +
                                      std::strerror(EIO)});
    }
}

TEST_F(range_editor_test, a_new_file_that_cannot_be_written_goes) {
    const std::string before = header(2, 2) + first + second;
    put(before);
    call_watch calls;
    calls.fail("file_write", 2, 112, true);
    EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), "Error writing file");
    EXPECT_EQ(log.errors(),
              lines(1, "vc_write: fatal error on block write (w32) got error code 112"));
    EXPECT_EQ(get(), before);
    expect_no_leftovers("");
}

TEST_F(range_editor_test, a_temporary_file_that_stays_is_reported) {
    put(header(2, 2) + first + second.substr(0, 10));
    call_watch calls;
    calls.fail("path_delete", 1, 5);
    EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), "Error reading file");
    EXPECT_EQ(log.errors(),
              (lines{"ipr_del_range_from_file: file c:/quillfence/ips.range is corrupt",
                     "__remove_temporary: Error removing file " + std::string(new_path) + ": " +
                         std::strerror(EACCES)}));
}

TEST_F(range_editor_test, a_full_disk_leaves_the_file_as_it_was) {
    const std::string before = header(2, 1) + first;
    put(before);
    call_watch calls;
    for (int n = 1; n <= 2; ++n) { // the record, the header
        calls.fail("file_write", n, 112);
        EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error writing file");
        EXPECT_EQ(get(), before) << n;
    }
    calls.fail("file_write", 1, 112);
    EXPECT_EQ(add("10.0.0.1", "10.0.0.5", "another"), "Error writing file");
    EXPECT_EQ(get(), before);
    EXPECT_EQ(log.errors(),
              lines(3, "vc_write: fatal error on block write (w32) got error code 112"));
}

// As a full disk refuses it, at any step before it has its place.
TEST_F(range_editor_test, a_file_that_could_not_be_begun_is_not_there) {
    for (const char *call : {"temporary_create", "file_write", "file_sync", "path_replace"}) {
        call_watch calls;
        calls.fail(call, 1, 112);
        EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error opening file");
        EXPECT_EQ(calls.failed(), 1) << call;
        EXPECT_FALSE(drive.exists(path)) << call;
        expect_no_leftovers("");
    }
    log.take();
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "success");
}

// It is somebody's, though it holds nothing.
TEST_F(range_editor_test, an_empty_file_stays_when_it_could_not_be_begun) {
    put("");
    call_watch calls;
    calls.fail("file_write", 1, 112);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error opening file");
    EXPECT_EQ(log.errors(),
              lines(1, "vc_write: fatal error on block write (w32) got error code 112"));
    EXPECT_TRUE(drive.exists(path));
    EXPECT_EQ(get(), "");
}

// The file or the new one can't be opened, or a path of the two others can't be formed.
TEST_F(range_editor_test, a_lack_of_memory_has_its_text) {
    const std::string before = header(2, 2) + first + second;
    put(before);
    std::set<std::string> texts;
    const char *text = nullptr;
    sweep_allocations(
        [&] { ipr_del_range_from_file(dir, "ips.range", "10.0.0.1", "10.0.0.5", &text); },
        [&](unsigned n) {
            texts.insert(shown(text));
            EXPECT_EQ(get(), before) << n;
            EXPECT_FALSE(log.errors().empty()) << n;
        });
    EXPECT_EQ(texts, (std::set<std::string>{"Error opening file", "Out of memory error"}));
    EXPECT_EQ(get(), header(2, 1) + second);
}

int writes_so_far;

// Half of the first write, then a full disk for one.
uint32_t half_a_write(const char *call, const char *) {
    if (std::strcmp(call, "file_write") != 0) {
        return 0;
    }
    ++writes_so_far;
    return writes_so_far == 1 ? uint32_t{platform::observed_half} : writes_so_far == 2 ? 112u : 0u;
}

TEST_F(range_editor_test, half_a_record_does_not_stay) {
    const std::string before = header(2, 1) + first;
    put(before);
    writes_so_far = 0;
    platform::set_call_observer(half_a_write);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error writing file");
    platform::set_call_observer(nullptr);
    EXPECT_EQ(writes_so_far, 2);
    EXPECT_EQ(log.errors(), lines{"vc_write: fatal error on block write (w32) got error code 112"});
    EXPECT_EQ(get(), before);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "success") << "with room again";
    EXPECT_EQ(get(), header(2, 2) + first + second);
}

TEST_F(range_editor_test, a_read_only_file) {
    const std::string before = header(2, 1) + first;
    put(before);
    call_watch calls;
    calls.fail("edit_lock_take", 1, 5);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error opening file");
    calls.fail("edit_lock_take", 1, 5);
    EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), "Error opening file");
    EXPECT_EQ(log.errors(), lines(2, "vc_open_ex: unknown error opening - got error code 5"));
    EXPECT_EQ(get(), before);
}

TEST_F(range_editor_test, of_two_editors_at_once_the_second_is_refused) {
    const std::string before = header(2, 1) + first;
    put(before);
    const vc_handle other = vc_open_ex(path, 1, 1, 0);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "Error opening file");
    EXPECT_EQ(del("10.0.0.1", "10.0.0.5"), "Error opening file");
    EXPECT_EQ(log.errors(), lines(2, "vc_open_ex: unknown error opening - got error code 32"));
    EXPECT_EQ(file_contains_ip_range_match("ips.range", "10.0.0.3", dir), 1)
        << "checks go on during an edit";
    vc_close(other);
    EXPECT_EQ(get(), before);
    EXPECT_EQ(add("10.0.1.1", "10.0.1.5"), "success");
}

// Every call of an edit fails once: the file is the old or the new one, and the result says which.
TEST_F(range_editor_test, never_a_mixture) {
    const std::string before = header(2, 2) + first + second;
    const std::string legacy = header(1, 2) + first.substr(0, 8) + second.substr(0, 8);
    const struct {
        const char *name;
        std::string before;
        std::function<bool()> edit;
    } edits[] = {
        {"add", before, [&] { return add("10.0.2.1", "10.0.2.5", "third") == "success"; }},
        {"comment", before, [&] { return add("10.0.0.1", "10.0.0.5", "new") == "success"; }},
        {"del", before, [&] { return del("10.0.0.1", "10.0.0.5") == "success"; }},
        {"convert", legacy, [&] { return ipr_convert_file(dir, "ips.range") == 1; }},
    };
    for (const auto &edit : edits) {
        put(edit.before);
        ASSERT_TRUE(edit.edit()) << edit.name;
        const std::string after = get();
        for (const char *const call : {"edit_lock_take", "temporary_create", "path_target",
                                       "file_read", "file_write", "file_seek", "file_size",
                                       "file_truncate", "file_sync", "path_link", "path_replace"}) {
            int failures = 1;
            for (int n = 1; failures; ++n) {
                put(edit.before);
                bool done = false;
                {
                    call_watch calls;
                    calls.fail(call, n, 1117);
                    done = edit.edit();
                    failures = calls.failed();
                }
                const std::string where =
                    std::string(edit.name) + ": " + call + " " + std::to_string(n);
                const std::string got = get();
                EXPECT_TRUE(got == edit.before || got == after) << where;
                EXPECT_TRUE(!done || got == after) << where;
                expect_no_leftovers(where);
                log.errors();
            }
        }
    }
}

} // namespace
} // namespace quillfence::testing
