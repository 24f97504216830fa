// The matcher: recursive over the nodes, without allocation.
//
// Nodes are matched one after another and hardly ever tried again: an alternation keeps its first
// branch that matches, a group is not retried. Only two kinds of nodes look ahead, and both look
// at chains of nodes, linked by `next`.
//
// ".*" (trex_op_any_sequence) skips further ".*" behind it and then tries the remaining nodes of
// its own sequence at each position in turn; the first one from which they match through to an end
// node is taken, and that was the sequence. Without an end node there it never matches. At the
// subject's end it matches only when an end node is next, though where it begins earlier the end
// is the last position that it tries. As the last node of its sequence it takes the whole rest of
// the subject, which may be empty.
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
//     recursion was nearer its limit then (`failures`). A ".*" before it fails as well, then and
//     there, if between the two there are only nodes for one character each.
//   - Where the next character can't begin a match of a chain, the chain is not tried (`opening`):
//     for the whole expression, and for each position that a ".*" tries. This looks at the nodes
//     that the match itself would use until it fails, and does not judge where one of them is bad.
//   - An expression whose root's sequence ends in literals and an end node can't match a subject
//     that ends differently; nor, whatever stands before the end node, one whose last character no
//     match can end in. That is the answer where the match could have nothing to report: all nodes
//     are good and their links form a tree (`ends_differently`).
//
// Node arrays may come from a damaged file. Every node is checked when it is used, and what links
// can form beyond that is bounded: a walk along one chain by the node count, recursion by the node
// count plus 16 (a sound expression only ever goes forward), all else by a number of steps. What
// goes wrong sets `broken`, after one ERROR line, and everything returns "no match".
#include <cstring>

#include "tiny_rex_matcher.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "tiny_rex";

