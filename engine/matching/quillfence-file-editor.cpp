// The list editor of quillfence-file.
#include "quillfence-file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "configuration.h"
#include "line_reader.h"
#include "list_line.h"
#include "platform/edit.h"
#include "platform/error_numbers.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-file";

static constexpr uint32_t longest_edited_line = 1023; // bytes, line end counted
static constexpr size_t longest_comment = 255;
static constexpr char temporary_ending[] = ".tmp";

// One edit on its way: the list, locked, and the file that is to become it.
struct list_edit {
    const char *operation; // for log lines
    platform::edit_lock list;
    platform::replacement fresh;
};

// What an edit does to the lines.
struct edit_plan {
    const char *entry; // matched by
    list_matcher matcher;
    const char *entry_line;   // written for a matching line; null keeps the line as it is
    const char *comment_line; // written below it; null for none
    bool drop_match;          // matching lines go
    bool drop_comment;        // the TAB line below a matching line goes
};

// --- opening and closing ---

// Locks the list and begins the new one.
static int begin_edit(list_edit *edit, const char *path, bool create_list) {
    if (!vc_open_edit(path, create_list, &edit->list)) {
        return 0;
    }
    if (!vc_begin_replacement(path, temporary_ending, &edit->fresh)) {
        platform::edit_lock_release(&edit->list);
        return 0;
    }
    return 1;
}

// Puts the new list into the old one's place. Null on success.
static const char *keep_edit(list_edit *edit) {
    if (const uint32_t error = platform::replacement_commit(&edit->fresh, &edit->list)) {
        QF_ERRNO_AS(edit->operation, platform::errno_of(error));
        return list_open_failed;
    }
    return nullptr;
}

// A temporary file that can't be deleted does no harm: the next edit does it.
static void end_edit(list_edit *edit) {
    platform::replacement_end(&edit->fresh);
    platform::edit_lock_release(&edit->list);
}

// --- the new list ---

static int write_text(vc_handle file, const char *text) {
    return vc_write(file, text, static_cast<uint32_t>(strlen(text)));
}

// The line with its LF in one write; the LF takes the place of the line's NUL.
static int write_line(vc_handle file, char *line, uint32_t length) {
    line[length] = '\n';
    const int written = vc_write(file, line, length + 1);
    line[length] = '\0';
    return written;
}

static int write_match(const edit_plan *plan, vc_handle fresh, char *line, uint32_t length) {
    if (plan->drop_match) {
        return 1;
    }
    const int written =
        plan->entry_line ? write_text(fresh, plan->entry_line) : write_line(fresh, line, length);
    return written && (!plan->comment_line || write_text(fresh, plan->comment_line));
}

static bool is_match(const edit_plan *plan, const char *line) {
    if (*line == '\t') {
        return false; // the comment of the entry above
    }
    const char *const pattern = pattern_of_line(line);
    return !is_comment(pattern) && plan->matcher(pattern, plan->entry) == 0;
}

// Writes the edited lines of the list into the new one; *found receives whether one of them
// matched.
static int rewrite_lines(list_edit *edit, const edit_plan *plan, bool *found) {
    line_reader in;
    begin_lines(&in, edit->list.file, longest_edited_line, false);
    *found = false;
    bool after_match = false;
    uint32_t length = 0;
    int written = 1;
    while (char *const line = written ? next_line(&in, &length) : nullptr) {
        if (length && line[length - 1] == '\r') {
            line[--length] = '\0';
        }
        if (after_match && plan->drop_comment && *line == '\t') {
            after_match = false;
            continue;
        }
        after_match = is_match(plan, line);
        *found = *found || after_match;
        written = after_match ? write_match(plan, edit->fresh.lock.file, line, length)
                              : write_line(edit->fresh.lock.file, line, length);
    }
    if (in.error) {
        QF_ERRNO_AS(edit->operation, platform::errno_of(in.error));
    }
    return written && !in.error;
}

// --- the operations ---

// The list that must not have what this one gets, and its path; *opposite is null when there is
// none, or no such file. Null, or what went wrong.
static const char *find_opposite(const char *directory, const char *name, const char **opposite,
                                 heap_string *path) {
    *opposite = nullptr;
    const configuration_file *const list = find_configuration_file(name);
    if (!list || !list->opposite) {
        return nullptr;
    }
    path->reset(__build_path(directory, list->opposite));
    if (!*path) {
        return list_no_memory;
    }
    if (vc_file_exists_ex(path->get(), vc_type_file)) {
        *opposite = list->opposite;
    }
    return nullptr;
}

// Null when the opposite list does not hold the entry, else the message.
static const char *check_opposite(const char *directory, const char *name, const char *entry,
                                  list_matcher matcher) {
    const char *opposite = nullptr;
    heap_string path;
    if (const char *const failed = find_opposite(directory, name, &opposite, &path)) {
        return failed;
    }
    const bool listed = opposite && __file_contains_line(directory, opposite, entry, matcher);
    return listed ? list_opposite : nullptr;
}

