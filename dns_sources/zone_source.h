// A small DNS written by hand: the zone data of a case. What stands there is all there is: a name
// that is there has no other records, a name that is not there is missing.
#pragma once

#include <map>

#include "source.h"

namespace quillfence::dns_sources {

class zone_source : public source {
  public:
    // Before the first question. Adds a record to a name. Returns why not.
    std::optional<std::string> add_record(std::string_view name, std::string_view type,
                                          std::string_view data);
    // The name is there, whatever else it has. Returns why not.
    std::optional<std::string> add_name(std::string_view name);
    // What every question for the name says (words.h); with records at the name, what a question
    // for a type that it has none of says. NXDOMAIN stands alone. Returns why not.
    std::optional<std::string> add_word(std::string_view name, std::string_view word);

    // Aliases are followed, as a resolver does; one that leads out of the data makes the answer
    // missing, a chain of more than 16 is SERVFAIL.
    answer ask(const question &asked) override;

  private:
    struct entry {
        std::vector<record> records;
        std::optional<answer> otherwise;
    };

    std::map<std::string, entry> names_;
};

} // namespace quillfence::dns_sources
