#include "rules.h"

#include "configuration.h"
#include "evidence.h"
#include "known_sender_forgery_funcs.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_known_sender_forgery";

static constexpr const char *valid_domain_ips = configured("control/valid_domain_ips").path;

// The sender's domain is declared, and the client lies outside of its networks.
uint8_t rule_known_sender_forgery(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (is_empty(state->mail_from)) {
        QF_REASON("MAIL FROM is empty or NULL-nothing to check");
        return 0;
    }
    if (is_empty(state->ip) || !vc_is_ip(state->ip)) {
        QF_REASON("session ip address is unknown or not an IP");
        return 0;
    }
    if (!vc_file_exists_ex(valid_domain_ips, vc_type_file)) {
        QF_REASON("valid_domain_ips files not set or missing");
        return 0;
    }
    const heap_string domain(ksf_parse_mail_from_domain(state->mail_from));
    if (is_empty(domain.get())) {
        return 0;
    }
    if (ksf_check_domain_to_ip_restriction(state->ip, domain.get(), valid_domain_ips)) {
        return 0;
    }
    QF_REASON("IP address [%s] may not send for domain [%s]", state->ip, domain.get());
    return 1;
}

} // namespace quillfence
