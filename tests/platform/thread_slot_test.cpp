#include "platform/thread_slot.h"

#include <cerrno>
#include <thread>

#include "call_watch.h"
#include "failing_memory.h"

namespace quillfence::testing {
namespace {

using platform::thread_slot;
using platform::thread_slot_get;
using platform::thread_slot_set;

TEST(thread_slot, each_keeps_its_own_pointer) {
    int first = 0;
    int second = 0;
    EXPECT_EQ(thread_slot_get(thread_slot::call_context), nullptr);
    EXPECT_EQ(thread_slot_get(thread_slot::step_budget), nullptr);
    thread_slot_set(thread_slot::call_context, &first);
    EXPECT_EQ(thread_slot_get(thread_slot::step_budget), nullptr);
    thread_slot_set(thread_slot::step_budget, &second);
    EXPECT_EQ(thread_slot_get(thread_slot::drive_root), nullptr);
    EXPECT_EQ(thread_slot_get(thread_slot::call_context), &first);
    EXPECT_EQ(thread_slot_get(thread_slot::step_budget), &second);
    EXPECT_EQ(thread_slot_get(thread_slot::log_listener), nullptr);
    thread_slot_set(thread_slot::call_context, nullptr);
    thread_slot_set(thread_slot::step_budget, nullptr);
    EXPECT_EQ(thread_slot_get(thread_slot::call_context), nullptr);
    EXPECT_EQ(thread_slot_get(thread_slot::step_budget), nullptr);
}

TEST(thread_slot, each_thread_has_its_own) {
    int mine = 0;
    thread_slot_set(thread_slot::call_context, &mine);
    std::thread([] {
        EXPECT_EQ(thread_slot_get(thread_slot::call_context), nullptr);
        int theirs = 0;
        thread_slot_set(thread_slot::call_context, &theirs);
        EXPECT_EQ(thread_slot_get(thread_slot::call_context), &theirs);
    }).join();
    EXPECT_EQ(thread_slot_get(thread_slot::call_context), &mine);
    std::thread([] {
        EXPECT_EQ(thread_slot_get(thread_slot::call_context), nullptr) << "not the one before";
    }).join();
    thread_slot_set(thread_slot::call_context, nullptr);
}

TEST(thread_slot, costs_no_memory_and_no_call) {
    call_watch watch;
    const unsigned long before = allocations_made();
    bool kept = false;
    {
        failing_allocation all(1, true);
        thread_slot_set(thread_slot::step_budget, &watch);
        kept = thread_slot_get(thread_slot::step_budget) == &watch;
        thread_slot_set(thread_slot::step_budget, nullptr);
        EXPECT_FALSE(all.fired());
    }
    EXPECT_TRUE(kept);
    EXPECT_EQ(allocations_made(), before);
    EXPECT_TRUE(watch.take().empty());
}

TEST(thread_slot, leaves_the_error_number_alone) {
    errno = ENOENT;
    thread_slot_set(thread_slot::step_budget, nullptr);
    thread_slot_get(thread_slot::step_budget);
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
} // namespace quillfence::testing
