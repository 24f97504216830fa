// No DNS at all: every answer is missing.
#pragma once

#include "source.h"

namespace quillfence::dns_sources {

class off_source : public source {
  public:
    answer ask(const question &asked) override;
};

} // namespace quillfence::dns_sources
