// Watches what the code under test tells about what it looks at.
#pragma once

#include <string>
#include <vector>

#include "evidence.h"

namespace quillfence::testing {

// While one lives, the calling thread has a call context that asks for everything. Each fact is
// kept as one line: the slot's word, then its members that say something, as "name=value".
class evidence_watch {
  public:
    evidence_watch();
    evidence_watch(const evidence_watch &) = delete;
    evidence_watch &operator=(const evidence_watch &) = delete;

    // What was told, in order, without "path" lines; forgotten here.
    std::vector<std::string> take();
    // Only the lines that begin with a word: "path", "list", "failure". All are forgotten.
    std::vector<std::string> take(const std::string &word);

  private:
    std::vector<std::string> told;
    evidence_sink sink;
    call_context context{};
    call_scope scope;
};

} // namespace quillfence::testing
