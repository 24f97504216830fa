#include "deadline_source.h"

namespace quillfence::dns_sources {

answer deadline_source::ask(const question &asked) {
    const auto limit = left_.limit_of(asked);
    if (!limit) {
        return answer_of_status(status_deadline);
    }
    question within = asked;
    within.limit = limit;
    answer got = next_.ask(within);
    left_.judge(&got);
    return got;
}

} // namespace quillfence::dns_sources
