// The editing operations of quillfence-iprange.
#include "quillfence-iprange.h"

#include <cstdlib>
#include <cstring>

#include "platform/error_numbers.h"
#include "quillfence-iprange-file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-iprange";

static const char *text_of(uint32_t error) {
    return ::strerror(platform::errno_of(error));
}

// Puts the error text, or null for none, where the caller wants it. Returns 0.
static int fail(const char **error, const char *text) {
    if (error) {
        *error = text;
    }
    return 0;
}

// --- adding ---

static void make_record(unsigned char *record, const qf_ip_range *range, const char *comment) {
    std::memset(record, 0, range_record_size);
    std::memcpy(record, &range->low, 4);
    std::memcpy(record + 4, &range->high, 4);
    if (comment) {
        std::memcpy(record + legacy_record_size, comment, std::strlen(comment));
    }
}

// Where a record lies; -1 beyond the reach of vc_seek.
static int32_t place_of_record(uint32_t index) {
    const uint64_t place = range_header_size + uint64_t{index} * range_record_size;
    return place > INT32_MAX - int32_t{range_record_size} ? -1 : static_cast<int32_t>(place);
}

// Writes a record over the one at place; puts the old one back when that fails.
static int overwrite_record(range_file *file, int32_t place, const unsigned char *record) {
    unsigned char old[range_record_size];
    uint32_t delivered = 0;
    if (!vc_seek(file->file, place, 0) ||
        !vc_read_nonblock(file->file, old, sizeof old, 1, 0, &delivered) ||
        delivered != sizeof old || !vc_seek(file->file, place, 0)) {
        return 0;
    }
    if (vc_write(file->file, record, range_record_size)) {
        return 1;
    }
    if (vc_seek(file->file, place, 0)) {
        vc_write(file->file, old, sizeof old);
    }
    return 0;
}

static void shorten_to(range_file *file, int32_t size) {
    if (vc_seek(file->file, size, 0)) {
        vc_truncate(file->file);
    }
}

// Writes a record at the end of the file and counts it. Null on success, else the error text.
// A file with bytes behind its counted records, as a crash may leave them, is refused: the new
// record would lie behind them and not be found, and they would be counted in its stead.
static const char *append_record(const char *operation, range_file *file,
                                 const unsigned char *record) {
    const int32_t place = place_of_record(file->header.count);
    const int32_t end = vc_seek(file->file, 0, 2) ? vc_tell(file->file) : -1;
    if (place < 0 || end < 0) {
        return range_write_failed;
    }
    if (end != place) {
        QF_ERROR_AS(operation, "file %s is corrupt", file->path);
        return range_traverse_failed;
    }
    if (!vc_write(file->file, record, range_record_size)) {
        shorten_to(file, place);
        return range_write_failed;
    }
    ++file->header.count;
    if (!__write_range_header(file)) {
        --file->header.count;
        __write_range_header(file);
        shorten_to(file, place);
        return range_write_failed;
    }
    return nullptr;
}

static const char *put_record(const char *operation, range_file *file, const qf_ip_range *range,
                              const char *comment) {
    if (is_legacy(file)) {
        return range_legacy;
    }
    if (!qf_valid_ip_range(range)) {
        return range_invalid;
    }
    unsigned char record[range_record_size];
    make_record(record, range, comment);
    uint32_t index = 0;
    switch (__find_range(operation, file, range, &index)) {
    case range_search::failed:
        return range_traverse_failed;
    case range_search::absent:
        return append_record(operation, file, record);
    case range_search::found:
        break;
    }
    if (is_empty(comment)) {
        return range_exists;
    }
    const int32_t place = place_of_record(index);
    const bool written =
        place >= 0 && overwrite_record(file, place, record) && __write_range_header(file);
    return written ? nullptr : range_write_failed;
}

int ipr_add(const char *directory, const char *name, const char *low, const char *high,
            const char *comment, const char **error) {
    fail(error, nullptr);
    qf_ip_range range = {};
    if (!__sane_ip(low, &range.low) || !__sane_ip(high, &range.high) ||
        (comment && std::strlen(comment) > longest_range_comment)) {
        return fail(error, range_bad_arguments);
    }
    const range_file_ptr file(__open_range_file(directory, name, 1, 1));
    if (!file) {
        return fail(error, range_open_failed);
    }
    const char *const text = put_record(__func__, file.get(), &range, comment);
    return text ? fail(error, text) : 1;
}

// --- a file that is to replace another one ---

static void close_file(range_file *file) {
    if (file->file != vc_invalid_handle) {
        vc_close(file->file);
        file->file = vc_invalid_handle;
    }
}

// Deletes a temporary file if it is there. It must be closed: an open one can't be deleted
// everywhere.
static void __remove_temporary(const char *path) {
    if (!vc_file_exists_ex(path, vc_type_file)) {
        return;
    }
    if (const uint32_t error = platform::path_delete(path)) {
        QF_ERROR("Error removing file %s: %s", path, text_of(error));
    }
}

