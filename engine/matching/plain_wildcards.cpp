#include "plain_wildcards.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "expression_text.h"
#include "list_line.h"
#include "vc_text.h"

namespace quillfence {

// is_plain_in_wildcards of every byte but the star.
static constexpr auto plain_bytes = [] {
    std::array<bool, 256> plain{};
    for (size_t c = 0; c < plain.size(); ++c) {
        plain[c] = c != '*' && is_plain_in_wildcards(static_cast<char>(c));
    }
    return plain;
}();

static bool is_plain(char c) {
    return plain_bytes[static_cast<unsigned char>(c)];
}

static bool same_letter(char a, char b) {
    return to_lower(a) == to_lower(b);
}

// For each beginning of the piece the length of its longest border: a shorter beginning that it
// also ends in.
static void find_borders(const char *piece, size_t length, uint16_t *borders) {
    size_t border = 0;
    borders[0] = 0;
    for (size_t i = 1; i < length; ++i) {
        while (border && !same_letter(piece[i], piece[border])) {
            border = borders[border - 1];
        }
        border += same_letter(piece[i], piece[border]);
        borders[i] = static_cast<uint16_t>(border);
    }
}

// Where the first occurrence of a piece in the subject ends; null when there is none. Goes over
// each once: where a beginning of the piece does not go on, its border may.
static const char *end_of_piece(const char *piece, size_t length, const char *subject,
                                const char *subject_end) {
    uint16_t borders[longest_list_line];
    find_borders(piece, length, borders);
    size_t matched = 0;
    while (subject != subject_end) {
        while (matched && !same_letter(piece[matched], *subject)) {
            matched = borders[matched - 1];
        }
        matched += same_letter(piece[matched], *subject);
        ++subject;
        if (matched == length) {
            return subject;
        }
    }
    return nullptr;
}

// Looks for the pieces between the stars one after another, each as far left as it goes.
// pattern begins at a star and ends just behind one.
static bool find_pieces(const char *pattern, const char *pattern_end, const char *subject,
                        const char *subject_end) {
    for (;;) {
        while (pattern != pattern_end && *pattern == '*') {
            ++pattern;
        }
        if (pattern == pattern_end) {
            return true;
        }
        const char *piece_end = pattern;
        while (*piece_end != '*') {
            ++piece_end;
        }
        const auto length = static_cast<size_t>(piece_end - pattern);
        subject = end_of_piece(pattern, length, subject, subject_end);
        if (!subject) {
            return false;
        }
        pattern = piece_end;
    }
}

bool take_apart(const char *pattern, plain_wildcards *parts) {
    *parts = {};
    const char *end = pattern;
    for (; *end; ++end) {
        if (*end == '*') {
            parts->first_star = parts->first_star ? parts->first_star : end;
            parts->last_star = end;
        } else if (!is_plain(*end)) {
            return false;
        }
    }
    if (!parts->first_star || end - pattern > longest_list_line) {
        return false;
    }
    parts->head = static_cast<size_t>(parts->first_star - pattern);
    parts->tail = static_cast<size_t>(end - parts->last_star - 1);
    return true;
}

plain_answer match_plain(const char *pattern, const char *subject) {
    plain_wildcards parts;
    if (!take_apart(pattern, &parts)) {
        return plain_answer::not_plain;
    }
    const auto [first_star, last_star, head, tail] = parts;
    const size_t length = strlen(subject);
    if (length < head + tail || !same_letters(pattern, subject, head)) {
        return plain_answer::fails;
    }
    const char *const subject_tail = subject + length - tail;
    return same_letters(last_star + 1, subject_tail, tail) &&
                   find_pieces(first_star, last_star + 1, subject + head, subject_tail)
               ? plain_answer::matches
               : plain_answer::fails;
}

} // namespace quillfence
