// Counts what the DNS could not or would not answer, by zone, for a summary at the end of a run.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "answer.h"

namespace quillfence::dns_sources {

struct zone_trouble {
    uint64_t refused = 0; // REFUSED
    uint64_t failed = 0;  // other failures
    uint64_t silent = 0;  // no answer in time
    uint64_t all() const {
        return refused + failed + silent;
    }
};

class trouble_count {
  public:
    // Of more zones there is no more than a count.
    static constexpr size_t most_zones = 10'000;

    // Called by several threads at once. Throws when there is no memory.
    void note(const question &asked, const answer &got);

    // By the zone's name (memo_source.h, zone_of); all beyond most_zones together stand under "".
    std::map<std::string, zone_trouble> troubles() const;

  private:
    mutable std::mutex lock_; // of what follows
    std::map<std::string, zone_trouble> troubles_;
};

} // namespace quillfence::dns_sources
