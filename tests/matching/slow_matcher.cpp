#include "slow_matcher.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace quillfence::testing {

// --- Parsing ---

namespace {

struct does_not_compile : std::exception {};

enum class kind { atom, open, close, bar, times };

struct token {
    kind what;
    slow_node node{-1, -1, -1, -1};    // atom: its node; open: the kind of group; times: bounds
    std::vector<slow_node> items = {}; // of a class
};

constexpr slow_node plain(int64_t type) {
    return {type, -1, -1, -1};
}

class tokenizer {
  public:
    explicit tokenizer(const std::string &text) : rest_(text) {}

    std::vector<token> all() {
        while (!rest_.empty()) {
            one();
        }
        return tokens_;
    }

  private:
    bool skip(const std::string &text) {
        if (!rest_.starts_with(text)) {
            return false;
        }
        rest_.erase(0, text.size());
        return true;
    }

    char next() {
        if (rest_.empty()) {
            throw does_not_compile();
        }
        const char c = rest_.front();
        rest_.erase(0, 1);
        return c;
    }

    int64_t printable(char c) {
        if (c < ' ' || c > '~') {
            throw does_not_compile();
        }
        return c;
    }

    static int64_t control(char letter) {
        const std::string letters = "fnrtv";
        const size_t at = letters.find(letter);
        return at == std::string::npos ? letter : std::string("\f\n\r\t\v")[at];
    }

    // What stands behind a backslash.
    slow_node escape(bool in_class) {
        const char letter = static_cast<char>(printable(next()));
        if (std::string("aAcCdDlpPsSuwWxX").find(letter) != std::string::npos) {
            return {262, letter, -1, -1};
        }
        if (!in_class && (letter == 'b' || letter == 'B')) {
            return {268, letter, -1, -1};
        }
        return plain(control(letter));
    }

    token bracket() {
        token made{kind::atom, plain(skip("^") ? 263 : 261)};
        if (rest_.starts_with("]")) {
            throw does_not_compile();
        }
        while (!skip("]")) {
            slow_node item = skip("\\") ? escape(true) : plain(printable(next()));
            const bool range =
                item.type < 256 && rest_.size() > 1 && rest_[0] == '-' && rest_[1] != ']';
            if (range) {
                next();
                const int64_t high =
                    skip("\\") ? control(static_cast<char>(printable(next()))) : printable(next());
                if (item.type > high) {
                    throw does_not_compile();
                }
                item = {264, item.type, high, -1};
            }
            made.items.push_back(item);
        }
        return made;
    }

    int64_t number() {
        std::string digits;
        while (!rest_.empty() && std::isdigit(static_cast<unsigned char>(rest_[0]))) {
            digits += next();
        }
        digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
        if (digits.size() > 5 || (digits.size() == 5 && digits > "65535")) {
            throw does_not_compile();
        }
        return digits.empty() ? 0 : std::stoll(digits);
    }

    token braces() {
        if (rest_.empty() || !std::isdigit(static_cast<unsigned char>(rest_[0]))) {
            throw does_not_compile();
        }
        const int64_t low = number();
        int64_t high = low;
        if (skip(",")) {
            high = rest_.starts_with("}") ? 65535 : 0;
            if (high == 0) {
                if (rest_.empty() || !std::isdigit(static_cast<unsigned char>(rest_[0]))) {
                    throw does_not_compile();
                }
                high = number();
            }
        }
        if (!skip("}")) {
            throw does_not_compile();
        }
        return {kind::times, {0, low, high, 0}};
    }

    // A quantifier may stand behind an atom or a group, once.
    bool quantifier() {
        const bool allowed = !tokens_.empty() && (tokens_.back().what == kind::atom ||
                                                  tokens_.back().what == kind::close);
        if (!allowed) {
            return false;
        }
        if (skip("*")) {
            tokens_.push_back({kind::times, {0, 0, 65535, 0}});
        } else if (skip("+")) {
            tokens_.push_back({kind::times, {0, 1, 65535, 0}});
        } else if (skip("?")) {
            tokens_.push_back({kind::times, {0, 0, 1, 0}});
        } else if (skip("{")) {
            tokens_.push_back(braces());
        } else {
            return false;
        }
        return true;
    }

