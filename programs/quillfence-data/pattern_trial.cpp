#include "pattern_trial.h"

namespace quillfence::data_tool {

static constexpr size_t name_length = 255;

// The literals that stand in front of the pattern's end.
static std::string tail_of(const TRex &expression) {
    std::string tail;
    for (int32_t i = expression.nodes[0].left; i >= 0; i = expression.nodes[i].next) {
        const int32_t type = expression.nodes[i].type;
        if (type < trex_op_greedy) {
            tail += static_cast<char>(type);
        } else if (type != trex_op_eol) {
            tail.clear();
        }
    }
    return tail.substr(0, name_length / 2);
}

static std::string name_of(const std::string &piece, const std::string &tail) {
    std::string name;
    while (name.size() + tail.size() < name_length) {
        name += piece;
    }
    name.resize(name_length - tail.size());
    return name + tail;
}

static bool takes_long(TRex *expression, const std::string &name) {
    __trex_match_within(expression, name.data(), name.data() + name.size(), trial_steps);
    return expression->steps >= trial_steps;
}

std::string name_that_takes_long(TRex *expression) {
    const std::string tail = tail_of(*expression);
    for (const char *piece : {"1", "a", "1-", "a-", "1.", "a."}) {
        for (const std::string &end : {tail, "_" + tail}) {
            const std::string name = name_of(piece, end);
            if (takes_long(expression, name)) {
                return name;
            }
        }
    }
    return {};
}

} // namespace quillfence::data_tool
