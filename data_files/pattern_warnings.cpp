#include "pattern_warnings.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

#include "engine_messages.h"
#include "pattern_language.h"
#include "tiny_rex.h"
#include "vc_text.h"

namespace quillfence::data_files {

using texts = std::vector<std::string>;

static bool holds(std::string_view text, char c) {
    return text.find(c) != std::string_view::npos;
}

// --- Tokens ---

namespace {

// A pattern's text as the compiler reads it.
struct token {
    enum class kind { atom, open, close, bar, times };
    kind is;
    std::string text;
};
using tokens = std::vector<token>;
using kind = token::kind;

} // namespace

static size_t length_of_class(std::string_view text) {
    size_t at = text.starts_with("[^") ? 2 : 1;
    while (at < text.size() && text[at] != ']') {
        at += text[at] == '\\' ? size_t{2} : size_t{1};
    }
    return std::min(at + 1, text.size());
}

static token next_token(std::string_view text, bool may_repeat) {
    const auto of = [&](kind is, size_t length) {
        return token{is, std::string(text.substr(0, length))};
    };
    if (may_repeat && holds("*+?", text[0])) {
        return of(kind::times, 1);
    }
    if (may_repeat && text[0] == '{') {
        return of(kind::times, text.find('}') + 1);
    }
    switch (text[0]) {
    case '(':
        return of(kind::open, text.starts_with("(?:") ? 3 : 1);
    case ')':
        return of(kind::close, 1);
    case '|':
        return of(kind::bar, 1);
    case '[':
        return of(kind::atom, length_of_class(text));
    case '\\':
        return of(kind::atom, 2);
    default:
        return of(kind::atom, text.starts_with(".*") ? 2 : 1);
    }
}

static tokens tokens_of(std::string_view text) {
    tokens all;
    while (!text.empty()) {
        const bool may_repeat =
            !all.empty() && (all.back().is == kind::atom || all.back().is == kind::close);
        all.push_back(next_token(text, may_repeat));
        text.remove_prefix(all.back().text.size());
    }
    return all;
}

static std::string text_of(const tokens &all) {
    std::string text;
    for (const token &one : all) {
        text += one.text;
    }
    return text;
}

// --- The engine's view ---

static trex_ptr compiled(const std::string &pattern) {
    engine_messages unheard;
    trex_ptr expression(trex_compile_ex(pattern.c_str(), trex_fold_case));
    for (int32_t i = 0; expression && i < expression->nsize; ++i) {
        if (!__trex_node_is_valid(expression.get(), &expression->nodes[i])) {
            return nullptr;
        }
    }
    return expression;
}

static texts warnings_without_advice(const std::string &pattern);

// "; write ..." where that helps, else the other advice.
static std::string advice(const std::string &instead, const std::string &otherwise = {}) {
    return warnings_without_advice(instead).empty() && compiled(instead) ? "; write " + instead
                                                                         : otherwise;
}

// --- Bars ---

namespace {

struct part {
    bool is_dead; // matches nothing
    bool has_begin;
    bool has_end;
};

} // namespace

static int32_t last_type(const TRex &expression, int32_t first) {
    while (expression.nodes[first].next >= 0) {
        first = expression.nodes[first].next;
    }
    return expression.nodes[first].type;
}

// A ".*" with something behind it, in a sequence without an end.
static bool searches_without_end(const TRex &expression, int32_t first) {
    bool searches = false;
    for (int32_t i = first; i >= 0; i = expression.nodes[i].next) {
        const int32_t next = expression.nodes[i].next;
        searches = searches || (expression.nodes[i].type == trex_op_any_sequence && next >= 0 &&
                                expression.nodes[next].type != trex_op_any_sequence);
    }
    return searches && last_type(expression, first) != trex_op_eol;
}

static part part_of(const TRex &expression, int32_t first) {
    const int32_t begin = expression.nodes[first].type;
    const int32_t end = last_type(expression, first);
    return {searches_without_end(expression, first),
            begin == trex_op_bol || begin == trex_op_any_sequence,
            end == trex_op_eol || end == trex_op_any_sequence};
}

static std::string said_of(const part &one) {
    return one.is_dead     ? "matches nothing"
           : !one.has_end  ? "matches a whole name only"
           : one.has_begin ? ""
                           : "matches at the beginning of a name only";
}

static std::string bar_warning(const TRex &expression) {
    int32_t index = expression.nodes[0].left;
    if (expression.nodes[index].type != trex_op_or) {
        return {};
    }
    std::string said;
    for (int number = 1; index >= 0; ++number) {
        const TRexNode &node = expression.nodes[index];
        const bool is_bar = node.type == trex_op_or;
        const std::string one = said_of(part_of(expression, is_bar ? node.left : index));
        if (!one.empty()) {
            said += (said.empty() ? "" : ", ") + ("part " + std::to_string(number)) + " " + one;
        }
        index = is_bar ? node.right : -1;
    }
    return said.empty() ? "" : "the bar stands outside parentheses: " + said;
}

// --- Parts that match nothing ---

static bool is_dead_in_group(const TRex &expression, const TRexNode &node) {
    if (node.type == trex_op_expr || node.type == trex_op_nocapexpr) {
        const int32_t left = node.left;
        return expression.nodes[left].type != trex_op_or && searches_without_end(expression, left);
    }
    return node.type == trex_op_or && (searches_without_end(expression, node.left) ||
                                       searches_without_end(expression, node.right));
}

static bool has_dead_group(const TRex &expression) {
    const int32_t top = expression.nodes[0].left;
    for (int32_t i = 1; i < expression.nsize; ++i) {
        const bool is_bar_outside = i == top && expression.nodes[i].type == trex_op_or;
        if (!is_bar_outside && is_dead_in_group(expression, expression.nodes[i])) {
            return true;
        }
    }
    return false;
}

// Without the parentheses that are neither repeated nor around a bar.
static std::string without_groups(const std::string &pattern) {
    tokens all = tokens_of(pattern);
    std::vector<size_t> open;
    std::vector<bool> has_bar;
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].is == kind::open) {
            open.push_back(i);
            has_bar.push_back(false);
        } else if (all[i].is == kind::bar && !open.empty()) {
            has_bar.back() = true;
        } else if (all[i].is == kind::close && !open.empty()) {
            const bool repeated = i + 1 < all.size() && all[i + 1].is == kind::times;
            if (!has_bar.back() && !repeated) {
                all[open.back()].text.clear();
                all[i].text.clear();
            }
            open.pop_back();
            has_bar.pop_back();
        }
    }
    return text_of(all);
}

