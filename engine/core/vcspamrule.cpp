#include "vcspamrule.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rules.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vcspamrule";

// --- The table ---

namespace {

// The page paths mix hyphens and underscores: they name existing pages.
constexpr rule_message too_much_mail_from_server = {
    "Server %IP% has sent too much mail. Try again later.", nullptr};
constexpr rule_message too_much_mail = {"You have sent too much mail. Try again later.", nullptr};
constexpr rule_message accepted_recipient = {"whitelist", nullptr};
constexpr rule_message accepted = {"whitelisted", nullptr};
constexpr rule_message listed_ip = {"Server IP %IP% listed as abusive.", "ip-reputation/"};
constexpr rule_message whitelisted_mail_only = {
    "Recipient %RCPT% only accepts white listed emails.", "empowering-your-users/"};
constexpr rule_message ip_in_address = {
    "The system does not allow messages that use IP addresses instead of domain names.",
    "block-ip-in-address/"};
constexpr rule_message missing_helo = {"Missing HELO.", "require-helo-identifier/"};
constexpr rule_message malformed_helo = {"HELO argument [%HELO%] is malformed.",
                                         "valid-helo-identifier/"};
constexpr rule_message mail_from_self = {
    "Recipient %RCPT% does not allow messages that appear to come from themselves (possible "
    "forgery).",
    "block-email-from-self/"};
constexpr rule_message incomplete_address = {"Incomplete email address [%FROM%] [%RCPT%].",
                                             "require-full-email-address/"};
constexpr rule_message malformed_from = {"Bad or malformed FROM address [%FROM%].",
                                         "strict-address-parsing/"};
constexpr rule_message from_outside_rfc = {
    "Email address [%FROM%] fails to meet RFC 2821 requirements.", "rfc-mail-from/"};
constexpr rule_message invalid_ptr = {"Server %IP% has an invalid PTR record.",
                                      "reverse-dns-naming-conventions-valid-ptr/"};
constexpr rule_message missing_reverse_dns = {
    "Your server IP address [%IP%] is missing a reverse DNS entry.", "check-ip-reverse-dns/"};
constexpr rule_message dynamic_reverse_dns = {
    "Your server IP address [%IP%] does not have a valid reverse DNS entry [%RDNS%].",
    "check_dynamic_reverse_dns/"};
constexpr rule_message abusive_name = {
    "Your server hostname [%RDNS%] for IP [%IP%] matches a pattern which was abusive in the past.",
    "check_reverse_dns_list/"};
constexpr rule_message blacklisted_sender = {
    "Your email is rejected -- you are on the recipient's blacklist.", "empowering-your-users/"};
constexpr rule_message blacklisted_server = {"Your server has been blacklisted.",
                                             "empowering-your-users/"};
constexpr rule_message blacklisted_country = {"Your country has been blacklisted.",
                                              "empowering-your-users/"};
constexpr rule_message helo_without_dns = {"HELO argument [%HELO%] is missing a DNS entry.",
                                           "resolve-helo-identifier/"};
constexpr rule_message from_without_dns = {
    "Mail from domain [%FROM%] is missing A or MX DNS record.", "valid_from_address/"};
constexpr rule_message forged_sender = {"Mail from domain does not match with valid sender source.",
                                        "known_sender_forgery/"};
constexpr rule_message authentication_needed = {
    "Please check your email settings for SMTP Authentication or contact your email service "
    "provider for assistance.",
    nullptr};
constexpr rule_message authentication_needed_ipv6 = {
    "This server only accepts deliveries from IPv6 clients when they use SMTP authentication.",
    "block-nonauth-ipv6/"};

// clang-format off
constexpr rule_row rows[] = { // in running order: the first hit wins
    //                                                                     mua ndr local ipv6 reported
    {"inbound",                           nullptr,                                1, 1, 0, 0, 0, &too_much_mail_from_server},
    {"outbound",                          nullptr,                                1, 1, 1, 1, 0, &too_much_mail},
    {"to_whitelist",                      rule_to_whitelist,                      1, 1, 1, 1, 0, &accepted_recipient},
    {"from_whitelist",                    rule_from_whitelist,                    1, 0, 1, 1, 0, &accepted},
    {"ip_whitelist",                      rule_ip_whitelist,                      1, 1, 1, 1, 0, &accepted},
    {"block_lists",                       nullptr,                                0, 1, 0, 0, 0, &listed_ip},
    {"block_rbl_lists",                   nullptr,                                0, 1, 0, 0, 0, &listed_ip},
    {"block_all_mail",                    rule_block_all_mail,                    1, 0, 0, 1, 0, &whitelisted_mail_only},
    {"block_ip_in_addr",                  rule_block_ip_in_addr,                  1, 1, 1, 1, 1, &ip_in_address},
    {"require_helo",                      rule_require_helo,                      1, 1, 1, 1, 1, &missing_helo},
    {"valid_helo_domain",                 rule_valid_helo_domain,                 0, 0, 0, 1, 1, &malformed_helo},
    {"block_mail_from_self",              rule_block_mail_from_self,              1, 0, 0, 1, 0, &mail_from_self},
    {"require_full_addr",                 rule_require_full_addr,                 1, 1, 0, 1, 1, &incomplete_address},
    {"mail_from_strict_addr_parse",       rule_mail_from_strict_addr_parse,       1, 1, 0, 1, 0, &malformed_from},
    {"rfc_mail_from",                     rule_rfc_mail_from,                     1, 0, 0, 1, 1, &from_outside_rfc},
    {"valid_ptr",                         rule_valid_ptr,                         0, 0, 0, 0, 1, &invalid_ptr},
    {"check_ip_reverse_dns",              rule_check_ip_reverse_dns,              0, 1, 0, 0, 1, &missing_reverse_dns},
    {"check_dynamic_reverse_dns_default", rule_check_dynamic_reverse_dns_default, 0, 1, 0, 0, 1, &dynamic_reverse_dns},
    {"check_dynamic_reverse_dns",         rule_check_dynamic_reverse_dns,         0, 1, 0, 0, 1, &dynamic_reverse_dns},
    {"check_reverse_dns_list",            rule_check_reverse_dns_list,            0, 1, 0, 0, 1, &abusive_name},
    {"check_confirmed_dyna",              rule_check_confirmed_dyna,              0, 1, 0, 0, 1, &dynamic_reverse_dns},
    {"ip_blacklist",                      rule_ip_blacklist,                      1, 1, 0, 1, 0, &blacklisted_sender},
    {"from_blacklist",                    rule_from_blacklist,                    1, 0, 0, 1, 0, &blacklisted_sender},
    {"helo_blacklist",                    rule_helo_blacklist,                    1, 1, 0, 1, 0, &blacklisted_server},
    {"country_blacklist",                 rule_country_blacklist,                 0, 1, 0, 0, 0, &blacklisted_country},
    {"helo_whitelist",                    rule_helo_whitelist,                    1, 1, 0, 1, 0, &accepted},
    {"resolve_helo_domain",               rule_resolve_helo_domain,               0, 0, 0, 1, 1, &helo_without_dns},
    {"valid_from_domain",                 rule_valid_from_domain,                 1, 0, 0, 1, 1, &from_without_dns},
    {"known_sender_forgery",              rule_known_sender_forgery,              1, 0, 0, 0, 1, &forged_sender},
    {"local_require_auth",                rule_local_require_auth,                0, 0, 0, 1, 1, &authentication_needed},
    {"block_nonauth_ipv6",                rule_block_nonauth_ipv6,                0, 0, 0, 1, 1, &authentication_needed_ipv6},
};
// clang-format on

} // namespace

