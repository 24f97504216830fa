// How many matcher steps a run of the rules may spend on lookups in pattern files. The names that
// are looked up are a client's own, as many and as long as its DNS server likes, and one pattern
// may take the matcher's own limit for each of them.
//
// A budget belongs to the thread that has begun it. Without one a lookup knows the matcher's own
// limit alone, as in the admin tool. Lines of lists are not counted. Costs no allocation and no
// system call.
#pragma once

#include <cstdint>

namespace quillfence {

// What a run has unless its caller has begun a smaller budget: four expressions at the matcher's
// limit, and thousands of times what ordinary patterns take.
inline constexpr uint64_t run_steps = 200'000'000;

struct step_budget {
    uint64_t left;
};

// Makes the budget the calling thread's own. A thread that has one keeps it, and this one is not
// used: so whoever calls the engine may give a run less than it would give itself. Borrowed until
// it is ended.
void begin_steps(step_budget *budget, uint64_t steps);
// Takes the budget away from the thread; one that is not the thread's own stays without effect.
void end_steps(const step_budget *budget);

// What a match may take: most, or what is left where that is less.
uint32_t steps_to_take(uint32_t most);
// What is left for the matches of a lookup; without a budget as good as endless.
uint64_t steps_left();
// Counts what one or several matches have taken.
void take_steps(uint64_t steps);
// Whether the thread has a budget and nothing is left. The lookup that took the last step counts as
// ended by it, and so do all that follow.
bool steps_are_spent();

// A budget for the scope's own lifetime.
class step_scope {
  public:
    explicit step_scope(uint64_t steps) {
        begin_steps(&budget, steps);
    }
    ~step_scope() {
        end_steps(&budget);
    }
    step_scope(const step_scope &) = delete;
    step_scope &operator=(const step_scope &) = delete;

  private:
    step_budget budget = {};
};

} // namespace quillfence