static bool is_anchor(int32_t type) {
    return type == trex_op_bol || type == trex_op_eol || type == trex_op_any_sequence;
}

// Whether "^" stands at the beginning alone, "$" at the end, and ".*" nowhere but between these
// two. Most patterns are like this, and match something (but for an empty class, which has a
// warning).
static bool has_anchors_in_place(const TRex &expression) {
    int32_t in_place = 0;
    const int32_t first = expression.nodes[0].left;
    for (int32_t i = first; i >= 0; i = expression.nodes[i].next) {
        const int32_t type = expression.nodes[i].type;
        in_place += type == trex_op_any_sequence || (type == trex_op_bol && i == first) ||
                    (type == trex_op_eol && expression.nodes[i].next < 0);
    }
    const TRexNode *const nodes = expression.nodes;
    return last_type(expression, first) == trex_op_eol &&
           in_place == std::count_if(nodes, nodes + expression.nsize,
                                     [](const TRexNode &node) { return is_anchor(node.type); });
}

static bool matches_nothing(const TRex &expression) {
    if (has_anchors_in_place(expression)) {
        return false;
    }
    const pattern_language language = language_of(expression);
    return language.is_known && takes_nothing(language);
}

static std::string dead_warning(const std::string &pattern, const TRex &expression) {
    const bool nothing = matches_nothing(expression);
    if (has_dead_group(expression)) {
        return nothing ? "the pattern matches nothing: a .* inside parentheses needs a $ behind it "
                         "there"
                       : "a part of the pattern matches nothing: a .* inside parentheses needs a $ "
                         "behind it there";
    }
    if (!nothing) {
        return {};
    }
    return pattern.ends_with("\\$") &&
                   last_type(expression, expression.nodes[0].left) != trex_op_eol
               ? "the pattern matches nothing: as it ends in $, nothing is put behind the \\$"
               : "the pattern matches nothing";
}

