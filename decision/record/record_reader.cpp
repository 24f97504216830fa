#include "record_reader.h"

#include <algorithm>
#include <array>

#include "member_reading.h"

namespace quillfence::decision {

static constexpr std::string_view record_kind = "a decision record";

static bool is_our_member(std::string_view name) {
    static constexpr std::array<std::string_view, 9> ours = {
        "stage", "ip", "port", "tls", "authuser", "mua", "helo", "sender", "recipient"};
    const auto is_ours = [](std::string_view plain) {
        return std::find(ours.begin(), ours.end(), plain) != ours.end();
    };
    return is_ours(name) || (name.ends_with(bytes_suffix) &&
                             is_ours(name.substr(0, name.size() - bytes_suffix.size())));
}

std::optional<decision_record> read_record(const json_document &document, json_problem *problem) {
    *problem = {};
    reading in{document, problem};
    decision_record record;
    if (is_object(in, 0)) {
        check_schema(in, record_schema, record_kind);
    }
    if (!in.failed()) {
        read_value(in, 0, &record);
    }
    if (!in.failed()) {
        refuse_nul(in, document.member(0, "transaction"), record.transaction);
    }
    return in.failed() ? std::nullopt : std::optional(std::move(record));
}

std::optional<decision_record> read_record(std::string_view text, json_problem *problem,
                                           const json_limits &limits) {
    const json_document document(text, problem, limits);
    return document.empty() ? std::nullopt : read_record(document, problem);
}

std::optional<transaction> read_transaction(const json_document &document, uint32_t node,
                                            std::vector<extra_member> *extra,
                                            json_problem *problem) {
    *problem = {};
    reading in{document, problem};
    transaction of;
    if (is_object(in, node)) {
        reading_visitor visitor(in, node);
        visitor.optional("stage", of.stage);
        transaction_facts(visitor, of);
        refuse_nul(in, node, of);
    }
    for (uint32_t i = node + 1; extra && i < document[node].end; i = document[i].end) {
        if (!is_our_member(document[i].name)) {
            extra->emplace_back(document[i].name, document.compact(i));
        }
    }
    return in.failed() ? std::nullopt : std::optional(std::move(of));
}

std::optional<std::vector<dns_record>> read_answers(const json_document &document, uint32_t node,
                                                    json_problem *problem) {
    *problem = {};
    reading in{document, problem};
    std::vector<dns_record> answers;
    if (document[node].is == json_kind::object) {
        read_value(in, node, &answers.emplace_back());
    } else {
        read_value(in, node, &answers);
    }
    return in.failed() ? std::nullopt : std::optional(std::move(answers));
}

bool check_record_schema(const json_document &document, json_problem *problem) {
    *problem = {};
    reading in{document, problem};
    check_schema(in, record_schema, record_kind);
    return !in.failed();
}

} // namespace quillfence::decision
