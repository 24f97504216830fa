// A decision record, as it comes from a file or another program.
#include "fuzz_support.h"
#include "record_reader.h"
#include "record_writer.h"

namespace quillfence::testing {

using namespace decision;

namespace {

std::string written(const decision_record &record, record_form form, json_layout layout) {
    std::string out;
    write_record(out, record, form, layout);
    return out;
}

std::optional<decision_record> read_exactly(const std::string &json, json_problem *problem) {
    const exact_bytes bytes(json);
    const std::string_view text(bytes.begin(), json.size());
    const auto record = read_record(text, problem);
    QF_PROMISE(record.has_value() == problem->text.empty());
    QF_PROMISE(record || problem->line > 0);
    return record;
}

void walk(const json_document &document) {
    for (uint32_t i = 0; !document.empty() && i < document[0].end; ++i) {
        QF_PROMISE(document[i].end > i && document[i].end <= document[0].end);
    }
}

// A value, shortened, is the same value.
void judge_compact(const json_document &document) {
    const std::string compact = document.compact(0);
    json_problem problem;
    const json_document again(compact, &problem);
    QF_PROMISE(problem.text.empty() && again[0].end == document[0].end);
    QF_PROMISE(again.compact(0) == compact);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string json = input.rest();
    json_problem problem;
    const json_document document(json, &problem);
    walk(document);
    if (!document.empty()) {
        judge_compact(document);
        document.path_of(document[0].end - 1);
        std::vector<extra_member> extra;
        read_transaction(document, 0, &extra, &problem);
    }
    const auto record = read_exactly(json, &problem);
    if (!record) {
        return;
    }
    for (const json_layout layout : {json_layout::one_line, json_layout::indented}) {
        QF_PROMISE(read_exactly(written(*record, record_form::whole, layout), &problem) == record);
        QF_PROMISE(read_exactly(written(*record, record_form::brief, layout), &problem));
    }
}

} // namespace quillfence::testing
