#include <algorithm>

#include "case_file.h"
#include "case_members.h"
#include "expectation_members.h"
#include "member_writing.h"

namespace quillfence::decision {

// --- the DNS by hand ---

static bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// How long the number is with which an exchanger's data begin; 0 unless it can stand in JSON.
static size_t preference_length(std::string_view data) {
    const size_t blank = std::min(data.find(' '), data.size());
    const bool plain =
        std::all_of(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(blank), is_digit);
    return plain && blank < data.size() && (blank == 1 || data[0] != '0') ? blank : 0;
}

static void write_zone_data(json_writer &json, const zone_entry &entry) {
    const std::string_view data = entry.data;
    const size_t preference = entry.type == "MX" ? preference_length(data) : 0;
    if (!preference) {
        json.text(data);
        return;
    }
    json.begin_flat_array();
    json.raw(data.substr(0, preference));
    json.text(data.substr(preference + 1));
    json.end_array();
}

static void write_zone_entry(json_writer &json, const zone_entry &entry) {
    if (entry.type.empty()) {
        json.text(entry.data);
        return;
    }
    json.begin_flat_object();
    json.name_text(entry.type);
    write_zone_data(json, entry);
    json.end_object();
}

static void write_zone_name(json_writer &json, const zone_name &one) {
    json.name_text(one.name);
    if (one.entries.size() == 1 && one.entries[0].type.empty()) {
        write_zone_entry(json, one.entries[0]);
        return;
    }
    json.begin_flat_array();
    for (const zone_entry &entry : one.entries) {
        write_zone_entry(json, entry);
    }
    json.end_array();
}

// --- what is expected ---

using put_text = void (*)(json_writer &json, const std::string &text);

static void put_plain(json_writer &json, const std::string &text) {
    json.text(text);
}

static void put_bytes(json_writer &json, const std::string &text) {
    json.hexadecimal(text);
}

static void put_list(json_writer &json, const std::vector<std::string> &texts, put_text put) {
    json.begin_flat_array();
    for (const std::string &text : texts) {
        put(json, text);
    }
    json.end_array();
}

static void put_texts(json_writer &json, const std::vector<std::string> &texts, put_text put) {
    if (texts.size() == 1) {
        put(json, texts[0]);
    } else {
        put_list(json, texts, put);
    }
}

using put_many = void (*)(json_writer &json, const std::vector<std::string> &texts, put_text put);

// A member, and the bytes beside it when a text of it can't be shown.
static void write_member(json_writer &json, std::string_view name,
                         const std::vector<std::string> &texts, put_many many) {
    json.name(name);
    many(json, texts, put_plain);
    if (!std::all_of(texts.begin(), texts.end(), is_plain_text)) {
        json.name(name, "_bytes");
        many(json, texts, put_bytes);
    }
}

static void write_expected_rules(json_writer &json, const expectation &expect) {
    json.name(rules_of_expect);
    json.begin_object();
    for (const auto &[rule, outcomes] : expect.rules) {
        json.name_text(rule);
        put_texts(json, outcomes, put_plain);
    }
    json.end_object();
}

static void write_expectation(json_writer &json, const expectation &expect) {
    json.begin_object();
    for (const expected_texts &row : texts_of_expect) {
        if (const auto &texts = expect.*row.texts; !texts.empty()) {
            write_member(json, row.name, texts, put_texts);
        }
    }
    if (!expect.rules.empty()) {
        write_expected_rules(json, expect);
    }
    for (const expected_set &row : sets_of_expect) {
        if (const auto &texts = expect.*row.texts) {
            write_member(json, row.name, *texts, put_list);
        }
    }
    json.end_object();
}

// --- the whole ---

namespace {

class case_visitor : public writing_visitor {
  public:
    case_visitor(json_writer &json, record_form form) : writing_visitor(json, form), json_(json) {}

    void zone(std::string_view name, const std::optional<std::vector<zone_name>> &value) {
        if (!value) {
            return;
        }
        json_.name(name);
        json_.begin_object();
        for (const zone_name &one : *value) {
            write_zone_name(json_, one);
        }
        json_.end_object();
    }
    void expected(std::string_view name, const expectation &value) {
        if (!value.empty()) {
            json_.name(name);
            write_expectation(json_, value);
        }
    }

  private:
    json_writer &json_;
};

} // namespace

void write_case(std::string &out, const test_case &which, json_layout layout) {
    json_writer json(out, layout);
    case_visitor visitor(json, which.captured ? record_form::whole : record_form::by_hand);
    json.begin_object();
    visitor.required("schema", std::string(case_schema));
    visit_members(visitor, which);
    json.end_object();
}

} // namespace quillfence::decision
