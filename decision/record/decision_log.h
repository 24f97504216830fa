// The file in which a service keeps its decisions: JSON Lines, one record a line, each with one
// appending write, so that the lines of several threads and processes never mix, and a line that
// was written stays when the process is killed.
//
// A disk that is full, a limit, or a kill in the midst of the write can cut a line short: one line
// is lost, and not two. Its writer goes on behind a line end of its own. Whoever opens the file
// next cuts the torn line off, when it begins as a record does and is not a whole one, and when
// nobody else has the file open as a log. Where that can't be found out, and behind anything else,
// which may be the last line of somebody's who was named by mistake, a line end comes first, too.
// After a kill nobody has been answered for a torn line, as write() has not returned.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace quillfence::decision {

class decision_log {
  public:
    decision_log() = default;
    ~decision_log();
    decision_log(const decision_log &) = delete;
    decision_log &operator=(const decision_log &) = delete;

    // Opens the file, or makes it; nobody but its owner may read what is made (other people's mail
    // addresses are in it). 0 or a Win32 error number: 32 when somebody has kept it for himself for
    // half a second, as another one does while he cuts a torn line off. Once.
    uint32_t open(const std::string &path);
    // The path once more: whoever rotates logs has moved the file away. On failure what was open
    // stays in use. What is being written meanwhile is in one of the two. Nothing is cut off a file
    // that is open already.
    uint32_t reopen();
    // How many bytes of a torn line the latest of these calls has cut off.
    uint64_t cut() const {
        return cut_;
    }

    // Appends a line with its end. 0 when all of it is in the file, else a Win32 error number: the
    // record is lost. Throws nothing.
    uint32_t write(std::string_view line) noexcept;

    const std::string &path() const {
        return path_;
    }

  private:
    uint32_t append(std::string_view text);

    std::string path_;
    uint64_t cut_ = 0;
    std::mutex lock_; // of what follows; the system lets one writer of a file in at a time anyway
    platform::file_handle file_ = platform::invalid_file;
    bool torn_ = false; // the file does not end in a line end
};

} // namespace quillfence::decision
