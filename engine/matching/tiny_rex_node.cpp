// Whether a node may be used, and how far a match may go.
#include "evidence.h"
#include "tiny_rex_matcher.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "tiny_rex";

namespace trex {

namespace {

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

} // namespace

static fault bounds_fault(const TRexNode *greedy) {
    return greedy->right == none                     ? fault::greedy_without_right
           : greedy->left < 0                        ? fault::greedy_without_left
           : minimum_of(greedy) > maximum_of(greedy) ? fault::greedy_bounds
                                                     : fault::no_fault;
}

static fault fault_without_left(int32_t type) {
    switch (type) {
    case trex_op_or:
        return fault::or_without_left;
    case trex_op_class:
    case trex_op_nclass:
        return fault::class_without_left;
    case trex_op_range:
        return fault::range_without_left;
    default:
        return fault::expr_without_left;
    }
}

// The first fault in this order.
static fault node_fault(const TRexNode *node, int32_t count) {
    const uint8_t rule = rule_of(node->type);
    if (node->left >= count && rule & left_is_link) {
        return fault::left_out_of_range;
    }
    if (node->right >= count && rule & right_is_link) {
        return fault::right_out_of_range;
    }
    if (node->next >= count) {
        return fault::next_out_of_range;
    }
    if (rule & has_bounds) {
        return bounds_fault(node);
    }
    if (node->left < 0 && rule & needs_left) {
        return fault_without_left(node->type);
    }
    if (node->right < 0 && rule & needs_right) {
        return node->type == trex_op_or ? fault::or_without_right : fault::range_without_right;
    }
    return rule & unusable ? fault::not_printable : fault::no_fault;
}

static void report_fault(fault found, const TRexNode *node, int32_t count) {
    static constexpr char function[] = "__trex_node_is_valid";
    if (found >= fault::left_out_of_range && found <= fault::next_out_of_range) {
        tell_failure(nullptr, 0, "an expression's nodes are damaged");
    }
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

// --- Limits ---

const char *give_up(matcher *m, const char *function, const char *why) {
    if (!m->broken && !m->silent) {
        QF_ERROR_AS(function, "%s", why);
        tell_failure(nullptr, 0, why);
    }
    m->broken = true;
    return nullptr;
}
const char *cycle(matcher *m, const char *function) {
    return give_up(m, function, "corrupt regex: nodes form a cycle");
}

const char *out_of_steps(matcher *m, const char *function) {
    if (m->most_steps < trex_most_steps) {
        m->broken = true;
        return nullptr;
    }
    return give_up(m, function, "regex takes too many steps");
}

const TRexNode *refuse_node(matcher *m, const TRexNode *node) {
    if (!m->silent) {
        report_fault(node_fault(node, m->count), node, m->count);
    }
    m->broken = true;
    return nullptr;
}

} // namespace trex

int __trex_node_is_valid(const TRex *expression, const TRexNode *node) {
    using namespace trex;
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

} // namespace quillfence
