// What rules a match out before it is tried: the next character, and the subject's end.
#include <algorithm>
#include <climits>
#include <cstring>

#include "tiny_rex_matcher.h"

namespace quillfence::trex {

// --- The next character ---

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

// --- The subject's end ---

// The nodes that an expression uses: one that was compiled here has others in reserve.
static int32_t used_nodes(const matcher *m) {
    const int32_t compiled = m->expression->nsize; // 0 for a stored one
    return compiled > 0 && compiled < m->count ? compiled : m->count;
}

// Whether a sequence ends at the node, and the subject has to.
static bool is_end_node(const TRexNode *node) {
    return node->type == trex_op_eol && node->next < 0;
}

// How many literals stand in a row up to the last node.
static size_t literals_before_the_last(const matcher *m, int32_t used) {
    size_t count = 0;
    for (int32_t index = used - 2; index > 0; --index) {
        if (!is_literal(&m->nodes[index]) || m->nodes[index].next != index + 1) {
            break;
        }
        ++count;
    }
    return count;
}

// Whether the last node is an end node with literals before it, and the subject ends in other
// characters. The nodes have not been checked yet.
static bool tail_differs(const matcher *m, int32_t used) {
    if (!is_end_node(&m->nodes[used - 1])) {
        return false;
    }
    const char *at = m->end;
    for (int32_t index = used - 2; index > 0; --index) {
        const TRexNode *node = &m->nodes[index];
        if (!is_literal(node) || node->next != index + 1) {
            return false;
        }
        if (at == m->begin || !is_character(m, node, *--at)) {
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

// Adds a node that a link names, other than the `next` of the node before it; false when some other
// link names it too.
static inline bool add_link(node_set *set, const TRexNode *nodes, int32_t index) {
    if (index < 0) {
        return true;
    }
    const uint64_t bit = uint64_t{1} << (index & 63);
    uint64_t *word = &set->words[index >> 6];
    const bool is_new = !(*word & bit) && (index == 0 || nodes[index - 1].next != index);
    *word |= bit;
    return is_new;
}

// Whether every node passes the check and is linked from at most one other, the root from none, so
// that no walk from the root meets a bad node or a cycle; and whether the root's sequence leads,
// upwards only, to the last node. Most nodes are literals whose `next` is the next one.
static bool is_sound_tree_to_the_last(const matcher *m, const TRexNode *root, int32_t used) {
    const TRexNode *const nodes = m->nodes;
    node_set linked;
    memset(linked.words, 0, (static_cast<size_t>(used) + 63) / 64 * sizeof *linked.words);
    add_link(&linked, nodes, 0);
    int32_t in_sequence = root->left; // the node that is next in the root's sequence
    for (int32_t index = 0; index < used; ++index) {
        const TRexNode *node = &nodes[index];
        in_sequence = index == in_sequence && index != used - 1 ? node->next : in_sequence;
        const bool in_a_row = node->next == index + 1;
        if (in_a_row && (node->left & node->right) == none &&
            static_cast<uint32_t>(node->type - 0x20) <= 0x7E - 0x20 && node->next < used) {
            continue;
        }
        if (!is_good_node(node, used)) {
            return false;
        }
        const bool links_left = rule_of(node->type) & left_is_link;
        if (!((in_a_row || add_link(&linked, nodes, node->next)) &&
              (!links_left || add_link(&linked, nodes, node->left)) &&
              (node->type != trex_op_or || add_link(&linked, nodes, node->right)))) {
            return false;
        }
    }
    return in_sequence == used - 1;
}

// --- The last character ---

namespace {

// How a match of a node or a chain can end.
struct ending {
    bool possible; // with the character that is asked about
    bool empty;    // without having consumed anything
};

} // namespace

static constexpr ending any_ending = {true, true};
static constexpr int32_t deepest_ending = 32; // nodes that hold further ones are not judged

static ending ending_of_chain(matcher *m, int32_t index, char c, int32_t levels_left);

static ending ending_of_node(matcher *m, const TRexNode *node, char c, int32_t levels_left) {
    switch (node->type) {
    case trex_op_bol:
    case trex_op_eol:
    case trex_op_wb:
        return {false, true};
    case trex_op_expr:
    case trex_op_nocapexpr:
        return ending_of_chain(m, node->left, c, levels_left - 1);
    case trex_op_or: {
        const ending one = ending_of_chain(m, node->left, c, levels_left - 1);
        const ending other = ending_of_chain(m, node->right, c, levels_left - 1);
        return {one.possible || other.possible, one.empty || other.empty};
    }
    case trex_op_greedy: {
        const ending operand =
            levels_left ? ending_of_node(m, &m->nodes[node->left], c, levels_left - 1) : any_ending;
        return {operand.possible, operand.empty || minimum_of(node) == 0};
    }
    default:
        return takes_one(node) ? ending{takes_character(m, node, c), false} : any_ending;
    }
}

// Of nodes that are known to be good and to form a tree.
static ending ending_of_chain(matcher *m, int32_t index, char c, int32_t levels_left) {
    if (levels_left <= 0) {
        return any_ending;
    }
    ending all = {false, true};
    for (; index >= 0; index = m->nodes[index].next) {
        const ending last = ending_of_node(m, &m->nodes[index], c, levels_left);
        all = {last.possible || (last.empty && all.possible), last.empty && all.empty};
    }
    return all;
}

// Whether it may be worth asking what a match can end in: not of a ".*", nor of a literal, which
// has been compared.
static bool last_character_tells(const matcher *m, int32_t used) {
    const TRexNode *const before = used > 1 ? &m->nodes[used - 2] : nullptr;
    return before && before->type != trex_op_any_sequence &&
           !(is_literal(before) && before->next == used - 1);
}

// Whether the sequence of a sound root can match up to a character.
static bool can_end_with(matcher *m, const TRexNode *root, char c) {
    const ending last = ending_of_chain(m, root->left, c, deepest_ending);
    return last.possible || last.empty;
}

// --- Both ---

bool ends_differently(matcher *m, const TRexNode *root) {
    const int32_t used = used_nodes(m);
    if (used > max_stored_nodes || !is_end_node(&m->nodes[used - 1])) {
        return false;
    }
    if (tail_differs(m, used)) {
        return is_sound_tree_to_the_last(m, root, used);
    }
    return last_character_tells(m, used) && m->begin < m->end &&
           is_sound_tree_to_the_last(m, root, used) && !can_end_with(m, root, m->end[-1]);
}

} // namespace quillfence::trex

namespace quillfence {

// What the checks use of a matcher.
static void judge_alone(trex::matcher *m, const TRex *expression) {
    m->expression = const_cast<TRex *>(expression);
    m->nodes = expression->nodes;
    m->count = expression->nallocated;
    m->fold = expression->case_flag == trex_fold_case;
    m->broken = false;
    m->silent = true;
    m->most_steps = m->steps_left = trex_most_steps;
}

// Whether nothing but a subject's end can be wrong with a match.
static bool ends_soundly(const trex::matcher *m, int32_t used) {
    using namespace trex;
    const TRexNode *const root = &m->nodes[0];
    return (root->type == trex_op_expr || root->type == trex_op_nocapexpr) &&
           used <= max_stored_nodes && is_end_node(&m->nodes[used - 1]) &&
           is_sound_tree_to_the_last(m, root, used);
}

size_t required_ending(const TRex *expression, char *ending, size_t room) {
    using namespace trex;
    matcher m;
    judge_alone(&m, expression);
    const int32_t used = used_nodes(&m);
    if (!ends_soundly(&m, used)) {
        return 0;
    }
    const size_t length = std::min(literals_before_the_last(&m, used), room);
    for (size_t i = 0; i < length; ++i) {
        const size_t index = static_cast<size_t>(used) - 1 - length + i;
        ending[i] = static_cast<char>(m.nodes[index].type);
    }
    return length;
}

void characters_of_node(const TRex *expression, int32_t index, character_set *characters) {
    trex::matcher m;
    judge_alone(&m, expression);
    *characters = {};
    for (int c = 0; c <= UCHAR_MAX; ++c) {
        if (trex::takes_character(&m, &m.nodes[index], static_cast<char>(c))) {
            characters->add(static_cast<char>(c));
        }
    }
}

void possible_last_characters(const TRex *expression, character_set *characters) {
    using namespace trex;
    matcher m;
    judge_alone(&m, expression);
    const int32_t used = used_nodes(&m);
    const bool sound = ends_soundly(&m, used) && last_character_tells(&m, used);
    *characters = {};
    for (int c = 0; c <= UCHAR_MAX; ++c) {
        if (!sound || can_end_with(&m, &m.nodes[0], static_cast<char>(c))) {
            characters->add(static_cast<char>(c));
        }
    }
}

} // namespace quillfence
