#include "reverse_dns.h"

#include "evidence.h"
#include "vc_dns.h"
#include "vc_log.h"

namespace quillfence {

void tell_ptr_cache(const smtp_state *state) {
    if (state->rdns_resolves != resolves_unknown) {
        tell(&evidence_sink::cache_answered, {"rdns_resolves", state->rdns_resolves});
    }
}

bool has_routable_client(const log_place &rule, const smtp_state *state) {
    if (!state) {
        QF_ERRNO_AT(rule, EINVAL);
        return false;
    }
    if (!state->ip) {
        QF_REASON_AT(rule, "no IP address found. Can't run test");
        return false;
    }
    if (!state->routable) {
        QF_REASON_AT(rule, "IP address is not routable, skipping rule...");
        return false;
    }
    return true;
}

static int (*stand_in_for_lookup)(smtp_state *state);

void set_ptr_lookup_stand_in(int (*lookup)(smtp_state *state)) {
    stand_in_for_lookup = lookup;
}

int look_up_ptr_names(smtp_state *state) {
    if (stand_in_for_lookup) {
        return stand_in_for_lookup(state);
    }
    state->rdns = nullptr;
    return vc_lookup_reverse_dns(&state->ptr_results, state->ip, hooks().dns_option, 0);
}

bool has_ptr_names(const smtp_state *state) {
    return state->ptr_results && *state->ptr_results;
}

static ptr_answer answer_of(const smtp_state *state, int code) {
    switch (code) {
    case vc_dns_found:
        return has_ptr_names(state) ? ptr_answer::names : ptr_answer::empty;
    case vc_dns_failed:
    case vc_dns_invalid_argument:
        return ptr_answer::failed;
    default:
        return ptr_answer::no_such_name;
    }
}

ptr_answer cache_ptr_answer(smtp_state *state, int code, uint32_t ptr_cache_row::*asker) {
    const ptr_answer answer = answer_of(state, code);
    for (const ptr_cache_row &row : ptr_cache_rows) {
        if (row.answer == answer) {
            state->rdns_resolves = row.*asker;
        }
    }
    return answer;
}

// The first lookup of a session. True when there are names to test.
static bool take_ptr_answer(const log_place &rule, smtp_state *state, const char *no_names_line) {
    const int code = look_up_ptr_names(state);
    switch (cache_ptr_answer(state, code, &ptr_cache_row::name_rules)) {
    case ptr_answer::names:
        QF_REASON_AT(rule, "DNS lookup success. setting cache");
        return true;
    case ptr_answer::empty:
        QF_REASON_AT(rule, "%s", no_names_line);
        return false;
    case ptr_answer::no_such_name:
        QF_REASON_AT(rule, "DNS NXDOMAIN. setting cache");
        return false;
    default:
        QF_REASON_AT(rule, "%s", ptr_failure_line);
        return false;
    }
}

bool reach_ptr_names(const log_place &rule, smtp_state *state, const char *no_names_line) {
    if (!has_routable_client(rule, state)) {
        return false;
    }
    tell_ptr_cache(state);
    switch (state->rdns_resolves) {
    case resolves_no:
        QF_REASON_AT(rule, "cache shows PTR is NXDOMAIN. Can't run test");
        return false;
    case resolves_tempfail:
        QF_REASON_AT(rule, "cache shows PTR is temporarily unavailable");
        return false;
    case resolves_unknown:
        return take_ptr_answer(rule, state, no_names_line);
    default:
        break;
    }
    if (!has_ptr_names(state)) {
        QF_REASON_AT(rule, "cache shows DNS lookup error. Skipping test");
        return false;
    }
    return true;
}

uint8_t run_ptr_hook(const log_place &rule, session_hook hook_table::*slot, smtp_state *state,
                     const char *no_names_line) {
    if (!reach_ptr_names(rule, state, no_names_line)) {
        return 0;
    }
    const session_hook hook = hooks().*slot;
    if (!hook) {
        tell(&evidence_sink::found_empty_hook, {.rule = rule.function});
        return 0;
    }
    return hook(state);
}

} // namespace quillfence
