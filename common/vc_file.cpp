#include "vc_file.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "evidence.h"
#include "frozen_files.h"
#include "platform/error_numbers.h"
#include "platform/process.h"
#include "vc_compat.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_file";

static constexpr uint32_t block_size = 4096;
static constexpr uint64_t largest_contents = 104857600; // 100 MiB
static constexpr uint32_t unknown_size = 0xFFFFFFFF;    // the answer of a failed size call

// Kept on purpose: these numbers are the Windows C library's, and their texts are whatever the
// platform says for them.
static constexpr int format_error = 56;
static constexpr int canceled_error = 125;

// Numbers and counts are logged with "%d".
template <class Number>
static int as_int(Number number) {
    return static_cast<int>(number);
}

static constexpr char open_operation[] = "vc_open_ex"; // all that opens reports in its name

static bool has_path(const char *path) {
    if (is_empty(path)) {
        QF_ERRNO_AS(open_operation, EINVAL);
        return false;
    }
    return true;
}

// 1, or 0 after the ERROR line.
static int has_opened(uint32_t error) {
    if (error) {
        QF_ERROR_AS(open_operation, "unknown error opening - got error code %d", as_int(error));
    }
    return error == 0;
}

static void trace_lock(bool lock) {
    if (lock) {
        QF_DEBUG_AS(open_operation, "request for lock: omitting WRITE share options");
    } else {
        QF_DEBUG_AS(open_operation, "no lock requested - setting read and write share options");
    }
}

static vc_handle open_file(const char *path, platform::file_options options) {
    if (!has_path(path)) {
        return vc_invalid_handle;
    }
    trace_lock(options.lock);
    vc_handle file = vc_invalid_handle;
    const uint32_t error = platform::file_open(path, options, &file);
    const bool missing =
        error == platform::error_file_not_found || error == platform::error_path_not_found;
    if (missing && options.when == platform::disposition::open_existing) {
        QF_DEBUG_AS(open_operation, "[%s] is not there", path);
        return vc_invalid_handle;
    }
    if (!has_opened(error)) {
        tell_failure(path, error);
        return vc_invalid_handle;
    }
    return file;
}

vc_handle vc_open_ex(const char *path, int lock, int write, int) {
    return open_file(
        path, {.write = write != 0, .lock = lock != 0, .when = platform::disposition::open_always});
}

vc_handle vc_open_append(const char *path) {
    return open_file(path, {.append = true, .when = platform::disposition::open_always});
}

int vc_open_edit(const char *path, int create, platform::edit_lock *lock) {
    *lock = {};
    if (!has_path(path)) {
        return 0;
    }
    trace_lock(true);
    const auto when =
        create ? platform::disposition::open_always : platform::disposition::open_existing;
    return has_opened(platform::edit_lock_take(path, when, lock));
}

int vc_begin_replacement(const char *path, const char *ending, platform::replacement *begun) {
    begun->lock = {};
    if (!has_path(path)) {
        return 0;
    }
    trace_lock(true);
    return has_opened(platform::replacement_begin(path, ending, begun));
}

vc_handle vc_open_existing(const char *path) {
    const char *const from = is_empty(path) ? path : path_to_read(path);
    return open_file(from, {.when = platform::disposition::open_existing});
}

int vc_close(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    if (const uint32_t error = platform::file_close(file)) {
        QF_ERROR("error closing got error code %d", as_int(error));
        return 0;
    }
    return 1;
}

int vc_write(vc_handle file, const void *buffer, uint32_t count) {
    if (file == vc_invalid_handle || !buffer || !count) {
        QF_EINVAL();
        return 0;
    }
    const char *next = static_cast<const char *>(buffer);
    for (uint32_t left = count;;) {
        const uint32_t block = std::min(left, block_size);
        QF_DEBUG("%d bytes left to write", as_int(left));
        QF_DEBUG("Attempting to write %d bytes", as_int(block));
        uint32_t written = 0;
        uint32_t error = platform::file_write(file, next, block, &written);
        if (!error && !written) {
            error = platform::error_disk_full; // trying again would never end
        }
        if (error) {
            QF_ERROR("fatal error on block write (w32) got error code %d", as_int(error));
            return 0;
        }
        QF_DEBUG("wrote %d bytes", as_int(written));
        if (written == left) {
            return 1;
        }
        next += written;
        left -= written;
    }
}

