#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "failing_memory.h"
#include "quillfence-file.h"
#include "vc_file.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char dir[] = "c:/quillfence";
constexpr char list_path[] = "c:/quillfence/list";
constexpr char tmp_path[] = "c:/quillfence/list.tmp";

std::string shown(const char *message) {
    return message ? message : "success";
}

class editor_test : public drive_test {
  protected:
    void put(const std::string &bytes) {
        drive.write(list_path, bytes);
    }
    std::string get() {
        return drive.read(list_path);
    }
    void expect_no_tmp(const std::string &name) {
        EXPECT_FALSE(drive.exists(tmp_path)) << name;
    }
};

struct edit_case {
    const char *name;
    std::string before;
    const char *entry;
    const char *comment; // of vc_add_entry
    list_matcher matcher;
    const char *want_message; // null for success
    std::string after;
};

TEST_F(editor_test, add) {
    const std::string x255(255, 'x');
    const std::string x1022(1022, 'x');
    const std::string x1023(1023, 'x');
    const std::vector<edit_case> cases = {
        {"to an empty list", "", "a", nullptr, _stricmp, nullptr, "a\n"},
        {"at the end", "a\n", "b", nullptr, _stricmp, nullptr, "a\nb\n"},
        {"behind a line without LF", "a", "b", nullptr, _stricmp, nullptr, "a\nb\n"},
        {"CR LF becomes LF", "a\r\n\r\n", "b", nullptr, _stricmp, nullptr, "a\n\nb\n"},
        {"two CRs go", "a\r\r\n", "b", nullptr, _stricmp, nullptr, "a\nb\n"},
        {"a lone CR inside stays", "a\rc\n", "b", nullptr, _stricmp, nullptr, "a\rc\nb\n"},
        {"comments and blanks stay", "# c\n\n  a \n\tc\n", "b", nullptr, _stricmp, nullptr,
         "# c\n\n  a \n\tc\nb\n"},
        {"NULs are not lost", std::string("a\0b\nc\n", 6), "b", nullptr, _stricmp, nullptr,
         std::string("a\0b\nc\nb\n", 8)},
        {"a line of 1022", x1022 + "\n", "b", nullptr, _stricmp, nullptr, x1022 + "\nb\n"},
        {"a line of 1023 is cut there", x1023 + "y\n", "b", nullptr, _stricmp, nullptr,
         x1023 + "\ny\nb\n"},
        {"a line of exactly 1023 gets an empty one", x1023 + "\n", "b", nullptr, _stricmp, nullptr,
         x1023 + "\n\nb\n"},
        {"already there", "a\r\n", "a", nullptr, _stricmp, "Entry already exists", "a\r\n"},
        {"already there, other case", "A@b.example\n", "a@B.example", nullptr, _stricmp,
         "Entry already exists", "A@b.example\n"},
        {"already there, behind blanks", "  a\n", "a", nullptr, _stricmp, "Entry already exists",
         "  a\n"},
        {"covered by a wildcard", "*@b.example\n", "a@b.example", nullptr, __wildcardmatch,
         "Entry already exists", "*@b.example\n"},
        {"a comment line is no entry", "#a\n", "#a", nullptr, _stricmp, nullptr, "#a\n#a\n"},
        {"a TAB line is no entry", "a\n\tb\n", "b", nullptr, _stricmp, nullptr, "a\n\tb\nb\n"},

        {"comment on an entry", "a\nb\n", "a", "why", _stricmp, nullptr, "a\n\twhy\nb\n"},
        {"comment replaces one", "a\n\told\nb\n", "a", "new", _stricmp, nullptr, "a\n\tnew\nb\n"},
        {"only one TAB line goes", "a\n\told\n\tolder\n", "a", "new", _stricmp, nullptr,
         "a\n\tnew\n\tolder\n"},
        {"the comment of another entry stays", "a\n\tca\nb\n\tcb\n", "b", "new", _stricmp, nullptr,
         "a\n\tca\nb\n\tnew\n"},
        {"the entry is written as given", "A\n", "a", "c", _stricmp, nullptr, "a\n\tc\n"},
        {"every match becomes the entry", "a*\nb\nab\n", "ab", "c", __wildcardmatch, nullptr,
         "ab\n\tc\nb\nab\n\tc\n"},
        {"comment of 255", "a\n", "a", x255.c_str(), _stricmp, nullptr, "a\n\t" + x255 + "\n"},
        {"comment on nothing", "a\n", "b", "c", _stricmp, "Entry not found", "a\n"},
        {"empty comment", "a\n", "a", "", _stricmp, "Invalid comment to add", "a\n"},
        {"a shorter list", "a\r\n\told and long\r\n", "a", "c", _stricmp, nullptr, "a\n\tc\n"},
    };
    for (const auto &c : cases) {
        put(c.before);
        EXPECT_EQ(shown(vc_add_entry(dir, "list", c.entry, c.comment, c.matcher)),
                  shown(c.want_message))
            << c.name;
        EXPECT_EQ(get(), c.after) << c.name;
        expect_no_tmp(c.name);
    }
}

