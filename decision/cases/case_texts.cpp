#include "case_texts.h"

#include <algorithm>
#include <iterator>

namespace quillfence::decision {

// Those that are not any text.
static constexpr struct {
    std::string_view member;
    text_kind is;
} kinds[] = {
    {"answer", text_kind::fixed},    {"authuser", text_kind::fact},
    {"base", text_kind::path},       {"bms_hits", text_kind::fixed},
    {"build", text_kind::fixed},     {"by", text_kind::fixed},
    {"class", text_kind::fixed},     {"data", text_kind::path},
    {"decision", text_kind::fixed},  {"destination", text_kind::destination},
    {"domain", text_kind::domain},   {"fact", text_kind::fixed},
    {"file", text_kind::path},       {"folder", text_kind::path},
    {"function", text_kind::fixed},  {"helo", text_kind::domain},
    {"high", text_kind::fixed},      {"hit_name", text_kind::fixed},
    {"how", text_kind::fixed},       {"key", text_kind::path},
    {"kind", text_kind::fixed},      {"library", text_kind::fixed},
    {"list", text_kind::path},       {"low", text_kind::fixed},
    {"map", text_kind::fixed},       {"maps", text_kind::fixed},
    {"module", text_kind::fixed},    {"name", text_kind::domain},
    {"network", text_kind::fixed},   {"outcome", text_kind::fixed},
    {"path", text_kind::path},       {"port", text_kind::fixed},
    {"ptr", text_kind::domain},      {"rcode", text_kind::fixed},
    {"recipient", text_kind::fact},  {"records", text_kind::records},
    {"report", text_kind::fixed},    {"revision", text_kind::fixed},
    {"rule", text_kind::fixed},      {"schema", text_kind::fixed},
    {"selection", text_kind::fixed}, {"sender", text_kind::fact},
    {"server", text_kind::fixed},    {"severity", text_kind::fixed},
    {"sha256", text_kind::fixed},    {"spam_hits", text_kind::fixed},
    {"stage", text_kind::fixed},     {"time", text_kind::fixed},
    {"transport", text_kind::fixed}, {"type", text_kind::fixed},
    {"used_by", text_kind::fixed},   {"user_dir", text_kind::path},
    {"verdict", text_kind::fixed},   {"version", text_kind::fixed},
    {"what", text_kind::fixed},      {"where", text_kind::fixed},
    {"would", text_kind::fixed},     {"zone", text_kind::fixed},
};

text_kind kind_of_text(std::string_view top, std::string_view member) {
    if (top == "extra") {
        return text_kind::text;
    }
    if (top == "zonedata") {
        return text_kind::domain;
    }
    if (top == "registry" && member == "value") {
        return text_kind::path;
    }
    const auto *const found =
        std::find_if(std::begin(kinds), std::end(kinds),
                     [member](const auto &kind) { return kind.member == member; });
    return found == std::end(kinds) ? text_kind::text : found->is;
}

bool is_derived(const text_place &place) {
    constexpr std::string_view derived[] = {"decision", "report", "rules",
                                            "notes",    "errors", "expect"};
    const bool is_question =
        (place.top == "registry" && (place.member == "key" || place.member == "value")) ||
        (place.top == "folders" && place.member == "folder");
    return is_question || place.member == "path" ||
           std::find(std::begin(derived), std::end(derived), place.top) != std::end(derived);
}

} // namespace quillfence::decision