static std::string dead_advice(const std::string &pattern) {
    return advice(pattern.ends_with("\\$") ? pattern + ".*$" : without_groups(pattern),
                  holds(pattern, '(') ? "; write the .* outside the parentheses" : "");
}

// --- Stars ---

namespace {

// The chain that follows a node's sequence; none where there is none.
struct star_finder {
    const TRex &expression;
    bool found = false;

    void chain(int32_t first, int32_t follow) {
        for (int32_t i = first; i >= 0; i = expression.nodes[i].next) {
            const TRexNode &node = expression.nodes[i];
            const int32_t behind = node.next >= 0 ? node.next : follow;
            if (node.type == trex_op_greedy) {
                judge(node, behind);
                chain(node.left, behind);
            } else if (node.type == trex_op_expr || node.type == trex_op_nocapexpr) {
                chain(node.left, behind);
            } else if (node.type == trex_op_or) {
                chain(node.left, -1);
                chain(node.right, -1);
            }
        }
    }

    // What follows has to be matched up to an end.
    void judge(const TRexNode &node, int32_t behind) {
        const bool is_star = node.right == trex_unbounded;
        found = found || (is_star && (behind < 0 || last_type(expression, behind) != trex_op_eol));
    }
};

} // namespace

// Each "x*" inside a group as "(x+)?".
static std::string without_stars(const std::string &pattern) {
    tokens all = tokens_of(pattern);
    int open = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        open += all[i].is == kind::open ? 1 : all[i].is == kind::close ? -1 : 0;
        if (open > 0 && i > 0 && all[i].text == "*" && all[i].is == kind::times &&
            all[i - 1].is == kind::atom) {
            all[i - 1].text = "(" + all[i - 1].text + "+)";
            all[i].text = "?";
        }
    }
    return text_of(all);
}

static std::string star_warning(const TRex &expression) {
    star_finder finder = {expression};
    finder.chain(expression.nodes[0].left, -1);
    return finder.found
               ? "a * takes nothing here, as what stands behind it has no end: the pattern "
                 "matches only where there is nothing to repeat"
               : "";
}

static std::string star_advice(const std::string &pattern) {
    return advice(without_stars(pattern),
                  advice(without_groups(pattern), "; write + in its place"));
}

// --- Letters in classes ---

// Whether a class takes a letter that it lists singly in one case only.
static bool has_lone_letter(const TRex &expression) {
    for (int32_t i = 0; i < expression.nsize; ++i) {
        const TRexNode &node = expression.nodes[i];
        if (node.type != trex_op_class && node.type != trex_op_nclass) {
            continue;
        }
        character_set taken = {};
        characters_of_node(&expression, i, &taken);
        for (int32_t item = node.left; item >= 0; item = expression.nodes[item].next) {
            const int32_t code = expression.nodes[item].type;
            const char letter = static_cast<char>(code);
            if (code < trex_op_greedy && is_letter(letter) &&
                taken.has(to_lower(letter)) != taken.has(to_upper(letter))) {
                return true;
            }
        }
    }
    return false;
}

// How long the item of a class is that the text begins with: a character or an escape, or a range.
static size_t length_of_item(std::string_view text) {
    const auto length_of_one = [](std::string_view one) {
        return std::min(one.starts_with('\\') ? size_t{2} : size_t{1}, one.size());
    };
    const size_t first = length_of_one(text);
    const std::string_view behind = text.substr(first);
    const bool is_range = behind.size() > 1 && behind[0] == '-' && behind[1] != ']';
    return is_range ? first + 1 + length_of_one(behind.substr(1)) : first;
}

