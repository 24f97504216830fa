#include "vc_dns.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <iterator>

#include "evidence.h"
#include "platform/dns.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/format.h"
#include "platform/net.h"
#include "platform/process.h"
#include "vc_log.h"
#include "vc_nulltermlist.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_dns";

using platform::dns_record;

namespace {

struct dns_records_deleter {
    void operator()(dns_record *records) const {
        platform::dns_release(records);
    }
};
using dns_records = std::unique_ptr<dns_record, dns_records_deleter>;

} // namespace

// The statuses that say "there is no such name".
static constexpr uint32_t no_name_statuses[] = {9003, 9005, 9008, 9010, 9601,
                                                9602, 9606, 9706, 9714};

static bool says_no_name(uint32_t status) {
    return std::find(std::begin(no_name_statuses), std::end(no_name_statuses), status) !=
           std::end(no_name_statuses);
}

int vc_dns_code(uint32_t status) {
    if (status == 0) {
        return vc_dns_found;
    }
    return says_no_name(status) ? vc_dns_no_name : vc_dns_failed;
}

namespace {

struct question {
    const char *name;
    uint16_t type;
    uint8_t option;
    uint32_t attempt; // from 1
};

} // namespace

// Asks the source of the calling thread's context, or the system when there is none. details may be
// null.
static uint32_t ask(const question &asked, dns_records *answer, platform::dns_details *details) {
    const uint32_t options =
        asked.option ? platform::dns_query_tcp_only : platform::dns_query_standard;
    const call_context *const context = current_call_context();
    const dns_source *const source = context ? context->dns : nullptr;
    dns_record *records = nullptr;
    const uint32_t status =
        source ? source->ask(source->context, asked.name, asked.type, options, &records, details)
               : platform::dns_query_detailed(asked.name, asked.type, options, &records, details);
    answer->reset(records);
    return status;
}

static uint32_t ask_and_tell(const question &asked, dns_records *answer) {
    platform::dns_details details = platform::dns_no_details();
    const uint32_t status = ask(asked, answer, &details);
    tell(&evidence_sink::dns_answered, {.name = asked.name,
                                        .type = asked.type,
                                        .attempt = asked.attempt,
                                        .status = status,
                                        .code = vc_dns_code(status),
                                        .details = &details});
    if (status == platform::error_not_enough_memory || details.no_memory) {
        tell_failure(asked.name, platform::error_not_enough_memory, "no memory");
    }
    platform::dns_details_clear(&details);
    return status;
}

// The one way in which the engine asks a question.
static uint32_t query(const question &asked, dns_records *answer) {
    return quillfence::asked() ? ask_and_tell(asked, answer) : ask(asked, answer, nullptr);
}

// What two questions about one name say together.
static int either(int first, int second) {
    if (second == vc_dns_found) {
        return vc_dns_found;
    }
    return first == second ? first : vc_dns_failed;
}

// --- names ---

int vc_resolv_WIN32(const char *name, uint16_t type, uint8_t option) {
    if (is_empty(name)) {
        QF_EINVAL();
        return vc_dns_invalid_argument;
    }
    dns_records records;
    const uint32_t status = query({name, type, option, 1}, &records);
    const int code = vc_dns_code(status);
    if (code == vc_dns_found) {
        QF_DEBUG("successful lookup [%s]", name);
    } else if (code == vc_dns_no_name) {
        QF_DEBUG("received NXDOMAIN response [%s]", name);
    } else {
        QF_DEBUG("error on lookup [%s] code: %d", name, static_cast<int>(status));
    }
    return code;
}

int vc_resolv_A(const char *name, uint8_t option) {
    const int code = vc_resolv_WIN32(name, platform::dns_type_a, option);
    if (code == vc_dns_found) {
        return code;
    }
    return either(code, vc_resolv_WIN32(name, platform::dns_type_aaaa, option));
}

int vc_has_a_or_mx(const char *domain, uint8_t option) {
    if (is_empty(domain)) {
        QF_EINVAL();
        return vc_dns_invalid_argument;
    }
    if (!vc_valid_domain(domain)) {
        QF_DEBUG("domain [%s] flagged as invalid.", domain);
        return vc_dns_invalid_domain;
    }
    const size_t length = strlen(domain);
    const heap_string absolute(static_cast<char *>(malloc(length + 2)));
    if (!absolute) {
        QF_ERROR("out of memory error resolving A/MX for %s", domain);
        tell_no_memory(__func__);
        return vc_dns_failed;
    }
    memcpy(absolute.get(), domain, length);
    memcpy(absolute.get() + length, ".", 2);

    const int code = vc_resolv_A(absolute.get(), option);
    if (code == vc_dns_found) {
        QF_DEBUG("domain [%s] found A record", domain);
        return code;
    }
    QF_DEBUG("domain [%s] no A record found. Seeking MX", domain);
    return either(code, vc_resolv_WIN32(absolute.get(), platform::dns_type_mx, option));
}

