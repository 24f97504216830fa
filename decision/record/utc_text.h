// Moments as records write them.
#pragma once

#include <cstdint>
#include <string>

namespace quillfence::decision {

// RFC 3339 in UTC of seconds since 1970: "2026-11-22T04:51:13Z", and "2026-11-22T04:51:13.123Z"
// with the milliseconds behind them (0 to 999; -1 for none). For the years 0 to 9999.
std::string utc_text(int64_t seconds, int milliseconds = -1);

} // namespace quillfence::decision
