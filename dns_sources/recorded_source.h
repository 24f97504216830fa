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

  private:
    struct sequence {
        std::vector<answer> answers; // never empty
        size_t next = 0;
    };

    std::mutex lock_;
    std::map<std::pair<std::string, uint16_t>, sequence> recorded_;
};

} // namespace quillfence::dns_sources
