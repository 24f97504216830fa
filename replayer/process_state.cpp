#include "process_state.h"

#include <cstdlib>

#include "hook_table.h"
#include "quillfence.h"
#include "vc_dns.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-replayer";

// Replaces a text of the session by a copy; false and an ERROR line without memory.
static bool replace_text(char **field, const char *text) {
    char *copy = strdup(text);
    if (!copy) {
        QF_ERRNO_AS("__process_state", ENOMEM);
        return false;
    }
    free(*field);
    *field = copy;
    return true;
}

static bool is_bounce(const smtp_state *state) {
    return is_empty(state->mail_from) || _stricmp(state->mail_from, "(null)") == 0;
}

// Looks the client's names up and caches the outcome; false when the run can't go on.
static bool look_up_ptr_names(smtp_state *state) {
    switch (vc_lookup_reverse_dns(&state->ptr_results, state->ip, hooks().dns_option, 0)) {
    case vc_dns_found:
        if (!state->ptr_results || !state->ptr_results[0]) {
            return false;
        }
        state->rdns = state->ptr_results[0];
        state->rdns_resolves = resolves_yes;
        return true;
    case vc_dns_failed:
    case vc_dns_invalid_argument:
        state->rdns_resolves = resolves_tempfail;
        return true;
    default:
        state->rdns_resolves = resolves_no;
        return true;
    }
}

int __process_state(smtp_state *state) {
    if (!state) {
        return 0;
    }
    if (is_bounce(state)) {
        state->ndr = 1;
        if (!replace_text(&state->mail_from, "bounce message")) {
            return 0;
        }
    }
    state->localhost = is_localhost(state->ip) != 0;
    state->ipv6 = vc_is_ipv6(state->ip) != 0;
    state->routable = !vc_is_unroutable_ip(state->ip);
    if (state->routable && state->rdns_resolves == resolves_unknown && !state->rdns &&
        !look_up_ptr_names(state)) {
        return 0;
    }
    return replace_text(&state->base_dir, quillfence_base_dir);
}

} // namespace quillfence