// A class with each letter that it lists singly as a range.
static std::string with_ranges_of_letters(std::string_view text) {
    const size_t begin = text.starts_with("[^") ? 2 : 1;
    std::string made(text.substr(0, begin));
    for (text.remove_prefix(begin); !text.empty();) {
        const std::string_view item = text.substr(0, length_of_item(text));
        made += item;
        if (item.size() == 1 && is_letter(item[0])) {
            made += std::string("-") + item[0];
        }
        text.remove_prefix(item.size());
    }
    return made;
}

static std::string letter_warning(const std::string &pattern, std::string *instead) {
    std::string which;
    instead->clear();
    for (const token &one : tokens_of(pattern)) {
        const bool is_class = one.is == kind::atom && one.text[0] == '[';
        const trex_ptr alone = is_class ? compiled(one.text) : nullptr;
        const bool is_lone = alone && has_lone_letter(*alone);
        *instead += is_lone ? with_ranges_of_letters(one.text) : one.text;
        which = which.empty() && is_lone ? one.text : which;
    }
    return which.empty() ? ""
                         : "a letter that " + which + " lists singly is taken in that case only";
}

// --- Ranges ---

static int32_t lowered(int32_t code) {
    return code >= 'A' && code <= 'Z' ? code + 32 : code;
}

// What of the letters a range holds that has others between its bounds; "" for one that has none.
static std::string letters_of_range(int32_t low, int32_t high) {
    const int32_t from = std::max<int32_t>(lowered(low), 'a');
    const int32_t to = std::min<int32_t>(lowered(high), 'z');
    bool lacks = false;
    for (int32_t code = low; code <= high; ++code) {
        const int32_t letter = lowered(code);
        const bool is_letter = letter >= 'a' && letter <= 'z';
        lacks = lacks || (is_letter && (letter < from || letter > to));
    }
    if (!lacks) {
        return {};
    }
    if (lowered(low) > lowered(high)) {
        return "nothing";
    }
    return from > to ? "no letter"
                     : std::string("of the letters only ") + static_cast<char>(from) + " to " +
                           static_cast<char>(to);
}

// Text of a range, with backslashes before its bounds where the pattern has them.
static std::string with_escaped_dash(const std::string &pattern, char low, char high) {
    for (const std::string &first : {std::string{low}, std::string{'\\', low}}) {
        for (const std::string &last : {std::string{high}, std::string{'\\', high}}) {
            const std::string range = first + "-" + last;
            const size_t at = pattern.find(range);
            if (at != std::string::npos) {
                return std::string(pattern).replace(at, range.size(), first + "\\-" + last);
            }
        }
    }
    return {};
}

static std::string range_warning(const std::string &pattern, const TRex &expression,
                                 std::string *instead) {
    for (int32_t i = 0; i < expression.nsize; ++i) {
        const TRexNode &node = expression.nodes[i];
        if (node.type != trex_op_range) {
            continue;
        }
        const std::string letters = letters_of_range(node.left, node.right);
        if (!letters.empty()) {
            const char low = static_cast<char>(node.left);
            const char high = static_cast<char>(node.right);
            *instead = with_escaped_dash(pattern, low, high);
            if (std::string better; !letter_warning(*instead, &better).empty()) {
                *instead = std::move(better); // a bound that is a letter
            }
            return std::string("the range ") + low + "-" + high + " holds " + letters +
                   ", since case does not count; \\- is the character -";
        }
    }
    return {};
}

// --- Classes ---

