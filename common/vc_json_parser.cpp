// Reads documents into trees of JSON nodes.
//
// One level of the parser reads what stands between a pair of brackets. It keeps the set of
// characters with which the next token may begin; every token sets it for the one behind it:
//
//     token                       the next one begins with
//     opening bracket of level    anything
//     member name                 :
//     :                           { [ " digit - . t T f F n N
//     , in an object              "
//     , in an array               { [ " digit - . t f n
//     value                       , } ]
//
// So only a first token can be out of place without being refused by its set: a value without a
// name in an object meets "No current node...", and what is no token at all "Encountered invalid
// json".

#include "vc_file.h"
#include "vc_json_internal.h"
#include "vc_log.h"
#include "vc_nulltermlist.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_json";
static constexpr char parser[] = "vc_json_parse_partial";

static constexpr char behind_name[] = ":";
static constexpr char behind_colon[] = "{[\"0123456789-.tTfFnN";
static constexpr char behind_value[] = ",}]";
static constexpr char behind_comma_in_object[] = "\"";
// Without the capitals, kept on purpose: [1,TRUE] is refused, {"a":TRUE} is not.
static constexpr char behind_comma_in_array[] = "{[\"0123456789-.tfn";

namespace {

// Where the reading stands in the whole text.
struct document {
    const char *text;
    const char *cursor;
};

// A growing list of nodes. The array is null-terminated from its first node on.
struct node_list {
    void **nodes;
    size_t count;
    size_t room;
};

// One pair of brackets.
struct level {
    vc_json *node;       // the array or object that is read
    node_list elements;  // of an array; the array itself is the node's value
    vc_json *pending;    // of an object: the member that waits for its value
    const char *allowed; // first characters of the next token; null for any
    bool value_expected; // behind a colon
    int depth;           // 1 for the outermost
};

} // namespace

static bool is_white_space(char c) {
    return c == '\t' || c == '\n' || c == ' ';
}

static void skip_white_space(document *in) {
    while (is_white_space(*in->cursor)) {
        ++in->cursor;
    }
}

static int append(node_list *list, vc_json *node) {
    if (list->count + 1 >= list->room) {
        const size_t room = list->room ? 2 * list->room : 4;
        void *grown = realloc(list->nodes, room * sizeof *list->nodes);
        if (!grown) {
            return 0;
        }
        list->nodes = static_cast<void **>(grown);
        list->room = room;
    }
    list->nodes[list->count++] = node;
    list->nodes[list->count] = nullptr;
    return 1;
}

// A new string of the text from first to last; null with an ENOMEM line.
static char *copy_range(const char *first, const char *last) {
    char *copy = vc_strndup(first, static_cast<size_t>(last - first));
    if (!copy) {
        QF_ERRNO_AS(parser, ENOMEM);
    }
    return copy;
}

// --- Nodes of a level ---

// Puts a new node into the level's array or object. On failure it is freed.
static int place_node(level *at, vc_json *node) {
    int placed;
    if (at->node->type == vc_json_type_array) {
        placed = append(&at->elements, node);
        at->node->value = at->elements.nodes;
        if (!placed) {
            QF_ERRNO_AS(parser, ENOMEM);
        }
    } else {
        placed = vc_json_add_node(at->node, node);
    }
    if (!placed) {
        QF_ERROR_AS(parser, "Error while appending node [%s] to parent [%s]",
                    text_or_null(node->name), text_or_null(at->node->name));
        vc_json_free(node);
    }
    return placed;
}

// The node that gets the value at the cursor: a new element, or the member whose name was read.
static vc_json *node_for_value(level *at) {
    vc_json *node = at->pending;
    if (at->node->type == vc_json_type_array) {
        node = __vc_json_new_node(parser, vc_json_type_untyped);
        if (!node || !place_node(at, node)) {
            return nullptr;
        }
    } else if (!node) {
        QF_ERROR_AS(parser, "No current node...");
        return nullptr;
    }
    at->pending = nullptr;
    at->value_expected = false;
    at->allowed = behind_value;
    return node;
}

// Takes text over.
static int store_value(level *at, uint32_t type, char *text) {
    vc_json *node = text ? node_for_value(at) : nullptr;
    if (!node) {
        free(text);
        return 0;
    }
    node->type = type;
    node->value = text;
    return 1;
}

