// The answers that a run had, once more: by name and type, in the order in which they came. The
// first time that a question is asked it gets its first answer, the next time (another attempt,
// another rule) the next, and the last one for as long as it is asked. Others are missing; nobody
// else is asked.
#pragma once

#include <map>
#include <mutex>
#include <utility>

#include "source.h"

namespace quillfence::dns_sources {

class recorded_source : public source {
  public:
    // Before the first question: the next answer to a name and type.
    void add(std::string_view name, uint16_t type, answer given);

    answer ask(const question &asked) override;
    // From here on every question gets its first answer again.
    void rewind();

    // The answers to a question, in their order; null when there is none. Borrowed, until another
    // is added.
    const std::vector<answer> *answers_to(const question &asked) const;

  private:
    struct sequence {
        std::vector<answer> answers; // never empty
        size_t next = 0;
    };

    std::mutex lock_;
    std::map<std::pair<std::string, uint16_t>, sequence> recorded_;
};

// The same answers for many transactions, each of which begins with the first ones. One for each
// thread; all borrow the one recorded_source, to which nothing is added any more.
class recorded_walk : public source {
  public:
    // Others are asked of `otherwise`, borrowed; without it they are missing.
    explicit recorded_walk(const recorded_source &of, source *otherwise = nullptr)
        : of_(of), otherwise_(otherwise) {}

    answer ask(const question &asked) override;
    // The next transaction.
    void rewind() {
        places_.clear();
    }

  private:
    const recorded_source &of_;
    source *const otherwise_;
    std::map<const std::vector<answer> *, size_t> places_;
};

} // namespace quillfence::dns_sources