namespace {

struct named_class {
    const char *name;
    const char *here;
};
constexpr named_class named_classes[] = {
    {"[:alpha:]", "\\a"}, {"[:digit:]", "\\d"},  {"[:alnum:]", "\\a\\d"},
    {"[:lower:]", "a-z"}, {"[:upper:]", "A-Z"},  {"[:space:]", "\\s"},
    {"[:punct:]", "\\p"}, {"[:xdigit:]", "\\x"}, {"[:cntrl:]", "\\c"},
};

} // namespace

// Where a class has an unescaped "[" that is not all of it; npos where it has none.
static size_t bracket_inside(std::string_view text) {
    if (text == "[[]" || text == "[^[]") {
        return std::string_view::npos;
    }
    for (size_t at = 1; at < text.size(); ++at) {
        if (text[at] == '\\') {
            ++at;
        } else if (text[at] == '[') {
            return at;
        }
    }
    return std::string_view::npos;
}

static std::string with_letters_of_classes(std::string pattern) {
    for (const named_class &known : named_classes) {
        const std::string_view name = known.name;
        for (size_t at; (at = pattern.find(name)) != std::string::npos;) {
            pattern.replace(at, name.size(), known.here);
        }
    }
    return pattern;
}

static std::string class_warning(const std::string &pattern) {
    for (const token &one : tokens_of(pattern)) {
        const bool is_class = one.is == kind::atom && one.text[0] == '[';
        const size_t at = is_class ? bracket_inside(one.text) : std::string::npos;
        if (at == std::string::npos) {
            continue;
        }
        const char behind = at + 1 < one.text.size() ? one.text[at + 1] : ' ';
        return one.text + (behind == ':' ? " is one class that holds [ and the characters behind "
                                           "it: there are no named classes"
                                         : " is one class that holds the character [");
    }
    return {};
}

static std::string class_advice(const std::string &pattern) {
    const std::string named = with_letters_of_classes(pattern);
    return named == pattern ? "; write ] in front of the [, or \\[ for the character"
                            : advice(named);
}

// --- Repetitions of repetitions ---

static std::string without(tokens all, size_t index) {
    all.erase(all.begin() + static_cast<std::ptrdiff_t>(index));
    return text_of(all);
}

static std::string repetition_warning(const std::string &pattern, std::string *instead) {
    const tokens all = tokens_of(pattern);
    for (size_t i = 1; i < all.size(); ++i) {
        const std::string &one = all[i].text;
        const std::string &before = all[i - 1].text;
        if (all[i].is == kind::times && one != "*" && before == ".*") {
            *instead = without(all, i);
            return ".*" + one + " is a .* that takes all the rest, or nothing at all";
        }
        if (all[i].is == kind::atom && all[i - 1].is == kind::times && holds("*+?", one[0])) {
            *instead = without(all, i);
            return "the second " + one + " in " + before + one + " is the character " + one;
        }
    }
    return {};
}

// --- What other libraries know ---

static std::string escape_warning(const std::string &pattern, std::string *instead) {
    if (pattern.starts_with("\\A")) {
        *instead = "^" + pattern.substr(2);
        return "\\A is a character that is no letter, not the beginning";
    }
    const tokens all = tokens_of(pattern);
    for (const token &one : all) {
        const char letter = one.text.size() == 2 && one.text[0] == '\\' ? one.text[1] : ' ';
        if ((letter == 'Z' || letter == 'z') && &one == &all.back()) {
            *instead = pattern.substr(0, pattern.size() - 2) + "$";
            return one.text + " is the letter " + letter + ", not the end";
        }
        if (letter >= '1' && letter <= '9') {
            instead->clear();
            return one.text + " is the character " + letter + ": there are no references to groups";
        }
    }
    return {};
}

namespace {

struct letter_meaning {
    char letter;
    const char *is;
};
constexpr letter_meaning letter_meanings[] = {
    {'a', "a letter"},
    {'c', "a control character"},
    {'l', "a lower-case letter"},
    {'p', "a character of punctuation"},
    {'u', "an upper-case letter"},
};

} // namespace

