#include "metrics_file.h"

#include <new>
#include <utility>

#include "platform/edit.h"
#include "platform/error_numbers.h"
#include "text.h"

namespace quillfence::service {

static uint32_t write_all(platform::file_handle file, std::string_view text) {
    while (!text.empty()) {
        uint32_t written = 0;
        if (const uint32_t error = platform::file_write(
                file, text.data(), static_cast<uint32_t>(text.size()), &written)) {
            return error;
        }
        text.remove_prefix(written);
    }
    return platform::error_none;
}

uint32_t write_metrics_file(const std::string &path, std::string_view text) {
    platform::replacement fresh;
    if (const uint32_t error = platform::replacement_begin(path.c_str(), ".tmp", &fresh,
                                                           platform::file_rights::of_readers)) {
        return error;
    }
    uint32_t error = write_all(fresh.lock.file, text);
    if (!error) {
        error = platform::replacement_commit(&fresh, nullptr);
    }
    platform::replacement_end(&fresh);
    return error;
}

metrics_file::metrics_file(std::string path, const service_metrics &metrics, teller tell,
                           std::chrono::milliseconds pause)
    : path_(std::move(path)), metrics_(metrics), tell_(std::move(tell)), pause_(pause),
      thread_([this] { keep(); }) {}

metrics_file::~metrics_file() {
    {
        const std::lock_guard held(lock_);
        ends_ = true;
    }
    ended_.notify_one();
    thread_.join();
}

void metrics_file::keep() {
    for (bool goes_on = true; goes_on;) {
        write();
        std::unique_lock held(lock_);
        goes_on = !ended_.wait_for(held, pause_, [this] { return ends_; });
    }
    write();
}

void metrics_file::write() noexcept {
    try {
        note(write_metrics_file(path_, metrics_.text()));
    } catch (const std::exception &) {
        // Without memory there is no text; the old file stands, and the next one is tried in time.
    }
}

void metrics_file::note(uint32_t error) {
    if (error == last_error_) {
        return;
    }
    last_error_ = error;
    tell_(error != 0,
          error ? path_ + ": the metrics can't be written: " + data_files::system_text(error)
                : path_ + ": the metrics are written again");
}

} // namespace quillfence::service
