#include "vc_rfc.h"

#include <algorithm>

#include "vc_dns.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_rfc";

static constexpr int comment_nesting_limit = 1000;
static constexpr size_t domain_length_limit = 254;

namespace {

// --- Address ranges ---

struct address_range {
    uint8_t network[16];
    unsigned prefix; // in bits
};

} // namespace

static constexpr address_range unroutable_ipv4[] = {
    {{0}, 8},         {{10}, 8},       {{127}, 8},       {{240}, 4},
    {{169, 254}, 16}, {{172, 16}, 12}, {{192, 168}, 16},
};

static constexpr address_range unroutable_ipv6[] = {
    {{0xFC}, 7},
    {{}, 127}, // :: and ::1
    {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF}, 96},
    {{0xFE, 0x80}, 10},
};

static bool in_range(const uint8_t *address, const address_range &range) {
    const unsigned whole_bytes = range.prefix / 8;
    const unsigned rest = range.prefix % 8;
    if (memcmp(address, range.network, whole_bytes) != 0) {
        return false;
    }
    return rest == 0 || (address[whole_bytes] ^ range.network[whole_bytes]) >> (8 - rest) == 0;
}

template <size_t count>
static bool in_any_range(const uint8_t *address, const address_range (&ranges)[count]) {
    return std::any_of(ranges, ranges + count,
                       [address](const address_range &range) { return in_range(address, range); });
}

// --- Characters ---

static bool is_domain_character(char c) {
    return is_alphanumeric(c) || c == '-' || c == '.';
}

static bool is_local_part_character(char c) {
    return is_alphanumeric(c) || (c && strchr("!#$%&'*+-/=?^_`{|}~.", c));
}

// What a bare address may not hold outside quotes, comments and brackets.
static bool is_invalid_in_raw_address(char c) {
    return c && strchr(",:;[\\]", c);
}

static bool all_printable(const char *text) {
    while (is_printable(*text)) {
        ++text;
    }
    return !*text;
}

static char *copy_of(const char *text) {
    return vc_strndup(text, strlen(text));
}

// --- The MAIL FROM argument ---

static constexpr char mail_from_check[] = "vc_rfc822_email_address";

static const char *behind_closed_comment(const char *text);

// Moves the text from first to last down to kept and returns its new end. So a text loses its
// comments while it is read, and no part of it moves twice.
static char *keep(char *kept, const char *first, const char *last) {
    const auto length = static_cast<size_t>(last - first);
    memmove(kept, first, length);
    return kept + length;
}

namespace {

struct mail_from_scan {
    char *position;
    char *kept;     // the text without its comments ends here, in front of the position
    bool quoted;    // a quoted phrase was seen
    bool bracketed; // an address in angle brackets was seen
    bool at_sign;   // an '@' was seen outside quotes, comments and brackets
};

} // namespace

static int scan_quotes(mail_from_scan *scan) {
    if (scan->bracketed) {
        QF_DEBUG_AS(mail_from_check, "found quotes after RFC address");
        return 0;
    }
    scan->position = __vc_parse_quotes(scan->position);
    if (!scan->position) {
        QF_DEBUG_AS(mail_from_check, "invalid quoted phrase");
        return 0;
    }
    scan->quoted = true;
    return 1;
}

static int scan_comment(mail_from_scan *scan) {
    const char *const behind = behind_closed_comment(scan->position);
    if (!behind) {
        QF_DEBUG_AS(mail_from_check, "comment parse failed");
        return 0;
    }
    scan->position += behind - scan->position;
    return 1;
}

static int scan_bracketed_address(mail_from_scan *scan) {
    if (scan->bracketed) {
        QF_DEBUG_AS(mail_from_check, "RFC address already found once.. we won't accept another");
        return 0;
    }
    if (!__vc_parse_rfc_address(scan->position, &scan->position)) {
        QF_DEBUG_AS(mail_from_check, "RFC address parse failed");
        return 0;
    }
    scan->bracketed = true;
    return 1;
}

static int scan_character(mail_from_scan *scan) {
    const char c = *scan->position++;
    if (!is_printable(c)) {
        QF_DEBUG_AS(mail_from_check, "non-printable character found in address");
        return 0;
    }
    if (is_invalid_in_raw_address(c)) {
        QF_DEBUG_AS(mail_from_check, "Invalid character %c found in raw address", c);
        return 0;
    }
    scan->at_sign = scan->at_sign || c == '@';
    return 1;
}

static int scan_mail_from(mail_from_scan *scan) {
    while (*scan->position) {
        const char *const from = scan->position;
        const bool is_comment = *from == '(';
        int accepted;
        switch (*from) {
        case '"':
            accepted = scan_quotes(scan);
            break;
        case '(':
            accepted = scan_comment(scan);
            break;
        case '<':
            accepted = scan_bracketed_address(scan);
            break;
        default:
            accepted = scan_character(scan);
            break;
        }
        if (!accepted) {
            return 0;
        }
        if (!is_comment) {
            scan->kept = keep(scan->kept, from, scan->position);
        }
    }
    *scan->kept = '\0';
    return 1;
}

