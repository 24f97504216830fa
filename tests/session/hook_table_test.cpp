#include "hook_table.h"

#include <gtest/gtest.h>

namespace quillfence::testing {

namespace {

template <int number>
uint8_t numbered(smtp_state *) {
    return number;
}
void some_mail_log(smtp_state *, const char *, uint8_t) {}
char *some_message(const char *, smtp_state *) {
    return nullptr;
}

void expect_all_empty(const hook_table &table) {
    for (const session_hook hook :
         {table.dynamic_names, table.spam_names, table.confirmed_names, table.sender_whitelist,
          table.sender_blacklist, table.spare_6, table.spare_7, table.helo_whitelist,
          table.helo_blacklist, table.ip_whitelist, table.ip_blacklist, table.country_blacklist,
          table.recipient_whitelist}) {
        EXPECT_EQ(hook, nullptr);
    }
    EXPECT_EQ(table.mail_log, nullptr);
    EXPECT_EQ(table.message, nullptr);
}

} // namespace

TEST(hook_table, empty_until_set) {
    EXPECT_EQ(hooks().dns_option, 0);
    expect_all_empty(hooks());
}

TEST(hook_table, arguments_come_in_table_order) {
    set_hooks(1, numbered<1>, numbered<2>, numbered<3>, numbered<4>, numbered<5>, numbered<6>,
              numbered<7>, numbered<8>, numbered<9>, numbered<10>, numbered<11>, numbered<12>,
              numbered<13>, some_mail_log, some_message);
    const hook_table &table = hooks();
    EXPECT_EQ(table.dns_option, 1);
    EXPECT_EQ(table.dynamic_names(nullptr), 1);
    EXPECT_EQ(table.spam_names(nullptr), 2);
    EXPECT_EQ(table.confirmed_names(nullptr), 3);
    EXPECT_EQ(table.sender_whitelist(nullptr), 4);
    EXPECT_EQ(table.sender_blacklist(nullptr), 5);
    EXPECT_EQ(table.spare_6(nullptr), 6);
    EXPECT_EQ(table.spare_7(nullptr), 7);
    EXPECT_EQ(table.helo_whitelist(nullptr), 8);
    EXPECT_EQ(table.helo_blacklist(nullptr), 9);
    EXPECT_EQ(table.ip_whitelist(nullptr), 10);
    EXPECT_EQ(table.ip_blacklist(nullptr), 11);
    EXPECT_EQ(table.country_blacklist(nullptr), 12);
    EXPECT_EQ(table.recipient_whitelist(nullptr), 13);
    EXPECT_EQ(table.mail_log, some_mail_log);
    EXPECT_EQ(table.message, some_message);
}

TEST(hook_table, setting_replaces_everything) {
    set_hooks(1, numbered<1>, numbered<2>, numbered<3>, numbered<4>, numbered<5>, numbered<6>,
              numbered<7>, numbered<8>, numbered<9>, numbered<10>, numbered<11>, numbered<12>,
              numbered<13>, some_mail_log, some_message);
    set_hooks({.dns_option = 7});
    EXPECT_EQ(hooks().dns_option, 7);
    expect_all_empty(hooks());
}

TEST(hook_table, slots_by_name) {
    set_hooks({.dns_option = 2, .ip_whitelist = numbered<10>, .message = some_message});
    hook_table rest = hooks();
    EXPECT_EQ(rest.dns_option, 2);
    EXPECT_EQ(rest.ip_whitelist, numbered<10>);
    EXPECT_EQ(rest.message, some_message);
    rest.ip_whitelist = nullptr;
    rest.message = nullptr;
    expect_all_empty(rest);
    set_hooks({});
}

} // namespace quillfence::testing