// A fresh "<name>.new" beside a range file that is locked, so that it is nobody else's. Null with
// the error text in *text.
static range_file_ptr create_temporary(const char *operation, const char *directory,
                                       const char *name, const char **text) {
    char *new_name = nullptr;
    if (vc_asprintf(&new_name, "%s.new", name) < 0) {
        QF_ERRNO_AS(operation, ENOMEM);
        *text = range_no_memory;
        return nullptr;
    }
    const heap_string new_name_owner(new_name);
    const heap_string path(__range_path(directory, new_name));
    if (!path) {
        *text = range_no_memory;
        return nullptr;
    }
    range_file_ptr file(__open_range_file(directory, new_name, 1, 1));
    if (!file) {
        *text = range_open_failed;
    } else if (!__reset_range_file(file.get())) { // one of an interrupted edit may have records
        *text = range_write_failed;
    } else {
        return file;
    }
    file.reset();
    __remove_temporary(path.get());
    return nullptr;
}

// Copies the records of one file behind the header of another, those of a legacy file with empty
// comments, without those of the range left_out (null: all). Null on success, else the error text.
static const char *copy_records(const char *operation, const range_file *from, range_file *to,
                                const qf_ip_range *left_out) {
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
            QF_ERROR_AS(operation, "file %s is corrupt", from->path);
            return range_read_failed;
        }
        const qf_ip_range range = __range_of_record(bytes);
        if (left_out && range.low == left_out->low && range.high == left_out->high) {
            continue;
        }
        unsigned char record[range_record_size] = {};
        std::memcpy(record, bytes, size);
        if (!vc_write(to->file, record, sizeof record)) {
            return range_write_failed;
        }
        ++to->header.count;
    }
    return __write_range_header(to) ? nullptr : range_write_failed;
}

static int rename_file(const char *operation, const char *from, const char *to) {
    if (const uint32_t error = platform::path_rename(from, to)) {
        QF_ERROR_AS(operation, "Failed to rename %s to %s: %s", from, to, text_of(error));
        return 0;
    }
    return 1;
}

// Puts the closed file new_path in the place of the closed file path by way of backup_path. Null
// on success, else the error text; then the old file is in its place.
static const char *swap_files(const char *operation, const char *path, const char *new_path,
                              const char *backup_path) {
    if (vc_file_exists_ex(backup_path, vc_type_file)) {
        if (const uint32_t error = platform::path_delete(backup_path)) {
            QF_ERROR_AS(operation, "Failed to remove old backup file %s: %s", backup_path,
                        text_of(error));
            return range_old_backup;
        }
    }
    if (!rename_file(operation, path, backup_path)) {
        return range_write_failed;
    }
    if (!rename_file(operation, new_path, path)) {
        if (!rename_file(operation, backup_path, path)) {
            platform::path_copy(backup_path, path);
        }
        return range_write_failed;
    }
    if (const uint32_t error = platform::path_delete(backup_path)) {
        QF_ERROR_AS(operation, "Failed to remove backup file %s: %s", backup_path, text_of(error));
    }
    return nullptr;
}

// Replaces a range file by a copy of its records, without those of the range left_out (null: all).
// Closes the file. Null on success, else the error text.
static const char *replace_file(const char *operation, range_file *file, const char *directory,
                                const char *name, const qf_ip_range *left_out) {
    const char *text = nullptr;
    const range_file_ptr replacement = create_temporary(operation, directory, name, &text);
    if (!replacement) {
        return text;
    }
    text = copy_records(operation, file, replacement.get(), left_out);
    char *backup_path = nullptr;
    if (!text && vc_asprintf(&backup_path, "%s.bak", file->path) < 0) {
        QF_ERRNO_AS(operation, ENOMEM);
        text = range_no_memory;
    }
    const heap_string backup_path_owner(backup_path);
    if (!text) {
        close_file(file); // an open file can't be renamed everywhere
        close_file(replacement.get());
        text = swap_files(operation, file->path, replacement->path, backup_path);
    }
    if (text) {
        close_file(replacement.get());
        __remove_temporary(replacement->path);
    }
    return text;
}

// --- removing and converting ---

int ipr_del_range_from_file(const char *directory, const char *name, const char *low,
                            const char *high, const char **error) {
    fail(error, nullptr);
    qf_ip_range range = {};
    if (!__sane_ip(low, &range.low) || !__sane_ip(high, &range.high)) {
        return fail(error, range_bad_arguments); // kept on purpose: the text of ipr_add
    }
    const range_file_ptr file(__open_range_file(directory, name, 1, 0));
    if (!file) {
        return fail(error, range_open_failed);
    }
    if (is_legacy(file.get())) {
        return fail(error, range_legacy);
    }
    uint32_t index = 0;
    switch (__find_range(__func__, file.get(), &range, &index)) {
    case range_search::failed:
        return fail(error, range_read_failed);
    case range_search::absent:
        QF_DEBUG("file %s does not contain range %s-%s - nothing to remove", file->path, low, high);
        return 0;
    case range_search::found:
        break;
    }
    const char *const text = replace_file(__func__, file.get(), directory, name, &range);
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
    if (!path) {
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
    const range_file_ptr file(__open_range_file(directory, name, 1, 0));
    if (!file) {
        return 0;
    }
    return !is_legacy(file.get()) || !replace_file(__func__, file.get(), directory, name, nullptr);
}

} // namespace quillfence
