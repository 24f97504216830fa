#include "who_lists.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../matching/range_bytes.h"
#include "call_watch.h"
#include "drive_c.h"
#include "me_address_map.h"
#include "output.h"
#include "platform/registry.h"
#include "test_registry.h"

namespace quillfence::data_tool {
namespace {

using namespace testing;

constexpr char key[] = "SOFTWARE\\Mail Enable\\Mail Enable";

class who_lists_test : public drive_test {
  protected:
    void put(const std::string &name, const std::string &bytes) const {
        drive.write("c:/quillfence/" + name, bytes);
    }
    // What stands on standard error goes to `said`.
    outcome ask(const std::string &value, bool json = false, const std::string &recipient = "") {
        ::testing::internal::CaptureStderr();
        const outcome answer =
            outcome_of(who_lists, who_lists_arguments{value, recipient, "", "", json, user_dir});
        said = ::testing::internal::GetCapturedStderr();
        return answer;
    }
    // Makes a binary file of a list of lines.
    void make(const std::vector<std::string> &command, const std::string &lines,
              const std::string &out) const {
        drive.make_folder("c:/quillfence/dynaregex");
        drive.make_folder("c:/quillfence/bms");
        put("in.list", lines);
        std::vector<std::string> words = {"quillfence-data"};
        words.insert(words.end(), command.begin(), command.end());
        words.insert(words.end(), {"c:/quillfence/in.list", "c:/quillfence/" + out});
        std::vector<char *> argv;
        for (std::string &word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(run(static_cast<int>(words.size()), argv.data()), 0);
        ::testing::internal::GetCapturedStdout();
    }
    void SetUp() override {
        put("control/enabled", "1\n");
    }
    std::string said;
    std::string user_dir; // "" for none
};

// --- lists ---

// Every entry is told; the first of the list that is asked first decides.
TEST_F(who_lists_test, an_address) {
    put("from_whitelist", "# friends\nbob@example.org\n*@EXAMPLE.org\n");
    put("from_blacklist", "*@example.org\n");
    put("exempt_users", "bob@*\n");
    const outcome answer = ask("bob@example.org");
    EXPECT_EQ(answer.out,
              "bob@example.org as a sender: accepted by from_whitelist\n"
              "* from_whitelist:2            bob@example.org         accepted by from_whitelist\n"
              "  from_whitelist:3            *@EXAMPLE.org           accepted by from_whitelist\n"
              "  from_blacklist:1            *@example.org           refused by from_blacklist\n"
              "bob@example.org as a recipient: accepted by to_whitelist\n"
              "* exempt_users:1              bob@*                   accepted by to_whitelist\n"
              "* decides\n");
    EXPECT_EQ(answer.status, exit_status::done);
    EXPECT_EQ(said, "");
}

// With a recipient he is met, too.
TEST_F(who_lists_test, an_address_and_its_recipient) {
    put("exempt_users", "bob@example.net\n");
    put("from_blacklist", "a@example.org\n");
    EXPECT_EQ(ask("a@example.org", false, "bob@example.net").out,
              "a@example.org as a sender: accepted by to_whitelist\n"
              "* exempt_users:1              bob@example.net         accepted by to_whitelist\n"
              "  from_blacklist:1            a@example.org           refused by from_blacklist\n"
              "a@example.org as a recipient: not listed\n"
              "* decides\n");
    EXPECT_EQ(ask("a@example.org", false, "bob@").failure, "\"bob@\" is no mail address");
}

// Behind the server's own: all of their entries that exempt, and nothing else of theirs.
TEST_F(who_lists_test, the_recipients_own_folder) {
    put("from_blacklist", "a@example.org\n");
    drive.write("c:/users/bob/from_whitelist", "x@example.org\n*@example.org\na@example.org\n");
    drive.write("c:/users/bob/from_blacklist", "a@example.org\n");
    drive.write("c:/users/bob/exempt_ips", "192.0.2.7\n");
    EXPECT_EQ(ask("a@example.org").out, "a@example.org as a sender: refused by from_blacklist\n"
                                        "* from_blacklist:1            a@example.org           "
                                        "refused by from_blacklist\n"
                                        "a@example.org as a recipient: not listed\n"
                                        "* decides\n");
    for (const char *const folder : {"c:/users/bob", "c:/users/bob/"}) {
        user_dir = folder;
        const std::string own = ask("a@example.org").out;
        EXPECT_TRUE(own.starts_with("a@example.org as a sender: accepted by from_whitelist\n"))
            << own;
        EXPECT_NE(own.find("\n  from_blacklist:1 "), std::string::npos) << own;
        EXPECT_NE(own.find("\n* c:/users/bob/from_          *@example.org           accepted by "
                           "from_whitelist\n  whitelist:2\n"
                           "  c:/users/bob/from_          a@example.org           accepted by "
                           "from_whitelist\n  whitelist:3\n"),
                  std::string::npos)
            << own;
        EXPECT_EQ(own.find("\n  blacklist:1"), std::string::npos) << own;
        EXPECT_TRUE(ask("192.0.2.7")
                        .out.starts_with("192.0.2.7 as a client: accepted by "
                                         "ip_whitelist\n"));
    }
    user_dir = "c:/users/bobby";
    EXPECT_NE(ask("a@example.org").failure.find("c:/users/bobby"), std::string::npos);
}

TEST_F(who_lists_test, nothing_lists_it) {
    put("from_whitelist", "bob@example.org\n");
    const outcome answer = ask("ann@example.org");
    EXPECT_EQ(answer.out, "ann@example.org as a sender: not listed\n"
                          "ann@example.org as a recipient: not listed\n");
    EXPECT_EQ(answer.status, exit_status::no);
}

// The lists of the name in the engine's catalogue that no rule asks.
TEST_F(who_lists_test, a_list_that_no_rule_asks) {
    put("rl_whitelist.lst", "bob@example.org\n");
    EXPECT_EQ(ask("bob@example.org").out,
              "bob@example.org as a sender: nothing here decides\n"
              "  rl_whitelist.lst:1          bob@example.org         no rule asks\n"
              "bob@example.org as a recipient: not listed\n");
}

TEST_F(who_lists_test, a_client) {
    put("blocked_ips", "10.1.2.3\n");
    put("blocked_ips.range", header(2, 2) + record({10, 1, 2, 0}, {10, 1, 2, 255}, "lab") +
                                 record({10, 9, 0, 0}, {10, 9, 0, 9}));
    const outcome refused = ask("10.1.2.3");
    EXPECT_EQ(refused.out,
              "10.1.2.3 as a client: refused by ip_blacklist\n"
              "* blocked_ips:1               10.1.2.3                refused by ip_blacklist\n"
              "  blocked_ips.range record 1  10.1.2.0-10.1.2.255     refused by ip_blacklist\n"
              "                              lab\n"
              "* decides\n");
    EXPECT_EQ(ask("10.1.2.4").out,
              "10.1.2.4 as a client: refused by ip_blacklist\n"
              "* blocked_ips.range record 1  10.1.2.0-10.1.2.255     refused by ip_blacklist\n"
              "                              lab\n"
              "* decides\n");
    put("exempt_ips.range", header(2, 1) + record({10, 1, 0, 0}, {10, 1, 255, 255}));
    EXPECT_TRUE(
        ask("10.1.2.4")
            .out.starts_with(
                "10.1.2.4 as a client: accepted by ip_whitelist\n"
                "* exempt_ips.range record 1   10.1.0.0-10.1.255.255   accepted by ip_whitelist\n"
                "  blocked_ips.range record 1"));
}

// The address as the engine gets it.
TEST_F(who_lists_test, an_ipv6_client) {
    put("exempt_ips", "2001:db8::1\n");
    put("blocked_ips", "10.1.2.3\n");
    EXPECT_EQ(ask("2001:0DB8:0::1").out,
              "2001:db8::1 as a client: accepted by ip_whitelist\n"
              "* exempt_ips:1                2001:db8::1             accepted by ip_whitelist\n"
              "* decides\n");
    EXPECT_TRUE(
        ask("::ffff:10.1.2.3").out.starts_with("10.1.2.3 as a client: refused by ip_blacklist\n"));
}

// --- block maps ---

TEST_F(who_lists_test, block_maps) {
    make({"blockmap", "build"}, "10.0.0.0/8\n", "bms/wide.bms");
    make({"blockmap", "build"}, "10.1.2.3\n", "bms/one.bms");
    make({"blockmap", "build"}, "11.0.0.0/8\n", "bms/other.bms");
    put("control/bms.enabled", "one.bms\nother.bms\nmissing.bms\n");
    put("bms/lists_to_update", "wide.bms\none.bms\n");
    EXPECT_EQ(ask("10.1.2.3").out,
              "10.1.2.3 as a client: refused by block_lists\n"
              "* bms/one.bms                 10.1.2.3                refused by block_lists\n"
              "  bms/wide.bms                10.0.0.0/8              not enabled: block_lists\n"
              "* decides\n");
    put("exempt_ips", "10.1.2.3\n");
    EXPECT_TRUE(ask("10.1.2.3")
                    .out.starts_with("10.1.2.3 as a client: accepted by ip_whitelist\n"
                                     "* exempt_ips:1"));
}

// --- names ---

TEST_F(who_lists_test, a_name) {
    make({"regex", "compile"}, "# dynamic\n^dyn[0-9]+\\.\n^pool-\n", "dynaregex/dyna.cregexes");
    make({"regex", "compile"}, "^pool-7\n", "dynaregex/exempt.cregexes");
    put("control/rules.enabled", "check_dynamic_reverse_dns\n");
    EXPECT_EQ(ask("pool-1.example.net.").out,
              "pool-1.example.net as a client's PTR name: refused by check_dynamic_reverse_dns\n"
              "* dynaregex/dyna.cregexes     ^pool-                  refused by\n"
              "  expression 2                                        check_dynamic_reverse_dns\n"
              "  (c:/quillfence/in.list:3)\n"
              "pool-1.example.net as a sender's domain: not listed\n"
              "* decides\n");
    const outcome spared = ask("pool-7.example.net");
    EXPECT_TRUE(spared.out.starts_with("pool-7.example.net as a client's PTR name: spared by "
                                       "dynaregex/exempt.cregexes\n"
                                       "  dynaregex/dyna.cregexes     ^pool-"))
        << spared.out;
    EXPECT_NE(spared.out.find("\n* dynaregex/exempt.cregexes   ^pool-7                 spared by "
                              "PTR rules\n"),
              std::string::npos)
        << spared.out;
    put("control/rules.enabled", "valid_ptr\n");
    EXPECT_NE(ask("dyn1.example.net").out.find("not enabled:"), std::string::npos);
    EXPECT_TRUE(
        ask("dyn1.example.net")
            .out.starts_with("dyn1.example.net as a client's PTR name: nothing here decides\n"));
}

TEST_F(who_lists_test, the_pattern_that_is_built_in) {
    const outcome answer = ask("host-1-2-3-4.example.net");
    EXPECT_NE(answer.out.find("(built in)"), std::string::npos) << answer.out;
    EXPECT_EQ(answer.status, exit_status::done);
}

// --- declarations and the mail server ---

TEST_F(who_lists_test, sender_networks) {
    put("control/valid_domain_ips", "# banks\nbank.example : 198.51.100.0/24\n"
                                    "other.example : 198.51.100.7\n"
                                    "bank.example : 10.0.0.0/8\n");
    put("control/rules.enabled", "known_sender_forgery\n");
    EXPECT_EQ(ask("a@BANK.example").out,
              "a@BANK.example as a sender: nothing here decides\n"
              "  control/valid_domain_ips:2  bank.example :          from these networks only:\n"
              "                              198.51.100.0/24         known_sender_forgery\n"
              "a@BANK.example as a recipient: not listed\n");
    EXPECT_EQ(ask("198.51.100.7").out,
              "198.51.100.7 as a client: nothing here decides\n"
              "  control/valid_domain_ips:2  bank.example :          from these networks only:\n"
              "                              198.51.100.0/24         known_sender_forgery\n"
              "  control/valid_domain_ips:3  other.example :         from these networks only:\n"
              "                              198.51.100.7            known_sender_forgery\n");
    EXPECT_EQ(ask("10.1.1.1").status, exit_status::no) << "a domain's first declaration counts";
    EXPECT_EQ(ask("bank.example").status, exit_status::done);
}

TEST_F(who_lists_test, a_hosted_domain) {
    const test_registry store;
    store.set_text(key, "Configuration Directory", "c:/quillfence/mail");
    put("mail/DOMAIN.TAB", "example.net\tx\nhosted.example\tx\n");
    put("control/rules.enabled", "local_require_auth\n");
    EXPECT_NE(ask("a@hosted.example").out.find("as a sender: refused by local_require_auth\n* "),
              std::string::npos)
        << ask("a@hosted.example").out;
    EXPECT_NE(ask("hosted.example").out.find("as a sender's domain: refused by local_require_auth"),
              std::string::npos);
    put("from_whitelist", "a@hosted.example\n");
    EXPECT_TRUE(ask("a@hosted.example")
                    .out.starts_with("a@hosted.example as a sender: accepted by from_whitelist"));
}

TEST_F(who_lists_test, the_mail_servers_whitelist) {
    const test_registry store;
    const std::string connector = std::string(key) + "\\Connectors\\SMTP";
    store.set_dword(connector, "IP White Listing Status", 1, platform::registry_view_32);
    store.set_text(connector + "\\White List", "192.0.2.*", "", platform::registry_view_32);
    put("blocked_ips", "192.0.2.7\n");
    const outcome answer = ask("192.0.2.7");
    EXPECT_TRUE(answer.out.starts_with("192.0.2.7 as a client: accepted by ip_whitelist\n"));
    EXPECT_NE(answer.out.find("192.0.2.*               accepted by ip_whitelist"),
              std::string::npos)
        << answer.out;
    EXPECT_EQ(ask("192.0.3.7").status, exit_status::no);
}

// The one of the mailbox to which the stand-in for the address map delivers the recipient.
TEST_F(who_lists_test, a_mailboxs_own_whitelist) {
    const test_registry store;
    store.set_text(key, "Configuration Directory", "c:/quillfence/mail");
    put("mail/Postoffices/example.net/MAILBOXES/bob/Senders/Whitelist/example.org.LST", "");
    put("from_blacklist", "a@example.org\n");
    const std::string own = ask("a@example.org", false, "bob@example.net").out;
    forget_address_map();
    EXPECT_TRUE(own.starts_with("a@example.org as a sender: accepted by from_whitelist\n")) << own;
    EXPECT_NE(own.find("example.org.LST"), std::string::npos) << own;
    EXPECT_TRUE(ask("a@example.org", false, "carol@example.net")
                    .out.starts_with("a@example.org as a sender: refused by from_blacklist\n"));
    forget_address_map();
}

// --- what can go wrong ---

TEST_F(who_lists_test, values_that_are_none) {
    static constexpr struct {
        const char *value;
        const char *want;
    } cases[] = {
        {"bob@", "\"bob@\" is no mail address"},
        {"10.0.0.0/8", "\"10.0.0.0/8\" is a network; ask about one address in it"},
        {"300.1.2.3", "\"300.1.2.3\" is no mail address, no host name and no client's address"},
        {"a b", "\"a b\" is no mail address, no host name and no client's address"},
        {"", "\"\" is no mail address, no host name and no client's address"},
    };
    for (const auto &one : cases) {
        const outcome answer = ask(one.value);
        EXPECT_EQ(answer.failure, one.want);
        EXPECT_EQ(answer.status, exit_status::failed);
    }
    EXPECT_EQ(ask("10.1.2.3", false, "a@b.example").failure,
              "--recipient goes with a sender's mail address");
}

// The others are told all the same.
TEST_F(who_lists_test, a_file_that_can_not_be_read) {
    put("blocked_ips", "10.1.2.3\n");
    put("exempt_ips.range",
        header(2, 2) + record({10, 1, 0, 0}, {10, 2, 0, 0}) + record({10, 1, 2, 3}, {10, 1, 2, 3}));
    make({"blockmap", "build"}, "10.1.2.3\n", "bms/one.bms");
    put("bms/two.bms", "damaged");
    put("control/bms.enabled", "two.bms\none.bms\n");
    const outcome answer = ask("10.1.2.3");
    EXPECT_EQ(answer.status, exit_status::failed);
    EXPECT_NE(answer.out.find("* blocked_ips:1"), std::string::npos) << answer.out;
    EXPECT_NE(answer.out.find("  bms/one.bms"), std::string::npos) << answer.out;
    EXPECT_NE(said.find("c:/quillfence/exempt_ips.range: the file is corrupt\n"), std::string::npos)
        << said;
    EXPECT_NE(said.find("c:/quillfence/bms/two.bms: "), std::string::npos) << said;
}

TEST_F(who_lists_test, an_engine_that_is_off) {
    put("control/enabled", "0\n");
    put("from_blacklist", "*@example.org\n");
    EXPECT_TRUE(
        ask("a@example.org")
            .out.ends_with("control/enabled switches the engine off: nothing of this is asked\n"));
}

TEST_F(who_lists_test, nothing_is_made_and_nobody_is_asked) {
    for (const char *value : {"a@example.org", "10.1.2.3", "mail.example.org"}) {
        call_watch calls;
        EXPECT_EQ(ask(value).status, exit_status::no) << value;
        EXPECT_EQ(calls.count("dns_query"), 0);
        EXPECT_EQ(calls.count("file_write"), 0);
    }
    for (const char *name : {"from_whitelist", "blocked_ips.range", "control/bms.enabled"}) {
        EXPECT_FALSE(drive.exists(std::string("c:/quillfence/") + name)) << name;
    }
}

// --- JSON ---

TEST_F(who_lists_test, as_json) {
    put("from_blacklist", "*@example.org\n");
    EXPECT_EQ(ask("a@example.org", true).out,
              R"({"value":"a@example.org","kind":"address","engine_is_on":true,"met":[)"
              R"({"as":"a sender","verdict":"refused","rule":"from_blacklist","listings":[)"
              R"({"file":"c:/quillfence/from_blacklist","line":1,"entry":"*@example.org",)"
              R"("how":"wildcard","rule":"from_blacklist","does":"refuses","enabled":true,)"
              R"("decides":true}]},{"as":"a recipient","verdict":"none","listings":[]}],)"
              R"("problems":[]})"
              "\n");
}

} // namespace
} // namespace quillfence::data_tool
