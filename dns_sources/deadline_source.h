// An overall time for all questions: once it is used up, none is asked, and the last one asked gets
// no more than what is left. Whether that one would have been answered is not known either: its
// status is status_deadline, and what was said stays the server's silence.
#pragma once

#include "source.h"
#include "time_left.h"

namespace quillfence::dns_sources {

class deadline_source : public source {
  public:
    using clock = time_left::clock;

    // Borrows the source that is asked until then. The time begins now; by_clock tells it.
    deadline_source(source &next, std::chrono::milliseconds total,
                    clock::time_point (*by_clock)() = clock::now)
        : next_(next), left_(total, by_clock) {}

    answer ask(const question &asked) override;

  private:
    source &next_;
    const time_left left_;
};

} // namespace quillfence::dns_sources
