#include "vcspamrule.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "expected_rules.h"
#include "log_capture.h"
#include "owned_rule.h"
#include "quillfence-checks.h"

namespace quillfence::testing {

namespace {

uint8_t never(smtp_state *) {
    return 0;
}

using vcspamrule_test = logged_test;

} // namespace

TEST_F(vcspamrule_test, the_table_holds_all_rules_in_order) {
    const rule_list rules(build_rule_table());
    const vc_list_entry *entry = rules.head;
    for (const expected_rule &want : expected_rules) {
        SCOPED_TRACE(want.name);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->size, 32u);
        const auto *rule = static_cast<const spam_rule *>(entry->data);
        ASSERT_NE(rule, nullptr);
        ASSERT_STREQ(rule->name, want.name);
        EXPECT_EQ(rule->check, want.check);
        EXPECT_EQ(rule->mua, want.mua);
        EXPECT_EQ(rule->ndr, want.ndr);
        EXPECT_EQ(rule->localhost, want.localhost);
        EXPECT_EQ(rule->ipv6, want.ipv6);
        EXPECT_STREQ(rule->rejection, want.rejection);
        EXPECT_EQ(is_reportable_rule(want.name), want.reported);
        entry = entry->next;
    }
    EXPECT_EQ(entry, nullptr) << "a rule that tests/core/expected_rules.h does not know: "
                              << static_cast<const spam_rule *>(entry->data)->name;
}

TEST_F(vcspamrule_test, the_help_site_ends_in_a_slash) {
    ASSERT_NE(*help_site(), '\0');
    EXPECT_EQ(help_site()[strlen(help_site()) - 1], '/');
}

TEST_F(vcspamrule_test, names_and_checks_are_used_once) {
    std::set<std::string> names;
    std::set<rule_check> checks;
    for (const rule_row &row : rule_rows()) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        if (row.check) {
            EXPECT_TRUE(checks.insert(row.check).second) << row.name;
        }
    }
}

TEST_F(vcspamrule_test, rules_are_found_by_name) {
    const rule_list rules(build_rule_table());
    const spam_rule *rule = find_rule(rules.head, "check_confirmed_dyna");
    ASSERT_NE(rule, nullptr);
    EXPECT_STREQ(rule->rejection,
                 "Your server IP address [%IP%] does not have a valid reverse DNS entry [%RDNS%]. "
                 "See " HELP "best-practices/check_dynamic_reverse_dns/ for more information.");
    EXPECT_EQ(find_rule(rules.head, "check_confirmed"), nullptr);
    EXPECT_EQ(find_rule(rules.head, "Check_confirmed_dyna"), nullptr);
    EXPECT_EQ(find_rule(rules.head, ""), nullptr);
    EXPECT_EQ(find_rule(rules.head, nullptr), nullptr);
    EXPECT_EQ(find_rule(nullptr, "inbound"), nullptr);
}

TEST_F(vcspamrule_test, comparing_names) {
    const owned_rule rule(new_rule("b", nullptr, 0, 0, 0, 0, "text"));
    spam_rule nameless = {};
    EXPECT_EQ(rule_name_compare(rule.get(), "b"), 0);
    EXPECT_GT(rule_name_compare(rule.get(), "a"), 0);
    EXPECT_LT(rule_name_compare(rule.get(), "c"), 0);
    EXPECT_EQ(rule_name_compare(rule.get(), nullptr), -1);
    EXPECT_EQ(rule_name_compare(nullptr, "b"), -1);
    EXPECT_EQ(rule_name_compare(&nameless, "b"), -1);
}

TEST_F(vcspamrule_test, a_new_rule_copies_its_texts) {
    std::string name = "some_rule", rejection = "go away";
    const owned_rule rule(new_rule(name.c_str(), never, 1, 2, 3, 4, rejection.c_str()));
    ASSERT_NE(rule, nullptr);
    name = rejection = "changed";
    EXPECT_STREQ(rule->name, "some_rule");
    EXPECT_STREQ(rule->rejection, "go away");
    EXPECT_EQ(rule->check, never);
    EXPECT_EQ(rule->mua, 1);
    EXPECT_EQ(rule->ndr, 2);
    EXPECT_EQ(rule->localhost, 3);
    EXPECT_EQ(rule->ipv6, 4);
}

