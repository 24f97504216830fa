// A decision log, plain or compressed: its bytes, its lines, its records, a filter, the sums.
//
//     how many bytes a read gives, a byte
//     a filter: a member, a byte, with the text up to the next LF
//     the file
#include <algorithm>
#include <cstring>

#include "fuzz_support.h"
#include "log_bytes.h"
#include "log_filter.h"
#include "log_lines.h"
#include "log_moment.h"
#include "log_tally.h"

namespace quillfence::testing {

using namespace decision;

namespace {

log_filter filter_of(uint8_t member, const std::string &text) {
    log_filter filter;
    switch (member) {
    case 0:
        if (const auto network = read_client_network(text)) {
            filter.clients = {*network};
        }
        break;
    case 1:
        filter.senders = {text};
        break;
    case 2:
        filter.domains = {text};
        break;
    case 3:
        filter.rules = {text};
        break;
    case 4:
        filter.ids = {text};
        break;
    case 5:
        filter.verdicts = {static_cast<verdict>(text.size() % 3)};
        break;
    case 6:
        filter.since = read_asked_moment(text, 0);
        break;
    default:
        break;
    }
    return filter;
}

} // namespace

void fuzz_one(fuzz_input &input) {
    without_debug_lines();
    const size_t piece = size_t{input.byte()} * 16 + 1;
    const uint8_t member = input.byte();
    const log_filter filter = filter_of(member, input.line());
    const line_sieve sieve(filter);
    const std::string file = input.rest();
    size_t at = 0;
    log_bytes bytes([&](void *to, uint32_t size, uint32_t *got) {
        *got = static_cast<uint32_t>(std::min({size_t{size}, piece, file.size() - at}));
        memcpy(to, file.data() + at, *got);
        at += *got;
        return uint32_t{0};
    });
    log_lines all(bytes);
    log_tally tally;
    log_record record;
    uint64_t count = 0;
    for (quillfence::decision::log_line line; all.next(&line) || all.rest(&line);) {
        QF_PROMISE(line.number == ++count);
        QF_PROMISE(line.text.size() <= longest_log_line);
        QF_PROMISE(line.text.find('\n') == std::string_view::npos);
        const exact_bytes exact{std::string(line.text)};
        const std::string_view text(exact.begin(), line.text.size());
        looks_like_record(text);
        if (read_log_record(text, log_depth::for_sums, &record).empty()) {
            QF_PROMISE(!passes(filter, record) || sieve.may_pass(text));
            tally.add(record);
        }
        if (count > 10'000) {
            return; // line ends compress well
        }
    }
    QF_PROMISE(bytes.taken() <= file.size());
    QF_PROMISE(tally.all().all() <= count);
}

} // namespace quillfence::testing