const char *vc_add_entry(const char *directory, const char *name, const char *entry,
                         const char *comment, list_matcher matcher) {
    if (is_empty(directory) || is_empty(name) || is_empty(entry) || !matcher) {
        QF_EINVAL();
        return list_bad_add;
    }
    if (comment && (!*comment || strlen(comment) > longest_comment)) {
        return list_bad_comment;
    }
    if (const char *const refused = check_opposite(directory, name, entry, matcher)) {
        return refused;
    }
    const heap_string path(__build_path(directory, name));
    char *entry_line = nullptr;
    if (!path || vc_asprintf(&entry_line, "%s\n", entry) < 0) {
        return list_no_memory;
    }
    const heap_string entry_line_owner(entry_line);
    char comment_line[longest_comment + 3];
    platform::format_text(comment_line, sizeof comment_line, "\t%s\n", comment ? comment : "");

    list_edit edit = {.operation = __func__, .list = {}, .fresh = {}};
    const edit_plan plan = {.entry = entry,
                            .matcher = matcher,
                            .entry_line = entry_line,
                            .comment_line = comment ? comment_line : nullptr,
                            .drop_match = false,
                            .drop_comment = comment != nullptr};
    if (!begin_edit(&edit, path.get(), true)) {
        return list_open_failed;
    }
    bool found = false;
    const char *message = nullptr;
    if (!rewrite_lines(&edit, &plan, &found)) {
        message = list_open_failed;
    } else if (found != (comment != nullptr)) {
        message = found ? list_exists : list_not_found;
    } else if (!found && !write_text(edit.fresh.lock.file, entry_line)) {
        message = list_open_failed;
    } else {
        message = keep_edit(&edit);
    }
    end_edit(&edit);
    return message;
}

// --- many at once ---

namespace {

// Additions in the order of their texts, to look lines up in.
struct sorted_additions {
    heap_ptr<list_addition *> all;
    uint32_t count = 0;

    list_addition **begin() const {
        return all.get();
    }
    list_addition **end() const {
        return all.get() + count;
    }
};

} // namespace

static bool comes_before(const list_addition *a, const list_addition *b) {
    const int order = _stricmp(a->entry, b->entry);
    return order ? order < 0 : a < b;
}

// False without memory. Each addition is marked as added, or repeated.
static bool sort_additions(list_addition *additions, uint32_t count, sorted_additions *sorted) {
    sorted->all.reset(static_cast<list_addition **>(malloc(count * sizeof(list_addition *))));
    if (!sorted->all) {
        return false;
    }
    sorted->count = count;
    for (uint32_t i = 0; i < count; ++i) {
        sorted->all.get()[i] = &additions[i];
    }
    std::sort(sorted->begin(), sorted->end(), comes_before);
    const list_addition *before = nullptr;
    for (list_addition *const one : *sorted) {
        const bool again = before && _stricmp(before->entry, one->entry) == 0;
        one->outcome = again ? addition::repeated : addition::added;
        before = one;
    }
    return true;
}

// The first addition with this text, unless there is none or it has its mark already; else null.
static list_addition *find_addition(const sorted_additions &sorted, const char *pattern) {
    list_addition **const found = std::lower_bound(
        sorted.begin(), sorted.end(), pattern, [](const list_addition *one, const char *wanted) {
            return _stricmp(one->entry, wanted) < 0;
        });
    const bool is_new = found != sorted.end() && _stricmp((*found)->entry, pattern) == 0 &&
                        (*found)->outcome == addition::added;
    return is_new ? *found : nullptr;
}

static bool mark_line(const sorted_additions &sorted, const char *line, addition mark) {
    const char *const pattern = pattern_of_line(line);
    list_addition *const found = is_comment(pattern) ? nullptr : find_addition(sorted, pattern);
    if (found) {
        found->outcome = mark;
    }
    return found != nullptr;
}

// Marks the additions that the opposite list holds. Null when it holds none, else the message.
static const char *check_opposites(const char *operation, const char *directory, const char *name,
                                   const sorted_additions &sorted) {
    const char *opposite = nullptr;
    heap_string path;
    if (const char *const failed = find_opposite(directory, name, &opposite, &path)) {
        return failed;
    }
    if (!opposite) {
        return nullptr;
    }
    const vc_handle file = vc_open_existing(path.get());
    if (file == vc_invalid_handle) {
        return list_open_failed;
    }
    line_reader in;
    begin_lines(&in, file, longest_list_line, true);
    bool opposed = false;
    uint32_t length = 0;
    while (const char *const line = next_line(&in, &length)) {
        opposed = mark_line(sorted, line, addition::opposed) || opposed;
    }
    vc_close(file);
    if (in.error) {
        QF_ERRNO_AS(operation, platform::errno_of(in.error));
        return list_open_failed;
    }
    return opposed ? list_opposite : nullptr;
}

