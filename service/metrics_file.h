// The metrics as a file, for the textfile collector of Prometheus' node_exporter.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "service_metrics.h"

namespace quillfence::service {

// Writes the text beside the path's place ("<path>.tmp") and renames, so that who reads finds the
// old file or the new one, whole. Its mode is 0644: it holds counts and no names but those of rules
// and zones. 0 or a Win32 error number; then the old file stands.
uint32_t write_metrics_file(const std::string &path, std::string_view text);

// Keeps the file up to date from a thread of its own: at once, then again and again, and a last
// time when it ends.
class metrics_file {
  public:
    // What is told, one line each and only when it changes: that the file can't be written, and
    // that it is written again.
    using teller = std::function<void(bool is_trouble, std::string_view text)>;

    // Borrows the metrics. Throws when no thread can be started.
    metrics_file(std::string path, const service_metrics &metrics, teller tell,
                 std::chrono::milliseconds pause = std::chrono::seconds(15));
    ~metrics_file();
    metrics_file(const metrics_file &) = delete;
    metrics_file &operator=(const metrics_file &) = delete;

  private:
    void keep();
    void write() noexcept;
    void note(uint32_t error);

    const std::string path_;
    const service_metrics &metrics_;
    const teller tell_;
    const std::chrono::milliseconds pause_;
    uint32_t last_error_ = 0;

    std::mutex lock_;
    std::condition_variable ended_;
    bool ends_ = false;
    std::thread thread_; // behind all that it uses
};

} // namespace quillfence::service
