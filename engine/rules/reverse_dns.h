// What those who ask for the client's PTR names have in common: who can be judged at all, the one
// lookup of a session, and the moves of its cache (smtp_state::rdns_resolves). Log lines come
// from the rule's place, QF_HERE.
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

// Whether the session has at least one PTR name.
bool has_ptr_names(const smtp_state *state);

// Tells what the session's cache of the lookup answers, if it does.
void tell_ptr_cache(const smtp_state *state);

// What the lookup found out.
enum class ptr_answer : uint8_t {
    names,
    empty, // an answer, and no name in it
    no_such_name,
    failed,
};

// What an answer leaves in the cache of a session that had not asked yet, for each who asks. The
// rules of the name rules' column need names to test; so does valid_ptr, which caches success only.
struct ptr_cache_row {
    ptr_answer answer;
    uint32_t name_rules;
    uint32_t check_ip_reverse_dns;
    uint32_t valid_ptr;
    uint32_t replay; // the replayer's own lookup, before the rules run
};

// clang-format off
inline constexpr ptr_cache_row ptr_cache_rows[] = {
    //                         name rules         check_ip_reverse_dns  valid_ptr         replay
    {ptr_answer::names,        resolves_yes,      resolves_yes,         resolves_yes,     resolves_yes},
    {ptr_answer::empty,        resolves_tempfail, resolves_yes,         resolves_unknown, resolves_unknown},
    {ptr_answer::no_such_name, resolves_no,       resolves_no,          resolves_unknown, resolves_no},
    {ptr_answer::failed,       resolves_tempfail, resolves_tempfail,    resolves_unknown, resolves_tempfail},
};
// clang-format on

// Moves the cache on by the lookup's code, as the asker's column says. Returns the code's meaning.
ptr_answer cache_ptr_answer(smtp_state *state, int code, uint32_t ptr_cache_row::*asker);

// All that a rule needs before its own test of the names: client, cache and, if the cache is
// empty, the lookup. Without names it is false, so such a rule never fires without one.
bool reach_ptr_names(const log_place &rule, smtp_state *state,
                     const char *no_names_line = ptr_failure_line);

// The whole of a rule that leaves the test of the names to a hook; an empty slot gives 0.
uint8_t run_ptr_hook(const log_place &rule, session_hook hook_table::*slot, smtp_state *state,
                     const char *no_names_line = ptr_failure_line);

} // namespace quillfence
