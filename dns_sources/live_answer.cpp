#include "live_answer.h"

#include <new>

#include "platform/error_numbers.h"

namespace quillfence::dns_sources {

namespace {

// Records of which there is no text: those beyond the bounds of the details. The engine wants all
// names of a PTR answer.
std::string text_of(const platform::dns_record &record) {
    char type[platform::dns_type_name_size];
    std::string text = platform::dns_type_name(record.type, type);
    return record.target ? text + " " + record.target + "." : text;
}

std::vector<record> all_records(const platform::dns_details &details,
                                const platform::dns_record *records) {
    std::vector<record> all;
    for (const auto *one = details.records; one; one = one->next) {
        all.push_back({one->type, one->text});
    }
    if (details.left_out == 0) {
        return all;
    }
    uint32_t place = 0;
    for (; records; records = records->next, ++place) {
        if (place >= details.record_count) {
            all.push_back({records->type, text_of(*records)});
        }
    }
    return all;
}

} // namespace

answer live_answer(uint32_t status, const platform::dns_details &details,
                   const platform::dns_record *records) {
    if (status == platform::error_not_enough_memory || details.no_memory) {
        throw std::bad_alloc();
    }
    answer made = answer_of_status(status);
    made.records = all_records(details, records);
    if (made.records.size() < details.record_count + details.left_out) {
        made.left_out = details.left_out; // next to an error there are only the details
    }
    if (details.response_code >= 0) {
        made.response_code = static_cast<uint32_t>(details.response_code);
    }
    made.server = details.server;
    made.transport = details.transport;
    made.tries = details.tries;
    if (details.microseconds >= 0) {
        made.microseconds = details.microseconds;
    }
    return made;
}

int64_t live_limit(const question &asked) {
    if (!asked.limit) {
        return -1;
    }
    return asked.limit->count() < 0 ? 0 : asked.limit->count();
}

} // namespace quillfence::dns_sources
