#include "bulk_input.h"

namespace quillfence::data_tool {

bulk_input::bulk_input(const std::string &path)
    : name_(path == "-" ? "standard input" : path), in_(path) {}

void bulk_input::complain_of(uint64_t line, const std::string &text) {
    if (++complaints_ > most_complaints) {
        return;
    }
    if (line == number()) {
        in_.complain(text);
    } else {
        complain_at(name_, line, weight::error, text);
    }
}

void bulk_input::require_room(size_t items) const {
    if (items > most_items) {
        throw failure(name_ + ":" + std::to_string(number()) + ": more than " +
                      std::to_string(most_items) + " in one edit; nothing was changed");
    }
}

void bulk_input::require_sound(const std::string &edited) const {
    if (complaints_ == 0) {
        return;
    }
    const uint64_t silent = complaints_ > most_complaints ? complaints_ - most_complaints : 0;
    throw failure(edited + ": nothing was changed, since " +
                  counted(complaints_, "line is", "lines are") + " wrong" +
                  (silent ? " (" + std::to_string(silent) + " of them are not shown)" : ""));
}

std::string passed_over_text(uint64_t present, uint64_t repeated) {
    const std::string there =
        present ? counted(present, "was there already", "were there already") : "";
    const std::string again =
        repeated ? counted(repeated, "was named twice", "were named twice") : "";
    const std::string both = there + (there.empty() || again.empty() ? "" : ", ") + again;
    return both.empty() ? "" : " (" + both + ')';
}

} // namespace quillfence::data_tool
