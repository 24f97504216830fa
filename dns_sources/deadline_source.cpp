#include "deadline_source.h"

#include <algorithm>

namespace quillfence::dns_sources {

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
    return next_.ask(within);
}

} // namespace quillfence::dns_sources
