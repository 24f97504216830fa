// Somebody who answers DNS questions. Sources stand one in front of the other: each answers what it
// can and hands the rest to the next, which it borrows. A usual stack, from the engine's side:
//
//     memo -> guard -> deadline -> live       the DNS as it is
//     given -> ... -> live                    with some answers given by hand
//     recorded, or zone, or off               without asking anybody
//
// The guard stands behind the memo, so that what it takes for a failure is asked again.
#pragma once

#include "answer.h"

namespace quillfence::dns_sources {

class source {
  public:
    source() = default;
    virtual ~source() = default;
    source(const source &) = delete;
    source &operator=(const source &) = delete;

    // Called by several threads at once. Throws when there is no memory, and for no other reason.
    virtual answer ask(const question &asked) = 0;
};

} // namespace quillfence::dns_sources
