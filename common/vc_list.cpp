#include "vc_list.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "evidence.h"
#include "vc_log.h"
#include "vc_text.h"
#include "vc_w32.h"

namespace quillfence {

static constexpr char module_name[] = "vc_list";

static constexpr int result_invalid = -1;
static constexpr int result_no_node = -2;
static constexpr int result_no_copy = -3;
// What a failed append inside vc_list_from_string_by_char is reported as.
static constexpr int append_failure_number = 125;

// A node of its own with the data, or null and the reason in *result.
static vc_list_entry *new_entry(const void *data, uint64_t size, int copy, int *result) {
    heap_ptr<vc_list_entry> node(static_cast<vc_list_entry *>(malloc(sizeof(vc_list_entry))));
    if (!node) {
        *result = result_no_node;
        return nullptr;
    }
    *node = {};
    if (copy) {
        node->data = malloc(size);
        if (!node->data) {
            *result = result_no_copy;
            return nullptr;
        }
        memcpy(node->data, data, size);
    } else {
        node->data = const_cast<void *>(data);
    }
    node->size = size;
    return node.release();
}

// new_entry for the two public operations, which report under their own names.
static vc_list_entry *checked_entry(const char *operation, vc_list_entry **list, const void *data,
                                    uint64_t size, int copy, int *result) {
    if (!list || !data || !size) {
        QF_ERRNO_AS(operation, EINVAL);
        *result = result_invalid;
        return nullptr;
    }
    vc_list_entry *node = new_entry(data, size, copy, result);
    if (!node) {
        QF_ERRNO_AS(operation, ENOMEM);
    }
    return node;
}

// The place where the next node is linked in, so that a row of appends walks the list once.
static vc_list_entry **end_of(vc_list_entry **list) {
    while (*list) {
        list = &(*list)->next;
    }
    return list;
}

// Hands a heap block over to a new node at *end and moves *end behind it.
static bool append_at(vc_list_entry ***end, heap_string piece, uint64_t size) {
    int result;
    vc_list_entry *node = new_entry(piece.get(), size, 0, &result);
    if (!node) {
        return false;
    }
    piece.release();
    **end = node;
    *end = &node->next;
    return true;
}

int vc_append_list_entry(vc_list_entry **list, const void *data, uint64_t size, int copy) {
    int result = 0;
    vc_list_entry *node = checked_entry(__func__, list, data, size, copy, &result);
    if (!node) {
        return result;
    }
    int count = 1;
    for (; *list; list = &(*list)->next) {
        ++count;
    }
    *list = node;
    return count;
}

int vc_prepend_list_entry(vc_list_entry **list, const void *data, uint64_t size, int copy) {
    int result = 0;
    vc_list_entry *node = checked_entry(__func__, list, data, size, copy, &result);
    if (!node) {
        return result;
    }
    node->next = *list;
    *list = node;
    return 1; // kept on purpose: not the count
}

void vc_destroy_list(vc_list_entry **list, vc_release_function release) {
    if (!list) {
        QF_EINVAL();
        return;
    }
    for (vc_list_entry *node = *list; node;) {
        vc_list_entry *const next = node->next;
        if (node->data && release) {
            release(node->data);
        }
        free(node);
        node = next;
    }
    *list = nullptr;
}

int vc_list_count(const vc_list_entry *list) {
    int count = 0;
    for (; list; list = list->next) {
        ++count;
    }
    return count;
}

vc_list_entry *vc_list_search(vc_list_entry *list, const void *key, size_t length,
                              vc_bytes_compare compare) {
    if (!key || !length || !compare) {
        QF_EINVAL();
        return nullptr;
    }
    for (; list; list = list->next) {
        const size_t compared = static_cast<size_t>(std::min<uint64_t>(list->size, length));
        if (list->data && compare(list->data, key, compared) == 0) {
            return list;
        }
    }
    return nullptr;
}

int vc_list_contains(vc_list_entry *list, const void *key, size_t length,
                     vc_bytes_compare compare) {
    return vc_list_search(list, key, length, compare) != nullptr;
}

// Most texts differ in their first characters.
static bool same_text(const char *a, const char *b) {
    return *a == *b && strcmp(a, b) == 0;
}

vc_list_entry *vc_list_search_string(vc_list_entry *list, const char *text, int ignore_case) {
    if (!text) {
        QF_EINVAL();
        return nullptr;
    }
    for (; list; list = list->next) {
        const auto *const entry = static_cast<const char *>(list->data);
        if (entry && (ignore_case ? _stricmp(entry, text) == 0 : same_text(entry, text))) {
            return list;
        }
    }
    return nullptr;
}

int vc_list_contains_string(vc_list_entry *list, const char *text, int ignore_case) {
    return vc_list_search_string(list, text, ignore_case) != nullptr;
}

int vc_list_remove_ex(vc_list_entry **list, vc_list_entry *node, int release_data,
                      vc_release_function release) {
    if (!list || !*list || !node) {
        QF_EINVAL();
        return 0;
    }
    while (*list && *list != node) {
        list = &(*list)->next;
    }
    if (!*list) {
        return 0;
    }
    *list = node->next;
    node->next = nullptr;
    if (!release_data || !release) {
        return 1;
    }
    if (node->data) {
        release(node->data);
        node->data = nullptr;
    }
    free(node);
    return 1;
}

// Copies a text with its NUL and returns the place of the NUL.
static char *write_text(char *destination, const char *text) {
    const size_t length = strlen(text);
    memcpy(destination, text, length + 1);
    return destination + length;
}

char *vc_list_join(const vc_list_entry *list, const char *separator) {
    if (!list || !separator) {
        QF_EINVAL();
        return nullptr;
    }
    if (!list->data) {
        return nullptr;
    }
    const size_t separator_length = strlen(separator);
    size_t size = strlen(static_cast<const char *>(list->data)) + 1;
    for (const vc_list_entry *node = list->next; node; node = node->next) {
        if (node->data) {
            size += separator_length + strlen(static_cast<const char *>(node->data));
        }
    }
    char *const joined = static_cast<char *>(malloc(size));
    if (!joined) {
        QF_ENOMEM();
        return nullptr;
    }
    char *end = write_text(joined, static_cast<const char *>(list->data));
    for (const vc_list_entry *node = list->next; node; node = node->next) {
        if (node->data) {
            end = write_text(write_text(end, separator), static_cast<const char *>(node->data));
        }
    }
    return joined;
}

vc_list_entry *vc_list_split(const char *text, const char *delimiter) {
    if (is_empty(text) || is_empty(delimiter)) {
        QF_EINVAL();
        return nullptr;
    }
    const size_t delimiter_length = strlen(delimiter);
    vc_list_entry *pieces = nullptr;
    vc_list_entry **end = &pieces;
    while (text) {
        const char *const stop = strstr(text, delimiter);
        const size_t length = stop ? static_cast<size_t>(stop - text) : strlen(text);
        heap_string piece(vc_strndup(text, length));
        if (!piece || !append_at(&end, std::move(piece), length + 1)) {
            QF_ENOMEM();
            vc_destroy_list(&pieces, free);
            return nullptr;
        }
        text = stop ? stop + delimiter_length : nullptr;
    }
    return pieces;
}

int vc_list_from_string_by_char(vc_list_entry **list, const char *buffer, size_t length,
                                char separator) {
    if (!list || !buffer) {
        QF_EINVAL();
        return 0;
    }
    vc_list_entry **end = end_of(list);
    for (size_t start = 0; start <= length;) {
        const void *found = memchr(buffer + start, separator, length - start);
        const size_t stop =
            found ? static_cast<size_t>(static_cast<const char *>(found) - buffer) : length;
        const size_t count = stop - start;
        const size_t size = count ? count + 2 : 1; // an empty piece is the NUL alone
        heap_string piece(static_cast<char *>(malloc(size)));
        if (!piece) {
            QF_ENOMEM();
            return 0;
        }
        memcpy(piece.get(), buffer + start, count);
        memset(piece.get() + count, 0, size - count);
        if (!append_at(&end, std::move(piece), size)) {
            QF_ERRNO(append_failure_number);
            tell_no_memory(__func__);
            return 0;
        }
        start = stop + 1;
    }
    return 1;
}

// Cuts the first width nodes off *rest and returns them as a list of their own.
static vc_list_entry *take_run(vc_list_entry **rest, size_t width) {
    vc_list_entry *const run = *rest;
    vc_list_entry **end = rest;
    for (size_t taken = 0; *end && taken < width; ++taken) {
        end = &(*end)->next;
    }
    vc_list_entry *const behind = *end;
    *end = nullptr;
    *rest = behind;
    return run;
}

// Links both runs in order behind *end; equal entries of the first run stay in front. Returns the
// new end.
static vc_list_entry **merge_runs(vc_list_entry **end, vc_list_entry *first, vc_list_entry *second,
                                  vc_list_compare compare) {
    while (first && second) {
        vc_list_entry **const lower = compare(first, second) > 0 ? &second : &first;
        *end = *lower;
        end = &(*end)->next;
        *lower = *end;
    }
    *end = first ? first : second;
    return end_of(end);
}

// Merges neighbouring runs of the given width over the whole list. Returns how many merges that
// took.
static size_t merge_pass(vc_list_entry **list, size_t width, vc_list_compare compare) {
    size_t merges = 0;
    vc_list_entry *rest = *list;
    vc_list_entry **end = list;
    while (rest) {
        vc_list_entry *const first = take_run(&rest, width);
        vc_list_entry *const second = take_run(&rest, width);
        end = merge_runs(end, first, second, compare);
        ++merges;
    }
    return merges;
}

int vc_list_sort(vc_list_entry **list, vc_list_compare compare) {
    if (!list || !compare) {
        QF_EINVAL();
        return 0;
    }
    for (size_t width = 1; merge_pass(list, width, compare) > 1;) {
        width *= 2;
    }
    return 1;
}

vc_list_entry *vc_list_pindex(vc_list_entry *list, int32_t index) {
    if (index < 1) {
        return list;
    }
    for (; list && index; --index) {
        list = list->next;
    }
    if (!list) {
        QF_ERRNO(ERANGE);
    }
    return list;
}

void *vc_list_index_data(vc_list_entry *list, int32_t index) {
    const vc_list_entry *const node = vc_list_pindex(list, index);
    return node ? node->data : nullptr;
}

} // namespace quillfence
