// The editing operations of quillfence-iprange.
#include "quillfence-iprange.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/edit.h"
#include "platform/error_numbers.h"
#include "quillfence-iprange-file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-iprange";

static const char *text_of(uint32_t error) {
    return strerror(platform::errno_of(error));
}

// Puts the error text, or null for none, where the caller wants it. Returns 0.
static int fail(const char **error, const char *text) {
    if (error) {
        *error = text;
    }
    return 0;
}

// --- opening for an edit ---

static constexpr char temporary_ending[] = ".new";
static constexpr char backup_ending[] = ".bak";

// A range file that is being edited: locked, and open in file.file. Released by end_edit.
struct range_edit {
    const char *operation; // for log lines
    bool is_new;           // there was no file when the edit began
    platform::edit_lock lock;
    range_file file;
};

static void end_edit(range_edit *edit) {
    platform::edit_lock_release(&edit->lock);
    free(edit->file.path);
    free(edit);
}

struct range_edit_ender {
    void operator()(range_edit *edit) const {
        end_edit(edit);
    }
};
using range_edit_ptr = std::unique_ptr<range_edit, range_edit_ender>;

// 1, or 0 after the ERROR line for a new file that could not take the place.
static int has_replaced(const range_edit *edit, uint32_t error) {
    if (error) {
        QF_ERROR_AS(edit->operation, "Failed to rename %s%s to %s: %s", edit->file.path,
                    temporary_ending, edit->file.path, text_of(error));
    }
    return error == 0;
}

// A new string; null with an ERROR line without memory.
static char *path_with_ending(const char *operation, const char *path, const char *ending) {
    char *made = nullptr;
    if (vc_asprintf(&made, "%s%s", path, ending) < 0) {
        QF_ERRNO_AS(operation, ENOMEM);
        return nullptr;
    }
    return made;
}

static int rename_backup(const char *operation, const char *backup, const char *path) {
    uint32_t error = platform::path_rename(backup, path);
    if (error == platform::error_file_not_found || error == platform::error_already_exists) {
        return 1; // there is none, or another editor was faster
    }
    if (!error) {
        QF_ERROR_AS(operation, "file %s was missing and has been restored from %s", path, backup);
        error = platform::path_sync_folder(path);
    }
    if (error) {
        QF_ERROR_AS(operation, "Failed to rename %s to %s: %s", backup, path, text_of(error));
    }
    return error == 0;
}

// Puts a backup back whose range file is gone. Replacements leave no such thing, but an editor that
// moved the range file away before it moved the new one in did, when it was killed in between.
static int restore_backup(const char *operation, const char *path) {
    char target[platform::longest_replaced_path];
    if (vc_file_exists_ex(path, vc_type_file) ||
        platform::path_target(path, target, sizeof target)) {
        return 1; // it is there, or opening it will tell what is wrong
    }
    const heap_string backup(path_with_ending(operation, target, backup_ending));
    if (!backup || !vc_file_exists_ex(backup.get(), vc_type_file)) {
        return backup != nullptr;
    }
    return rename_backup(operation, backup.get(), target);
}

static int lock_file(range_edit *edit, bool create) {
    if (!vc_open_edit(edit->file.path, create, &edit->lock)) {
        return 0;
    }
    edit->file.file = edit->lock.file;
    return 1;
}

// Puts a file without records into the place of one that is none. *placed receives whether it got
// there.
static int write_anew(range_edit *edit, bool *placed) {
    platform::replacement fresh;
    if (!vc_begin_replacement(edit->file.path, temporary_ending, &fresh)) {
        return 0;
    }
    range_file to = {fresh.lock.file, {}, fresh.temporary}; // all borrowed
    int written = __reset_range_file(&to);
    if (written) {
        written = has_replaced(edit, platform::replacement_commit(&fresh, &edit->lock));
        *placed = !*fresh.temporary;
    }
    platform::replacement_end(&fresh);
    return written;
}

