#include "time_left.h"

#include <algorithm>

namespace quillfence::dns_sources {

// A question whose limit is the rest of the time ends a little before it.
static constexpr std::chrono::milliseconds grace{20};

time_left::time_left(std::chrono::milliseconds total, clock::time_point (*by_clock)())
    : now_(by_clock), end_(by_clock() + total) {}

std::optional<std::chrono::milliseconds> time_left::limit_of(const question &asked) const {
    const auto left = std::chrono::floor<std::chrono::milliseconds>(end_ - now_());
    if (left.count() <= 0) {
        return std::nullopt;
    }
    return asked.limit ? std::min(*asked.limit, left) : left;
}

void time_left::judge(answer *got) const {
    if (got->status == platform::dns_status_timeout && now_() + grace >= end_) {
        got->status = status_deadline;
    }
}

} // namespace quillfence::dns_sources
