#include "platform/clock.h"

#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

static clock_stand_in stand_in_for_clock;

bool clock_now(time_of_day *now) {
    if (stand_in_for_clock) {
        return stand_in_for_clock(now);
    }
    if (observe_call("clock_now", "")) {
        return false;
    }
    FILETIME moment;
    GetSystemTimeAsFileTime(&moment);
    now->seconds = seconds_of(moment);
    now->microseconds = static_cast<int32_t>(ticks_of(moment) % ticks_per_second / 10);
    return true;
}

bool local_time(int64_t seconds, tm *fields) {
    const __time64_t moment = seconds;
    return !observe_call("local_time", "") && _localtime64_s(fields, &moment) == 0;
}

int64_t from_local_time(tm *fields) {
    return observe_call("from_local_time", "") ? -1 : _mktime64(fields);
}

void set_clock_stand_in(clock_stand_in stand_in) {
    stand_in_for_clock = stand_in;
}

// Reading a TZ variable leaves alone the summer-time difference that an earlier zone has set; it
// goes back to what a process starts with.
void time_zone_changed() {
    _dstbias = -3600;
    _tzset();
}

} // namespace quillfence::platform
