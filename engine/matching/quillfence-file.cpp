#include "quillfence-file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "evidence.h"
#include "expression_text.h"
#include "frozen_files.h"
#include "frozen_list.h"
#include "line_reader.h"
#include "list_line.h"
#include "plain_wildcards.h"
#include "platform/error_numbers.h"
#include "tiny_rex.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-file";

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
    char *const path = vc_concatenate(directory, separator_after(directory), name);
    if (!path) {
        QF_ENOMEM();
    }
    return path;
}

// As __build_path, but a directory may be absent (the name is the path) or "".
static char *lookup_path(const char *directory, const char *name) {
    return directory ? vc_concatenate(directory, separator_after(directory), name)
                     : vc_concatenate("", "", name);
}

// Opens an existing file for reading; a missing one is not created.
static uint32_t open_for_reading(const char *path, vc_handle *file) {
    return platform::file_open(path_to_read(path), {.when = platform::disposition::open_existing},
                               file);
}

// --- lookup ---

// A list that is looked through: what was read beforehand, or an open file.
struct open_list {
    const frozen_file *frozen; // null: the file
    vc_handle file;
};

// Whether the list is there and open now. What is there and does not open is told.
static bool open_for_lookup(const char *path, open_list *list) {
    if (!vc_file_exists_ex(path, vc_type_file)) {
        return false;
    }
    list->frozen = frozen_file_of(path_to_read(path));
    if (list->frozen && list->frozen->bytes) {
        return true;
    }
    list->frozen = nullptr;
    const uint32_t error = open_for_reading(path, &list->file);
    if (error && error != platform::error_file_not_found) {
        tell_failure(path, error);
    }
    return !error;
}

static void keep_entry(list_search *search, uint32_t line, const char *pattern) {
    search->line = line;
    search->entry = pattern;
    search->by_wildcard = search->wildcards && strchr(pattern, '*');
}

// The line that matches, null when there is none. What was looked at is kept in search.
static const char *find_line(line_reader *in, const char *value, list_matcher matcher,
                             list_search *search) {
    const uint32_t left_out = place_left_out(search->path);
    uint32_t length = 0;
    uint32_t number = 0;
    while (const char *const line = next_line(in, &length)) {
        ++number;
        const char *const pattern = pattern_of_line(line);
        if (is_comment(pattern) || number == left_out) {
            continue;
        }
        ++search->entries;
        if (matcher(pattern, value) == 0) {
            keep_entry(search, number, pattern);
            return line;
        }
    }
    return nullptr;
}

static constexpr char contains_operation[] = "__file_contains_line";

// Tells what was found, and logs the line; null for none.
static int end_search(const list_search &search, const char *line) {
    tell(&evidence_sink::searched_list, search);
    if (line) {
        QF_DEBUG_AS(contains_operation, "%s(%s, line %d): hit [%s][%s]", contains_operation,
                    search.path, static_cast<int>(search.line), search.value, line);
    }
    return line != nullptr;
}

// Walks over the lines.
static int search_lines(line_reader *in, list_matcher matcher, list_search *search) {
    const char *const line = find_line(in, search->value, matcher, search);
    search->to_end = !in->error;
    const int found = end_search(*search, line);
    if (in->error) {
        tell_failure(search->path, in->error);
    }
    return found;
}

static int search_file(vc_handle file, list_matcher matcher, list_search *search) {
    line_reader in;
    begin_lines(&in, file, longest_list_line, true);
    const int found = search_lines(&in, matcher, search);
    platform::file_close(file);
    return found;
}

// The index knows the first entry that matches, and none behind it.
static bool has_index_for(const frozen_file *file, list_matcher matcher, const char *path) {
    return file->list && frozen_list_matcher(file->list) == matcher && !place_left_out(path);
}

static int search_frozen(const frozen_file *file, list_matcher matcher, list_search *search) {
    if (!has_index_for(file, matcher, search->path)) {
        line_reader in;
        begin_lines_of(&in, file->bytes, file->size, longest_list_line, true);
        return search_lines(&in, matcher, search);
    }
    frozen_line found;
    const bool is_found = frozen_list_find(file->list, search->value, &found);
    search->entries = found.entries;
    if (is_found) {
        keep_entry(search, found.line, found.pattern);
    }
    return end_search(*search, is_found ? found.text : nullptr);
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
    open_list list = {};
    search.existed = open_for_lookup(path.get(), &list);
    if (!search.existed) {
        return end_search(search, nullptr);
    }
    return list.frozen ? search_frozen(list.frozen, matcher, &search)
                       : search_file(list.file, matcher, &search);
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

// Takes a line out of a text, with its line end.
static void cut_line(char *text, uint64_t *size, uint32_t line) {
    const std::string_view all(text, *size);
    size_t begin = 0;
    for (uint32_t i = 1; i < line && begin < all.size(); ++i) {
        begin = std::min(all.find('\n', begin), all.size() - 1) + 1;
    }
    if (begin < all.size()) {
        const size_t rest = std::min(all.find('\n', begin), all.size() - 1) + 1;
        memmove(text + begin, text + rest, all.size() - rest + 1); // with the NUL
        *size -= rest - begin;
    }
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
    if (const uint32_t left_out = place_left_out(path.get())) {
        cut_line(contents.get(), &size, left_out);
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
    begin_lines(&in, file, longest_list_line, true);
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
