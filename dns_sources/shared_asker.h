// Identical questions that are on their way at the same time are asked once: who asks what somebody
// asked before, and was not answered yet, gets the same answer. Nothing is kept once it is told.
//
// Each keeps its own limit: who has less time than the one that asked first is told the silence
// (1460) at its end, and for those that have more the question is asked again when it was the
// limit of the first that ended it.
#pragma once

#include <memory>

#include "asker.h"

namespace quillfence::dns_sources {

class shared_asker : public asker {
  public:
    // Borrows the asker. It has a thread, for limits: throws when the system gives none.
    explicit shared_asker(asker &next);
    ~shared_asker() override; // as stop()

    void ask(const question &asked, listener then) noexcept override;
    // All that is not answered yet is missing, and so is what is asked from now on: an answer that
    // comes later is dropped. No listener is told any more when this has returned; it must not be
    // called by one.
    void stop();

  private:
    struct flights;
    const std::shared_ptr<flights> flights_;
};

} // namespace quillfence::dns_sources
