#include "json_writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "utf8.h"

namespace quillfence::decision {

static constexpr char digits[] = "0123456789abcdef";
static constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD
// A byte becomes six at most: \u001f.
static constexpr size_t longest_escape = 6;

// --- the buffer ---

json_writer::json_writer(std::string &out, json_layout layout)
    : out_(out), indented_(layout == json_layout::indented) {
    constexpr size_t short_value = 64; // many are no longer; who writes more reserves it
    const size_t used = out_.size();
    out_.resize(std::max(out_.capacity(), used + short_value));
    at_ = out_.data() + used;
    end_ = out_.data() + out_.size();
}

json_writer::~json_writer() {
    finish();
}

void json_writer::finish() {
    if (at_) {
        out_.resize(static_cast<size_t>(at_ - out_.data()));
        at_ = end_ = nullptr;
    }
}

void json_writer::grow(size_t bytes) {
    const auto used = static_cast<size_t>(at_ - out_.data());
    out_.resize(2 * out_.size() + bytes);
    at_ = out_.data() + used;
    end_ = out_.data() + out_.size();
}

void json_writer::put(char c) {
    *room(1) = c;
    ++at_;
}

void json_writer::put(std::string_view plain) {
    std::memcpy(room(plain.size()), plain.data(), plain.size());
    at_ += plain.size();
}

// --- brackets ---

void json_writer::new_line() {
    const size_t blanks = 2 * size_t{depth_};
    char *const to = room(1 + blanks);
    *to = '\n';
    std::memset(to + 1, ' ', blanks);
    at_ = to + 1 + blanks;
}

void json_writer::lay_out(bool first) {
    if (!flat_) {
        new_line();
    } else if (!first) {
        put(' ');
    }
}

void json_writer::begin(char bracket, bool flat) {
    separate();
    put(bracket);
    ++depth_;
    flat_ += flat || flat_;
    first_ = true;
}

void json_writer::end(char bracket) {
    --depth_;
    if (flat_) {
        --flat_;
    } else if (indented_ && !first_) {
        new_line();
    }
    put(bracket);
    first_ = false;
}

void json_writer::begin_object() {
    begin('{', false);
}

void json_writer::end_object() {
    end('}');
}

void json_writer::begin_array() {
    begin('[', false);
}

void json_writer::end_array() {
    end(']');
}

void json_writer::begin_flat_object() {
    begin('{', true);
}

void json_writer::begin_flat_array() {
    begin('[', true);
}

// --- names ---

void json_writer::name(std::string_view plain, std::string_view suffix) {
    separate();
    put('"');
    put(plain);
    put(suffix);
    put(indented_ ? std::string_view("\": ") : std::string_view("\":"));
    behind_name_ = true;
}

void json_writer::name_text(std::string_view raw) {
    separate();
    quoted(raw);
    put(indented_ ? std::string_view(": ") : std::string_view(":"));
    behind_name_ = true;
}

// --- texts ---

static bool stands_for_itself(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\';
}

// Whether all of eight bytes stand for themselves.
static bool stand_for_themselves(uint64_t eight) {
    static constexpr uint64_t ones = 0x0101010101010101;
    // The high bit of a byte is set where the byte of `of` is zero; what a borrow sets besides
    // stands above such a byte only.
    const auto zeros = [](uint64_t of) { return (of - ones) & ~of; };
    const uint64_t below_blank = (eight - 0x20 * ones) & ~eight;
    const uint64_t others = eight | below_blank | zeros(eight ^ '"' * ones) | //
                            zeros(eight ^ '\\' * ones);
    return !(others & 0x80 * ones);
}

// Copies the text, with up to eight bytes behind it. False when a byte does not stand for itself.
static bool copy_plain(char *to, std::string_view text) {
    uint64_t eight = 0x6161616161616161;
    size_t at = 0;
    for (; at + sizeof eight <= text.size(); at += sizeof eight) {
        std::memcpy(&eight, text.data() + at, sizeof eight);
        std::memcpy(to + at, &eight, sizeof eight);
        if (!stand_for_themselves(eight)) {
            return false;
        }
    }
    // The rest in front of bytes that have been seen.
    std::memcpy(&eight, text.data() + at, text.size() - at);
    std::memcpy(to + at, &eight, sizeof eight);
    return stand_for_themselves(eight);
}

static char *append(char *to, std::string_view bytes) {
    std::memcpy(to, bytes.data(), bytes.size());
    return to + bytes.size();
}

// One ASCII character that has an escape.
static char *append_escape(char *to, char c) {
    static constexpr std::string_view letters = "\b\t\n\f\r\"\\";
    static constexpr char escapes[] = "btnfr\"\\";
    *to++ = '\\';
    if (const size_t which = letters.find(c); which != std::string_view::npos) {
        *to++ = escapes[which];
        return to;
    }
    to = append(to, "u00");
    *to++ = digits[(c >> 4) & 15];
    *to++ = digits[c & 15];
    return to;
}

// The text byte by byte. False for a byte that cannot be shown.
bool json_writer::escaped(std::string_view raw) {
    char *to = room(longest_escape * raw.size() + 1);
    bool shown = true;
    for (size_t i = 0; i < raw.size();) {
        const size_t size = utf8_sequence(raw.substr(i));
        if (size > 1 || stands_for_itself(raw[i])) {
            to = append(to, raw.substr(i, size));
        } else if (size && raw[i]) {
            to = append_escape(to, raw[i]);
        } else {
            to = append(to, replacement);
            shown = false;
        }
        i += size ? size : 1;
    }
    at_ = to;
    return shown;
}

bool json_writer::quoted(std::string_view raw) {
    char *const to = room(raw.size() + 2 + sizeof(uint64_t));
    bool shown = true;
    *to = '"';
    at_ = to + 1;
    if (copy_plain(at_, raw)) {
        at_ += raw.size();
    } else {
        shown = escaped(raw);
    }
    *at_++ = '"';
    return shown;
}

void json_writer::word(std::string_view plain) {
    separate();
    char *const to = room(plain.size() + 2);
    *to = '"';
    std::memcpy(to + 1, plain.data(), plain.size());
    to[1 + plain.size()] = '"';
    at_ = to + plain.size() + 2;
}

bool json_writer::text(std::string_view value) {
    separate();
    return quoted(value);
}

void json_writer::hexadecimal(std::string_view bytes) {
    separate();
    room(2 * bytes.size() + 2);
    *at_++ = '"';
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        *at_++ = digits[byte >> 4];
        *at_++ = digits[byte & 15];
    }
    *at_++ = '"';
}

// --- other values ---

void json_writer::boolean(bool value) {
    raw(value ? "true" : "false");
}

void json_writer::null() {
    raw("null");
}

void json_writer::number(uint64_t value) {
    separate();
    room(20);
    at_ = std::to_chars(at_, at_ + 20, value).ptr;
}

void json_writer::number(double value) {
    if (!std::isfinite(value)) {
        null();
        return;
    }
    separate();
    room(32);
    at_ = std::to_chars(at_, at_ + 32, value).ptr;
}

void json_writer::raw(std::string_view json) {
    separate();
    put(json);
}

bool is_plain_text(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const size_t size = utf8_sequence(text.substr(i));
        if (!size || !text[i]) {
            return false;
        }
        i += size;
    }
    return true;
}

} // namespace quillfence::decision
