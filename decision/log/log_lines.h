// A log taken line by line, in bounded memory: a line that is too long is passed over and told.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "decision_record.h"
#include "log_bytes.h"

namespace quillfence::decision {

inline constexpr size_t longest_log_line = longest_record;

struct log_line {
    std::string_view text; // without its end, LF or CR LF; "" when it is too long. Borrowed
    uint64_t number = 0;   // from 1
    bool too_long = false;
};

class log_lines {
  public:
    // Borrows the bytes.
    explicit log_lines(log_bytes &from);

    // The next line that has its end. False when there is none by now, because the bytes are at
    // their end or something is wrong with them (log_bytes::problem); it may be asked again when
    // more has come.
    bool next(log_line *line);
    // What stands behind the last line end: a line that is not written out, or was cut off. False
    // when there is nothing.
    bool rest(log_line *line);
    // How many bytes stand there, and that they count no more: their writer has taken them back.
    size_t unfinished() const {
        return filled_ - begin_;
    }
    void forget_unfinished();

  private:
    bool fill();
    bool take(size_t size, size_t end, log_line *line);

    log_bytes &from_;
    std::vector<char> buffer_;
    size_t begin_ = 0; // of the line
    size_t seen_ = 0;  // no line end before this one
    size_t filled_ = 0;
    bool skipping_ = false; // the beginning of the line was too long, and is gone
    uint64_t number_ = 0;
};

} // namespace quillfence::decision
