#include "pattern_text.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "engine_messages.h"
#include "expression_text.h"
#include "vc_text.h"

namespace quillfence::data_files {

// --- Lines of a list ---

namespace {

using kind = pattern_line::kind;

constexpr std::string_view white_space = " \t\v\f\r";

bool holds(std::string_view text, char character) {
    return text.find(character) != std::string_view::npos;
}

std::string_view without_leading_space(std::string_view text) {
    const size_t begin = text.find_first_not_of(white_space);
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

// Whether the character at the end of the text, or behind it, has a backslash of its own.
bool ends_in_backslash(std::string_view text) {
    const size_t last = text.find_last_not_of('\\');
    const size_t count = last == std::string_view::npos ? text.size() : text.size() - 1 - last;
    return count % 2 == 1;
}

std::string_view without_trailing_space(std::string_view text) {
    while (!text.empty() && holds(white_space, text.back()) &&
           !ends_in_backslash(text.substr(0, text.size() - 1))) {
        text.remove_suffix(1);
    }
    return text;
}

pattern_line wrong(std::string why) {
    return {kind::wrong, std::move(why)};
}

// In any letter case, as mail servers take the keywords of their tables.
bool begins_with_keyword(std::string_view text, std::string_view keyword) {
    return text.size() >= keyword.size() &&
           same_letters(text.data(), keyword.data(), keyword.size());
}

// "if /.../", "if !/.../": an "if" with a pattern behind it.
struct condition_text {
    bool is = false;
    bool negated = false;
    std::string_view table_line; // from the "/" on
};

condition_text condition_of(std::string_view text) {
    if (!begins_with_keyword(text, "if")) {
        return {};
    }
    std::string_view behind = without_leading_space(text.substr(2));
    const bool negated = behind.starts_with('!');
    if (negated) {
        behind = without_leading_space(behind.substr(1));
    }
    return {behind.starts_with('/'), negated, behind};
}

// What stands behind the keyword does not count: mail servers pass over it.
bool is_end_of_condition(std::string_view text) {
    static constexpr std::string_view keyword = "endif";
    return begins_with_keyword(text, keyword) &&
           (text.size() == keyword.size() || holds(white_space, text[keyword.size()]));
}

bool is_negation(std::string_view text) {
    return text.starts_with('!') && without_leading_space(text.substr(1)).starts_with('/');
}

// The "/" that ends a pattern; npos when there is none.
size_t find_delimiter(std::string_view text) {
    for (size_t at = 1; at < text.size(); ++at) {
        if (text[at] == '\\') {
            ++at;
        } else if (text[at] == '/') {
            return at;
        }
    }
    return std::string_view::npos;
}

// What is wrong with the flags; empty when nothing is.
std::string flags_problem(std::string_view flags) {
    for (const char flag : flags) {
        if (flag == 'A') {
            return "flag A is not supported; begin the pattern with ^ instead";
        }
        if (flag == 'x') {
            return "flag x is not supported; take the blanks and comments out of the pattern";
        }
        if (!holds("imsEUX", flag)) {
            return std::string("unknown flag ") + flag + " behind the pattern";
        }
    }
    return "";
}

// In upper case.
std::string first_word(std::string_view text) {
    const std::string_view word = without_leading_space(text);
    std::string upper(word.substr(0, std::min(word.find_first_of(white_space), word.size())));
    for (char &character : upper) {
        character = to_upper(character);
    }
    return upper;
}

pattern_line table_line(std::string_view text) {
    const size_t end = find_delimiter(text);
    if (end == std::string_view::npos) {
        return wrong("the pattern has no closing \"/\"; write \\/ for a pattern that begins "
                     "with a slash");
    }
    const std::string_view pattern = text.substr(1, end - 1);
    const std::string_view behind = text.substr(end + 1);
    const std::string_view flags =
        behind.substr(0, std::min(behind.find_first_of(white_space), behind.size()));
    if (std::string problem = flags_problem(flags); !problem.empty()) {
        return wrong(std::move(problem));
    }
    if (pattern.empty()) {
        return wrong("the pattern is empty; write .* to match everything");
    }
    return {kind::pattern, std::string(pattern), first_word(behind.substr(flags.size()))};
}

pattern_line condition_line(const condition_text &condition) {
    pattern_line line = table_line(condition.table_line);
    if (line.is == kind::wrong) {
        line.is = kind::wrong_condition;
    } else if (!line.action.empty()) {
        line = {kind::wrong_condition,
                "something stands behind the condition; write it into a line of its own"};
    } else {
        line.is = condition.negated ? kind::negated_condition : kind::condition;
    }
    return line;
}

} // namespace

pattern_line pattern_reader::read(std::string_view line) {
    const bool continues = after_action_ && !line.empty() && holds(white_space, line.front());
    const std::string_view text = without_trailing_space(without_leading_space(line));
    if (text.empty() || text.starts_with('#') || (continues && has_action_)) {
        return {kind::nothing, ""};
    }
    if (continues) {
        return wrong("the action of the pattern above stands here; write it behind the pattern");
    }
    after_action_ = text.starts_with('/');
    if (holds(text, '\0')) {
        return wrong("the line holds a NUL byte");
    }
    if (const condition_text condition = condition_of(text); condition.is) {
        return condition_line(condition);
    }
    if (is_end_of_condition(text)) {
        return {kind::end_of_condition};
    }
    if (is_negation(text)) {
        return wrong("negated patterns are not supported");
    }
    pattern_line read =
        after_action_ ? table_line(text) : pattern_line{kind::pattern, std::string(text)};
    has_action_ = read.is == kind::wrong || !read.action.empty();
    return read;
}

bool is_refusal(std::string_view action) {
    static constexpr std::string_view refusals[] = {
        "", "REJECT", "DEFER", "DEFER_IF_PERMIT", "DEFER_IF_REJECT", "DISCARD"};
    const bool is_code =
        action.size() == 3 && holds("45", action[0]) && is_digit(action[1]) && is_digit(action[2]);
    return is_code ||
           std::find(std::begin(refusals), std::end(refusals), action) != std::end(refusals);
}

// --- From nodes to text ---

namespace {

// Why nodes have no text.
struct no_text {
    std::string reason;
};

std::string node_name(int32_t index) {
    return "node " + std::to_string(index);
}

struct control_escape {
    char character;
    char letter;
};
constexpr control_escape control_escapes[] = {
    {'\t', 't'}, {'\n', 'n'}, {'\v', 'v'}, {'\f', 'f'}, {'\r', 'r'},
};

// A character, with a backslash when it is one of `special` or a control character.
std::string character_text(int32_t code, std::string_view special, int32_t index) {
    for (const control_escape &escape : control_escapes) {
        if (code == escape.character) {
            return {'\\', escape.letter};
        }
    }
    if (code < 0x20 || code > 0x7E) {
        throw no_text{node_name(index) + " is of type " + std::to_string(code) +
                      ", which can't stand there"};
    }
    const char character = static_cast<char>(code);
    return holds(special, character) ? std::string{'\\', character} : std::string{character};
}

int32_t minimum_of(const TRexNode &greedy) {
    return static_cast<int32_t>(static_cast<uint32_t>(greedy.right) >> 16);
}
int32_t maximum_of(const TRexNode &greedy) {
    return greedy.right & 0xFFFF;
}

std::string quantifier_text(const TRexNode &greedy) {
    const int32_t minimum = minimum_of(greedy);
    const int32_t maximum = maximum_of(greedy);
    if (minimum == 0 && maximum == trex_unbounded) {
        return "*";
    }
    if (minimum == 1 && maximum == trex_unbounded) {
        return "+";
    }
    if (minimum == 0 && maximum == 1) {
        return "?";
    }
    const std::string first = "{" + std::to_string(minimum);
    if (minimum == maximum) {
        return first + "}";
    }
    return first + "," + (maximum == trex_unbounded ? "" : std::to_string(maximum)) + "}";
}

// Writes the text with everything that compiling puts around a pattern: ".*" and "$" as they are
// in the nodes. Each node is used once, so that this comes to an end whatever the links are.
class node_writer {
  public:
    explicit node_writer(const TRex &expression)
        : expression_(expression), used_(static_cast<size_t>(expression.nallocated)) {}

