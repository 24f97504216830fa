// The compiler: recursive descent over the wrapped pattern.
//
//   list     element... [ "|" list ]
//   element  ( "(" [ "?:" ] list ")" | "[" class "]" | ".*" | "." | "^" | "$" | character )
//            [ "*" | "+" | "?" | "{" n [ "," [ m ] ] "}" ]
//
// Nodes are addressed by index, as the array may move when it grows. The first mistake writes its
// ERROR line and sets `failed`; everything then returns without a further line.
#include "tiny_rex.h"

#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "tiny_rex";

static constexpr int32_t none = -1;
static constexpr int max_group_nesting = 1000;
// The node array must stay below 2 GiB when it has doubled.
static constexpr size_t max_pattern_length = INT32_MAX / sizeof(TRexNode) / 4;

namespace {

struct compiler {
    TRex *expression;
    const char *at; // the next character of the wrapped pattern
    int nesting = 0;
    bool failed = false;
};

} // namespace

static int32_t __trex_list(compiler *c);

// Marks the compilation as failed; the result stands for the node that there is not.
static int32_t fail(compiler *c) {
    c->failed = true;
    return none;
}

static TRexNode *node_of(compiler *c, int32_t index) {
    return &c->expression->nodes[index];
}

static bool take(compiler *c, char expected) {
    if (*c->at != expected) {
        return false;
    }
    ++c->at;
    return true;
}

static bool grow_nodes(TRex *expression) {
    const int32_t doubled = expression->nallocated * 2;
    void *moved = realloc(expression->nodes, static_cast<size_t>(doubled) * sizeof(TRexNode));
    if (!moved) {
        return false;
    }
    expression->nodes = static_cast<TRexNode *>(moved);
    expression->nallocated = doubled;
    return true;
}

// A new node without links. `function` could not make `what` when there is no memory for it.
static int32_t __trex_newnode(compiler *c, int32_t type, const char *function, const char *what) {
    TRex *expression = c->expression;
    if (expression->nsize == expression->nallocated && !grow_nodes(expression)) {
        QF_ENOMEM();
        QF_ERROR_AS(function, "%s", what);
        return fail(c);
    }
    const int32_t right = type == trex_op_expr ? expression->nsubexpr++ : none;
    expression->nodes[expression->nsize] = {type, none, right, none};
    return expression->nsize++;
}

static bool is_class_letter(char letter) {
    return letter && strchr("aAcCdDlpPsSuwWxX", letter);
}

static int32_t control_character(int32_t letter) {
    switch (letter) {
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case 'v':
        return '\v';
    default:
        return letter;
    }
}

static int32_t __trex_charclass(compiler *c) {
    const int32_t node =
        __trex_newnode(c, trex_op_cclass, __func__, "failed to create character class node");
    if (node != none) {
        node_of(c, node)->left = *c->at++;
    }
    return node;
}

// A raw character; none when it can't stand in a pattern.
static int32_t printable_character(compiler *c, const char *function) {
    if (!is_printable(*c->at)) {
        QF_ERROR_AS(function, "non-printable character %d found",
                    static_cast<unsigned char>(*c->at));
        return fail(c);
    }
    return *c->at++;
}

// What a backslash makes of the letter behind it, where only a character will do.
static int32_t __trex_escapechar(compiler *c) {
    if (!*c->at) {
        QF_ERROR("letter expected");
        return fail(c);
    }
    const int32_t letter = printable_character(c, __func__);
    return c->failed ? none : control_character(letter);
}

// A character or an escape, in a class or outside.
static int32_t __trex_charnode(compiler *c, bool in_class) {
    int32_t code;
    if (take(c, '\\')) {
        if (is_class_letter(*c->at)) {
            return __trex_charclass(c);
        }
        if (!in_class && (*c->at == 'b' || *c->at == 'B')) {
            const int32_t node =
                __trex_newnode(c, trex_op_wb, __func__, "failed to create word block node");
            if (node != none) {
                node_of(c, node)->left = *c->at++;
            }
            return node;
        }
        code = __trex_escapechar(c);
    } else {
        code = printable_character(c, __func__);
    }
    return c->failed ? none : __trex_newnode(c, code, __func__, "failed to create character node");
}

