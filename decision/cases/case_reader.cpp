#include <algorithm>
#include <charconv>

#include "case_dns.h"
#include "case_file.h"
#include "case_members.h"
#include "expectation_members.h"
#include "member_reading.h"
#include "record_reader.h"

namespace quillfence::decision {

// --- the DNS by hand ---

// The elements of an array, or of an object, each by `use`, until one is refused.
template <class Use>
static void for_each_child(const reading &in, uint32_t node, Use use) {
    const uint32_t end = in.document[node].end;
    for (uint32_t i = node + 1; i < end && !in.failed(); i = in.document[i].end) {
        use(i);
    }
}

static uint32_t count_children(const reading &in, uint32_t node) {
    uint32_t count = 0;
    for_each_child(in, node, [&](uint32_t) { ++count; });
    return count;
}

// [10, "mail.example.org"]; an exchanger "" is the root: the domain takes no mail.
static void read_exchanger(reading &in, uint32_t node, std::string *data) {
    const uint32_t preference = node + 1;
    const uint32_t name = node + 2;
    if (count_children(in, node) != 2 || in.document[preference].is != json_kind::number) {
        in.refuse(node, "is not a preference and a name");
        return;
    }
    std::string exchanger;
    read_value(in, name, &exchanger);
    *data = std::string(in.document[preference].text) + ' ' + (exchanger.empty() ? "." : exchanger);
}

// A long text may be written in pieces.
static void read_pieces(reading &in, uint32_t node, std::string *data) {
    for_each_child(in, node, [&](uint32_t piece) {
        std::string text;
        read_value(in, piece, &text);
        *data += text;
    });
}

static void read_zone_data(reading &in, uint32_t node, zone_entry *entry) {
    const bool is_list = in.document[node].is == json_kind::array;
    if (is_list && in_capitals(entry->type) == "MX") {
        read_exchanger(in, node, &entry->data);
    } else if (is_list && is_never_asked(entry->type)) {
        read_pieces(in, node, &entry->data);
    } else {
        read_value(in, node, &entry->data);
    }
}

static void read_zone_entry(reading &in, uint32_t node, zone_entry *entry) {
    const json_node &here = in.document[node];
    if (here.is == json_kind::text) {
        entry->data = here.text;
    } else if (here.is == json_kind::object && count_children(in, node) == 1) {
        entry->type = in.document[node + 1].name;
        if (entry->type.empty()) {
            in.refuse(node, "has a record without a type");
            return;
        }
        read_zone_data(in, node + 1, entry);
    } else {
        in.refuse(node, "is neither a word nor one record");
    }
}

namespace {

// Reads the lines of one name; what a source of answers does not take is refused.
class zone_name_reader {
  public:
    zone_name_reader(reading &in, zone_name *one) : in_(in), one_(*one) {}

    void read(uint32_t node) {
        one_.name = in_.document[node].name;
        refuse_for(node, checked_.add_name(one_.name));
        if (in_.document[node].is == json_kind::text) {
            add(node);
        } else if (in_.document[node].is == json_kind::array) {
            for_each_child(in_, node, [this](uint32_t line) { add(line); });
        } else {
            in_.refuse(node, "is neither a word nor a list of records");
        }
    }

  private:
    void refuse_for(uint32_t node, const std::optional<std::string> &why) {
        if (why) {
            in_.refuse(node, *why);
        }
    }
    void add(uint32_t node) {
        zone_entry &entry = one_.entries.emplace_back();
        read_zone_entry(in_, node, &entry);
        if (!in_.failed()) {
            refuse_for(node, add_zone_entry(checked_, one_.name, entry));
            std::string &word = entry.type.empty() ? entry.data : entry.type;
            word = in_capitals(word);
        }
    }

