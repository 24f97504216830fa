// Expected texts of redacted cases: <word> stands for the pseudonym of a word, {domain} for that of
// a domain, under the key of these tests.
#pragma once

#include <string>
#include <string_view>

#include "pseudonym.h"

namespace quillfence::testing {

inline const std::string pseudonym_key = "0123456789abcdef";

inline std::string expanded(std::string_view text) {
    static decision::pseudonyms names(pseudonym_key);
    std::string made;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find(text[at] == '<' ? '>' : '}', at);
        const std::string_view inner = text.substr(at + 1, end - at - 1);
        const bool bracket =
            end != std::string_view::npos && inner.find_first_of("<{ \"") == std::string_view::npos;
        if (bracket && (text[at] == '<' || text[at] == '{')) {
            made += text[at] == '<' ? names.of(inner) : names.of_domain(inner);
            at = end + 1;
        } else {
            made += text[at++];
        }
    }
    return made;
}

} // namespace quillfence::testing
