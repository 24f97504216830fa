#include "rule_facts.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "evidence.h"
#include "me_settings.h"
#include "registry.h"

namespace quillfence::decision {
namespace {

constexpr fact_set nothing = 0;

// clang-format off
constexpr rule_facts table[] = {
    {"inbound", nothing, judged::nothing, nullptr, "", "", ""},
    {"outbound", nothing, judged::nothing, nullptr, "", "", ""},
    {"to_whitelist", fact_recipient, judged::recipient, &hook_table::recipient_whitelist, "",
     "the recipient is exempt", "the recipient is not exempt"},
    {"from_whitelist", fact_sender, judged::sender, &hook_table::sender_whitelist, "",
     "the sender is exempt", "the sender is not exempt"},
    {"ip_whitelist", fact_ip, judged::ip, &hook_table::ip_whitelist, "",
     "the client is exempt", "the client is not exempt"},
    {"block_lists", fact_ip, judged::ip, nullptr, "",
     "a block map lists the client", "no block map lists the client"},
    {"block_rbl_lists", fact_ip, judged::ip, nullptr, "A AAAA",
     "a DNS block list lists the client", "no DNS block list lists the client"},
    {"block_all_mail", nothing, judged::nothing, nullptr, "",
     "mail is taken from whitelists only", ""},
    {"block_ip_in_addr", fact_sender | fact_recipient, judged::sender, nullptr, "",
     "the domain of an address is an IP address", "neither address has an IP address for a domain"},
    {"require_helo", fact_helo, judged::helo, nullptr, "",
     "there is no HELO", "there is a HELO"},
    {"valid_helo_domain", fact_helo, judged::helo, nullptr, "",
     "the HELO is no valid domain", "the HELO is a valid domain"},
    {"block_mail_from_self", fact_sender | fact_recipient, judged::sender, nullptr, "",
     "sender and recipient are the same", "sender and recipient differ"},
    {"require_full_addr", fact_recipient, judged::recipient, nullptr, "",
     "the recipient is no full address", "the recipient is a full address"},
    {"mail_from_strict_addr_parse", fact_sender, judged::sender, nullptr, "",
     "the sender is no valid address", "the sender is a valid address"},
    {"rfc_mail_from", fact_sender | fact_ip, judged::sender, nullptr, "",
     "the sender is no valid address", "the sender is a valid address"},
    {"valid_ptr", fact_ip, judged::ptr, nullptr, "PTR",
     "no PTR name is a valid domain", "a PTR name is a valid domain"},
    {"check_ip_reverse_dns", fact_ip, judged::ip, nullptr, "PTR",
     "the client's address has no PTR name", "the client's address has a PTR name"},
    {"check_dynamic_reverse_dns_default", fact_ip, judged::ptr, nullptr, "PTR",
     "every PTR name spells an address out", "a PTR name does not spell an address out"},
    {"check_dynamic_reverse_dns", fact_ip, judged::ptr, &hook_table::dynamic_names, "PTR",
     "every PTR name matches a pattern", "a PTR name matches no pattern, or is exempt"},
    {"check_reverse_dns_list", fact_ip, judged::ptr, &hook_table::spam_names, "PTR",
     "every PTR name matches a pattern", "a PTR name matches no pattern, or is exempt"},
    {"check_confirmed_dyna", fact_ip, judged::ptr, &hook_table::confirmed_names, "PTR",
     "every PTR name matches a pattern", "a PTR name matches no pattern, or is exempt"},
    {"ip_blacklist", fact_ip, judged::ip, &hook_table::ip_blacklist, "",
     "the client is on the blacklist", "the client is not on the blacklist"},
    {"from_blacklist", fact_sender, judged::sender, &hook_table::sender_blacklist, "",
     "the sender is on the blacklist", "the sender is not on the blacklist"},
    {"helo_blacklist", fact_helo, judged::helo, &hook_table::helo_blacklist, "",
     "the HELO is on the blacklist", "the HELO is not on the blacklist"},
    {"country_blacklist", fact_ip, judged::country, &hook_table::country_blacklist, "",
     "the client's country is on the blacklist", "the client's country is not on the blacklist"},
    {"helo_whitelist", fact_helo, judged::helo, &hook_table::helo_whitelist, "",
     "the HELO is on the whitelist", "the HELO is not on the whitelist"},
    {"resolve_helo_domain", fact_helo, judged::helo, nullptr, "A AAAA MX",
     "the HELO's domain does not exist", "the HELO's domain exists"},
    {"valid_from_domain", fact_sender, judged::sender, nullptr, "A AAAA MX",
     "the sender's domain does not exist", "the sender's domain exists"},
    {"known_sender_forgery", fact_sender | fact_ip, judged::sender, nullptr, "",
     "the client may not send for the sender's domain",
     "nothing restricts who may send for the sender's domain"},
    {"local_require_auth", fact_sender | fact_authuser, judged::sender, nullptr, "",
     "the sender's domain is hosted here, and the session is not authenticated",
     "the sender's domain is not hosted here, or the session is authenticated"},
    {"block_nonauth_ipv6", fact_ip | fact_authuser, judged::ip, nullptr, "",
     "an IPv6 client without authentication", "not an IPv6 client without authentication"},
};
// clang-format on

} // namespace

static const rule_facts *find_facts(const char *rule) {
    for (const rule_facts &facts : table) {
        if (std::strcmp(facts.rule, rule) == 0) {
            return &facts;
        }
    }
    return nullptr;
}

static bool is_one_of(const char *rule, std::initializer_list<const char *> names) {
    const auto same = [rule](const char *name) { return std::strcmp(rule, name) == 0; };
    return std::any_of(names.begin(), names.end(), same);
}

static std::vector<known_rule> all_rules() {
    std::vector<known_rule> all;
    for (const rule_row &row : rule_rows()) {
        all.push_back({&row, find_facts(row.name),
                       is_one_of(row.name, {"ip_whitelist", "from_whitelist", "to_whitelist"}),
                       is_one_of(row.name, {"block_lists", "block_rbl_lists"})});
    }
    return all;
}

std::span<const known_rule> known_rules() {
    static const std::vector<known_rule> all = all_rules();
    return all;
}

size_t rule_number(const char *name, size_t likely) {
    const std::span<const rule_row> rows = rule_rows();
    size_t number = likely;
    for (size_t tried = 0; tried < rows.size(); ++tried, ++number) {
        number = number < rows.size() ? number : 0;
        if (std::strcmp(rows[number].name, name) == 0) {
            return number;
        }
    }
    return rows.size();
}

// Whether the mail server may have whitelists of its recipients, which from_whitelist asks as well.
static bool has_mailboxes() {
    const bool has = vc_regkey_exists_ex(vc_regroot::local_machine, me_key, me_configuration_value);
    tell(&evidence_sink::looked_at_registry,
         {.key = me_key, .value = me_configuration_value, .found = has});
    return has;
}

fact_set needed_facts(const known_rule &rule) {
    const rule_row &row = *rule.row;
    const rule_facts *const facts = rule.facts;
    if (facts && facts->hook && !(hooks().*facts->hook)) {
        return nothing;
    }
    if (!row.check && !rule.step) {
        return nothing;
    }
    unsigned needs = facts ? facts->needs : 0u;
    if (std::strcmp(row.name, "from_whitelist") == 0 && has_mailboxes()) {
        needs |= fact_recipient;
    }
    needs |= row.mua ? 0u : fact_mua;
    needs |= row.ndr ? 0u : fact_sender;
    needs |= row.localhost && row.ipv6 ? 0u : fact_ip;
    return static_cast<fact_set>(needs);
}

fact_set missing_facts(const transaction &of) {
    unsigned missing = 0;
    missing |= of.ip ? 0u : fact_ip;
    missing |= of.helo ? 0u : fact_helo;
    missing |= of.sender ? 0u : fact_sender;
    missing |= of.recipient ? 0u : fact_recipient;
    missing |= of.authuser ? 0u : fact_authuser;
    missing |= of.mua ? 0u : fact_mua;
    return static_cast<fact_set>(missing);
}

std::vector<std::string> fact_names(fact_set facts) {
    static constexpr struct {
        fact_set fact;
        const char *name;
    } names[] = {{fact_ip, "ip"},     {fact_authuser, "authuser"}, {fact_mua, "mua"},
                 {fact_helo, "helo"}, {fact_sender, "sender"},     {fact_recipient, "recipient"}};
    std::vector<std::string> found;
    for (const auto &entry : names) {
        if (facts & entry.fact) {
            found.emplace_back(entry.name);
        }
    }
    return found;
}

} // namespace quillfence::decision
