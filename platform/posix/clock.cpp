#include "platform/clock.h"

#include "platform/observer.h"

namespace quillfence::platform {

static clock_stand_in stand_in_for_clock;

bool clock_now(time_of_day *now) {
    if (stand_in_for_clock) {
        return stand_in_for_clock(now);
    }
    timespec moment;
    if (observe_call("clock_now", "") || clock_gettime(CLOCK_REALTIME, &moment) != 0) {
        return false;
    }
    *now = {moment.tv_sec, static_cast<int32_t>(moment.tv_nsec / 1000)};
    return true;
}

// localtime_r keeps the zone that it has read at its first use, where localtime would look at the
// zone's file in every call.
bool local_time(int64_t seconds, tm *fields) {
    const time_t moment = seconds;
    return !observe_call("local_time", "") && localtime_r(&moment, fields);
}

int64_t from_local_time(tm *fields) {
    return observe_call("from_local_time", "") ? -1 : mktime(fields);
}

void set_clock_stand_in(clock_stand_in stand_in) {
    stand_in_for_clock = stand_in;
}

void time_zone_changed() {
    tzset();
}

} // namespace quillfence::platform
