#include "quillfence.h"

#include "call_watch.h"
#include "drive_c.h"
#include "failing_memory.h"
#include "hook_table.h"
#include "owned_session.h"
#include "platform/error_numbers.h"
#include "quillfence-log.h"
#include "quillfence-spam-hooks.h"
#include "vcspamrule.h"

namespace quillfence::testing {

namespace {

using quillfence_test = drive_test;

char *some_message(const char *, smtp_state *) {
    return nullptr;
}

} // namespace

TEST_F(quillfence_test, start_up_fills_the_hook_table) {
    set_hooks({.dns_option = 9,
               .sender_blacklist = ipwhitelist_hook,
               .spare_6 = ipwhitelist_hook,
               .spare_7 = ipwhitelist_hook,
               .helo_whitelist = ipwhitelist_hook,
               .ip_blacklist = ipwhitelist_hook,
               .message = some_message});
    ASSERT_EQ(quillfence_init(), 1);
    const hook_table &table = hooks();
    EXPECT_EQ(table.dns_option, 1);
    EXPECT_EQ(table.dynamic_names, dyna_regex_hook);
    EXPECT_EQ(table.spam_names, spam_regex_hook);
    EXPECT_EQ(table.confirmed_names, confirmed_regex_hook);
    EXPECT_EQ(table.sender_whitelist, fromwhitelist_hook);
    EXPECT_EQ(table.sender_blacklist, fromblacklist_hook);
    EXPECT_EQ(table.spare_6, nullptr);
    EXPECT_EQ(table.spare_7, nullptr);
    EXPECT_EQ(table.helo_whitelist, nullptr);
    EXPECT_EQ(table.helo_blacklist, nullptr);
    EXPECT_EQ(table.ip_whitelist, ipwhitelist_hook);
    EXPECT_EQ(table.ip_blacklist, ipblacklist_hook);
    EXPECT_EQ(table.country_blacklist, nullptr);
    EXPECT_EQ(table.recipient_whitelist, towhitelist_hook);
    EXPECT_EQ(table.mail_log, log_message);
    EXPECT_EQ(table.message, nullptr);
    quillfence_teardown();
}

static const int rule_count = static_cast<int>(rule_rows().size());

TEST_F(quillfence_test, start_up_builds_the_rules_and_teardown_releases_them) {
    EXPECT_EQ(quillfence_rules(), nullptr);
    ASSERT_EQ(quillfence_init(), 1);
    EXPECT_EQ(vc_list_count(quillfence_rules()), rule_count);
    for (const rule_row &row : rule_rows()) {
        EXPECT_NE(find_rule(quillfence_rules(), row.name), nullptr) << row.name;
    }
    quillfence_teardown();
    EXPECT_EQ(quillfence_rules(), nullptr);
    EXPECT_EQ(hooks().dns_option, 1) << "the hook table stays";
    EXPECT_EQ(hooks().ip_whitelist, ipwhitelist_hook);
    quillfence_teardown(); // a second one finds nothing
}

TEST_F(quillfence_test, nothing_is_left_of_the_rules) {
    ASSERT_EQ(quillfence_init(), 1);
    quillfence_teardown();
    const long before = live_allocations();
    ASSERT_EQ(quillfence_init(), 1);
    EXPECT_GE(live_allocations() - before, rule_count * 4) << "entry, rule, name and text of each";
    ASSERT_EQ(quillfence_init(), 1); // replaces the rules
    EXPECT_EQ(vc_list_count(quillfence_rules()), rule_count);
    quillfence_teardown();
    EXPECT_EQ(live_allocations() - before, 0);
}

TEST_F(quillfence_test, the_mail_log_carries_the_engines_name) {
    ql_set_program_name("another");
    ASSERT_EQ(quillfence_init(), 1);
    drive.make_folder("c:/quillfence/log");
    const session state("192.0.2.1");
    hooks().mail_log(state, "require_helo", 1);
    quillfence_teardown();
    EXPECT_NE(drive.read("c:/quillfence/log/qflog").find(" quillfence["), std::string::npos)
        << drive.read("c:/quillfence/log/qflog");
}

TEST_F(quillfence_test, the_control_file_enabled) {
    static const struct {
        const char *contents;
        int want;
    } cases[] = {
        {"1", 1},  {"1\n", 1}, {"1\r\n", 1}, {"01", 1},  {" 1", 1},         {"1x", 1},
        {"+1", 1}, {"0", 0},   {"2", 0},     {"-1", 0},  {"true", 0},       {"", 0},
        {"x1", 0}, {"10", 0},  {"11", 0},    {"1.5", 1}, {"4294967297", 0}, {"\n", 0},
    };
    EXPECT_EQ(quillfence_enabled(), 0) << "no file";
    EXPECT_FALSE(drive.exists("c:/quillfence/control/enabled")) << "asking creates nothing";
    for (const auto &c : cases) {
        drive.write("c:/quillfence/control/enabled", c.contents);
        EXPECT_EQ(quillfence_enabled(), c.want) << "[" << c.contents << "]";
    }
    drive.remove("c:/quillfence/control/enabled");
    drive.make_folder("c:/quillfence/control/enabled");
    EXPECT_EQ(quillfence_enabled(), 0) << "a folder";
}

TEST_F(quillfence_test, a_control_file_that_can_not_be_read_disables) {
    drive.write("c:/quillfence/control/enabled", "1");
    ASSERT_EQ(quillfence_enabled(), 1);
    for (const char *call : {"file_open", "file_read"}) {
        call_watch watch;
        watch.fail(call, 1, platform::error_access_denied);
        EXPECT_EQ(quillfence_enabled(), 0) << call;
        EXPECT_EQ(watch.failed(), 1) << call;
    }
    EXPECT_FALSE(log.errors().empty());
}

} // namespace quillfence::testing
