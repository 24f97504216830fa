// A slow and simple second opinion on patterns: a parser and a matcher of their own, for comparison
// with the engine. Nothing is shared with the engine but the meaning of a node. The parser splits a
// pattern into tokens first; the matcher keeps what follows a node as a list of chains, tries
// everything that the rules tell, remembers nothing, and throws when a node is bad.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillfence::testing {

struct slow_node {
    int64_t type, left, right, next;
};
using slow_nodes = std::vector<slow_node>;

// The nodes of a pattern, node 0 the root; nothing when the pattern does not compile.
std::optional<slow_nodes> slow_parse(const std::string &pattern);

struct slow_answer {
    bool matched = false;
    std::string line;     // the ERROR line that the match must write, as "function: message"
    bool endless = false; // took too long for an opinion
};
slow_answer slow_match(const slow_nodes &nodes, const std::string &subject, bool fold,
                       uint64_t patience = 200'000);

} // namespace quillfence::testing