// --- reverse lookups ---

static constexpr size_t ipv6_bytes = 16;
// Two nibbles with their dots for each byte, "ip6.arpa." and the NUL; an IPv4 name is shorter.
static constexpr size_t arpa_size = 4 * ipv6_bytes + sizeof "ip6.arpa.";
static_assert(arpa_size == 74);

static void write_ipv4_arpa(const unsigned char *address, char *text) {
    for (int i = 3; i >= 0; --i) {
        text = std::to_chars(text, text + 3, address[i]).ptr;
        *text++ = '.';
    }
    memcpy(text, "in-addr.arpa.", sizeof "in-addr.arpa.");
}

static void write_ipv6_arpa(const unsigned char *address, char *text) {
    static constexpr char digits[] = "0123456789abcdef";
    for (size_t i = ipv6_bytes; i-- > 0;) {
        *text++ = digits[address[i] & 15];
        *text++ = '.';
        *text++ = digits[address[i] >> 4];
        *text++ = '.';
    }
    memcpy(text, "ip6.arpa.", sizeof "ip6.arpa.");
}

int vc_arpa(char **out, const char *address) {
    if (!out) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("parameter [%s]", text_or_null(address));
    const int family = vc_is_ip(address);
    unsigned char binary[ipv6_bytes];
    if (!family || !vc_inet_pton(family, address, binary)) {
        QF_ERROR("Address is not an IP");
        return 0;
    }
    heap_string name(static_cast<char *>(malloc(arpa_size)));
    if (!name) {
        QF_ENOMEM();
        return 0;
    }
    (family == platform::family_ipv4 ? write_ipv4_arpa : write_ipv6_arpa)(binary, name.get());
    QF_DEBUG("[%s] converts to %s", address, name.get());
    free(*out);
    *out = name.release();
    return 1;
}

// Asks for the PTR records of a reverse name until there is an answer. 0, 1 or 2.
static int query_ptr(const char *address, const char *reverse_name, uint8_t option,
                     dns_records *answer) {
    static constexpr char operation[] = "vc_lookup_reverse_dns";
    constexpr uint32_t attempts = 3;
    constexpr int connection_aborted = 103;
    for (uint32_t attempt = 1; attempt <= attempts; ++attempt) {
        const int code =
            vc_dns_code(query({reverse_name, platform::dns_type_ptr, option, attempt}, answer));
        if (code == vc_dns_no_name) {
            QF_DEBUG_AS(operation, "[%s] lookup result NXDOMAIN", address);
        }
        if (code != vc_dns_failed) {
            return code;
        }
    }
    QF_DEBUG_AS(operation, "[%s] %s", address, strerror(connection_aborted));
    return vc_dns_failed;
}

static bool names_a_host(const dns_record *record) {
    return record->type == platform::dns_type_ptr && !is_empty(record->target);
}

// A copy of the name, cut at 1023 bytes; null without memory.
static char *copy_ptr_name(const char *name) {
    static constexpr char operation[] = "vc_lookup_reverse_dns";
    constexpr size_t longest = 1023;
    QF_DEBUG_AS(operation, "Found a PTR result. Record data states: [%s]", name);
    const size_t length = strnlen(name, longest);
    QF_DEBUG_AS(operation, "calculated number of characters to be %d", static_cast<int>(length));
    auto *const copy = static_cast<char *>(malloc(length + 1));
    if (!copy) {
        QF_ERRNO_AS(operation, ENOMEM);
        return nullptr;
    }
    memcpy(copy, name, length);
    copy[length] = '\0';
    return copy;
}

// The names of the first `count` such records as a null-terminated array; null without memory.
static char **copy_ptr_names(const dns_record *record, size_t count) {
    auto **names = static_cast<char **>(calloc(count + 1, sizeof(char *)));
    if (!names) {
        QF_ERRNO_AS("vc_lookup_reverse_dns", ENOMEM);
        return nullptr;
    }
    for (size_t copied = 0; copied < count; record = record->next) {
        if (!names_a_host(record)) {
            continue;
        }
        names[copied] = copy_ptr_name(record->target);
        if (!names[copied++]) {
            vc_lstfree(&names, free);
            return nullptr;
        }
    }
    return names;
}