// The range that begins with the item `lowest`, whose text starts at `text`; c->at is behind "-".
static int32_t range_item(compiler *c, int32_t lowest, const char *text) {
    static constexpr char function[] = "__trex_class";
    if (!*c->at) {
        QF_ERROR_AS(function, "invalid character \\0 in class range");
        return fail(c);
    }
    const int32_t highest = take(c, '\\') ? __trex_escapechar(c) : printable_character(c, function);
    if (c->failed) {
        return none;
    }
    const int32_t low = node_of(c, lowest)->type;
    if (low > highest) {
        QF_ERROR_AS(function, "invalid range [%.*s]", static_cast<int>(c->at - text), text);
        return fail(c);
    }
    // The node of the lower bound becomes the range.
    *node_of(c, lowest) = {trex_op_range, low, highest, none};
    return lowest;
}

// One item of a class: a character, a class escape or a range. A "-" that a range or a class
// escape stands before is a literal, and so is one that starts or ends the class.
static int32_t class_item(compiler *c) {
    const char *text = c->at;
    const int32_t item = __trex_charnode(c, true);
    if (item == none || node_of(c, item)->type == trex_op_cclass) {
        return item;
    }
    if (*c->at != '-' || c->at[1] == ']') {
        return item;
    }
    ++c->at;
    return range_item(c, item, text);
}

// The inside of square brackets, up to the closing one.
static int32_t __trex_class(compiler *c) {
    const bool negated = take(c, '^');
    if (*c->at == ']') {
        QF_ERROR("empty class match segment");
        return fail(c);
    }
    const int32_t node =
        negated
            ? __trex_newnode(c, trex_op_nclass, __func__, "failed to create non match class node")
            : __trex_newnode(c, trex_op_class, __func__, "failed to create class node");
    int32_t last = none;
    while (!c->failed && *c->at && *c->at != ']') {
        const int32_t item = class_item(c);
        if (item == none) {
            break;
        }
        (last == none ? node_of(c, node)->left : node_of(c, last)->next) = item;
        last = item;
    }
    return node;
}

// The next character must be this one.
static void expect(compiler *c, char expected) {
    if (!c->failed && !take(c, expected)) {
        QF_ERROR_AS("__trex_element", "failed to find expected character [%c]", expected);
        fail(c);
    }
}

// The inside of a group and its closing parenthesis.
static int32_t group(compiler *c) {
    static constexpr char function[] = "__trex_element";
    const bool numbered = !take(c, '?');
    if (!numbered) {
        expect(c, ':');
    }
    if (c->failed) {
        return none;
    }
    if (++c->nesting > max_group_nesting) {
        QF_ERROR_AS(function, "groups are nested deeper than %d", max_group_nesting);
        return fail(c);
    }
    const int32_t node = __trex_newnode(c, numbered ? trex_op_expr : trex_op_nocapexpr, function,
                                        "Failed to create 'expression' node");
    if (node == none) {
        return none;
    }
    const int32_t body = __trex_list(c);
    if (c->failed) {
        return none;
    }
    if (body == none && *c->at == ')') {
        QF_ERROR_AS(function, "failed to parse through sub expression");
        return fail(c);
    }
    node_of(c, node)->left = body;
    expect(c, ')');
    --c->nesting;
    return node;
}

static int64_t __trex_parsenumber(compiler *c) {
    int64_t number = 0;
    for (; is_digit(*c->at); ++c->at) {
        number = number * 10 + (*c->at - '0');
        if (number > INT32_MAX) {
            QF_ERROR("overflow in numeric constant");
            return fail(c);
        }
    }
    return number;
}

namespace {

struct bounds {
    int64_t minimum;
    int64_t maximum;
};

} // namespace

