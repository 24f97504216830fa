// The rule table as it has to be, written out in full: the one list that the tests hold against the
// engine's.
#pragma once

#include "rules.h"
#include "vcspamrule.h"

#define HELP QUILLFENCE_HELP_SITE

namespace quillfence::testing {

struct expected_rule {
    const char *name;
    rule_check check;
    uint8_t mua, ndr, localhost, ipv6, reported;
    const char *rejection;
};

inline constexpr expected_rule expected_rules[] = {
    {"inbound", nullptr, 1, 1, 0, 0, 0, "Server %IP% has sent too much mail. Try again later."},
    {"outbound", nullptr, 1, 1, 1, 1, 0, "You have sent too much mail. Try again later."},
    {"to_whitelist", rule_to_whitelist, 1, 1, 1, 1, 0, "whitelist"},
    {"from_whitelist", rule_from_whitelist, 1, 0, 1, 1, 0, "whitelisted"},
    {"ip_whitelist", rule_ip_whitelist, 1, 1, 1, 1, 0, "whitelisted"},
    {"block_lists", nullptr, 0, 1, 0, 0, 0,
     "Server IP %IP% listed as abusive. See " HELP
     "best-practices/ip-reputation/ for more information."},
    {"block_rbl_lists", nullptr, 0, 1, 0, 0, 0,
     "Server IP %IP% listed as abusive. See " HELP
     "best-practices/ip-reputation/ for more information."},
    {"block_all_mail", rule_block_all_mail, 1, 0, 0, 1, 0,
     "Recipient %RCPT% only accepts white listed emails. See " HELP
     "best-practices/empowering-your-users/ for more information."},
    {"block_ip_in_addr", rule_block_ip_in_addr, 1, 1, 1, 1, 1,
     "The system does not allow messages that use IP addresses instead of domain names. See " HELP
     "best-practices/block-ip-in-address/ for more information."},
    {"require_helo", rule_require_helo, 1, 1, 1, 1, 1,
     "Missing HELO. See " HELP "best-practices/require-helo-identifier/ for more information."},
    {"valid_helo_domain", rule_valid_helo_domain, 0, 0, 0, 1, 1,
     "HELO argument [%HELO%] is malformed. See " HELP
     "best-practices/valid-helo-identifier/ for more information."},
    {"block_mail_from_self", rule_block_mail_from_self, 1, 0, 0, 1, 0,
     "Recipient %RCPT% does not allow messages that appear to come from themselves (possible "
     "forgery). See " HELP "best-practices/block-email-from-self/ for more information."},
    {"require_full_addr", rule_require_full_addr, 1, 1, 0, 1, 1,
     "Incomplete email address [%FROM%] [%RCPT%]. See " HELP
     "best-practices/require-full-email-address/ for more information."},
    {"mail_from_strict_addr_parse", rule_mail_from_strict_addr_parse, 1, 1, 0, 1, 0,
     "Bad or malformed FROM address [%FROM%]. See " HELP
     "best-practices/strict-address-parsing/ for more information."},
    {"rfc_mail_from", rule_rfc_mail_from, 1, 0, 0, 1, 1,
     "Email address [%FROM%] fails to meet RFC 2821 requirements. See " HELP
     "best-practices/rfc-mail-from/ for more information."},
    {"valid_ptr", rule_valid_ptr, 0, 0, 0, 0, 1,
     "Server %IP% has an invalid PTR record. See " HELP
     "best-practices/reverse-dns-naming-conventions-valid-ptr/ for more information."},
    {"check_ip_reverse_dns", rule_check_ip_reverse_dns, 0, 1, 0, 0, 1,
     "Your server IP address [%IP%] is missing a reverse DNS entry. See " HELP
     "best-practices/check-ip-reverse-dns/ for more information."},
    {"check_dynamic_reverse_dns_default", rule_check_dynamic_reverse_dns_default, 0, 1, 0, 0, 1,
     "Your server IP address [%IP%] does not have a valid reverse DNS entry [%RDNS%]. See " HELP
     "best-practices/check_dynamic_reverse_dns/ for more information."},
    {"check_dynamic_reverse_dns", rule_check_dynamic_reverse_dns, 0, 1, 0, 0, 1,
     "Your server IP address [%IP%] does not have a valid reverse DNS entry [%RDNS%]. See " HELP
     "best-practices/check_dynamic_reverse_dns/ for more information."},
    {"check_reverse_dns_list", rule_check_reverse_dns_list, 0, 1, 0, 0, 1,
     "Your server hostname [%RDNS%] for IP [%IP%] matches a pattern which was abusive in the past. "
     "See " HELP "best-practices/check_reverse_dns_list/ for more information."},
    {"check_confirmed_dyna", rule_check_confirmed_dyna, 0, 1, 0, 0, 1,
     "Your server IP address [%IP%] does not have a valid reverse DNS entry [%RDNS%]. See " HELP
     "best-practices/check_dynamic_reverse_dns/ for more information."},
    {"ip_blacklist", rule_ip_blacklist, 1, 1, 0, 1, 0,
     "Your email is rejected -- you are on the recipient's blacklist. See " HELP
     "best-practices/empowering-your-users/ for more information."},
    {"from_blacklist", rule_from_blacklist, 1, 0, 0, 1, 0,
     "Your email is rejected -- you are on the recipient's blacklist. See " HELP
     "best-practices/empowering-your-users/ for more information."},
    {"helo_blacklist", rule_helo_blacklist, 1, 1, 0, 1, 0,
     "Your server has been blacklisted. See " HELP
     "best-practices/empowering-your-users/ for more information."},
    {"country_blacklist", rule_country_blacklist, 0, 1, 0, 0, 0,
     "Your country has been blacklisted. See " HELP
     "best-practices/empowering-your-users/ for more information."},
    {"helo_whitelist", rule_helo_whitelist, 1, 1, 0, 1, 0, "whitelisted"},
    {"resolve_helo_domain", rule_resolve_helo_domain, 0, 0, 0, 1, 1,
     "HELO argument [%HELO%] is missing a DNS entry. See " HELP
     "best-practices/resolve-helo-identifier/ for more information."},
    {"valid_from_domain", rule_valid_from_domain, 1, 0, 0, 1, 1,
     "Mail from domain [%FROM%] is missing A or MX DNS record. See " HELP
     "best-practices/valid_from_address/ for more information."},
    {"known_sender_forgery", rule_known_sender_forgery, 1, 0, 0, 0, 1,
     "Mail from domain does not match with valid sender source. See " HELP
     "best-practices/known_sender_forgery/ for more information."},
    {"local_require_auth", rule_local_require_auth, 0, 0, 0, 1, 1,
     "Please check your email settings for SMTP Authentication or contact your email service "
     "provider for assistance."},
    {"block_nonauth_ipv6", rule_block_nonauth_ipv6, 0, 0, 0, 1, 1,
     "This server only accepts deliveries from IPv6 clients when they use SMTP authentication. "
     "See " HELP "best-practices/block-nonauth-ipv6/ for more information."},
};

} // namespace quillfence::testing
