#include "pseudonym.h"

#include <algorithm>
#include <cstdint>

#include "keyed_digest.h"
#include "utf8.h"
#include "vc_rfc.h"

namespace quillfence::decision {

// --- bytes ---

static bool is_lower(char c) {
    return c >= 'a' && c <= 'z';
}
static bool is_upper(char c) {
    return c >= 'A' && c <= 'Z';
}
static bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
static bool is_ascii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}
static char lower_of(char c) {
    return is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
static char upper_of(char c) {
    return is_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string lower_case(std::string_view text) {
    std::string made(text);
    std::transform(made.begin(), made.end(), made.begin(), lower_of);
    return made;
}

// --- words ---

bool is_word_byte(char c) {
    return is_lower(lower_of(c)) || is_digit(c) || !is_ascii(c) || c == '.' || c == '-' || c == '_';
}

static bool may_end_word(char c) {
    return c != '.' && c != '-';
}

static bool may_end_address(char c) {
    return c != '.' && c != ':';
}

static bool is_address(std::string_view text) {
    return !text.empty() && vc_is_ip(std::string(text).c_str());
}

static bool is_address_byte(char c) {
    return is_digit(c) || (lower_of(c) >= 'a' && lower_of(c) <= 'f') || c == ':' || c == '.';
}

// The bytes of an IPv6 address that begins at a place, and ends where no word goes on; 0 for none.
static size_t ipv6_address_size(std::string_view text, size_t at) {
    constexpr size_t longest = 45; // with an IPv4 address at its end
    constexpr int most_behind = 2; // signs that end a sentence
    size_t size = 0;
    bool colon = false;
    for (; at + size < text.size() && size <= longest && is_address_byte(text[at + size]); ++size) {
        colon |= text[at + size] == ':';
    }
    if (!colon || (at + size < text.size() && is_word_byte(text[at + size]))) {
        return 0;
    }
    for (int i = 0; i < most_behind && size && !may_end_address(text[at + size - 1]) &&
                    !is_address(text.substr(at, size));
         ++i) {
        --size;
    }
    return is_address(text.substr(at, size)) ? size : 0;
}

static bool begins_word(std::string_view text, size_t at) {
    return is_word_byte(text[at]) && may_end_word(text[at]);
}

static size_t end_of_word(std::string_view text, size_t at) {
    size_t end = at;
    while (end < text.size() && is_word_byte(text[end])) {
        ++end;
    }
    while (!may_end_word(text[end - 1])) {
        --end;
    }
    return end;
}

bool next_word(std::string_view text, size_t from, word_place *found) {
    for (size_t at = from; at < text.size();) {
        const bool is_word = begins_word(text, at);
        const size_t address = is_word || text[at] == ':' ? ipv6_address_size(text, at) : 0;
        const size_t end = is_word && !address ? end_of_word(text, at) : at;
        if (end > at && !is_address(text.substr(at, end - at))) {
            *found = {at, end - at};
            return true;
        }
        at = std::max({at + 1, at + address, end});
    }
    return false;
}

// --- random numbers of a key and a text ---

namespace {

class number_stream {
  public:
    number_stream(const std::string &key, const std::string &text)
        : key_(key), text_("quillfence.pseudonym/1\n" + text) {}

    // Each value below the limit, at most 65,536, is as likely as another.
    uint32_t below(uint32_t limit) {
        constexpr uint32_t all = 0x10000;
        uint32_t drawn;
        do {
            drawn = static_cast<uint32_t>(byte()) << 8;
            drawn |= byte();
        } while (drawn >= all - all % limit);
        return drawn % limit;
    }

  private:
    unsigned char byte() {
        if (at_ == block_.size()) {
            block_ = data_files::keyed_digest_of(key_, text_ + '\n' + std::to_string(blocks_++));
            at_ = 0;
        }
        return block_[at_++];
    }

    const std::string &key_;
    const std::string text_;
    data_files::keyed_digest block_{};
    size_t at_ = block_.size();
    uint32_t blocks_ = 0;
};

} // namespace

// --- characters ---

// A letter of as many bytes: Latin with marks, Chinese, and rare Chinese.
static std::string other_letter(size_t bytes, number_stream &numbers) {
    const auto continuation = [](uint32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    const auto lead = [](uint32_t bits) { return static_cast<char>(bits); };
    if (bytes == 2) {
        const uint32_t code = 0x100 + numbers.below(0x80);
        return {lead(0xC0 | code >> 6), continuation(code)};
    }
    if (bytes == 3) {
        const uint32_t code = 0x4E00 + numbers.below(0x4000);
        return {lead(0xE0 | code >> 12), continuation(code >> 6), continuation(code)};
    }
    const uint32_t code = 0x20000 + numbers.below(0x4000);
    return {lead(0xF0 | code >> 18), continuation(code >> 12), continuation(code >> 6),
            continuation(code)};
}

// A byte that is UTF-8 nowhere.
static char stray_byte(number_stream &numbers) {
    return static_cast<char>(0xF8 + numbers.below(8));
}

static std::string replaced_character(std::string_view whole, number_stream &numbers) {
    const char c = whole.front();
    if (is_lower(c)) {
        return {static_cast<char>('a' + numbers.below(26))};
    }
    if (is_digit(c)) {
        return {static_cast<char>('0' + numbers.below(10))};
    }
    return is_ascii(c) ? std::string(1, c) : other_letter(whole.size(), numbers);
}

static std::string of_same_shape(std::string_view text, number_stream &numbers) {
    std::string made;
    while (!text.empty()) {
        const size_t bytes = utf8_sequence(text);
        if (bytes) {
            made += replaced_character(text.substr(0, bytes), numbers);
        } else {
            made += stray_byte(numbers);
        }
        text.remove_prefix(bytes ? bytes : 1);
    }
    return made;
}

static bool has_something_to_replace(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return is_lower(c) || is_digit(c) || !is_ascii(c); });
}

// --- pseudonyms ---

// Of a text in lower case. What comes out like the text itself is drawn again.
static std::string drawn(const std::string &key, const std::string &text) {
    number_stream numbers(key, text);
    std::string made = of_same_shape(text, numbers);
    while (made == text && has_something_to_replace(text)) {
        made = of_same_shape(text, numbers);
    }
    return made;
}

static void take_case(std::string *made, std::string_view model) {
    for (size_t i = 0; i < model.size(); ++i) {
        if (is_upper(model[i])) {
            (*made)[i] = upper_of((*made)[i]);
        }
    }
}

std::string pseudonyms::of(std::string_view text) {
    const std::string plain = lower_case(text);
    auto known = known_.find(plain);
    if (known == known_.end()) {
        known = known_.emplace(plain, drawn(key_, plain)).first;
    }
    std::string made = known->second;
    take_case(&made, text);
    return made;
}

std::string pseudonyms::of_domain(std::string_view name) {
    const size_t behind = name.find_last_not_of('.') + 1; // a final dot ends no label
    const size_t last = behind ? name.rfind('.', behind - 1) : std::string_view::npos;
    if (last == std::string_view::npos) {
        return std::string(name);
    }
    std::string made;
    for (size_t at = 0; at <= last;) {
        const size_t dot = name.find('.', at);
        made += of(name.substr(at, dot - at));
        made += '.';
        at = dot + 1;
    }
    return made += name.substr(last + 1);
}

} // namespace quillfence::decision
