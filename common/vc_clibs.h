// A stopwatch for developers. It runs on the time of day, with seconds kept in 32 bits.
#pragma once

#include <cstdint>

namespace quillfence {

struct vc_timeval {
    int32_t seconds; // since 1970
    int32_t microseconds;
};

// Start seconds of 0 mean "not started"; a zeroed record is a stopwatch that was never started.
struct vc_stopwatch {
    vc_timeval start;
    vc_timeval stop;
};

// Clears the stopwatch and starts it. Returns 1; 0 with an ERROR line: EINVAL for null, the text
// of errno when there is no time of day. DEBUG: "stopwatch started".
int vc_stopwatch_start(vc_stopwatch *stopwatch);

// Returns the elapsed seconds; -1.0 with an ERROR line: EINVAL for null or a stopwatch that was not
// started (then DEBUG "timer not started" follows), the text of errno when there is no time of day.
// The stopwatch is not reset: a second stop measures from the same start.
// DEBUG: "timer stopped", "%ld secs %ld usecs", "elapsed %f seconds".
double vc_stopwatch_stop(vc_stopwatch *stopwatch);

} // namespace quillfence
