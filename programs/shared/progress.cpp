#include "progress.h"

#include <cstdio>
#include <utility>

#include "platform/file.h"

namespace quillfence::programs {

static constexpr int bar_width = 40;

progress::progress(std::string label, uint64_t total)
    : label_(std::move(label)), total_(total),
      visible_(total > 0 && platform::stream_is_terminal(stderr)) {}

progress::~progress() {
    wipe();
}

void progress::show(uint64_t done) {
    if (!visible_) {
        return;
    }
    const int percent = static_cast<int>(done >= total_ ? 100 : done * 100 / total_);
    if (percent == percent_) {
        return;
    }
    percent_ = percent;
    const int filled = percent * bar_width / 100;
    const std::string bar = std::string(static_cast<size_t>(filled), '#') +
                            std::string(static_cast<size_t>(bar_width - filled), '.');
    std::fprintf(stderr, "\r%s [%s] %3d%%", label_.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
}

void progress::wipe() {
    if (percent_ >= 0) {
        std::fprintf(stderr, "\r%*s\r", static_cast<int>(label_.size()) + bar_width + 8, "");
        percent_ = -1;
    }
}

} // namespace quillfence::programs
