#include "record_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "record_members.h"
#include "record_words.h"

namespace quillfence::decision {

static constexpr std::string_view schema_name = "quillfence.decision/";
static constexpr std::string_view bytes_suffix = "_bytes";

namespace {

// What one document gives; the first problem is kept and ends the reading.
struct reading {
    const json_document &document;
    json_problem *problem;

    bool failed() const {
        return !problem->text.empty();
    }
    void refuse(uint32_t node, const std::string &what) {
        if (!failed()) {
            const std::string path = document.path_of(node);
            problem->line = document.line_of(node);
            problem->text = path.empty() ? "the document " + what : path + ": " + what;
        }
    }
};

std::string with_suffix(std::string_view name) {
    return std::string(name).append(bytes_suffix);
}

// --- values ---

int hex_digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char folded = static_cast<char>(c | 0x20);
    return folded >= 'a' && folded <= 'f' ? folded - 'a' + 10 : -1;
}

void read_value(reading &in, uint32_t node, std::string *text) {
    if (in.document[node].is != json_kind::text) {
        in.refuse(node, "is not a text");
        return;
    }
    *text = in.document[node].text;
}

void read_hexadecimal(reading &in, uint32_t node, std::string *bytes) {
    std::string digits;
    read_value(in, node, &digits);
    bytes->clear();
    for (size_t i = 0; i < digits.size(); i += 2) {
        const int high = hex_digit(digits[i]);
        const int low = i + 1 < digits.size() ? hex_digit(digits[i + 1]) : -1;
        if (high < 0 || low < 0) {
            in.refuse(node, "is not an even number of hexadecimal digits");
            return;
        }
        bytes->push_back(static_cast<char>(high * 16 + low));
    }
}

void read_value(reading &in, uint32_t node, bool *flag) {
    if (in.document[node].is != json_kind::boolean) {
        in.refuse(node, "is neither true nor false");
        return;
    }
    *flag = in.document[node].text == "true";
}

template <class Number>
requires std::unsigned_integral<Number>
void read_value(reading &in, uint32_t node, Number *number) {
    const std::string_view text = in.document[node].text;
    const char *const end = text.data() + text.size();
    const std::from_chars_result got = std::from_chars(text.data(), end, *number);
    if (in.document[node].is != json_kind::number || got.ec != std::errc() || got.ptr != end) {
        in.refuse(node, "is not a whole number from 0 to " +
                            std::to_string(std::numeric_limits<Number>::max()));
    }
}

void read_value(reading &in, uint32_t node, double *number) {
    const std::string_view text = in.document[node].text;
    const char *const end = text.data() + text.size();
    const std::from_chars_result got = std::from_chars(text.data(), end, *number);
    if (in.document[node].is != json_kind::number || got.ec != std::errc()) {
        in.refuse(node, "is not a number that fits");
    }
}

template <class Word>
requires std::is_enum_v<Word>
void read_value(reading &in, uint32_t node, Word *value) {
    std::string text;
    read_value(in, node, &text);
    const std::optional<Word> known = value_of_word<Word>(text);
    if (!known) {
        in.refuse(node, "is none of the known words");
        return;
    }
    *value = *known;
}

template <class Record>
requires std::is_class_v<Record>
void read_value(reading &in, uint32_t node, Record *record);
void read_value(reading &in, uint32_t node, source *of);
void read_value(reading &in, uint32_t node, std::vector<extra_member> *extra);

template <class Value>
void read_value(reading &in, uint32_t node, std::optional<Value> *value) {
    read_value(in, node, &value->emplace());
}

// The elements of an array, each by `read`.
template <class Value, class Read>
void read_elements(reading &in, uint32_t node, std::vector<Value> *list, Read read) {
    if (in.document[node].is != json_kind::array) {
        in.refuse(node, "is not an array");
        return;
    }
    const uint32_t end = in.document[node].end;
    list->clear();
    for (uint32_t i = node + 1; i < end && !in.failed(); i = in.document[i].end) {
        read(in, i, &list->emplace_back());
    }
}

template <class Value>
void read_value(reading &in, uint32_t node, std::vector<Value> *list) {
    read_elements(in, node, list, [](reading &from, uint32_t element, Value *value) {
        read_value(from, element, value);
    });
}

// --- members ---

void read_bytes(reading &in, uint32_t node, std::string *text) {
    read_hexadecimal(in, node, text);
}
void read_bytes(reading &in, uint32_t node, std::optional<std::string> *text) {
    read_hexadecimal(in, node, &text->emplace());
}
void read_bytes(reading &in, uint32_t node, std::vector<std::string> *texts) {
    read_elements(in, node, texts, read_hexadecimal);
}

template <class Value>
constexpr bool has_bytes = false;
template <>
constexpr bool has_bytes<std::string> = true;
template <>
constexpr bool has_bytes<std::optional<std::string>> = true;
template <>
constexpr bool has_bytes<std::vector<std::string>> = true;

class reading_visitor {
  public:
    reading_visitor(reading &in, uint32_t object) : in_(in), object_(object) {}

