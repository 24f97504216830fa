// How the members of a document are written: the visitor that record_members.h and others walk
// with. For the writers of documents.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "json_writer.h"
#include "record_members.h"
#include "record_words.h"
#include "record_writer.h"

namespace quillfence::decision {

// A record without anything in it.
template <class Value>
bool is_empty(const Value &value) {
    if constexpr (std::is_class_v<Value>) {
        return value == Value();
    } else {
        return false;
    }
}
inline bool is_empty(const std::string &text) {
    return text.empty();
}
inline bool is_empty(bool flag) {
    return !flag;
}
inline bool is_empty(uint32_t number) {
    return !number;
}
inline bool is_empty(const source &of) {
    return std::holds_alternative<std::monostate>(of);
}
template <class Value>
bool is_empty(const std::optional<Value> &value) {
    return !value;
}
template <class Value>
bool is_empty(const std::vector<Value> &list) {
    return list.empty();
}

// Short ones stand on one line when the document is indented.
template <class Record>
constexpr bool is_flat =
    !std::is_same_v<Record, rule_record> && !std::is_same_v<Record, dns_record> &&
    !std::is_same_v<Record, decision> && !std::is_same_v<Record, transaction> &&
    !std::is_same_v<Record, configuration>;

class writing_visitor {
  public:
    writing_visitor(json_writer &json, record_form form) : json_(json), form_(form) {}

    template <class Value>
    void required(std::string_view name, const Value &value) {
        member(name, value);
    }
    template <class Value>
    void recorded(std::string_view name, const Value &value) {
        optional(name, value, form_ != record_form::by_hand || !is_empty(value));
    }
    template <class Value>
    void optional(std::string_view name, const Value &value) {
        if (!is_empty(value)) {
            member(name, value);
        }
    }
    template <class Value>
    void optional(std::string_view name, const Value &value, bool there) {
        if (there) {
            member(name, value);
        }
    }
    template <class Value>
    void whole(std::string_view name, const Value &value) {
        optional(name, value,
                 form_ == record_form::whole ||
                     (form_ == record_form::by_hand && !is_empty(value)));
    }
    template <class Value>
    void whole_optional(std::string_view name, const Value &value) {
        optional(name, value, form_ != record_form::brief && !is_empty(value));
    }
    template <class Value>
    void empty_in_whole(std::string_view name, const Value &value) {
        optional(name, value, form_ == record_form::whole || !is_empty(value));
    }

    template <class Record>
    void object(const Record &record) {
        if constexpr (is_flat<Record>) {
            json_.begin_flat_object();
        } else {
            json_.begin_object();
        }
        visit_members(*this, record);
        json_.end_object();
    }

  private:
    void member(std::string_view name, const std::string &text) {
        json_.name(name);
        if (!json_.text(text)) {
            json_.name(name, "_bytes");
            json_.hexadecimal(text);
        }
    }
    void member(std::string_view name, const std::vector<std::string> &texts) {
        json_.name(name);
        json_.begin_flat_array();
        bool plain = true;
        for (const std::string &text : texts) {
            plain &= json_.text(text);
        }
        json_.end_array();
        if (!plain) {
            bytes_of(name, texts);
        }
    }
    void bytes_of(std::string_view name, const std::vector<std::string> &texts) {
        json_.name(name, "_bytes");
        json_.begin_flat_array();
        for (const std::string &text : texts) {
            json_.hexadecimal(text);
        }
        json_.end_array();
    }
    template <class Value>
    void member(std::string_view name, const std::optional<Value> &value) {
        member(name, *value);
    }
    template <class Value>
    void member(std::string_view name, const Value &value) {
        json_.name(name);
        put(value);
    }

    void put(bool flag) {
        json_.boolean(flag);
    }
    void put(uint32_t number) {
        json_.number(uint64_t{number});
    }
    void put(uint64_t number) {
        json_.number(number);
    }
    void put(double number) {
        json_.number(number);
    }
    template <class Word>
    requires std::is_enum_v<Word>
    void put(Word value) {
        json_.word(word(value));
    }
    template <class Record>
    requires std::is_class_v<Record>
    void put(const Record &record) {
        object(record);
    }
    void put(const std::vector<uint32_t> &numbers) {
        json_.begin_flat_array();
        for (const uint32_t number : numbers) {
            put(number);
        }
        json_.end_array();
    }
    template <class Record>
    void put(const std::vector<Record> &records) {
        json_.begin_array();
        for (const Record &record : records) {
            object(record);
        }
        json_.end_array();
    }
    void put(const std::vector<rule_record> &rules) {
        json_.begin_array();
        for (const rule_record &rule : rules) {
            if (form_ == record_form::whole || is_told_briefly(rule)) {
                object(rule);
            }
        }
        json_.end_array();
    }
    void put(const std::vector<extra_member> &extra) {
        json_.begin_object();
        for (const extra_member &one : extra) {
            json_.name_text(one.first);
            json_.raw(one.second);
        }
        json_.end_object();
    }
    void put(const source &of) {
        json_.begin_flat_object();
        if (std::holds_alternative<built_in_source>(of)) {
            json_.name("file");
            json_.word(built_in_file);
        }
        std::visit([this](const auto &kind) { source_members(kind); }, of);
        json_.end_object();
    }
    void source_members(const std::monostate &) {}
    template <class Kind>
    void source_members(const Kind &kind) {
        visit_members(*this, kind);
    }

    json_writer &json_;
    const record_form form_;
};

} // namespace quillfence::decision
