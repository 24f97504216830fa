#include "vc_clibs.h"

#include "platform/clock.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "vc_clibs";

static constexpr int32_t microseconds_per_second = 1000000;

static bool read_time(vc_timeval *time) {
    platform::time_of_day now;
    if (!platform::clock_now(&now)) {
        return false;
    }
    *time = {static_cast<int32_t>(now.seconds), now.microseconds};
    return true;
}

// The difference as a signed 32-bit number; it wraps where the numbers are that far apart.
static int32_t difference(int32_t later, int32_t earlier) {
    return static_cast<int32_t>(static_cast<uint32_t>(later) - static_cast<uint32_t>(earlier));
}

static vc_timeval elapsed(const vc_stopwatch &stopwatch) {
    vc_timeval time = {difference(stopwatch.stop.seconds, stopwatch.start.seconds),
                       difference(stopwatch.stop.microseconds, stopwatch.start.microseconds)};
    if (time.microseconds < 0) {
        time.seconds = difference(time.seconds, 1);
        time.microseconds += microseconds_per_second;
    }
    return time;
}

int vc_stopwatch_start(vc_stopwatch *stopwatch) {
    if (!stopwatch) {
        QF_EINVAL();
        return 0;
    }
    errno = 0;
    *stopwatch = {};
    if (!read_time(&stopwatch->start)) {
        QF_ERRNO(errno);
        return 0;
    }
    QF_DEBUG("stopwatch started");
    return 1;
}

double vc_stopwatch_stop(vc_stopwatch *stopwatch) {
    if (!stopwatch) {
        QF_EINVAL();
        return -1.0;
    }
    if (stopwatch->start.seconds == 0) {
        QF_EINVAL();
        QF_DEBUG("timer not started");
        return -1.0;
    }
    errno = 0;
    if (!read_time(&stopwatch->stop)) {
        QF_ERRNO(errno);
        return -1.0;
    }
    QF_DEBUG("timer stopped");
    const vc_timeval time = elapsed(*stopwatch);
    QF_DEBUG("%ld secs %ld usecs", static_cast<long>(time.seconds),
             static_cast<long>(time.microseconds));
    const double seconds = time.seconds + time.microseconds / 1e6;
    QF_DEBUG("elapsed %f seconds", seconds);
    return seconds;
}

} // namespace quillfence
