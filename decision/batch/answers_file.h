// DNS answers that stand in a file, for every transaction of a run. JSON, one document on a line or
// indented:
//
//   a decision record, whose answers are taken; what an earlier run has written, for one
//   one answer, as the "dns" of a record has it, or an array of them
//   a case, with its answers or its zone data
//
// A question that has several attempts gets them one after the other. When the same question stands
// there more than once, what stands behind counts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "recorded_source.h"
#include "zone_source.h"

namespace quillfence::decision {

class answers_file {
  public:
    // Why the file can't be used, with its name and line; nothing when it can. Once.
    std::optional<std::string> load(const std::string &path);

    // Borrowed, and not changed any more.
    const dns_sources::recorded_source &recorded() const {
        return recorded_;
    }
    // What is asked for the rest; null when the file holds no zone data.
    dns_sources::source *zone() {
        return has_zone_ ? &zone_ : nullptr;
    }

  private:
    dns_sources::recorded_source recorded_;
    dns_sources::zone_source zone_;
    bool has_zone_ = false;
};

} // namespace quillfence::decision
