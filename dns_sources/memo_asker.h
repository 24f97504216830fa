// A memory in front of an asker, for the run of one program: what the memory has is not asked, what
// comes is kept there, and so many questions are on their way at once. The others wait here, in
// their order; when its turn comes to one, the memory is looked at once more, so that those that
// wait for the servers of a zone which is left alone meanwhile are answered at once.
#pragma once

#include <memory>

#include "asker.h"
#include "memo_source.h"

namespace quillfence::dns_sources {

class memo_asker : public asker {
  public:
    // Borrows both; the source behind the memory is not asked. Throws without memory.
    memo_asker(memo_source &memo, asker &next, unsigned most);
    ~memo_asker() override; // as stop()

    void ask(const question &asked, listener then) noexcept override;
    // All that is not answered yet is missing, and so is what is asked from now on: an answer that
    // comes later is dropped. No listener is told any more when this has returned; it must not be
    // called by one.
    void stop();

  private:
    struct line;
    const std::shared_ptr<line> line_;
};

} // namespace quillfence::dns_sources
