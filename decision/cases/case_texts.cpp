#include "case_texts.h"

#include <algorithm>
#include <iterator>

namespace quillfence::decision {

static constexpr struct {
    std::string_view member;
    text_kind is;
} kinds[] = {
    {"address", text_kind::text},
    {"authuser", text_kind::fact},
    {"base", text_kind::path},
    {"comment", text_kind::text},
    {"data", text_kind::path},
    {"description", text_kind::text},
    {"destination", text_kind::destination},
    {"domain", text_kind::domain},
    {"entry", text_kind::text},
    {"failed", text_kind::text},
    {"file", text_kind::path},
    {"folder", text_kind::path},
    {"helo", text_kind::domain},
    {"id", text_kind::text},
    {"key", text_kind::path},
    {"list", text_kind::path},
    {"name", text_kind::domain},
    {"names", text_kind::text},
    {"notice", text_kind::text},
    {"path", text_kind::path},
    {"pattern", text_kind::text},
    {"ptr", text_kind::domain},
    {"reason", text_kind::text},
    {"recipient", text_kind::fact},
    {"records", text_kind::records},
    {"sender", text_kind::fact},
    {"text", text_kind::text},
    {"user_dir", text_kind::path},
    {"value", text_kind::text},
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
    return found == std::end(kinds) ? text_kind::fixed : found->is;
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
