#include "list_commands.h"

#include <algorithm>

#include "../matching/range_bytes.h"
#include "drive_c.h"
#include "output.h"

namespace quillfence::data_tool {
namespace {

using namespace testing;

constexpr char base[] = "c:/quillfence";

outcome add_all(const std::string &list, const std::string &text, const drive_c &drive,
                bool force = false) {
    drive.write("c:/quillfence/in", text);
    return outcome_of(list_add_all, list_bulk_arguments{base, list, "c:/quillfence/in", force});
}

class list_commands_test : public drive_test {
  protected:
    void put(const std::string &list, const std::string &bytes) const {
        drive.write(std::string(base) + "/" + list, bytes);
    }
    std::string get(const std::string &list) const {
        return drive.read(std::string(base) + "/" + list);
    }
    static outcome find(const std::string &value) {
        return outcome_of(list_find, list_find_arguments{base, value});
    }
    static outcome add(const std::string &list, const std::string &entry,
                       const std::string &comment = "", bool force = false) {
        return outcome_of(list_add, list_edit_arguments{base, list, entry, comment, false, force});
    }
    static outcome del(const std::string &list, const std::string &entry,
                       bool comment_only = false) {
        return outcome_of(list_del, list_edit_arguments{base, list, entry, "", comment_only});
    }
};

TEST_F(list_commands_test, find_an_address) {
    put("from_whitelist", "# friends\r\nbob@example.org\r\n\r\n  *@EXAMPLE.org\r\n");
    put("exempt_users", "*@example.com\n");
    EXPECT_EQ(find("Bob@example.org").out,
              "c:/quillfence/from_whitelist:2: bob@example.org (plain)\n"
              "c:/quillfence/from_whitelist:4: *@EXAMPLE.org (wildcard)\n");
    EXPECT_EQ(find("a@example.com").out,
              "c:/quillfence/exempt_users:1: *@example.com (wildcard)\n");
    EXPECT_EQ(find("a@example.com").status, exit_status::done);
    EXPECT_EQ(find("a@example.net").out, "nothing matches a@example.net\n");
    EXPECT_EQ(find("a@example.net").status, exit_status::no);
}

TEST_F(list_commands_test, find_in_opposite_lists) {
    put("from_whitelist", "bob@example.org\n");
    put("from_blacklist", "*@example.org\n");
    EXPECT_EQ(find("bob@example.org").out,
              "c:/quillfence/from_whitelist:1: bob@example.org (plain)\n"
              "c:/quillfence/from_blacklist:1: *@example.org (wildcard)\n"
              "from_whitelist and from_blacklist exclude each other, and both match: "
              "from_whitelist comes first\n");
}

TEST_F(list_commands_test, find_a_client) {
    put("blocked_ips", "10.1.2.30\n10.1.2.3\n");
    put("blocked_ips.range", header(2, 3) + record({10, 1, 2, 4}, {10, 1, 2, 9}) +
                                 record({10, 1, 2, 0}, {10, 1, 2, 255}, "lab") +
                                 record({10, 1, 2, 3}, {10, 1, 2, 3}));
    EXPECT_EQ(find("10.1.2.3").out,
              "c:/quillfence/blocked_ips:2: 10.1.2.3 (whole text)\n"
              "c:/quillfence/blocked_ips.range: record 2: 10.1.2.0-10.1.2.255  lab (range)\n"
              "c:/quillfence/blocked_ips.range: record 3: 10.1.2.3-10.1.2.3 (range)\n");
    EXPECT_EQ(find("10.1.3.3").status, exit_status::no);
}

TEST_F(list_commands_test, find_an_ipv6_client) {
    put("exempt_ips", "2001:DB8::1\n");
    EXPECT_EQ(find("2001:db8::1").out, "c:/quillfence/exempt_ips:1: 2001:DB8::1 (whole text)\n");
}

// The engine gives up on such a file, and so does the search.
TEST_F(list_commands_test, a_corrupt_range_file_holds_nothing) {
    put("blocked_ips.range",
        header(2, 2) + record({10, 1, 0, 0}, {10, 2, 0, 0}) + record({10, 1, 2, 3}, {10, 1, 2, 3}));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(find("10.1.2.3").status, exit_status::no);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "quillfence-data: file c:/quillfence/blocked_ips.range has an invalid range - "
              "treating as corrupt\n");
}

TEST_F(list_commands_test, find_creates_nothing) {
    EXPECT_EQ(find("10.1.2.3").status, exit_status::no);
    EXPECT_FALSE(drive.exists("c:/quillfence/blocked_ips"));
    EXPECT_FALSE(drive.exists("c:/quillfence/blocked_ips.range"));
}

TEST_F(list_commands_test, find_without_folder_or_value) {
    EXPECT_EQ(outcome_of(list_find, list_find_arguments{"c:/quillfence/none", "a"}).failure,
              "c:/quillfence/none: is no folder; give the one that holds the lists");
    EXPECT_EQ(find("").failure, "nothing to look for; give a mail address or a client's address");
}

TEST_F(list_commands_test, add_and_del) {
    EXPECT_EQ(add("from_whitelist", "*@example.org").out,
              "c:/quillfence/from_whitelist: *@example.org added\n");
    EXPECT_EQ(add("from_whitelist", "a@example.org").status, exit_status::done)
        << "an entry that a wildcard covers may be added";
    EXPECT_EQ(add("from_whitelist", "A@Example.org").failure,
              "c:/quillfence/from_whitelist: A@Example.org: Entry already exists");
    EXPECT_EQ(add("from_whitelist", "a@example.org", "a friend").out,
              "c:/quillfence/from_whitelist: a@example.org: comment set\n");
    EXPECT_EQ(get("from_whitelist"), "*@example.org\na@example.org\n\ta friend\n");
    EXPECT_EQ(del("from_whitelist", "a@example.org", true).out,
              "c:/quillfence/from_whitelist: a@example.org: comment removed\n");
    EXPECT_EQ(get("from_whitelist"), "*@example.org\na@example.org\n");
    EXPECT_EQ(del("from_whitelist", "a@example.org").out,
              "c:/quillfence/from_whitelist: a@example.org removed\n");
    EXPECT_EQ(get("from_whitelist"), "*@example.org\n") << "the wildcard stays";
    EXPECT_EQ(del("from_whitelist", "a@example.org").failure,
              "c:/quillfence/from_whitelist: a@example.org: Entry not found");
    EXPECT_EQ(add("from_whitelist", "b@example.org", "nobody").failure,
              "c:/quillfence/from_whitelist: b@example.org: Entry not found");
}

TEST_F(list_commands_test, opposite_lists) {
    put("blocked_ips", "192.0.2.1\n");
    EXPECT_EQ(add("exempt_ips", "192.0.2.1").failure,
              "c:/quillfence/exempt_ips: 192.0.2.1: Entry is present in the opposite table");
}

TEST_F(list_commands_test, a_missing_list) {
    EXPECT_EQ(del("from_whitelist", "a@example.org").out,
              "c:/quillfence/from_whitelist: there is no such list, nothing to remove\n");
}

TEST_F(list_commands_test, a_missing_folder) {
    const outcome result = outcome_of(
        list_add, list_edit_arguments{"c:/quillfence/none", "exempt_ips", "192.0.2.1", "", false});
    EXPECT_EQ(result.failure.substr(0, 65),
              "c:/quillfence/none/exempt_ips: 192.0.2.1: Error opening file (unk")
        << result.failure;
}

TEST_F(list_commands_test, entries_that_would_never_match_are_refused) {
    static const struct {
        const char *list;
        std::string entry;
        const char *want;
    } cases[] = {
        {"exempt_ips", "192.0.2.0/24",
         "never matches: one address a line; networks go into the list's range file "
         "(quillfence-data range add)"},
        {"exempt_ips", "mail.example.org", "never matches: no IP address"},
        {"exempt_ips", "::ffff:c000:207", "never matches: this client is known as 192.0.2.7"},
        {"exempt_ips", "::ffff:192.0.2.7", "never matches: this client is known as 192.0.2.7"},
        {"exempt_ips", "::192.0.2.4", "never matches: this client is known as 192.0.2.4"},
        {"exempt_users", "a@example.org ", "ends in white space, which belongs to the entry"},
        {"exempt_users", "# a",
         "begins with white space or \"#\", so it would not be read as an "
         "entry"},
        {"exempt_users", "\ta",
         "begins with white space or \"#\", so it would not be read as an "
         "entry"},
        {"exempt_users", "a\nb", "holds a line end"},
        {"exempt_users", std::string(1023, 'a'), "has more than 1022 characters"},
        {"control/rbl.enabled", "a", " (--force adds to it all the same)"},
    };
    for (const auto &one : cases) {
        const std::string failure = add(one.list, one.entry).failure;
        EXPECT_TRUE(failure.ends_with(one.want)) << failure;
        EXPECT_FALSE(drive.exists(std::string(base) + "/" + one.list));
    }
    put("exempt_users", "a\n");
    EXPECT_EQ(add("exempt_users", "a", "b\nc@example.org").failure,
              "c:/quillfence/exempt_users: a: its comment holds a line end");
    EXPECT_EQ(add("exempt_users", "a", std::string(256, 'x')).failure,
              "c:/quillfence/exempt_users: a: Invalid comment to add");
}

// What a list of another name is for nobody knows.
TEST_F(list_commands_test, any_entry_goes_into_a_list_of_another_name) {
    EXPECT_EQ(add("other.lst", "10.0.0.0/8 ", "", true).out,
              "c:/quillfence/other.lst: 10.0.0.0/8  added\n");
    EXPECT_EQ(get("other.lst"), "10.0.0.0/8 \n");
    EXPECT_TRUE(add("other.lst", "a\rb", "", true).failure.ends_with("holds a line end"));
}

TEST_F(list_commands_test, a_list_that_nobody_reads_is_refused) {
    EXPECT_EQ(
        add("from_blaklist", "a@example.org").failure,
        "c:/quillfence/from_blaklist: nobody reads a list of this name; the engine's lists are "
        "from_whitelist, from_blacklist, exempt_users, exempt_ips, blocked_ips, "
        "rl_whitelist.lst, ra_whitelist.lst (--force adds to it all the same)");
    EXPECT_FALSE(drive.exists("c:/quillfence/from_blaklist"));
    drive.write("c:/quillfence/control/x", "");
    EXPECT_EQ(add("FROM_BLACKLIST", "a@example.org").status, exit_status::done);
    EXPECT_EQ(add("control/rules.enabled", "require_helo").status, exit_status::done);
    EXPECT_EQ(add("blocked_ips.range", "192.0.2.1", "", true).failure,
              "c:/quillfence/blocked_ips.range: is no list of lines");
}

// It is the list of the exact name that is edited, with all that goes for it.
TEST_F(list_commands_test, the_letter_case_of_a_lists_name_does_not_count) {
    put("from_blacklist", "a@example.org\n");
    EXPECT_EQ(add("FROM_BLACKLIST", "b@example.org").out,
              "c:/quillfence/from_blacklist: b@example.org added\n");
    EXPECT_EQ(get("from_blacklist"), "a@example.org\nb@example.org\n");
    EXPECT_EQ(add("FROM_Whitelist", "b@example.org").failure,
              "c:/quillfence/from_whitelist: b@example.org: Entry is present in the opposite "
              "table");
    EXPECT_EQ(add("EXEMPT_IPS", "mail.example.org").failure,
              "c:/quillfence/exempt_ips: mail.example.org: never matches: no IP address");
    EXPECT_EQ(add_all("FROM_BLACKLIST", "c@example.org\n", drive).out,
              "c:/quillfence/from_blacklist: 1 entry added\n");
    EXPECT_EQ(del("FROM_BLACKLIST", "a@example.org").out,
              "c:/quillfence/from_blacklist: a@example.org removed\n");
    EXPECT_EQ(get("from_blacklist"), "b@example.org\nc@example.org\n");
}

TEST_F(list_commands_test, find_as_json) {
    put("from_whitelist", "bob@example.org\n");
    put("from_blacklist", "#\n*@example.org\n");
    const outcome result =
        outcome_of(list_find, list_find_arguments{base, "bob@example.org", true});
    EXPECT_EQ(result.out,
              R"({"matches":[{"file":"c:/quillfence/from_whitelist","line":1,)"
              R"("entry":"bob@example.org","how":"plain"},)"
              R"({"file":"c:/quillfence/from_blacklist","line":2,"entry":"*@example.org",)"
              R"("how":"wildcard"}],"first":[{"list":"from_whitelist",)"
              R"("before":"from_blacklist"}]})"
              "\n");
    put("exempt_ips.range", header(2, 1) + record({10, 1, 2, 0}, {10, 1, 2, 255}, "lab"));
    EXPECT_EQ(outcome_of(list_find, list_find_arguments{base, "10.1.2.3", true}).out,
              R"({"matches":[{"file":"c:/quillfence/exempt_ips.range","record":1,)"
              R"("entry":"10.1.2.0-10.1.2.255","comment":"lab","how":"range"}],"first":[]})"
              "\n");
    const outcome nothing = outcome_of(list_find, list_find_arguments{base, "a@b.example", true});
    EXPECT_EQ(nothing.out, "{\"matches\":[],\"first\":[]}\n");
    EXPECT_EQ(nothing.status, exit_status::no);
}

// --- many at once ---

TEST_F(list_commands_test, add_many) {
    put("from_whitelist", "bob@example.org\n");
    EXPECT_EQ(add_all("from_whitelist",
                      "# friends\r\n\r\n*@example.com\r\n  BOB@example.org\n"
                      "\tof a list's entry\n*@example.com\n \t \nlast@example.com",
                      drive)
                  .out,
              "c:/quillfence/from_whitelist: 2 entries added (1 was there already, 1 was named "
              "twice); 1 comment of an entry left out\n");
    EXPECT_EQ(get("from_whitelist"), "bob@example.org\n*@example.com\nlast@example.com\n");
    EXPECT_EQ(add_all("from_whitelist", "# nothing\n", drive).out,
              "c:/quillfence/from_whitelist: 0 entries added\n");
    EXPECT_EQ(add_all("exempt_users", "", drive).status, exit_status::done);
    EXPECT_FALSE(drive.exists("c:/quillfence/exempt_users"));
}

TEST_F(list_commands_test, add_many_from_utf_16) {
    put("from_whitelist", "");
    const std::string text("\xFF\xFE"
                           "a\0@\0b\0.\0c\0\r\0\n\0",
                           16);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(add_all("from_whitelist", text, drive).status, exit_status::done);
    EXPECT_NE(::testing::internal::GetCapturedStderr().find("UTF-16"), std::string::npos);
    EXPECT_EQ(get("from_whitelist"), "a@b.c\n");
}

// All wrong lines are named, and nothing is changed.
TEST_F(list_commands_test, add_many_or_none) {
    put("blocked_ips", "192.0.2.1\n");
    put("exempt_ips", "192.0.2.9\n");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(add_all("blocked_ips", "192.0.2.2\n192.0.2.0/24\nmail.example\n", drive).failure,
              "c:/quillfence/blocked_ips: nothing was changed, since 2 lines are wrong");
    EXPECT_EQ(add_all("blocked_ips", "192.0.2.2\n192.0.2.9\n", drive).failure,
              "c:/quillfence/blocked_ips: nothing was changed, since 1 line is wrong");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "c:/quillfence/in:2: error: \"192.0.2.0/24\": never matches: one address a line; "
              "networks go into the list's range file (quillfence-data range add)\n"
              "c:/quillfence/in:3: error: \"mail.example\": never matches: no IP address\n"
              "c:/quillfence/in:2: error: \"192.0.2.9\" is in the opposite list, exempt_ips\n");
    EXPECT_EQ(get("blocked_ips"), "192.0.2.1\n");
    EXPECT_TRUE(add_all("from_blaklist", "a\n", drive)
                    .failure.starts_with("c:/quillfence/from_blaklist: "
                                         "nobody reads"));
    EXPECT_EQ(add_all("from_blaklist", "a\n", drive, true).status, exit_status::done);
}

