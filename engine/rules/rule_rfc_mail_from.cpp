#include <cstring>

#include "evidence.h"
#include "rule_support.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_rfc_mail_from";

static bool is_local_name(const char *domain) {
    return _stricmp(domain, "localhost.localdomain") == 0 || _stricmp(domain, "localhost") == 0;
}

// An IPv6 loopback client does not count as the local host here, on purpose.
static bool is_ipv4_loopback(const char *ip) {
    return ip && strcmp(ip, "127.0.0.1") == 0;
}

uint8_t rule_rfc_mail_from(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    trim_session_text(&state->mail_from);
    const char *from = state->mail_from;
    if (state->rfc != sender_format_unknown && is_empty(from)) {
        QF_REASON("argument [%s] detected as NDR. Skipping", text_or_null(from));
        return 0;
    }
    if (!from) {
        QF_REASON("from argument is NULL");
        return 1;
    }
    if (!vc_valid_email_address(from)) {
        QF_REASON("from argument failed vc_valid_email_address test");
        return 1;
    }
    const char *at = strchr(from, '@');
    if (!at) { // cannot be: a valid address has one
        QF_REASON("address [%s] does not contain '@' symbol", from);
        return 1;
    }
    if (is_local_name(at + 1) && !is_ipv4_loopback(state->ip)) {
        QF_REASON("address is claiming to come from localhost, but not really from localhost");
        return 1;
    }
    return 0;
}

} // namespace quillfence
