// The list editor of quillfence-file.
#include "quillfence-file.h"

#include <algorithm>
#include <cstring>

#include "configuration.h"
#include "line_reader.h"
#include "list_line.h"
#include "platform/error_numbers.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-file";

static constexpr uint32_t longest_edited_line = 1023; // bytes, line end counted
static constexpr size_t longest_comment = 255;
static constexpr uint32_t copy_block = 4095;
static constexpr uint32_t largest_list = INT32_MAX; // as far as vc_seek reaches

// One edit on its way: the list and the temporary file that is to become it.
struct list_edit {
    const char *operation; // for log lines
    char *path;
    char *tmp_path;
    vc_handle list;
    vc_handle tmp;
    bool keep_tmp; // the temporary file is all there is of the new list
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

static void close_if_open(vc_handle *file) {
    if (*file != vc_invalid_handle) {
        vc_close(*file);
        *file = vc_invalid_handle;
    }
}

// Closes both files and removes the temporary one, unless it is needed.
static void end_edit(list_edit *edit) {
    close_if_open(&edit->list);
    close_if_open(&edit->tmp);
    if (!edit->keep_tmp) {
        platform::path_delete(edit->tmp_path);
    }
}

static vc_handle open_existing_locked(const list_edit *edit) {
    vc_handle file = vc_invalid_handle;
    const platform::file_options options = {
        .write = true, .lock = true, .when = platform::disposition::open_existing};
    if (const uint32_t error = platform::file_open(edit->path, options, &file)) {
        QF_ERRNO_AS(edit->operation, platform::errno_of(error));
        return vc_invalid_handle;
    }
    return file;
}

// Opens both files, locked. A temporary file that an earlier edit left behind is removed; should
// it resist, it is emptied.
static int begin_edit(list_edit *edit, bool create_list) {
    platform::path_delete(edit->tmp_path);
    edit->tmp = vc_open_ex(edit->tmp_path, 1, 1, 0);
    if (edit->tmp != vc_invalid_handle && vc_truncate(edit->tmp)) {
        edit->list = create_list ? vc_open_ex(edit->path, 1, 1, 0) : open_existing_locked(edit);
    }
    if (edit->list == vc_invalid_handle) {
        end_edit(edit);
        return 0;
    }
    return 1;
}

// --- the new list in the temporary file ---

static int write_text(vc_handle file, const char *text) {
    return vc_write(file, text, static_cast<uint32_t>(std::strlen(text)));
}

// The line with its LF in one write; the LF takes the place of the line's NUL.
static int write_line(vc_handle file, char *line, uint32_t length) {
    line[length] = '\n';
    const int written = vc_write(file, line, length + 1);
    line[length] = '\0';
    return written;
}

static int write_match(const edit_plan *plan, vc_handle tmp, char *line, uint32_t length) {
    if (plan->drop_match) {
        return 1;
    }
    const int written =
        plan->entry_line ? write_text(tmp, plan->entry_line) : write_line(tmp, line, length);
    return written && (!plan->comment_line || write_text(tmp, plan->comment_line));
}

static bool is_match(const edit_plan *plan, const char *line) {
    if (*line == '\t') {
        return false; // the comment of the entry above
    }
    const char *const pattern = pattern_of_line(line);
    return !is_comment(pattern) && plan->matcher(pattern, plan->entry) == 0;
}

// Writes the edited lines of the list into the temporary file; *found receives whether one of them
// matched.
static int rewrite_lines(list_edit *edit, const edit_plan *plan, bool *found) {
    line_reader in;
    begin_lines(&in, edit->list, longest_edited_line, false);
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
        written = after_match ? write_match(plan, edit->tmp, line, length)
                              : write_line(edit->tmp, line, length);
    }
    if (in.error) {
        QF_ERRNO_AS(edit->operation, platform::errno_of(in.error));
    }
    return written && !in.error;
}

// --- the temporary file over the list ---

// Gives a list that grows its new length beforehand, filled with empty lines, so that a full disk
// shows before anything is overwritten. On failure the list is as it was.
static int reserve(vc_handle list, uint32_t old_size, uint32_t new_size) {
    if (new_size <= old_size) {
        return 1;
    }
    char blank[copy_block];
    std::memset(blank, '\n', sizeof blank);
    if (!vc_seek(list, static_cast<int32_t>(old_size), 0)) {
        return 0;
    }
    for (uint32_t size = old_size; size < new_size;) {
        const uint32_t block = std::min(new_size - size, copy_block);
        if (!vc_write(list, blank, block)) {
            if (vc_seek(list, static_cast<int32_t>(old_size), 0)) {
                vc_truncate(list);
            }
            return 0;
        }
        size += block;
    }
    return 1;
}

