// A stopwatch for developers.
#pragma once

#include <cstdint>

namespace quillfence {

struct vc_timeval {
    int32_t seconds;
    int32_t microseconds;
};

// Start seconds of 0 mean "not started".
struct vc_stopwatch {
    vc_timeval start;
    vc_timeval stop;
};

// 1, or 0 with an ERROR line (EINVAL for null, the system's text when there is no time of day).
int vc_stopwatch_start(vc_stopwatch *stopwatch);
// Elapsed seconds, or -1.0 with an ERROR line. Does not reset: a second stop measures from the
// same start.
double vc_stopwatch_stop(vc_stopwatch *stopwatch);

} // namespace quillfence