// As on the server, where names below c: have no case.
TEST_F(editor_test, the_list_is_found_in_any_letter_case) {
    put("a\n");
    EXPECT_EQ(shown(vc_add_entry(dir, "List", "b", nullptr, _stricmp)), "success");
    EXPECT_EQ(shown(vc_del_entry("c:/QUILLFENCE", "LIST", "a", 0, _stricmp)), "success");
    EXPECT_EQ(get(), "b\n");
    EXPECT_EQ(shown(vc_add_entry(dir, "LIST", "b", nullptr, _stricmp)), "Entry already exists");
    drive.remove(list_path);
    EXPECT_FALSE(drive.exists("c:/quillfence/List"));
    EXPECT_FALSE(drive.exists("c:/quillfence/LIST"));
}

TEST_F(editor_test, del) {
    const std::vector<edit_case> cases = {
        {"one of many", "a\nb\nc\n", "b", nullptr, _stricmp, nullptr, "a\nc\n"},
        {"the only one", "a\n", "a", nullptr, _stricmp, nullptr, ""},
        {"with its comment", "a\n\tc\nb\n", "a", nullptr, _stricmp, nullptr, "b\n"},
        {"one TAB line goes", "a\n\tc\n\td\nb\n", "a", nullptr, _stricmp, nullptr, "\td\nb\n"},
        {"every match", "a*\nb\nA\n\tc\n", "a", nullptr, __wildcardmatch, nullptr, "b\n"},
        {"other comments stay", "b\n\tcb\na\n", "a", nullptr, _stricmp, nullptr, "b\n\tcb\n"},
        {"behind blanks", "  a\nb\n", "a", nullptr, _stricmp, nullptr, "b\n"},
        {"CR LF", "a\r\nb\r\n", "a", nullptr, _stricmp, nullptr, "b\n"},
        {"not there", "a\r\n", "b", nullptr, _stricmp, "Entry not found", "a\r\n"},
        {"a comment is no entry", "#a\n", "#a", nullptr, _stricmp, "Entry not found", "#a\n"},
        {"a TAB line is no entry", "a\n\tb\n", "b", nullptr, _stricmp, "Entry not found",
         "a\n\tb\n"},
    };
    for (const auto &c : cases) {
        put(c.before);
        EXPECT_EQ(shown(vc_del_entry(dir, "list", c.entry, 0, c.matcher)), shown(c.want_message))
            << c.name;
        EXPECT_EQ(get(), c.after) << c.name;
        expect_no_tmp(c.name);
    }
}

TEST_F(editor_test, del_that_keeps_the_entry_removes_its_comment) {
    put("A\n\tc\n\td\nb\n\te\n");
    EXPECT_EQ(vc_del_entry(dir, "list", "a", 1, _stricmp), nullptr);
    EXPECT_EQ(get(), "A\n\td\nb\n\te\n") << "the line stays as it is";
    EXPECT_STREQ(vc_del_entry(dir, "list", "x", 1, _stricmp), "Entry not found");
}

TEST_F(editor_test, add_creates_a_list_and_del_does_not) {
    EXPECT_EQ(vc_del_entry(dir, "list", "a", 0, _stricmp), nullptr);
    EXPECT_FALSE(drive.exists(list_path));
    EXPECT_EQ(vc_add_entry(dir, "list", "a", nullptr, _stricmp), nullptr);
    EXPECT_EQ(get(), "a\n");
}

