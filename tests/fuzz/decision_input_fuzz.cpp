// Transactions as files and other programs write them: told by their looks, taken one by one, read.
//
//     which format, a byte: 0 to 5, anything else for the one that the text looks like
//     the text
#include "fuzz_support.h"
#include "input.h"
#include "record_writer.h"

namespace quillfence::testing {

using namespace decision;

namespace {

// What was read can be written, and read again as the same.
void judge(const input_transaction &read) {
    std::string json;
    write_transaction(json, read.transaction);
    const input_result again = read_input(input_format::json, json);
    QF_PROMISE(again.read && again.read->transaction == read.transaction);
    for (const extra_member &one : read.extra) {
        json_problem problem;
        QF_PROMISE(!json_document(one.second, &problem).empty());
        QF_PROMISE(one.second.find('\n') == std::string::npos);
    }
}

bool has_facts(const transaction &of) {
    return of.ip || of.port || of.tls || of.authuser || of.mua || of.helo || of.sender ||
           of.recipient;
}

} // namespace

void fuzz_one(fuzz_input &input) {
    without_debug_lines();
    const uint8_t which = input.byte();
    const std::string bytes = input.rest();
    const exact_bytes exact(bytes);
    std::string_view text(exact.begin(), bytes.size());
    const auto format =
        which < 6 ? std::optional(static_cast<input_format>(which)) : input_format_of_content(text);
    while (format && !text.empty()) {
        const size_t left = text.size();
        const std::string_view unit = take_input(*format, &text, nullptr);
        QF_PROMISE(text.size() < left);
        const input_result result = read_input(*format, unit);
        QF_PROMISE(!result.read || result.problem.text.empty());
        QF_PROMISE(result.read || result.problem.text.empty() == (result.problem.line == 0));
        if (result.read && has_facts(result.read->transaction)) {
            judge(*result.read);
        }
    }
}

} // namespace quillfence::testing