// Begins a member; takes name over.
static int store_name(level *at, char *name) {
    vc_json *member = __vc_json_new_node(parser, vc_json_type_untyped);
    if (!member) {
        free(name);
        return 0;
    }
    member->name = name;
    if (!place_node(at, member)) {
        return 0;
    }
    at->pending = member;
    at->allowed = behind_name;
    return 1;
}

// --- Tokens ---

// The text between the quote at the cursor and the next one that no backslash escapes.
static char *read_string(document *in) {
    const char *const first = in->cursor + 1;
    const char *last = first;
    while (*last && *last != '"') {
        if (*last == '\\' && !*++last) {
            QF_ERROR_AS(parser, "Escape character found at end of string");
            return nullptr;
        }
        ++last;
    }
    if (!*last) {
        return nullptr;
    }
    in->cursor = last + 1;
    return copy_range(first, last);
}

static int parse_quotes(document *in, level *at) {
    char *text = read_string(in);
    if (!text) {
        QF_ERROR_AS(parser, "Error while reading string from json");
        return 0;
    }
    const bool is_name =
        at->node->type == vc_json_type_object && !at->pending && !at->value_expected;
    return is_name ? store_name(at, text) : store_value(at, vc_json_type_string, text);
}

static int parse_keyword(document *in, level *at) {
    static constexpr struct {
        const char *text;
        uint32_t type;
    } keywords[] = {
        {"true", vc_json_type_bool}, {"false", vc_json_type_bool}, {"null", vc_json_type_null}};

    const char *const first = in->cursor;
    while (is_letter(*in->cursor)) {
        ++in->cursor;
    }
    const heap_string word(copy_range(first, in->cursor));
    if (!word) {
        return 0;
    }
    for (const auto &keyword : keywords) {
        if (!_stricmp(word.get(), keyword.text)) {
            return store_value(at, keyword.type, __vc_json_copy_text(parser, keyword.text));
        }
    }
    QF_ERROR_AS(parser, "Invalid keyword: %.5s", first);
    QF_ERROR_AS(parser, "Unknown field encountered: [%s]", word.get());
    return 0;
}

static int parse_number(document *in, level *at) {
    const char *const first = in->cursor;
    while (*in->cursor && !strchr(behind_value, *in->cursor) && !is_white_space(*in->cursor)) {
        ++in->cursor;
    }
    heap_string text(copy_range(first, in->cursor));
    if (!text || !__vc_json_valid_number("vc_json_create_node", text.get())) {
        return 0;
    }
    return store_value(at, vc_json_type_number, text.release());
}

static int parse_level(document *in, vc_json *node, int depth);

static int parse_nested(document *in, level *at) {
    const uint32_t type = *in->cursor == '{' ? vc_json_type_object : vc_json_type_array;
    if (at->depth == vc_json_nesting_limit) {
        QF_ERROR_AS(parser, "Encountered invalid json");
        return 0;
    }
    vc_json *node = node_for_value(at);
    if (!node) {
        return 0;
    }
    node->type = type;
    ++in->cursor;
    return parse_level(in, node, at->depth + 1);
}

static int summed_up(int result, const char *summary) {
    if (!result) {
        QF_ERROR_AS(parser, "%s", summary);
    }
    return result;
}

// --- Levels ---

static int parse_token(document *in, level *at) {
    const char c = *in->cursor;
    if (c == ':') {
        ++in->cursor;
        at->value_expected = true;
        at->allowed = behind_colon;
        return 1;
    }
    if (c == ',') {
        ++in->cursor;
        at->allowed =
            at->node->type == vc_json_type_object ? behind_comma_in_object : behind_comma_in_array;
        return 1;
    }
    if (c == '{' || c == '[') {
        return summed_up(parse_nested(in, at), "Error parsing object");
    }
    if (c == '"') {
        return summed_up(parse_quotes(in, at), "Error parsing quotes");
    }
    if (c && strchr("tfnTFN", c)) {
        return summed_up(parse_keyword(in, at), "Error parsing true/false/null");
    }
    if (is_digit(c) || c == '-' || c == '.') {
        return summed_up(parse_number(in, at), "Error parsing number");
    }
    QF_ERROR_AS(parser, "Encountered invalid json"); // also the end of the text
    return 0;
}

