#include "deadline_source.h"

#include <algorithm>

namespace quillfence::dns_sources {

// A question whose limit is the rest of the time ends a little before it.
static constexpr std::chrono::milliseconds grace{20};

deadline_source::deadline_source(source &next, std::chrono::milliseconds total,
                                 clock::time_point (*by_clock)())
    : next_(next), now_(by_clock), end_(by_clock() + total) {}

answer deadline_source::ask(const question &asked) {
    const auto left = std::chrono::floor<std::chrono::milliseconds>(end_ - now_());
    if (left.count() <= 0) {
        return answer_of_status(status_deadline);
    }
    question within = asked;
    within.limit = asked.limit ? std::min(*asked.limit, left) : left;
    answer got = next_.ask(within);
    if (got.status == platform::dns_status_timeout && now_() + grace >= end_) {
        got.status = status_deadline; // an answer might have come a little later
    }
    return got;
}

} // namespace quillfence::dns_sources
