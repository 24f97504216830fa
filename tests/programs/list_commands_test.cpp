#include "list_commands.h"

#include "../matching/range_bytes.h"
#include "drive_c.h"
#include "output.h"

namespace quillfence::data_tool {
namespace {

using namespace testing;

constexpr char base[] = "c:/quillfence";

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

TEST_F(list_commands_test, empty_arguments) {
    EXPECT_EQ(add("exempt_users", "").failure,
              "c:/quillfence/exempt_users: : Invalid arguments to add (Invalid argument)");
    EXPECT_EQ(del("exempt_users", "").failure,
              "c:/quillfence/exempt_users: : Invalid arguments to del (Invalid argument)");
}

} // namespace
} // namespace quillfence::data_tool
