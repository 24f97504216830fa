// How the members of a document are read: the visitor that record_members.h and others walk with,
// and read_value() for each kind of value. For the readers of documents; their own kinds of values
// are further overloads of read_value().
#pragma once

#include <charconv>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "json_reader.h"
#include "record_members.h"
#include "record_words.h"

namespace quillfence::decision {

inline constexpr std::string_view bytes_suffix = "_bytes";

// What one document gives; the first problem is kept and ends the reading.
struct reading {
    const json_document &document;
    json_problem *problem;
    bool by_hand = false; // what only a record must have may be absent

    bool failed() const {
        return !problem->text.empty();
    }
    void refuse(uint32_t node, const std::string &what);
};

std::string with_suffix(std::string_view name); // the name of the member with a text's bytes

// The next functions refuse what is not of the kind.
bool is_object(reading &in, uint32_t node);
void read_value(reading &in, uint32_t node, std::string *text);
void read_value(reading &in, uint32_t node, bool *flag);
void read_value(reading &in, uint32_t node, double *number);
void read_value(reading &in, uint32_t node, source *of);
void read_value(reading &in, uint32_t node, std::vector<extra_member> *extra);
void read_hexadecimal(reading &in, uint32_t node, std::string *bytes);

// The document's "schema": refused unless it is the wanted one, "quillfence.decision/1". kind says
// what the document then is not: "a decision record".
void check_schema(reading &in, std::string_view wanted, std::string_view kind);

// The engine's texts end at a NUL: one that holds a NUL would be judged as another text.
void refuse_nul(reading &in, uint32_t object, std::string_view name, const std::string &text);
void refuse_nul(reading &in, uint32_t object, const transaction &of);

// --- values ---

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

inline void read_bytes(reading &in, uint32_t node, std::string *text) {
    read_hexadecimal(in, node, text);
}
inline void read_bytes(reading &in, uint32_t node, std::optional<std::string> *text) {
    read_hexadecimal(in, node, &text->emplace());
}
inline void read_bytes(reading &in, uint32_t node, std::vector<std::string> *texts) {
    read_elements(in, node, texts, read_hexadecimal);
}

template <class Value>
inline constexpr bool has_bytes = false;
template <>
inline constexpr bool has_bytes<std::string> = true;
template <>
inline constexpr bool has_bytes<std::optional<std::string>> = true;
template <>
inline constexpr bool has_bytes<std::vector<std::string>> = true;

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
    void recorded(std::string_view name, Value &value) {
        if (in_.by_hand) {
            read(name, value);
        } else {
            required(name, value);
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

template <class Record>
requires std::is_class_v<Record>
void read_value(reading &in, uint32_t node, Record *record) {
    if (is_object(in, node)) {
        reading_visitor visitor(in, node);
        visit_members(visitor, *record);
    }
}

} // namespace quillfence::decision