int vc_lookup_reverse_dns(char ***names, const char *address, uint8_t option, uint8_t first_only) {
    if (!names || is_empty(address) || first_only > 1) {
        QF_EINVAL();
        return vc_dns_invalid_argument;
    }
    char *arpa = nullptr;
    if (!vc_arpa(&arpa, address)) {
        return vc_dns_failed;
    }
    const heap_string reverse_name(arpa);
    dns_records answer;
    if (const int code = query_ptr(address, reverse_name.get(), option, &answer)) {
        return code;
    }
    size_t count = 0;
    for (const dns_record *record = answer.get(); record; record = record->next) {
        count += names_a_host(record);
    }
    if (!count) {
        return vc_dns_no_ptr;
    }
    char **const found = copy_ptr_names(answer.get(), first_only ? 1 : count);
    if (!found) {
        return vc_dns_failed;
    }
    vc_lstfree(names, free);
    *names = found;
    return vc_dns_found;
}

// --- address conversions ---

// Whether the system's conversion is at hand; a failed preparation is told under its name.
static bool conversion_ready(const char *operation, const char *entry,
                             platform::net_status (*prepare)(int *error)) {
    int error = 0;
    const platform::net_status status = prepare(&error);
    if (status == platform::net_status::ok) {
        return true;
    }
    tell_failure("an address", 0, "the system can't convert addresses");
    switch (status) {
    case platform::net_status::ok:
        break;
    case platform::net_status::no_library:
        QF_ERROR_AS(operation, "Error ws2_32.dll cannot be loaded");
        return false;
    case platform::net_status::startup_failed:
        QF_ERROR_AS(operation, "WSAStartup error: %d", error);
        return false;
    case platform::net_status::no_entry:
        QF_ERROR_AS(operation, "Error could not locate %s in ws2_32.dll", entry);
        return false;
    }
    return false;
}

static bool is_family(int family) {
    return family == platform::family_ipv4 || family == platform::family_ipv6;
}

int vc_inet_pton(int family, const char *text, void *binary) {
    if (!is_family(family) || !text || !binary) {
        QF_EINVAL();
        return 0;
    }
    return conversion_ready(__func__, "inet_pton", platform::net_prepare_pton) &&
           platform::net_pton(family, text, binary);
}

const char *vc_inet_ntop(int family, const void *binary, char *text, size_t size) {
    if (!is_family(family) || !binary || !text || size == 0) {
        QF_EINVAL();
        return nullptr;
    }
    if (!conversion_ready(__func__, "inet_ntop", platform::net_prepare_ntop)) {
        return nullptr;
    }
    return platform::net_ntop(family, binary, text, size);
}

uint32_t vc_inet_addr(const char *text) {
    if (!text) {
        QF_EINVAL();
        return UINT32_MAX;
    }
    const uint32_t address = platform::net_inet_addr(text);
    QF_DEBUG("[%s] converted to %lu", text, static_cast<unsigned long>(address));
    return address;
}

int vc_compress_ipv6(const char *text, char *out) {
    unsigned char binary[ipv6_bytes];
    if (!text || !out || !vc_inet_pton(platform::family_ipv6, text, binary)) {
        QF_EINVAL();
        return 0;
    }
    if (!vc_inet_ntop(platform::family_ipv6, binary, out, vc_ipv6_text_size)) {
        QF_ERROR("failed to convert structure back to string");
        return 0;
    }
    QF_DEBUG("Converted [%s] to [%s]", text, out);
    return 1;
}

// --- the hosts file ---

static constexpr char gethostent_name[] = "vc_gethostent";

namespace {

// The address that is looked for: IPv6 in its compressed form.
struct wanted_address {
    int family;
    const char *text;
    char compressed[vc_ipv6_text_size];
};

} // namespace

// One lock a process, made on first use.
static uint32_t hosts_mutex(platform::mutex **lock) {
    static std::atomic<platform::mutex *> kept;
    *lock = kept.load();
    if (*lock) {
        return 0;
    }
    if (const uint32_t error = platform::mutex_create(lock)) {
        return error;
    }
    platform::mutex *other = nullptr;
    if (!kept.compare_exchange_strong(other, *lock)) {
        platform::mutex_destroy(*lock);
        *lock = other;
    }
    return 0;
}