static int copy_over(list_edit *edit, uint32_t new_size) {
    if (!vc_seek(edit->tmp, 0, 0) || !vc_seek(edit->list, 0, 0)) {
        return 0;
    }
    char block[copy_block];
    for (uint32_t left = new_size; left;) {
        const uint32_t wanted = std::min(left, copy_block);
        uint32_t delivered = 0;
        if (!vc_read_nonblock(edit->tmp, block, wanted, 1, 0, &delivered) || delivered != wanted ||
            !vc_write(edit->list, block, wanted)) {
            return 0;
        }
        left -= wanted;
    }
    return vc_truncate(edit->list);
}

// Puts the contents of the temporary file into the list. Null on success.
static const char *keep_edit(list_edit *edit) {
    const uint32_t old_size = vc_filesize(edit->list);
    const uint32_t new_size = vc_filesize(edit->tmp);
    if (old_size > largest_list || new_size > largest_list ||
        !reserve(edit->list, old_size, new_size)) {
        return list_open_failed;
    }
    if (copy_over(edit, new_size)) {
        return nullptr;
    }
    // The list is neither the old nor the new one: the temporary file, which is whole, replaces it.
    close_if_open(&edit->list);
    close_if_open(&edit->tmp);
    if (const uint32_t error = platform::path_replace(edit->tmp_path, edit->path)) {
        edit->keep_tmp = true;
        QF_ERRNO_AS(edit->operation, platform::errno_of(error));
        QF_ERROR_AS(edit->operation, "%s is incomplete, the whole new list is in %s", edit->path,
                    edit->tmp_path);
        return list_open_failed;
    }
    return nullptr;
}

// --- the operations ---

// Null when the opposite list does not hold the entry, else the message.
static const char *check_opposite(const char *directory, const char *name, const char *entry,
                                  list_matcher matcher) {
    const configuration_file *const list = find_configuration_file(name);
    const char *const opposite = list ? list->opposite : nullptr;
    if (!opposite) {
        return nullptr;
    }
    const heap_string path(__build_path(directory, opposite));
    if (!path) {
        return list_no_memory;
    }
    const bool listed = vc_file_exists_ex(path.get(), vc_type_file) &&
                        __file_contains_line(directory, opposite, entry, matcher);
    return listed ? list_opposite : nullptr;
}

static char *tmp_path_of(const char *operation, const char *path) {
    char *tmp_path = nullptr;
    if (vc_asprintf(&tmp_path, "%s.tmp", path) < 0) {
        QF_ERRNO_AS(operation, ENOMEM);
    }
    return tmp_path;
}

const char *vc_add_entry(const char *directory, const char *name, const char *entry,
                         const char *comment, list_matcher matcher) {
    if (is_empty(directory) || is_empty(name) || is_empty(entry) || !matcher) {
        QF_EINVAL();
        return list_bad_add;
    }
    if (comment && (!*comment || std::strlen(comment) > longest_comment)) {
        return list_bad_comment;
    }
    if (const char *const refused = check_opposite(directory, name, entry, matcher)) {
        return refused;
    }
    const heap_string path(__build_path(directory, name));
    const heap_string tmp_path(path ? tmp_path_of(__func__, path.get()) : nullptr);
    char *entry_line = nullptr;
    if (!tmp_path || vc_asprintf(&entry_line, "%s\n", entry) < 0) {
        return list_no_memory;
    }
    const heap_string entry_line_owner(entry_line);
    char comment_line[longest_comment + 3];
    platform::format_text(comment_line, sizeof comment_line, "\t%s\n", comment ? comment : "");

    list_edit edit = {__func__,          path.get(),        tmp_path.get(),
                      vc_invalid_handle, vc_invalid_handle, false};
    const edit_plan plan = {.entry = entry,
                            .matcher = matcher,
                            .entry_line = entry_line,
                            .comment_line = comment ? comment_line : nullptr,
                            .drop_match = false,
                            .drop_comment = comment != nullptr};
    if (!begin_edit(&edit, true)) {
        return list_open_failed;
    }
    bool found = false;
    const char *message = nullptr;
    if (!rewrite_lines(&edit, &plan, &found)) {
        message = list_open_failed;
    } else if (found != (comment != nullptr)) {
        message = found ? list_exists : list_not_found;
    } else if (!found && !write_text(edit.tmp, entry_line)) {
        message = list_open_failed;
    } else {
        message = keep_edit(&edit);
    }
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
    const heap_string tmp_path(path ? tmp_path_of(__func__, path.get()) : nullptr);
    if (!tmp_path) {
        return list_no_memory;
    }
    if (!vc_file_exists_ex(path.get(), vc_type_file)) {
        return nullptr;
    }
    list_edit edit = {__func__,          path.get(),        tmp_path.get(),
                      vc_invalid_handle, vc_invalid_handle, false};
    const edit_plan plan = {.entry = entry,
                            .matcher = matcher,
                            .entry_line = nullptr,
                            .comment_line = nullptr,
                            .drop_match = keep_entry == 0,
                            .drop_comment = true};
    if (!begin_edit(&edit, false)) {
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
