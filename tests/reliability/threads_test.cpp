// What belongs to the whole process, used by several threads at once. Under the thread sanitizer
// this also says that nothing is read while another thread writes it.
#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include "platform/complaint.h"
#include "platform/process.h"
#include "platform/thread_slot.h"
#include "side_by_side.h"
#include "vc_w32.h"

namespace quillfence::testing {
namespace {

constexpr unsigned threads = 4;
constexpr unsigned rounds = 500;

std::atomic<unsigned> lines_seen;

int count_line(int, const char *, ...) {
    ++lines_seen;
    return 0;
}

void count_complaint(platform::event_type, const char *, const char *) {
    ++lines_seen;
}

class threads_test : public ::testing::Test {
  protected:
    threads_test() {
        lines_seen = 0;
    }
    ~threads_test() override {
        vc_set_log_function(nullptr);
        platform::set_complaint_listener(nullptr);
        platform::environment_set("VERBOSEDEBUG", nullptr);
        __vc_forget_verbosedebug();
    }
};

// The first DEBUG line of a process looks whether such lines are wanted.
TEST_F(threads_test, debug_lines_are_wanted_by_all_or_by_none) {
    vc_set_log_function(count_line);
    for (const bool wanted : {true, false}) {
        platform::environment_set("VERBOSEDEBUG", wanted ? "1" : nullptr);
        __vc_forget_verbosedebug();
        lines_seen = 0;
        side_by_side(threads, [](unsigned) {
            for (unsigned i = 0; i < rounds; ++i) {
                vc_log_debug("function", "module", i, "%s", "text");
            }
        });
        EXPECT_EQ(lines_seen, wanted ? threads * rounds : 0);
    }
}

TEST_F(threads_test, one_complaint_is_told_once) {
    platform::set_complaint_listener(count_complaint);
    side_by_side(threads, [](unsigned) {
        for (unsigned i = 0; i < rounds; ++i) {
            platform::complain(platform::event_type::warning, "function", "said by all: %u", i % 5);
        }
    });
    EXPECT_EQ(lines_seen, 5u);
}

TEST_F(threads_test, each_thread_has_its_own_slots) {
    constexpr platform::thread_slot slot = platform::thread_slot::call_context;
    std::atomic<unsigned> wrong = 0;
    side_by_side(threads, [&](unsigned) {
        int own = 0;
        wrong += platform::thread_slot_get(slot) != nullptr;
        platform::thread_slot_set(slot, &own);
        for (unsigned i = 0; i < rounds; ++i) {
            wrong += platform::thread_slot_get(slot) != &own;
        }
        platform::thread_slot_set(slot, nullptr);
    });
    EXPECT_EQ(wrong, 0u);
}

// Not atomic on purpose: the mutex alone keeps the threads apart.
TEST_F(threads_test, a_mutex_lets_one_thread_in) {
    platform::mutex *guard = nullptr;
    ASSERT_EQ(platform::mutex_create(&guard), 0u);
    unsigned count = 0;
    side_by_side(threads, [&](unsigned) {
        for (unsigned i = 0; i < rounds; ++i) {
            platform::mutex_lock(guard);
            ++count;
            platform::mutex_unlock(guard);
        }
    });
    platform::mutex_destroy(guard);
    EXPECT_EQ(count, threads * rounds);
}

} // namespace
} // namespace quillfence::testing
