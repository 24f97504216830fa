#include "reverse_dns.h"

#include "vc_dns.h"
#include "vc_log.h"

namespace quillfence {

bool has_routable_client(const log_place &rule, const smtp_state *state) {
    if (!state) {
        QF_ERRNO_AT(rule, EINVAL);
        return false;
    }
    if (!state->ip) {
        QF_DEBUG_AT(rule, "no IP address found. Can't run test");
        return false;
    }
    if (!state->routable) {
        QF_DEBUG_AT(rule, "IP address is not routable, skipping rule...");
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

bool is_ptr_failure(int code) {
    return code == vc_dns_failed || code == vc_dns_invalid_argument;
}

bool has_ptr_names(const smtp_state *state) {
    return state->ptr_results && *state->ptr_results;
}

bool take_ptr_answer(const log_place &rule, smtp_state *state, int code,
                     const char *no_names_line) {
    if (is_ptr_failure(code)) {
        state->rdns_resolves = resolves_tempfail;
        QF_DEBUG_AT(rule, "%s", ptr_failure_line);
        return false;
    }
    if (code != vc_dns_found) {
        QF_DEBUG_AT(rule, "DNS NXDOMAIN. setting cache");
        state->rdns_resolves = resolves_no;
        return false;
    }
    if (!has_ptr_names(state)) {
        QF_DEBUG_AT(rule, "%s", no_names_line);
        state->rdns_resolves = resolves_tempfail;
        return false;
    }
    QF_DEBUG_AT(rule, "DNS lookup success. setting cache");
    state->rdns_resolves = resolves_yes;
    return true;
}

bool reach_ptr_names(const log_place &rule, smtp_state *state, const char *no_names_line) {
    if (!has_routable_client(rule, state)) {
        return false;
    }
    switch (state->rdns_resolves) {
    case resolves_no:
        QF_DEBUG_AT(rule, "cache shows PTR is NXDOMAIN. Can't run test");
        return false;
    case resolves_tempfail:
        QF_DEBUG_AT(rule, "cache shows PTR is temporarily unavailable");
        return false;
    case resolves_unknown:
        return take_ptr_answer(rule, state, look_up_ptr_names(state), no_names_line);
    default:
        break;
    }
    if (!has_ptr_names(state)) {
        QF_DEBUG_AT(rule, "cache shows DNS lookup error. Skipping test");
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
    return hook ? hook(state) : uint8_t{0};
}

} // namespace quillfence
