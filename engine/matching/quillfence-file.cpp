#include "quillfence-file.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "evidence.h"
#include "expression_text.h"
#include "line_reader.h"
#include "list_line.h"
#include "platform/error_numbers.h"
#include "tiny_rex.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-file";

static constexpr uint32_t longest_line = 1022; // its LF counted

// --- paths ---

static const char *separator_after(const char *directory) {
    const size_t length = strlen(directory);
    return length && directory[length - 1] == '/' ? "" : "/";
}

char *__build_path(const char *directory, const char *name) {
    if (is_empty(directory) || is_empty(name)) {
        QF_EINVAL();
        return nullptr;
    }
    char *path = nullptr;
    if (vc_asprintf(&path, "%s%s%s", directory, separator_after(directory), name) < 0) {
        QF_ENOMEM();
        return nullptr;
    }
    return path;
}

// As __build_path, but a directory may be absent (the name is the path) or "".
static char *lookup_path(const char *directory, const char *name) {
    char *path = nullptr;
    const int length =
        directory ? vc_asprintf(&path, "%s%s%s", directory, separator_after(directory), name)
                  : vc_asprintf(&path, "%s", name);
    return length < 0 ? nullptr : path;
}

// Opens an existing file for reading; a missing one is not created.
static uint32_t open_for_reading(const char *path, vc_handle *file) {
    return platform::file_open(path_to_read(path), {.when = platform::disposition::open_existing},
                               file);
}

// --- lookup ---

// Whether the list is there and open now. What is there and does not open is told.
static bool open_list(const char *path, vc_handle *file) {
    if (!vc_file_exists_ex(path, vc_type_file)) {
        return false;
    }
    const uint32_t error = open_for_reading(path, file);
    if (error && error != platform::error_file_not_found) {
        tell_failure(path, error);
    }
    return !error;
}

// The line that matches, null when there is none. What was looked at is kept in search.
static const char *find_line(line_reader *in, const char *value, list_matcher matcher,
                             list_search *search) {
    uint32_t length = 0;
    uint32_t number = 0;
    while (const char *const line = next_line(in, &length)) {
        ++number;
        const char *const pattern = pattern_of_line(line);
        if (is_comment(pattern)) {
            continue;
        }
        ++search->entries;
        if (matcher(pattern, value) == 0) {
            search->line = number;
            search->entry = pattern;
            search->by_wildcard = search->wildcards && strchr(pattern, '*');
            return line;
        }
    }
    return nullptr;
}

int __file_contains_line(const char *directory, const char *name, const char *value,
                         list_matcher matcher) {
    if (is_empty(name) || is_empty(value) || !matcher) {
        QF_EINVAL();
        return 0;
    }
    const heap_string path(lookup_path(directory, name));
    if (!path) {
        QF_ENOMEM();
        return 0;
    }
    list_search search = {
        .path = path.get(), .value = value, .wildcards = matcher == __wildcardmatch};
    vc_handle file = vc_invalid_handle;
    search.existed = open_list(path.get(), &file);
    if (!search.existed) {
        tell(&evidence_sink::searched_list, search);
        return 0;
    }
    line_reader in;
    begin_lines(&in, file, longest_line, true);
    const char *const line = find_line(&in, value, matcher, &search);
    platform::file_close(file);
    search.to_end = !in.error;
    tell(&evidence_sink::searched_list, search);
    if (in.error) {
        tell_failure(path.get(), in.error);
    }
    if (line) {
        QF_DEBUG("%s(%s, line %d): hit [%s][%s]", __func__, path.get(),
                 static_cast<int>(search.line), value, line);
    }
    return line != nullptr;
}

// --- matchers ---

static constexpr char match_line[] = "got a match [%s] => [%s]";

int __regexmatch(const char *expression, const char *subject) {
    if (!expression || !subject) {
        QF_EINVAL();
        return 1;
    }
    TRex *const compiled = trex_compile_ex(expression, trex_fold_case);
    if (!compiled) {
        return 1;
    }
    const bool matches = trex_match(compiled, subject);
    trex_free(compiled);
    if (matches) {
        QF_DEBUG(match_line, subject, expression);
    }
    return matches ? 0 : 1;
}

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
    uint16_t borders[longest_line];
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

namespace {

enum class plain_answer : uint8_t { fails, matches, not_plain };

} // namespace