TEST_F(editor_test, bad_arguments) {
    static const struct {
        const char *directory, *name, *entry;
        list_matcher matcher;
    } cases[] = {
        {nullptr, "list", "a", _stricmp}, {"", "list", "a", _stricmp},
        {dir, nullptr, "a", _stricmp},    {dir, "", "a", _stricmp},
        {dir, "list", nullptr, _stricmp}, {dir, "list", "", _stricmp},
        {dir, "list", "a", nullptr},
    };
    for (const auto &c : cases) {
        EXPECT_STREQ(vc_add_entry(c.directory, c.name, c.entry, nullptr, c.matcher),
                     "Invalid arguments to add");
        EXPECT_EQ(log.errors(), lines{"vc_add_entry: Invalid argument"});
        EXPECT_STREQ(vc_del_entry(c.directory, c.name, c.entry, 0, c.matcher),
                     "Invalid arguments to del");
        EXPECT_EQ(log.errors(), lines{"vc_del_entry: Invalid argument"});
    }
    const std::string x256(256, 'x');
    EXPECT_STREQ(vc_add_entry(dir, "list", "a", x256.c_str(), _stricmp), "Invalid comment to add");
    EXPECT_FALSE(drive.exists(list_path));
}

TEST_F(editor_test, lines_name_the_module) {
    EXPECT_STREQ(vc_add_entry(nullptr, "list", "a", nullptr, _stricmp), "Invalid arguments to add");
    EXPECT_STREQ(vc_del_entry(nullptr, "list", "a", 0, _stricmp), "Invalid arguments to del");
    for (const log_line &line : log.take()) {
        EXPECT_EQ(line.source, "quillfence-file") << line.function;
    }
}

// The path comes first, of the list or of the opposite one.
TEST_F(editor_test, without_memory_for_a_path) {
    put("a\n");
    const auto with_failing = [](unsigned n, auto edit) {
        const failing_allocation failing(n);
        return edit();
    };
    const auto add = [] { return vc_add_entry(dir, "list", "b", nullptr, _stricmp); };
    const auto del = [] { return vc_del_entry(dir, "list", "a", 0, _stricmp); };
    const auto add_opposed = [] {
        return vc_add_entry(dir, "exempt_ips", "10.0.0.1", nullptr, _stricmp);
    };
    for (unsigned n : {1u, 2u}) { // the second is for the line
        EXPECT_STREQ(with_failing(n, add), "Out of memory error") << n;
        EXPECT_FALSE(log.errors().empty()) << n;
    }
    EXPECT_STREQ(with_failing(1, del), "Out of memory error");
    EXPECT_FALSE(log.errors().empty());
    EXPECT_STREQ(with_failing(1, add_opposed), "Out of memory error");
    EXPECT_FALSE(log.errors().empty());
    EXPECT_EQ(get(), "a\n");
    expect_no_tmp("");
}

TEST_F(editor_test, opposite_lists_exclude_each_other) {
    static const struct {
        const char *list, *opposite;
    } pairs[] = {
        {"from_whitelist", "from_blacklist"},
        {"from_blacklist", "from_whitelist"},
        {"exempt_ips", "blocked_ips"},
        {"blocked_ips", "exempt_ips"},
        {"rl_whitelist.lst", "ra_whitelist.lst"},
        {"ra_whitelist.lst", "rl_whitelist.lst"},
    };
    for (const auto &pair : pairs) {
        drive.remove(dir);
        drive.make_folder(dir);
        const std::string opposite = std::string(dir) + "/" + pair.opposite;
        EXPECT_EQ(vc_add_entry(dir, pair.list, "10.0.0.1", nullptr, _stricmp), nullptr);
        EXPECT_FALSE(drive.exists(opposite)) << "a missing opposite list stays missing";
        drive.write(opposite, "# c\n10.0.0.2\n");
        EXPECT_STREQ(vc_add_entry(dir, pair.list, "10.0.0.2", nullptr, _stricmp),
                     "Entry is present in the opposite table")
            << pair.list;
        EXPECT_EQ(vc_add_entry(dir, pair.list, "10.0.0.3", nullptr, _stricmp), nullptr);
        EXPECT_EQ(drive.read(std::string(dir) + "/" + pair.list), "10.0.0.1\n10.0.0.3\n");
    }
    drive.write("c:/quillfence/from_whitelist", "a@b.example\n");
    EXPECT_EQ(vc_add_entry(dir, "exempt_users", "a@b.example", nullptr, _stricmp), nullptr)
        << "any other list has no opposite";
}

TEST_F(editor_test, a_left_over_temporary_file_does_no_harm) {
    drive.write(tmp_path, "left over by an edit that was interrupted, longer than the list\n");
    put("a\n");
    EXPECT_EQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), nullptr);
    EXPECT_EQ(get(), "a\nb\n");
    expect_no_tmp("deleted by the next edit");
}

