// The regular-expression engine: compiles a pattern into a flat array of nodes and matches byte
// strings against it. Text is ASCII; bytes from 0x80 up in a subject are in no character class,
// and a pattern must not hold them.
//
// An expression always speaks of the whole subject. A pattern that starts with neither "^" nor
// ".*" gets ".*" put in front, and one that does not end in "$" gets ".*$" appended: foo finds
// the word anywhere. Kept on purpose: this happens to the text, before it is parsed, so that a|b
// is ".*a" or "b.*$", a pattern that ends in an escaped dollar has no end, and a backslash at the
// end escapes the appended dot.
//
//   x        the character x; with case flag 0 in either case
//   .        any character
//   ^ $      the subject's beginning, its end
//   (x) (?:x) a group; it must not be empty, nor may a branch in it
//   x|y      x, and y only where x did not match; what has matched is not tried differently
//   [x-z\d_] one character of a class; [^...] one that is not in it. "-" stands for itself at
//            either end and behind a range or \d. Kept on purpose: a character that is listed
//            singly compares exactly, whatever the case flag.
//   \d       \a letter, \c control, \d digit, \l lower case, \p punctuation, \s white space,
//            \u upper case, \w letter, digit or underscore, \x hexadecimal digit; upper-case
//            letters are the opposite, but for \L and \U, which are literals
//   \b \B    a word boundary, a place that is none (letters inside a class)
//   \f \n \r \t \v   control characters. They compile, but as nodes of their own they fail the
//            check of a match; as bounds of a range they are fine.
//   \other   the character itself, which must be printable, too
//   x* x+ x? x{n} x{n,} x{n,m}   repetition. One per element; a further one, or one where an
//            element should begin, is a literal.
//
// How repetitions behave is told at the head of tiny_rex_match.cpp. It is not what other libraries
// do.
#pragma once

#include <cstdint>
#include <memory>

namespace quillfence {

// Case flags of the compiler.
inline constexpr uint8_t trex_fold_case = 0; // as stored expressions always match
inline constexpr uint8_t trex_exact_case = 1;

// Node types from 256 up; a type below is the code of a literal character.
enum : int32_t {
    trex_op_greedy = 256,       // left: operand; right: minimum << 16 | maximum
    trex_op_or = 257,           // left, right: first nodes of the branches
    trex_op_expr = 258,         // capturing group; left: first node; right: number of the group
    trex_op_nocapexpr = 259,    // group without a number; left: first node
    trex_op_dot = 260,          // any character
    trex_op_class = 261,        // left: first item
    trex_op_cclass = 262,       // \d; left: the letter
    trex_op_nclass = 263,       // negated class; left: first item
    trex_op_range = 264,        // item of a class; left, right: lowest and highest character
    trex_op_eol = 266,          // $ (265 is not used)
    trex_op_bol = 267,          // ^
    trex_op_wb = 268,           // \b or \B; left: the letter
    trex_op_any_sequence = 269, // .* as one node
};
// The maximum of a repetition that has none, and the largest number in braces.
inline constexpr int32_t trex_unbounded = 65535;

// One node, as it lies in memory and (little-endian) in a compiled pattern file. Links are indexes
// into the node array; any negative link means none.
struct TRexNode {
    int32_t type;
    int32_t left;
    int32_t right;
    int32_t next; // the following node in sequence
};

// Where a capturing group has matched last; begin is null for one that has not.
struct TRexMatch {
    const char *begin;
    int32_t length;
};

// A compiled expression. One that was read from a file has nothing but nodes and nallocated set.
struct TRex {
    TRexNode *nodes; // node 0 is the root
    int32_t nallocated;
    int32_t nsize;      // nodes in use
    int32_t nsubexpr;   // capturing groups of the pattern, the root included
    int32_t currsubexp; // capturing groups opened during a match
    const char *bol;    // the subject during a match, and one past its last character
    const char *eol;
    char *pattern; // as it was compiled, with what was put around it
    TRexMatch *matches;
    uint32_t steps; // that the last match took: how often a node was looked at
    uint8_t case_flag;
    bool end_fits; // whoever lent the nodes has compared the subject's end (required_ending)
};

// Compiles a pattern with case flag trex_fold_case or trex_exact_case. Returns a new expression
// for trex_free, or null after one ERROR line ("Invalid argument: [NULL]" for a null pattern).
// Groups may be nested 1000 deep.
// ERROR lines: of trex_compile_ex, __trex_newnode, __trex_list, __trex_element, __trex_class,
// __trex_escapechar, __trex_charnode, __trex_charclass, __trex_parsenumber. A node that could not
// be allocated has two: ENOMEM of __trex_newnode, and what could not be made.
TRex *trex_compile_ex(const char *pattern, uint8_t case_flag);

// The most steps of a match.
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION // hopeless patterns must not take all the time
inline constexpr uint32_t trex_most_steps = 100'000;
#else
inline constexpr uint32_t trex_most_steps = 50'000'000;
#endif

// 1 when the expression matches the whole subject, else 0. Allocates nothing.
// Nodes are checked when they are used; one that fails the check, a cycle, or more steps than
// trex_most_steps make the result 0, after one ERROR line.
// ERROR lines: "TRex* is NULL", "node is NULL" (an expression without nodes), EINVAL (null
// subject), those of __trex_node_is_valid, and of __trex_matchnode and __trex_matchclass for
// cycles and steps.
int trex_match(TRex *expression, const char *subject);

// The same for a subject that need not end in NUL.
int __trex_match_span(TRex *expression, const char *begin, const char *end);

// The same with fewer steps, at most trex_most_steps. Where these run out the result is 0 without
// a line, and the record's steps are as many as were given.
int __trex_match_within(TRex *expression, const char *begin, const char *end, uint32_t most_steps);

// The literals that a subject must end in, letters in either case, for an expression about which a
// match has nothing to report before it finds that out: all nodes are good and form a tree. A
// subject that ends differently is not matched, without a line.
//   ending, room  receive the last ones of them, without a NUL
// Returns how many; 0 where there are none.
size_t required_ending(const TRex *expression, char *ending, size_t room);

struct character_set {
    uint64_t words[4];

    void add(char c) {
        const auto code = static_cast<unsigned char>(c);
        words[code / 64] |= uint64_t{1} << code % 64;
    }
    bool has(char c) const {
        const auto code = static_cast<unsigned char>(c);
        return words[code / 64] >> code % 64 & 1;
    }
};

// Likewise the characters that a subject can end in; all of them where nothing is known. A subject
// that ends in another one is not matched, without a line.
void possible_last_characters(const TRex *expression, character_set *characters);

// The characters that a node for one character takes: a literal, a dot, a class. The node is good.
void characters_of_node(const TRex *expression, int32_t index, character_set *characters);

// Releases the node array, the match table, the pattern text and the record. Null is fine.
void trex_free(TRex *expression);

struct trex_deleter {
    void operator()(TRex *expression) const {
        trex_free(expression);
    }
};
using trex_ptr = std::unique_ptr<TRex, trex_deleter>;

// A copy of a text with a backslash before each of $ ( ) * + . ? [ \ ] ^ { | }, to be freed by the
// caller; null after an ERROR line (EINVAL for a null text, ENOMEM).
char *trex_escape(const char *text);

// 1 when a node of the expression may be used, else 0 after one ERROR line: every link in range
// (below nallocated), operands present, bounds of a repetition in order, literals printable.
int __trex_node_is_valid(const TRex *expression, const TRexNode *node);

} // namespace quillfence
