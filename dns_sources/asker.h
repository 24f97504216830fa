// Somebody who answers DNS questions later; many may be on their way at once. Askers stand one in
// front of the other, as sources do, and borrow the next:
//
//     memo_asker -> shared_asker -> checked_asker -> live_asker      a run of many transactions
//     shared_asker -> live_asker                                     a service
#pragma once

#include <functional>

#include "answer.h"

namespace quillfence::dns_sources {

class asker {
  public:
    using listener = std::function<void(answer)>;

    asker() = default;
    virtual ~asker() = default;
    asker(const asker &) = delete;
    asker &operator=(const asker &) = delete;

    // The listener is told once, on any thread, perhaps before this returns. It throws nothing, and
    // is done soon: the answers to others wait for it. asked.limit bounds the question from now on,
    // whatever it may have to wait for. Throws nothing: without memory the answer's status is 8.
    // What an asker that is ended can't answer any more is missing (status_missing).
    virtual void ask(const question &asked, listener then) noexcept = 0;
};

} // namespace quillfence::dns_sources