    std::string text() {
        const TRexNode &root = take(0, "the expression");
        if (root.type != trex_op_expr) {
            throw no_text{"node 0 is no group"};
        }
        list(root.left);
        return text_;
    }

  private:
    static constexpr int max_nesting = 1000; // as deep as a pattern may go

    const TRexNode &take(int32_t index, const std::string &from) {
        if (index < 0 || index >= expression_.nallocated) {
            throw no_text{from + " needs a node, but links to " + std::to_string(index)};
        }
        if (used_[static_cast<size_t>(index)]) {
            throw no_text{node_name(index) + " is linked to more than once"};
        }
        used_[static_cast<size_t>(index)] = true;
        return expression_.nodes[index];
    }

    bool is_alternation(int32_t index) const {
        return index >= 0 && index < expression_.nallocated &&
               expression_.nodes[index].type == trex_op_or;
    }

    // Sequences between bars.
    void list(int32_t index) {
        while (is_alternation(index)) {
            const TRexNode &bar = take(index, "a group");
            sequence(bar.left);
            text_ += '|';
            index = bar.right;
        }
        sequence(index);
    }

    void sequence(int32_t first) {
        for (int32_t index = first; index >= 0; index = expression_.nodes[index].next) {
            element(index);
        }
    }

    void element(int32_t index) {
        const TRexNode &node = take(index, "a sequence");
        if (node.type != trex_op_greedy) {
            atom(node, index);
            return;
        }
        const TRexNode &operand = take(node.left, node_name(index));
        atom(operand, node.left);
        const std::string quantifier = quantifier_text(node);
        // ".*" would be a node of its own.
        text_ += operand.type == trex_op_dot && quantifier == "*" ? "{0,}" : quantifier;
    }