// The address is the whole text, from which the scan has removed the comments.
static int judge_bare_address(char *address) {
    vc_trim_ex(address, vc_trim_flag_left | vc_trim_flag_right);
    if (!*address) {
        QF_DEBUG_AS(mail_from_check, "Empty string after parsing and trimming");
        return 0;
    }
    return vc_valid_email_address(address);
}

// --- Comments ---

// Where the text goes on behind the comment whose opening parenthesis is at text; null when it
// isn't closed. Each comment nested in it is accounted for as its end comes.
static const char *behind_closed_comment(const char *text) {
    static constexpr char operation[] = "__vc_parse_comment";
    QF_DEBUG_AS(operation, "parsing [%s]", text);
    const char *position = text + 1;
    for (int depth = 1; *position;) {
        if (*position == '\\') {
            QF_DEBUG_AS(operation, "found escape character, next character is exempt");
            position += position[1] ? 2 : 1;
        } else if (*position == '(') {
            QF_DEBUG_AS(operation, "Found nested comment.. re looping");
            if (++depth > comment_nesting_limit) {
                return nullptr;
            }
            QF_DEBUG_AS(operation, "parsing [%s]", position);
            ++position;
        } else if (*position == ')') {
            QF_DEBUG_AS(operation, "found end of comment marker. Removing comment");
            ++position;
            QF_DEBUG_AS(operation, "content of string where ptr is: [%s]", position);
            QF_DEBUG_AS(operation, "after shift: [%s]", position);
            if (--depth == 0) {
                return position;
            }
        } else {
            ++position;
        }
    }
    return nullptr;
}

// --- Bracketed addresses ---

// Judges what stands between the brackets, from first to the closing bracket at end.
static int judge_bracketed_address(const char *first, const char *end) {
    static constexpr char operation[] = "__vc_parse_rfc_address";
    if (end - first == 1) { // any single character passes, kept on purpose
        QF_DEBUG_AS(operation, "RFC address portion detected as empty. Passing as bounce");
        return 1;
    }
    while (first < end && is_space(*first)) {
        ++first;
    }
    while (first < end && is_space(end[-1])) {
        --end;
    }
    if (first == end) {
        QF_DEBUG_AS(operation, "RFC address portion detected as empty. Passing as bounce (2)");
        return 1;
    }
    const heap_string address(vc_strndup(first, static_cast<size_t>(end - first)));
    if (!address) {
        QF_ERRNO_AS(operation, ENOMEM);
        QF_DEBUG_AS(operation,
                    "out of memory allocating copy of address. Passing back true for now.");
        return 1;
    }
    return vc_valid_email_address(address.get());
}

// --- Address lists ---

// Where the quoted phrase or comment that begins at text goes on: behind its end, or at the end of
// the text when it isn't closed.
static const char *behind_quotes(const char *text) {
    for (++text; *text && *text != '"'; ++text) {
        if (*text == '\\' && text[1]) {
            ++text;
        }
    }
    return *text ? text + 1 : text;
}

static const char *behind_comment(const char *text) {
    int depth = 0;
    do {
        if (*text == '(') {
            ++depth;
        } else if (*text == ')') {
            --depth;
        } else if (*text == '\\' && text[1]) {
            ++text;
        }
        ++text;
    } while (*text && depth > 0 && depth <= comment_nesting_limit);
    return depth > 0 ? text + strlen(text) : text;
}

// The comma that ends the part beginning at text, or the end of the text.
static const char *end_of_part(const char *text) {
    while (*text && *text != ',') {
        if (*text == '"') {
            text = behind_quotes(text);
        } else if (*text == '(') {
            text = behind_comment(text);
        } else {
            ++text;
        }
    }
    return text;
}

// Takes text over in any case. 1, or 0 without memory.
static int append_string(vc_list_entry **list, char *text) {
    if (vc_append_list_entry(list, text, strlen(text) + 1, 0) < 0) {
        free(text);
        return 0;
    }
    return 1;
}

// --- Mailboxes ---

// The text between the '<' at position and the next '>', moved to the start of the copy.
static int isolate_bracketed_address(char *copy, const char *position) {
    const char *const inside = position + 1;
    const char *const end = strchr(inside, '>');
    if (!end || end == inside) {
        return 0;
    }
    const auto length = static_cast<size_t>(end - inside);
    memmove(copy, inside, length);
    copy[length] = '\0';
    return all_printable(copy);
}

