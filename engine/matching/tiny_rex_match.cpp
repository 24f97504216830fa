// The matcher: recursive over the nodes, without allocation.
//
// Nodes are matched one after another and hardly ever tried again: an alternation keeps its first
// branch that matches, a group is not retried. Only two kinds of nodes look ahead, and both look
// at chains of nodes, linked by `next`.
//
// ".*" (trex_op_any_sequence) skips further ".*" behind it and then tries the remaining nodes of
// its own sequence at each position in turn; the first one from which they match through to an end
// node is taken, and that was the sequence. Without an end node there it never matches. As the
// last node of its sequence it takes the whole rest of the subject. At the subject's end it
// matches only when an end node is next.
//
// A repetition looks at "the rest", the chain that follows it: the nodes behind it in its own
// sequence; for the last node of a group or the operand of another repetition, what follows that
// one, and so on outward; nothing for the last node of a branch of an alternation. The rest
// completes when each of its nodes matches and, for * and +, the last one is an end node (or a
// ".*" that found one).
//
//   *        one operand; none: zero repetitions. Then: the rest completes: stop. At the subject's
//            end: fail. One more operand; none: fail.
//   +        the same, but the first operand must match, and later failures mean "stop".
//   ?        one operand; none: zero repetitions. No rest: stop. The rest completes: stop. Else
//            zero repetitions.
//   {n}      n operands; the rest does not matter.
//   {n,m}    n operands. Without a rest, or inside a group below the root: as many operands as
//            there are, m or no m. Else: the rest completes: stop. One more operand; none, or more
//            than m: fail.
//
// All this is on purpose, the differences between the forms too. An operand that has matched
// without consuming counts as failed when one of these loops comes back to it.
//
// Some shortcuts keep this fast; none changes a result or an ERROR line, apart from the number of
// steps. The comparison with a matcher that has none of them (tests/matching/slow_matcher.cpp)
// covers them all, on damaged node arrays too.
//   - A repetition in the root's own sequence whose rest has completed has seen the whole of what
//     follows: the answer is taken (`settled`) instead of being worked out again. Rests that are
//     only asked for from inside a group or another operand decide nothing; they run in the place
//     `looked_at` instead of `root`.
//   - Where a ".*" in the root's sequence has failed, it fails at every later position, unless the
//     recursion was nearer its limit then (`failures`).
//   - Where the next character can't begin a match of a chain, the chain is not tried (`opening`):
//     for the whole expression, and for each position that a ".*" tries. This looks at the nodes
//     that the match itself would use until it fails, and does not judge where one of them is bad.
//   - An expression whose root's sequence ends in literals and an end node can't match a subject
//     that ends differently. That is the answer where the match could have nothing to report: all
//     nodes are good and their links form a tree (`tail_differs`, `is_sound_tree`).
//
// Node arrays may come from a damaged file. Every node is checked when it is used, and what links
// can form beyond that is bounded: a walk along one chain by the node count, recursion by the node
// count plus 16 (a sound expression only ever goes forward), all else by a number of steps. What
// goes wrong sets `broken`, after one ERROR line, and everything returns "no match".
#include "tiny_rex.h"

#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "tiny_rex";