    void one() {
        if (quantifier()) {
            return;
        }
        if (skip("(?")) {
            if (!skip(":")) {
                throw does_not_compile();
            }
            tokens_.push_back({kind::open, plain(259)});
        } else if (skip("(")) {
            tokens_.push_back({kind::open, plain(258)});
        } else if (skip(")")) {
            tokens_.push_back({kind::close});
        } else if (skip("|")) {
            tokens_.push_back({kind::bar});
        } else if (skip("[")) {
            tokens_.push_back(bracket());
        } else {
            tokens_.push_back({kind::atom, simple()});
        }
    }

    slow_node simple() {
        return skip(".*")   ? plain(269)
               : skip(".")  ? plain(260)
               : skip("^")  ? plain(267)
               : skip("$")  ? plain(266)
               : skip("\\") ? escape(false)
                            : plain(printable(next()));
    }

    std::string rest_;
    std::vector<token> tokens_;
};

class builder {
  public:
    explicit builder(std::vector<token> tokens) : tokens_(std::move(tokens)) {
        nodes_.push_back({258, -1, 0, -1});
    }

    slow_nodes build() {
        nodes_[0].left = branches();
        if (at_ != tokens_.size()) {
            throw does_not_compile(); // a closing parenthesis too many
        }
        return nodes_;
    }

  private:
    bool at(kind what) const {
        return at_ < tokens_.size() && tokens_[at_].what == what;
    }
    int64_t add(slow_node node) {
        nodes_.push_back(node);
        return static_cast<int64_t>(nodes_.size()) - 1;
    }

    // Elements up to a bar, a closing parenthesis or the end; there must be one.
    int64_t elements() {
        std::vector<int64_t> made;
        while (at_ < tokens_.size() && !at(kind::bar) && !at(kind::close)) {
            made.push_back(element());
        }
        if (made.empty()) {
            throw does_not_compile();
        }
        for (size_t i = 1; i < made.size(); ++i) {
            nodes_[static_cast<size_t>(made[i - 1])].next = made[i];
        }
        return made.front();
    }

    int64_t branches() {
        const int64_t first = elements();
        if (!at(kind::bar)) {
            return first;
        }
        ++at_;
        const int64_t second = branches();
        return add({257, first, second, -1});
    }

    int64_t element() {
        const token t = tokens_[at_++];
        int64_t made;
        if (t.what == kind::open) {
            const int64_t body = branches();
            if (!at(kind::close)) {
                throw does_not_compile();
            }
            ++at_;
            made = add({t.node.type, body, t.node.type == 258 ? 0 : -1, -1});
        } else {
            int64_t items = -1;
            for (auto item = t.items.rbegin(); item != t.items.rend(); ++item) {
                items = add({item->type, item->left, item->right, items});
            }
            made = add(t.node);
            if (items >= 0) {
                nodes_[static_cast<size_t>(made)].left = items;
            }
        }
        if (at(kind::times)) {
            const slow_node bounds = tokens_[at_++].node;
            const auto packed = static_cast<uint32_t>(bounds.left << 16 | bounds.right);
            made = add({256, made, static_cast<int32_t>(packed), -1});
        }
        return made;
    }

    std::vector<token> tokens_;
    size_t at_ = 0;
    slow_nodes nodes_;
};

std::string wrapped(std::string pattern) {
    if (!pattern.starts_with("^") && !pattern.starts_with(".*")) {
        pattern = ".*" + pattern;
    }
    return pattern.ends_with("$") ? pattern : pattern + ".*$";
}

} // namespace

std::optional<slow_nodes> slow_parse(const std::string &pattern) {
    try {
        return builder(tokenizer(wrapped(pattern)).all()).build();
    } catch (const does_not_compile &) {
        return std::nullopt;
    }
}