int vc_append(vc_handle file, const void *buffer, uint32_t count) {
    if (file == vc_invalid_handle || !buffer || !count) {
        QF_EINVAL();
        return 0;
    }
    uint32_t written = 0;
    uint32_t error = platform::file_write(file, buffer, count, &written);
    if (!error && written < count) {
        error =
            platform::error_disk_full; // the rest, written later, could stand behind others' bytes
    }
    if (error) {
        QF_ERROR("fatal error on block write (w32) got error code %d", as_int(error));
        return 0;
    }
    QF_DEBUG("wrote %d bytes", as_int(written));
    return 1;
}

// The loop of the reading operations. *delivered receives the number of bytes that arrived, also
// when a later block fails.
static int read_blocks(const char *operation, vc_handle file, void *buffer, int64_t count,
                       int64_t *delivered) {
    char *next = static_cast<char *>(buffer);
    *delivered = 0;
    for (int64_t left = count; left > 0;) {
        const uint32_t block = static_cast<uint32_t>(std::min<int64_t>(left, block_size));
        QF_DEBUG_AS(operation, "%d bytes remaining to read", as_int(left));
        QF_DEBUG_AS(operation, "attempting to read %d bytes in one block", as_int(block));
        uint32_t got = 0;
        if (const uint32_t error = platform::file_read(file, next, block, &got)) {
            QF_ERROR_AS(operation, "fatal error on read (w32) got error code %d", as_int(error));
            tell_failure(nullptr, error);
            return 0;
        }
        QF_DEBUG_AS(operation, "read %d bytes", as_int(got));
        next += got;
        left -= got;
        *delivered += got;
        if (got < block) {
            break;
        }
    }
    return 1;
}

int vc_read(vc_handle file, void *buffer, int64_t count) {
    if (file == vc_invalid_handle) {
        QF_ERROR("Invalid file handler!");
        return 0;
    }
    if (!buffer) {
        QF_ERROR("Invalid buffer parameter!");
        return 0;
    }
    if (!count) {
        QF_ERROR("Invalid read size: %i", as_int(count));
        return 0;
    }
    int64_t delivered;
    return read_blocks(__func__, file, buffer, count, &delivered);
}

int vc_read_nonblock(vc_handle file, void *buffer, int64_t count, int required, int,
                     uint32_t *delivered) {
    if (file == vc_invalid_handle || !buffer || !count || !required) {
        QF_EINVAL();
        return 0;
    }
    int64_t total;
    const int result = read_blocks(__func__, file, buffer, count, &total);
    if (delivered) {
        *delivered = static_cast<uint32_t>(total);
    }
    return result;
}

// The work of vc_seek, for offsets of any size.
static int seek(vc_handle file, int64_t offset, int origin) {
    static constexpr const char *operation = "vc_seek";
    static constexpr platform::seek_origin origins[] = {
        platform::seek_origin::begin, platform::seek_origin::current, platform::seek_origin::end};
    const bool known = origin >= 0 && origin < as_int(std::size(origins));
    const uint32_t error = known ? platform::file_seek(file, offset, origins[origin], nullptr)
                                 : uint32_t{platform::error_invalid_parameter};
    if (error) {
        QF_ERROR_AS(operation, "failed to set file pointer: got error code %d", as_int(error));
        tell_failure(nullptr, error);
        return 0;
    }
    QF_DEBUG_AS(operation, "successfully sought %d from offset %d", as_int(offset), origin);
    return 1;
}

int vc_seek(vc_handle file, int32_t offset, int origin) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    return seek(file, offset, origin);
}

// The work of vc_tell, for positions of any size; -2 on failure.
static int64_t position_of(vc_handle file) {
    int64_t position = 0;
    const auto current = platform::seek_origin::current;
    if (const uint32_t error = platform::file_seek(file, 0, current, &position)) {
        QF_ERROR_AS("vc_tell", "error finding position got error code %d", as_int(error));
        return -2;
    }
    return position;
}

int32_t vc_tell(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return -1;
    }
    return static_cast<int32_t>(position_of(file));
}

// The whole size; all ones when the system does not tell.
static uint64_t size_of(vc_handle file) {
    uint64_t size = 0;
    return platform::file_size(file, &size) ? unknown_size : size;
}