std::span<const rule_row> rule_rows() {
    return rows;
}

const char *help_site() {
    return QUILLFENCE_HELP_SITE;
}

// --- Rules ---

spam_rule *new_rule(const char *name, rule_check check, uint8_t mua, uint8_t ndr, uint8_t localhost,
                    uint8_t ipv6, const char *rejection) {
    if (is_empty(name) || is_empty(rejection)) {
        QF_EINVAL();
        return nullptr;
    }
    auto *rule = static_cast<spam_rule *>(calloc(1, sizeof(spam_rule)));
    if (rule) {
        *rule = {.name = strdup(name),
                 .check = check,
                 .rejection = strdup(rejection),
                 .mua = mua,
                 .ndr = ndr,
                 .localhost = localhost,
                 .ipv6 = ipv6};
    }
    if (!rule || !rule->name || !rule->rejection) {
        free_rule(rule);
        QF_ENOMEM();
        return nullptr;
    }
    return rule;
}

void free_rule(spam_rule *rule) {
    if (!rule) {
        return;
    }
    free(rule->name);
    free(rule->rejection);
    free(rule);
}

void free_rule_data(void *rule) {
    free_rule(static_cast<spam_rule *>(rule));
}

int rule_name_compare(const spam_rule *rule, const char *name) {
    if (!rule || !name || !rule->name) {
        return -1;
    }
    return strcmp(rule->name, name);
}