TEST_F(editor_test, a_folder_in_the_temporary_files_place_is_not_deleted) {
    put("a\n");
    drive.make_folder(tmp_path);
    EXPECT_STREQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), "Error opening file");
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 5"});
    EXPECT_EQ(get(), "a\n");
    EXPECT_TRUE(drive.exists(tmp_path));
}

// The temporary file is on stable storage before it takes the list's place, the folder afterwards.
TEST_F(editor_test, replaces_in_this_order) {
    put("a\n");
    call_watch watch;
    EXPECT_EQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), nullptr);
    lines steps = watch.take();
    const auto changes_nothing = [](const std::string &call) {
        return call == "file_read" || call == "file_close" || call.starts_with("environment_");
    };
    std::erase_if(steps, changes_nothing);
    steps.erase(std::unique(steps.begin(), steps.end()), steps.end());
    EXPECT_EQ(steps, (lines{"edit_lock_take", "path_target", "temporary_create", "file_write",
                            "file_sync", "path_replace", "path_sync_folder"}));
}

TEST_F(editor_test, large_lists_are_copied_whole) {
    std::string before;
    while (before.size() < 200000) {
        before += "entry-" + std::to_string(before.size()) + "@example.com\n";
    }
    put(before);
    EXPECT_EQ(vc_add_entry(dir, "list", "new@example.com", nullptr, _stricmp), nullptr);
    EXPECT_EQ(get(), before + "new@example.com\n");
    EXPECT_EQ(vc_del_entry(dir, "list", "new@example.com", 0, _stricmp), nullptr);
    EXPECT_EQ(get(), before);
}

// --- many at once ---

std::string outcomes_of(const std::vector<list_addition> &all) {
    std::string letters;
    for (const list_addition &one : all) {
        letters += "arpo"[static_cast<int>(one.outcome)]; // added, repeated, present, opposed
    }
    return letters;
}

TEST_F(editor_test, add_many) {
    static const struct {
        const char *name;
        std::string before;
        std::vector<const char *> entries;
        const char *outcomes;
        std::string after;
    } cases[] = {
        {"behind the others, in their order", "x", {"c", "a", "b"}, "aaa", "x\nc\na\nb\n"},
        {"some are there", "# c\nA\r\n b\n", {"a", "B", "c"}, "ppa", "# c\nA\n b\nc\n"},
        {"all are there, nothing is written", "a\r\nb", {"b", "a"}, "pp", "a\r\nb"},
        {"twice", "", {"a", "b", "A", "a"}, "aarr", "a\nb\n"},
        {"twice and there", "a\n", {"a", "a"}, "pr", "a\n"},
        {"whole texts, no wildcards", "*\n", {"a", "*"}, "ap", "*\na\n"},
        {"comments are no entries", "a\n\tb\n#c\n", {"b", "#c"}, "aa", "a\n\tb\n#c\nb\n#c\n"},
    };
    for (const auto &c : cases) {
        put(c.before);
        std::vector<list_addition> all;
        for (const char *const entry : c.entries) {
            all.push_back({entry, addition::added});
        }
        EXPECT_EQ(shown(vc_add_entries(dir, "list", all.data(), static_cast<uint32_t>(all.size()))),
                  "success")
            << c.name;
        EXPECT_EQ(outcomes_of(all), c.outcomes) << c.name;
        EXPECT_EQ(get(), c.after) << c.name;
        expect_no_tmp(c.name);
    }
}

// One entry that the opposite list holds stops all.
TEST_F(editor_test, add_many_against_the_opposite_list) {
    drive.write("c:/quillfence/from_whitelist", "# b\n  A@a.example\n");
    std::vector<list_addition> all = {{"b@b.example", {}}, {"a@a.example", {}}};
    EXPECT_EQ(shown(vc_add_entries(dir, "from_blacklist", all.data(), 2)),
              "Entry is present in the opposite table");
    EXPECT_EQ(outcomes_of(all), "ao");
    EXPECT_FALSE(drive.exists("c:/quillfence/from_blacklist"));
    call_watch calls;
    calls.fail("file_read", 1, 1117);
    EXPECT_EQ(shown(vc_add_entries(dir, "from_blacklist", all.data(), 1)), "Error opening file")
        << "a list that can't be read does not count as one without the entry";
    EXPECT_EQ(log.errors().size(), 1u);
    EXPECT_FALSE(drive.exists("c:/quillfence/from_blacklist"));
}