namespace {

constexpr int32_t none = -1;
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION // hopeless patterns must not take all the time
constexpr uint32_t max_steps = 100'000;
#else
constexpr uint32_t max_steps = 50'000'000;
#endif
// What a file can hold at most; longer expressions, compiled at run time, have no deeper recursion
// than these, which bounds the stack.
constexpr int32_t max_stored_nodes = 4095;
constexpr int32_t spare_depth = 16;

// Where a node stands: what follows its sequence as a whole, and how many groups are around it.
struct place {
    int32_t follow; // first node of the chain that follows, or none
    int32_t group_depth;
    const place *around; // where that chain stands
};

// A ".*" of the root's sequence that has failed: it can't match from there on.
struct failure {
    const TRexNode *node;
    const char *from;
    int32_t depth_left;
};
constexpr size_t max_failures = 8;

struct matcher {
    TRex *expression;
    const TRexNode *nodes;
    int32_t count;
    bool fold;
    bool broken;
    bool silent; // nothing is reported
    uint32_t steps_left;
    int32_t depth_left;
    const char *begin;
    const char *end;
    place root;          // of the nodes in the root group
    place looked_at;     // the same for a chain that somebody only looks ahead at
    const char *settled; // where the root's sequence ends, once that is known
    bool settled_ended;  // and its `ended`
    failure failures[max_failures];
    size_t failure_count;
};

const char *match_chain(matcher *m, int32_t first, const char *at, const place *in, bool *ended);

// --- Checking nodes -----------------------------------------------------------------------------

enum class fault : uint8_t {
    no_fault,
    left_out_of_range,
    right_out_of_range,
    next_out_of_range,
    greedy_without_right,
    greedy_without_left,
    greedy_bounds,
    or_without_left,
    or_without_right,
    expr_without_left,
    class_without_left,
    range_without_left,
    range_without_right,
    not_printable,
};

int32_t minimum_of(const TRexNode *greedy) {
    return static_cast<int32_t>(static_cast<uint32_t>(greedy->right) >> 16);
}
int32_t maximum_of(const TRexNode *greedy) {
    return greedy->right & 0xFFFF;
}

// What the check asks of a type: which fields are links, and what is wrong when one is missing.
struct node_rule {
    bool left_is_link;
    bool right_is_link;
    fault without_left;
    fault without_right;
    fault always;
};
constexpr fault fine = fault::no_fault;
constexpr node_rule literal_rule = {true, true, fine, fine, fine};
constexpr node_rule unusable_rule = {true, true, fine, fine, fault::not_printable};
constexpr node_rule operator_rules[] = {
    {true, false, fault::greedy_without_left, fine, fine}, // has checks of its own
    {true, true, fault::or_without_left, fault::or_without_right, fine},
    {true, true, fault::expr_without_left, fine, fine},
    {true, true, fault::expr_without_left, fine, fine},
    {true, true, fine, fine, fine}, // any character
    {true, true, fault::class_without_left, fine, fine},
    {false, true, fine, fine, fine}, // class letter
    {true, true, fault::class_without_left, fine, fine},
    {false, false, fault::range_without_left, fault::range_without_right, fine},
    unusable_rule,                   // 265
    {true, true, fine, fine, fine},  // end
    {true, true, fine, fine, fine},  // beginning
    {false, true, fine, fine, fine}, // word boundary
    {true, true, fine, fine, fine},  // any sequence
};

const node_rule *rule_of(int32_t type) {
    if (type >= 0x20 && type <= 0x7E) {
        return &literal_rule;
    }
    return type >= trex_op_greedy && type <= trex_op_any_sequence
               ? &operator_rules[type - trex_op_greedy]
               : &unusable_rule;
}

fault bounds_fault(const TRexNode *greedy) {
    return greedy->right == none                     ? fault::greedy_without_right
           : greedy->left < 0                        ? fault::greedy_without_left
           : minimum_of(greedy) > maximum_of(greedy) ? fault::greedy_bounds
                                                     : fine;
}

// What most nodes are.
inline bool is_good_literal(const TRexNode *node, int32_t count) {
    return node->type >= 0x20 && node->type <= 0x7E && node->left < count && node->right < count &&
           node->next < count;
}

inline fault node_fault(const TRexNode *node, int32_t count) {
    if (is_good_literal(node, count)) {
        return fine;
    }
    const node_rule *rule = rule_of(node->type);
    if (node->left >= count && rule->left_is_link) {
        return fault::left_out_of_range;
    }
    if (node->right >= count && rule->right_is_link) {
        return fault::right_out_of_range;
    }
    if (node->next >= count) {
        return fault::next_out_of_range;
    }
    if (node->type == trex_op_greedy) {
        return bounds_fault(node);
    }
    if (node->left < 0 && rule->without_left != fine) {
        return rule->without_left;
    }
    if (node->right < 0 && rule->without_right != fine) {
        return rule->without_right;
    }
    return rule->always;
}

void report_fault(fault found, const TRexNode *node, int32_t count) {
    static constexpr char function[] = "__trex_node_is_valid";
    switch (found) {
    case fault::no_fault:
        return;
    case fault::left_out_of_range:
        QF_ERROR_AS(function, "corrupt regex: node->left is out of range %d > %d", node->left,
                    count);
        return;
    case fault::right_out_of_range:
        QF_ERROR_AS(function, "corrupt regex: node->right is out of range %d > %d", node->right,
                    count);
        return;
    case fault::next_out_of_range:
        QF_ERROR_AS(function, "corrupt regex: node->next is out of range %d > %d", node->next,
                    count);
        return;
    case fault::greedy_without_right:
        QF_ERROR_AS(function, "greedy operator must have value in 'right'");
        return;
    case fault::greedy_without_left:
        QF_ERROR_AS(function, "greedy operator must have value in 'left'");
        return;
    case fault::greedy_bounds:
        QF_ERROR_AS(function, "greedy operator range %d - %d is invalid", minimum_of(node),
                    maximum_of(node));
        return;
    case fault::or_without_left:
        QF_ERROR_AS(function, "OR operator must have value in 'left'");
        return;
    case fault::or_without_right:
        QF_ERROR_AS(function, "OR operator must have value in 'right'");
        return;
    case fault::expr_without_left:
        QF_ERROR_AS(function, "expr () operator must have value in 'left'");
        return;
    case fault::class_without_left:
        QF_ERROR_AS(function, "class operator must have value in 'left'");
        return;
    case fault::range_without_left:
        QF_ERROR_AS(function, "range operator must have value in 'left'");
        return;
    case fault::range_without_right:
        QF_ERROR_AS(function, "range operator must have value in 'right'");
        return;
    case fault::not_printable:
        QF_ERROR_AS(function, "non-printable character %d found", node->type);
        return;
    }
}

// --- Limits -------------------------------------------------------------------------------------

const char *give_up(matcher *m, const char *function, const char *why) {
    if (!m->broken && !m->silent) {
        QF_ERROR_AS(function, "%s", why);
    }
    m->broken = true;
    return nullptr;
}
const char *cycle(matcher *m, const char *function) {
    return give_up(m, function, "corrupt regex: nodes form a cycle");
}

bool step(matcher *m, const char *function) {
    if (m->steps_left == 0) {
        give_up(m, function, "regex takes too many steps");
        return false;
    }
    --m->steps_left;
    return true;
}

// The node of a link that has been checked, now checked itself; null when it may not be used.
inline const TRexNode *use_node(matcher *m, int32_t index, const char *function) {
    if (!step(m, function)) {
        return nullptr;
    }
    const TRexNode *node = &m->nodes[index];
    const fault found = node_fault(node, m->count);
    if (found != fault::no_fault) {
        if (!m->silent) {
            report_fault(found, node, m->count);
        }
        m->broken = true;
        return nullptr;
    }
    return node;
}

// --- Single characters --------------------------------------------------------------------------

constexpr int32_t lowered(int32_t code) {
    return code >= 'A' && code <= 'Z' ? code + 32 : code;
}
bool is_literal(const TRexNode *node) {
    return node->type < trex_op_greedy;
}
constexpr bool is_punctuation(char c) {
    return is_printable(c) && c != ' ' && !is_alphanumeric(c);
}
constexpr bool is_control(char c) {
    return (c >= 0 && c < 0x20) || c == 0x7F;
}
constexpr bool is_word(char c) {
    return is_alphanumeric(c) || c == '_';
}
constexpr bool is_hexadecimal(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Whether a character is in the class of a letter; a letter without a class holds nothing.
bool __trex_matchcclass(int32_t letter, char c) {
    switch (letter) {
    case 'a':
        return is_letter(c);
    case 'A':
        return !is_letter(c);
    case 'c':
        return is_control(c);
    case 'C':
        return !is_control(c);
    case 'd':
        return is_digit(c);
    case 'D':
        return !is_digit(c);
    case 'l':
        return is_lower(c);
    case 'p':
        return is_punctuation(c);
    case 'P':
        return !is_punctuation(c);
    case 's':
        return is_space(c);
    case 'S':
        return !is_space(c);
    case 'u':
        return is_upper(c);
    case 'w':
        return is_word(c);
    case 'W':
        return !is_word(c);
    case 'x':
        return is_hexadecimal(c);
    case 'X':
        return !is_hexadecimal(c);
    default:
        return false;
    }
}

bool in_range(const matcher *m, const TRexNode *range, int32_t code) {
    return m->fold ? lowered(code) >= lowered(range->left) && lowered(code) <= lowered(range->right)
                   : code >= range->left && code <= range->right;
}

// Whether one of the items of a class takes the character.
bool __trex_matchclass(matcher *m, const TRexNode *node, char c) {
    const int32_t code = static_cast<unsigned char>(c);
    int32_t walked = 0;
    for (int32_t index = node->left; index >= 0;) {
        if (++walked > m->count) {
            cycle(m, __func__);
            return false;
        }
        const TRexNode *item = use_node(m, index, __func__);
        if (!item) {
            return false;
        }
        const bool hit = item->type == trex_op_range    ? in_range(m, item, code)
                         : item->type == trex_op_cclass ? __trex_matchcclass(item->left, c)
                                                        : item->type == code;
        if (hit) {
            return true;
        }
        index = item->next;
    }
    return false;
}

bool is_character(const matcher *m, const TRexNode *literal, char c) {
    const int32_t code = static_cast<unsigned char>(c);
    return code == literal->type || (m->fold && lowered(code) == lowered(literal->type));
}

bool takes_character(matcher *m, const TRexNode *node, char c) {
    switch (node->type) {
    case trex_op_dot:
        return true;
    case trex_op_class:
        return __trex_matchclass(m, node, c);
    case trex_op_nclass:
        return !__trex_matchclass(m, node, c) && !m->broken;
    case trex_op_cclass:
        return __trex_matchcclass(node->left, c);
    default:
        return is_character(m, node, c);
    }
}

// Whether a node takes one character, whatever that may be.
bool takes_one(const TRexNode *node) {
    return is_literal(node) || (node->type >= trex_op_dot && node->type <= trex_op_nclass);
}

const char *match_character(matcher *m, const TRexNode *node, const char *at) {
    return at < m->end && takes_character(m, node, *at) ? at + 1 : nullptr;
}

const char *match_boundary(const matcher *m, const TRexNode *node, const char *at) {
    const bool before = at > m->begin && is_word(at[-1]);
    const bool behind = at < m->end && is_word(*at);
    const bool hit = node->left == 'b'   ? before != behind
                     : node->left == 'B' ? before == behind
                                         : false;
    return hit ? at : nullptr;
}

// --- What the next character rules out ----------------------------------------------------------

// What is known of a node or a chain from the next character alone.
enum class opening : uint8_t {
    fails,
    skipped, // it matches without consuming
    unknown,
};
// A look at more nodes than this is not worth it. Not more than spare_depth, so that the match
// itself can't meet its limit of recursion on the way.
constexpr int32_t most_looked_at = spare_depth;

opening opening_of_chain(matcher *m, int32_t index, const char *at, int32_t *looks_left);

opening opening_of_repetition(matcher *m, const TRexNode *node, const char *at,
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

opening opening_of_node(matcher *m, const TRexNode *node, const char *at, int32_t *looks_left) {
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

opening opening_of_chain(matcher *m, int32_t index, const char *at, int32_t *looks_left) {
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

// Whether a chain certainly fails at a place before the subject's end, without using a bad node.
bool cannot_open(matcher *m, int32_t first, const char *at) {
    int32_t looks_left = most_looked_at;
    m->silent = true;
    const bool fails = opening_of_chain(m, first, at, &looks_left) == opening::fails;
    m->silent = false;
    m->broken = false;
    return fails;
}

// --- Nodes that hold others ---------------------------------------------------------------------

// The place of the operand of a repetition, or of the body of a group that is one level deeper:
// what follows the node follows them.
place inside(const matcher *m, const TRexNode *node, const place *in, int32_t levels) {
    const bool last = node->next < 0;
    return {
        .follow = last ? in->follow : node->next,
        .group_depth = in->group_depth + levels,
        .around = last             ? in->around
                  : in == &m->root ? &m->looked_at
                                   : in,
    };
}

void note_group(matcher *m, const TRexNode *node, const char *from, const char *to) {
    TRex *expression = m->expression;
    const int32_t number = node->right;
    if (number < 0 || number >= expression->nsubexpr || !expression->matches) {
        return;
    }
    expression->matches[number] = {to ? from : nullptr, to ? static_cast<int32_t>(to - from) : 0};
    if (expression->currsubexp <= number) {
        expression->currsubexp = number + 1;
    }
}

const char *match_group(matcher *m, const TRexNode *node, const char *at, const place *in) {
    const place body = inside(m, node, in, 1);
    bool ended;
    const char *to = match_chain(m, node->left, at, &body, &ended);
    if (node->type == trex_op_expr) {
        note_group(m, node, at, to);
    }
    return to;
}

// An alternation on the right of another is a further branch: a loop instead of a recursion.
const char *match_or(matcher *m, const TRexNode *node, const char *at, const place *in) {
    const place branch = {none, in->group_depth, nullptr};
    bool ended;
    for (int32_t walked = 0; walked < m->count; ++walked) {
        const char *to = match_chain(m, node->left, at, &branch, &ended);
        if (to || m->broken) {
            return to;
        }
        const int32_t right = node->right;
        node = use_node(m, right, "__trex_matchnode");
        if (!node) {
            return nullptr;
        }
        if (node->type != trex_op_or || node->next >= 0) {
            return match_chain(m, right, at, &branch, &ended);
        }
    }
    return cycle(m, "__trex_matchnode");
}

bool stands_at_root(const matcher *m, const place *in) {
    return in == &m->root || in == &m->looked_at;
}

bool has_failed(const matcher *m, const TRexNode *node, const char *at) {
    for (size_t i = 0; i < m->failure_count; ++i) {
        const failure &f = m->failures[i];
        if (f.node == node) {
            return at >= f.from && m->depth_left >= f.depth_left;
        }
    }
    return false;
}

// Remembers a failure that says more than what is known.
void note_failure(matcher *m, const TRexNode *node, const char *at) {
    size_t i = 0;
    while (i < m->failure_count && m->failures[i].node != node) {
        ++i;
    }
    if (i == max_failures) {
        return;
    }
    if (i == m->failure_count) {
        ++m->failure_count;
    } else if (at >= m->failures[i].from) {
        return;
    }
    m->failures[i] = {node, at, m->depth_left};
}

// The first position from `at` where the chain matches through to an end node.
const char *match_somewhere(matcher *m, int32_t first, const char *at, const place *in,
                            bool *ended) {
    for (; at <= m->end && !m->broken; ++at) {
        if (at < m->end && cannot_open(m, first, at)) {
            continue;
        }
        const char *to = match_chain(m, first, at, in, ended);
        if (to && *ended) {
            return to;
        }
    }
    *ended = false;
    return nullptr;
}

// ".*": *ended tells whether it reached an end node, rather than the end of its sequence.
const char *match_any_sequence(matcher *m, const TRexNode *node, const char *at, const place *in,
                               bool *ended) {
    static constexpr char function[] = "__trex_matchnode";
    *ended = false;
    int32_t next = node->next;
    const TRexNode *behind = nullptr;
    for (int32_t walked = 0; next >= 0; next = behind->next) {
        behind = use_node(m, next, function);
        if (!behind) {
            return nullptr;
        }
        if (behind->type != trex_op_any_sequence) {
            break;
        }
        if (++walked > m->count) {
            return cycle(m, function);
        }
    }
    if (at == m->end && (next < 0 || behind->type != trex_op_eol)) {
        return nullptr;
    }
    if (next < 0) {
        return m->end;
    }
    const bool at_root = stands_at_root(m, in);
    if (at_root && has_failed(m, node, at)) {
        return nullptr;
    }
    const char *to = match_somewhere(m, next, at, in, ended);
    if (!to && at_root && !m->broken) {
        note_failure(m, node, at);
    }
    return to;
}

// --- Repetitions --------------------------------------------------------------------------------

struct repetition {
    int32_t operand_index;
    const TRexNode *operand; // once it has been checked
    place operand_place;     // its follow is the rest
    const place *rest;       // where the rest stands
    bool decides;            // when the rest completes, so does the root's sequence
};

const char *__trex_matchnode(matcher *m, const TRexNode *node, const char *at, const place *in);

const char *match_operand(matcher *m, repetition *r, const char *at) {
    static constexpr char function[] = "__trex_matchnode";
    if (!r->operand) {
        r->operand = use_node(m, r->operand_index, function);
    } else if (!step(m, function)) {
        return nullptr;
    }
    return r->operand ? __trex_matchnode(m, r->operand, at, &r->operand_place) : nullptr;
}

bool has_rest(const repetition *r) {
    return r->operand_place.follow >= 0;
}

bool rest_completes(matcher *m, const repetition *r, const char *at, bool with_end) {
    bool ended;
    if (with_end && !has_rest(r)) {
        return false;
    }
    const char *to = match_chain(m, r->operand_place.follow, at, r->rest, &ended);
    if (!to || (with_end && !ended)) {
        return false;
    }
    if (r->decides) {
        m->settled = to;
        m->settled_ended = ended;
    }
    return true;
}

// * and +. They differ at the subject's end and when a later operand fails: there * fails where +
// stops.
const char *match_unbounded(matcher *m, repetition *r, const char *from, bool plus) {
    const char *at = match_operand(m, r, from);
    if (!at) {
        return plus || m->broken ? nullptr : from;
    }
    for (;;) {
        if (rest_completes(m, r, at, true)) {
            return at;
        }
        if (m->broken) {
            return nullptr;
        }
        const bool moved = at != from;
        from = at;
        at = at < m->end && moved ? match_operand(m, r, at) : nullptr;
        if (!at) {
            return plus && !m->broken ? from : nullptr;
        }
    }
}

const char *match_optional(matcher *m, repetition *r, const char *from) {
    const char *at = match_operand(m, r, from);
    if (m->broken) {
        return nullptr;
    }
    if (!at) {
        return from;
    }
    if (!has_rest(r) || rest_completes(m, r, at, false)) {
        return at;
    }
    return m->broken ? nullptr : from;
}

// The operand count times in a row. Where it consumes nothing, one match is as good as all.
const char *match_times(matcher *m, repetition *r, const char *at, int32_t count) {
    for (; at && count > 0; --count) {
        const char *to = match_operand(m, r, at);
        if (to == at) {
            return at;
        }
        at = to;
    }
    return at;
}

// As many operands as there are.
const char *match_all(matcher *m, repetition *r, const char *at) {
    for (;;) {
        const char *to = match_operand(m, r, at);
        if (m->broken) {
            return nullptr;
        }
        if (!to || to == at) {
            return at;
        }
        at = to;
    }
}

const char *match_bounded(matcher *m, repetition *r, const char *at, int32_t minimum,
                          int32_t maximum) {
    at = match_times(m, r, at, minimum);
    if (!at) {
        return nullptr;
    }
    if (!has_rest(r) || r->operand_place.group_depth >= 2) {
        return match_all(m, r, at);
    }
    for (int32_t count = minimum; count <= maximum; ++count) {
        if (rest_completes(m, r, at, false)) {
            return at;
        }
        const char *to = m->broken ? nullptr : match_operand(m, r, at);
        if (!to || to == at) {
            return nullptr;
        }
        at = to;
    }
    return nullptr;
}

const char *match_greedy(matcher *m, const TRexNode *node, const char *at, const place *in) {
    const bool decides = in == &m->root && node->next >= 0;
    repetition r = {node->left, nullptr, inside(m, node, in, 0), nullptr, decides};
    r.rest = decides ? in : r.operand_place.around;
    const int32_t minimum = minimum_of(node);
    const int32_t maximum = maximum_of(node);
    if (minimum <= 1 && maximum == trex_unbounded) {
        return match_unbounded(m, &r, at, minimum == 1);
    }
    if (minimum == 0 && maximum == 1) {
        return match_optional(m, &r, at);
    }
    if (minimum == maximum) {
        return match_times(m, &r, at, minimum);
    }
    return match_bounded(m, &r, at, minimum, maximum);
}

// --- Nodes and chains ---------------------------------------------------------------------------

// A node that holds others; m->depth_left bounds the recursion.
const char *match_inner(matcher *m, const TRexNode *node, const char *at, const place *in) {
    if (m->depth_left == 0) {
        return cycle(m, "__trex_matchnode");
    }
    --m->depth_left;
    bool ended;
    const char *to = nullptr;
    switch (node->type) {
    case trex_op_greedy:
        to = match_greedy(m, node, at, in);
        break;
    case trex_op_or:
        to = match_or(m, node, at, in);
        break;
    case trex_op_any_sequence:
        to = match_any_sequence(m, node, at, in, &ended);
        break;
    default:
        to = match_group(m, node, at, in);
        break;
    }
    ++m->depth_left;
    return to;
}

// Where a checked node's match from `at` ends, or null.
const char *__trex_matchnode(matcher *m, const TRexNode *node, const char *at, const place *in) {
    switch (node->type) {
    case trex_op_greedy:
    case trex_op_or:
    case trex_op_expr:
    case trex_op_nocapexpr:
    case trex_op_any_sequence:
        return match_inner(m, node, at, in);
    case trex_op_range: // is at home in classes only
        return nullptr;
    case trex_op_eol:
        return at == m->end ? at : nullptr;
    case trex_op_bol:
        return at == m->begin ? at : nullptr;
    case trex_op_wb:
        return match_boundary(m, node, at);
    default:
        return match_character(m, node, at);
    }
}

// Matches the nodes of a chain one after another. Returns where the last one ended, or null;
// *ended tells whether that was an end node, or a ".*" that found one: a ".*" matches all that is
// behind it in the chain.
const char *match_chain(matcher *m, int32_t first, const char *at, const place *in, bool *ended) {
    static constexpr char function[] = "__trex_matchnode";
    *ended = false;
    int32_t walked = 0;
    for (int32_t index = first; index >= 0;) {
        if (++walked > m->count) {
            return cycle(m, function);
        }
        const TRexNode *node = use_node(m, index, function);
        if (!node) {
            return nullptr;
        }
        index = node->next;
        if (is_literal(node)) {
            if (at == m->end || !is_character(m, node, *at)) {
                return nullptr;
            }
            ++at;
            *ended = false;
            continue;
        }
        if (node->type == trex_op_any_sequence) {
            if (m->depth_left == 0) {
                return cycle(m, function);
            }
            --m->depth_left;
            at = match_any_sequence(m, node, at, in, ended);
            ++m->depth_left;
            return at;
        }
        at = __trex_matchnode(m, node, at, in);
        if (!at) {
            return nullptr;
        }
        if (m->settled) {
            at = m->settled;
            m->settled = nullptr;
            *ended = m->settled_ended;
            return at;
        }
        *ended = node->type == trex_op_eol;
    }
    return at;
}

// Whether the root's sequence ends in literals and an end node, and the subject in other
// characters. The nodes have not been checked yet.
bool tail_differs(const matcher *m, const TRexNode *root) {
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

// Marks of nodes, one bit each.
struct node_set {
    uint64_t words[(max_stored_nodes + 64) / 64];
};

// Adds a node that a link names; false when it was there already.
bool add_link(node_set *set, int32_t index) {
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
bool is_sound_tree(const matcher *m) {
    const int32_t compiled = m->expression->nsize; // 0 for a stored one
    const int32_t used = compiled > 0 && compiled < m->count ? compiled : m->count;
    if (used > max_stored_nodes) {
        return false;
    }
    node_set linked;
    ::memset(linked.words, 0, (static_cast<size_t>(used) + 63) / 64 * sizeof *linked.words);
    add_link(&linked, 0);
    for (const TRexNode *node = m->nodes; node < m->nodes + used; ++node) {
        if (is_good_literal(node, used)) {
            if (!add_link(&linked, node->next)) {
                return false;
            }
            continue;
        }
        const bool good = node_fault(node, used) == fine && add_link(&linked, node->next) &&
                          (!rule_of(node->type)->left_is_link || add_link(&linked, node->left)) &&
                          (node->type != trex_op_or || add_link(&linked, node->right));
        if (!good) {
            return false;
        }
    }
    return true;
}

// A group at the root, whose sequence is the one that repetitions can settle. What would follow
// the root is nothing to the match, but a repetition at the end looks at it.
const char *match_root(matcher *m, const TRexNode *root) {
    const place alone = {none, 0, nullptr};
    if (root->type != trex_op_expr && root->type != trex_op_nocapexpr) {
        return __trex_matchnode(m, root, m->begin, &alone);
    }
    if (m->begin < m->end && cannot_open(m, root->left, m->begin)) {
        return nullptr;
    }
    if (tail_differs(m, root) && is_sound_tree(m)) {
        return nullptr;
    }
    // Twice, as copying what has just been written piece by piece would stall.
    m->root = inside(m, root, &alone, 1);
    m->looked_at = inside(m, root, &alone, 1);
    --m->depth_left;
    bool ended;
    const char *to = match_chain(m, root->left, m->begin, &m->root, &ended);
    if (root->type == trex_op_expr) {
        note_group(m, root, m->begin, to);
    }
    return to;
}

} // namespace

int __trex_node_is_valid(const TRex *expression, const TRexNode *node) {
    if (!expression) {
        QF_ERROR("TRex* is NULL");
        return 0;
    }
    if (!node) {
        QF_ERROR("node is NULL");
        return 0;
    }
    const fault found = node_fault(node, expression->nallocated);
    if (found != fault::no_fault) {
        report_fault(found, node, expression->nallocated);
        return 0;
    }
    return 1;
}

// Whether there is anything to match with; an ERROR line of trex_match when not.
static bool has_nodes(const TRex *expression) {
    if (!expression) {
        QF_ERROR_AS("trex_match", "TRex* is NULL");
        return false;
    }
    if (!expression->nodes || expression->nallocated <= 0) {
        QF_ERROR_AS("trex_match", "node is NULL");
        return false;
    }
    return true;
}

int __trex_match_span(TRex *expression, const char *begin, const char *end) {
    if (!has_nodes(expression)) {
        return 0;
    }
    expression->bol = begin;
    expression->eol = end;
    expression->currsubexp = 0;
    if (expression->matches) {
        ::memset(expression->matches, 0,
                 static_cast<size_t>(expression->nsubexpr) * sizeof(TRexMatch));
    }
    const int32_t count = expression->nallocated;
    matcher m; // filled by hand: nothing here needs clearing more than it says
    m.expression = expression;
    m.nodes = expression->nodes;
    m.count = count;
    m.fold = expression->case_flag == trex_fold_case;
    m.broken = false;
    m.silent = false;
    m.steps_left = max_steps;
    m.depth_left = (count < max_stored_nodes ? count : max_stored_nodes) + spare_depth;
    m.begin = begin;
    m.end = end;
    m.settled = nullptr;
    m.failure_count = 0;
    const TRexNode *root = use_node(&m, 0, "__trex_matchnode");
    const bool matched = root && match_root(&m, root) == end && !m.broken;
    expression->steps = max_steps - m.steps_left;
    return matched;
}

int trex_match(TRex *expression, const char *subject) {
    if (!has_nodes(expression)) {
        return 0;
    }
    if (!subject) {
        QF_EINVAL();
        return 0;
    }
    return __trex_match_span(expression, subject, subject + ::strlen(subject));
}

} // namespace quillfence
