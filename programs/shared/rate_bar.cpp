#include "rate_bar.h"

#include <algorithm>
#include <cstdio>

namespace quillfence::programs {

static std::string rate_of(uint64_t count, double seconds) {
    return std::to_string(
               static_cast<uint64_t>(static_cast<double>(count) / std::max(seconds, 0.001))) +
           "/s";
}

// "1:05", "2:00:07"
static std::string time_text(uint64_t seconds) {
    char text[32];
    const auto part = [](uint64_t number) { return static_cast<unsigned>(number % 60); };
    if (seconds < 3600) {
        std::snprintf(text, sizeof text, "%u:%02u", part(seconds / 60), part(seconds));
    } else {
        std::snprintf(text, sizeof text, "%llu:%02u:%02u",
                      static_cast<unsigned long long>(seconds / 3600), part(seconds / 60),
                      part(seconds));
    }
    return text;
}

std::string rate_text(uint64_t count, uint64_t read, std::optional<uint64_t> total,
                      double seconds) {
    if (!total || *total == 0) {
        return std::to_string(count) + "  " + rate_of(count, seconds);
    }
    constexpr size_t bar_width = 40;
    const double part = std::min(1.0, static_cast<double>(read) / static_cast<double>(*total));
    const auto filled = static_cast<size_t>(part * bar_width);
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(part * 100));
    std::string text = "[" + std::string(filled, '#') + std::string(bar_width - filled, '.') +
                       "] " + percent + "  " + rate_of(count, seconds);
    if (part > 0 && part < 1) {
        text += "  " + time_text(static_cast<uint64_t>(seconds * (1 - part) / part)) + " left";
    }
    return text;
}

rate_bar::rate_bar(std::optional<uint64_t> total, bool visible)
    : total_(total), visible_(visible), begin_(clock::now()), drawn_(begin_) {}

rate_bar::~rate_bar() {
    if (width_ > 0) {
        std::fprintf(stderr, "\r%*s\r", static_cast<int>(width_), "");
    }
}

void rate_bar::show(uint64_t count, uint64_t read) {
    constexpr std::chrono::milliseconds interval{200};
    const clock::time_point now = clock::now();
    if (!visible_ || now - drawn_ < interval) {
        return;
    }
    drawn_ = now;
    const std::string text =
        rate_text(count, read, total_, std::chrono::duration<double>(now - begin_).count());
    width_ = std::max(width_, text.size());
    std::fprintf(stderr, "\r%-*s", static_cast<int>(width_), text.c_str());
    std::fflush(stderr);
}

} // namespace quillfence::programs