// Takes back the empty file that locking has made. Whoever waits for the lock sees that the file
// has no name any more, and makes his own.
static void remove_new_file(const range_edit *edit) {
    char target[platform::longest_replaced_path];
    if (!platform::path_target(edit->file.path, target, sizeof target)) {
        platform::path_delete(target); // one that stays does no harm
    }
}

// The same, locked. When it fails there is no file if there was none.
static int begin_anew(range_edit *edit) {
    const bool is_made = edit->is_new && vc_filesize(edit->file.file) == 0;
    bool placed = false;
    const int written = write_anew(edit, &placed);
    if (is_made && !placed) {
        remove_new_file(edit);
    }
    platform::edit_lock_release(&edit->lock);
    return written && lock_file(edit, false) &&
           __look_at_range_header(&edit->file) == range_header::valid;
}

static int lock_and_read(range_edit *edit, bool initialise) {
    if (!lock_file(edit, initialise)) {
        return 0;
    }
    switch (__look_at_range_header(&edit->file)) {
    case range_header::valid:
        return 1;
    case range_header::unread:
        return 0;
    case range_header::invalid:
        break;
    }
    return initialise ? begin_anew(edit) : __refuse_range_file(&edit->file);
}

// Locks a range file and reads its header. initialise: it is created when missing, and gets a fresh
// header when it has no valid one. Null when there is no usable file; silently when it is missing.
static range_edit_ptr begin_edit(const char *operation, const char *directory, const char *name,
                                 bool initialise) {
    heap_string path(__range_path(directory, name));
    if (!path || !restore_backup(operation, path.get())) {
        return nullptr;
    }
    const bool is_new = !vc_file_exists_ex(path.get(), vc_type_file);
    if (is_new && !initialise) {
        return nullptr;
    }
    range_edit_ptr edit(static_cast<range_edit *>(calloc(1, sizeof(range_edit))));
    if (!edit) {
        QF_ERRNO_AS(operation, ENOMEM);
        return nullptr;
    }
    *edit = {operation, is_new, {}, {vc_invalid_handle, {}, path.release()}};
    return lock_and_read(edit.get(), initialise) ? std::move(edit) : nullptr;
}

// --- adding ---

static void make_record(unsigned char *record, const qf_ip_range *range, const char *comment) {
    memset(record, 0, range_record_size);
    memcpy(record, &range->low, 4);
    memcpy(record + 4, &range->high, 4);
    if (comment) {
        memcpy(record + legacy_record_size, comment, strlen(comment));
    }
}

// Where a record lies; -1 beyond the reach of vc_seek.
static int32_t place_of_record(uint32_t index) {
    const uint64_t place = range_header_size + uint64_t{index} * range_record_size;
    return place > INT32_MAX - int32_t{range_record_size} ? -1 : static_cast<int32_t>(place);
}

static int shorten_to(const range_file *file, int32_t size) {
    return vc_seek(file->file, size, 0) && vc_truncate(file->file);
}

// To stable storage, as far as it is written.
static int sync_file(const range_edit *edit) {
    if (const uint32_t error = platform::file_sync(edit->file.file)) {
        QF_ERROR_AS(edit->operation, "Failed to sync %s: %s", edit->file.path, text_of(error));
        return 0;
    }
    return 1;
}

// Cuts the bytes behind the counted records, which an add that was killed may have left: counted,
// they would be records.
static int cut_uncounted(const range_edit *edit, int32_t place) {
    const int32_t end = vc_seek(edit->file.file, 0, 2) ? vc_tell(edit->file.file) : -1;
    if (end == place) {
        return 1;
    }
    if (end < place || !shorten_to(&edit->file, place)) {
        return 0;
    }
    QF_DEBUG_AS(edit->operation, "file %s had %d bytes behind its records, which are cut",
                edit->file.path, static_cast<int>(end - place));
    return 1;
}