// Leaves the address alone in copy. 0 when there is none.
static int isolate_address(char *copy) {
    char *position = copy;
    char *kept = copy;
    while (*position && *position != '<') {
        char *const from = position;
        const char *behind = nullptr;
        if (*from == '(') {
            behind = behind_closed_comment(from);
        } else if (*from == '"') {
            behind = __vc_parse_quotes(from);
        } else if (is_printable(*from)) {
            behind = from + 1;
        }
        if (!behind) {
            return 0;
        }
        position += behind - from;
        if (*from != '(') {
            kept = keep(kept, from, position);
        }
    }
    if (*position) {
        return isolate_bracketed_address(copy, position);
    }
    *kept = '\0';
    return 1;
}

namespace {

enum class extraction { found, no_address, no_memory };

} // namespace

static extraction extract_address(const char *mailbox, char **address) {
    static constexpr char operation[] = "vc_extract_address_from_mailbox";
    if (is_empty(mailbox)) {
        QF_ERRNO_AS(operation, EINVAL);
        return extraction::no_address;
    }
    heap_string copy(copy_of(mailbox));
    if (!copy) {
        QF_ERRNO_AS(operation, ENOMEM);
        return extraction::no_memory;
    }
    if (!isolate_address(copy.get())) {
        return extraction::no_address;
    }
    vc_lower(copy.get());
    char *trimmed = copy.release();
    const int was_trimmed = vc_trim(&trimmed);
    copy.reset(trimmed);
    if (!was_trimmed) {
        return extraction::no_memory;
    }
    if (!*trimmed) {
        QF_ERROR_AS(operation, "zero length address");
        return extraction::no_address;
    }
    *address = copy.release();
    return extraction::found;
}

int vc_is_ip(const char *text) {
    if (is_empty(text)) {
        QF_EINVAL();
        return 0;
    }
    uint8_t binary[16];
    if (vc_inet_pton(vc_family_ipv4, text, binary)) {
        QF_DEBUG("[%s] is an IPv4 address", text);
        return vc_family_ipv4;
    }
    if (vc_inet_pton(vc_family_ipv6, text, binary)) {
        QF_DEBUG("[%s] is an IPv6 address", text);
        return vc_family_ipv6;
    }
    QF_DEBUG("[%s] is not an ip address", text);
    return 0;
}

int vc_is_ipv6(const char *text) {
    if (is_empty(text)) {
        QF_EINVAL();
        return 0;
    }
    uint8_t binary[16];
    return vc_inet_pton(vc_family_ipv6, text, binary) ? 1 : 0;
}

int vc_is_unroutable_ip(const char *text) {
    const int family = vc_is_ip(text);
    if (!family) {
        QF_ERROR("Address [%s] is not a valid ipv4 or ipv6 address", text_or_null(text));
        return 0;
    }
    uint8_t address[16] = {};
    if (!vc_inet_pton(family, text, address)) {
        QF_ERROR("Failed to convert address [%s] to binary buffer", text);
        return 0;
    }
    if (family == vc_family_ipv4 ? in_any_range(address, unroutable_ipv4)
                                 : in_any_range(address, unroutable_ipv6)) {
        return 1;
    }
    QF_DEBUG("Address [%s] is not a private or reserved address", text);
    return 0;
}

int is_localhost(const char *text) {
    return text && (!strcmp(text, "127.0.0.1") || !strcmp(text, "::1")) ? 1 : 0;
}

int vc_valid_domain(const char *text) {
    const size_t length = text ? strlen(text) : 0;
    if (length < 3 || !strchr(text, '.') || text[0] == '.' || text[length - 1] == '.') {
        QF_DEBUG("domain [%s] does not meet minimum criteria for length, number of dots, first "
                 "character, or last character",
                 text_or_null(text));
        return 0;
    }
    if (is_digit(text[0]) && vc_is_ip(text)) {
        QF_DEBUG("[%s] is an IP address", text);
        return 0;
    }
    if (strstr(text, "..")) {
        QF_DEBUG("domain [%s] contains consecutive '.' characters", text);
        return 0;
    }
    for (const char *c = text; *c; ++c) {
        if (!is_domain_character(*c)) {
            QF_DEBUG("domain [%s] contains invalid characters", text);
            return 0;
        }
    }
    return 1;
}

int vc_valid_email_address(const char *text) {
    if (is_empty(text)) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("parameter [%s]", text);
    const char *const at_sign = strchr(text, '@');
    if (!at_sign) {
        QF_DEBUG("address [%s] missing '@' character", text);
        return 0;
    }
    if (at_sign == text) {
        QF_DEBUG("address [%s] missing user portion", text);
        return 0;
    }
    const char *const domain = at_sign + 1;
    if (strlen(domain) > domain_length_limit) {
        QF_DEBUG("domain portion is greater than RFC specifications permit");
        return 0;
    }
    if (!*domain || !vc_valid_domain(domain)) {
        QF_DEBUG("invalid domain part for address [%s]", text);
        return 0;
    }
    if (text[0] == '.' || at_sign[-1] == '.' || strstr(text, "..")) {
        QF_DEBUG("address [%s] violates RFC pattern specifications", text);
        return 0;
    }
    for (const char *c = text; c != at_sign; ++c) {
        if (!is_local_part_character(*c)) {
            QF_DEBUG("address [%s] contains invalid characters", text);
            return 0;
        }
    }
    return 1;
}