    reading &in_;
    zone_name &one_;
    dns_sources::zone_source checked_;
};

using keyed_name = std::pair<std::string, uint32_t>; // what it is asked by, and its node

} // namespace

static void refuse_same_names(reading &in, std::vector<keyed_name> names) {
    std::sort(names.begin(), names.end());
    const auto same = [](const keyed_name &one, const keyed_name &next) {
        return one.first == next.first;
    };
    const auto place = std::adjacent_find(names.begin(), names.end(), same);
    if (place != names.end()) {
        in.refuse(std::next(place)->second,
                  "stands there already, in other letters or with another end");
    }
}

static void read_zone(reading &in, uint32_t node, std::vector<zone_name> *zone) {
    if (!is_object(in, node)) {
        return;
    }
    const uint32_t count = count_children(in, node);
    zone->reserve(count);
    std::vector<keyed_name> names;
    names.reserve(count);
    for_each_child(in, node, [&](uint32_t child) {
        zone_name_reader(in, &zone->emplace_back()).read(child);
        names.emplace_back(dns_sources::name_key(in.document[child].name), child);
    });
    refuse_same_names(in, std::move(names));
}

// --- what is expected ---

using read_text = void (*)(reading &in, uint32_t node, std::string *text);

// One text, or a list of texts that is not empty.
static void read_texts(reading &in, uint32_t node, read_text read,
                       std::vector<std::string> *texts) {
    texts->clear();
    if (in.document[node].is != json_kind::array) {
        read(in, node, &texts->emplace_back());
        return;
    }
    for_each_child(in, node, [&](uint32_t child) { read(in, child, &texts->emplace_back()); });
    if (texts->empty()) {
        in.refuse(node, "is an empty list, which nothing could meet");
    }
}

// The same for words that have to be known.
static void read_words(reading &in, uint32_t node, bool (*is_known)(std::string_view),
                       const char *complaint, std::vector<std::string> *texts) {
    read_texts(in, node, read_value, texts);
    const bool is_list = in.document[node].is == json_kind::array;
    uint32_t at = is_list ? node + 1 : node;
    for (const std::string &text : *texts) {
        if (!is_known(text)) {
            in.refuse(at, complaint);
        }
        at = in.document[at].end;
    }
}

static void read_expected_rules(reading &in, uint32_t node, expectation *expect) {
    if (!is_object(in, node)) {
        return;
    }
    for_each_child(in, node, [&](uint32_t child) {
        auto &[rule, outcomes] = expect->rules.emplace_back();
        rule = in.document[child].name;
        if (!is_rule(rule)) {
            in.refuse(child, "is no rule");
            return;
        }
        read_words(in, child, is_outcome, "is no outcome of a rule", &outcomes);
    });
    if (expect->rules.empty()) {
        in.refuse(node, "names no rule");
    }
}

// A member of "expect" with its value; false when there is none of that name.
static bool read_expected(reading &in, uint32_t node, std::string_view name, bool bytes,
                          expectation *expect) {
    const read_text read = bytes ? read_hexadecimal : read_text(read_value);
    for (const expected_texts &row : texts_of_expect) {
        if (row.name == name && row.is_known && !bytes) {
            read_words(in, node, row.is_known, row.complaint, &(expect->*row.texts));
            return true;
        }
        if (row.name == name && !row.is_known) {
            read_texts(in, node, read, &(expect->*row.texts));
            return true;
        }
    }
    for (const expected_set &row : sets_of_expect) {
        if (row.name == name) {
            read_elements(in, node, &(expect->*row.texts).emplace(), read);
            return true;
        }
    }
    if (name == rules_of_expect && !bytes) {
        read_expected_rules(in, node, expect);
        return true;
    }
    return false;
}

static void read_expected_member(reading &in, uint32_t object, uint32_t node, expectation *expect) {
    const std::string_view name = in.document[node].name;
    if (in.document.member(object, with_suffix(name))) {
        return; // the bytes win
    }
    const bool bytes = name.ends_with(bytes_suffix);
    const std::string_view plain = name.substr(0, name.size() - (bytes ? bytes_suffix.size() : 0));
    if (!read_expected(in, node, plain, bytes, expect)) {
        in.refuse(node, "is nothing that can be expected");
    }
}

static void read_expectation(reading &in, uint32_t node, expectation *expect) {
    if (!is_object(in, node)) {
        return;
    }
    for_each_child(in, node,
                   [&](uint32_t child) { read_expected_member(in, node, child, expect); });
    if (expect->empty()) {
        in.refuse(node, "expects nothing");
    }
}

// --- answers ---

static bool has(const reading &in, uint32_t object, std::string_view name) {
    return in.document.member(object, name) || in.document.member(object, with_suffix(name));
}

// A thing is there with its member, or missing without it.
static void check_missing(reading &in, uint32_t node, bool missing, std::string_view member) {
    if (has(in, node, member) == missing) {
        const std::string quoted = '"' + std::string(member) + '"';
        in.refuse(node, missing ? "is missing, and has " + quoted
                                : "has neither " + quoted + " nor \"missing\"");
    }
}

static void refuse_member(reading &in, uint32_t object, std::string_view name,
                          const std::string &what) {
    const uint32_t node = in.document.member(object, name);
    in.refuse(node ? node : in.document.member(object, with_suffix(name)), what);
}

template <class Number>
static bool is_number(const std::string &text) {
    Number number = 0;
    const char *const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return !text.empty() && error == std::errc() && stopped == end;
}

static bool is_data_of(std::string_view type, const std::string &data) {
    if (type == "REG_DWORD") {
        return is_number<uint32_t>(data);
    }
    return type != "REG_QWORD" || is_number<uint64_t>(data);
}

static void check_answer(reading &in, uint32_t node, const registry_answer &answer) {
    refuse_nul(in, node, "key", answer.key);
    refuse_nul(in, node, "value", answer.value.value_or(""));
    const bool typed = has(in, node, "type");
    if (typed != has(in, node, "data")) {
        in.refuse(node, "has one of \"type\" and \"data\" without the other");
    } else if (typed && (answer.missing || !answer.value)) {
        in.refuse(node, "has data, and no value that is there");
    } else if (typed && !registry_type_of_word(answer.type)) {
        refuse_member(in, node, "type", "is no type of a registry value");
    } else if (typed && !is_data_of(answer.type, answer.data)) {
        refuse_member(in, node, "data", "is no number of that type");
    }
}

static void check_answer(reading &in, uint32_t node, const address_map_answer &answer) {
    refuse_nul(in, node, "address", answer.address);
    refuse_nul(in, node, "destination", answer.destination);
    check_missing(in, node, answer.missing, "destination");
}

static void check_answer(reading &in, uint32_t node, const folder_answer &answer) {
    refuse_nul(in, node, "folder", answer.folder);
    for (const std::string &name : answer.names) {
        refuse_nul(in, node, "names", name);
    }
    check_missing(in, node, answer.missing, "names");
}

static void check_answer(reading &in, uint32_t node, const dns_record &answer) {
    dns_sources::recorded_source checked;
    if (const auto why = add_answer(checked, answer)) {
        in.refuse(node, *why);
    }
}

template <class Answer>
static void check_answers(reading &in, std::string_view name, const std::vector<Answer> &answers) {
    uint32_t node = in.document.member(0, name) + 1;
    for (const Answer &answer : answers) {
        if (in.failed()) {
            return;
        }
        check_answer(in, node, answer);
        node = in.document[node].end;
    }
}

// --- the whole ---

namespace {

class case_visitor : public reading_visitor {
  public:
    explicit case_visitor(reading &in) : reading_visitor(in, 0), in_(in) {}