TEST_F(editor_test, add_many_with_bad_arguments) {
    list_addition none = {"", {}};
    list_addition one = {"a", {}};
    for (const char *message :
         {vc_add_entries("", "list", &one, 1), vc_add_entries(dir, "", &one, 1),
          vc_add_entries(dir, "list", nullptr, 1), vc_add_entries(dir, "list", &none, 1)}) {
        EXPECT_EQ(shown(message), "Invalid arguments to add");
    }
    EXPECT_EQ(log.errors(), lines(4, "vc_add_entries: Invalid argument"));
    EXPECT_EQ(shown(vc_add_entries(dir, "list", &one, 0)), "success");
    EXPECT_FALSE(drive.exists(list_path));
}

// Ten thousand entries cost one replacement and a write for every 4 KiB.
TEST_F(editor_test, add_ten_thousand) {
    put("first\n");
    std::vector<std::string> texts;
    std::vector<list_addition> all;
    std::string after = "first\n";
    for (int i = 0; i < 10000; ++i) {
        texts.push_back("user" + std::to_string(i * 7919 % 10000) + "@example.com");
        after += texts.back() + "\n";
    }
    for (const std::string &text : texts) {
        all.push_back({text.c_str(), {}});
    }
    call_watch calls;
    EXPECT_EQ(shown(vc_add_entries(dir, "list", all.data(), 10000)), "success");
    EXPECT_EQ(get(), after);
    EXPECT_EQ(calls.count("path_replace"), 1);
    EXPECT_EQ(calls.count("edit_lock_take"), 1);
    EXPECT_LE(calls.count("file_write"), static_cast<int>(after.size() / 4096 + 2));
    EXPECT_LE(calls.count("file_read"), 6);
    calls.take();
    EXPECT_EQ(shown(vc_add_entries(dir, "list", all.data(), 10000)), "success") << "once more";
    EXPECT_EQ(outcomes_of(all), std::string(10000, 'p'));
    EXPECT_EQ(calls.count("path_replace"), 0);
    EXPECT_EQ(calls.count("file_write"), 0);
}

TEST_F(editor_test, add_many_to_a_list_that_is_locked_or_on_a_full_disk) {
    put("a\n");
    list_addition all[] = {{"b", {}}, {"c", {}}};
    {
        call_watch calls;
        for (int n = 1; n <= 2; ++n) { // the old line, the new ones
            calls.fail("file_write", n, 112, true);
            EXPECT_EQ(shown(vc_add_entries(dir, "list", all, 2)), "Error opening file");
            EXPECT_EQ(log.errors(),
                      lines{"vc_write: fatal error on block write (w32) got error code 112"});
            EXPECT_EQ(get(), "a\n");
            expect_no_tmp("");
        }
    }
    const vc_handle other = vc_open_ex(list_path, 1, 1, 0);
    EXPECT_EQ(shown(vc_add_entries(dir, "list", all, 2)), "Error opening file");
    EXPECT_EQ(log.errors().size(), 1u);
    vc_close(other);
    EXPECT_EQ(get(), "a\n");
}

// --- two editors ---

TEST_F(editor_test, a_list_that_is_locked_elsewhere_is_not_edited) {
    put("a\n");
    const vc_handle other = vc_open_ex(list_path, 1, 1, 0);
    EXPECT_STREQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), "Error opening file");
    EXPECT_STREQ(vc_del_entry(dir, "list", "a", 0, _stricmp), "Error opening file");
    EXPECT_EQ(log.errors(), lines(2, "vc_open_ex: unknown error opening - got error code 32"));
    expect_no_tmp("");
    vc_close(other);
    EXPECT_EQ(get(), "a\n");
}

std::vector<std::string> second_editor;
int match_and_edit(const char *pattern, const char *value) {
    second_editor.push_back(shown(vc_add_entry(dir, "list", "second", nullptr, _stricmp)));
    return _stricmp(pattern, value);
}

TEST_F(editor_test, of_two_editors_at_once_the_second_is_refused) {
    put("a\nb\n");
    second_editor.clear();
    EXPECT_EQ(vc_del_entry(dir, "list", "a", 0, match_and_edit), nullptr);
    EXPECT_EQ(second_editor, lines(2, "Error opening file"));
    EXPECT_EQ(get(), "b\n") << "the first editor's work is whole";
    EXPECT_FALSE(log.errors().empty());
    EXPECT_EQ(vc_add_entry(dir, "list", "second", nullptr, _stricmp), nullptr);
    EXPECT_EQ(get(), "b\nsecond\n");
}

