// UTF-8, one sequence at a time.
#pragma once

#include <cstddef>
#include <string_view>

namespace quillfence::decision {

// The bytes of the well-formed sequence that a text begins with, 1 to 4; 0 when it begins with
// none: a stray or missing continuation byte, an overlong form, a surrogate, a value above
// U+10FFFF.
inline size_t utf8_sequence(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto continues = [&](size_t i, unsigned low = 0x80, unsigned high = 0xBF) {
        return i < text.size() && byte(i) >= low && byte(i) <= high;
    };
    if (text.empty()) {
        return 0;
    }
    const unsigned first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return continues(1) ? 2 : 0;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        const unsigned low = first == 0xE0 ? 0xA0 : 0x80;
        const unsigned high = first == 0xED ? 0x9F : 0xBF;
        return continues(1, low, high) && continues(2) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const unsigned low = first == 0xF0 ? 0x90 : 0x80;
        const unsigned high = first == 0xF4 ? 0x8F : 0xBF;
        return continues(1, low, high) && continues(2) && continues(3) ? 4 : 0;
    }
    return 0;
}

} // namespace quillfence::decision
