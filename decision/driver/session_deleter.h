// Who releases a session of the engine that a std::unique_ptr owns.
#pragma once

#include "smtp_state.h"

namespace quillfence::decision {

struct session_deleter {
    void operator()(smtp_state *state) const {
        free_smtp_state(state);
    }
};

} // namespace quillfence::decision
