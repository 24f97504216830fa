#include "json_reader.h"

#include <algorithm>
#include <array>

#include "utf8.h"

namespace quillfence::decision {

static bool is_white(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

static bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

static uint32_t line_at(std::string_view text, size_t offset) {
    const auto begin = text.begin();
    return static_cast<uint32_t>(
        1 + std::count(begin, begin + static_cast<std::ptrdiff_t>(offset), '\n'));
}

static bool by_length_first(std::string_view left, std::string_view right) {
    return left.size() != right.size() ? left.size() < right.size() : left < right;
}

// --- the parser ---

class json_parser {
  public:
    json_parser(json_document *document, const json_limits &limits)
        : document_(*document), text_(document->text_), limits_(limits) {}

    bool parse(json_problem *problem);

  private:
    bool refuse(const char *why);
    char next() const {
        return at_ < text_.size() ? text_[at_] : '\0';
    }
    void skip_white();
    bool take(char c);
    bool value(std::string_view name, unsigned depth);
    bool container(uint32_t node, char closing, unsigned depth);
    bool child(const json_node &parent, unsigned depth);
    bool names_differ(uint32_t object);
    bool number();
    bool digits();
    bool keyword(std::string_view word);
    bool string(std::string_view *text);
    bool decoded_string(size_t begin, std::string_view *text);
    bool character(std::string *decoded);
    bool escape(std::string *decoded);
    bool code_unit(uint32_t *unit);
    bool code_point(std::string *decoded);

    json_document &document_;
    const std::string_view text_;
    const json_limits &limits_;
    size_t at_ = 0;
    const char *why_ = nullptr;
    std::vector<std::string_view> names_; // of the object that ends, kept for its memory
};

bool json_parser::refuse(const char *why) {
    why_ = why;
    return false;
}

void json_parser::skip_white() {
    while (at_ < text_.size() && is_white(text_[at_])) {
        ++at_;
    }
}

bool json_parser::take(char c) {
    const bool there = at_ < text_.size() && text_[at_] == c;
    at_ += there;
    return there;
}

bool json_parser::parse(json_problem *problem) {
    if (text_.size() > limits_.bytes) {
        refuse("the document is too large");
    } else if (value({}, 0)) {
        skip_white();
        if (at_ == text_.size()) {
            return true;
        }
        refuse("text follows behind the document");
    }
    problem->line = line_at(text_, std::min(at_, text_.size()));
    problem->text = why_;
    return false;
}

bool json_parser::value(std::string_view name, unsigned depth) {
    skip_white();
    if (document_.nodes_.size() >= limits_.nodes) {
        return refuse("the document holds too many values");
    }
    if (depth > limits_.depth) {
        return refuse("the document is nested too deep");
    }
    const auto node = static_cast<uint32_t>(document_.nodes_.size());
    const size_t begin = at_;
    const char first = next();
    json_kind is = json_kind::null;
    std::string_view text;
    document_.nodes_.push_back({is, node + 1, name, {}});
    document_.offsets_.push_back(begin);
    bool good = false;
    if (first == '{' || first == '[') {
        is = first == '{' ? json_kind::object : json_kind::array;
        document_.nodes_[node].is = is;
        good = container(node, first == '{' ? '}' : ']', depth);
    } else if (first == '"') {
        is = json_kind::text;
        good = string(&text);
    } else if (first == 't' || first == 'f') {
        is = json_kind::boolean;
        good = keyword(first == 't' ? "true" : "false");
    } else if (first == 'n') {
        good = keyword("null");
    } else {
        is = json_kind::number;
        good = number();
    }
    json_node &made = document_.nodes_[node];
    made.is = is;
    made.end = static_cast<uint32_t>(document_.nodes_.size());
    made.text = is == json_kind::text ? text : text_.substr(begin, at_ - begin);
    return good;
}

// A child and what must stand before its value: a member's name.
bool json_parser::child(const json_node &parent, unsigned depth) {
    std::string_view name;
    if (parent.is == json_kind::object) {
        skip_white();
        if (next() != '"') {
            return refuse("a member's name in quotes is missing");
        }
        if (!string(&name)) {
            return false;
        }
        skip_white();
        if (!take(':')) {
            return refuse("\":\" is missing behind a member's name");
        }
    }
    return value(name, depth + 1);
}

bool json_parser::container(uint32_t node, char closing, unsigned depth) {
    ++at_;
    skip_white();
    if (take(closing)) {
        return true;
    }
    const json_node parent = document_.nodes_[node];
    do {
        if (!child(parent, depth)) {
            return false;
        }
        skip_white();
    } while (take(','));
    if (!take(closing)) {
        return refuse(at_ == text_.size() ? "the document ends too early"
                                          : "\",\" or a closing bracket is missing");
    }
    document_.nodes_[node].end = static_cast<uint32_t>(document_.nodes_.size());
    return closing == ']' || names_differ(node);
}

// Sorting pays for many names alone.
static bool any_twice(std::vector<std::string_view> &names) {
    constexpr size_t few = 16;
    if (names.size() > few) {
        std::sort(names.begin(), names.end(), by_length_first);
        return std::adjacent_find(names.begin(), names.end()) != names.end();
    }
    for (size_t i = 1; i < names.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (names[i] == names[j]) {
                return true;
            }
        }
    }
    return false;
}

bool json_parser::names_differ(uint32_t object) {
    const std::vector<json_node> &nodes = document_.nodes_;
    names_.clear();
    for (uint32_t i = object + 1; i < nodes[object].end; i = nodes[i].end) {
        names_.push_back(nodes[i].name);
    }
    return !any_twice(names_) ||
           refuse("a member's name stands twice in the object that ends here");
}

bool json_parser::keyword(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) {
        return refuse("a value is missing");
    }
    at_ += word.size();
    return true;
}

