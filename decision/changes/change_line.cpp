#include "change_line.h"

#include "member_writing.h"

namespace quillfence::decision {

static void visit_members(auto &v, record_of<decided_side> auto &of) {
    visit_members(v, of.decision);
    v.optional("source", of.from);
}

static void visit_members(auto &v, record_of<change_cause> auto &of) {
    v.required("side", std::string(word_of(of.side)));
    v.optional("rule", of.rule);
    v.optional("file", of.entry.file);
    v.optional("place", of.entry.place);
    v.optional("entry", of.entry.text);
}

static void visit_members(auto &v, record_of<decision_change> auto &of) {
    v.required("schema", std::string(change_schema));
    v.required("id", of.id);
    v.optional("time", of.time);
    v.required("transaction", of.transaction);
    v.optional("extra", of.extra);
    v.required("before", of.before);
    v.required("after", of.after);
    v.required("cause", of.cause);
    v.optional("missing", of.missing);
}

void append_change(std::string &out, const decision_change &change) {
    json_writer json(out, json_layout::one_line);
    writing_visitor(json, record_form::brief).object(change);
    json.finish();
    out += '\n';
}

} // namespace quillfence::decision
