#include "pattern_conditions.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "engine_messages.h"
#include "pattern_language.h"
#include "tiny_rex.h"

namespace quillfence::data_files {

using kind = folded_pattern::kind;

static constexpr size_t longest_overlap = 12; // in elements

static trex_ptr compiled(const std::string &pattern) {
    engine_messages unheard;
    trex_ptr expression(trex_compile_ex(pattern.c_str(), trex_fold_case));
    for (int32_t i = 0; expression && i < expression->nsize; ++i) {
        if (!__trex_node_is_valid(expression.get(), &expression->nodes[i])) {
            return nullptr; // it takes nothing at all; nobody wants that folded
        }
    }
    return expression;
}

namespace {

struct judged_pattern {
    std::string text;
    pattern_language language;
};

} // namespace

static std::optional<judged_pattern> judged(const std::string &text) {
    const trex_ptr expression = compiled(text);
    if (!expression) {
        return std::nullopt;
    }
    return judged_pattern{text, language_of(*expression)};
}

bool has_bar_outside(const std::string &pattern) {
    const trex_ptr expression = compiled(pattern);
    return expression && expression->nodes[expression->nodes[0].left].type == trex_op_or;
}

// --- Proofs ---

static bool never_both(const judged_pattern &one, const judged_pattern &other) {
    return holds_always({&one.language, &other.language},
                        [](const std::vector<bool> &taken) { return !(taken[0] && taken[1]); });
}

// Whether all that `one` takes is taken by `other`.
static bool implies(const judged_pattern &one, const judged_pattern &other) {
    return other.language.is_exact &&
           holds_always({&one.language, &other.language},
                        [](const std::vector<bool> &taken) { return !taken[0] || taken[1]; });
}

// Whether the candidates together take what both patterns do. All are exact.
static bool are_both(const judged_pattern &one, const judged_pattern &other,
                     const std::vector<judged_pattern> &candidates) {
    std::vector<const pattern_language *> languages = {&one.language, &other.language};
    for (const judged_pattern &candidate : candidates) {
        languages.push_back(&candidate.language);
    }
    return holds_always(languages, [](const std::vector<bool> &taken) {
        const bool is_candidates = std::find(taken.begin() + 2, taken.end(), true) != taken.end();
        return (taken[0] && taken[1]) == is_candidates;
    });
}

// --- Candidates ---

// How many characters of a text its first element has: a character, an escape, a class or a group,
// with what repeats it.
static size_t length_of_element(std::string_view text) {
    size_t at = 0;
    const auto skip_one = [&] { at += text[at] == '\\' ? size_t{2} : size_t{1}; };
    if (text[0] == '[' || text[0] == '(') {
        int open = 0;
        bool in_class = false;
        do {
            const char c = text[at];
            in_class = in_class ? c != ']' : c == '[';
            open += in_class ? 0 : c == '(' ? 1 : c == ')' ? -1 : 0;
            skip_one();
        } while (at < text.size() && (in_class || open > 0));
    } else {
        skip_one();
    }
    if (at < text.size() && std::string_view("*+?").find(text[at]) != std::string_view::npos) {
        return at + 1;
    }
    if (at < text.size() && text[at] == '{') {
        return std::min(text.find('}', at), text.size() - 1) + 1;
    }
    return std::min(at, text.size());
}

static std::vector<std::string_view> elements_of(std::string_view text) {
    std::vector<std::string_view> elements;
    while (!text.empty()) {
        elements.push_back(text.substr(0, length_of_element(text)));
        text.remove_prefix(elements.back().size());
    }
    return elements;
}

static std::string joined(const std::vector<std::string_view> &elements, size_t from) {
    std::string text;
    for (size_t i = from; i < elements.size(); ++i) {
        text += elements[i];
    }
    return text;
}

// The one in front of the other: with anything between them, or sharing some elements.
static std::vector<std::string> in_a_row(const std::string &front, const std::string &back) {
    if (front.ends_with('$') || back.starts_with('^')) {
        return {};
    }
    std::vector<std::string_view> before = elements_of(front);
    std::vector<std::string_view> behind = elements_of(back);
    while (!before.empty() && before.back() == ".*") {
        before.pop_back();
    }
    if (!behind.empty() && behind.front() == ".*") {
        behind.erase(behind.begin());
    }
    std::vector<std::string> texts = {joined(before, 0) + ".*" + joined(behind, 0)};
    const size_t most = std::min({before.size(), behind.size(), longest_overlap});
    for (size_t shared = 1; shared <= most; ++shared) {
        if (std::equal(before.end() - static_cast<std::ptrdiff_t>(shared), before.end(),
                       behind.begin())) {
            texts.push_back(joined(before, 0) + joined(behind, shared));
        }
    }
    return texts;
}

// Those that take nothing but what both take.
static std::vector<judged_pattern> candidates_for(const judged_pattern &condition,
                                                  const judged_pattern &pattern) {
    std::vector<std::string> texts = in_a_row(condition.text, pattern.text);
    const std::vector<std::string> more = in_a_row(pattern.text, condition.text);
    texts.insert(texts.end(), more.begin(), more.end());
    std::vector<judged_pattern> candidates;
    for (const std::string &text : texts) {
        std::optional<judged_pattern> candidate = judged(text);
        if (candidate && candidate->language.is_exact && implies(*candidate, condition) &&
            implies(*candidate, pattern)) {
            candidates.push_back(std::move(*candidate));
        }
    }
    return candidates;
}

// Leaves out what the others say already.
static void thin_out(const judged_pattern &condition, const judged_pattern &pattern,
                     std::vector<judged_pattern> *candidates) {
    for (size_t i = candidates->size(); i-- > 0 && candidates->size() > 1;) {
        std::vector<judged_pattern> fewer = *candidates;
        fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
        if (are_both(condition, pattern, fewer)) {
            *candidates = std::move(fewer);
        }
    }
}

// --- Folding ---

static folded_pattern fold_negated(const judged_pattern &condition, const judged_pattern &pattern) {
    if (never_both(condition, pattern)) {
        return {kind::folded, {pattern.text}};
    }
    return {implies(pattern, condition) ? kind::nothing : kind::unfolded};
}

static folded_pattern fold(const judged_pattern &condition, const judged_pattern &pattern) {
    if (implies(pattern, condition)) {
        return {kind::folded, {pattern.text}};
    }
    if (never_both(condition, pattern)) {
        return {kind::nothing};
    }
    if (implies(condition, pattern)) {
        return {kind::folded, {condition.text}};
    }
    if (!condition.language.is_exact || !pattern.language.is_exact) {
        return {kind::unfolded};
    }
    std::vector<judged_pattern> candidates = candidates_for(condition, pattern);
    if (candidates.empty() || !are_both(condition, pattern, candidates)) {
        return {kind::unfolded};
    }
    thin_out(condition, pattern, &candidates);
    folded_pattern made = {kind::folded};
    for (judged_pattern &candidate : candidates) {
        made.patterns.push_back(std::move(candidate.text));
    }
    return made;
}

folded_pattern fold_condition(const std::string &condition, bool negated,
                              const std::string &pattern) {
    const std::optional<judged_pattern> outer = judged(condition);
    const std::optional<judged_pattern> inner = judged(pattern);
    if (!outer || !inner) {
        return {kind::unfolded};
    }
    return negated ? fold_negated(*outer, *inner) : fold(*outer, *inner);
}

folded_pattern fold_condition(const std::string &condition, bool negated,
                              const std::vector<std::string> &patterns) {
    folded_pattern all = {kind::nothing};
    for (const std::string &pattern : patterns) {
        const folded_pattern one = fold_condition(condition, negated, pattern);
        if (one.is == kind::unfolded) {
            return one;
        }
        if (one.is == kind::folded) {
            all.is = kind::folded;
            all.patterns.insert(all.patterns.end(), one.patterns.begin(), one.patterns.end());
        }
    }
    return all;
}

} // namespace quillfence::data_files