    void zone(std::string_view name, std::optional<std::vector<zone_name>> &value) {
        if (const uint32_t node = member(name)) {
            read_zone(in_, node, &value.emplace());
        }
    }
    void expected(std::string_view name, expectation &value) {
        if (const uint32_t node = member(name)) {
            read_expectation(in_, node, &value);
        }
    }

  private:
    uint32_t member(std::string_view name) const {
        return in_.failed() ? 0 : in_.document.member(0, name);
    }

    reading &in_;
};

} // namespace

static void check_zonedata_alone(reading &in) {
    const uint32_t zone = in.document.member(0, "zonedata");
    if (!zone) {
        return;
    }
    if (in.document.member(0, "dns")) {
        in.refuse(zone, "stands beside \"dns\": a case has one of the two");
    } else if (in.document.member(0, "decision")) {
        in.refuse(zone, "stands beside \"decision\": a captured case has \"dns\"");
    }
}

static void check_texts(reading &in, const test_case &made) {
    if (!in.failed()) {
        refuse_nul(in, in.document.member(0, "transaction"), made.record.transaction);
    }
    if (const uint32_t config = in.document.member(0, "config"); config && !in.failed()) {
        refuse_nul(in, config, "base", made.record.config.base);
        refuse_nul(in, config, "user_dir", made.record.config.user_dir);
    }
    check_answers(in, "dns", made.record.dns);
    check_answers(in, "registry", made.server.registry);
    check_answers(in, "address_map", made.server.address_map);
    check_answers(in, "folders", made.server.folders);
}

// --- a decision record ---

static bool is_record(const json_document &document) {
    const uint32_t schema = document.member(0, "schema");
    return schema && document[schema].text.starts_with("quillfence.decision/");
}

// What a short case has; the rest is what came of it.
static std::optional<test_case> case_of_record(const json_document &document,
                                               json_problem *problem) {
    std::optional<decision_record> record = read_record(document, problem);
    if (!record) {
        return std::nullopt;
    }
    test_case made;
    made.record.id = std::move(record->id);
    made.record.time = std::move(record->time);
    made.record.config.user_dir = std::move(record->config.user_dir);
    made.record.transaction = std::move(record->transaction);
    made.record.extra = std::move(record->extra);
    made.record.dns = std::move(record->dns);
    reading in{document, problem};
    check_texts(in, made);
    return in.failed() ? std::nullopt : std::optional(std::move(made));
}

// --- either ---

std::optional<test_case> read_case(std::string_view text, json_problem *problem,
                                   const json_limits &limits) {
    const json_document document(text, problem, limits);
    if (document.empty()) {
        return std::nullopt;
    }
    if (is_record(document)) {
        return case_of_record(document, problem);
    }
    reading in{document, problem};
    test_case made;
    if (is_object(in, 0)) {
        check_schema(in, case_schema, "a case");
    }
    if (!in.failed()) {
        check_zonedata_alone(in);
        made.captured = document.member(0, "decision");
        in.by_hand = !made.captured;
        case_visitor visitor(in);
        visit_members(visitor, made);
        check_texts(in, made);
    }
    return in.failed() ? std::nullopt : std::optional(std::move(made));
}

} // namespace quillfence::decision
