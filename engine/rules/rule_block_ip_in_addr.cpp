#include <cstring>

#include "evidence.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_rfc.h"

namespace quillfence {

static constexpr char module_name[] = "rule_block_ip_in_addr";

namespace {

struct address_lines {
    const char *no_domain;
    const char *is_ip;
};

} // namespace

static constexpr address_lines from_lines = {
    .no_domain = "failed to find domain part of from address [%s]. Skipping",
    .is_ip = "from domain [%s] is an ip address",
};
static constexpr address_lines rcpt_lines = {
    .no_domain = "failed to find domain part of rcpt to address [%s]. Skipping",
    .is_ip = "rcpt domain [%s] is an ip address",
};

// An address literal in square brackets is no IP address here.
static bool has_ip_domain(const char *address, const address_lines &lines) {
    if (!address) {
        return false;
    }
    const char *at = strchr(address, '@');
    if (!at) {
        QF_REASON_AS("rule_block_ip_in_addr", lines.no_domain, address);
        return false;
    }
    const char *domain = at + 1;
    if (!vc_is_ip(domain)) {
        return false;
    }
    QF_REASON_AS("rule_block_ip_in_addr", lines.is_ip, domain);
    return true;
}

uint8_t rule_block_ip_in_addr(smtp_state *state) {
    if (!state) {
        QF_DEBUG("%s", strerror(EINVAL)); // not an ERROR line, unlike in the other rules
        return 0;
    }
    return has_ip_domain(state->mail_from, from_lines) || has_ip_domain(state->rcpt_to, rcpt_lines);
}

} // namespace quillfence