    template <class Value>
    void required(std::string_view name, Value &value) {
        if (!read(name, value)) {
            in_.refuse(object_, "has no member \"" + std::string(name) + '"');
        }
    }
    template <class Value>
    void optional(std::string_view name, Value &value) {
        read(name, value);
    }
    template <class Value>
    void optional(std::string_view name, Value &value, bool) {
        read(name, value);
    }
    template <class Value>
    void whole(std::string_view name, Value &value) {
        read(name, value);
    }
    template <class Value>
    void whole_optional(std::string_view name, Value &value) {
        read(name, value);
    }
    template <class Value>
    void empty_in_whole(std::string_view name, Value &value) {
        read(name, value);
    }

  private:
    // Whether the member is there. The bytes are read last, so they win.
    template <class Value>
    bool read(std::string_view name, Value &value) {
        const uint32_t node = in_.failed() ? 0 : in_.document.member(object_, name);
        if (node) {
            read_value(in_, node, &value);
        }
        if constexpr (has_bytes<Value>) {
            const uint32_t bytes =
                in_.failed() ? 0 : in_.document.member(object_, with_suffix(name));
            if (bytes) {
                read_bytes(in_, bytes, &value);
                return true;
            }
        }
        return node != 0;
    }

    reading &in_;
    const uint32_t object_;
};

bool is_object(reading &in, uint32_t node) {
    if (in.document[node].is != json_kind::object) {
        in.refuse(node, "is not an object");
    }
    return !in.failed();
}

template <class Record>
requires std::is_class_v<Record>
void read_value(reading &in, uint32_t node, Record *record) {
    if (is_object(in, node)) {
        reading_visitor visitor(in, node);
        visit_members(visitor, *record);
    }
}

// --- sources ---

template <class Kind>
void read_source(reading &in, uint32_t node, source *of) {
    Kind kind;
    reading_visitor visitor(in, node);
    visit_members(visitor, kind);
    *of = std::move(kind);
}

bool is_built_in(const json_document &document, uint32_t node) {
    const uint32_t file = document.member(node, "file");
    return file && document[file].is == json_kind::text && document[file].text == built_in_file;
}

// The first of these members that is there tells the kind.
constexpr struct {
    std::string_view member;
    void (*read)(reading &in, uint32_t node, source *of);
} source_kinds[] = {
    {"entry", read_source<list_source>},
    {"record", read_source<range_source>},
    {"expression", read_source<expression_source>},
    {"map", read_source<block_map_source>},
    {"domain", read_source<sender_network_source>},
    {"key", read_source<registry_source>},
    {"folder", read_source<folder_source>},
    {"library", read_source<address_map_source>},
    {"file", read_source<file_source>},
};

void read_value(reading &in, uint32_t node, source *of) {
    if (!is_object(in, node)) {
        return;
    }
    if (is_built_in(in.document, node)) {
        read_source<built_in_source>(in, node, of);
        return;
    }
    for (const auto &kind : source_kinds) {
        if (in.document.member(node, kind.member)) {
            kind.read(in, node, of);
            return;
        }
    }
    in.refuse(node, "names no entry of a known kind");
}

// --- what is not ours ---

void read_value(reading &in, uint32_t node, std::vector<extra_member> *extra) {
    if (!is_object(in, node)) {
        return;
    }
    const uint32_t end = in.document[node].end;
    for (uint32_t i = node + 1; i < end; i = in.document[i].end) {
        extra->emplace_back(in.document[i].name, in.document.compact(i));
    }
}

// --- the whole ---

// The engine's texts end at a NUL: one that holds a NUL would be judged as another text.
void refuse_nul(reading &in, uint32_t object, const transaction &of) {
    const struct {
        std::string_view name;
        const std::optional<std::string> &text;
    } texts[] = {{"ip", of.ip},     {"port", of.port},     {"authuser", of.authuser},
                 {"helo", of.helo}, {"sender", of.sender}, {"recipient", of.recipient}};
    for (const auto &one : texts) {
        if (one.text && one.text->find('\0') != std::string::npos) {
            in.refuse(in.document.member(object, with_suffix(one.name)), "holds a NUL");
        }
    }
}

void check_schema(reading &in) {
    std::string schema;
    reading_visitor(in, 0).required("schema", schema);
    if (in.failed() || schema == record_schema) {
        return;
    }
    const uint32_t node = in.document.member(0, "schema");
    if (schema.starts_with(schema_name)) {
        in.refuse(node, "is a version that this program does not know; it reads \"" +
                            std::string(record_schema) + '"');
    } else {
        in.refuse(node, "is not that of a decision record");
    }
}

bool is_our_member(std::string_view name) {
    static constexpr std::array<std::string_view, 9> ours = {
        "stage", "ip", "port", "tls", "authuser", "mua", "helo", "sender", "recipient"};
    const auto is_ours = [](std::string_view plain) {
        return std::find(ours.begin(), ours.end(), plain) != ours.end();
    };
    return is_ours(name) || (name.ends_with(bytes_suffix) &&
                             is_ours(name.substr(0, name.size() - bytes_suffix.size())));
}

} // namespace

std::optional<decision_record> read_record(const json_document &document, json_problem *problem) {
    *problem = {};
    reading in{document, problem};
    decision_record record;
    if (is_object(in, 0)) {
        check_schema(in);
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

bool check_record_schema(const json_document &document, json_problem *problem) {
    *problem = {};
    reading in{document, problem};
    check_schema(in);
    return !in.failed();
}

} // namespace quillfence::decision