spam_rule *find_rule(vc_list_entry *rules, const char *name) {
    if (!rules || is_empty(name)) {
        return nullptr;
    }
    const auto compare = [](const void *rule, const void *wanted, size_t) {
        return rule_name_compare(static_cast<const spam_rule *>(rule),
                                 static_cast<const char *>(wanted));
    };
    const vc_list_entry *found = vc_list_search(rules, name, strlen(name), compare);
    return found ? static_cast<spam_rule *>(found->data) : nullptr;
}

// The whole rejection text of a message, null without memory.
static heap_string rejection_text(const rule_message *message) {
    char *text = nullptr;
    if (message->page) {
        vc_asprintf(&text, "%s See %sbest-practices/%s for more information.", message->body,
                    help_site(), message->page);
    } else {
        vc_asprintf(&text, "%s", message->body);
    }
    return heap_string(text);
}

vc_list_entry *build_rule_table() {
    static constexpr uint64_t element_size = 32; // kept on purpose: not the record's size
    vc_list_entry *rules = nullptr;
    for (const rule_row &row : rows) {
        const heap_string text = rejection_text(row.message);
        spam_rule *rule = text ? new_rule(row.name, row.check, row.mua, row.ndr, row.localhost,
                                          row.ipv6, text.get())
                               : nullptr;
        if (rule && vc_append_list_entry(&rules, rule, element_size, 0) < 0) {
            free_rule(rule);
        }
    }
    return rules;
}

// --- Dumps ---

static const char *true_or_false(bool flag) {
    return flag ? "true" : "false";
}

void dump_rule(const spam_rule *rule) {
    if (!rule) {
        return;
    }
    printf("==Dumping [%s] spam rule==\n", text_or_null(rule->name));
    printf("REJECTION: [%s]\n", rule->rejection ? rule->rejection : "null");
    printf("CALLBACK : [%s]\n", true_or_false(rule->check));
    printf("MUA      : [%s]\n", true_or_false(rule->mua));
    printf("NDR      : [%s]\n", true_or_false(rule->ndr));
    printf("LOCALHOST: [%s]\n", true_or_false(rule->localhost));
    printf("IPV6     : [%s]\n", true_or_false(rule->ipv6));
}

void dump_rules(const vc_list_entry *rules) {
    for (const vc_list_entry *entry = rules; entry; entry = entry->next) {
        dump_rule(static_cast<const spam_rule *>(entry->data));
    }
}

// --- Notices ---

// The text between two macros' replacements. Clients choose what comes in a macro's place, further
// macros included: uncut, three values of 1,000 characters make a text of gigabytes.
static constexpr size_t longest_working_text = 65536;

// A new heap string with the template of the rule's notice, cut; null without memory.
static char *notice_template(const spam_rule *rule, smtp_state *state, message_hook message) {
    char *text = message ? message(rule->name, state) : nullptr;
    if (!text) {
        return vc_strndup(rule->rejection, longest_working_text);
    }
    if (strnlen(text, longest_working_text) == longest_working_text) {
        text[longest_working_text] = '\0';
    }
    return text;
}

static const char *text_or_unknown(const char *text) {
    return text ? text : "unknown";
}

char *build_rejection_notice(const spam_rule *rule, smtp_state *state, message_hook message) {
    if (!rule || !rule->rejection || !state || !rule->name) {
        QF_EINVAL();
        return nullptr;
    }
    char *text = notice_template(rule, state, message);
    if (!text) {
        QF_ENOMEM();
        return nullptr;
    }
    // In this order, each over the whole text: a value may bring a later macro along.
    const struct {
        const char *macro;
        const char *value;
    } replacements[] = {
        {"%IP%", state->ip}, // absent: the replacement refuses it, and there is no notice
        {"%RDNS%", text_or_unknown(known_reverse_name(state))},
        {"%HELO%", text_or_unknown(state->helo)},
        {"%FROM%", text_or_unknown(state->mail_from)},
        {"%RCPT%", text_or_unknown(state->rcpt_to)},
        {"%TO%", text_or_unknown(state->rcpt_to)},
    };
    char *notice = nullptr;
    bool replaced = true;
    for (const auto &replacement : replacements) {
        if (replacement.value && !strstr(text, replacement.macro)) {
            continue;
        }
        replaced = replaced && vc_str_replace_within(&text, replacement.macro, replacement.value,
                                                     longest_working_text);
    }
    if (replaced) {
        QF_DEBUG("after replacement macros: rejection is: [%s]", text);
        asprintf(&notice, "%s", text); // cuts at 1023 characters, reports a lack of memory
    }
    free(text);
    if (notice) {
        QF_DEBUG("full notice: [%s]", notice);
    }
    return notice;
}

} // namespace quillfence
