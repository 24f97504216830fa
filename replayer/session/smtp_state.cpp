#include "smtp_state.h"

#include <cstdlib>
#include <initializer_list>

#include "vc_log.h"
#include "vc_nulltermlist.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "smtp_state";

smtp_state *new_smtp_state() {
    QF_DEBUG("Creating new smtp_state structure");
    auto *state = static_cast<smtp_state *>(calloc(1, sizeof(smtp_state)));
    if (!state) {
        QF_ENOMEM();
        return nullptr;
    }
    state->rfc = sender_format_unknown;
    state->state = stage_init;
    state->helo_resolves = resolves_unknown;
    state->mail_resolves = resolves_unknown;
    state->rdns_resolves = resolves_unknown;
    return state;
}

void free_smtp_state(smtp_state *state) {
    if (!state) {
        return;
    }
    state->rdns = nullptr;
    if (state->ptr_results) {
        vc_lstfree(&state->ptr_results, free);
    }
    if (state->user_dirs) {
        vc_destroy_list(&state->user_dirs, free);
    }
    for (char *text :
         {state->ip, state->port, state->helo, state->mail_from, state->rcpt_to, state->auth_user,
          state->ip_country, state->helo_country, state->mail_country, state->base_dir,
          state->hit_name, state->rejection_notice, state->extra}) {
        free(text);
    }
    free(state);
}

// The session's port as the dump shows it: the pointer's low bits, not the text. Kept on purpose.
static int port_as_printed(const smtp_state *state) {
    return static_cast<int>(reinterpret_cast<uintptr_t>(state->port));
}

void print_state(state_printer printer, int level, const smtp_state *state, int newline) {
    if (!printer || !state) {
        QF_EINVAL();
        return;
    }
    const char *end = newline ? "\n" : "";
    const char *mua = yes_or_no(state->mua);

    printer(level, "== BEGIN STATE STRUCTURE ==%s", end);
    printer(level, "IP[%s] COUNTRY[%s] PORT[%d] TLS[%s]%s", text_or_null(state->ip),
            text_or_null(state->ip_country), port_as_printed(state), yes_or_no(state->tls), end);
    printer(level, "RDNS[%s] (resolves: %s)%s", text_or_null(state->rdns),
            resolves_name(state->rdns_resolves), end);
    printer(level, "HELO[%s] (country: %s) (resolves: %s)%s", text_or_null(state->helo),
            text_or_null(state->helo_country), resolves_name(state->helo_resolves), end);
    printer(level, "MAIL[%s] (country: %s) (resolves: %s)%s", text_or_null(state->mail_from),
            text_or_null(state->mail_country), resolves_name(state->mail_resolves), end);
    printer(level, "RCPT[%s]%s", text_or_null(state->rcpt_to), end);
    printer(level, "AUTH[%s]%s", text_or_null(state->auth_user), end);
    printer(level, "RFC[%s]%s", yes_or_no(state->rfc), end);
    printer(level, "NDR[%s]%s", mua, end); // shows mua, not ndr: kept on purpose
    printer(level, "MUA->MTA[%s]%s", mua, end);
    printer(level, "STATE[%s]%s", state_name(state->state), end);
    printer(level, "=== END STATE STRUCTURE ===%s", end);
}

const char *state_name(uint32_t stage) {
    switch (stage) {
    case stage_init:
        return "INIT";
    case stage_helo:
        return "HELO";
    case stage_mail:
        return "MAIL";
    case stage_rcpt:
        return "RCPT";
    case stage_data:
        return "DATA";
    default:
        return "UNKNOWN";
    }
}

const char *resolves_name(uint32_t code) {
    switch (code) {
    case resolves_yes:
        return "YES";
    case resolves_no:
        return "NO";
    case resolves_tempfail:
        return "TEMPFAIL";
    default:
        return "UNKNOWN";
    }
}

} // namespace quillfence