static int write_count(range_edit *edit, uint32_t count) {
    edit->file.header.count = count;
    return __write_range_header(&edit->file) && sync_file(edit);
}

// Deletes what a killed edit left beside a range file that is whole. What resists does no harm.
static void delete_leftovers(const range_edit *edit) {
    char target[platform::longest_replaced_path];
    char left[platform::longest_replaced_path];
    if (platform::path_target(edit->file.path, target, sizeof target)) {
        return;
    }
    for (const char *const ending : {temporary_ending, backup_ending}) {
        if (platform::format_text(left, sizeof left, "%s%s", target, ending) > 0) {
            platform::path_delete(left);
        }
    }
}

// Writes the edit's new records where the file stands. 1 or 0.
using records_writer = int (*)(const range_edit *edit, const void *records);

// Writes records behind the counted ones, and then counts them: each of the two is on stable
// storage before the next step. Null on success, else the error text; then the records are cut
// again, unless they may be counted.
static const char *append_records(range_edit *edit, uint32_t added, records_writer write,
                                  const void *records) {
    const uint32_t count = edit->file.header.count;
    const int32_t place = place_of_record(count);
    if (place < 0 || place_of_record(count + added - 1) < 0 || !cut_uncounted(edit, place) ||
        !vc_seek(edit->file.file, place, 0)) {
        return range_write_failed;
    }
    const bool are_there = write(edit, records) && sync_file(edit);
    if (are_there && write_count(edit, count + added)) {
        delete_leftovers(edit);
        return nullptr;
    }
    if (!are_there || write_count(edit, count)) {
        shorten_to(&edit->file, place);
    }
    return range_write_failed;
}

static const char *append_record(range_edit *edit, const unsigned char *record) {
    static constexpr auto write = [](const range_edit *to, const void *bytes) {
        return vc_write(to->file.file, bytes, range_record_size);
    };
    return append_records(edit, 1, write, record);
}

// --- a file that is to replace another one ---

// What becomes of the records on their way into the new file.
struct record_change {
    const qf_ip_range *left_out;   // records of this range are not copied; null for none
    const unsigned char *in_place; // the record that is written instead of the one
    uint32_t index;                // of this number; null for none
};

static bool is_left_out(const record_change *change, const qf_ip_range *range) {
    return change->left_out && range->low == change->left_out->low &&
           range->high == change->left_out->high;
}

// Copies the records of one file behind the header of another, those of a legacy file with empty
// comments. Null on success, else the error text.
static const char *copy_records(const range_edit *edit, range_file *to,
                                const record_change *change) {
    const range_file *const from = &edit->file;
    record_reader in;
    __begin_records(&in, from->file, is_legacy(from) ? legacy_record_size : range_record_size,
                    from->header.count);
    if (!vc_seek(from->file, range_header_size, 0)) {
        return range_read_failed;
    }
    for (uint32_t i = 0; i < from->header.count; ++i) {
        uint32_t size = 0;
        const unsigned char *const bytes = __next_record(&in, &size);
        if (size < in.record_size) {
            QF_ERROR_AS(edit->operation, "file %s is corrupt", from->path);
            return range_read_failed;
        }
        const qf_ip_range range = __range_of_record(bytes);
        if (is_left_out(change, &range)) {
            continue;
        }
        unsigned char record[range_record_size] = {};
        const bool exchanged = change->in_place && i == change->index;
        memcpy(record, exchanged ? change->in_place : bytes, exchanged ? sizeof record : size);
        if (!vc_write(to->file, record, sizeof record)) {
            return range_write_failed;
        }
        ++to->header.count;
    }
    return __write_range_header(to) ? nullptr : range_write_failed;
}

