#include "log_follow.h"

#include "log_reading.h"
#include "platform/interruption.h"
#include "program.h"

namespace quillfence::programs {

using decision::log_line;

log_follower::log_follower(const std::string &path) : path_(path) {
    auto file = std::make_unique<data_files::open_file>();
    if (const uint32_t error = file->open(path)) {
        throw failure(file_error(path, error));
    }
    take_over(std::move(file));
}

void log_follower::take_over(opened file) {
    file_ = std::move(file);
    if (const uint32_t error = platform::file_identify(file_->handle(), &identity_)) {
        throw failure(file_error(path_, error));
    }
    bytes_ = std::make_unique<decision::log_bytes>(log_source(file_->handle()));
    lines_ = std::make_unique<decision::log_lines>(*bytes_);
    taken_back_ = 0;
}

void log_follower::take_lines(log_sifter &sifter) {
    log_line line;
    while (lines_->next(&line)) {
        sifter.sift(line, path_);
    }
    if (!bytes_->problem().empty() && !platform::interruption_noted()) {
        throw failure(path_ + ": " + bytes_->problem());
    }
}

// Nothing more comes of this file: what has no end by now gets none.
void log_follower::leave(log_sifter &sifter) {
    log_line line;
    if (lines_->rest(&line)) {
        sifter.sift(line, path_);
    }
}

void log_follower::seek(uint64_t place) {
    platform::file_seek(file_->handle(), static_cast<int64_t>(place), platform::seek_origin::begin,
                        nullptr);
}

// Whether only a line without its end is gone, which its writer was killed in and the next one cuts
// off. It is forgotten then.
bool log_follower::goes_on_at(uint64_t size) {
    if (size + lines_->unfinished() != bytes_->taken() - taken_back_) {
        return false;
    }
    taken_back_ += lines_->unfinished();
    lines_->forget_unfinished();
    seek(size);
    return true;
}

bool log_follower::is_cut() {
    uint64_t size = 0;
    return !file_->size(&size) && size < bytes_->taken() - taken_back_ && !goes_on_at(size);
}

void log_follower::look(log_sifter &sifter) {
    auto there = std::make_unique<data_files::open_file>();
    platform::file_identity identity;
    const bool is_other = !there->open(path_) &&
                          !platform::file_identify(there->handle(), &identity) &&
                          identity != identity_;
    if (!is_other && is_cut()) {
        leave(sifter);
        seek(0);
        take_over(std::move(file_));
    }
    take_lines(sifter); // also what was written before the other file came
    if (is_other) {
        leave(sifter);
        take_over(std::move(there));
        take_lines(sifter);
    }
}

} // namespace quillfence::programs
