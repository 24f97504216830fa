// What the six rules over the client's PTR names have in common: who can be judged at all, the
// one lookup of a session, and the moves of its cache (smtp_state::rdns_resolves). Log lines come
// from the rule's place, QF_HERE.
//
//     asked for PTR names    four name rules     rule_check_ip_reverse_dns   rule_valid_ptr
//     failed                 0, cache 3          0, cache 3                  0, cache stays 0
//     no such name           0, cache 2          1, cache 2                  1, cache stays 0
//     names                  own test, cache 1   0, cache 1                  own test, cache 1
#pragma once

#include "hook_table.h"
#include "smtp_state.h"
#include "vc_log.h"

namespace quillfence {

inline constexpr char ptr_failure_line[] = "DNS lookup failure - skipping";

// Whether the client can be judged: there is a session (null: ERROR EINVAL) with an address, which
// is routable (else a DEBUG line each).
bool has_routable_client(const log_place &rule, const smtp_state *state);

// Looks the client's PTR names up into ptr_results; the code is vc_lookup_reverse_dns's own.
// Forgets rdns first, which points into the list that may be replaced.
int look_up_ptr_names(smtp_state *state);
// Replaces the lookup for tests, which can so give answers that no server gives; null restores it.
void set_ptr_lookup_stand_in(int (*lookup)(smtp_state *state));

// Whether a code of the lookup is a failure, as opposed to "no such name".
bool is_ptr_failure(int code);

// Whether the session has at least one PTR name.
bool has_ptr_names(const smtp_state *state);

// Moves the cache on by a lookup's code. True when there are names to test.
//   no_names_line  what is written when the lookup succeeded without a name
bool take_ptr_answer(const log_place &rule, smtp_state *state, int code, const char *no_names_line);

// All that a rule needs before its own test of the names: client, cache and, if the cache is
// empty, the lookup. Without names it is false, so such a rule never fires without one.
bool reach_ptr_names(const log_place &rule, smtp_state *state,
                     const char *no_names_line = ptr_failure_line);

// The whole of a rule that leaves the test of the names to a hook; an empty slot gives 0.
uint8_t run_ptr_hook(const log_place &rule, session_hook hook_table::*slot, smtp_state *state,
                     const char *no_names_line = ptr_failure_line);

} // namespace quillfence
