#include "vc_clibs.h"

#include <cerrno>
#include <cstring>

#include "log_capture.h"
#include "platform/clock.h"

namespace quillfence::testing {
namespace {

platform::time_of_day moment;
bool clock_works;

bool scripted_clock(platform::time_of_day *now) {
    if (!clock_works) {
        errno = EIO;
        return false;
    }
    *now = moment;
    return true;
}

class vc_stopwatch_test : public traced_test {
  protected:
    vc_stopwatch_test() {
        clock_works = true;
        platform::set_clock_stand_in(scripted_clock);
    }
    ~vc_stopwatch_test() override {
        platform::set_clock_stand_in(nullptr);
    }
    // Starts at one moment and stops at another.
    double measure(platform::time_of_day start, platform::time_of_day stop) {
        moment = start;
        EXPECT_EQ(vc_stopwatch_start(&watch), 1);
        moment = stop;
        return vc_stopwatch_stop(&watch);
    }

    vc_stopwatch watch = {};
    const std::string einval = strerror(EINVAL);
    const std::string eio = strerror(EIO);
};

TEST_F(vc_stopwatch_test, borrows_a_second_for_the_microseconds) {
    EXPECT_DOUBLE_EQ(measure({10, 900000}, {12, 100000}), 1.2);
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_stopwatch_start: stopwatch started",
                                    "D vc_stopwatch_stop: timer stopped",
                                    "D vc_stopwatch_stop: 1 secs 200000 usecs",
                                    "D vc_stopwatch_stop: elapsed 1.200000 seconds",
                                }));
    EXPECT_EQ(watch.start.seconds, 10);
    EXPECT_EQ(watch.start.microseconds, 900000);
    EXPECT_EQ(watch.stop.seconds, 12);
    EXPECT_EQ(watch.stop.microseconds, 100000);
}

TEST_F(vc_stopwatch_test, differences) {
    const struct {
        const char *name;
        platform::time_of_day start, stop;
        double want;
        const char *want_line;
    } cases[] = {
        {"no time", {10, 5}, {10, 5}, 0.0, "0 secs 0 usecs"},
        {"no borrowing", {10, 100000}, {12, 350000}, 2.25, "2 secs 250000 usecs"},
        {"clock set back", {12, 0}, {10, 500000}, -1.5, "-2 secs 500000 usecs"},
        {"one microsecond", {10, 999999}, {11, 0}, 1e-6, "0 secs 1 usecs"},
        {"seconds wrap in 32 bits", {2147483647, 0}, {2147483649, 0}, 2.0, "2 secs 0 usecs"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_DOUBLE_EQ(measure(c.start, c.stop), c.want);
        const lines debugs = log.debugs();
        ASSERT_EQ(debugs.size(), 4u);
        EXPECT_EQ(debugs[2], std::string("vc_stopwatch_stop: ") + c.want_line);
    }
}

TEST_F(vc_stopwatch_test, second_stop_measures_from_the_same_start) {
    EXPECT_DOUBLE_EQ(measure({10, 0}, {11, 0}), 1.0);
    moment = {15, 0};
    EXPECT_DOUBLE_EQ(vc_stopwatch_stop(&watch), 5.0);
}

TEST_F(vc_stopwatch_test, start_clears_the_earlier_stop) {
    measure({10, 0}, {11, 0});
    EXPECT_EQ(vc_stopwatch_start(&watch), 1);
    EXPECT_EQ(watch.start.seconds, 11);
    EXPECT_EQ(watch.stop.seconds, 0);
    EXPECT_EQ(watch.stop.microseconds, 0);
}

TEST_F(vc_stopwatch_test, stop_without_start) {
    EXPECT_EQ(vc_stopwatch_stop(&watch), -1.0);
    EXPECT_EQ(log.transcript(),
              (lines{"E vc_stopwatch_stop: " + einval, "D vc_stopwatch_stop: timer not started"}));
}

TEST_F(vc_stopwatch_test, null) {
    EXPECT_EQ(vc_stopwatch_start(nullptr), 0);
    EXPECT_EQ(vc_stopwatch_stop(nullptr), -1.0);
    EXPECT_EQ(log.transcript(),
              (lines{"E vc_stopwatch_start: " + einval, "E vc_stopwatch_stop: " + einval}));
}

TEST_F(vc_stopwatch_test, no_time_of_day) {
    watch = {{1, 2}, {3, 4}};
    clock_works = false;
    EXPECT_EQ(vc_stopwatch_stop(&watch), -1.0);
    EXPECT_EQ(vc_stopwatch_start(&watch), 0);
    EXPECT_EQ(watch.start.seconds, 0);
    EXPECT_EQ(watch.stop.seconds, 0);
    EXPECT_EQ(log.transcript(),
              (lines{"E vc_stopwatch_stop: " + eio, "E vc_stopwatch_start: " + eio}));
}

} // namespace
} // namespace quillfence::testing
