// What is done with the lines of logs: the records that pass a filter go on, what is no record is
// counted and named.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "log_filter.h"
#include "log_lines.h"
#include "log_record.h"

namespace quillfence::programs {

struct log_place {
    const std::string &file;
    uint64_t line;
};

class log_sifter {
  public:
    // Takes a record with its line. "" or what is wrong with the line all the same.
    using taker = std::function<std::string(const decision::log_record &record,
                                            std::string_view line, const log_place &place)>;

    // Borrows the filter.
    log_sifter(const decision::log_filter &filter, decision::log_depth depth, taker take);

    // Lines that can't pass are only looked at as far as to see whether they begin and end as a
    // record does.
    void sift(const decision::log_line &line, const std::string &file);
    // Says that something is wrong with a file as a whole.
    void refuse(const std::string &file, const std::string &why);

    uint64_t lines() const {
        return lines_;
    }
    uint64_t passed() const {
        return passed_;
    }
    // Whether anything was refused.
    bool is_partial() const {
        return bad_lines_ + bad_files_ > 0;
    }
    // Complains about what was refused since the last time: the first of all, and then how many
    // more there were.
    void complain();

  private:
    void refuse(const log_place &place, const std::string &why);

    const decision::log_filter &filter_;
    const decision::line_sieve sieve_;
    const decision::log_depth depth_;
    const taker take_;
    decision::log_record record_;
    uint64_t lines_ = 0;
    uint64_t passed_ = 0;
    uint64_t bad_lines_ = 0;
    uint64_t bad_files_ = 0;
    struct complaint {
        std::string file;
        uint64_t line; // 0: the file as a whole
        std::string text;
    };
    std::vector<complaint> waiting_;
    uint64_t named_ = 0;
    uint64_t told_ = 0; // of the bad lines
};

} // namespace quillfence::programs
