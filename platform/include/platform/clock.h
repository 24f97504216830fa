// Time. Everything goes through here, so that a test can choose the moment.
#pragma once

#include <cstdint>
#include <ctime>

namespace quillfence::platform {

struct time_of_day {
    int64_t seconds; // since 1970-01-01 00:00:00 UTC
    int32_t microseconds;
};

// Now. False when the system has no answer.
bool clock_now(time_of_day *now);

// UTC seconds to the fields of local time. False when it can't be converted (on Windows also for
// times before 1970).
bool local_time(int64_t seconds, tm *fields);
// Local time to UTC seconds, as mktime does it: fields are normalised, a negative tm_isdst is
// looked up. -1 when it can't be converted.
int64_t from_local_time(tm *fields);

// Replaces clock_now for tests; null restores the system's clock.
using clock_stand_in = bool (*)(time_of_day *now);
void set_clock_stand_in(clock_stand_in stand_in);
// Makes the process see a changed TZ variable. For tests.
void time_zone_changed();

} // namespace quillfence::platform