// Reads the rest of the level whose opening bracket is just before the cursor into node.
static int parse_level(document *in, vc_json *node, int depth) {
    level at = {};
    at.node = node;
    at.depth = depth;
    for (;;) {
        skip_white_space(in);
        const char c = *in->cursor;
        if (c && at.allowed && !strchr(at.allowed, c)) {
            QF_ERROR_AS(parser, "Unexpected character '%c' at position %zu in: [%s]", c,
                        static_cast<size_t>(in->cursor - in->text), in->text);
            return 0;
        }
        if (c == ']' || c == '}') { // of either kind, kept on purpose
            ++in->cursor;
            return 1;
        }
        if (!parse_token(in, &at)) {
            return 0;
        }
    }
}

// --- Files ---

// The whole of an existing file; null with an ERROR line.
static char *read_file(const char *operation, const char *path) {
    if (is_empty(path)) {
        QF_ERRNO_AS(operation, EINVAL);
        return nullptr;
    }
    if (!vc_file_exists_ex(path, vc_type_file)) {
        QF_ERROR_AS(operation, "file path %s does not exist", path);
        return nullptr;
    }
    return vc_existing_contents(path, nullptr);
}

// The position behind the brace that closes the one at block, or null.
static char *behind_block(char *block) {
    int depth = 0;
    for (char *position = block; *position; ++position) {
        if (*position == '{') {
            ++depth;
        } else if (*position == '}' && --depth == 0) {
            return position + 1;
        }
    }
    return nullptr;
}

// Parses the block up to its end as a document and adds its root to the list.
static int parse_block(char *block, char *end, node_list *roots) {
    static constexpr char operation[] = "vc_json_parse_full_file";
    const char behind = *end;
    *end = '\0';
    vc_json *root = vc_json_parse_string(block);
    *end = behind;
    if (!root) {
        QF_ERROR_AS(operation, "Error parsing json string");
        return 0;
    }
    if (!append(roots, root)) {
        QF_ERROR_AS(operation, "Error appending node to list");
        vc_json_free(root);
        return 0;
    }
    return 1;
}

vc_json *vc_json_parse_partial(const char *text, vc_json *parent, const char **end) {
    if (!text || !parent || !__vc_json_is_complex(parent) || parent->value) {
        QF_EINVAL();
        return nullptr;
    }
    document in = {text, text};
    if (!parse_level(&in, parent, 1)) {
        __vc_json_free_value(parent->type, parent->value);
        parent->value = nullptr;
        return nullptr;
    }
    if (end) {
        *end = in.cursor;
    }
    return parent;
}

vc_json *vc_json_parse_string(const char *text) {
    if (!text) {
        QF_EINVAL();
        return nullptr;
    }
    document in = {text, text};
    skip_white_space(&in);
    const char opening = *in.cursor;
    if (opening != '{' && opening != '[') {
        QF_ERROR("Encountered unexpected '%c' at start of json, expected '{' or '['",
                 __vc_json_shown(opening));
        return nullptr;
    }
    vc_json *root =
        __vc_json_new_node(__func__, opening == '{' ? vc_json_type_object : vc_json_type_array);
    if (!root) {
        return nullptr;
    }
    ++in.cursor;
    if (!parse_level(&in, root, 1)) {
        QF_ERROR("Error parsing object");
        vc_json_free(root);
        return nullptr;
    }
    return root;
}

vc_json *vc_json_parse_file(const char *path) {
    const heap_string text(read_file(__func__, path));
    return text ? vc_json_parse_string(text.get()) : nullptr;
}

vc_json **vc_json_parse_full_file(const char *path) {
    const heap_string text(read_file(__func__, path));
    if (!text) {
        return nullptr;
    }
    node_list roots = {};
    for (char *block = strchr(text.get(), '{'); block; block = strchr(block, '{')) {
        char *const end = behind_block(block);
        if (!end) {
            QF_ERROR("Failed to find ending '}' brace");
            break;
        }
        if (!parse_block(block, end, &roots)) {
            vc_lstfree(&roots.nodes, vc_json_free);
            return nullptr;
        }
        block = end;
    }
    return reinterpret_cast<vc_json **>(roots.nodes);
}

} // namespace quillfence