namespace trex {

static const char *match_chain(matcher *m, int32_t first, const char *at, const place *in,
                               bool *ended);

// --- Single characters ---

static constexpr bool is_punctuation(char c) {
    return is_printable(c) && c != ' ' && !is_alphanumeric(c);
}
static constexpr bool is_control(char c) {
    return (c >= 0 && c < 0x20) || c == 0x7F;
}
static constexpr bool is_word(char c) {
    return is_alphanumeric(c) || c == '_';
}
static constexpr bool is_hexadecimal(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Whether a character is in the class of a letter; a letter without a class holds nothing.
static bool __trex_matchcclass(int32_t letter, char c) {
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

static bool in_range(const matcher *m, const TRexNode *range, int32_t code) {
    return m->fold ? lowered(code) >= lowered(range->left) && lowered(code) <= lowered(range->right)
                   : code >= range->left && code <= range->right;
}

// Whether one of the items of a class takes the character.
static bool __trex_matchclass(matcher *m, const TRexNode *node, char c) {
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

bool is_in_class(matcher *m, const TRexNode *node, char c) {
    switch (node->type) {
    case trex_op_class:
        return __trex_matchclass(m, node, c);
    case trex_op_nclass:
        return !__trex_matchclass(m, node, c) && !m->broken;
    default:
        return __trex_matchcclass(node->left, c);
    }
}

static const char *match_character(matcher *m, const TRexNode *node, const char *at) {
    return at < m->end && takes_character(m, node, *at) ? at + 1 : nullptr;
}

static const char *match_boundary(const matcher *m, const TRexNode *node, const char *at) {
    const bool before = at > m->begin && is_word(at[-1]);
    const bool behind = at < m->end && is_word(*at);
    const bool hit = node->left == 'b'   ? before != behind
                     : node->left == 'B' ? before == behind
                                         : false;
    return hit ? at : nullptr;
}

// --- Nodes that hold others ---

// The place of the operand of a repetition, or of the body of a group that is one level deeper:
// what follows the node follows them.
static place inside(const matcher *m, const TRexNode *node, const place *in, int32_t levels) {
    const bool last = node->next < 0;
    return {
        .follow = last ? in->follow : node->next,
        .group_depth = in->group_depth + levels,
        .around = last             ? in->around
                  : in == &m->root ? &m->looked_at
                                   : in,
    };
}

static void note_group(matcher *m, const TRexNode *node, const char *from, const char *to) {
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

static const char *match_group(matcher *m, const TRexNode *node, const char *at, const place *in) {
    const place body = inside(m, node, in, 1);
    bool ended;
    const char *to = match_chain(m, node->left, at, &body, &ended);
    if (node->type == trex_op_expr) {
        note_group(m, node, at, to);
    }
    return to;
}

// An alternation on the right of another is a further branch: a loop instead of a recursion.
static const char *match_or(matcher *m, const TRexNode *node, const char *at, const place *in) {
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

static bool stands_at_root(const matcher *m, const place *in) {
    return in == &m->root || in == &m->looked_at;
}

static size_t index_of(const matcher *m, const TRexNode *node) {
    return static_cast<size_t>(node - m->nodes);
}

// The failure that is remembered of a node; null when there is none.
static const failure *failure_of(const matcher *m, const TRexNode *node) {
    const size_t place = index_of(m, node) % failure_places;
    const bool used = m->has_failures && m->failures.used[place / 64] >> (place % 64) & 1;
    const failure *known = &m->failures.places[place];
    return used && known->node == index_of(m, node) ? known : nullptr;
}

static bool has_failed(const matcher *m, const TRexNode *node, const char *at) {
    const failure *known = failure_of(m, node);
    return known && at - m->begin >= known->from && m->depth_left >= known->depth_left;
}

// Remembers a failure that says more than what is known.
static void note_failure(matcher *m, const TRexNode *node, const char *at) {
    const size_t index = index_of(m, node);
    const failure *known = failure_of(m, node);
    if (index > UINT16_MAX || at - m->begin >= (known ? int64_t{known->from} : UINT32_MAX)) {
        return;
    }
    if (!m->has_failures) {
        memset(m->failures.used, 0, sizeof m->failures.used);
        m->has_failures = true;
    }
    const size_t place = index % failure_places;
    m->failures.used[place / 64] |= uint64_t{1} << (place % 64);
    m->failures.places[place] = {static_cast<uint32_t>(at - m->begin), static_cast<uint16_t>(index),
                                 static_cast<int16_t>(m->depth_left)};
}

// Whether all items of a class pass the check.
static bool has_good_items(const matcher *m, const TRexNode *node) {
    int32_t walked = 0;
    for (int32_t index = node->left; index >= 0; index = m->nodes[index].next) {
        if (++walked > m->count || !is_good_node(&m->nodes[index], m->count)) {
            return false;
        }
    }
    return true;
}

// Whether between the beginning of a chain, all of whose nodes up to `last` have been used, and
// `last` there are nodes for one character each, and nothing that could be found wrong later.
static bool has_fixed_length(const matcher *m, int32_t first, const TRexNode *last) {
    int32_t walked = 0;
    for (int32_t index = first; index >= 0; index = m->nodes[index].next) {
        const TRexNode *node = &m->nodes[index];
        if (node == last) {
            return true;
        }
        const bool is_class = node->type == trex_op_class || node->type == trex_op_nclass;
        if (++walked > m->count || !takes_one(node) || (is_class && !has_good_items(m, node))) {
            return false;
        }
    }
    return false;
}

// The first position from `at` on where the chain may begin.
static const char *next_opening(matcher *m, int32_t first, const char *at) {
    const TRexNode *const node = &m->nodes[first];
    if (is_literal(node) && is_good_node(node, m->count)) {
        while (at < m->end && !is_character(m, node, *at)) {
            ++at;
        }
        return at;
    }
    while (at < m->end && cannot_open(m, first, at)) {
        ++at;
    }
    return at;
}

// The first position from `at` where the chain matches through to an end node.
static const char *match_somewhere(matcher *m, int32_t first, const char *at, const place *in,
                                   bool *ended) {
    const TRexNode *judged = nullptr; // a failed ".*" to which the way has no fixed length
    for (; at <= m->end && !m->broken; ++at) {
        at = next_opening(m, first, at);
        m->failed = nullptr;
        const char *to = match_chain(m, first, at, in, ended);
        if (to && *ended) {
            return to;
        }
        if (m->failed && m->failed != judged) {
            if (has_fixed_length(m, first, m->failed)) {
                break; // it would be reached again only further on
            }
            judged = m->failed;
        }
    }
    *ended = false;
    return nullptr;
}

// ".*": *ended tells whether it reached an end node, rather than the end of its sequence.
static const char *match_any_sequence(matcher *m, const TRexNode *node, const char *at,
                                      const place *in, bool *ended) {
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
    if (next < 0) {
        return m->end;
    }
    if (at == m->end && behind->type != trex_op_eol) {
        return nullptr;
    }
    const bool at_root = stands_at_root(m, in);
    if (at_root && has_failed(m, node, at)) {
        m->failed = node;
        return nullptr;
    }
    const char *to = match_somewhere(m, next, at, in, ended);
    if (!to && at_root && !m->broken) {
        note_failure(m, node, at);
        m->failed = node;
    }
    return to;
}

// --- Repetitions ---

namespace {

struct repetition {
    int32_t operand_index;
    const TRexNode *operand; // once it has been checked
    place operand_place;     // its follow is the rest
    const place *rest;       // where the rest stands
    bool decides;            // when the rest completes, so does the root's sequence
};

} // namespace

static const char *__trex_matchnode(matcher *m, const TRexNode *node, const char *at,
                                    const place *in);

static const char *match_operand(matcher *m, repetition *r, const char *at) {
    static constexpr char function[] = "__trex_matchnode";
    if (!r->operand) {
        r->operand = use_node(m, r->operand_index, function);
    } else if (!step(m, function)) {
        return nullptr;
    }
    return r->operand ? __trex_matchnode(m, r->operand, at, &r->operand_place) : nullptr;
}

static bool has_rest(const repetition *r) {
    return r->operand_place.follow >= 0;
}

static bool rest_completes(matcher *m, const repetition *r, const char *at, bool with_end) {
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
static const char *match_unbounded(matcher *m, repetition *r, const char *from, bool plus) {
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

static const char *match_optional(matcher *m, repetition *r, const char *from) {
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
static const char *match_times(matcher *m, repetition *r, const char *at, int32_t count) {
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
static const char *match_all(matcher *m, repetition *r, const char *at) {
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

static const char *match_bounded(matcher *m, repetition *r, const char *at, int32_t minimum,
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

static const char *match_greedy(matcher *m, const TRexNode *node, const char *at, const place *in) {
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

// --- Nodes and chains ---

// A node that holds others; m->depth_left bounds the recursion.
static const char *match_inner(matcher *m, const TRexNode *node, const char *at, const place *in) {
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
static const char *__trex_matchnode(matcher *m, const TRexNode *node, const char *at,
                                    const place *in) {
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
static const char *match_chain(matcher *m, int32_t first, const char *at, const place *in,
                               bool *ended) {
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

// A group at the root, whose sequence is the one that repetitions can settle. What would follow
// the root is nothing to the match, but a repetition at the end looks at it.
static const char *match_root(matcher *m, const TRexNode *root) {
    const place alone = {none, 0, nullptr};
    if (root->type != trex_op_expr && root->type != trex_op_nocapexpr) {
        return __trex_matchnode(m, root, m->begin, &alone);
    }
    if (m->begin < m->end && cannot_open(m, root->left, m->begin)) {
        return nullptr;
    }
    if (!m->expression->end_fits && ends_differently(m, root)) {
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
} // namespace trex

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
    return __trex_match_within(expression, begin, end, trex_most_steps);
}

int __trex_match_within(TRex *expression, const char *begin, const char *end, uint32_t most_steps) {
    using namespace trex;
    if (!has_nodes(expression)) {
        return 0;
    }
    expression->bol = begin;
    expression->eol = end;
    expression->currsubexp = 0;
    if (expression->matches) {
        memset(expression->matches, 0,
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
    m.most_steps = most_steps;
    m.steps_left = most_steps;
    m.depth_left = (count < max_stored_nodes ? count : max_stored_nodes) + spare_depth;
    m.begin = begin;
    m.end = end;
    m.settled = nullptr;
    m.failed = nullptr;
    m.has_failures = false;
    const TRexNode *root = use_node(&m, 0, "__trex_matchnode");
    const bool matched = root && match_root(&m, root) == end && !m.broken;
    expression->steps = most_steps - m.steps_left;
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
    return __trex_match_span(expression, subject, subject + strlen(subject));
}

} // namespace quillfence