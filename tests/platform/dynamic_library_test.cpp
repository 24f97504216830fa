#include "platform/dynamic_library.h"

#include <gtest/gtest.h>

#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {
namespace {

// A library of that name lies beside this program; see sample_library.cpp.
constexpr char sample[] = "quillfence-sample.dll";

class library : public ::testing::Test {
  protected:
    ~library() override {
        set_call_observer(nullptr);
    }
};

TEST_F(library, opens_by_name_and_gives_its_functions) {
    dynamic_library *const opened = library_open(sample);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(library_open(sample), opened) << "it stays loaded";
    using sum_function = int (*)(int, int);
    const auto sum = reinterpret_cast<sum_function>(library_symbol(opened, "sample_sum"));
    ASSERT_NE(sum, nullptr);
    EXPECT_EQ(sum(40, 2), 42);
}

TEST_F(library, what_is_missing_is_null) {
    EXPECT_EQ(library_open("quillfence-no-such-library.dll"), nullptr);
    EXPECT_EQ(library_open(""), nullptr);
    EXPECT_EQ(library_open(nullptr), nullptr);
    dynamic_library *const opened = library_open(sample);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(library_symbol(opened, "no_such_function"), nullptr);
    EXPECT_EQ(library_symbol(opened, nullptr), nullptr);
    EXPECT_EQ(library_symbol(nullptr, "sample_sum"), nullptr);
}

TEST_F(library, both_functions_can_be_made_to_fail) {
    dynamic_library *const opened = library_open(sample);
    ASSERT_NE(opened, nullptr);
    set_call_observer([](const char *, const char *) -> uint32_t { return error_mod_not_found; });
    EXPECT_EQ(library_open(sample), nullptr);
    EXPECT_EQ(library_symbol(opened, "sample_sum"), nullptr);
}

} // namespace
} // namespace quillfence::platform