bool json_parser::digits() {
    const size_t begin = at_;
    while (is_digit(next())) {
        ++at_;
    }
    return at_ > begin;
}

bool json_parser::number() {
    if (at_ == text_.size()) {
        return refuse("the document ends too early");
    }
    const bool negative = take('-');
    if (!negative && !is_digit(next())) {
        return refuse("a value is missing");
    }
    bool good = take('0') || digits();
    if (good && take('.')) {
        good = digits();
    }
    if (good && (take('e') || take('E'))) {
        good = (take('+') || take('-') || true) && digits();
    }
    return good || refuse("a number is malformed");
}

// --- texts ---

// Of a text's characters those that stand for themselves and are ASCII.
static constexpr auto plain_characters = [] {
    std::array<bool, 256> plain{};
    for (unsigned c = 0x20; c < 0x80; ++c) {
        plain[c] = c != '"' && c != '\\';
    }
    return plain;
}();

bool json_parser::string(std::string_view *text) {
    const size_t begin = ++at_;
    const char *const end = text_.data() + text_.size();
    const char *to = text_.data() + begin;
    while (to < end && plain_characters[static_cast<unsigned char>(*to)]) {
        ++to;
    }
    at_ = static_cast<size_t>(to - text_.data());
    if (next() != '"') {
        return decoded_string(begin, text);
    }
    *text = text_.substr(begin, at_ - begin);
    ++at_;
    return true;
}

// The slow way, from the first character that is an escape or beyond ASCII.
bool json_parser::decoded_string(size_t begin, std::string_view *text) {
    std::string decoded(text_.substr(begin, at_ - begin));
    while (!take('"')) {
        if (!character(&decoded)) {
            return false;
        }
    }
    *text = document_.decoded_.emplace_back(std::move(decoded));
    return true;
}

bool json_parser::character(std::string *decoded) {
    if (at_ == text_.size()) {
        return refuse("the document ends in a text");
    }
    if (take('\\')) {
        return escape(decoded);
    }
    if (static_cast<unsigned char>(text_[at_]) < 0x20) {
        return refuse("a text holds a control character");
    }
    const size_t size = utf8_sequence(text_.substr(at_));
    if (!size) {
        return refuse("a text is not UTF-8");
    }
    decoded->append(text_.substr(at_, size));
    at_ += size;
    return true;
}

bool json_parser::escape(std::string *decoded) {
    static constexpr std::string_view letters = "\"\\/bfnrt";
    static constexpr char meant[] = "\"\\/\b\f\n\r\t";
    if (take('u')) {
        return code_point(decoded);
    }
    const size_t which = letters.find(next());
    if (at_ == text_.size() || which == std::string_view::npos) {
        return refuse("a text holds an unknown escape");
    }
    decoded->push_back(meant[which]);
    ++at_;
    return true;
}

