// Hands each answer of another asker to somebody who may change it: a guard, or a count.
#pragma once

#include "asker.h"

namespace quillfence::dns_sources {

class checked_asker : public asker {
  public:
    // Called on the thread that has the answer, by several at once. Throws when there is no memory,
    // which makes the answer's status 8, and for no other reason.
    using check = std::function<void(const question &asked, answer *got)>;

    // Borrows the asker. Lives until everything that it was asked is answered.
    checked_asker(asker &next, check each) : next_(next), each_(std::move(each)) {}

    void ask(const question &asked, listener then) noexcept override;

  private:
    asker &next_;
    const check each_;
};

} // namespace quillfence::dns_sources