int vc_rfc822_email_address(const char *text, uint8_t *bracketed) {
    if (is_empty(text)) {
        QF_DEBUG("argument is empty or NULL, returning true in the event this is a Mailer-Daemon "
                 "bounce");
        return 1;
    }
    const heap_string copy(copy_of(text));
    if (!copy) {
        QF_ENOMEM();
        QF_DEBUG("out of memory allocating address copy - returning true as this check can't be "
                 "run");
        return 1;
    }
    mail_from_scan scan = {copy.get(), copy.get(), false, false, false};
    if (!scan_mail_from(&scan)) {
        return 0;
    }
    if (!scan.bracketed && scan.quoted) {
        QF_DEBUG("Quotes require RFC braces");
        return 0;
    }
    if (!scan.bracketed) {
        return judge_bare_address(copy.get());
    }
    if (scan.at_sign) {
        QF_DEBUG("Found unquoted '@' symbol outside of email address");
        return 0;
    }
    if (bracketed) {
        *bracketed = 1;
    }
    return 1;
}

char *__vc_parse_quotes(char *text) {
    if (!text || *text != '"') {
        QF_EINVAL();
        return nullptr;
    }
    bool escaped = false;
    for (char *position = text + 1; *position; ++position) {
        if (!is_printable(*position)) {
            QF_DEBUG("Found non printable character");
            return nullptr;
        }
        if (*position == '"' && !escaped) {
            QF_DEBUG("found end of quote marker: incrementing");
            ++position;
            if (*position) {
                return position;
            }
            break;
        }
        escaped = *position == '\\' && !escaped;
    }
    QF_DEBUG("found illegal quotation at end of address");
    return nullptr;
}

int __vc_parse_comment(char *text, char **out) {
    if (!text || *text != '(' || !out) {
        QF_EINVAL();
        return 0;
    }
    const char *const behind = behind_closed_comment(text);
    if (!behind) {
        return 0;
    }
    memmove(text, behind, strlen(behind) + 1);
    *out = text;
    return 1;
}

int __vc_parse_rfc_address(char *text, char **out) {
    if (!text || *text != '<' || !out) {
        QF_EINVAL();
        return 0;
    }
    char *const closing = strchr(text, '>');
    if (!closing) {
        QF_DEBUG("missing closing '>' for rfc address");
        return 0;
    }
    if (!judge_bracketed_address(text + 1, closing)) {
        return 0;
    }
    *out = closing + 1;
    return 1;
}

vc_list_entry *vc_split_addresses(const char *header) {
    if (is_empty(header)) {
        QF_EINVAL();
        return nullptr;
    }
    vc_list_entry *list = nullptr;
    vc_list_entry **tail = &list;
    for (const char *start = header;;) {
        const char *const end = end_of_part(start);
        char *part = vc_strndup(start, static_cast<size_t>(end - start));
        if (!part) {
            QF_ENOMEM();
        }
        if (!part || !vc_simplify_whitespace(&part)) {
            free(part);
            vc_destroy_list(&list, free);
            return nullptr;
        }
        if (!*end && !*part) {
            free(part);
            return list;
        }
        if (!append_string(tail, part)) {
            QF_ENOMEM();
            vc_destroy_list(&list, free);
            return nullptr;
        }
        if (!*end) {
            return list;
        }
        tail = &(*tail)->next;
        start = end + 1;
    }
}

char *vc_extract_address_from_mailbox(const char *mailbox) {
    char *address = nullptr;
    extract_address(mailbox, &address);
    return address;
}

vc_list_entry *vc_parse_addresses_from_header(const char *header) {
    vc_list_entry *parts = vc_split_addresses(header);
    if (!parts) {
        QF_ERROR("Unable to split address list");
        return nullptr;
    }
    vc_list_entry *addresses = nullptr;
    vc_list_entry **tail = &addresses;
    for (const vc_list_entry *part = parts; part; part = part->next) {
        char *address = nullptr;
        const extraction result = extract_address(static_cast<const char *>(part->data), &address);
        if (result == extraction::no_address) {
            continue;
        }
        if (result == extraction::no_memory || !append_string(tail, address)) {
            QF_ENOMEM();
            vc_destroy_list(&addresses, free);
            break;
        }
        tail = &(*tail)->next;
    }
    vc_destroy_list(&parts, free);
    return addresses;
}

} // namespace quillfence
