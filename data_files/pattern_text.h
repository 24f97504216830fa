// Patterns as text: the lines of a pattern list, and the way back from compiled nodes.
#pragma once

#include <string>
#include <string_view>

#include "tiny_rex.h"

namespace quillfence::data_files {

struct pattern_line {
    enum class kind {
        nothing,
        pattern,
        condition, // "if /.../": the lines up to its "endif" hold for the names that it takes
        negated_condition, // "if !/.../": for those that it does not
        end_of_condition,
        wrong,
        wrong_condition, // which has an "endif" all the same
    };
    kind is;
    std::string text{}; // the pattern, or what is wrong
    // Of a mail server's line what it does with a name that matches, in upper case: "REJECT". ""
    // when it does not say.
    std::string action{};
};

// Whether a mail server refuses the client for an action, for now or for good: REJECT, DISCARD,
// the DEFERs, and reply codes of 400 and more. A line without an action is there to refuse, too.
bool is_refusal(std::string_view action);

// Understands the lines of one list, in their order:
//
//     # ...                 a comment; so is a blank line
//     /pattern/flags ACTION as mail servers keep them. The pattern ends at the first "/" without
//                           a backslash. Lines behind it that begin with white space go on with
//                           the action; one that would begin it there is wrong. Flags i, m, s, E, U
//                           and X change nothing here; A and x would change what the pattern means
//                           and are wrong.
//     if /pattern/flags     a condition, also as "if !/pattern/"; "endif" ends it, whatever stands
//                           behind a blank there. Both in any letter case. They may be nested;
//                           whether they are in balance is not judged here.
//     anything else         a pattern. White space around it is dropped, but for a blank behind a
//                           backslash.
//
// "!/.../" lines of such lists are wrong: a compiled file can't say what a pattern does not take.
class pattern_reader {
  public:
    pattern_line read(std::string_view line);

  private:
    bool after_action_ = false; // the next line may go on with a table line's action
    bool has_action_ = false;   // which has begun
};

// The text of an expression as it would be written in a list: a pattern that read() takes and that
// compiles to exactly these nodes, all nallocated of them. Empty when there is none; *reason then
// tells why. Nodes may be damaged in any way.
std::string pattern_of_nodes(const TRex &expression, std::string *reason);

// The nodes one by one, "0: group 0, first node 1, ...".
std::string describe_node(const TRex &expression, int32_t index);

} // namespace quillfence::data_files