TEST_F(list_commands_test, complaints_have_a_bound) {
    std::string text;
    for (int i = 0; i < 150; ++i) {
        text += "x\n";
    }
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(add_all("blocked_ips", text, drive).failure,
              "c:/quillfence/blocked_ips: nothing was changed, since 150 lines are wrong (50 of "
              "them are not shown)");
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 100);
    std::string many;
    for (int i = 0; i <= 1000000; ++i) {
        many += "a\n";
    }
    EXPECT_EQ(add_all("other", many, drive, true).failure,
              "c:/quillfence/in:1000001: more than 1000000 in one edit; nothing was changed");
}

// A list of names has no comments.
TEST_F(list_commands_test, add_many_to_a_control_file) {
    drive.make_folder("c:/quillfence/control");
    EXPECT_EQ(add_all("control/rules.enabled", "valid_ptr\n\nrequire_helo\n", drive).out,
              "c:/quillfence/control/rules.enabled: 2 entries added\n");
    EXPECT_EQ(get("control/rules.enabled"), "valid_ptr\nrequire_helo\n");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(add_all("control/rules.enabled", "# more\n", drive).status, exit_status::failed);
    EXPECT_EQ(
        ::testing::internal::GetCapturedStderr(),
        "c:/quillfence/in:1: error: \"# more\": begins with white space or \"#\", so it would "
        "not be read as an entry\n");
}

TEST_F(list_commands_test, empty_arguments) {
    EXPECT_EQ(add("exempt_users", "").failure,
              "c:/quillfence/exempt_users: : Invalid arguments to add (Invalid argument)");
    EXPECT_EQ(del("exempt_users", "").failure,
              "c:/quillfence/exempt_users: : Invalid arguments to del (Invalid argument)");
}

} // namespace
} // namespace quillfence::data_tool
