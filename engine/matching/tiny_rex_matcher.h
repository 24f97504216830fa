// What the source files of the matcher share. Nobody else includes this.
//
//   tiny_rex_node.cpp    whether a node may be used, and the limits
//   tiny_rex_early.cpp   what rules a match out before it is tried
//   tiny_rex_match.cpp   how a match goes
#pragma once

#include <array>
#include <cstdint>

#include "tiny_rex.h"
#include "vc_text.h"

namespace quillfence::trex {

inline constexpr int32_t none = -1;
// What a file can hold at most; longer expressions, compiled at run time, have no deeper recursion
// than these, which bounds the stack.
inline constexpr int32_t max_stored_nodes = 4095;
inline constexpr int32_t spare_depth = 16;

// Where a node stands: what follows its sequence as a whole, and how many groups are around it.
struct place {
    int32_t follow; // first node of the chain that follows, or none
    int32_t group_depth;
    const place *around; // where that chain stands
};

// A ".*" of the root's sequence that has failed: it can't match from there on.
struct failure {
    uint32_t from; // distance from the subject's beginning
    uint16_t node;
    int16_t depth_left;
};
// Where failures are remembered: nodes share a place with those a multiple of this away, and the
// last one has it. Small enough for a frame of one page.
inline constexpr int32_t failure_places = 256;
struct failure_table {
    uint64_t used[failure_places / 64];
    failure places[failure_places]; // undefined where not used
};

struct matcher {
    TRex *expression;
    const TRexNode *nodes;
    int32_t count;
    bool fold;
    bool broken;
    bool silent; // nothing is reported
    uint32_t most_steps;
    uint32_t steps_left;
    int32_t depth_left;
    const char *begin;
    const char *end;
    place root;             // of the nodes in the root group
    place looked_at;        // the same for a chain that somebody only looks ahead at
    const char *settled;    // where the root's sequence ends, once that is known
    bool settled_ended;     // and its `ended`
    const TRexNode *failed; // the ".*" of the root's sequence that has failed last
    bool has_failures;      // else the table is undefined
    failure_table failures;
};

// --- Nodes and limits (tiny_rex_node.cpp) ---

// What the check asks of a type of node.
enum node_rule : uint8_t {
    left_is_link = 1,
    right_is_link = 2,
    needs_left = 4,
    needs_right = 8,
    has_bounds = 16, // of a repetition, in `right`
    unusable = 32,   // not a type of node, or a character that is not printable
};
inline constexpr auto node_rules = [] {
    constexpr uint8_t links = left_is_link | right_is_link;
    std::array<uint8_t, trex_op_any_sequence + 1> rules{};
    rules.fill(links | unusable);
    for (size_t literal = 0x20; literal <= 0x7E; ++literal) {
        rules[literal] = links;
    }
    rules[trex_op_greedy] = left_is_link | needs_left | has_bounds;
    rules[trex_op_or] = links | needs_left | needs_right;
    rules[trex_op_expr] = links | needs_left;
    rules[trex_op_nocapexpr] = links | needs_left;
    rules[trex_op_dot] = links;
    rules[trex_op_class] = links | needs_left;
    rules[trex_op_cclass] = right_is_link;
    rules[trex_op_nclass] = links | needs_left;
    rules[trex_op_range] = needs_left | needs_right;
    rules[trex_op_eol] = links;
    rules[trex_op_bol] = links;
    rules[trex_op_wb] = right_is_link;
    rules[trex_op_any_sequence] = links;
    return rules;
}();

inline uint8_t rule_of(int32_t type) {
    return type >= 0 && type <= trex_op_any_sequence ? node_rules[static_cast<size_t>(type)]
                                                     : uint8_t{node_rules[0]};
}

inline int32_t minimum_of(const TRexNode *greedy) {
    return static_cast<int32_t>(static_cast<uint32_t>(greedy->right) >> 16);
}
inline int32_t maximum_of(const TRexNode *greedy) {
    return greedy->right & 0xFFFF;
}

// The match ends without a result, after an ERROR line. Null.
const char *give_up(matcher *m, const char *function, const char *why);
const char *cycle(matcher *m, const char *function);
// The same, but without a line where the caller gave fewer steps than a match may take.
const char *out_of_steps(matcher *m, const char *function);

inline bool step(matcher *m, const char *function) {
    if (m->steps_left == 0) {
        out_of_steps(m, function);
        return false;
    }
    --m->steps_left;
    return true;
}

// Whether a node passes the check against a number of nodes. Without branches where it does.
inline bool is_good_node(const TRexNode *node, int32_t count) {
    const uint8_t rule = rule_of(node->type);
    const int faults = (node->next >= count) | ((node->left >= count) & (rule & left_is_link)) |
                       ((node->right >= count) & ((rule & right_is_link) != 0)) |
                       ((node->left < 0) & ((rule & needs_left) != 0)) |
                       ((node->right < 0) & ((rule & needs_right) != 0)) | ((rule & unusable) != 0);
    return !faults &&
           (!(rule & has_bounds) || (node->right != none && minimum_of(node) <= maximum_of(node)));
}

// Tells what is wrong with a node, and ends the match. Null.
const TRexNode *refuse_node(matcher *m, const TRexNode *node);

// The node of a link that has been checked, now checked itself; null when it may not be used.
inline const TRexNode *use_node(matcher *m, int32_t index, const char *function) {
    if (!step(m, function)) {
        return nullptr;
    }
    const TRexNode *node = &m->nodes[index];
    return is_good_node(node, m->count) ? node : refuse_node(m, node);
}

// --- Single characters (tiny_rex_match.cpp) ---

constexpr int32_t lowered(int32_t code) {
    return code >= 'A' && code <= 'Z' ? code + 32 : code;
}
inline bool is_literal(const TRexNode *node) {
    return node->type < trex_op_greedy;
}
inline bool is_character(const matcher *m, const TRexNode *literal, char c) {
    const int32_t code = static_cast<unsigned char>(c);
    return code == literal->type || (m->fold && lowered(code) == lowered(literal->type));
}

bool is_in_class(matcher *m, const TRexNode *node, char c); // the three kinds of classes

inline bool takes_character(matcher *m, const TRexNode *node, char c) {
    return is_literal(node)            ? is_character(m, node, c)
           : node->type == trex_op_dot ? true
                                       : is_in_class(m, node, c);
}

// Whether a node takes one character, whatever that may be.
inline bool takes_one(const TRexNode *node) {
    return is_literal(node) || (node->type >= trex_op_dot && node->type <= trex_op_nclass);
}

// --- What rules a match out (tiny_rex_early.cpp) ---

// Whether a chain certainly fails at a place before the subject's end, without using a bad node.
bool cannot_open(matcher *m, int32_t first, const char *at);

// Whether the root, a group, certainly does not match as its sequence ends in other literals than
// the subject, or can't end in the subject's last character, and the match has nothing to report on
// its way to that answer.
bool ends_differently(matcher *m, const TRexNode *root);

} // namespace quillfence::trex
