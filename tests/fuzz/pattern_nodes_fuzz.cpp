// Node arrays that no compiler has made.
//
//     case flag, number of nodes   a byte each
//     per node                     type, left, next (16 bits, signed), right (32 bits)
//     the subject                  what is left
#include "fuzz_support.h"
#include "tiny_rex.h"

namespace quillfence::testing {

namespace {

int32_t signed16(fuzz_input &input) {
    return static_cast<int16_t>(input.number16());
}

TRexNode take_node(fuzz_input &input) {
    TRexNode node = {};
    node.type = signed16(input);
    node.left = signed16(input);
    node.next = signed16(input);
    node.right = static_cast<int32_t>(input.number32());
    return node;
}

} // namespace

void fuzz_one(fuzz_input &input) {
    TRex expression = {};
    expression.case_flag = input.byte() % 2;
    std::string bytes(input.byte() * sizeof(TRexNode), '\0');
    for (size_t at = 0; at < bytes.size(); at += sizeof(TRexNode)) {
        const TRexNode node = take_node(input);
        memcpy(&bytes[at], &node, sizeof node);
    }
    const std::string subject = input.rest();
    const exact_bytes nodes(bytes);
    expression.nodes =
        bytes.empty() ? nullptr : reinterpret_cast<TRexNode *>(const_cast<char *>(nodes.begin()));
    expression.nallocated = static_cast<int32_t>(bytes.size() / sizeof(TRexNode));
    for (int32_t i = 0; i < expression.nallocated; ++i) {
        static_cast<void>(__trex_node_is_valid(&expression, &expression.nodes[i]));
    }
    const exact_bytes span(subject);
    const int matched = __trex_match_span(&expression, span.begin(), span.end());
    QF_PROMISE(matched == 0 || matched == 1);
    QF_PROMISE(__trex_match_span(&expression, span.begin(), span.end()) == matched);
    QF_PROMISE(std::string(nodes.begin(), nodes.end()) == bytes);
}

} // namespace quillfence::testing
