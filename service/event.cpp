#include "event.h"

#include <algorithm>

#include "vc_w32.h"

namespace quillfence::service {

static std::function<void(event_severity, std::string_view)> stand_in;

static int priority_of(event_severity severity) {
    switch (severity) {
    case event_severity::error:
        return priority_error;
    case event_severity::warning:
        return priority_warning;
    default:
        return priority_notice;
    }
}

void set_event_stand_in(std::function<void(event_severity, std::string_view)> listener) {
    stand_in = std::move(listener);
}

void tell(event_severity severity, std::string_view text) noexcept {
    char line[1024];
    const size_t length = std::min(text.size(), sizeof line - 1);
    std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length), line,
                   [](char c) { return c >= 0x20 && c < 0x7F ? c : '?'; });
    line[length] = '\0';
    if (stand_in) {
        stand_in(severity, {line, length});
        return;
    }
    syslog(priority_of(severity), "%s", line);
}

void event_limiter::tell(event_severity severity, std::string_view text, time_point now) {
    {
        const std::lock_guard guard(lock_);
        if (now < until_) {
            ++left_out_;
            severity_ = severity;
            text_ = text;
            return;
        }
    }
    settle(now);
    service::tell(severity, text);
    const std::lock_guard guard(lock_);
    until_ = now + quiet_;
}

void event_limiter::settle(time_point now) {
    uint64_t count = 0;
    event_severity severity{};
    std::string text;
    {
        const std::lock_guard guard(lock_);
        if (now < until_ || left_out_ == 0) {
            return;
        }
        std::swap(count, left_out_);
        severity = severity_;
        text.swap(text_);
    }
    service::tell(severity,
                  std::to_string(count) + " more of the same kind, the last one: " + text);
}

} // namespace quillfence::service
