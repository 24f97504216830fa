#include "report.h"

#include <cstdio>
#include <string>

#include "drive_c.h"
#include "failing_memory.h"
#include "owned_json.h"
#include "owned_rule.h"
#include "owned_session.h"
#include "quillfence.h"

namespace quillfence::testing {
namespace {

// The document as the program prints it.
std::string printed(const vc_json *root) {
    FILE *stream = tmpfile();
    vc_json_dump(stream, root);
    const long size = ftell(stream);
    rewind(stream);
    std::string text(static_cast<size_t>(size), '\0');
    EXPECT_EQ(fread(text.data(), 1, text.size(), stream), text.size());
    fclose(stream);
    return text;
}

class report_test : public drive_test {
  protected:
    void SetUp() override {
        state->base_dir = strdup("c:/quillfence/");
        rules.add("require_helo", hits);
        rules.add("ip_whitelist", hits);
        rules.add("valid_ptr", hits);
        rules.add("block_lists", nullptr);
        std::string map(1024, '\0');
        map.replace(10 * 4, 4, "\xFF\xFF\xFF\xFF");
        drive.write("c:/quillfence/bms/lists_to_update", "one\ntwo\nthree\n");
        drive.write("c:/quillfence/bms/one", map);
        drive.write("c:/quillfence/bms/three", map);
    }
    static uint8_t hits(smtp_state *) {
        return 1;
    }
    session state{"10.1.2.3"};
    rule_list rules;
};

TEST_F(report_test, two_members_in_fixed_order) {
    const json report(build_report(state, rules.head));
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(printed(report.get()),
              R"({"spam_hits":["require_helo","valid_ptr"],"bms_hits":["one","three"]})");
}

TEST_F(report_test, members_without_hits_are_empty_arrays) {
    for (vc_list_entry *entry = rules.head; entry; entry = entry->next) {
        static_cast<spam_rule *>(entry->data)->check = nullptr;
    }
    free(state->ip);
    state->ip = strdup("11.1.2.3");
    const json report(build_report(state, rules.head));
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(printed(report.get()), R"({"spam_hits":[],"bms_hits":[]})");
}

// Names stand as they are: nothing is escaped.
TEST_F(report_test, hits_are_not_escaped) {
    const json root(vc_json_create_node_object_ex(nullptr, nullptr));
    vc_list_entry *list = nullptr;
    vc_append_list_entry(&list, "a\"b\\c\t", 7, 1);
    EXPECT_EQ(add_hits(root.get(), "hits", list), 1);
    vc_destroy_list(&list, free);
    EXPECT_EQ(printed(root.get()), "{\"hits\":[\"a\"b\\c\t\"]}");
}

TEST_F(report_test, a_failed_check_is_no_report) {
    drive.remove("c:/quillfence/bms/lists_to_update");
    EXPECT_EQ(build_report(state, rules.head), nullptr);
    EXPECT_EQ(log.errors(), lines{"run_all_bms_checks: Failed to load list of BMS"});
    EXPECT_EQ(build_report(state, nullptr), nullptr);
    EXPECT_EQ(log.errors(), lines{"run_all_spam_checks: Invalid argument"});
    EXPECT_EQ(build_report(nullptr, rules.head), nullptr);
    EXPECT_EQ(log.errors(), lines{"run_all_spam_checks: Invalid argument"});
}

TEST_F(report_test, a_member_needs_a_root_and_a_name) {
    const json root(vc_json_create_node_object_ex(nullptr, nullptr));
    EXPECT_EQ(add_hits(nullptr, "hits", nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"add_hits: Invalid argument"});
    EXPECT_EQ(add_hits(root.get(), nullptr, nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"add_hits: Invalid argument"});
    EXPECT_EQ(add_hits(root.get(), "", nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"add_hits: Invalid argument"});
    EXPECT_EQ(printed(root.get()), "{}");
}

TEST_F(report_test, a_hit_that_can_not_be_added_removes_the_member) {
    const json root(vc_json_create_node_object_ex(nullptr, nullptr));
    vc_list_entry good = {const_cast<char *>("one"), 4, nullptr};
    vc_list_entry bad = {nullptr, 0, nullptr};
    good.next = &bad;
    EXPECT_EQ(add_hits(root.get(), "hits", &good), 0);
    EXPECT_EQ(log.errors(), lines{"vc_json_create_node_string_ex: Invalid argument"});
    EXPECT_EQ(printed(root.get()), "{}");
}

// Each allocation of a whole report fails once. The report is then missing or, where only a list
// or a map could not be read, complete without it.
TEST_F(report_test, without_memory) {
    vc_json *report = nullptr;
    const unsigned failures = sweep_allocations([&] { report = build_report(state, rules.head); },
                                                [&](unsigned) {
                                                    EXPECT_FALSE(log.errors().empty());
                                                    vc_json_free(report);
                                                });
    EXPECT_GT(failures, 10u);
    ASSERT_NE(report, nullptr);
    vc_json_free(report);
}

} // namespace
} // namespace quillfence::testing
