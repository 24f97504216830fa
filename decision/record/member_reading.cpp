#include "member_reading.h"

namespace quillfence::decision {

void reading::refuse(uint32_t node, const std::string &what) {
    if (!failed()) {
        const std::string path = document.path_of(node);
        problem->line = document.line_of(node);
        problem->text = path.empty() ? "the document " + what : path + ": " + what;
    }
}

std::string with_suffix(std::string_view name) {
    return std::string(name).append(bytes_suffix);
}

bool is_object(reading &in, uint32_t node) {
    if (in.document[node].is != json_kind::object) {
        in.refuse(node, "is not an object");
    }
    return !in.failed();
}

// --- values ---

static int hex_digit(char c) {
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

void read_value(reading &in, uint32_t node, double *number) {
    const std::string_view text = in.document[node].text;
    const char *const end = text.data() + text.size();
    const std::from_chars_result got = std::from_chars(text.data(), end, *number);
    if (in.document[node].is != json_kind::number || got.ec != std::errc()) {
        in.refuse(node, "is not a number that fits");
    }
}

// --- sources ---

template <class Kind>
static void read_source(reading &in, uint32_t node, source *of) {
    Kind kind;
    reading_visitor visitor(in, node);
    visit_members(visitor, kind);
    *of = std::move(kind);
}

static bool is_built_in(const json_document &document, uint32_t node) {
    const uint32_t file = document.member(node, "file");
    return file && document[file].is == json_kind::text && document[file].text == built_in_file;
}

// The first of these members that is there tells the kind.
static constexpr struct {
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

void check_schema(reading &in, std::string_view wanted, std::string_view kind) {
    std::string schema;
    reading_visitor(in, 0).required("schema", schema);
    if (in.failed() || schema == wanted) {
        return;
    }
    const uint32_t node = in.document.member(0, "schema");
    if (schema.starts_with(wanted.substr(0, wanted.find('/') + 1))) {
        in.refuse(node, "is a version that this program does not know; it reads \"" +
                            std::string(wanted) + '"');
    } else {
        in.refuse(node, "is not that of " + std::string(kind));
    }
}

void refuse_nul(reading &in, uint32_t object, std::string_view name, const std::string &text) {
    if (!in.failed() && text.find('\0') != std::string::npos) {
        in.refuse(in.document.member(object, with_suffix(name)), "holds a NUL");
    }
}

void refuse_nul(reading &in, uint32_t object, const transaction &of) {
    const struct {
        std::string_view name;
        const std::optional<std::string> &text;
    } texts[] = {{"ip", of.ip},     {"port", of.port},     {"authuser", of.authuser},
                 {"helo", of.helo}, {"sender", of.sender}, {"recipient", of.recipient}};
    for (const auto &one : texts) {
        refuse_nul(in, object, one.name, one.text.value_or(""));
    }
}

} // namespace quillfence::decision
