#include "call_context.h"

#include <thread>

#include "call_watch.h"
#include "failing_memory.h"

namespace quillfence::testing {
namespace {

TEST(call_context, none_unless_a_driver_sets_one) {
    EXPECT_EQ(current_call_context(), nullptr);
}

TEST(call_context, a_scope_sets_it_and_restores_the_one_before) {
    call_context outer{};
    call_context inner{};
    {
        const call_scope first(&outer);
        EXPECT_EQ(current_call_context(), &outer);
        {
            const call_scope second(&inner);
            EXPECT_EQ(current_call_context(), &inner);
            const call_scope third(nullptr);
            EXPECT_EQ(current_call_context(), nullptr);
        }
        EXPECT_EQ(current_call_context(), &outer);
    }
    EXPECT_EQ(current_call_context(), nullptr);
}

TEST(call_context, exchange_returns_the_one_before) {
    call_context one{};
    EXPECT_EQ(exchange_call_context(&one), nullptr);
    EXPECT_EQ(exchange_call_context(nullptr), &one);
    EXPECT_EQ(current_call_context(), nullptr);
}

TEST(call_context, belongs_to_one_thread) {
    call_context mine{};
    const call_scope scope(&mine);
    std::thread([] {
        EXPECT_EQ(current_call_context(), nullptr);
        call_context theirs{};
        const call_scope other(&theirs);
        EXPECT_EQ(current_call_context(), &theirs);
    }).join();
    EXPECT_EQ(current_call_context(), &mine);
}

TEST(call_context, a_file_is_read_in_another_ones_place) {
    EXPECT_STREQ(path_to_read("c:/a/list"), "c:/a/list") << "without a context";
    const file_substitute rows[] = {{"c:/a/list", "/tmp/other"}, {nullptr, nullptr}};
    call_context with{};
    const call_scope scope(&with);
    EXPECT_STREQ(path_to_read("c:/a/list"), "c:/a/list") << "without substitutes";
    with.substitutes = rows;
    EXPECT_STREQ(path_to_read("c:/a/list"), "/tmp/other");
    EXPECT_STREQ(path_to_read("C:/A/List"), "/tmp/other");
    EXPECT_STREQ(path_to_read("c:/a/list2"), "c:/a/list2");
}

TEST(call_context, costs_no_memory_and_no_call) {
    call_context one{};
    call_watch watch;
    const unsigned long before = allocations_made();
    {
        const call_scope scope(&one);
        current_call_context();
    }
    EXPECT_EQ(allocations_made(), before);
    EXPECT_TRUE(watch.take().empty());
}

} // namespace
} // namespace quillfence::testing
