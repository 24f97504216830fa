#include "entry_operators.h"

#include <algorithm>

#include "engine_messages.h"
#include "expression_text.h"
#include "list_files.h"
#include "quillfence-file.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::verification {

namespace {

// An entry as people read it, from its begin to its end.
class reading {
  public:
    explicit reading(const std::string &entry);

    std::string sample;                // what it says, each "*" as some text
    bool is_expression = false;        // nobody means a class, a group or \d for itself
    bool has_escaped = false;          // "\." or "\*", where the backslash is taken for itself
    bool has_bar = false;              // outside of groups
    bool has_bracketed_domain = false; // a domain in brackets
    bool has_lost_end = false;         // "^" or "$" where nothing begins or ends
    bool has_plus = false;      // that repeats a letter, and with no "*" behind to match it too
    char first_operator = '\0'; // but for anchors in their place

  private:
    size_t take_escape(size_t at);
    size_t take_bracket(size_t at);
    size_t take(size_t at);
    void take_operator(size_t at);

    const std::string &entry_;
    int depth_ = 0;
    bool first_is_harmless_ = false;
    size_t item_end_ = std::string::npos; // where the last class, group or \d ended
};

} // namespace

static constexpr char some_text[] = "any";

reading::reading(const std::string &entry) : entry_(entry) {
    for (size_t at = 0; at < entry.size();) {
        at = take(at);
    }
}

// All of them return where the next one begins.
size_t reading::take_escape(size_t at) {
    if (at + 1 == entry_.size()) {
        first_operator = '\\';
        return at + 1;
    }
    const char escaped = entry_[at + 1];
    has_escaped = has_escaped || escaped == '.' || escaped == '*';
    if (is_letter(escaped)) {
        is_expression = true;
        item_end_ = at + 2;
    }
    sample += escaped;
    return at + 2;
}

size_t reading::take_bracket(size_t at) {
    size_t end = at + 1;
    while (end < entry_.size() && entry_[end] != ']') {
        end += entry_[end] == '\\' ? 2U : 1U;
    }
    end = std::min(end + 1, entry_.size());
    const bool is_literal = at && entry_[at - 1] == '@' && end == entry_.size();
    (is_literal ? has_bracketed_domain : is_expression) = true;
    item_end_ = end;
    return end;
}

void reading::take_operator(size_t at) {
    const char c = entry_[at];
    const bool is_anchor = c == '^' || c == '$';
    if (is_anchor && at == (c == '^' ? 0 : entry_.size() - 1)) {
        return;
    }
    const bool is_harmless = (c == '+' || c == '?') && entry_.compare(at + 1, 1, "*") == 0;
    if (!first_operator || first_is_harmless_) {
        first_operator = c;
        first_is_harmless_ = is_harmless;
    }
    has_lost_end = has_lost_end || (is_anchor && !depth_);
    has_bar = has_bar || (c == '|' && !depth_);
    has_plus = has_plus || (c == '+' && !is_harmless && item_end_ != at);
    sample += c;
}

size_t reading::take(size_t at) {
    const char c = entry_[at];
    if (c == '\\') {
        return take_escape(at);
    }
    if (c == '[') {
        return take_bracket(at);
    }
    if (c == '(' || c == ')') {
        is_expression = true;
        depth_ += c == '(' ? 1 : -1;
        item_end_ = at + 1;
    } else if (c == '*') {
        sample += some_text;
    } else if (is_plain_in_wildcards(c)) {
        sample += c;
    } else {
        take_operator(at);
    }
    return at + 1;
}

// --- what to write instead ---

// An expression as an entry; "" when it is none that only has wildcards, or matches nearly
// everybody.
static std::string as_wildcards(std::string_view text) {
    if (text.size() > 2 && text.front() == '/' && text.back() == '/') {
        text = text.substr(1, text.size() - 2);
    }
    if (text.starts_with('^')) {
        text.remove_prefix(1);
    }
    if (text.ends_with('$') && !text.ends_with("\\$")) {
        text.remove_suffix(1);
    }
    std::string entry;
    for (size_t at = 0; at < text.size(); ++at) {
        const std::string_view pair = text.substr(at, 2);
        const bool is_escape = pair.size() == 2 && pair[0] == '\\' && !is_alphanumeric(pair[1]) &&
                               pair[1] != '*' && is_plain_in_wildcards(pair[1]);
        if (pair == ".*" || is_escape) {
            ++at;
        }
        entry += pair == ".*" || is_escape ? pair[1] : pair[0];
    }
    const bool says_something = entry.find_first_not_of("*@.") != std::string::npos;
    return says_something && is_plain_pattern(entry) ? entry : std::string();
}

// The entry with a backslash in front of the operators that have none.
static std::string with_escapes(const std::string &entry) {
    std::string escaped;
    for (size_t at = 0; at < entry.size(); ++at) {
        if (entry[at] == '\\' && at + 1 < entry.size()) {
            escaped += entry[at++];
        } else if (!is_plain_in_wildcards(entry[at])) {
            escaped += '\\';
        }
        escaped += entry[at];
    }
    return escaped;
}

static std::string advice(const std::string &entry) {
    return entry.empty() ? std::string() : "; write " + printable(entry);
}

// --- what is odd ---

// Whether an entry is an expression as other programs write them, for which lists have no use.
static bool is_foreign_expression(const std::string &entry, const reading &as_read) {
    const bool has_slashes = entry.size() > 2 && entry.front() == '/' && entry.back() == '/';
    return has_slashes || entry.starts_with(".*") || entry.starts_with("^.*") ||
           as_read.has_escaped;
}

static constexpr finding_id says_otherwise = "entry-says-otherwise";

// What no text that is matched would show.
static std::optional<problem> why_misread(const std::string &entry, const reading &as_read) {
    if (is_foreign_expression(entry, as_read)) {
        return problem{says_otherwise, "is written as an expression, but in an entry * alone "
                                       "stands for any text and . for a dot" +
                                           advice(as_wildcards(entry))};
    }
    if (as_read.has_bar) {
        return problem{says_otherwise, "is cut in two by the |, and neither part stands for a "
                                       "whole address; write each as an entry of its own"};
    }
    if (as_read.has_bracketed_domain) {
        return problem{says_otherwise,
                       "takes the brackets for a class, any one character of it" +
                           advice(as_read.is_expression ? std::string() : with_escapes(entry))};
    }
    return std::nullopt;
}

static problem plus_repeats() {
    return {"entry-plus-repeats",
            "in an entry with a * the + repeats the character before it; write \\+ for a plus "
            "sign"};
}

// What an expression can hardly mean, whatever the rest of it means.
static std::optional<problem> why_odd_expression(const reading &as_read) {
    if (as_read.has_plus) {
        return plus_repeats();
    }
    if (as_read.has_lost_end) {
        return problem{says_otherwise, "never matches: ^ is an address's beginning, and $ its end"};
    }
    return std::nullopt;
}

std::optional<problem> why_defeated(const std::string &entry) {
    const reading as_read(entry);
    if (const std::optional<problem> misread = why_misread(entry, as_read)) {
        return misread;
    }
    if (as_read.is_expression) {
        return why_odd_expression(as_read);
    }
    const engine_messages silent; // a match that needs too many steps is none
    if (__wildcardmatch(entry.c_str(), as_read.sample.c_str()) == 0) {
        return std::nullopt;
    }
    if (as_read.first_operator == '+') {
        return plus_repeats();
    }
    return problem{says_otherwise, std::string("takes the ") + as_read.first_operator +
                                       " for an operator" + advice(with_escapes(entry))};
}

} // namespace quillfence::verification