TEST_F(vcspamrule_test, a_rule_needs_name_and_rejection) {
    static const struct {
        const char *name, *rejection;
    } cases[] = {{nullptr, "text"}, {"", "text"}, {"name", nullptr}, {"name", ""}};
    for (const auto &c : cases) {
        EXPECT_EQ(new_rule(c.name, never, 1, 1, 1, 1, c.rejection), nullptr);
        EXPECT_EQ(log.errors(), lines{"new_rule: Invalid argument"});
    }
}

TEST_F(vcspamrule_test, releasing_null_does_nothing) {
    free_rule(nullptr);
    free_rule_data(nullptr);
}

TEST_F(vcspamrule_test, a_rule_is_dumped) {
    const rule_list rules(build_rule_table());
    ::testing::internal::CaptureStdout();
    dump_rule(find_rule(rules.head, "valid_ptr"));
    dump_rule(find_rule(rules.head, "outbound"));
    fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "==Dumping [valid_ptr] spam rule==\n"
              "REJECTION: [Server %IP% has an invalid PTR record. See " HELP
              "best-practices/reverse-dns-naming-conventions-valid-ptr/ for more information.]\n"
              "CALLBACK : [true]\n"
              "MUA      : [false]\n"
              "NDR      : [false]\n"
              "LOCALHOST: [false]\n"
              "IPV6     : [false]\n"
              "==Dumping [outbound] spam rule==\n"
              "REJECTION: [You have sent too much mail. Try again later.]\n"
              "CALLBACK : [false]\n"
              "MUA      : [true]\n"
              "NDR      : [true]\n"
              "LOCALHOST: [true]\n"
              "IPV6     : [true]\n");
}

TEST_F(vcspamrule_test, a_list_is_dumped_rule_by_rule) {
    const rule_list rules(build_rule_table());
    ::testing::internal::CaptureStdout();
    dump_rules(rules.head);
    dump_rules(nullptr);
    dump_rule(nullptr);
    fflush(stdout);
    const std::string dump = ::testing::internal::GetCapturedStdout();
    size_t position = 0;
    for (const rule_row &row : rule_rows()) {
        const std::string line = "==Dumping [" + std::string(row.name) + "] spam rule==\n";
        const size_t found = dump.find(line, position);
        ASSERT_NE(found, std::string::npos) << row.name;
        position = found + line.size();
    }
    EXPECT_EQ(static_cast<size_t>(std::count(dump.begin(), dump.end(), '\n')),
              rule_rows().size() * 7);
}

// As the runner does: an element without a rule is passed over.
TEST_F(vcspamrule_test, a_list_may_hold_elements_without_a_rule) {
    const owned_rule rule(new_rule("last", nullptr, 0, 0, 0, 0, "text"));
    vc_list_entry last = {rule.get(), sizeof(spam_rule), nullptr};
    vc_list_entry empty = {nullptr, sizeof(spam_rule), &last};
    EXPECT_EQ(find_rule(&empty, "last"), rule.get());
    ::testing::internal::CaptureStdout();
    dump_rules(&empty);
    fflush(stdout);
    const std::string dump = ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(dump.starts_with("==Dumping [last] spam rule==\n")) << dump;
}

TEST_F(vcspamrule_test, an_absent_rejection_is_dumped_as_null) {
    char name[] = "bare";
    spam_rule rule = {};
    rule.name = name;
    ::testing::internal::CaptureStdout();
    dump_rule(&rule);
    fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "==Dumping [bare] spam rule==\n"
                                                        "REJECTION: [null]\n"
                                                        "CALLBACK : [false]\n"
                                                        "MUA      : [false]\n"
                                                        "NDR      : [false]\n"
                                                        "LOCALHOST: [false]\n"
                                                        "IPV6     : [false]\n");
}

} // namespace quillfence::testing
