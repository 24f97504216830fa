#include "step_budget.h"

#include "platform/thread_slot.h"

namespace quillfence {

static step_budget *current_budget() {
    return static_cast<step_budget *>(
        platform::thread_slot_get(platform::thread_slot::step_budget));
}

void begin_steps(step_budget *budget, uint64_t steps) {
    budget->left = steps;
    if (!current_budget()) {
        platform::thread_slot_set(platform::thread_slot::step_budget, budget);
    }
}

void end_steps(const step_budget *budget) {
    if (current_budget() == budget) {
        platform::thread_slot_set(platform::thread_slot::step_budget, nullptr);
    }
}

uint64_t steps_left() {
    const step_budget *const budget = current_budget();
    return budget ? budget->left : UINT64_MAX;
}

uint32_t steps_to_take(uint32_t most) {
    const uint64_t left = steps_left();
    return left < most ? static_cast<uint32_t>(left) : most;
}

void take_steps(uint64_t steps) {
    if (step_budget *const budget = current_budget()) {
        budget->left -= steps < budget->left ? steps : budget->left;
    }
}

bool steps_are_spent() {
    const step_budget *const budget = current_budget();
    return budget && budget->left == 0;
}

} // namespace quillfence