// The bounds in braces; c->at is behind the opening one.
static bounds braces(compiler *c) {
    static constexpr char function[] = "__trex_element";
    bounds b = {0, trex_unbounded};
    if (!is_digit(*c->at)) {
        QF_ERROR_AS(function, "number expected");
        fail(c);
        return b;
    }
    b.minimum = __trex_parsenumber(c);
    if (c->failed) {
        return b;
    }
    if (b.minimum > trex_unbounded) {
        QF_ERROR_AS(function, "number exceeds maximum value %d", trex_unbounded);
        fail(c);
    } else if (take(c, '}')) {
        b.maximum = b.minimum;
    } else if (!take(c, ',')) {
        QF_ERROR_AS(function, ", or } expected");
        fail(c);
    } else {
        if (is_digit(*c->at)) {
            b.maximum = __trex_parsenumber(c);
        }
        if (!c->failed && b.maximum > trex_unbounded) {
            QF_ERROR_AS(function, "number %ld exceeds maximum value %d",
                        static_cast<long>(b.maximum), trex_unbounded);
            fail(c);
        }
        if (!c->failed && !take(c, '}')) {
            QF_ERROR_AS(function, "expected character '}' not found");
            fail(c);
        }
    }
    return b;
}

// Wraps the element in the repetition that follows in the text, if one does. The packed bounds
// are not judged here: {3,2} and {65535}, which packs to -1, fail the check of a match.
static int32_t quantified(compiler *c, int32_t element) {
    bounds b;
    if (take(c, '*')) {
        b = {0, trex_unbounded};
    } else if (take(c, '+')) {
        b = {1, trex_unbounded};
    } else if (take(c, '?')) {
        b = {0, 1};
    } else if (take(c, '{')) {
        b = braces(c);
    } else {
        return element;
    }
    if (c->failed) {
        return none;
    }
    const int32_t node =
        __trex_newnode(c, trex_op_greedy, "__trex_element", "error creating OP_GREEDY node");
    if (node != none) {
        node_of(c, node)->left = element;
        node_of(c, node)->right = static_cast<int32_t>(static_cast<uint32_t>(b.minimum) << 16 |
                                                       static_cast<uint32_t>(b.maximum));
    }
    return node;
}

static int32_t dot(compiler *c) {
    return __trex_newnode(c, take(c, '*') ? trex_op_any_sequence : trex_op_dot, "__trex_element",
                          "failed to create ANY (dot) node");
}

static int32_t __trex_element(compiler *c) {
    int32_t node;
    if (take(c, '(')) {
        node = group(c);
    } else if (take(c, '[')) {
        node = __trex_class(c);
        expect(c, ']');
    } else if (take(c, '.')) {
        node = dot(c);
    } else if (take(c, '$')) {
        node = __trex_newnode(c, trex_op_eol, __func__, "failed to create EOL node");
    } else if (take(c, '^')) {
        node = __trex_newnode(c, trex_op_bol, __func__, "failed to create beginning of line node");
    } else {
        node = __trex_charnode(c, false);
    }
    return c->failed ? none : quantified(c, node);
}

// The elements up to "|", ")" or the end, linked; none when there are none.
static int32_t sequence(compiler *c) {
    int32_t first = none;
    int32_t last = none;
    while (!c->failed && *c->at && *c->at != '|' && *c->at != ')') {
        const int32_t element = __trex_element(c);
        if (c->failed) {
            return none;
        }
        (last == none ? first : node_of(c, last)->next) = element;
        last = element;
    }
    return first;
}

// Sequences between bars. Each bar makes a node whose right branch is all that follows.
static int32_t __trex_list(compiler *c) {
    int32_t list = sequence(c);
    int32_t branch = list; // the sequence before the next bar
    int32_t bar = none;    // the alternation whose right branch it is
    while (!c->failed && take(c, '|')) {
        if (branch == none) {
            QF_ERROR("OR operator must have value in 'left'");
            return fail(c);
        }
        const int32_t node = __trex_newnode(c, trex_op_or, __func__, "failed to create 'or' node");
        if (node == none) {
            return none;
        }
        node_of(c, node)->left = branch;
        (bar == none ? list : node_of(c, bar)->right) = node;
        bar = node;
        branch = sequence(c);
        if (!c->failed && branch == none && *c->at != '|') {
            QF_ERROR("OR operator must have value in 'right'");
            return fail(c);
        }
        node_of(c, bar)->right = branch;
    }
    return list;
}

