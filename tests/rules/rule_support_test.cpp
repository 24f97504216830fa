#include "rule_support.h"

#include "log_capture.h"
#include "rule_verdict.h"

namespace quillfence::testing {
namespace {

using rule_support = logged_test;

TEST_F(rule_support, text_is_trimmed_when_a_blank_begins_or_ends_it) {
    struct {
        const char *text, *want;
    } const cases[] = {
        {"a b", "a b"},    {" a", "a"},       {"a ", "a"},    {"  a b  ", "a b"},
        {" \ta\r\n", "a"}, {"\t\na\t ", "a"}, {"\ta", "\ta"}, {"a\n", "a\n"},
        {" ", ""},         {"", ""},          {"a", "a"},
    };
    for (const auto &[text, want] : cases) {
        char *slot = strdup(text);
        trim_session_text(&slot);
        EXPECT_STREQ(slot, want) << "of [" << text << "]";
        free(slot);
    }
    char *none = nullptr;
    trim_session_text(&none);
    EXPECT_EQ(none, nullptr);
}

} // namespace
} // namespace quillfence::testing
