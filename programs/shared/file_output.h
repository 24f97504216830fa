// A file that appears under its name all at once, or not at all.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "line_input.h"
#include "platform/edit.h"
#include "platform/file.h"
#include "program.h"

namespace quillfence::programs {

class file_output {
  public:
    // Creates "<path>.tmp" beside the file, as platform/edit.h describes. Throws a failure when
    // that can't be done.
    //   rights  of_owner for what holds other people's mail addresses
    explicit file_output(const std::string &path,
                         platform::file_rights rights = platform::file_rights::of_replaced);
    // Removes the temporary file when it has not taken the file's place.
    ~file_output();
    file_output(const file_output &) = delete;
    file_output &operator=(const file_output &) = delete;

    FILE *stream() {
        return stream_.get();
    }
    void write(const void *bytes, size_t size);
    // For what writes to the stream by itself: throws "path: could not be written: reason".
    [[noreturn]] void fail(const std::string &reason) const;

    // Brings everything to stable storage and puts it in the file's place. Throws a failure when
    // any byte could not be written; the file then is what it was before.
    void commit();

  private:
    std::string path_;
    platform::replacement fresh_;
    platform::stream_ptr stream_;
};

// Throws a failure when lines of a list were complained about and shall not be left out.
void refuse_wrong_lines(const line_input &in, const std::string &path, bool keep_going);

// Ends a run that made a file of a list's lines: commits it and prints "path: content". Returns
// partly when lines were left out, else done.
exit_status finish_writing(const line_input &in, file_output *out, const std::string &path,
                           const std::string &content);

} // namespace quillfence::programs
