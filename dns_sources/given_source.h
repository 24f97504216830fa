// Answers given by hand in front of another source: what if the client's name were this?
#pragma once

#include <map>
#include <utility>

#include "source.h"

namespace quillfence::dns_sources {

class given_source : public source {
  public:
    // Borrows the source that answers everything else.
    explicit given_source(source &next);

    // Before the first question. The next record in the answer to a name and type, or a word for
    // the whole answer (words.h). Returns why not.
    std::optional<std::string> add(std::string_view name, std::string_view type,
                                   std::string_view value);
    // The next PTR name of an address, or a word. The address is the one that is asked for: of a
    // client its session's.
    std::optional<std::string> add_ptr(const std::string &address, std::string_view value);

    answer ask(const question &asked) override;

  private:
    source &next_;
    std::map<std::pair<std::string, uint16_t>, answer> given_;
};

} // namespace quillfence::dns_sources
