#include "log_sifter.h"

#include "program.h"
#include "text.h"

namespace quillfence::programs {

using decision::log_line;

static constexpr uint64_t most_named = 10; // bad lines

log_sifter::log_sifter(const decision::log_filter &filter, decision::log_depth depth, taker take)
    : filter_(filter), sieve_(filter), depth_(depth), take_(std::move(take)) {}

static bool is_blank(std::string_view text) {
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

void log_sifter::sift(const log_line &line, const std::string &file) {
    const log_place place{file, line.number};
    ++lines_;
    if (line.too_long) {
        refuse(place, "the line is longer than 8 MiB");
        return;
    }
    if (is_blank(line.text) ||
        (decision::looks_like_record(line.text) && !sieve_.may_pass(line.text))) {
        return;
    }
    std::string why = decision::read_log_record(line.text, depth_, &record_);
    if (why.empty() && decision::passes(filter_, record_)) {
        why = take_(record_, line.text, place);
        passed_ += why.empty();
    }
    if (!why.empty()) {
        refuse(place, why);
    }
}

void log_sifter::refuse(const log_place &place, const std::string &why) {
    ++bad_lines_;
    if (named_ < most_named) {
        ++named_;
        waiting_.push_back({place.file, place.line, why});
    }
}

void log_sifter::refuse(const std::string &file, const std::string &why) {
    ++bad_files_;
    waiting_.push_back({file, 0, why});
}

void log_sifter::complain() {
    for (const complaint &one : waiting_) {
        if (one.line == 0) {
            programs::complain(one.file + ": " + one.text);
        } else {
            ++told_;
            complain_at(one.file, one.line, weight::error, one.text);
        }
    }
    waiting_.clear();
    if (bad_lines_ > told_) {
        programs::complain("and " + counted(bad_lines_ - told_, "line") +
                           " more with something wrong");
        told_ = bad_lines_;
    }
}

} // namespace quillfence::programs