// The old contents as "<path>.bak" beside the range file, so that they are there whatever becomes
// of the replacement. *backup receives the path; null where there are no links. Null on success,
// else the error text.
static const char *keep_backup(const range_edit *edit, const char *path, heap_string *backup) {
    backup->reset(path_with_ending(edit->operation, path, backup_ending));
    if (!*backup) {
        return range_no_memory;
    }
    uint32_t error = platform::path_delete(backup->get());
    if (error && error != platform::error_file_not_found) {
        QF_ERROR_AS(edit->operation, "Failed to remove old backup file %s: %s", backup->get(),
                    text_of(error));
        return range_old_backup;
    }
    error = platform::path_link(path, backup->get());
    if (error == platform::error_not_supported) {
        backup->reset();
    } else if (error) {
        QF_ERROR_AS(edit->operation, "Failed to link %s to %s: %s", path, backup->get(),
                    text_of(error));
        return range_write_failed;
    }
    return nullptr;
}

static void remove_backup(const range_edit *edit, const heap_string &backup) {
    const uint32_t error = backup ? platform::path_delete(backup.get()) : 0;
    if (error) {
        QF_ERROR_AS(edit->operation, "Failed to remove backup file %s: %s", backup.get(),
                    text_of(error));
    }
}

// Puts the whole new file into the old one's place. Null on success, else the error text.
static const char *swap_files(range_edit *edit, platform::replacement *fresh) {
    heap_string backup;
    platform::edit_lock_close_file(&edit->lock); // a name of an open file may resist its deletion
    if (const char *const text = keep_backup(edit, fresh->path, &backup)) {
        return text;
    }
    const int replaced = has_replaced(edit, platform::replacement_commit(fresh, &edit->lock));
    remove_backup(edit, backup);
    return replaced ? nullptr : range_write_failed;
}

static const char *write_and_swap(range_edit *edit, platform::replacement *fresh,
                                  const record_change *change) {
    range_file to = {fresh->lock.file, {}, fresh->temporary}; // all borrowed
    if (!__reset_range_file(&to)) {
        return range_write_failed;
    }
    const char *const text = copy_records(edit, &to, change);
    return text ? text : swap_files(edit, fresh);
}

// Replaces a range file by a changed copy of its records. Null on success, else the error text.
static const char *replace_file(range_edit *edit, const record_change *change) {
    platform::replacement fresh;
    if (!vc_begin_replacement(edit->file.path, temporary_ending, &fresh)) {
        return range_open_failed;
    }
    const char *const text = write_and_swap(edit, &fresh, change);
    if (const uint32_t error = platform::replacement_end(&fresh)) {
        QF_ERROR_AS("__remove_temporary", "Error removing file %s: %s", fresh.temporary,
                    text_of(error));
    }
    return text;
}

// --- the operations ---

// A comment is changed in a new file, since a record that is overwritten may be torn when the power
// goes.
static const char *put_record(range_edit *edit, const qf_ip_range *range, const char *comment) {
    if (is_legacy(&edit->file)) {
        return range_legacy;
    }
    if (!qf_valid_ip_range(range)) {
        return range_invalid;
    }
    unsigned char record[range_record_size];
    make_record(record, range, comment);
    uint32_t index = 0;
    switch (__find_range(edit->operation, &edit->file, range, &index)) {
    case range_search::failed:
        return range_traverse_failed;
    case range_search::absent:
        return append_record(edit, record);
    case range_search::found:
        break;
    }
    if (is_empty(comment)) {
        return range_exists;
    }
    const record_change change = {.left_out = nullptr, .in_place = record, .index = index};
    return replace_file(edit, &change);
}

int ipr_add(const char *directory, const char *name, const char *low, const char *high,
            const char *comment, const char **error) {
    fail(error, nullptr);
    qf_ip_range range = {};
    if (!__sane_ip(low, &range.low) || !__sane_ip(high, &range.high) ||
        (comment && strlen(comment) > longest_range_comment)) {
        return fail(error, range_bad_arguments);
    }
    const range_edit_ptr edit = begin_edit(__func__, directory, name, true);
    if (!edit) {
        return fail(error, range_open_failed);
    }
    const char *const text = put_record(edit.get(), &range, comment);
    return text ? fail(error, text) : 1;
}

