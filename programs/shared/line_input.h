// A text file, read line by line, with complaints about its lines and a progress bar. One in UTF-16
// is read as such, and a byte order mark is left out; either is said on standard error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "open_file.h"
#include "progress.h"
#include "text_decoder.h"

namespace quillfence::programs {

using data_files::open_file;

class line_input {
  public:
    // "-" is standard input. Throws a failure when the file can't be opened.
    explicit line_input(const std::string &path);

    // The next line without its end, LF or CR LF; the last line needs none. False behind the last
    // line. The text is valid up to the next call. Throws a failure when the file can't be read,
    // and for a line of more than 1 MiB.
    bool next(std::string_view *line);

    // The number of the line that was read last, from 1.
    uint64_t number() const {
        return number_;
    }
    // About the line that was read last, or another one. Only complaints are counted.
    void complain(const std::string &text);
    void complain(uint64_t line, const std::string &text);
    void warn(uint64_t line, const std::string &text);
    uint64_t complaints() const {
        return complaints_;
    }

  private:
    platform::file_handle begin(const std::string &path);
    bool fill();
    void append(std::string_view text);
    void say_encoding();

    std::string name_;
    open_file file_;
    platform::file_handle from_; // the file, or standard input
    text_decoder decoder_;
    std::vector<char> piece_; // as it came from the file
    std::vector<char> buffer_;
    size_t used_ = 0;
    size_t filled_ = 0;
    uint64_t done_ = 0; // bytes read from the file
    uint64_t number_ = 0;
    uint64_t complaints_ = 0;
    bool encoding_said_ = false;
    bool at_end_ = false; // of the file
    progress bar_;
};

// Throws a failure when both paths lead to one file, which writing would destroy.
void refuse_same_file(const std::string &input, const std::string &output);
// The same for each two of all that a run reads and writes, and when two outputs would be one file,
// which need not be there yet. An empty path is none.
void refuse_overwriting(const std::vector<std::string> &inputs,
                        const std::vector<std::string> &outputs);

} // namespace quillfence::programs