// Marks the additions that the list itself holds; a comment of an entry is none. The list is left
// at its beginning. 0 when it can't be read.
static int mark_present(list_edit *edit, const sorted_additions &sorted) {
    line_reader in;
    begin_lines(&in, edit->list.file, longest_edited_line, false);
    uint32_t length = 0;
    while (char *const line = next_line(&in, &length)) {
        if (length && line[length - 1] == '\r') {
            line[length - 1] = '\0';
        }
        if (*line != '\t') {
            mark_line(sorted, line, addition::present);
        }
    }
    if (in.error) {
        QF_ERRNO_AS(edit->operation, platform::errno_of(in.error));
    }
    return !in.error && vc_seek(edit->list.file, 0, 0);
}

// The lines of the additions that are new, as one text; null without memory.
static char *lines_of_additions(const list_addition *additions, uint32_t count, size_t *size) {
    *size = 0;
    for (uint32_t i = 0; i < count; ++i) {
        *size += additions[i].outcome == addition::added ? strlen(additions[i].entry) + 1 : 0;
    }
    auto *const text = static_cast<char *>(malloc(*size + 1));
    char *to = text;
    for (uint32_t i = 0; text && i < count; ++i) {
        if (additions[i].outcome == addition::added) {
            const size_t length = strlen(additions[i].entry);
            memcpy(to, additions[i].entry, length);
            to[length] = '\n';
            to += length + 1;
        }
    }
    return text;
}

// Copies the list and writes the new lines behind it. Null on success, else the message.
static const char *write_additions(list_edit *edit, const char *lines, size_t size) {
    const edit_plan unchanged = {.entry = "",
                                 .matcher = [](const char *, const char *) { return 1; },
                                 .entry_line = nullptr,
                                 .comment_line = nullptr,
                                 .drop_match = false,
                                 .drop_comment = false};
    bool found = false;
    const int written = rewrite_lines(edit, &unchanged, &found) &&
                        vc_write(edit->fresh.lock.file, lines, static_cast<uint32_t>(size));
    return written ? keep_edit(edit) : list_open_failed;
}

// With the list locked and the new one begun. Null on success, else the message.
static const char *add_to_edit(list_edit *edit, const list_addition *additions, uint32_t count,
                               const sorted_additions &sorted) {
    if (!mark_present(edit, sorted)) {
        return list_open_failed;
    }
    size_t size = 0;
    const heap_string lines(lines_of_additions(additions, count, &size));
    if (!lines) {
        QF_ERRNO_AS(edit->operation, ENOMEM);
        return list_no_memory;
    }
    if (size > UINT32_MAX) {
        QF_ERRNO_AS(edit->operation, EFBIG);
        return list_open_failed;
    }
    return size ? write_additions(edit, lines.get(), size) : nullptr;
}

static bool has_empty_entry(const list_addition *additions, uint32_t count) {
    return std::any_of(additions, additions + count,
                       [](const list_addition &one) { return is_empty(one.entry); });
}

const char *vc_add_entries(const char *directory, const char *name, list_addition *additions,
                           uint32_t count) {
    if (is_empty(directory) || is_empty(name) || !additions || has_empty_entry(additions, count)) {
        QF_EINVAL();
        return list_bad_add;
    }
    if (!count) {
        return nullptr;
    }
    sorted_additions sorted;
    const heap_string path(__build_path(directory, name));
    if (!path || !sort_additions(additions, count, &sorted)) {
        QF_ENOMEM();
        return list_no_memory;
    }
    if (const char *const refused = check_opposites(__func__, directory, name, sorted)) {
        return refused;
    }
    list_edit edit = {.operation = __func__, .list = {}, .fresh = {}};
    if (!begin_edit(&edit, path.get(), true)) {
        return list_open_failed;
    }
    const char *const message = add_to_edit(&edit, additions, count, sorted);
    end_edit(&edit);
    return message;
}

const char *vc_del_entry(const char *directory, const char *name, const char *entry,
                         uint8_t keep_entry, list_matcher matcher) {
    if (is_empty(directory) || is_empty(name) || is_empty(entry) || !matcher) {
        QF_EINVAL();
        return list_bad_del;
    }
    const heap_string path(__build_path(directory, name));
    if (!path) {
        return list_no_memory;
    }
    if (!vc_file_exists_ex(path.get(), vc_type_file)) {
        return nullptr;
    }
    list_edit edit = {.operation = __func__, .list = {}, .fresh = {}};
    const edit_plan plan = {.entry = entry,
                            .matcher = matcher,
                            .entry_line = nullptr,
                            .comment_line = nullptr,
                            .drop_match = keep_entry == 0,
                            .drop_comment = true};
    if (!begin_edit(&edit, path.get(), false)) {
        return list_open_failed;
    }
    bool found = false;
    const char *message = list_open_failed;
    if (rewrite_lines(&edit, &plan, &found)) {
        message = found ? keep_edit(&edit) : list_not_found;
    }
    end_edit(&edit);
    return message;
}

} // namespace quillfence