TEST_F(editor_test, lookups_go_on_during_an_edit) {
    put("a\n");
    const vc_handle editor = vc_open_ex(list_path, 1, 1, 0);
    EXPECT_EQ(__file_contains_line(dir, "list", "a", _stricmp), 1);
    vc_close(editor);
}

// --- failures ---

TEST_F(editor_test, a_vanished_directory) {
    EXPECT_STREQ(vc_add_entry("c:/quillfence/gone", "list", "a", nullptr, _stricmp),
                 "Error opening file");
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 3"});
    EXPECT_EQ(vc_del_entry("c:/quillfence/gone", "list", "a", 0, _stricmp), nullptr);
}

TEST_F(editor_test, a_read_only_list) {
    put("a\n");
    call_watch calls;
    calls.fail("edit_lock_take", 1, 5);
    EXPECT_STREQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), "Error opening file");
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 5"});
    EXPECT_EQ(get(), "a\n");
    expect_no_tmp("");
}

TEST_F(editor_test, a_full_disk) {
    put("a\n");
    call_watch calls;
    for (int n = 1; n <= 2; ++n) { // the old line, the new line
        calls.fail("file_write", n, 112, true);
        EXPECT_STREQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), "Error opening file");
        EXPECT_EQ(log.errors(),
                  lines{"vc_write: fatal error on block write (w32) got error code 112"});
        EXPECT_EQ(get(), "a\n") << n;
        expect_no_tmp("");
    }
    calls.fail("file_sync", 1, 112, true);
    EXPECT_STREQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), "Error opening file");
    EXPECT_EQ(log.errors(), lines{"vc_add_entry: No space left on device"});
    EXPECT_EQ(get(), "a\n");
    expect_no_tmp("");
}

TEST_F(editor_test, a_replacement_that_fails_leaves_the_old_list) {
    put("a\n");
    call_watch calls;
    calls.fail("path_replace", 1, 5);
    EXPECT_STREQ(vc_add_entry(dir, "list", "b", nullptr, _stricmp), "Error opening file");
    EXPECT_EQ(log.errors(), lines{"vc_add_entry: Permission denied"});
    EXPECT_EQ(get(), "a\n");
    expect_no_tmp("");
}

TEST_F(editor_test, a_list_that_cannot_be_tested_counts_as_missing) {
    put("a\n");
    call_watch calls;
    calls.fail("path_attributes", 1, 5);
    EXPECT_EQ(vc_del_entry(dir, "list", "a", 0, _stricmp), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_file_exists_ex: Failed to get file attributes "
                                  "[c:/quillfence/list]: 5"});
    EXPECT_EQ(get(), "a\n");
}

// Every call of an edit fails once, alone and with all that follow: the list is the old or the new
// one, and the result says which.
TEST_F(editor_test, never_a_mixture) {
    std::string before;
    for (int i = 0; i < 400; ++i) {
        before += "entry" + std::to_string(i) + "@example.com\n";
    }
    const auto add = [] { return vc_add_entry(dir, "list", "new@example.com", nullptr, _stricmp); };
    const auto comment = [] {
        return vc_add_entry(dir, "list", "entry7@example.com", "why", _stricmp);
    };
    const auto del = [] { return vc_del_entry(dir, "list", "entry7@example.com", 0, _stricmp); };
    const std::vector<const char *(*)()> edits = {add, comment, del};
    for (size_t i = 0; i < edits.size(); ++i) {
        put(before);
        ASSERT_EQ(edits[i](), nullptr);
        const std::string after = get();
        for (const char *const call :
             {"edit_lock_take", "path_target", "temporary_create", "file_read", "file_write",
              "file_sync", "file_close", "path_replace", "path_delete"}) {
            for (const bool all_after : {false, true}) {
                int failures = 1;
                for (int n = 1; failures; n = n < 8 ? n + 1 : n + 97) {
                    put(before);
                    const char *message = nullptr;
                    {
                        call_watch calls;
                        calls.fail(call, n, 1117, all_after);
                        message = edits[i]();
                        failures = calls.failed();
                    }
                    const std::string got = get();
                    const std::string where =
                        std::string(call) + " " + std::to_string(n) + (all_after ? " and all" : "");
                    EXPECT_TRUE(got == before || got == after) << where;
                    EXPECT_EQ(message == nullptr, got == after) << where << " " << shown(message);
                    if (std::string(call) != "path_delete") {
                        expect_no_tmp(where);
                    }
                    log.errors();
                }
            }
        }
    }
}

} // namespace
} // namespace quillfence::testing
