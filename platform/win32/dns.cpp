// The system's client as it is: its cache, its servers, its time limits.
#include "../dns_system.h"

#include <cstring>

#include "dns_calls.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

namespace {

// DnsFree is what the name DnsRecordListFree stands for.
constexpr dns_calls system_calls = {DnsQuery_A, DnsFree};
const dns_calls *current_calls = &system_calls;

// The record's target with its case, without a final dot. Null for other types.
dns_record *copy_record(const DNS_RECORDA &record) {
    if (record.wType != dns_type_ptr || !record.Data.PTR.pNameHost) {
        return dns_new_record(record.wType, nullptr);
    }
    dns_record *const copy = dns_new_record(record.wType, record.Data.PTR.pNameHost);
    if (copy) {
        const size_t length = strlen(copy->target);
        if (length > 0 && copy->target[length - 1] == '.') {
            copy->target[length - 1] = '\0';
        }
    }
    return copy;
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
