#include "vc_compat.h"

#include <cerrno>
#include <cstring>

#include "failing_memory.h"
#include "heap_text.h"
#include "log_capture.h"
#include "platform/process.h"

namespace quillfence::testing {
namespace {

constexpr char variable[] = "QUILLFENCE_TEST_VARIABLE";

class vc_getenv : public traced_test {
  protected:
    ~vc_getenv() override {
        platform::environment_set(variable, nullptr);
    }
    static void set(const std::string &value) {
        platform::environment_set(variable, value.c_str());
    }
};

TEST_F(vc_getenv, hands_over_the_value) {
    set("some value");
    text_slot value;
    EXPECT_EQ(__getenv(variable, value.slot()), 1);
    EXPECT_EQ(value.str(), "some value");
    EXPECT_EQ(log.transcript(),
              (lines{"D __getenv: Seeking variable QUILLFENCE_TEST_VARIABLE",
                     "D __getenv: variable [QUILLFENCE_TEST_VARIABLE] found [some value]"}));
}

TEST_F(vc_getenv, frees_and_replaces_what_the_destination_holds) {
    set("new");
    text_slot value("old");
    EXPECT_EQ(__getenv(variable, value.slot()), 1);
    EXPECT_EQ(value.str(), "new");
}

TEST_F(vc_getenv, undefined_variable_leaves_the_destination_alone) {
    text_slot value("old");
    EXPECT_EQ(__getenv(variable, value.slot()), 0);
    EXPECT_EQ(value.str(), "old");
    EXPECT_EQ(log.transcript(),
              (lines{"D __getenv: Seeking variable QUILLFENCE_TEST_VARIABLE",
                     "D __getenv: variable [QUILLFENCE_TEST_VARIABLE] not found"}));
}

TEST_F(vc_getenv, lengths) {
    const struct {
        size_t length;
        const char *name;
        int want;
        size_t want_length;
    } cases[] = {
        {1, "shortest", 1, 1},
        {202, "one below the error number", 1, 202},
        {203, "kept on purpose: reads as not set", 0, 0},
        {204, "one above the error number", 1, 204},
        {253, "longest", 1, 253},
        {254, "kept on purpose: too long comes back empty", 1, 0},
        {300, "kept on purpose: too long comes back empty", 1, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.length) + ": " + c.name);
        set(std::string(c.length, 'v'));
        text_slot value;
        EXPECT_EQ(__getenv(variable, value.slot()), c.want);
        EXPECT_EQ(value.str(), c.want ? std::string(c.want_length, 'v') : "(none)");
    }
}

TEST_F(vc_getenv, refuses_null_arguments_and_an_empty_name) {
    text_slot value("old");
    EXPECT_EQ(__getenv(nullptr, value.slot()), 0);
    EXPECT_EQ(__getenv("", value.slot()), 0);
    EXPECT_EQ(__getenv(variable, nullptr), 0);
    EXPECT_EQ(value.str(), "old");
    const std::string line = std::string("E __getenv: ") + strerror(EINVAL);
    EXPECT_EQ(log.transcript(), (lines{line, line, line}));
}

TEST_F(vc_getenv, without_memory) {
    set("value");
    text_slot value("old");
    {
        failing_allocation failing(1);
        EXPECT_EQ(__getenv(variable, value.slot()), 0);
    }
    EXPECT_EQ(value.str(), "old");
    EXPECT_EQ(log.transcript(), (lines{"D __getenv: Seeking variable QUILLFENCE_TEST_VARIABLE",
                                       std::string("E __getenv: ") + strerror(ENOMEM)}));
}

} // namespace
} // namespace quillfence::testing
