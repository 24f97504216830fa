// The rules that look one value of the session up in a list.
#include <algorithm>
#include <iterator>
#include <string>

#include "call_watch.h"
#include "drive_c.h"
#include "hook_table.h"
#include "list_rule.h"
#include "me_address_map.h"
#include "platform/registry.h"
#include "rule_verdict.h"
#include "rules.h"
#include "test_registry.h"

namespace quillfence::testing {
namespace {

using hook_slot = session_hook hook_table::*;

constexpr hook_slot all_slots[] = {
    &hook_table::dynamic_names,
    &hook_table::spam_names,
    &hook_table::confirmed_names,
    &hook_table::sender_whitelist,
    &hook_table::sender_blacklist,
    &hook_table::spare_6,
    &hook_table::spare_7,
    &hook_table::helo_whitelist,
    &hook_table::helo_blacklist,
    &hook_table::ip_whitelist,
    &hook_table::ip_blacklist,
    &hook_table::country_blacklist,
    &hook_table::recipient_whitelist,
};

// Puts one hook into every slot, or into none.
void install(session_hook hook) {
    hook_table table = {.dns_option = 1};
    for (const hook_slot slot : all_slots) {
        table.*slot = hook;
    }
    set_hooks(table);
}

void install_only(hook_slot slot, session_hook hook) {
    hook_table table = {.dns_option = 1};
    table.*slot = hook;
    set_hooks(table);
}

int calls;
smtp_state *asked;
uint8_t lists_it(smtp_state *state) {
    ++calls;
    asked = state;
    return 1;
}
uint8_t lists_nothing(smtp_state *state) {
    ++calls;
    asked = state;
    return 0;
}
// Any non-zero answer counts.
uint8_t answers_seven(smtp_state *) {
    return 7;
}

struct list_case {
    const char *name;
    uint8_t (*rule)(smtp_state *);
    char *smtp_state::*value;
    hook_slot slot;
    const char *empty_line;
};

constexpr list_case cases[] = {
    {"rule_to_whitelist", rule_to_whitelist, &smtp_state::rcpt_to, &hook_table::recipient_whitelist,
     "RCPT TO is empty or NULL-nothing to check"},
    {"rule_from_whitelist", rule_from_whitelist, &smtp_state::mail_from,
     &hook_table::sender_whitelist, "MAIL FROM is empty or NULL-nothing to check"},
    {"rule_ip_whitelist", rule_ip_whitelist, &smtp_state::ip, &hook_table::ip_whitelist,
     "IP is empty or NULL-nothing to check"},
    {"rule_ip_blacklist", rule_ip_blacklist, &smtp_state::ip, &hook_table::ip_blacklist,
     "IP is empty or NULL-nothing to check"},
    {"rule_from_blacklist", rule_from_blacklist, &smtp_state::mail_from,
     &hook_table::sender_blacklist, "MAIL FROM is empty or NULL-nothing to check"},
    {"rule_helo_blacklist", rule_helo_blacklist, &smtp_state::helo, &hook_table::helo_blacklist,
     "HELO is empty or NULL-nothing to check"},
    {"rule_helo_whitelist", rule_helo_whitelist, &smtp_state::helo, &hook_table::helo_whitelist,
     "HELO is empty or NULL-nothing to check"},
    {"rule_country_blacklist", rule_country_blacklist, &smtp_state::ip_country,
     &hook_table::country_blacklist, "Nothing to check as the ip country is NULL or empty"},
};

using list_rules = traced_test;

// The tests of each rule; they run under its name.
class list_rule_test : public traced_test, public ::testing::WithParamInterface<list_case> {
  protected:
    const list_case &c = GetParam();
};

INSTANTIATE_TEST_SUITE_P(each, list_rule_test, ::testing::ValuesIn(cases),
                         [](const auto &made) { return std::string(made.param.name); });

TEST_P(list_rule_test, without_a_session_there_is_an_error_line) {
    install(lists_it);
    calls = 0;
    EXPECT_EQ(c.rule(nullptr), 0) << c.name;
    EXPECT_EQ(calls, 0) << c.name;
    EXPECT_EQ(rule_lines(log, c.name), lines{"E Invalid argument"});
}

TEST_P(list_rule_test, without_a_value_there_is_nothing_to_check) {
    install(lists_it);
    for (const char *value : {static_cast<const char *>(nullptr), ""}) {
        session state;
        session::put(&(state->*c.value), value);
        calls = 0;
        EXPECT_EQ(c.rule(state), 0) << c.name;
        EXPECT_EQ(calls, 0) << c.name;
        EXPECT_EQ(rule_lines(log, c.name), lines{std::string("D ") + c.empty_line});
    }
}

TEST_P(list_rule_test, the_hook_decides) {
    static const struct {
        session_hook hook;
        int want;
    } hooks[] = {{lists_it, 1}, {answers_seven, 1}, {lists_nothing, 0}, {nullptr, 0}};
    for (const auto &h : hooks) {
        install_only(c.slot, h.hook);
        session state;
        session::put(&(state->*c.value), "192.0.2.77");
        asked = nullptr;
        EXPECT_EQ(c.rule(state), h.want) << c.name;
        if (h.hook == lists_it) {
            EXPECT_EQ(asked, static_cast<smtp_state *>(state)) << c.name;
        }
        EXPECT_EQ(rule_lines(log, c.name), lines{"D checking for entry [192.0.2.77]"});
    }
}

TEST_P(list_rule_test, its_own_slot_is_read) {
    for (const hook_slot slot : all_slots) {
        install_only(slot, lists_it);
        session state;
        session::put(&state->rcpt_to, "bob@example.net"); // for the mail server's whitelist
        session::put(&(state->*c.value), "192.0.2.77");
        EXPECT_EQ(c.rule(state), slot == c.slot)
            << c.name << " with slot "
            << std::find(all_slots, std::end(all_slots), slot) - all_slots + 1;
    }
}

// The number in a line is that of the rule's own source, whose helper this is.
TEST_F(list_rules, lines_come_from_the_place_of_the_rule) {
    static constexpr list_rule row = {
        .value = &smtp_state::helo, .empty_line = "nothing", .slot = &hook_table::helo_blacklist};
    install(lists_nothing);
    session state;
    log.take();
    const log_place place = {"some_rule", "its file", 77};
    run_list_rule(place, row, state);
    session::put(&state->helo, "mx");
    run_list_rule(place, row, state);
    EXPECT_EQ(log.take(),
              (std::vector<log_line>{{7, "its file", 77, "some_rule", "nothing"},
                                     {7, "its file", 77, "some_rule", "checking for entry [mx]"}}));
}

// --- the mail server's own whitelists, which two rules ask second ---

// A mail server that exempts the client 192.0.2.77, and a@b.example in the mailbox
// bob@example.net.
class mail_server_whitelists : public traced_drive_test {
  protected:
    mail_server_whitelists() {
        const std::string key = "SOFTWARE\\Mail Enable\\Mail Enable";
        const std::string smtp = key + "\\Connectors\\SMTP";
        store.set_text(key, "Configuration Directory", "c:\\quillfence\\Config");
        store.set_dword(smtp, "IP White Listing Status", 1, platform::registry_view_32);
        store.set_text(smtp + "\\White List", "192.0.2.77", "", platform::registry_view_32);
        drive.write("c:/quillfence/Config/Postoffices/example.net/MAILBOXES/bob/Senders/Whitelist/"
                    "a@b.example.LST",
                    "");
        session::put(&state->ip, "192.0.2.77");
        session::put(&state->mail_from, "a@b.example");
        session::put(&state->rcpt_to, "bob@example.net");
    }
    ~mail_server_whitelists() override {
        forget_address_map();
        install(nullptr);
    }
    test_registry store;
    session state;
};

TEST_F(mail_server_whitelists, decide_where_the_hook_does_not) {
    for (const session_hook hook : {session_hook{nullptr}, session_hook{lists_nothing}}) {
        install(hook);
        session::put(&state->ip, "192.0.2.77");
        EXPECT_EQ(rule_ip_whitelist(state), 1);
        session::put(&state->ip, "192.0.2.78");
        EXPECT_EQ(rule_ip_whitelist(state), 0);

        session::put(&state->rcpt_to, "bob@example.net");
        EXPECT_EQ(rule_from_whitelist(state), 1);
        session::put(&state->rcpt_to, "carol@example.net");
        EXPECT_EQ(rule_from_whitelist(state), 0) << "another recipient's whitelist";
    }
}

TEST_F(mail_server_whitelists, are_not_asked_after_a_hit) {
    for (uint8_t (*const rule)(smtp_state *) : {rule_ip_whitelist, rule_from_whitelist}) {
        install(lists_nothing);
        call_watch watch;
        EXPECT_EQ(rule(state), 1);
        EXPECT_FALSE(watch.take().empty()) << "the registry is read";
        install(lists_it);
        EXPECT_EQ(rule(state), 1);
        for (const std::string &call : watch.take()) {
            EXPECT_TRUE(call.starts_with("environment_")) << call;
        }
    }
}

// The catch-all country is not looked up; other codes with stars are.
TEST_F(list_rules, rule_country_blacklist_and_codes_of_stars) {
    static const struct {
        const char *code;
        int want;
        const char *line;
    } codes[] = {
        {"**", 0, "D Nothing to check as the ip country is catch-all"},
        {"*", 1, "D checking for entry [*]"},
        {"***", 1, "D checking for entry [***]"},
        {"US", 1, "D checking for entry [US]"},
    };
    install_only(&hook_table::country_blacklist, lists_it);
    for (const auto &c : codes) {
        session state;
        session::put(&state->ip_country, c.code);
        EXPECT_EQ(rule_country_blacklist(state), c.want) << c.code;
        EXPECT_EQ(rule_lines(log, "rule_country_blacklist"), lines{c.line});
    }
    install(nullptr);
    session state;
    session::put(&state->ip_country, "*");
    EXPECT_EQ(rule_country_blacklist(state), 0);
}

} // namespace
} // namespace quillfence::testing
