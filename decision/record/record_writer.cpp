#include "record_writer.h"

#include "member_writing.h"

namespace quillfence::decision {

static bool is_quiet(outcome of) {
    switch (of) {
    case outcome::no_hit:
    case outcome::not_reached:
    case outcome::skipped:
    case outcome::not_enabled:
    case outcome::never:
        return true;
    default:
        return false;
    }
}

bool is_told_briefly(const rule_record &rule) {
    return !is_quiet(rule.decision) || (rule.report && !is_quiet(*rule.report)) ||
           (rule.would && !is_quiet(*rule.would));
}

void write_record(std::string &out, const decision_record &record, record_form form,
                  json_layout layout) {
    constexpr size_t usual_record = 2048;
    out.reserve(out.size() + usual_record);
    json_writer json(out, layout);
    writing_visitor visitor(json, form);
    json.begin_object();
    visitor.required("schema", std::string(record_schema));
    visit_members(visitor, record);
    json.end_object();
}

void write_transaction(std::string &out, const transaction &of, json_layout layout) {
    json_writer json(out, layout);
    writing_visitor(json, record_form::whole).object(of);
}

} // namespace quillfence::decision