// The path of the hosts file, formed once a process. Called under the lock.
static const char *hosts_path() {
    static char kept[1024];
    if (!*kept) {
        if (const uint32_t error = platform::hosts_file_path(kept, sizeof kept)) {
            *kept = '\0';
            QF_ERROR_AS(gethostent_name, "Cannot retrieve system directory: [%d]\n",
                        static_cast<int>(error));
            return nullptr;
        }
    }
    return kept;
}

// Cuts the line's address off and returns the names behind it; null for a line that has none.
static char *cut_host_line(char *line) {
    char *const end = line + strcspn(line, "#\n");
    if (end == line + strlen(line) || *line == '#') {
        return nullptr;
    }
    const bool before_lf = *end == '\n';
    *end = '\0';
    if (before_lf && end > line && end[-1] == '\r') {
        end[-1] = '\0';
    }
    char *const blank = line + strcspn(line, " \t");
    if (!*blank) {
        return nullptr;
    }
    *blank = '\0';
    return blank + 1;
}

static bool is_wanted(const wanted_address &wanted, const char *address) {
    const int family = vc_is_ip(address);
    if (!family) {
        QF_ERROR_AS(gethostent_name, "Address[%s] in /etc/hosts is not an IP", address);
        return false;
    }
    char compressed[vc_ipv6_text_size];
    if (family != wanted.family) {
        return false;
    }
    if (family == platform::family_ipv6) {
        if (!vc_compress_ipv6(address, compressed)) {
            return false;
        }
        address = compressed;
    }
    if (_stricmp(address, wanted.text)) {
        QF_DEBUG_AS(gethostent_name, "[%s] doesn't match [%s]", address, wanted.text);
        return false;
    }
    return true;
}

// How many names were appended, or -1. *end leads to the list's end and moves there, so that many
// lines walk the list once.
static int append_names(char *text, vc_list_entry ***end) {
    constexpr char blanks[] = " \t";
    int count = 0;
    while (*(text += strspn(text, blanks))) {
        const size_t length = strcspn(text, blanks);
        const bool last = !text[length];
        text[length] = '\0';
        if (vc_append_list_entry(*end, text, length + 1, 1) < 0) {
            return -1;
        }
        while (**end) {
            *end = &(**end)->next;
        }
        ++count;
        text += length + (last ? 0 : 1);
    }
    return count;
}

// The work of vc_gethostent under the lock.
static int read_hosts_file(const wanted_address &wanted, vc_list_entry **names) {
    const char *const path = hosts_path();
    if (!path) {
        return -1;
    }
    const platform::stream_ptr stream(platform::stream_open(path, "rb"));
    if (!stream) {
        QF_ERROR_AS(gethostent_name, "Failed to open %s", path);
        return -1;
    }
    vc_list_entry **end = names;
    int total = 0;
    char line[1024];
    while (fgets(line, sizeof line, stream.get())) {
        char *const line_names = cut_host_line(line);
        if (!line_names || !is_wanted(wanted, line)) {
            continue;
        }
        const int count = append_names(line_names, &end);
        if (count < 0) {
            return -1;
        }
        total += count;
    }
    return total;
}

int vc_gethostent(const char *address, vc_list_entry **names) {
    if (!names) {
        QF_EINVAL();
        return -1;
    }
    wanted_address wanted{};
    wanted.family = vc_is_ip(address);
    wanted.text = address;
    if (!wanted.family) {
        QF_ERROR("Address[%s] is not an IP", text_or_null(address));
        return -1;
    }
    if (wanted.family == platform::family_ipv6) {
        if (!vc_compress_ipv6(address, wanted.compressed)) {
            return -1;
        }
        wanted.text = wanted.compressed;
    }
    platform::mutex *lock = nullptr;
    uint32_t error = hosts_mutex(&lock);
    if (!error) {
        error = platform::mutex_lock(lock);
    }
    if (error) {
        QF_ERROR("Error locking mutex: %d", static_cast<int>(error));
        return -1;
    }
    const int count = read_hosts_file(wanted, names);
    if (const uint32_t unlock_error = platform::mutex_unlock(lock)) {
        QF_ERROR("Error unlocking mutex: %d", static_cast<int>(unlock_error));
    }
    return count;
}

} // namespace quillfence
