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

} // namespace

void fuzz_one(fuzz_input &input) {
    const exact_bytes message(input.rest());
    const auto size = static_cast<size_t>(message.end() - message.begin());
    platform::dns_record *records = nullptr;
    const uint32_t status = platform::read_dns_answer(message.begin(), size, &records);
    QF_PROMISE((status == 0) == (records != nullptr));
    for (const platform::dns_record *record = records; record; record = record->next) {
        QF_PROMISE(!record->target || record->type == platform::dns_type_ptr);
        if (record->target) {
            check_target(record->target);
        }
    }
    platform::dns_release(records);
}

} // namespace quillfence::testing
