#include "log_record.h"

#include <algorithm>

#include "log_moment.h"
#include "member_reading.h"

namespace quillfence::decision {

static constexpr std::string_view answer_words[] = {"none", "dunno", "reject",
                                                    "warn", "ok",    "other"};

std::string_view word_of(log_answer answer) {
    return answer_words[static_cast<size_t>(answer)];
}

log_answer answer_of_text(std::string_view answered) {
    const std::string_view first = answered.substr(0, answered.find(' '));
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    if (first.empty()) {
        return log_answer::none;
    }
    if (first.size() == 3 && std::all_of(first.begin(), first.end(), is_digit)) {
        return log_answer::reject;
    }
    return first == "DUNNO"  ? log_answer::dunno
           : first == "WARN" ? log_answer::warn
           : first == "OK"   ? log_answer::ok
                             : log_answer::other;
}

bool looks_like_record(std::string_view line) {
    return line.starts_with(R"({"schema":"quillfence.decision/1")") && line.ends_with("}");
}

// What the service said, when it said something that is a text.
static void read_answered(reading &in, std::string *answered) {
    const uint32_t extra = in.document.member(0, "extra");
    const uint32_t node = extra ? in.document.member(extra, "answered") : 0;
    if (node && in.document[node].is == json_kind::text) {
        *answered = in.document[node].text;
    }
}

// What the sums need of a question; the other members take longer to read than all else.
static void read_question(reading &in, uint32_t node, dns_record *question) {
    if (is_object(in, node)) {
        reading_visitor visitor(in, node);
        visitor.required("n", question->n);
        visitor.required("type", question->type);
        visitor.optional("rcode", question->rcode);
        visitor.required("class", question->is);
        visitor.optional("ms", question->ms);
    }
}

static void read_list(reading &in, uint32_t node, dns_block_list_record *list) {
    if (is_object(in, node)) {
        reading_visitor visitor(in, node);
        visitor.required("zone", list->zone);
        visitor.optional("answer", list->answer);
        visitor.optional("dns", list->dns);
    }
}

template <class Value, class Read>
static void read_member(reading &in, std::string_view name, std::vector<Value> *list, Read read) {
    if (const uint32_t node = in.failed() ? 0 : in.document.member(0, name)) {
        read_elements(in, node, list, read);
    }
}

static std::string refused(const json_document &document) {
    if (document[0].is == json_kind::object && !document.member(0, "schema")) {
        const uint32_t error = document.member(0, "error");
        return error && document[error].is == json_kind::text
                   ? "batch could not judge this one: " + std::string(document[error].text)
                   : "is no decision record";
    }
    return "";
}

std::string read_log_record(std::string_view line, log_depth depth, log_record *record) {
    json_problem problem;
    const json_document document(line, &problem, {.bytes = line.size(), .nodes = 100'000});
    if (document.empty()) {
        return problem.text;
    }
    if (const std::string why = refused(document); !why.empty()) {
        return why;
    }
    reading in{document, &problem};
    if (is_object(in, 0)) {
        check_schema(in, record_schema, "a decision record");
    }
    *record = {};
    reading_visitor visitor(in, 0);
    visitor.optional("id", record->id);
    visitor.optional("time", record->time);
    visitor.required("transaction", record->transaction);
    visitor.required("decision", record->decision);
    if (depth == log_depth::for_sums) {
        read_member(in, "dns_block_lists", &record->dns_block_lists, read_list);
        read_member(in, "dns", &record->dns, read_question);
    }
    read_answered(in, &record->answered);
    record->at = read_moment(record->time);
    return problem.text;
}

} // namespace quillfence::decision