// The answer for a pattern of plain bytes and stars, for which no expression need be compiled: a
// list's wildcard lines nearly all are of this kind. It is exactly what the engine would answer
// (tests: quillfence-file, shortcut_agrees_with_the_engine). A pattern with operators or bytes that
// the engine does not compile is not plain, nor is one that no list line has room for.
static plain_answer match_plain(const char *pattern, const char *subject) {
    const char *first_star = nullptr;
    const char *last_star = nullptr;
    const char *end = pattern;
    for (; *end; ++end) {
        if (*end == '*') {
            first_star = first_star ? first_star : end;
            last_star = end;
        } else if (!is_plain(*end)) {
            return plain_answer::not_plain;
        }
    }
    if (end - pattern > longest_line) {
        return plain_answer::not_plain;
    }
    const auto head = static_cast<size_t>(first_star - pattern);
    const auto tail = static_cast<size_t>(end - last_star - 1);
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

int __wildcardmatch(const char *pattern, const char *subject) {
    if (is_empty(pattern) || is_empty(subject)) {
        QF_EINVAL();
        return 1;
    }
    if (!strchr(pattern, '*')) {
        return _stricmp(pattern, subject);
    }
    const plain_answer answer = match_plain(pattern, subject);
    if (answer == plain_answer::fails) {
        return 1;
    }
    const heap_string expression(expression_of_wildcards(pattern));
    if (!expression) {
        QF_ENOMEM();
        return 1;
    }
    if (answer == plain_answer::matches) {
        QF_DEBUG_AS("__regexmatch", match_line, subject, expression.get());
        return 0;
    }
    return __regexmatch(expression.get(), subject);
}

// --- whole files ---

int vc_file_to_int(const char *directory, const char *name) {
    if (is_empty(directory) || is_empty(name)) {
        QF_EINVAL();
        return 0;
    }
    const heap_string path(__build_path(directory, name));
    if (!path) {
        return 0;
    }
    if (!vc_file_exists_ex(path.get(), vc_type_file)) {
        QF_DEBUG("file %s does not exist", path.get());
        return 0;
    }
    const heap_string contents(vc_existing_contents(path.get(), nullptr));
    if (!contents) {
        QF_DEBUG("failed to retrieve contents of file %s", path.get());
        return 0;
    }
    return text_to_int(contents.get());
}

vc_list_entry *vc_file_to_list(const char *directory, const char *name) {
    const heap_string path(__build_path(directory, name));
    if (!path) {
        const int reason = is_empty(directory) || is_empty(name) ? EINVAL : ENOMEM;
        QF_ERROR("%s attempting to assemble name %s %s", strerror(reason), text_or_null(directory),
                 text_or_null(name));
        return nullptr;
    }
    if (!vc_file_exists_ex(path.get(), vc_type_file)) {
        QF_DEBUG("file %s does not exist. Aborting", path.get());
        return nullptr;
    }
    QF_DEBUG("loading contents of file %s", path.get());
    uint64_t size = 0;
    const heap_string contents(vc_existing_contents(path.get(), &size));
    if (!contents) {
        return nullptr;
    }
    QF_DEBUG("loaded [%s]", contents.get());
    if (!size) {
        return nullptr;
    }
    vc_list_entry *list = nullptr;
    if (!vc_list_from_string_by_char(&list, contents.get(), static_cast<size_t>(size), '\n')) {
        vc_destroy_list(&list, free);
        return nullptr;
    }
    QF_DEBUG("list loaded");
    return list;
}

// Gives every line to the callback; 0 or the number of the read that failed.
static uint32_t call_for_lines(vc_handle file, line_callback callback) {
    line_reader in;
    begin_lines(&in, file, longest_line, true);
    uint32_t length = 0;
    while (char *const line = next_line(&in, &length)) {
        size_t kept = strlen(line);
        while (kept && (line[kept - 1] == '\r' || line[kept - 1] == '\n')) {
            --kept;
        }
        line[kept] = '\0';
        callback(line, static_cast<uint32_t>(kept));
    }
    return in.error;
}

int vc_iterate_file(const char *directory, const char *name, line_callback callback) {
    if (is_empty(directory) || is_empty(name) || !callback) {
        QF_EINVAL();
        return 0;
    }
    const heap_string path(__build_path(directory, name));
    if (!path || !vc_file_exists_ex(path.get(), vc_type_file)) {
        return 0;
    }
    vc_handle file = vc_invalid_handle;
    uint32_t error = open_for_reading(path.get(), &file);
    if (!error) {
        error = call_for_lines(file, callback);
        platform::file_close(file);
    }
    if (error) {
        QF_ERRNO(platform::errno_of(error));
    }
    return error ? 0 : 1;
}

} // namespace quillfence
