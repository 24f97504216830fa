// The check functions of the rule table. Each takes the session and returns 1 when the rule
// applies (spam for a blocking rule, exempt for a whitelist rule), 0 when it does not or cannot
// be run. A null session gives an ERROR line with the EINVAL text and 0; kept on purpose, it is a
// DEBUG line in rule_block_ip_in_addr.
#pragma once

#include <cstdint>

#include "smtp_state.h"

namespace quillfence {

// List and policy rules.
uint8_t rule_to_whitelist(smtp_state *state);
uint8_t rule_from_whitelist(smtp_state *state);
uint8_t rule_ip_whitelist(smtp_state *state);
uint8_t rule_block_all_mail(smtp_state *state);
uint8_t rule_ip_blacklist(smtp_state *state);
uint8_t rule_from_blacklist(smtp_state *state);
uint8_t rule_helo_blacklist(smtp_state *state);
uint8_t rule_helo_whitelist(smtp_state *state);
uint8_t rule_country_blacklist(smtp_state *state);
uint8_t rule_local_require_auth(smtp_state *state);
uint8_t rule_block_nonauth_ipv6(smtp_state *state);
uint8_t rule_known_sender_forgery(smtp_state *state);

// What the client says about itself.
uint8_t rule_block_ip_in_addr(smtp_state *state);
uint8_t rule_require_helo(smtp_state *state);
uint8_t rule_valid_helo_domain(smtp_state *state);
uint8_t rule_block_mail_from_self(smtp_state *state);
uint8_t rule_require_full_addr(smtp_state *state);
uint8_t rule_mail_from_strict_addr_parse(smtp_state *state);
uint8_t rule_rfc_mail_from(smtp_state *state);
uint8_t rule_resolve_helo_domain(smtp_state *state);
uint8_t rule_valid_from_domain(smtp_state *state);

// The names that the client's address resolves back to.
uint8_t rule_valid_ptr(smtp_state *state);
uint8_t rule_check_ip_reverse_dns(smtp_state *state);
uint8_t rule_check_dynamic_reverse_dns_default(smtp_state *state);
uint8_t rule_check_dynamic_reverse_dns(smtp_state *state);
uint8_t rule_check_reverse_dns_list(smtp_state *state);
uint8_t rule_check_confirmed_dyna(smtp_state *state);

} // namespace quillfence