// --- Matching ---

namespace {

struct bad_node {
    std::string line;
};
struct out_of_patience {};

bool in_letter_class(int64_t letter, unsigned char c) {
    const bool ascii = c < 128;
    switch (letter) {
    case 'a':
        return ascii && std::isalpha(c);
    case 'c':
        return ascii && std::iscntrl(c);
    case 'd':
        return ascii && std::isdigit(c);
    case 'l':
        return ascii && std::islower(c);
    case 'p':
        return ascii && std::ispunct(c);
    case 's':
        return ascii && std::isspace(c);
    case 'u':
        return ascii && std::isupper(c);
    case 'w':
        return ascii && (std::isalnum(c) || c == '_');
    case 'x':
        return ascii && std::isxdigit(c);
    case 'A':
    case 'C':
    case 'D':
    case 'P':
    case 'S':
    case 'W':
    case 'X':
        return !in_letter_class(letter + 32, c);
    default:
        return false;
    }
}

// A chain of nodes, how many groups it stands in, and the chains that follow its end, the nearest
// one last.
struct chain {
    int64_t first;
    int groups;
};
using chains = std::vector<chain>;

struct where {
    int groups;
    chains following;
};

class slow_matcher {
  public:
    slow_matcher(const slow_nodes &nodes, const std::string &subject, bool fold, uint64_t patience)
        : nodes_(nodes), subject_(subject), fold_(fold), patience_(patience) {}

    bool whole() {
        const std::optional<size_t> to = match(0, 0, {0, {}});
        return to == subject_.size();
    }

  private:
    using place = std::optional<size_t>;
    struct chain_end {
        place to;
        bool ended = false;
    };

    static bad_node line(const std::string &text) {
        return {"__trex_node_is_valid: " + text};
    }
    static bad_node cycle(const std::string &function = "__trex_matchnode") {
        return {function + ": corrupt regex: nodes form a cycle"};
    }

    const slow_node &checked(int64_t index) {
        if (patience_-- == 0) {
            throw out_of_patience();
        }
        const slow_node &n = nodes_.at(static_cast<size_t>(index));
        const auto count = static_cast<int64_t>(nodes_.size());
        const auto in_range = [&](const char *name, int64_t link) {
            if (link >= count) {
                throw line(std::string("corrupt regex: node->") + name + " is out of range " +
                           std::to_string(link) + " > " + std::to_string(count));
            }
        };
        const auto needs = [](const char *what, const char *side, int64_t value) {
            if (value < 0) {
                throw line(std::string(what) + " must have value in '" + side + "'");
            }
        };
        if (n.type != 262 && n.type != 264 && n.type != 268) {
            in_range("left", n.left);
        }
        if (n.type != 256 && n.type != 264) {
            in_range("right", n.right);
        }
        in_range("next", n.next);
        if (n.type == 256) {
            needs("greedy operator", "right", n.right == -1 ? -1 : 0);
            needs("greedy operator", "left", n.left);
            if (low(n) > high(n)) {
                throw line("greedy operator range " + std::to_string(low(n)) + " - " +
                           std::to_string(high(n)) + " is invalid");
            }
        } else if (n.type == 257) {
            needs("OR operator", "left", n.left);
            needs("OR operator", "right", n.right);
        } else if (n.type == 258 || n.type == 259) {
            needs("expr () operator", "left", n.left);
        } else if (n.type == 261 || n.type == 263) {
            needs("class operator", "left", n.left);
        } else if (n.type == 264) {
            needs("range operator", "left", n.left);
            needs("range operator", "right", n.right);
        } else if (n.type < 256 || n.type == 265 || n.type > 269) {
            if (n.type < 32 || n.type > 126) {
                throw line("non-printable character " + std::to_string(n.type) + " found");
            }
        }
        return n;
    }