    void group(const TRexNode &node) {
        if (++nesting_ > max_nesting) {
            throw no_text{"groups are nested deeper than " + std::to_string(max_nesting)};
        }
        text_ += node.type == trex_op_expr ? "(" : "(?:";
        list(node.left);
        text_ += ')';
        --nesting_;
    }

    void atom(const TRexNode &node, int32_t index) {
        switch (node.type) {
        case trex_op_expr:
        case trex_op_nocapexpr:
            group(node);
            break;
        case trex_op_class:
        case trex_op_nclass:
            character_class(node);
            break;
        case trex_op_dot:
            text_ += '.';
            break;
        case trex_op_any_sequence:
            text_ += ".*";
            break;
        case trex_op_eol:
            text_ += '$';
            break;
        case trex_op_bol:
            text_ += '^';
            break;
        case trex_op_cclass:
        case trex_op_wb:
            letter(node, index);
            break;
        default:
            text_ += character_text(node.type, expression_operators, index);
        }
    }

    void letter(const TRexNode &node, int32_t index) {
        text_ += '\\';
        text_ += character_text(node.left, "", index);
    }

    void character_class(const TRexNode &node) {
        static constexpr std::string_view special = "\\[]^-";
        text_ += node.type == trex_op_nclass ? "[^" : "[";
        for (int32_t index = node.left; index >= 0; index = expression_.nodes[index].next) {
            const TRexNode &item = take(index, "a class");
            if (item.type == trex_op_range) {
                text_ += character_text(item.left, special, index) + "-" +
                         character_text(item.right, special, index);
            } else if (item.type == trex_op_cclass) {
                letter(item, index);
            } else {
                text_ += character_text(item.type, special, index);
            }
        }
        text_ += ']';
    }