// --- many at once ---

namespace {

// Additions in the order of their ranges, to look records up in.
struct sorted_ranges {
    heap_ptr<range_addition *> all;
    uint32_t count;

    range_addition **begin() const {
        return all.get();
    }
    range_addition **end() const {
        return all.get() + count;
    }
};

// What is written of them.
struct new_records {
    const range_addition *additions;
    uint32_t count;
    const char *comment;
};

} // namespace

// Any order will do, as long as equal ranges are neighbours: the numbers are those of the machine.
static int compare_ranges(const qf_ip_range &a, const qf_ip_range &b) {
    if (a.low != b.low) {
        return a.low < b.low ? -1 : 1;
    }
    return a.high == b.high ? 0 : a.high < b.high ? -1 : 1;
}

static bool range_comes_before(const range_addition *a, const range_addition *b) {
    const int order = compare_ranges(a->range, b->range);
    return order ? order < 0 : a < b;
}

// False without memory. Each addition is marked as added, or repeated.
static bool sort_ranges(range_addition *additions, uint32_t count, sorted_ranges *sorted) {
    sorted->all.reset(
        static_cast<range_addition **>(malloc(size_t{count} * sizeof(range_addition *))));
    if (!sorted->all) {
        return false;
    }
    sorted->count = count;
    for (uint32_t i = 0; i < count; ++i) {
        sorted->all.get()[i] = &additions[i];
    }
    std::sort(sorted->begin(), sorted->end(), range_comes_before);
    const range_addition *before = nullptr;
    for (range_addition *const one : *sorted) {
        const bool again = before && compare_ranges(before->range, one->range) == 0;
        one->outcome = again ? range_outcome::repeated : range_outcome::added;
        before = one;
    }
    return true;
}

static void mark_record(const sorted_ranges &sorted, const qf_ip_range &range) {
    range_addition **const found = std::lower_bound(
        sorted.begin(), sorted.end(), range, [](const range_addition *one, const qf_ip_range &of) {
            return compare_ranges(one->range, of) < 0;
        });
    if (found != sorted.end() && compare_ranges((*found)->range, range) == 0 &&
        (*found)->outcome == range_outcome::added) {
        (*found)->outcome = range_outcome::present;
    }
}

// Marks the additions that the file holds. 0 for a file that is shorter than its header says.
static int mark_records(const range_edit *edit, const sorted_ranges &sorted) {
    record_reader in;
    __begin_records(&in, edit->file.file, range_record_size, edit->file.header.count);
    for (uint32_t i = 0; i < edit->file.header.count; ++i) {
        uint32_t size = 0;
        const unsigned char *const record = __next_record(&in, &size);
        if (size < in.record_size) {
            QF_ERROR_AS(edit->operation, "file %s is corrupt", edit->file.path);
            return 0;
        }
        mark_record(sorted, __range_of_record(record));
    }
    return 1;
}

// In large pieces, since there may be many.
static int write_new_records(const range_edit *edit, const void *records) {
    const auto *const all = static_cast<const new_records *>(records);
    unsigned char piece[124 * range_record_size];
    uint32_t filled = 0;
    for (uint32_t i = 0; i < all->count; ++i) {
        if (all->additions[i].outcome != range_outcome::added) {
            continue;
        }
        make_record(piece + filled, &all->additions[i].range, all->comment);
        filled += range_record_size;
        if (filled == sizeof piece) {
            if (!vc_write(edit->file.file, piece, filled)) {
                return 0;
            }
            filled = 0;
        }
    }
    return !filled || vc_write(edit->file.file, piece, filled);
}

