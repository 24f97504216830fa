// Moments, in milliseconds since 1970 UTC: as records have them, and as people ask for them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillfence::decision {

// RFC 3339 with a time and an offset, "2026-11-22T04:51:13.123Z" or "...+01:00"; what is finer than
// a millisecond is cut. Nothing for any other text.
std::optional<int64_t> read_moment(std::string_view text);

// Also without the offset, the seconds or the time, for UTC and the beginning of the minute or day
// ("2026-11-22T04:51", "2026-11-22"; a blank may stand for the T); "today" and "yesterday", their
// beginning in UTC; "90s", "30m", "2h", "3d", "1w": so long before now.
std::optional<int64_t> read_asked_moment(std::string_view text, int64_t now);

} // namespace quillfence::decision
