// DNS messages as a server might send them.
//
//     the message
#include "fuzz_support.h"
#include "platform/dns_answer.h"
#include "vc_text.h"

namespace quillfence::testing {

namespace {

// A zone file's text of a name: nothing that is not visible, and at most four characters a byte.
void check_target(const char *target) {
    QF_PROMISE(strlen(target) <= 4 * 255);
    for (const char *c = target; *c; ++c) {
        QF_PROMISE(is_printable(*c) && *c != ' ');
    }
}

// Their texts may hold blanks between words.
void check_details(const platform::dns_details &details) {
    uint32_t count = 0;
    for (const platform::dns_detail_record *record = details.records; record;
         record = record->next) {
        ++count;
        for (const char *c = record->text; *c; ++c) {
            QF_PROMISE(is_printable(*c));
        }
        QF_PROMISE(strlen(record->text) <= 4 * 255 + 40);
    }
    QF_PROMISE(count == details.record_count);
    QF_PROMISE(count <= platform::dns_detail_records_max);
    QF_PROMISE(details.response_code >= -1 && details.response_code < 16);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const exact_bytes message(input.rest());
    const auto size = static_cast<size_t>(message.end() - message.begin());
    platform::dns_record *records = nullptr;
    platform::dns_details details = platform::dns_no_details();
    const uint32_t status = platform::read_dns_answer(message.begin(), size, &records, &details);
    QF_PROMISE((status == 0) == (records != nullptr));
    for (const platform::dns_record *record = records; record; record = record->next) {
        QF_PROMISE(!record->target || record->type == platform::dns_type_ptr);
        if (record->target) {
            check_target(record->target);
        }
    }
    platform::dns_release(records);
    check_details(details);
    platform::dns_details_clear(&details);
}

} // namespace quillfence::testing
