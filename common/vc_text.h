// Small things that many modules need when they handle text: ASCII character classes without a
// locale, comparisons, and ownership of heap strings inside a function.
#pragma once

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace quillfence {

// Bytes from 0x80 up are in no class.
constexpr bool is_printable(char c) {
    return c >= 0x20 && c <= 0x7E;
}
constexpr bool is_space(char c) {
    return c == ' ' || (c >= 0x09 && c <= 0x0D);
}
constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool is_upper(char c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool is_lower(char c) {
    return c >= 'a' && c <= 'z';
}
constexpr bool is_letter(char c) {
    return is_upper(c) || is_lower(c);
}
constexpr bool is_alphanumeric(char c) {
    return is_letter(c) || is_digit(c);
}
constexpr char to_lower(char c) {
    return is_upper(c) ? static_cast<char>(c + 32) : c;
}
constexpr char to_upper(char c) {
    return is_lower(c) ? static_cast<char>(c - 32) : c;
}

// True for a null pointer and for "".
constexpr bool is_empty(const char *text) {
    return !text || !*text;
}

// Compares without regard to ASCII case; the sense of strcmp. Arguments must not be null.
inline int _stricmp(const char *a, const char *b) {
    for (;; ++a, ++b) {
        const int left = static_cast<unsigned char>(to_lower(*a));
        const int right = static_cast<unsigned char>(to_lower(*b));
        if (left != right || !left) {
            return left - right;
        }
    }
}

// Whether the first length characters are the same, without regard to ASCII case.
inline bool same_letters(const char *a, const char *b, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (to_lower(a[i]) != to_lower(b[i])) {
            return false;
        }
    }
    return true;
}

// atoi, with numbers outside the range of an int clamped to it.
inline int text_to_int(const char *text) {
    const long value = strtol(text, nullptr, 10);
    return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : static_cast<int>(value);
}

constexpr const char *yes_or_no(bool flag) {
    return flag ? "yes" : "no";
}

// Gives a field that owns its text another one (null for none), which it takes over.
inline void set_owned_text(char **field, char *text) {
    free(*field);
    *field = text;
}

// Cuts a text at the first separator and returns what follows it; null when there is none.
inline char *cut_at(char *text, char separator) {
    char *const found = strchr(text, separator);
    if (!found) {
        return nullptr;
    }
    *found = '\0';
    return found + 1;
}

struct free_deleter {
    void operator()(void *block) const {
        free(block);
    }
};
// A heap string (or any malloc'ed block) on its way through a function.
using heap_string = std::unique_ptr<char, free_deleter>;
template <class T>
using heap_ptr = std::unique_ptr<T, free_deleter>;

} // namespace quillfence