static bool starts_with(const char *text, const char *prefix) {
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

// The pattern with what makes it speak of the whole subject.
static char *wrapped_pattern(const char *pattern) {
    const size_t length = strlen(pattern);
    const bool open_start = *pattern != '^' && !starts_with(pattern, ".*");
    // An empty pattern becomes ".*", which has no end yet.
    const bool open_end = length == 0 || pattern[length - 1] != '$';
    auto *wrapped = static_cast<char *>(malloc(length + sizeof ".*.*$"));
    if (!wrapped) {
        return nullptr;
    }
    char *end = wrapped;
    const auto append = [&end](const char *text, size_t size) {
        memcpy(end, text, size);
        end += size;
    };
    if (open_start) {
        append(".*", 2);
    }
    append(pattern, length);
    if (open_end) {
        append(".*$", 3);
    }
    *end = '\0';
    return wrapped;
}

// The record with the wrapped text and an empty node array as long as the text.
static trex_ptr new_expression(const char *pattern, uint8_t case_flag) {
    trex_ptr expression(static_cast<TRex *>(calloc(1, sizeof(TRex))));
    if (!expression) {
        return nullptr;
    }
    expression->case_flag = case_flag;
    expression->pattern = wrapped_pattern(pattern);
    if (!expression->pattern) {
        return nullptr;
    }
    const size_t length = strlen(expression->pattern);
    expression->nodes = static_cast<TRexNode *>(calloc(length, sizeof(TRexNode)));
    if (!expression->nodes) {
        return nullptr;
    }
    expression->nallocated = static_cast<int32_t>(length);
    return expression;
}

// Parses the whole text under a root group.
static bool compile(compiler *c, const char *function) {
    const int32_t root =
        __trex_newnode(c, trex_op_expr, function, "Failed to create 'expression' node");
    if (root == none) {
        return false;
    }
    const int32_t body = __trex_list(c);
    if (c->failed) {
        return false;
    }
    if (*c->at) {
        QF_ERROR_AS(function, "Unexpected character %c after processing", *c->at);
        return false;
    }
    node_of(c, root)->left = body;
    return true;
}

TRex *trex_compile_ex(const char *pattern, uint8_t case_flag) {
    if (!pattern) {
        QF_ERROR("%s: [%s]", strerror(EINVAL), "NULL");
        return nullptr;
    }
    if (strlen(pattern) > max_pattern_length) {
        QF_ERROR("pattern is longer than %lu characters",
                 static_cast<unsigned long>(max_pattern_length));
        return nullptr;
    }
    trex_ptr expression = new_expression(pattern, case_flag);
    if (!expression) {
        QF_ENOMEM();
        return nullptr;
    }
    compiler c = {.expression = expression.get(), .at = expression->pattern};
    if (!compile(&c, __func__)) {
        return nullptr;
    }
    expression->matches = static_cast<TRexMatch *>(
        calloc(static_cast<size_t>(expression->nsubexpr), sizeof(TRexMatch)));
    if (!expression->matches) {
        QF_ENOMEM();
        return nullptr;
    }
    return expression.release();
}

void trex_free(TRex *expression) {
    if (!expression) {
        return;
    }
    free(expression->nodes);
    free(expression->matches);
    free(expression->pattern);
    free(expression);
}

char *trex_escape(const char *text) {
    if (!text) {
        QF_EINVAL();
        return nullptr;
    }
    auto *escaped = static_cast<char *>(malloc(strlen(text) * 2 + 1));
    if (!escaped) {
        QF_ENOMEM();
        return nullptr;
    }
    char *end = escaped;
    for (; *text; ++text) {
        if (strchr("$()*+.?[\\]^{|}", *text)) {
            *end++ = '\\';
        }
        *end++ = *text;
    }
    *end = '\0';
    return escaped;
}

} // namespace quillfence