// The character that "\x41" stands for elsewhere, as a pattern; "" for one that no pattern has.
static std::string character_of_code(std::string_view digits) {
    int code = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (error != std::errc() || end != digits.data() + 2 || code < ' ' || code > '~') {
        return {};
    }
    const char c = static_cast<char>(code);
    return is_alphanumeric(c) ? std::string{c} : std::string{'\\', c};
}

// A letter class that looks like the beginning of a word or of a code. In brackets it is meant.
static std::string letter_class_warning(const std::string &pattern, std::string *instead) {
    const tokens all = tokens_of(pattern);
    std::string front;
    for (size_t i = 0; i + 1 < all.size(); front += all[i++].text) {
        const std::string &one = all[i].text;
        const std::string &next = all[i + 1].text;
        if (one.size() != 2 || one[0] != '\\' || next.size() != 1) {
            continue;
        }
        const std::string behind = pattern.substr(front.size() + one.size());
        if (one[1] == 'x' && holds("0123456789abcdefABCDEF", next[0])) {
            const std::string character = character_of_code(behind.substr(0, 2));
            *instead = character.empty() ? "" : front + character + behind.substr(2);
            return "\\x is a hexadecimal digit, not the character of the code behind it";
        }
        for (const letter_meaning &known : letter_meanings) {
            if (one[1] == known.letter && is_letter(next[0])) {
                *instead = front + one[1] + behind;
                return one + " is " + known.is + " (if that is meant, write [" + one + "])";
            }
        }
    }
    return {};
}

// --- Names that are lost ---

static constexpr uint32_t most_steps_of_a_name = 10'000;

namespace {

enum class outcome { matched, not_matched, not_known };

} // namespace

static outcome outcome_of(TRex *expression, const std::string &name) {
    const char *const begin = name.data();
    if (__trex_match_within(expression, begin, begin + name.size(), most_steps_of_a_name)) {
        return outcome::matched;
    }
    return expression->steps < most_steps_of_a_name ? outcome::not_matched : outcome::not_known;
}

static bool has_boundary(const TRex &expression) {
    return std::any_of(expression.nodes, expression.nodes + expression.nsize,
                       [](const TRexNode &node) { return node.type == trex_op_wb; });
}

// A name that the pattern's parts take, one behind the other, and the pattern does not; "" when
// none is found. An automaton that is exact takes what the pattern does.
static std::string lost_name(TRex *expression) {
    if (has_boundary(*expression)) {
        return {};
    }
    const pattern_language language = language_of(*expression);
    if (language.is_exact) {
        return {};
    }
    engine_messages unheard;
    for (const std::string &name : names_of(language)) {
        if (outcome_of(expression, name) == outcome::not_matched) {
            return name;
        }
    }
    return {};
}

static bool takes(const std::string &pattern, const std::string &name) {
    const trex_ptr expression = compiled(pattern);
    return expression && outcome_of(expression.get(), name) == outcome::matched;
}

// The tokens of a group's parts between its bars; `at` is behind its parenthesis, and receives
// where the closing one stands.
static std::vector<tokens> parts_of_group(const tokens &all, size_t *at) {
    std::vector<tokens> parts(1);
    int open = 0;
    for (; *at < all.size() && (open > 0 || all[*at].is != kind::close); ++*at) {
        const token &one = all[*at];
        open += one.is == kind::open ? 1 : one.is == kind::close ? -1 : 0;
        if (open == 0 && one.is == kind::bar) {
            parts.emplace_back();
        } else {
            parts.back().push_back(one);
        }
    }
    return parts;
}

// The pattern with the longest part first in the group whose parenthesis stands there.
static std::string with_longest_first(const tokens &all, size_t group) {
    size_t end = group + 1;
    std::vector<tokens> parts = parts_of_group(all, &end);
    std::stable_sort(parts.begin(), parts.end(), [](const tokens &one, const tokens &other) {
        return text_of(one).size() > text_of(other).size();
    });
    std::string text = text_of({all.begin(), all.begin() + static_cast<std::ptrdiff_t>(group) + 1});
    for (const tokens &part : parts) {
        text += (&part == &parts.front() ? "" : "|") + text_of(part);
    }
    return text + text_of({all.begin() + static_cast<std::ptrdiff_t>(end), all.end()});
}