// Four hexadecimal digits.
bool json_parser::code_unit(uint32_t *unit) {
    *unit = 0;
    for (int i = 0; i < 4; ++i, ++at_) {
        const char c = next();
        const char folded = static_cast<char>(c | 0x20);
        if (!is_digit(c) && (folded < 'a' || folded > 'f')) {
            return refuse("a text holds a malformed \\u escape");
        }
        *unit = *unit * 16 + static_cast<uint32_t>(is_digit(c) ? c - '0' : folded - 'a' + 10);
    }
    return true;
}

static void append_utf8(std::string *text, uint32_t code) {
    const auto put = [&](uint32_t byte) { text->push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
        return;
    }
    if (code < 0x800) {
        put(0xC0 | code >> 6);
    } else {
        if (code < 0x10000) {
            put(0xE0 | code >> 12);
        } else {
            put(0xF0 | code >> 18);
            put(0x80 | (code >> 12 & 0x3F));
        }
        put(0x80 | (code >> 6 & 0x3F));
    }
    put(0x80 | (code & 0x3F));
}

bool json_parser::code_point(std::string *decoded) {
    uint32_t code = 0;
    if (!code_unit(&code)) {
        return false;
    }
    if (code == 0) {
        return refuse("a text holds \\u0000");
    }
    if (code >= 0xD800 && code < 0xE000) {
        uint32_t low = 0;
        if (code >= 0xDC00 || !take('\\') || !take('u') || !code_unit(&low) || low < 0xDC00 ||
            low >= 0xE000) {
            return refuse("a text holds half of a surrogate pair");
        }
        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    }
    append_utf8(decoded, code);
    return true;
}

// --- the document ---

json_document::json_document(std::string_view text, json_problem *problem,
                             const json_limits &limits)
    : text_(text) {
    const size_t likely = std::min(text.size(), limits.bytes) / 16;
    nodes_.reserve(likely);
    offsets_.reserve(likely);
    *problem = {};
    if (!json_parser(this, limits).parse(problem)) {
        nodes_.clear();
        offsets_.clear();
    }
}

uint32_t json_document::member(uint32_t object, std::string_view name) const {
    if (nodes_[object].is == json_kind::object) {
        for (uint32_t i = object + 1; i < nodes_[object].end; i = nodes_[i].end) {
            if (nodes_[i].name == name) {
                return i;
            }
        }
    }
    return 0;
}

uint32_t json_document::line_of(uint32_t node) const {
    return line_at(text_, offsets_[node]);
}

std::string json_document::path_of(uint32_t node) const {
    std::string path;
    uint32_t at = 0;
    while (at != node) {
        uint32_t index = 0;
        uint32_t child = at + 1;
        for (; nodes_[child].end <= node; child = nodes_[child].end) {
            ++index;
        }
        if (nodes_[at].is == json_kind::array) {
            path += '[' + std::to_string(index) + ']';
        } else {
            path.append(path.empty() ? "" : ".").append(nodes_[child].name);
        }
        at = child;
    }
    return path;
}

// The size of the text that a document goes on with, quotes included.
static size_t quoted_size(std::string_view rest) {
    size_t at = 1;
    while (rest[at] != '"') {
        at += rest[at] == '\\' ? 2u : 1u;
    }
    return at + 1;
}

std::string_view json_document::raw(uint32_t node) const {
    const std::string_view rest = text_.substr(offsets_[node]);
    return rest.substr(0, nodes_[node].is == json_kind::text ? quoted_size(rest)
                                                             : nodes_[node].text.size());
}

std::string json_document::compact(uint32_t node) const {
    const std::string_view whole = raw(node);
    std::string shown;
    bool quoted = false;
    for (size_t i = 0; i < whole.size(); ++i) {
        const char c = whole[i];
        if (quoted || !is_white(c)) {
            shown += c;
        }
        if (quoted && c == '\\') {
            shown += whole[++i];
            continue;
        }
        quoted = quoted != (c == '"');
    }
    return shown;
}

} // namespace quillfence::decision
