#include "platform/dns.h"

#include <cstdlib>
#include <cstring>

#include "dns_system.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {

static dns_stand_in current_stand_in;

uint32_t dns_query(const char *name, uint16_t type, uint32_t options, dns_record **records) {
    if (records) {
        *records = nullptr;
    }
    if (!name || !records) {
        return error_invalid_parameter;
    }
    if (const uint32_t refused = observe_call("dns_query", name)) {
        return refused;
    }
    return (current_stand_in ? current_stand_in : system_dns_query)(name, type, options, records);
}

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

} // namespace quillfence::platform