    static int64_t low(const slow_node &n) {
        return (n.right & 0xFFFF0000) >> 16;
    }
    static int64_t high(const slow_node &n) {
        return n.right & 0xFFFF;
    }
    int64_t folded(int64_t code) const {
        return fold_ && code >= 'A' && code <= 'Z' ? code - 'A' + 'a' : code;
    }

    bool in_class(const slow_node &n, unsigned char c) {
        size_t walked = 0;
        for (int64_t index = n.left; index >= 0; index = nodes_[static_cast<size_t>(index)].next) {
            if (++walked > nodes_.size()) {
                throw cycle("__trex_matchclass");
            }
            const slow_node &item = checked(index);
            if (item.type == 264) {
                if (folded(item.left) <= folded(c) && folded(c) <= folded(item.right)) {
                    return true;
                }
            } else if (item.type == 262 ? in_letter_class(item.left, c) : item.type == c) {
                return true;
            }
        }
        return false;
    }

    bool takes(const slow_node &n, unsigned char c) {
        switch (n.type) {
        case 260:
            return true;
        case 261:
            return in_class(n, c);
        case 262:
            return in_letter_class(n.left, c);
        case 263:
            return !in_class(n, c);
        default:
            return n.type < 256 && folded(n.type) == folded(c);
        }
    }

    bool word_at(size_t at) const {
        return at < subject_.size() &&
               in_letter_class('w', static_cast<unsigned char>(subject_[at]));
    }

    bool boundary(const slow_node &n, size_t at) const {
        const bool edge = (at > 0 && word_at(at - 1)) != word_at(at);
        return (n.left == 'b' && edge) || (n.left == 'B' && !edge);
    }

    // What a node inside n sees: n's own following, more groups around it.
    static where into(const slow_node &n, const where &here, int groups) {
        where inner{here.groups + groups, here.following};
        if (n.next >= 0) {
            inner.following.push_back({n.next, here.groups});
        }
        return inner;
    }

    chain_end rest(const where &inner, size_t at) {
        if (inner.following.empty()) {
            return {at, false};
        }
        where there{inner.following.back().groups, inner.following};
        there.following.pop_back();
        return sequence(inner.following.back().first, at, there);
    }

    place match(int64_t index, size_t at, const where &here) {
        const slow_node &n = checked(index);
        switch (n.type) {
        case 264:
            return {};
        case 266:
            return at == subject_.size() ? place(at) : place();
        case 267:
            return at == 0 ? place(at) : place();
        case 268:
            return boundary(n, at) ? place(at) : place();
        case 256:
        case 257:
        case 258:
        case 259:
        case 269:
            return deeper(n, at, here).to;
        default:
            if (at < subject_.size() && takes(n, static_cast<unsigned char>(subject_[at]))) {
                return at + 1;
            }
            return {};
        }
    }

    chain_end deeper(const slow_node &n, size_t at, const where &here) {
        if (depth_ == nodes_.size() + 16) {
            throw cycle();
        }
        ++depth_;
        chain_end result;
        if (n.type == 256) {
            result.to = repeated(n, at, here);
        } else if (n.type == 257) {
            result.to = alternation(n, at, here);
        } else if (n.type == 269) {
            result = any_sequence(n, at, here);
        } else {
            result.to = sequence(n.left, at, into(n, here, 1)).to;
        }
        --depth_;
        return result;
    }

    // Bars to the right of a bar are one row of branches.
    place alternation(const slow_node &n, size_t at, const where &here) {
        const where alone{here.groups, {}};
        const slow_node *bar = &n;
        for (size_t walked = 0; walked < nodes_.size(); ++walked) {
            if (const place to = sequence(bar->left, at, alone).to) {
                return to;
            }
            const int64_t right = bar->right;
            const slow_node &second = checked(right);
            if (second.type != 257 || second.next >= 0) {
                return sequence(right, at, alone).to;
            }
            bar = &second;
        }
        throw cycle();
    }

