// Patterns: compiled in both cases, matched, escaped; and compared with the slow matcher.
//
//     the pattern
//     a subject, as many lines as there are

#include "../matching/slow_matcher.h"
#include "fuzz_support.h"
#include "tiny_rex.h"
#include "vc_text.h"

namespace quillfence::testing {

namespace {

constexpr size_t most_subjects = 6;
// What the slow matcher is asked for: beyond it takes too long.
constexpr size_t longest_compared_pattern = 120;
constexpr size_t longest_compared_subject = 40;
constexpr uint64_t patience = 10'000;

std::string node_bytes(const TRex *expression) {
    return {reinterpret_cast<const char *>(expression->nodes),
            static_cast<size_t>(expression->nallocated) * sizeof(TRexNode)};
}

void check_nodes(const TRex *expression) {
    QF_PROMISE(expression->nsize > 0 && expression->nsize <= expression->nallocated);
    for (int32_t i = 0; i < expression->nsize; ++i) {
        static_cast<void>(__trex_node_is_valid(expression, &expression->nodes[i]));
    }
}

void match(TRex *expression, const std::string &subject) {
    const std::string before = node_bytes(expression);
    const int matched = trex_match(expression, subject.c_str());
    QF_PROMISE(matched == 0 || matched == 1);
    const exact_bytes span(subject);
    QF_PROMISE(__trex_match_span(expression, span.begin(), span.end()) == matched);
    QF_PROMISE(node_bytes(expression) == before);
}

void compare(TRex *expression, const slow_nodes &nodes, const std::string &subject) {
    const slow_answer want =
        slow_match(nodes, subject, expression->case_flag == trex_fold_case, patience);
    QF_PROMISE(want.endless || trex_match(expression, subject.c_str()) == want.matched);
}

void compile_and_match(const std::string &pattern, const std::vector<std::string> &subjects) {
    std::optional<slow_nodes> slow;
    const bool compared = pattern.size() <= longest_compared_pattern;
    if (compared) {
        slow = slow_parse(pattern);
    }
    for (const uint8_t flag : {trex_fold_case, trex_exact_case}) {
        const trex_ptr expression(trex_compile_ex(pattern.c_str(), flag));
        QF_PROMISE(!compared || slow.has_value() == (expression != nullptr));
        if (!expression) {
            continue;
        }
        check_nodes(expression.get());
        for (const std::string &subject : subjects) {
            match(expression.get(), subject);
            if (slow && subject.size() <= longest_compared_subject) {
                compare(expression.get(), *slow, subject);
            }
        }
    }
}

// An escaped text is a pattern for exactly that text.
void escape(const std::string &text) {
    const heap_string escaped(trex_escape(text.c_str()));
    QF_PROMISE(escaped && strlen(escaped.get()) >= text.size());
    for (const char c : text) {
        if (!is_printable(c)) {
            return;
        }
    }
    const std::string pattern = "^" + std::string(escaped.get()) + "$";
    const trex_ptr expression(trex_compile_ex(pattern.c_str(), trex_exact_case));
    QF_PROMISE(expression && trex_match(expression.get(), text.c_str()));
    QF_PROMISE(!trex_match(expression.get(), (text + "x").c_str()));
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string pattern = input.line();
    std::vector<std::string> subjects;
    while (!input.empty() && subjects.size() < most_subjects) {
        subjects.push_back(input.line());
    }
    compile_and_match(pattern, subjects);
    escape(pattern);
}

} // namespace quillfence::testing
