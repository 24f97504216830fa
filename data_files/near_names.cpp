#include "near_names.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>

namespace quillfence::data_files {

// How many letters have to be put in, left out or changed to make the one of the other.
static size_t edits_between(std::string_view one, std::string_view other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t corner = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t changed = corner + (one[i] != other[j]);
            corner = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

// How far a name is from one that might have been meant; nothing when it is no likely one.
static std::optional<size_t> distance(std::string_view given, std::string_view name) {
    const size_t edits = edits_between(given, name);
    if (edits <= std::max<size_t>(2, given.size() / 3)) {
        return edits;
    }
    constexpr size_t least_part = 3;
    const bool is_part = given.size() >= least_part && name.find(given) != std::string_view::npos;
    return is_part ? std::optional(edits) : std::nullopt;
}

std::vector<std::string> near_names(std::string_view given, const std::vector<std::string> &names) {
    constexpr size_t most = 3;
    std::vector<std::pair<size_t, std::string>> found;
    for (const std::string &name : names) {
        if (const auto far = distance(given, name)) {
            found.emplace_back(*far, name);
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> nearest;
    for (size_t i = 0; i < std::min(found.size(), most); ++i) {
        nearest.push_back(found[i].second);
    }
    return nearest;
}

std::string did_you_mean(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "; did you mean " : " or ") + name;
    }
    return text.empty() ? text : text + '?';
}

} // namespace quillfence::data_files
