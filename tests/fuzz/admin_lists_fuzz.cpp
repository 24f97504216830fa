// The lists that quillfence-data makes binary files of.
//
//     which kind of list   a byte: even for patterns, odd for addresses
//     the list             what is left
#include "address_text.h"
#include "engine_messages.h"
#include "fuzz_support.h"
#include "pattern_text.h"
#include "pattern_warnings.h"

namespace quillfence::testing {

using namespace data_files;

namespace {

// The nodes as a file would hold them; null for a pattern that does not compile.
trex_ptr compiled(const std::string &pattern) {
    engine_messages unheard;
    trex_ptr expression(trex_compile_ex(pattern.c_str(), trex_fold_case));
    if (expression) {
        expression->nallocated = expression->nsize;
    }
    return expression;
}

std::string described(const TRex &expression) {
    std::string text;
    for (int32_t i = 0; i < expression.nallocated; ++i) {
        text += describe_node(expression, i) + "\n";
    }
    return text;
}

// An expression's text is a line that compiles to the same nodes; without a text there is a reason.
void judge_pattern(const std::string &pattern) {
    const trex_ptr expression = compiled(pattern);
    if (!expression) {
        return;
    }
    for (const std::string &said : warnings_about(pattern)) {
        QF_PROMISE(!said.empty());
    }
    std::string reason;
    const std::string text = pattern_of_nodes(*expression, &reason);
    QF_PROMISE(text.empty() != reason.empty());
    if (text.empty()) {
        return;
    }
    const pattern_line line = pattern_reader().read(text);
    QF_PROMISE(line.is == pattern_line::kind::pattern && line.text == text);
    const trex_ptr again = compiled(text);
    QF_PROMISE(again && described(*again) == described(*expression));
}

void judge_address_line(const std::string &text) {
    const address_line line = read_address_line(text);
    QF_PROMISE(line.problem.empty() == (line.is != address_line::kind::wrong));
    if (line.is != address_line::kind::range) {
        return;
    }
    QF_PROMISE(line.range.first <= line.range.last);
    const address_line again =
        read_address_line(address_text(line.range.first) + "-" + address_text(line.range.last));
    QF_PROMISE(again.is == address_line::kind::range && again.range.first == line.range.first &&
               again.range.last == line.range.last);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    without_debug_lines();
    const bool addresses = input.byte() % 2;
    pattern_reader reader;
    while (!input.empty()) {
        const std::string text = input.line();
        if (addresses) {
            judge_address_line(text);
            continue;
        }
        const pattern_line line = reader.read(text);
        using kind = pattern_line::kind;
        QF_PROMISE(line.text.empty() ==
                   (line.is == kind::nothing || line.is == kind::end_of_condition));
        if (line.is == kind::pattern || line.is == kind::condition ||
            line.is == kind::negated_condition) {
            judge_pattern(line.text);
        }
    }
}

} // namespace quillfence::testing
