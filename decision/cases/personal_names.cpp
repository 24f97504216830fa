#include "personal_names.h"

#include <algorithm>

namespace quillfence::decision {

static constexpr size_t shortest_bare_name = 3;
static constexpr size_t longest_domain = 255; // of the DNS
static constexpr size_t longest_phrase = 320;
static constexpr size_t longest_quoted_local_part = 320;

// --- sorted keys ---

namespace {

// Those of the sorted keys that begin with what has been read.
struct key_range {
    const std::string *first;
    const std::string *last;
};

} // namespace

static key_range narrowed(key_range from, size_t depth, char next) {
    const auto byte = static_cast<unsigned char>(next);
    const auto key_byte = [depth](const std::string &key) {
        return static_cast<unsigned char>(key[depth]);
    };
    const std::string *const first =
        std::partition_point(from.first, from.last, [&](const std::string &key) {
            return key.size() <= depth || key_byte(key) < byte;
        });
    return {first, std::partition_point(first, from.last, [&](const std::string &key) {
                return key_byte(key) == byte;
            })};
}

// --- words ---

// Whether one of a text's words is such a word, given as (where it stands, itself in lower case).
template <class Function>
static bool any_word(std::string_view text, const Function &is_such) {
    size_t at = 0;
    for (word_place word{}; next_word(text, at, &word); at = word.at + word.size) {
        if (is_such(word.at, lower_case(text.substr(word.at, word.size)))) {
            return true;
        }
    }
    return false;
}

// --- addresses in texts ---

static bool is_local_byte(char c) {
    return is_word_byte(c) ||
           (c && std::string_view("!#$%&'*+=?^`{|}~").find(c) != std::string_view::npos);
}

// Where the quoted text begins whose closing quote stands at a place; that place for none.
static size_t opening_quote(std::string_view text, size_t closing) {
    for (size_t at = closing; at > 0 && closing - at < longest_quoted_local_part; --at) {
        const bool escaped = at > 1 && text[at - 2] == '\\';
        if (text[at - 1] == '"' && !escaped) {
            return at - 1;
        }
    }
    return closing;
}

static size_t begin_of_local_part(std::string_view text, size_t from, size_t sign) {
    if (sign && text[sign - 1] == '"') {
        const size_t opening = opening_quote(text, sign - 1);
        return opening < sign - 1 ? opening : sign;
    }
    size_t at = sign;
    while (at > from && is_local_byte(text[at - 1])) {
        --at;
    }
    return at;
}

static size_t end_of_domain(std::string_view text, size_t from) {
    size_t end = from;
    while (end < text.size() && is_word_byte(text[end])) {
        ++end;
    }
    return end;
}

std::vector<address_place> addresses_in(std::string_view text) {
    std::vector<address_place> found;
    size_t from = 0;
    for (size_t sign = text.find('@'); sign != std::string_view::npos;
         sign = text.find('@', from)) {
        const size_t at = begin_of_local_part(text, from, sign);
        const size_t behind = end_of_domain(text, sign + 1);
        while (at < sign && !found.empty() && found.back().at >= at) {
            found.pop_back(); // it stood in quotes
        }
        if (at < sign) {
            found.push_back({at, sign, behind});
        }
        // What stands between two signs belongs to both: a@b@c.
        from = behind < text.size() && text[behind] == '@' ? sign + 1 : std::max(behind, sign + 1);
    }
    return found;
}

// --- learning ---

// A listed mailbox whitelist has its entries in file names.
static constexpr std::string_view entry_file_ending = ".LST";

static std::string_view without_entry_ending(std::string_view text) {
    return text.ends_with(entry_file_ending)
               ? text.substr(0, text.size() - entry_file_ending.size())
               : text;
}

static std::string first_domain(std::string_view text) {
    word_place word{};
    return next_word(text, 0, &word) ? lower_case(text.substr(word.at, word.size)) : "";
}

static bool has_word(std::string_view text) {
    word_place word{};
    return next_word(text, 0, &word);
}

static std::string without_final_dots(std::string domain) {
    domain.erase(domain.find_last_not_of('.') + 1);
    return domain;
}

void personal_names::learn_address(std::string_view local, std::string_view domain) {
    if (!has_word(local)) {
        learn_domain(domain);
        return;
    }
    learn_name(local);
    learn_domain(domain);
    std::string key = locals_.back();
    std::reverse(key.begin(), key.end());
    addresses_.push_back((key += '@') += without_final_dots(lower_case(domain)));
}

void personal_names::learn_fact(std::string_view text) {
    const size_t sign = text.rfind('@');
    facts_.insert(lower_case(text));
    if (sign == std::string_view::npos) {
        learn_name(text);
    } else {
        learn_address(text.substr(0, sign), text.substr(sign + 1));
    }
}

void personal_names::learn_text(std::string_view text) {
    const std::string_view body = without_entry_ending(text);
    for (const address_place &place : addresses_in(body)) {
        learn_address(body.substr(place.at, place.sign - place.at),
                      body.substr(place.sign + 1, place.behind - place.sign - 1));
    }
}

static bool is_reverse_name(const std::string &name) {
    return name.ends_with(".arpa");
}

void personal_names::learn_domain(std::string_view name) {
    std::string rest = first_domain(without_entry_ending(name));
    if (is_reverse_name(rest) || rest.size() > longest_domain) {
        return;
    }
    while (rest.find('.') != std::string::npos && domains_.insert(rest).second) {
        rest.erase(0, rest.find('.') + 1);
    }
}

void personal_names::learn_name(std::string_view text) {
    locals_.push_back(lower_case(text));
}

void personal_names::keep_zone(std::string_view zone) {
    zones_.insert(first_domain(zone));
}

// A domain inside of a local part: list+bob=x.example.
bool personal_names::stands_for_domain(std::string_view local, word_place place) const {
    const bool behind = place.at && local[place.at - 1] == '=';
    const size_t end = place.at + place.size;
    const bool before = end < local.size() && local[end] == '=';
    return (behind || before) && is_domain(lower_case(local.substr(place.at, place.size)));
}

// Several words with a short one among them, which is no name by itself: a+b.
void personal_names::learn_phrase(std::string_view local) {
    size_t words = 0;
    bool has_short = false;
    size_t begin = 0;
    size_t end = 0;
    for (word_place word{}; next_word(local, end, &word); end = word.at + word.size) {
        begin = words++ ? begin : word.at;
        has_short |= word.size < shortest_bare_name;
    }
    if (words > 1 && has_short && end - begin <= longest_phrase) {
        phrases_.emplace_back(local.substr(begin, end - begin));
    }
}

// Whether no word goes on in what follows one.
static bool ends_word(std::string_view behind) {
    const size_t next = behind.find_first_not_of(".-");
    return next == std::string_view::npos || !is_word_byte(behind[next]);
}

// The bytes of the longest phrase that stands at a place in a text; 0 for none.
size_t personal_names::phrase_at(std::string_view text, size_t at) const {
    key_range keys{phrases_.data(), phrases_.data() + phrases_.size()};
    size_t found = 0;
    for (size_t size = 0; keys.first != keys.last; ++size) {
        if (keys.first->size() == size && ends_word(text.substr(at + size))) {
            found = size;
        }
        if (at + size == text.size()) {
            break;
        }
        keys = narrowed(keys, size, lower_case(text.substr(at + size, 1))[0]);
    }
    return found;
}

static void make_sorted(std::vector<std::string> *keys) {
    std::sort(keys->begin(), keys->end());
    keys->erase(std::unique(keys->begin(), keys->end()), keys->end());
}

void personal_names::settle() {
    for (const std::string &local : locals_) {
        with_words(local, [this](std::string_view in, word_place word) {
            if (!stands_for_domain(in, word)) {
                names_.emplace(in.substr(word.at, word.size));
            }
            return "";
        });
    }
    for (const std::string &local : locals_) {
        learn_phrase(local);
    }
    locals_.clear();
    make_sorted(&phrases_);
    make_sorted(&addresses_);
}

// --- domains ---

bool personal_names::is_domain(const std::string &word) const {
    return domains_.contains(word);
}

// Whether a name or one above it is in a set.
static bool is_below(const std::unordered_set<std::string> &set, std::string_view name) {
    while (!set.contains(std::string(name))) {
        const size_t dot = name.find('.');
        if (dot == std::string_view::npos) {
            return false;
        }
        name.remove_prefix(dot + 1);
    }
    return true;
}

bool personal_names::is_kept(const std::string &word) const {
    return is_reverse_name(word) || word == "localhost.localdomain" || is_below(zones_, word);
}

bool personal_names::goes_as_domain(const std::string &word) const {
    return with_domains_ && word.size() <= longest_domain && word.find('.') != std::string::npos &&
           !is_kept(word) && is_below(domains_, word);
}

// --- replacing ---

std::string personal_names::in_word(std::string_view word, scope which) {
    const std::string plain = lower_case(word);
    if (goes_as_domain(plain)) {
        return pseudonyms_.of_domain(word);
    }
    const bool is_name =
        which == scope::words && word.size() >= shortest_bare_name && names_.contains(plain);
    return is_name ? pseudonyms_.of(word) : std::string(word);
}

std::string personal_names::in_words(std::string_view text, scope which) {
    std::string made;
    size_t at = 0;
    for (word_place word{}; next_word(text, at, &word);) {
        const size_t phrase = which == scope::words ? phrase_at(text, word.at) : 0;
        const std::string_view found = text.substr(word.at, phrase ? phrase : word.size);
        made += text.substr(at, word.at - at);
        made += phrase ? in_name(found) : in_word(found, which);
        at = word.at + found.size();
    }
    return made += text.substr(at);
}

std::string personal_names::in_name(std::string_view local) {
    return with_words(local, [this](std::string_view in, word_place place) {
        const std::string_view word = in.substr(place.at, place.size);
        if (!stands_for_domain(in, place)) {
            return pseudonyms_.of(word);
        }
        return goes_as_domain(lower_case(word)) ? pseudonyms_.of_domain(word) : std::string(word);
    });
}

std::string personal_names::in_fact(std::string_view text) {
    const size_t sign = text.rfind('@');
    if (sign == std::string_view::npos) {
        return in_name(text);
    }
    return in_name(text.substr(0, sign)) + '@' + in_words(text.substr(sign + 1), scope::words);
}

std::string personal_names::in_found_addresses(std::string_view text, scope which) {
    std::string made;
    size_t from = 0;
    for (const address_place &place : addresses_in(text)) {
        const size_t at = std::max(place.at, from);
        made += in_words(text.substr(from, at - from), which);
        made += in_name(text.substr(at, place.sign - at));
        from = place.sign;
    }
    return made += in_words(text.substr(from), which);
}

std::string personal_names::in_text(std::string_view text) {
    if (facts_.contains(lower_case(text))) {
        return in_fact(text);
    }
    const std::string_view body = without_entry_ending(text);
    return in_found_addresses(body, scope::words) += text.substr(body.size());
}

std::string personal_names::in_addresses(std::string_view text) {
    if (facts_.contains(lower_case(text))) {
        return in_fact(text);
    }
    const std::string_view body = without_entry_ending(text);
    return in_found_addresses(body, scope::addresses) += text.substr(body.size());
}

// --- paths ---

bool personal_names::has_only_names(std::string_view text) const {
    bool only = has_word(text);
    with_words(text, [&](std::string_view in, word_place word) {
        only = only && (names_.contains(lower_case(in.substr(word.at, word.size))) ||
                        stands_for_domain(in, word));
        return "";
    });
    return only;
}

static bool is_drive(std::string_view component) {
    return component.size() == 2 && component[1] == ':';
}

std::string personal_names::in_component(std::string_view component) {
    if (is_drive(component)) {
        return std::string(component);
    }
    return has_only_names(component) ? in_name(component) : in_addresses(component);
}

std::string personal_names::in_path(std::string_view path) {
    std::string made;
    for (size_t at = 0; at <= path.size();) {
        const size_t end = std::min(path.find_first_of("/\\", at), path.size());
        made += in_component(path.substr(at, end - at));
        made += path.substr(end, 1);
        at = end + 1;
    }
    return made;
}

// --- checking ---

// Whether one of the keys goes on as the text does, to its own end.
static bool goes_on(key_range keys, size_t depth, std::string_view text) {
    for (size_t at = 0; keys.first != keys.last; ++at, ++depth) {
        if (keys.first->size() == depth) {
            return true;
        }
        if (at == text.size()) {
            return false;
        }
        keys = narrowed(keys, depth, lower_case(text.substr(at, 1))[0]);
    }
    return false;
}

// Reads away from the "@": first the local part from its end, then the domain.
bool personal_names::is_learned_around(std::string_view text, size_t sign) const {
    key_range keys{addresses_.data(), addresses_.data() + addresses_.size()};
    for (size_t at = sign; at && keys.first != keys.last; --at) {
        const size_t depth = sign - at;
        keys = narrowed(keys, depth, lower_case(text.substr(at - 1, 1))[0]);
        const bool begins = at == 1 || !is_word_byte(text[at - 2]);
        if (begins && goes_on(narrowed(keys, depth + 1, '@'), depth + 2, text.substr(sign + 1))) {
            return true;
        }
    }
    return false;
}

bool personal_names::holds_address(std::string_view text) const {
    for (size_t sign = text.find('@'); sign != std::string_view::npos;
         sign = text.find('@', sign + 1)) {
        if (is_learned_around(text, sign)) {
            return true;
        }
    }
    return false;
}

bool personal_names::holds_domain(std::string_view text) const {
    return with_domains_ &&
           any_word(text, [this](size_t, const std::string &word) { return goes_as_domain(word); });
}

bool personal_names::holds_name(std::string_view text) const {
    return any_word(text, [&](size_t at, const std::string &word) {
        return (word.size() >= shortest_bare_name && names_.contains(word)) || phrase_at(text, at);
    });
}

} // namespace quillfence::decision
