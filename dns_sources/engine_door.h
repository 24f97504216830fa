// The way from the engine to a source: the record of function slots that a call context takes.
#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "call_context.h"
#include "source.h"

namespace quillfence::dns_sources {

class engine_door {
  public:
    // Borrows the source.
    explicit engine_door(source &answers);
    engine_door(const engine_door &) = delete;
    engine_door &operator=(const engine_door &) = delete;

    // For a call context, or several: borrowed, as long as the door lives.
    dns_source *slots() {
        return &slots_;
    }

    // Whether memory was lacking for an answer or its details. What the engine made of its
    // questions since then is not to be believed.
    bool failed() const {
        return failed_;
    }
    // The questions whose answers were missing, each once, in the order in which they came up, with
    // the name that an answer is needed for.
    std::vector<question> missing() const;

  private:
    static uint32_t ask(void *context, const char *name, uint16_t type, uint32_t options,
                        platform::dns_record **records, platform::dns_details *details) noexcept;
    uint32_t answer_engine(const question &asked, platform::dns_record **records,
                           platform::dns_details *details);
    void note_missing(const question &asked, const answer &got);
    source &answers_;
    dns_source slots_;
    std::atomic<bool> failed_ = false;
    mutable std::mutex lock_; // of what follows
    std::vector<question> missing_;
};

} // namespace quillfence::dns_sources
