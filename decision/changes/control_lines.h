// The control files that name what is used, and where the names stand, since a record does not
// tell.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "config_entry.h"

namespace quillfence::decision {

inline constexpr char rules_file[] = "c:/quillfence/control/rules.enabled";
inline constexpr char maps_file[] = "c:/quillfence/control/bms.enabled";
inline constexpr char zones_file[] = "c:/quillfence/rbl.enabled";

class control_lines {
  public:
    control_lines() = default;
    explicit control_lines(const std::vector<config_entry> &entries);
    // The first line that holds exactly this; 0 for none.
    uint32_t line_of(const std::string &file, const std::string &name) const;

  private:
    std::map<std::pair<std::string, std::string>, uint32_t> lines_;
};

} // namespace quillfence::decision
