// The words that the document has for the record's enumerations, and what they mean to a reader.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "decision_record.h"

namespace quillfence::decision {

// All words of an enumeration, in the order of its values.
template <class Enumeration>
std::span<const std::string_view> words();
template <>
std::span<const std::string_view> words<verdict>();
template <>
std::span<const std::string_view> words<decided_by>();
template <>
std::span<const std::string_view> words<outcome>();
template <>
std::span<const std::string_view> words<block_list_answer>();
template <>
std::span<const std::string_view> words<answer_class>();

template <class Enumeration>
std::string_view word(Enumeration value) {
    return words<Enumeration>()[static_cast<size_t>(value)];
}

// The value that a word stands for; nothing for any other text. Letter case counts.
template <class Enumeration>
std::optional<Enumeration> value_of_word(std::string_view text) {
    const std::span<const std::string_view> all = words<Enumeration>();
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i] == text) {
            return static_cast<Enumeration>(i);
        }
    }
    return std::nullopt;
}

} // namespace quillfence::decision
