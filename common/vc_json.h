// JSON documents: a tree of nodes that can be built, parsed, asked, changed and written.
//
//     {"spam_hits":["require_helo"],"bms_hits":[]}
//
//     object, value: map ---- "spam_hits": array, value: list ---- string, value: "require_helo"
//                        \--- "bms_hits":  array, value: null
//
// A node owns its name, its value and, through the value, everything below it. Members keep the
// order in which they were added. Texts are kept as they stand between the quotes of a document:
// escape sequences are neither decoded when read nor made when written.
//
// Results are 1 for success and 0 for failure, or a pointer with null for failure. Every failure
// writes an ERROR line: the EINVAL text for a null or invalid argument, the ENOMEM text for a
// failed allocation, and the lines named with each operation. A tree belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "vc_hashmap.h"

namespace quillfence {

// Type codes, bit values.
inline constexpr uint32_t vc_json_type_untyped = 1; // a member name whose value is not known yet
inline constexpr uint32_t vc_json_type_number = 2;
inline constexpr uint32_t vc_json_type_string = 4;
inline constexpr uint32_t vc_json_type_bool = 8;
inline constexpr uint32_t vc_json_type_null = 16;
inline constexpr uint32_t vc_json_type_array = 32;
inline constexpr uint32_t vc_json_type_object = 64;
inline constexpr uint32_t vc_json_mask_scalar = 2 | 4 | 8 | 16;
inline constexpr uint32_t vc_json_mask_complex = 32 | 64;

// A document deeper than this many brackets is not parsed.
inline constexpr int vc_json_nesting_limit = 1000;

struct vc_json {
    uint32_t type;
    char *name;  // of a member of an object; null for elements and the root
    void *value; // scalar: the value's text, char *; array: null-terminated vc_json **; object:
                 // vc_hashmap * from name to vc_json *; null for an empty array or object
};

// Frees a node and everything below it; null is accepted. Takes a void pointer so that it can
// serve lists and maps as their release function.
void vc_json_free(void *node);

// --- Building ---

// Every creator makes a node and, when parent is not null, adds it there (see vc_json_add_node).
// name is copied, and null for none. The parent owns the node; without one the caller does.
// ERROR line, always with a null result: "Error appending new node to parent node".

// The general creator. A null value is stored as it is, and so is any value of an array or object
// (a list or map in the form that vc_json tells, which the node takes over unless it fails). Else
// a null node gets "null", a boolean "true" for "true" in any case and "false" for any other
// text, and the other types a copy of the text, which for a number must be one: digits, '-' and
// '.' in the form of a decimal number without an exponent.
// ERROR lines: "Error input number contained invalid character", "Error input number causues float
// overflow/underflow", "Error input number contains non-numeric information after the last digit",
// "Detected empty string when number expected"; EINVAL for a type that does not exist.
vc_json *vc_json_create_node(vc_json *parent, const char *name, const char *value, uint32_t type);

vc_json *vc_json_create_node_object_ex(vc_json *parent, const char *name,
                                       vc_hashmap *members = nullptr);
vc_json *vc_json_create_node_array_ex(vc_json *parent, const char *name,
                                      vc_json **elements = nullptr);
vc_json *vc_json_create_node_null_ex(vc_json *parent, const char *name);
vc_json *vc_json_create_node_bool_ex(vc_json *parent, const char *name, int value);
// The text is written as it is: what needs escaping, the caller has escaped. EINVAL for null.
vc_json *vc_json_create_node_string_ex(vc_json *parent, const char *name, const char *value);
// The shortest decimal text, without an exponent, that reads as the same double. Infinities and
// NaN are no JSON numbers: "Error input number contained invalid character".
vc_json *vc_json_create_node_float_ex(vc_json *parent, const char *name, double value);
// Kept on purpose: -2147483648 becomes the text "-2", as in vc_ltoa.
vc_json *vc_json_create_node_int_ex(vc_json *parent, const char *name, int32_t value);
vc_json *vc_json_create_node_int64_ex(vc_json *parent, const char *name, int64_t value);

// Puts child under parent, which owns it from then on; on failure it stays with the caller. An
// array takes nameless children at its end, an object named ones, each name once. (The empty name
// works, but the map writes an EINVAL line for it.)
// ERROR lines: "Cannot add named node [%s] to array node", "Cannot add nameless node to object
// node", "Failed to create new map for parent object", "Failed to store node in parent object map"
// (also for a name that is there already), "Error attemping to add a node to a parent that is not
// an array or object"; EINVAL also for a node as its own parent.
int vc_json_add_node(vc_json *parent, vc_json *child);

// --- Finding ---

// A path names a node below an array or object: member names separated by '/', each perhaps
// followed by indexes: "list[2]/name", "matrix[1][0]", "[3]/name" on an array. A name ends at the
// first '[' or '/'; an index is a decimal number from 0.

// The node that path names below node, or null. On an array a plain name means its first element
// with that name (elements have one only after vc_json_rename_node). *parent (may be null)
// receives the node that holds the found one, null when nothing was found.
// ERROR lines: "Bad character encountered: [%c]" for anything but '/' or '[' behind an index and
// for an index that is no number; EINVAL for a null or empty path. A path that leads nowhere is
// null without a line.
vc_json *vc_json_get_node_ex(vc_json *node, const char *path, vc_json **parent);

// The element or member at a zero-based position, or null. ERROR lines: "Failed to get node at
// index [%u] from object node" behind the map's own; none for an array; EINVAL for a scalar node.
vc_json *vc_json_node_index(vc_json *node, uint32_t index);

// The node that path names below node or, failing that, below any array or object under it, the
// first one met depth-first. ERROR line: "Failed to create json iterator for node: [%s]".
vc_json *vc_json_find_node(vc_json *node, const char *path);

// Elements or members; 0 for a scalar node.
uint32_t vc_json_num_children(const vc_json *node);
// The type code; 0 for null.
uint32_t vc_json_get_node_type(const vc_json *node);

// A walk over the children, ended with vc_json_iterator_end (which accepts null). Fresh, next
// gives the first child and prev the last one; on a child they give the one behind and the one
// before; at an end they give null and the walk stays where it is. The children must not change
// during the walk. ERROR lines: "Failed to create iterator"; EINVAL for a scalar node.
struct vc_json_iterator;
vc_json_iterator *vc_json_iterator_start(vc_json *node);
vc_json *vc_json_iterator_next(vc_json_iterator *iterator);
vc_json *vc_json_iterator_prev(vc_json_iterator *iterator);
void vc_json_iterator_end(vc_json_iterator *iterator);

// --- Changing ---

// Removes and frees the node that path names below node; 1 also when there is none. 0 when memory
// runs out on the way: the node is then where it was.
// ERROR lines: "Could not retrieve parent node for node [%s]", "Retrieved node does not have a
// name" (a member of a map made elsewhere); EINVAL for a null or empty path.
int vc_json_remove_node(vc_json *node, const char *path);
// Gives the node that path names below node another name, which is copied; a member keeps its
// place. ERROR lines: "Unable to retrieve node [%s]", "Failed to rename node [%s] to [%s] in parent
// map" (the new name is taken, also by the node itself), "Programmer Error! Parent node is not
// complex!".
int vc_json_rename_node(vc_json *node, const char *path, const char *new_name);

// --- Values ---

// The getters put the value of the node, or with a path (else null) of the node that it names
// below, into *value, which they leave alone on failure. A node without a value, such as an empty
// array, counts as not there.
// ERROR lines: "Unable to retrieve node [%s]" with the path, and for another type "Error retrieved
// node is not of type number" (kept for the boolean getter, too), "Error retrieved node cannot be
// treated as a string", "Error retrieved node is not of type array", "Error retrieved node is not
// of type object".

int vc_json_get_value_float(vc_json *node, const char *path, double *value);
// Digits behind a point are dropped; what is outside of the range becomes the end of the range.
int vc_json_get_value_int(vc_json *node, const char *path, int32_t *value);
int vc_json_get_value_int64(vc_json *node, const char *path, int64_t *value);
// 1 or 0. ERROR line: "Error boolean node did not contain true or false".
int vc_json_get_value_bool(vc_json *node, const char *path, int *value);
// A copy, which the caller frees, of any scalar's text.
int vc_json_get_value_string(vc_json *node, const char *path, char **value);
// The array or object node itself, borrowed.
int vc_json_get_value_list(vc_json *node, const char *path, vc_json **value);
int vc_json_get_value_object(vc_json *node, const char *path, vc_json **value);

// The setters replace the value of such a node, which must have the setter's type.
// ERROR lines: "Unable to retrieve node [%s]"; "Error retrieved node is not of type number: %d"
// with the type code, and the same with "boolean", "string", "array" and "object".

int vc_json_set_value_float(vc_json *node, const char *path, double value);
int vc_json_set_value_int(vc_json *node, const char *path, int32_t value);
int vc_json_set_value_int64(vc_json *node, const char *path, int64_t value);
int vc_json_set_value_bool(vc_json *node, const char *path, int value);
int vc_json_set_value_string(vc_json *node, const char *path, const char *value);
// These take over a list or map in the form that vc_json tells (null for none), unless they fail,
// and free the old children.
int vc_json_set_value_list(vc_json *node, const char *path, vc_json **elements);
int vc_json_set_value_object(vc_json *node, const char *path, vc_hashmap *members);

// --- Parsing ---

// The parser is strict in some places and lenient in others, all of it on purpose: tab, line feed
// and space are white space, a carriage return is not; the first thing behind an opening bracket
// may be any token, even a comma; either closing bracket ends the level, as in "[1}"; keywords may
// be in capitals, but not at their first letter behind a comma of an array; a name may stand only
// once in an object. Numbers have no exponents. An unclosed document is refused.

// The document in a text: one array or object. White space before it is skipped, text behind it
// is ignored. Returns the root, which the caller frees, or null.
// ERROR lines: "Encountered unexpected '%c' at start of json, expected '{' or '['", "Error parsing
// object" behind those of vc_json_parse_partial.
vc_json *vc_json_parse_string(const char *text);
// The same for a file. ERROR line: "file path %s does not exist"; the file is not created.
vc_json *vc_json_parse_file(const char *path);
// Every top-level block in braces of a file, each parsed as a document; text between them is
// ignored. Braces are counted wherever they stand, also within quotes (kept on purpose). Returns a
// null-terminated list of roots, released with vc_lstfree and vc_json_free, or null when there is
// none or a block does not parse. A last block without its closing brace only ends the list.
// ERROR lines: "file path %s does not exist", "Error parsing json string", "Error appending node to
// list", "Failed to find ending '}' brace".
vc_json **vc_json_parse_full_file(const char *path);
// Parses what stands behind an opening bracket, up to the closing one, into parent, an empty array
// or object. *end (may be null) receives the position behind the closing bracket. Returns parent,
// or null: then parent is empty again.
// ERROR lines: "Unexpected character '%c' at position %zu in: [%s]" (from the beginning of the
// document, which is quoted), "Escape character found at end of string", "Error while reading
// string from json", "Error while appending node [%s] to parent [%s]", "Invalid keyword: %.5s",
// "Unknown field encountered: [%s]", "No current node..." (a value without a name in an object),
// "Encountered invalid json" (no token at all, an early end, too many levels), and for each level
// that fails by it "Error parsing object", "Error parsing quotes", "Error parsing true/false/null"
// or "Error parsing number".
vc_json *vc_json_parse_partial(const char *text, vc_json *parent, const char **end);

// --- Writing ---

// Writes node and what is below it to stream, compact or on indented lines. The name of the node
// itself is not written. 1, or 0 when a part could not be written.
// ERROR lines: EINVAL for null; "Error encountered null data in non-array/object" (nothing is
// written for that node), "Failed to create map iterator" (nothing more is written), the system's
// text for a failed stream.
int vc_json_dump(FILE *stream, const vc_json *node);
int vc_json_dump_pretty(FILE *stream, const vc_json *node);
// The worker: has_next is true when a sibling follows, depth 0 the root.
int __vc_json_dump(FILE *stream, const vc_json *node, int has_next, int depth, int pretty);

} // namespace quillfence