    chain_end any_sequence(const slow_node &n, size_t at, const where &here) {
        int64_t index = n.next;
        size_t walked = 0;
        while (index >= 0 && checked(index).type == 269) {
            if (++walked > nodes_.size()) {
                throw cycle();
            }
            index = checked(index).next;
        }
        if (index < 0) {
            return {subject_.size(), false};
        }
        if (at == subject_.size() && checked(index).type != 266) {
            return {};
        }
        for (; at <= subject_.size(); ++at) {
            const chain_end through = sequence(index, at, here);
            if (through.to && through.ended) {
                return through;
            }
        }
        return {};
    }

    chain_end sequence(int64_t first, size_t at, const where &here) {
        chain_end state{at, false};
        size_t walked = 0;
        for (int64_t index = first; index >= 0;) {
            if (++walked > nodes_.size()) {
                throw cycle();
            }
            const slow_node &n = checked(index);
            if (n.type == 269) {
                return deeper(n, *state.to, here);
            }
            state = {match(index, *state.to, here), n.type == 266};
            if (!state.to) {
                return {};
            }
            index = n.next;
        }
        return state;
    }

    place repeated(const slow_node &n, size_t at, const where &here) {
        const where inner = into(n, here, 0);
        const int64_t from = low(n);
        const int64_t to = high(n);
        if (from == 0 && to == 65535) {
            return star(n, at, inner);
        }
        if (from == 1 && to == 65535) {
            return plus(n, at, inner);
        }
        if (from == 0 && to == 1) {
            const place once = match(n.left, at, inner);
            return once && (inner.following.empty() || rest(inner, *once).to) ? once : at;
        }
        place now = at;
        for (int64_t i = 0; i < from && now; ++i) {
            now = match(n.left, *now, inner);
        }
        if (from == to || !now) {
            return now;
        }
        if (inner.following.empty() || here.groups >= 2) {
            for (;;) {
                const place more = match(n.left, *now, inner);
                if (!more || *more == *now) {
                    return now;
                }
                now = more;
            }
        }
        for (int64_t count = from; count <= to; ++count) {
            if (rest(inner, *now).to) {
                return now;
            }
            const place more = match(n.left, *now, inner);
            if (!more || *more == *now) {
                return {};
            }
            now = more;
        }
        return {};
    }

    bool rest_reaches_the_end(const where &inner, size_t at) {
        if (inner.following.empty()) {
            return false;
        }
        const chain_end through = rest(inner, at);
        return through.to && through.ended;
    }

    place star(const slow_node &n, size_t at, const where &inner) {
        const place once = match(n.left, at, inner);
        if (!once) {
            return at;
        }
        bool stuck = *once == at;
        for (size_t now = *once;;) {
            if (rest_reaches_the_end(inner, now)) {
                return now;
            }
            if (now == subject_.size() || stuck) {
                return {};
            }
            const place more = match(n.left, now, inner);
            if (!more) {
                return {};
            }
            stuck = *more == now;
            now = *more;
        }
    }

    place plus(const slow_node &n, size_t at, const where &inner) {
        const place once = match(n.left, at, inner);
        if (!once) {
            return {};
        }
        bool stuck = *once == at;
        for (size_t now = *once;;) {
            if (rest_reaches_the_end(inner, now) || now == subject_.size() || stuck) {
                return now;
            }
            const place more = match(n.left, now, inner);
            if (!more) {
                return now;
            }
            stuck = *more == now;
            now = *more;
        }
    }

    const slow_nodes &nodes_;
    const std::string &subject_;
    bool fold_;
    uint64_t patience_;
    size_t depth_ = 0;
};

} // namespace

slow_answer slow_match(const slow_nodes &nodes, const std::string &subject, bool fold,
                       uint64_t patience) {
    try {
        return {.matched = slow_matcher(nodes, subject, fold, patience).whole(), .line = {}};
    } catch (const bad_node &bad) {
        return {.matched = false, .line = bad.line};
    } catch (const out_of_patience &) {
        return {.matched = false, .line = {}, .endless = true};
    }
}

} // namespace quillfence::testing
