// The system's client as it is: its cache, its servers, its time limits.
#include "../dns_system.h"

#include <cstring>

#include "../dns_text.h"
#include "dns_calls.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

namespace {

// DnsFree is what the name DnsRecordListFree stands for.
constexpr dns_calls system_calls = {DnsQuery_A, DnsFree};
const dns_calls *current_calls = &system_calls;

// A name of 255 bytes, each of them told by four characters already.
constexpr size_t longest_name = 1024;
constexpr size_t name_text_size = longest_name * dns_byte_text_max + 1;

// A name with its case, without a final dot. How the system tells a dot or backslash inside a label
// is left as it is; other bytes that have no place in a name are told as dns_answer.h does. A name
// that can't be one is cut.
void write_name(const char *name, char *text) {
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
dns_record *copy_record(const DNS_RECORDA &record) {
    if (record.wType != dns_type_ptr || !record.Data.PTR.pNameHost) {
        return dns_new_record(record.wType, nullptr);
    }
    char name[name_text_size];
    write_name(record.Data.PTR.pNameHost, name);
    return dns_new_record(record.wType, name);
}

uint32_t copy_records(const DNS_RECORDA *from, dns_record **records) {
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

} // namespace

void set_dns_calls(const dns_calls *calls) {
    current_calls = calls ? calls : &system_calls;
}

uint32_t system_dns_query(const char *name, uint16_t type, uint32_t options, dns_record **records) {
    DNS_RECORDA *found = nullptr;
    const DNS_STATUS status = current_calls->query(
        name, type, options, nullptr, reinterpret_cast<PDNS_RECORD *>(&found), nullptr);
    const uint32_t result =
        status == 0 ? copy_records(found, records) : static_cast<uint32_t>(status);
    if (found) { // some failures leave records behind, too
        current_calls->release(found, DnsFreeRecordList);
    }
    return result;
}

} // namespace quillfence::platform
