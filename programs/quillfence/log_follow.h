// The end of a log, as it grows, whatever becomes of its file: it may be moved aside and made anew,
// or be cut.
#pragma once

#include <memory>
#include <string>

#include "log_bytes.h"
#include "log_lines.h"
#include "log_sifter.h"
#include "open_file.h"

namespace quillfence::programs {

class log_follower {
  public:
    // Throws a failure when the file can't be opened; later it may be missing for a while.
    explicit log_follower(const std::string &path);

    // Sifts the lines that have their end by now. A line that has none waits for it, or for the
    // file that takes this one's place.
    void look(log_sifter &sifter);

  private:
    using opened = std::unique_ptr<data_files::open_file>;

    void take_over(opened file);
    void take_lines(log_sifter &sifter);
    void leave(log_sifter &sifter);
    bool is_cut();
    bool goes_on_at(uint64_t size);
    void seek(uint64_t place);

    const std::string path_;
    opened file_;
    platform::file_identity identity_{};
    std::unique_ptr<decision::log_bytes> bytes_;
    std::unique_ptr<decision::log_lines> lines_;
    uint64_t taken_back_ = 0; // bytes that were read and are no longer there
};

} // namespace quillfence::programs
