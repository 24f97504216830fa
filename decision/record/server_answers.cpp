#include "server_answers.h"

#include <algorithm>
#include <iterator>

namespace quillfence::decision {

// By number, as Windows has them.
static constexpr std::string_view type_words[] = {
    "REG_NONE",
    "REG_SZ",
    "REG_EXPAND_SZ",
    "REG_BINARY",
    "REG_DWORD",
    "REG_DWORD_BIG_ENDIAN",
    "REG_LINK",
    "REG_MULTI_SZ",
    "REG_RESOURCE_LIST",
    "REG_FULL_RESOURCE_DESCRIPTOR",
    "REG_RESOURCE_REQUIREMENTS_LIST",
    "REG_QWORD",
};

std::string_view registry_type_word(uint32_t number) {
    return number < std::size(type_words) ? type_words[number] : std::string_view();
}

std::optional<uint32_t> registry_type_of_word(std::string_view word) {
    const auto *const place = std::find(std::begin(type_words), std::end(type_words), word);
    return place == std::end(type_words) ? std::nullopt
                                         : std::optional(static_cast<uint32_t>(place - type_words));
}

} // namespace quillfence::decision
