// Addresses, domains and header lines, as a client hands them over.
//
//     the text
#include "fuzz_support.h"
#include "vc_dns.h"
#include "vc_rfc.h"
#include "vc_stringutils.h"
#include "vc_text.h"
#include "vc_w32.h"

namespace quillfence::testing {

namespace {

void judge_ip(const char *text) {
    const int family = vc_is_ip(text);
    QF_PROMISE(family == 0 || family == vc_family_ipv4 || family == vc_family_ipv6);
    QF_PROMISE(vc_is_ipv6(text) == (family == vc_family_ipv6));
    uint8_t bytes[16];
    QF_PROMISE(family == 0 || vc_inet_pton(family, text, bytes));
    vc_is_unroutable_ip(text);
    QF_PROMISE(!is_localhost(text) || vc_is_unroutable_ip(text));
    vc_inet_addr(text);
    vc_ip_to_host_u32(text);
    QF_PROMISE(!family || !vc_valid_domain(text));

    char *name = nullptr;
    QF_PROMISE(vc_arpa(&name, text) == (family != 0));
    free(name);
}

// The short form is a fixed point and means the same address.
void compress(const char *text) {
    char once[vc_ipv6_text_size];
    char twice[vc_ipv6_text_size];
    if (!vc_compress_ipv6(text, once)) {
        QF_PROMISE(!vc_is_ipv6(text));
        return;
    }
    uint8_t given[16];
    uint8_t made[16];
    QF_PROMISE(vc_inet_pton(vc_family_ipv6, text, given));
    QF_PROMISE(vc_inet_pton(vc_family_ipv6, once, made));
    QF_PROMISE(!memcmp(given, made, sizeof given));
    QF_PROMISE(vc_compress_ipv6(once, twice) && !strcmp(once, twice));
}

void judge_sender(const char *text) {
    QF_PROMISE(!vc_valid_domain(text) || strlen(text) >= 3);
    QF_PROMISE(!vc_valid_email_address(text) || strchr(text, '@'));
    uint8_t bracketed = 0;
    vc_rfc822_email_address(text, &bracketed);
    vc_rfc822_email_address(text, nullptr);
}

// The scanners get a text of their own: they write into it.
void scan_parts(const std::string &text) {
    for (size_t at = 0; at < text.size(); ++at) {
        text_slot copy(text);
        char *part = copy.text + at;
        const char *last = copy.text + text.size();
        char *out = nullptr;
        if (*part == '"') {
            const char *behind = __vc_parse_quotes(part);
            QF_PROMISE(!behind || (behind > part && behind < last));
        } else if (*part == '(') {
            QF_PROMISE(!__vc_parse_comment(part, &out) || out == part);
        } else if (*part == '<') {
            QF_PROMISE(!__vc_parse_rfc_address(part, &out) || (out > part && out <= last));
            QF_PROMISE(copy.str() == text);
        }
    }
}

void check_bare_address(const char *address) {
    QF_PROMISE(*address);
    for (const char *c = address; *c; ++c) {
        QF_PROMISE(is_printable(*c) && !is_upper(*c));
    }
}

void split_header(const char *text) {
    vc_list_entry *parts = vc_split_addresses(text);
    int with_address = 0;
    for (const vc_list_entry *part = parts; part; part = part->next) {
        const char *mailbox = static_cast<const char *>(part->data);
        QF_PROMISE(part->size == strlen(mailbox) + 1);
        const heap_string address(*mailbox ? vc_extract_address_from_mailbox(mailbox) : nullptr);
        if (address) {
            check_bare_address(address.get());
            ++with_address;
        }
    }
    vc_list_entry *addresses = vc_parse_addresses_from_header(text);
    QF_PROMISE(vc_list_count(addresses) == with_address);
    vc_destroy_list(&addresses, free);
    vc_destroy_list(&parts, free);
}

// Trimming and simplifying are done after once.
void tidy(const std::string &text) {
    text_slot once(text);
    QF_PROMISE(vc_simplify_whitespace(once.slot()));
    const std::string simple = once.str();
    QF_PROMISE(vc_trim(once.slot()) && once.str() == simple);
    QF_PROMISE(vc_strip_whitespace(once.slot()));
    QF_PROMISE(once.str().find_first_of(" \t\r\n\v\f") == std::string::npos);
    vc_lower(once.text);
    vc_chomp(once.slot());
}

} // namespace

void fuzz_one(fuzz_input &input) {
    std::string text = input.rest();
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    const text_slot exact(text);
    judge_ip(exact.text);
    compress(exact.text);
    judge_sender(exact.text);
    scan_parts(text.substr(0, 300));
    split_header(exact.text);
    const heap_string address(vc_extract_address_from_mailbox(exact.text));
    if (address) {
        check_bare_address(address.get());
    }
    tidy(text);
    QF_PROMISE(exact.str() == text);
}

} // namespace quillfence::testing