// Null on success, else the error text.
static const char *put_records(range_edit *edit, range_addition *additions, uint32_t count,
                               const char *comment) {
    if (is_legacy(&edit->file)) {
        return range_legacy;
    }
    sorted_ranges sorted = {};
    if (!sort_ranges(additions, count, &sorted)) {
        QF_ERRNO_AS(edit->operation, ENOMEM);
        return range_no_memory;
    }
    if (!mark_records(edit, sorted)) {
        return range_traverse_failed;
    }
    const auto added = static_cast<uint32_t>(
        std::count_if(additions, additions + count, [](const range_addition &one) {
            return one.outcome == range_outcome::added;
        }));
    const new_records records = {.additions = additions, .count = count, .comment = comment};
    return added ? append_records(edit, added, write_new_records, &records) : nullptr;
}

static bool is_addition(const range_addition &one) {
    static constexpr uint32_t any_address = 0;
    static constexpr uint32_t broadcast_address = 0xFFFFFFFF;
    return one.range.low != any_address && one.range.high != broadcast_address &&
           qf_valid_ip_range(&one.range);
}

int ipr_add_all(const char *directory, const char *name, range_addition *additions, uint32_t count,
                const char *comment, const char **error) {
    fail(error, nullptr);
    if (!additions || !count || (comment && strlen(comment) > longest_range_comment)) {
        QF_EINVAL();
        return fail(error, range_bad_arguments);
    }
    if (!std::all_of(additions, additions + count, is_addition)) {
        return fail(error, range_invalid);
    }
    const range_edit_ptr edit = begin_edit(__func__, directory, name, true);
    if (!edit) {
        return fail(error, range_open_failed);
    }
    const char *const text = put_records(edit.get(), additions, count, comment);
    return text ? fail(error, text) : 1;
}

int ipr_del_range_from_file(const char *directory, const char *name, const char *low,
                            const char *high, const char **error) {
    fail(error, nullptr);
    qf_ip_range range = {};
    if (!__sane_ip(low, &range.low) || !__sane_ip(high, &range.high)) {
        return fail(error, range_bad_arguments); // kept on purpose: the text of ipr_add
    }
    const range_edit_ptr edit = begin_edit(__func__, directory, name, false);
    if (!edit) {
        return fail(error, range_open_failed);
    }
    if (is_legacy(&edit->file)) {
        return fail(error, range_legacy);
    }
    uint32_t index = 0;
    switch (__find_range(__func__, &edit->file, &range, &index)) {
    case range_search::failed:
        return fail(error, range_read_failed);
    case range_search::absent:
        QF_DEBUG("file %s does not contain range %s-%s - nothing to remove", edit->file.path, low,
                 high);
        return 0;
    case range_search::found:
        break;
    }
    const record_change change = {.left_out = &range, .in_place = nullptr, .index = 0};
    const char *const text = replace_file(edit.get(), &change);
    return text ? fail(error, text) : 1;
}

// Whether a file is usable and whether it is in the legacy version; neither needs the right to
// write.
static bool looked_at(const char *directory, const char *name, bool *legacy) {
    const range_file_ptr file(__open_range_file(directory, name, 0, 0));
    *legacy = file && is_legacy(file.get());
    return file != nullptr;
}

int ipr_convert_file(const char *directory, const char *name) {
    const heap_string path(__range_path(directory, name));
    if (!path || !restore_backup(__func__, path.get())) {
        return 0;
    }
    if (!vc_file_exists_ex(path.get(), vc_type_file)) {
        return 1;
    }
    bool legacy = false;
    if (!looked_at(directory, name, &legacy)) {
        return 0;
    }
    if (!legacy) {
        return 1;
    }
    const range_edit_ptr edit = begin_edit(__func__, directory, name, false);
    if (!edit) {
        return 0;
    }
    const record_change unchanged = {.left_out = nullptr, .in_place = nullptr, .index = 0};
    return !is_legacy(&edit->file) || !replace_file(edit.get(), &unchanged);
}

} // namespace quillfence
