#include "control_lines.h"

namespace quillfence::decision {

control_lines::control_lines(const std::vector<config_entry> &entries) {
    for (const config_entry &entry : entries) {
        lines_.try_emplace({entry.file, entry.text}, entry.place); // the first one
    }
}

uint32_t control_lines::line_of(const std::string &file, const std::string &name) const {
    const auto found = lines_.find({file, name});
    return found == lines_.end() ? 0 : found->second;
}

} // namespace quillfence::decision
