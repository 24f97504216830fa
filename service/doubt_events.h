// The events of a policy_judge's doubts, of each kind one a minute. Safe from several threads.
#pragma once

#include <array>
#include <new>
#include <string>
#include <string_view>

#include "event.h"
#include "policy_judge.h"
#include "service_metrics.h"
#include "text.h"

namespace quillfence::service {

class doubt_events {
  public:
    void tell(doubt why, std::string_view text,
              policy_judge_options::clock::time_point now) noexcept {
        try {
            of_doubt_[static_cast<size_t>(why)].tell(event_severity::warning, text, now);
        } catch (const std::bad_alloc &) {
            // It is counted all the same.
        }
    }
    void log_lost(const std::string &path, uint32_t error,
                  policy_judge_options::clock::time_point now) noexcept {
        try {
            of_log_.tell(event_severity::error,
                         path + ": a record is lost: " + data_files::system_text(error), now);
        } catch (const std::bad_alloc &) {
        }
    }
    void not_counted(std::string_view line, policy_judge_options::clock::time_point now) {
        of_journal_.tell(event_severity::error, line, now);
    }
    void settle(policy_judge_options::clock::time_point now) noexcept {
        try {
            for (event_limiter &one : of_doubt_) {
                one.settle(now);
            }
            of_log_.settle(now);
            of_journal_.settle(now);
        } catch (const std::bad_alloc &) {
        }
    }

  private:
    std::array<event_limiter, static_cast<size_t>(doubt::stopping) + 1> of_doubt_;
    event_limiter of_log_;
    event_limiter of_journal_;
};

} // namespace quillfence::service
