#include "record_words.h"

namespace quillfence::decision {

template <>
std::span<const std::string_view> words<verdict>() {
    static constexpr std::string_view all[] = {"accept", "reject", "undecided"};
    return all;
}

template <>
std::span<const std::string_view> words<decided_by>() {
    static constexpr std::string_view all[] = {"engine_off", "exempt",  "rule",  "block_map",
                                               "rbl",        "nothing", "error", "missing"};
    return all;
}

template <>
std::span<const std::string_view> words<outcome>() {
    static constexpr std::string_view all[] = {"hit",     "exempt",         "no_hit",
                                               "skipped", "not_enabled",    "not_reached",
                                               "never",   "hit_unreported", "undecided"};
    return all;
}

template <>
std::span<const std::string_view> words<block_list_answer>() {
    static constexpr std::string_view all[] = {"listed", "not_listed", "refused", "no_listing",
                                               "failed"};
    return all;
}

template <>
std::span<const std::string_view> words<answer_class>() {
    static constexpr std::string_view all[] = {"found", "no_name", "failure", "missing"};
    return all;
}

} // namespace quillfence::decision