uint32_t vc_filesize(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL(); // and asks all the same, on purpose
    }
    return static_cast<uint32_t>(size_of(file));
}

int vc_truncate(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    if (const uint32_t error = platform::file_truncate(file)) {
        QF_ERROR("got error code %d", as_int(error));
        return 0;
    }
    QF_DEBUG("file truncated");
    return 1;
}

char *vc_fd_get_contents_ex(vc_handle file, uint64_t *size) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return nullptr;
    }
    const uint64_t bytes = size_of(file);
    if (bytes > largest_contents) {
        errno = EFBIG; // for the caller's own line
        QF_ERRNO(EFBIG);
        return nullptr;
    }
    heap_string contents(static_cast<char *>(calloc(bytes + 1, 1)));
    if (!contents) {
        errno = ENOMEM;
        QF_ENOMEM();
        return nullptr;
    }
    if (bytes && !vc_read(file, contents.get(), static_cast<int64_t>(bytes))) {
        // The message is the same for every file, on purpose.
        QF_ERROR("Cannot read content of cid history file");
        return nullptr;
    }
    if (size) {
        *size = bytes;
    }
    return contents.release();
}

// The whole of a file that was just opened, and closes it. The lines are vc_file_get_contents_ex's.
static char *take_contents(const char *path, vc_handle file, uint64_t *size) {
    static constexpr char operation[] = "vc_file_get_contents_ex";
    if (file == vc_invalid_handle) {
        QF_DEBUG_AS(operation, "couldn't open file so aborting");
        return nullptr;
    }
    char *contents = vc_fd_get_contents_ex(file, size);
    const int reason = errno;
    vc_close(file);
    if (!contents) {
        QF_ERROR_AS(operation, "Failed to get file contents [%s]: %s", path, strerror(reason));
        tell_failure(path, 0, strerror(reason));
        errno = reason;
    }
    return contents;
}

char *vc_file_get_contents_ex(const char *path, uint64_t *size) {
    errno = 0;
    if (is_empty(path)) {
        QF_EINVAL();
        return nullptr;
    }
    const vc_handle file = vc_open_ex(path, 0, 0, 0);
    return take_contents(path, file, size);
}

// A copy of what was read beforehand, as vc_fd_get_contents_ex gives it.
static char *copy_contents(const frozen_file *file, uint64_t *size) {
    char *const contents = static_cast<char *>(malloc(file->size + 1));
    if (!contents) {
        errno = ENOMEM;
        QF_ERRNO_AS("vc_fd_get_contents_ex", ENOMEM);
        return nullptr;
    }
    memcpy(contents, file->bytes, file->size + 1);
    if (size) {
        *size = file->size;
    }
    return contents;
}

char *vc_existing_contents(const char *path, uint64_t *size) {
    errno = 0;
    if (is_empty(path)) {
        QF_EINVAL();
        return nullptr;
    }
    const frozen_file *const frozen = frozen_file_of(path_to_read(path));
    if (frozen && frozen->bytes) {
        return copy_contents(frozen, size);
    }
    const vc_handle file = vc_open_existing(path);
    return take_contents(path, file, size);
}

// As platform::path_attributes, of the path that is read in this one's place.
static uint32_t look_at(const char *path, uint32_t *attributes) {
    const char *const from = path_to_read(path);
    if (const frozen_file *const frozen = frozen_file_of(from)) {
        *attributes = frozen->attributes;
        return frozen->error;
    }
    return platform::path_attributes(from, attributes);
}

int vc_file_exists_ex(const char *path, int type) {
    if (is_empty(path)) {
        QF_EINVAL();
        return 0;
    }
    uint32_t attributes = 0;
    if (const uint32_t error = look_at(path, &attributes)) {
        if (error != platform::error_file_not_found && error != platform::error_path_not_found) {
            QF_ERROR("Failed to get file attributes [%s]: %d", path, as_int(error));
            tell_failure(path, error);
        }
        tell(&evidence_sink::looked_at_path,
             {.path = path, .existed = false, .directory = type == vc_type_directory});
        return 0;
    }
    const bool right_type = as_int(attributes & platform::attribute_directory) == type;
    tell(&evidence_sink::looked_at_path,
         {.path = path, .existed = right_type, .directory = type == vc_type_directory});
    if (!right_type) {
        QF_DEBUG("[%s] exists but is of unexpected type [%d]", path, type);
        return 0;
    }
    QF_DEBUG("[%s] exists and is a [%d]", path, type);
    return 1;
}

