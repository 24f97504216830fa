// What rules a match out before it is tried: the next character, and the subject's end.
#include <cstring>

#include "tiny_rex_matcher.h"

namespace quillfence::trex {

// --- The next character -------------------------------------------------------------------------

namespace {

// What is known of a node or a chain from the next character alone.
enum class opening : uint8_t {
    fails,
    skipped, // it matches without consuming
    unknown,
};

} // namespace

// A look at more nodes than this is not worth it. Not more than spare_depth, so that the match
// itself can't meet its limit of recursion on the way.
static constexpr int32_t most_looked_at = spare_depth;

static opening opening_of_chain(matcher *m, int32_t index, const char *at, int32_t *looks_left);

static opening opening_of_repetition(matcher *m, const TRexNode *node, const char *at,
                                     int32_t *looks_left) {
    const int32_t minimum = minimum_of(node);
    const int32_t maximum = maximum_of(node);
    const bool optional = minimum == 0 && (maximum == 1 || maximum == trex_unbounded);
    if (minimum == 0 && !optional) {
        return opening::unknown; // the rest comes first
    }
    const TRexNode *operand = use_node(m, node->left, "__trex_matchnode");
    if (!operand) {
        return opening::unknown;
    }
    // The operand is a chain of this one node.
    const bool group = operand->type == trex_op_expr || operand->type == trex_op_nocapexpr;
    const bool fails = takes_one(operand) ? !takes_character(m, operand, *at)
                                          : group && opening_of_chain(m, operand->left, at,
                                                                      looks_left) == opening::fails;
    if (m->broken || !fails) {
        return opening::unknown;
    }
    return optional ? opening::skipped : opening::fails;
}

static opening opening_of_node(matcher *m, const TRexNode *node, const char *at,
                               int32_t *looks_left) {
    switch (node->type) {
    case trex_op_bol:
        return at == m->begin ? opening::skipped : opening::fails;
    case trex_op_expr:
    case trex_op_nocapexpr:
        return opening_of_chain(m, node->left, at, looks_left) == opening::fails ? opening::fails
                                                                                 : opening::unknown;
    case trex_op_greedy:
        return opening_of_repetition(m, node, at, looks_left);
    default:
        return takes_one(node) && !takes_character(m, node, *at) ? opening::fails
                                                                 : opening::unknown;
    }
}

static opening opening_of_chain(matcher *m, int32_t index, const char *at, int32_t *looks_left) {
    while (index >= 0 && --*looks_left > 0) {
        const TRexNode *node = use_node(m, index, "__trex_matchnode");
        const opening found = node ? opening_of_node(m, node, at, looks_left) : opening::unknown;
        if (found != opening::skipped) {
            return m->broken ? opening::unknown : found;
        }
        index = node->next;
    }
    return opening::unknown;
}

bool cannot_open(matcher *m, int32_t first, const char *at) {
    int32_t looks_left = most_looked_at;
    m->silent = true;
    const bool fails = opening_of_chain(m, first, at, &looks_left) == opening::fails;
    m->silent = false;
    m->broken = false;
    return fails;
}

// --- The subject's end --------------------------------------------------------------------------

// Whether the root's sequence ends in literals and an end node, and the subject in other
// characters. The nodes have not been checked yet.
static bool tail_differs(const matcher *m, const TRexNode *root) {
    int32_t first = none; // of the literals that stand in a row at the end
    int32_t length = 0;
    const TRexNode *last = root;
    int32_t index = root->left;
    for (int32_t walked = 0; index >= 0; index = last->next) {
        if (index >= m->count || ++walked > m->count) {
            return false;
        }
        last = &m->nodes[index];
        if (is_literal(last)) {
            first = length == 0 ? index : first;
            ++length;
        } else if (last->type != trex_op_eol || last->next >= 0) {
            length = 0;
        }
    }
    if (last->type != trex_op_eol || length == 0) {
        return false;
    }
    if (m->end - m->begin < length) {
        return true;
    }
    const char *at = m->end - length;
    for (index = first; length > 0; --length, index = m->nodes[index].next) {
        if (!is_character(m, &m->nodes[index], *at++)) {
            return true;
        }
    }
    return false;
}

namespace {

// Marks of nodes, one bit each.
struct node_set {
    uint64_t words[(max_stored_nodes + 64) / 64];
};

} // namespace

// Adds a node that a link names; false when it was there already.
static bool add_link(node_set *set, int32_t index) {
    if (index < 0) {
        return true;
    }
    const uint64_t bit = uint64_t{1} << (index & 63);
    uint64_t *word = &set->words[index >> 6];
    const bool is_new = !(*word & bit);
    *word |= bit;
    return is_new;
}

// Whether every node passes the check and is linked from at most one other, the root from none:
// no walk from the root meets a bad node or a cycle. An expression that was compiled here has
// nodes in reserve, which are not looked at.
static bool is_sound_tree(const matcher *m) {
    const int32_t compiled = m->expression->nsize; // 0 for a stored one
    const int32_t used = compiled > 0 && compiled < m->count ? compiled : m->count;
    if (used > max_stored_nodes) {
        return false;
    }
    node_set linked;
    memset(linked.words, 0, (static_cast<size_t>(used) + 63) / 64 * sizeof *linked.words);
    add_link(&linked, 0);
    for (const TRexNode *node = m->nodes; node < m->nodes + used; ++node) {
        if (is_good_literal(node, used)) {
            if (!add_link(&linked, node->next)) {
                return false;
            }
            continue;
        }
        const bool good = is_good_node(node, used) && add_link(&linked, node->next) &&
                          (!left_is_link(node->type) || add_link(&linked, node->left)) &&
                          (node->type != trex_op_or || add_link(&linked, node->right));
        if (!good) {
            return false;
        }
    }
    return true;
}

bool ends_differently(const matcher *m, const TRexNode *root) {
    return tail_differs(m, root) && is_sound_tree(m);
}

} // namespace quillfence::trex
