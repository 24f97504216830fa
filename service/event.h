// What the service has to tell an administrator: events in the system's log, as the engine's are.
//
// Whoever connects may bring about as many of one kind as he likes; those go through an
// event_limiter.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace quillfence::service {

enum class event_severity : uint8_t { notice, warning, error };

// One event; bytes outside 0x20-0x7E become '?', and what is longer than 1,023 characters is cut.
// The event log must have been opened (vc_w32.h, openlog). Throws nothing; safe from several
// threads.
void tell(event_severity severity, std::string_view text) noexcept;

// Hears the events in the log's place, for tests; an empty function restores it. While no thread
// tells anything.
void set_event_stand_in(std::function<void(event_severity, std::string_view)> listener);

// Events of one kind: the first is told at once, those of the time after it are counted and told as
// a number. Safe from several threads.
class event_limiter {
  public:
    using time_point = std::chrono::steady_clock::time_point;
    explicit event_limiter(std::chrono::seconds quiet = std::chrono::seconds(60)) : quiet_(quiet) {}

    void tell(event_severity severity, std::string_view text, time_point now);
    // Tells how many were left out, when their time is over. To be called every now and then.
    void settle(time_point now);

  private:
    const std::chrono::seconds quiet_;
    std::mutex lock_; // of what follows
    time_point until_{};
    uint64_t left_out_ = 0;
    event_severity severity_ = event_severity::notice; // of the latest that was left out
    std::string text_;                                 // likewise
};

} // namespace quillfence::service
