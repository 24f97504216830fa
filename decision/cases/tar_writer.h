// Writes a tar file, entry by entry. What is written depends on the entries alone.
#pragma once

#include <cstdio>
#include <string>

#include "tar_entry.h"

namespace quillfence::decision {

class tar_writer {
  public:
    explicit tar_writer(FILE *to, const tar_limits &limits = {}); // borrowed, written front to back
    tar_writer(const tar_writer &) = delete;
    tar_writer &operator=(const tar_writer &) = delete;

    // After a problem all these do nothing.
    void add_folder(const std::string &name, int64_t time);
    void begin_file(const std::string &name, uint64_t size, int64_t time);
    void write(const void *bytes, size_t size); // more of the file that was begun
    void end_file();                            // all announced bytes have been written
    void finish();                              // the two zero blocks, once, behind the last entry

    // begin_file, write and end_file at once.
    void add_file(const std::string &name, std::string_view bytes, int64_t time);

    // The first problem, with the entry's name where it is about one: a name that is refused, more
    // or fewer bytes than announced, a limit, a stream that can't be written. "" so far.
    const std::string &problem() const {
        return problem_;
    }

  private:
    bool begin(const tar_entry &entry);
    void put(const void *bytes, size_t size);
    void fail(std::string why);

    FILE *to_;
    tar_limits limits_;
    tar_names names_;
    std::string problem_;
    std::string name_; // of the file that was begun
    uint64_t size_ = 0;
    uint64_t left_ = 0;
    uint64_t entries_ = 0;
    uint64_t total_ = 0;
};

} // namespace quillfence::decision
