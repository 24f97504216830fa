// Reads a JSON document of somebody else's making, strictly and with bounds.
//
// Only what the standard calls JSON is read, and the whole text must be one value. Refused, too,
// are text that is not UTF-8, a NUL in any spelling, half of a surrogate pair, a member name that
// stands twice in an object, and what is larger, deeper or of more values than the limits say.
// vc_json, which the engine reads its own files with, is lenient on purpose, tells of failures in
// the event log and knows no lines; what arrives from outside is read here.
//
// A document is a list of nodes in the order in which they begin. A container's children lie
// behind it, up to its `end`:
//
//     {"a": [1, 2], "b": 3}        0 object, end 5
//                                  1   "a": array, end 4
//                                  2     1
//                                  3     2
//                                  4   "b": 3
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace quillfence::decision {

struct json_limits {
    size_t bytes = size_t{16} << 20;
    unsigned depth = 64;
    size_t nodes = 1'000'000;
};

enum class json_kind : uint8_t { null, boolean, number, text, array, object };

struct json_node {
    json_kind is;
    uint32_t end;          // the node behind it and all that is in it
    std::string_view name; // of a member
    std::string_view text; // a text, decoded; of other kinds the value as it stands in the document
};

struct json_problem {
    uint32_t line = 0; // of the text, from 1
    std::string text;  // what is wrong; "" when nothing is
};

class json_document {
  public:
    // The text must stay where it is while the document is used. When it is refused the document is
    // empty and *problem says why.
    json_document(std::string_view text, json_problem *problem, const json_limits &limits = {});

    json_document(const json_document &) = delete;
    json_document &operator=(const json_document &) = delete;

    bool empty() const {
        return nodes_.empty();
    }
    const json_node &operator[](uint32_t node) const {
        return nodes_[node];
    }
    // The member of that name; 0, which is nobody's member, for none.
    uint32_t member(uint32_t object, std::string_view name) const;

    // Where a node stands, for a complaint: its line, and "rules[3].source.line".
    uint32_t line_of(uint32_t node) const;
    std::string path_of(uint32_t node) const;

    // The value as it stands in the text, with its quotes or brackets.
    std::string_view raw(uint32_t node) const;

    // The value as JSON on one line, without white space.
    std::string compact(uint32_t node) const;

  private:
    friend class json_parser;
    std::string_view text_;
    std::vector<json_node> nodes_;
    std::vector<size_t> offsets_;     // of the nodes in the text
    std::deque<std::string> decoded_; // texts that held escapes
};

} // namespace quillfence::decision
