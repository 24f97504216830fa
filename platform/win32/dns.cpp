// The system's client as it is: its cache, its servers, its time limits.
#include "../dns_system.h"

#include <cstdlib>
#include <cstring>

#include "../address_text.h"
#include "../dns_text.h"
#include "dns_calls.h"
#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/observer.h"

namespace quillfence::platform {

// DnsFree is what the name DnsRecordListFree stands for.
static constexpr dns_calls system_calls = {DnsQuery_A, DnsFree};
static const dns_calls *current_calls = &system_calls;

// A name of 255 bytes, each of them told by four characters already.
static constexpr size_t longest_name = 1024;
static constexpr size_t name_text_size = longest_name * dns_byte_text_max + 1;

// A name with its case, without a final dot. How the system tells a dot or backslash inside a label
// is left as it is; other bytes that have no place in a name are told as dns_answer.h does. A name
// that can't be one is cut.
static void write_name(const char *name, char *text) {
    size_t length = strnlen(name, longest_name);
    if (length > 0 && name[length - 1] == '.') {
        --length;
    }
    for (size_t i = 0; i < length; ++i) {
        text = write_dns_byte(text, static_cast<unsigned char>(name[i]));
    }
    *text = '\0';
}

// The target is null for other types than PTR.
static dns_record *copy_record(const DNS_RECORDA &record) {
    if (record.wType != dns_type_ptr || !record.Data.PTR.pNameHost) {
        return dns_new_record(record.wType, nullptr);
    }
    char name[name_text_size];
    write_name(record.Data.PTR.pNameHost, name);
    return dns_new_record(record.wType, name);
}

// The data as dns_details has it; false for a type that is not among those that dns.h names. The
// system knows the length of addresses; a name that it left out is the root.
static bool write_data(const DNS_RECORDA &record, char *text) {
    constexpr size_t number_size = 64; // of an address or a preference; text has room for more
    const auto *const bytes = reinterpret_cast<const unsigned char *>(&record.Data);
    const auto write_target = [&text](const char *name) {
        write_name(name ? name : "", text);
        strcat(text, ".");
        return true;
    };
    switch (record.wType) {
    case dns_type_a:
        return format_text(text, number_size, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2],
                           bytes[3]) > 0;
    case dns_type_aaaa:
        return ipv6_to_text(bytes, text, number_size);
    case dns_type_mx:
        text += format_text(text, number_size, "%d ", static_cast<int>(record.Data.MX.wPreference));
        return write_target(record.Data.MX.pNameExchange);
    case dns_type_ns:
    case dns_type_cname:
    case dns_type_ptr:
        return write_target(record.Data.PTR.pNameHost);
    default:
        return false;
    }
}

static void detail_records(const DNS_RECORDA *record, dns_details *details) {
    for (; record; record = record->pNext) {
        const auto section = static_cast<DNS_SECTION>(record->Flags.S.Section);
        if (section == DnsSectionAuthority || section == DnsSectionAddtional) {
            continue;
        }
        char text[dns_record_text_size];
        char type[dns_type_name_size];
        dns_type_name(record->wType, type);
        const int used = format_text(text, sizeof text, "%s ", type);
        const bool known = write_data(*record, text + used);
        dns_details_add(details, record->wType, known ? text : type);
    }
}

// What the status says of the answer's code; -1 when the status is of another kind.
static int32_t response_code_of(DNS_STATUS status) {
    constexpr DNS_STATUS last = 9010;
    if (status == 0 || status == static_cast<DNS_STATUS>(dns_status_no_records)) {
        return 0;
    }
    const DNS_STATUS base = static_cast<DNS_STATUS>(dns_status_rcode_base);
    return status > base && status <= last ? static_cast<int32_t>(status - base) : -1;
}

static uint32_t copy_records(const DNS_RECORDA *from, dns_record **records) {
    dns_record **link = records;
    for (; from; from = from->pNext) {
        if (!(*link = copy_record(*from))) {
            dns_release(*records);
            *records = nullptr;
            return error_not_enough_memory;
        }
        link = &(*link)->next;
    }
    return error_none;
}

void set_dns_calls(const dns_calls *calls) {
    current_calls = calls ? calls : &system_calls;
}

// The system's client keeps what there is to keep.
struct dns_client {
    bool open;
};

uint32_t dns_client_open(const char *server, dns_client **opened) {
    *opened = nullptr;
    if (server) {
        return error_not_supported;
    }
    if (const uint32_t refused = observe_call("dns_client_open", "")) {
        return refused;
    }
    *opened = static_cast<dns_client *>(calloc(1, sizeof(dns_client)));
    return *opened ? error_none : error_not_enough_memory;
}

void dns_client_close(dns_client *client) {
    free(client);
}

void dns_client_limit(dns_client *, int64_t) {}

uint32_t system_dns_query(dns_client *, const char *name, uint16_t type, uint32_t options,
                          dns_record **records, dns_details *details) {
    DNS_RECORDA *found = nullptr;
    const DNS_STATUS status = current_calls->query(
        name, type, options, nullptr, reinterpret_cast<PDNS_RECORD *>(&found), nullptr);
    if (details) {
        details->response_code = response_code_of(status);
        detail_records(found, details);
    }
    const uint32_t result =
        status == 0 ? copy_records(found, records) : static_cast<uint32_t>(status);
    if (found) { // some failures leave records behind, too
        current_calls->release(found, DnsFreeRecordList);
    }
    return result;
}

} // namespace quillfence::platform
