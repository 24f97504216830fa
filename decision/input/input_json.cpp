// A decision record, of which the transaction is taken with its id, time, extra members and DNS
// answers; or a transaction alone, whose other members are "id", "time" and extra ones.
#include "input_formats.h"
#include "record_reader.h"

namespace quillfence::decision {

namespace {

// The text of a member; a number as it stands. False with a problem for anything else.
bool take_text(const json_document &document, std::string_view name, std::string *text,
               json_problem *problem) {
    const uint32_t node = document.member(0, name);
    if (!node) {
        return true;
    }
    if (document[node].is != json_kind::text && document[node].is != json_kind::number) {
        *problem = {document.line_of(node), document.path_of(node) + ": is not a text"};
        return false;
    }
    *text = document[node].text;
    return true;
}

void take_extra(const json_document &document, std::vector<extra_member> *extra) {
    const uint32_t node = document.member(0, "extra");
    if (!node) {
        return;
    }
    for (uint32_t i = node + 1; i < document[node].end; i = document[i].end) {
        extra->emplace_back(document[i].name, document.compact(i));
    }
}

bool take_answers(const json_document &document, std::vector<dns_record> *answers,
                  json_problem *problem) {
    const uint32_t node = document.member(0, "dns");
    if (!node) {
        return true;
    }
    auto read = read_answers(document, node, problem);
    if (read) {
        *answers = std::move(*read);
    }
    return read.has_value();
}

bool has_facts(const transaction &of) {
    return of.ip || of.port || of.tls || of.authuser || of.mua || of.helo || of.sender ||
           of.recipient;
}

input_result refused_at(const json_document &document, uint32_t node, const char *why) {
    return refused(node ? document.path_of(node) + ": " + why : "the document " + std::string(why),
                   document.line_of(node));
}

} // namespace

input_result read_json_input(std::string_view unit) {
    input_result result;
    const json_document document(unit, &result.problem, {.bytes = longest_json});
    if (document.empty()) {
        return result;
    }
    const bool whole = document.member(0, "schema") != 0;
    if (whole && !check_record_schema(document, &result.problem)) {
        return result;
    }
    const uint32_t node = whole ? document.member(0, "transaction") : 0;
    if (whole && !node) {
        return refused_at(document, 0, "has no member \"transaction\"");
    }
    input_transaction read;
    std::vector<extra_member> others;
    const auto transaction = read_transaction(document, node, &others, &result.problem);
    if (!transaction || !take_text(document, "id", &read.id, &result.problem) ||
        !take_text(document, "time", &read.time, &result.problem)) {
        return result;
    }
    if (!has_facts(*transaction)) {
        return refused_at(document, node, "holds no fact of a transaction");
    }
    read.transaction = *transaction;
    if (whole && !take_answers(document, &read.dns, &result.problem)) {
        return result;
    }
    if (whole) {
        take_extra(document, &read.extra);
    } else {
        std::erase_if(others, [](const extra_member &one) {
            return one.first == "id" || one.first == "time";
        });
        read.extra = std::move(others);
    }
    result.read = std::move(read);
    return result;
}

} // namespace quillfence::decision