int vc_get_filesize(const char *path, uint64_t *size) {
    if (is_empty(path) || !size) {
        QF_EINVAL();
        return 0;
    }
    if (!vc_file_exists_ex(path, vc_type_file)) {
        return 0;
    }
    vc_handle file = vc_invalid_handle;
    const platform::file_options reading = {.when = platform::disposition::open_existing};
    if (const uint32_t error = platform::file_open(path, reading, &file)) {
        QF_ERROR("Failed to open file: %d", as_int(error));
        return 0;
    }
    const uint32_t error = platform::file_size(file, size);
    if (error) {
        QF_ERROR("Failed to get filesize: %d", as_int(error));
    }
    vc_close(file);
    return error ? 0 : 1;
}

int vc_file_executable(const char *path) {
    if (is_empty(path)) {
        QF_EINVAL();
        return 0;
    }
    if (!vc_file_exists_ex(path, vc_type_file)) {
        QF_DEBUG("file doesn't exist - return false");
        return 0;
    }
    QF_DEBUG("returning true");
    return 1;
}

char *vc_tmp_file(const char *base_name) {
    if (is_empty(base_name)) {
        QF_EINVAL();
        return nullptr;
    }
    char *name = nullptr;
    if (__getenv("TEMP", &name)) {
        QF_DEBUG("found environment variable %s", name);
    } else {
        // The message and the value differ, on purpose.
        QF_DEBUG("TEMP environment variable not found: setting explicit C:\\temp");
        if (!vc_strcat(&name, "C:/TEMP")) {
            return nullptr;
        }
    }
    if (!vc_strcat(&name, "/") || !vc_strcat(&name, base_name) || !vc_strcat(&name, ".") ||
        !vc_icat(&name, static_cast<int32_t>(platform::process_id()))) {
        free(name);
        return nullptr;
    }
    QF_DEBUG("generated %s", name);
    return name;
}

int vc_copyfile(const char *destination, const char *source) {
    if (is_empty(destination) || is_empty(source)) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("Copying file %s => %s", source, destination);
    if (const uint32_t error = platform::path_copy(source, destination)) {
        QF_ERROR("Error copying file: %d", as_int(error));
        return 0;
    }
    return 1;
}

int vc_fprintf(vc_handle file, const char *format, ...) {
    if (file == vc_invalid_handle || !format) {
        QF_EINVAL();
        return 0;
    }
    char text[1024] = {};
    va_list arguments;
    va_start(arguments, format);
    const int length = platform::vformat_text(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) { // a cut text included
        QF_ERROR("unknown error on vsnprintf() %s", strerror(format_error));
        return 0;
    }
    if (static_cast<size_t>(length) >= sizeof text) { // the seam says -1 instead
        QF_ERRNO(E2BIG);
        return 0;
    }
    QF_DEBUG("arguments and format converted [%s]", text);
    return vc_write(file, text, static_cast<uint32_t>(length));
}

int vc_readline(vc_handle file, char *buffer, uint32_t size) {
    if (file == vc_invalid_handle || !buffer || !size) {
        QF_EINVAL();
        return 0;
    }
    const int64_t start = position_of(file);
    if (start < 0) {
        return 0;
    }
    QF_DEBUG("current position in file %d", as_int(start));
    memset(buffer, 0, size);
    int64_t delivered;
    if (!read_blocks("vc_read", file, buffer, size, &delivered)) {
        QF_ERRNO(canceled_error);
        return 0;
    }
    const size_t length = strnlen(buffer, static_cast<size_t>(delivered));
    if (!length) {
        return 0;
    }
    QF_DEBUG("read data block: [%.*s]", as_int(length), buffer);
    char *newline = static_cast<char *>(memchr(buffer, '\n', length));
    if (!newline) {
        return 1;
    }
    const int64_t line_length = newline - buffer;
    QF_DEBUG("newline found at character %d", as_int(line_length));
    *newline = '\0';
    if (line_length > 0 && newline[-1] == '\r') {
        newline[-1] = '\0';
    }
    return seek(file, start + line_length + 1, 0);
}

} // namespace quillfence