    const TRex &expression_;
    std::vector<bool> used_;
    std::string text_;
    int nesting_ = 0;
};

bool compiles_to(const std::string &text, const TRex &expression) {
    engine_messages unheard;
    const trex_ptr compiled(trex_compile_ex(text.c_str(), trex_fold_case));
    return compiled && compiled->nsize == expression.nallocated &&
           std::equal(compiled->nodes, compiled->nodes + compiled->nsize, expression.nodes,
                      [](const TRexNode &a, const TRexNode &b) {
                          return a.type == b.type && a.left == b.left && a.right == b.right &&
                                 a.next == b.next;
                      });
}

bool reads_as(const std::string &line, const std::string &pattern) {
    const pattern_line read = pattern_reader().read(line);
    return read.is == kind::pattern && read.text == pattern;
}

// The text as a line of a list that gives these nodes; empty when it is none. A backslash keeps a
// first character from being read as something else than the pattern.
std::string as_line(std::string text, const TRex &expression) {
    for (const char character : {' ', '#', '/', '!', 'i', 'I', 'e', 'E'}) {
        if (text.starts_with(character) && !reads_as(text, text)) {
            text.insert(0, "\\");
            break;
        }
    }
    if (text.ends_with(' ') && !reads_as(text, text)) {
        text.insert(text.size() - 1, "\\");
    }
    return reads_as(text, text) && compiles_to(text, expression) ? text : "";
}

// The ways to write a text that compiling puts nothing around, the shortest first: what compiling
// would put there again is left out.
std::vector<std::string> ways_to_write(const std::string &wrapped) {
    static constexpr std::string_view front = ".*";
    static constexpr std::string_view back = ".*$";
    struct cut {
        bool front;
        bool back;
    };
    static constexpr cut cuts[] = {{true, true}, {false, true}, {true, false}, {false, false}};
    std::vector<std::string> ways;
    for (const cut &way : cuts) {
        std::string_view text = wrapped;
        if (way.back && text.ends_with(back)) {
            text.remove_suffix(back.size());
        }
        if (way.front && text.starts_with(front)) {
            text.remove_prefix(front.size());
        }
        // A repetition of the ".*" would lose what it stands behind; a backslash, the ".".
        const bool readable =
            !text.empty() && !holds("*+?{", text.front()) && !ends_in_backslash(text);
        if (readable) {
            ways.emplace_back(text);
        }
    }
    return ways;
}

} // namespace

std::string pattern_of_nodes(const TRex &expression, std::string *reason) {
    std::string wrapped;
    try {
        wrapped = node_writer(expression).text();
    } catch (const no_text &why) {
        *reason = why.reason;
        return "";
    }
    for (const std::string &way : ways_to_write(wrapped)) {
        if (std::string line = as_line(way, expression); !line.empty()) {
            return line;
        }
    }
    *reason = "no pattern compiles to exactly these nodes; the nearest is " + wrapped;
    return "";
}

// --- Nodes as they are ---

namespace {

struct type_name {
    int32_t type;
    const char *name;
};
constexpr type_name type_names[] = {
    {trex_op_greedy, "repetition"},
    {trex_op_or, "alternation"},
    {trex_op_expr, "group"},
    {trex_op_nocapexpr, "group without number"},
    {trex_op_dot, "dot"},
    {trex_op_class, "class"},
    {trex_op_cclass, "letter class"},
    {trex_op_nclass, "negated class"},
    {trex_op_range, "range"},
    {trex_op_eol, "end"},
    {trex_op_bol, "beginning"},
    {trex_op_wb, "word boundary"},
    {trex_op_any_sequence, "any sequence"},
};

std::string name_of_type(int32_t type) {
    for (const type_name &known : type_names) {
        if (known.type == type) {
            return known.name;
        }
    }
    if (type >= 0x20 && type <= 0x7E) {
        return std::string("character ") + static_cast<char>(type);
    }
    return "unknown";
}

} // namespace

std::string describe_node(const TRex &expression, int32_t index) {
    const TRexNode &node = expression.nodes[index];
    std::string text = std::to_string(index) + ": " + name_of_type(node.type) + " (" +
                       std::to_string(node.type) + "), left " + std::to_string(node.left) +
                       ", right " + std::to_string(node.right) + ", next " +
                       std::to_string(node.next);
    if (node.type == trex_op_greedy) {
        text += ", " + std::to_string(minimum_of(node)) + " to " + std::to_string(maximum_of(node));
    }
    return text;
}

} // namespace quillfence::data_files
