// A case, as it comes from a file or another machine.
#include "case_dns.h"
#include "case_file.h"
#include "fuzz_support.h"

namespace quillfence::testing {

using namespace decision;

namespace {

std::string written(const test_case &which, json_layout layout) {
    std::string out;
    write_case(out, which, layout);
    return out;
}

std::optional<test_case> read_exactly(const std::string &json) {
    const exact_bytes bytes(json);
    json_problem problem;
    auto read = read_case(std::string_view(bytes.begin(), json.size()), &problem);
    QF_PROMISE(read.has_value() == problem.text.empty());
    QF_PROMISE(read || problem.line > 0);
    return read;
}

constexpr uint16_t type_mx = 15;

dns_sources::answer asked(dns_sources::source &answers, const std::string &name) {
    return answers.ask({name, type_mx, 0, std::nullopt});
}

// What was read can answer. A name that is there can be missing for an alias only, that leads out
// of the data.
void judge_answers(const test_case &which) {
    dns_sources::recorded_source recorded;
    QF_PROMISE(!add_answers(recorded, which.record.dns));
    for (const dns_record &one : which.record.dns) {
        asked(recorded, one.name);
    }
    const std::vector<zone_name> names = which.zonedata.value_or(std::vector<zone_name>());
    QF_PROMISE(names.empty() || which.record.dns.empty());
    dns_sources::zone_source zone;
    QF_PROMISE(!add_zone_data(zone, names));
    for (const zone_name &one : names) {
        const dns_sources::answer got = asked(zone, one.name);
        QF_PROMISE(got.status != dns_sources::status_missing || !got.missing_name.empty());
    }
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const auto read = read_exactly(input.rest());
    if (!read) {
        return;
    }
    judge_answers(*read);
    for (const json_layout layout : {json_layout::one_line, json_layout::indented}) {
        QF_PROMISE(read_exactly(written(*read, layout)) == read);
    }
}

} // namespace quillfence::testing