// The same pattern with the parts of a group in another order, which takes the name; "" where none
// does.
static std::string in_order_for(const std::string &pattern, const std::string &name) {
    const tokens all = tokens_of(pattern);
    for (size_t i = 0; i < all.size(); ++i) {
        std::string sorted = all[i].is == kind::open ? with_longest_first(all, i) : std::string();
        if (!sorted.empty() && takes(sorted, name)) {
            return sorted;
        }
    }
    return {};
}

// The counted repetition that stands in a group first; "" for none.
static std::string bounds_in_group(const std::string &pattern) {
    int open = 0;
    for (const token &one : tokens_of(pattern)) {
        open += one.is == kind::open ? 1 : one.is == kind::close ? -1 : 0;
        if (open > 0 && one.is == kind::times && holds(one.text, ',')) {
            return one.text;
        }
    }
    return {};
}

static std::string lost_warning(const std::string &pattern, TRex *expression,
                                std::string *instead) {
    const std::string name = lost_name(expression);
    if (name.empty()) {
        return {};
    }
    const std::string said = "the name " + name + " is not matched, ";
    *instead = in_order_for(pattern, name);
    if (!instead->empty()) {
        return said + "as a bar keeps the first part that matches: the longest belongs in front";
    }
    *instead = without_groups(pattern);
    if (!takes(*instead, name)) {
        instead->clear();
    }
    const std::string bounds = bounds_in_group(pattern);
    return said + (bounds.empty() ? "though the parts of the pattern would take it"
                                  : "as " + bounds +
                                        " inside parentheses takes all there is and gives "
                                        "nothing back");
}

// --- All ---

namespace {

struct warning {
    std::string text;
    std::string advice;
};

} // namespace

// with_advice: without it this is called for what is advised.
static std::vector<warning> all_warnings(const std::string &pattern, bool with_advice) {
    const trex_ptr expression = compiled(pattern);
    if (!expression) {
        return {};
    }
    std::vector<warning> all;
    const auto add = [&](const std::string &text, auto &&advise) {
        if (!text.empty()) {
            all.push_back({text, with_advice ? advise() : ""});
        }
    };
    std::string instead;
    const auto write_instead = [&] { return instead.empty() ? "" : advice(instead); };
    const std::string bars = bar_warning(*expression);
    add(bars, [&] { return advice("(" + pattern + ")", "; put them around it"); });
    if (bars.empty()) {
        add(dead_warning(pattern, *expression), [&] { return dead_advice(pattern); });
        add(star_warning(*expression), [&] { return star_advice(pattern); });
    }
    add(repetition_warning(pattern, &instead), write_instead);
    if (all.empty()) { // else a name is lost by what has been told of
        add(lost_warning(pattern, expression.get(), &instead), write_instead);
    }
    add(range_warning(pattern, *expression, &instead), write_instead);
    const std::string classes = class_warning(pattern);
    add(classes, [&] { return class_advice(pattern); });
    if (classes.empty()) {
        add(letter_warning(pattern, &instead), write_instead);
    }
    const std::string escapes = escape_warning(pattern, &instead);
    add(escapes, write_instead);
    if (escapes.empty()) {
        add(letter_class_warning(pattern, &instead), write_instead);
    }
    return all;
}

static texts warnings_without_advice(const std::string &pattern) {
    texts said;
    for (const warning &one : all_warnings(pattern, false)) {
        said.push_back(one.text);
    }
    return said;
}

std::vector<std::string> warnings_about(const std::string &pattern) {
    texts said;
    for (const warning &one : all_warnings(pattern, true)) {
        said.push_back(one.text + one.advice);
    }
    return said;
}

} // namespace quillfence::data_files
