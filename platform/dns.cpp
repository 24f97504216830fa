#include "platform/dns.h"

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "dns_system.h"
#include "dns_text.h"
#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/observer.h"

namespace quillfence::platform {

static dns_stand_in current_stand_in;

// --- questions ---

// What the records of a stand-in tell: it has no other way to give details.
static void detail_records(const dns_record *record, dns_details *details) {
    for (; record; record = record->next) {
        char type[dns_type_name_size];
        char text[dns_record_text_size];
        const char *const target = record->target;
        format_text(text, sizeof text, "%s%s%s%s", dns_type_name(record->type, type),
                    target ? " " : "", target ? target : "", target ? "." : "");
        dns_details_add(details, record->type, text);
    }
}

static uint32_t ask(dns_client *client, const char *name, uint16_t type, uint32_t options,
                    dns_record **records, dns_details *details) {
    if (!current_stand_in) {
        return system_dns_query(client, name, type, options, records, details);
    }
    const uint32_t status = current_stand_in(name, type, options, records);
    if (details) {
        detail_records(*records, details);
    }
    return status;
}

static int64_t microseconds_now() {
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

static uint32_t ask_and_time(dns_client *client, const char *name, uint16_t type, uint32_t options,
                             dns_record **records, dns_details *details) {
    const int64_t started = microseconds_now();
    details->status = ask(client, name, type, options, records, details);
    details->microseconds = microseconds_now() - started;
    return details->status;
}

static uint32_t refuse(uint32_t error, dns_details *details) {
    if (details) {
        details->status = error;
    }
    return error;
}

uint32_t dns_client_query(dns_client *client, const char *name, uint16_t type, uint32_t options,
                          dns_record **records, dns_details *details) {
    if (details) {
        *details = dns_no_details();
    }
    if (records) {
        *records = nullptr;
    }
    if (!name || !records) {
        return refuse(error_invalid_parameter, details);
    }
    if (const uint32_t refused = observe_call("dns_query", name)) {
        return refuse(refused, details);
    }
    return (details ? ask_and_time : ask)(client, name, type, options, records, details);
}

uint32_t dns_query_detailed(const char *name, uint16_t type, uint32_t options, dns_record **records,
                            dns_details *details) {
    return dns_client_query(nullptr, name, type, options, records, details);
}

uint32_t dns_query(const char *name, uint16_t type, uint32_t options, dns_record **records) {
    return dns_query_detailed(name, type, options, records, nullptr);
}

// --- records ---

void dns_release(dns_record *records) {
    while (records) {
        dns_record *const next = records->next;
        free(records->target);
        free(records);
        records = next;
    }
}

void set_dns_stand_in(dns_stand_in stand_in) {
    current_stand_in = stand_in;
}

bool has_dns_stand_in() {
    return current_stand_in != nullptr;
}

dns_record *dns_new_record(uint16_t type, const char *target) {
    auto *const record = static_cast<dns_record *>(calloc(1, sizeof(dns_record)));
    if (!record) {
        return nullptr;
    }
    record->type = type;
    if (target && !(record->target = strdup(target))) {
        free(record);
        return nullptr;
    }
    return record;
}

// --- details ---

dns_details dns_no_details() {
    dns_details details{};
    details.microseconds = -1;
    details.response_code = -1;
    return details;
}

void dns_details_clear(dns_details *details) {
    if (!details) {
        return;
    }
    while (dns_detail_record *const first = details->records) {
        details->records = first->next;
        free(first);
    }
    *details = dns_no_details();
}

static dns_detail_record *new_detail_record(uint16_t type, const char *text) {
    const size_t size = strlen(text) + 1;
    void *const block = malloc(sizeof(dns_detail_record) + size);
    if (!block) {
        return nullptr;
    }
    auto *const record = static_cast<dns_detail_record *>(block);
    *record = {nullptr, type, static_cast<char *>(block) + sizeof(dns_detail_record)};
    memcpy(record->text, text, size);
    return record;
}

void dns_details_add(dns_details *details, uint16_t type, const char *text) {
    if (details->record_count >= dns_detail_records_max) {
        ++details->left_out;
        return;
    }
    dns_detail_record *const record = new_detail_record(type, text);
    if (!record) {
        details->no_memory = true;
        return;
    }
    (details->last ? details->last->next : details->records) = record;
    details->last = record;
    ++details->record_count;
}

const char *dns_type_name(uint16_t type, char *text) {
    static constexpr struct {
        uint16_t type;
        const char *name;
    } names[] = {{dns_type_a, "A"},     {dns_type_ns, "NS"}, {dns_type_cname, "CNAME"},
                 {dns_type_ptr, "PTR"}, {dns_type_mx, "MX"}, {dns_type_aaaa, "AAAA"}};
    for (const auto &row : names) {
        if (row.type == type) {
            format_text(text, dns_type_name_size, "%s", row.name);
            return text;
        }
    }
    format_text(text, dns_type_name_size, "TYPE%d", static_cast<int>(type));
    return text;
}

} // namespace quillfence::platform
