#include "process_state.h"

#include <cstdlib>

#include "hook_table.h"
#include "quillfence.h"
#include "reverse_dns.h"
#include "vc_dns.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-replayer";

// Sets a text of the session to a copy; false and an ERROR line without memory.
static bool set_copied_text(char **field, const char *text) {
    char *copy = strdup(text);
    if (!copy) {
        QF_ERRNO_AS("__process_state", ENOMEM);
        return false;
    }
    set_owned_text(field, copy);
    return true;
}

static bool is_bounce(const smtp_state *state) {
    return is_empty(state->mail_from) || _stricmp(state->mail_from, "(null)") == 0;
}

// Looks the client's names up and caches the outcome; false when the run can't go on.
static bool complete_ptr_names(smtp_state *state) {
    const int code = vc_lookup_reverse_dns(&state->ptr_results, state->ip, hooks().dns_option, 0);
    const ptr_answer answer = cache_ptr_answer(state, code, &ptr_cache_row::replay);
    if (answer == ptr_answer::names) {
        state->rdns = state->ptr_results[0];
    }
    return answer != ptr_answer::empty;
}

int __process_state(smtp_state *state) {
    if (!state) {
        return 0;
    }
    if (is_bounce(state)) {
        state->ndr = 1;
        if (!set_copied_text(&state->mail_from, "bounce message")) {
            return 0;
        }
    }
    state->localhost = is_localhost(state->ip) != 0;
    state->ipv6 = vc_is_ipv6(state->ip) != 0;
    state->routable = !vc_is_unroutable_ip(state->ip);
    if (state->routable && state->rdns_resolves == resolves_unknown && !state->rdns &&
        !complete_ptr_names(state)) {
        return 0;
    }
    return set_copied_text(&state->base_dir, quillfence_base_dir);
}

} // namespace quillfence
