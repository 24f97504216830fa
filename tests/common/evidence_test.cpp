#include "evidence.h"

#include <thread>

#include "call_watch.h"
#include "evidence_watch.h"
#include "failing_memory.h"
#include "log_capture.h"
#include "vc_log.h"

namespace quillfence::testing {
namespace {

constexpr char module_name[] = "evidence_test";

void tell_one_of_each() {
    tell(&evidence_sink::looked_at_path, {.path = "c:/a", .existed = true});
    tell(&evidence_sink::searched_list, {.path = "c:/list", .value = "v", .existed = true});
    QF_REASON("the value [%s] is %d", "v", 7);
    tell(&evidence_sink::could_not_look, {.what = "c:/b", .error = 5});
}

TEST(evidence, nobody_asks_and_nothing_is_paid) {
    log_capture log;
    QF_DEBUG("the first line of a process looks whether such lines are wanted");
    call_watch watch;
    const unsigned long before = allocations_made();
    tell_one_of_each();
    EXPECT_EQ(allocations_made(), before);
    EXPECT_TRUE(watch.take().empty());
    EXPECT_TRUE(log.take().empty());
    EXPECT_EQ(asked(), nullptr);
}

TEST(evidence, a_context_without_a_sink_asks_for_nothing) {
    call_context context{};
    const call_scope scope(&context);
    EXPECT_EQ(asked(), nullptr);
    tell_one_of_each();
}

TEST(evidence, an_empty_slot_is_passed_over) {
    evidence_sink sink{};
    call_context context{.evidence = &sink, .dns = nullptr, .configuration = nullptr};
    const call_scope scope(&context);
    EXPECT_EQ(asked(), &sink);
    tell_one_of_each();
}

TEST(evidence, facts_come_in_order) {
    evidence_watch watch;
    tell_one_of_each();
    EXPECT_EQ(watch.take(), (lines{"list path=c:/list value=v", "reason text=the value [v] is 7",
                                   "failure what=c:/b error=5"}));
    tell_one_of_each();
    EXPECT_EQ(watch.take("path"), (lines{"path =c:/a there"}));
}

TEST(evidence, another_thread_is_not_asked) {
    evidence_watch watch;
    std::thread(tell_one_of_each).join();
    EXPECT_EQ(watch.take(), lines{});
}

TEST(evidence, a_reason_is_the_debug_line_as_well) {
    log_capture log(true);
    evidence_watch watch;
    QF_REASON_AS("operation", "no %s", "HELO");
    EXPECT_EQ(log.debugs(), (lines{"operation: no HELO"}));
    EXPECT_EQ(watch.take(), (lines{"reason text=no HELO"}));
}

TEST(evidence, a_long_reason_is_cut) {
    evidence_watch watch;
    tell_reason("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(watch.take(), (lines{"reason text=" + std::string(2047, 'x')}));
}

TEST(evidence, error_lines_are_told_with_and_without_a_log_function) {
    evidence_watch watch;
    QF_ERROR_AS("operation", "no such [%s]", "thing");
    EXPECT_EQ(watch.take(),
              (lines{"error module=evidence_test function=operation text=no such [thing]"}));
    log_capture log;
    QF_ERROR_AS("operation", "no such [%s]", "thing");
    EXPECT_EQ(log.errors(), (lines{"operation: no such [thing]"}));
    EXPECT_EQ(watch.take(),
              (lines{"error module=evidence_test function=operation text=no such [thing]"}));
}

TEST(evidence, a_lack_of_memory_is_something_that_could_not_be_looked_at) {
    evidence_watch watch;
    log_capture log;
    QF_ERRNO_AS("operation", ENOMEM);
    QF_ERRNO_AS("operation", EINVAL);
    EXPECT_EQ(watch.take("failure"), (lines{"failure what=operation error=8 reason=no memory"}));
    EXPECT_EQ(log.errors().size(), 2u);
}

} // namespace
} // namespace quillfence::testing
