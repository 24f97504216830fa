#include "platform/file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <share.h>

#include "../errno_of_error.h"
#include "platform/format.h"
#include "platform/observer.h"
#include "system.h"
#include "system_path.h"

namespace quillfence::platform {

static HANDLE handle_of(file_handle file) {
    return reinterpret_cast<HANDLE>(file);
}

static file_handle number_of(HANDLE handle) {
    return reinterpret_cast<file_handle>(handle);
}

static DWORD creation_of(disposition when) {
    switch (when) {
    case disposition::open_always:
        return OPEN_ALWAYS;
    case disposition::create_always:
        return CREATE_ALWAYS;
    case disposition::create_new:
        return CREATE_NEW;
    default:
        return OPEN_EXISTING;
    }
}

// What tells one file from all others, by whatever name it was opened.
static bool identity_of(const char *path, BY_HANDLE_FILE_INFORMATION *facts) {
    const HANDLE opened =
        CreateFileA(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (opened == INVALID_HANDLE_VALUE) {
        return false;
    }
    const bool known = GetFileInformationByHandle(opened, facts);
    CloseHandle(opened);
    return known;
}

static bool same_file(const char *one, const char *other) {
    BY_HANDLE_FILE_INFORMATION first;
    BY_HANDLE_FILE_INFORMATION second;
    return identity_of(one, &first) && identity_of(other, &second) &&
           first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
           first.nFileIndexHigh == second.nFileIndexHigh &&
           first.nFileIndexLow == second.nFileIndexLow;
}

static constexpr ULONGLONG longest_wait = 1000; // milliseconds, for a file that is in use
static constexpr DWORD pause_of_wait = 10;

namespace {

// FILE_RENAME_INFO with the flags of its FileRenameInfoEx form, which older headers lack.
struct rename_request {
    DWORD flags;
    HANDLE root;
    DWORD name_bytes;
    WCHAR name[MAX_PATH + 1];
};

} // namespace

// FileRenameInfoEx
static constexpr auto rename_with_flags = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
static constexpr DWORD replace_if_exists = 1;
// A file that is open with a share for deleting is replaced.
static constexpr DWORD posix_semantics = 2;

static bool make_request(const char *to, rename_request *request) {
    char full[MAX_PATH];
    const DWORD length = GetFullPathNameA(to, sizeof full, full, nullptr);
    if (length == 0 || length >= sizeof full) {
        return false;
    }
    const int units = MultiByteToWideChar(AreFileApisANSI() ? CP_ACP : CP_OEMCP, 0, full, -1,
                                          request->name, MAX_PATH + 1);
    request->flags = replace_if_exists | posix_semantics;
    request->root = nullptr;
    request->name_bytes = units > 0 ? static_cast<DWORD>(units - 1) * sizeof(WCHAR) : 0;
    return units > 0;
}

// Replaces a file that others may be reading. False where the system or the file system knows no
// such thing, and when it fails.
static bool replace_open_file(const char *from, const char *to) {
    rename_request request;
    if (!make_request(to, &request)) {
        return false;
    }
    const HANDLE file = CreateFileA(from, DELETE | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_WRITE_THROUGH, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    const bool replaced =
        SetFileInformationByHandle(file, rename_with_flags, &request, sizeof request);
    CloseHandle(file);
    return replaced;
}

// MoveFileEx replaces in one step as well, but nothing that is open.
static uint32_t replace_once(const char *from, const char *to) {
    return replace_open_file(from, to)
               ? static_cast<uint32_t>(error_none)
               : error_unless(
                     MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
}

int errno_of_error(uint32_t error) {
    switch (error) {
    case error_file_not_found:
    case error_path_not_found:
        return ENOENT;
    case error_access_denied:
    case error_sharing_violation:
        return EACCES;
    case error_not_enough_memory:
        return ENOMEM;
    case error_disk_full:
        return ENOSPC;
    default:
        return EIO;
    }
}

uint32_t file_open(const char *path, file_options options, file_handle *opened) {
    *opened = invalid_file;
    system_path resolved;
    if (const uint32_t failure = begin_path_call("file_open", path, &resolved)) {
        return failure;
    }
    const DWORD access = options.append ? FILE_APPEND_DATA | SYNCHRONIZE
                                        : GENERIC_READ | (options.write ? GENERIC_WRITE : 0);
    // Whoever only reads lets the file be replaced meanwhile, and goes on reading the old one.
    const DWORD sharing =
        FILE_SHARE_READ |
        (options.lock ? 0 : FILE_SHARE_WRITE | (options.write ? 0 : FILE_SHARE_DELETE));
    const HANDLE handle = CreateFileA(resolved.text, access, sharing, nullptr,
                                      creation_of(options.when), FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return error_unless(FALSE);
    }
    const bool only_reads = !options.write && !options.append;
    if (only_reads && GetFileType(handle) != FILE_TYPE_DISK) {
        CloseHandle(handle);
        return error_access_denied;
    }
    *opened = number_of(handle);
    return error_none;
}

uint32_t file_close(file_handle file) {
    const uint32_t failure = observe_call("file_close", "");
    const uint32_t error = error_unless(CloseHandle(handle_of(file)));
    return failure ? failure : error;
}

uint32_t file_read(file_handle file, void *buffer, uint32_t size, uint32_t *moved) {
    *moved = 0;
    if (const uint32_t failure = observe_transfer("file_read", &size)) {
        return failure;
    }
    DWORD got = 0;
    const uint32_t error = error_unless(ReadFile(handle_of(file), buffer, size, &got, nullptr));
    *moved = got;
    // A pipe whose writer has gone is at its end.
    return error == error_broken_pipe ? static_cast<uint32_t>(error_none) : error;
}

uint32_t file_read_at(file_handle file, int64_t offset, void *buffer, uint32_t size,
                      uint32_t *moved) {
    *moved = 0;
    if (const uint32_t failure = observe_transfer("file_read_at", &size)) {
        return failure;
    }
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD got = 0;
    const uint32_t error = error_unless(ReadFile(handle_of(file), buffer, size, &got, &place));
    *moved = got;
    return error == ERROR_HANDLE_EOF ? static_cast<uint32_t>(error_none) : error;
}

uint32_t file_write(file_handle file, const void *bytes, uint32_t size, uint32_t *moved) {
    *moved = 0;
    if (const uint32_t failure = observe_transfer("file_write", &size)) {
        return failure;
    }
    DWORD put = 0;
    const uint32_t error = error_unless(WriteFile(handle_of(file), bytes, size, &put, nullptr));
    *moved = put;
    return error;
}

uint32_t file_pipe(file_handle *reader, file_handle *writer) {
    *reader = *writer = invalid_file;
    if (const uint32_t failure = observe_call("file_pipe", "")) {
        return failure;
    }
    HANDLE read_end;
    HANDLE write_end;
    if (!CreatePipe(&read_end, &write_end, nullptr, 0)) {
        return error_unless(FALSE);
    }
    *reader = number_of(read_end);
    *writer = number_of(write_end);
    return error_none;
}

uint32_t file_seek(file_handle file, int64_t offset, seek_origin origin, int64_t *position) {
    static constexpr DWORD origins[] = {FILE_BEGIN, FILE_CURRENT, FILE_END};
    if (const uint32_t failure = observe_call("file_seek", "")) {
        return failure;
    }
    const auto index = static_cast<size_t>(origin);
    if (index >= sizeof origins / sizeof *origins) {
        return error_invalid_parameter;
    }
    LARGE_INTEGER distance;
    LARGE_INTEGER reached;
    distance.QuadPart = offset;
    const uint32_t error =
        error_unless(SetFilePointerEx(handle_of(file), distance, &reached, origins[index]));
    if (!error && position) {
        *position = reached.QuadPart;
    }
    return error;
}

uint32_t file_size(file_handle file, uint64_t *size) {
    *size = 0;
    if (const uint32_t failure = observe_call("file_size", "")) {
        return failure;
    }
    LARGE_INTEGER found;
    const uint32_t error = error_unless(GetFileSizeEx(handle_of(file), &found));
    if (!error) {
        *size = static_cast<uint64_t>(found.QuadPart);
    }
    return error;
}

uint32_t file_changed(file_handle file, int64_t *seconds) {
    *seconds = 0;
    if (const uint32_t failure = observe_call("file_changed", "")) {
        return failure;
    }
    FILETIME moment;
    const uint32_t error = error_unless(GetFileTime(handle_of(file), nullptr, nullptr, &moment));
    if (!error) {
        *seconds = seconds_of(moment);
    }
    return error;
}

uint32_t file_identify(file_handle file, file_identity *identity) {
    *identity = {};
    if (const uint32_t failure = observe_call("file_identify", "")) {
        return failure;
    }
    BY_HANDLE_FILE_INFORMATION facts;
    const uint32_t error = error_unless(GetFileInformationByHandle(handle_of(file), &facts));
    if (!error) {
        *identity = {facts.dwVolumeSerialNumber,
                     uint64_t{facts.nFileIndexHigh} << 32 | facts.nFileIndexLow};
    }
    return error;
}

uint32_t file_is_private(file_handle file, bool *is) {
    *is = false;
    if (const uint32_t failure = observe_call("file_is_private", "")) {
        return failure;
    }
    BY_HANDLE_FILE_INFORMATION found;
    const uint32_t error = error_unless(GetFileInformationByHandle(handle_of(file), &found));
    *is = !error;
    return error;
}

uint32_t file_truncate(file_handle file) {
    const uint32_t failure = observe_call("file_truncate", "");
    return failure ? failure : error_unless(SetEndOfFile(handle_of(file)));
}

uint32_t file_sync(file_handle file) {
    const uint32_t failure = observe_call("file_sync", "");
    return failure ? failure : error_unless(FlushFileBuffers(handle_of(file)));
}

uint32_t file_map(file_handle file, file_mapping *mapping) {
    *mapping = {};
    if (const uint32_t failure = observe_call("file_map", "")) {
        return failure;
    }
    LARGE_INTEGER size;
    if (!GetFileSizeEx(handle_of(file), &size)) {
        return error_unless(FALSE);
    }
    if (size.QuadPart == 0) {
        return error_none;
    }
    const HANDLE section =
        CreateFileMappingA(handle_of(file), nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (!section) {
        return error_unless(FALSE);
    }
    const void *const bytes = MapViewOfFile(section, FILE_MAP_READ, 0, 0, 0);
    const uint32_t error = error_unless(bytes != nullptr);
    CloseHandle(section); // the view keeps it alive
    if (!error) {
        *mapping = {static_cast<const unsigned char *>(bytes),
                    static_cast<uint64_t>(size.QuadPart)};
    }
    return error;
}

void file_unmap(file_mapping *mapping) {
    if (mapping->bytes) {
        UnmapViewOfFile(mapping->bytes);
    }
    *mapping = {};
}

uint32_t path_attributes(const char *path, uint32_t *attributes) {
    *attributes = 0;
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_attributes", path, &resolved)) {
        return failure;
    }
    const DWORD found = GetFileAttributesA(resolved.text);
    if (found == INVALID_FILE_ATTRIBUTES) {
        return error_unless(FALSE);
    }
    *attributes = found & FILE_ATTRIBUTE_DIRECTORY ? attribute_directory : attribute_normal;
    return error_none;
}

static uint64_t joined_halves(DWORD high, DWORD low) {
    return uint64_t{high} << 32 | low;
}

uint32_t path_stamp_of(const char *path, path_stamp *stamp) {
    *stamp = {};
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_stamp_of", path, &resolved)) {
        return failure;
    }
    BY_HANDLE_FILE_INFORMATION facts;
    if (!identity_of(resolved.text, &facts)) {
        return error_unless(FALSE);
    }
    // When rights change is not told here.
    *stamp = {.volume = facts.dwVolumeSerialNumber,
              .file = joined_halves(facts.nFileIndexHigh, facts.nFileIndexLow),
              .size = joined_halves(facts.nFileSizeHigh, facts.nFileSizeLow),
              .written = ticks_of(facts.ftLastWriteTime),
              .changed = ticks_of(facts.ftCreationTime)};
    return error_none;
}

uint32_t path_copy(const char *source, const char *destination) {
    system_path from;
    system_path to;
    if (const uint32_t failure =
            begin_two_path_call("path_copy", source, destination, &from, &to)) {
        return failure;
    }
    if (same_file(from.text, to.text)) {
        return error_sharing_violation;
    }
    return error_unless(CopyFileA(from.text, to.text, FALSE));
}

uint32_t path_rename(const char *from, const char *to) {
    system_path old_name;
    system_path new_name;
    const uint32_t failure = begin_two_path_call("path_rename", from, to, &old_name, &new_name);
    return failure ? failure : error_unless(MoveFileExA(old_name.text, new_name.text, 0));
}

uint32_t path_replace(const char *from, const char *to) {
    system_path old_name;
    system_path new_name;
    if (const uint32_t failure =
            begin_two_path_call("path_replace", from, to, &old_name, &new_name)) {
        return failure;
    }
    const ULONGLONG deadline = GetTickCount64() + longest_wait;
    for (;;) {
        const uint32_t error = replace_once(old_name.text, new_name.text);
        const bool in_use = error == error_access_denied || error == error_sharing_violation;
        if (!in_use || GetTickCount64() > deadline) {
            return error;
        }
        Sleep(pause_of_wait);
    }
}

uint32_t path_delete(const char *path) {
    system_path resolved;
    const uint32_t failure = begin_path_call("path_delete", path, &resolved);
    return failure ? failure : error_unless(DeleteFileA(resolved.text));
}

uint32_t path_native(const char *path, char *buffer, size_t size) {
    system_path resolved;
    if (const uint32_t failure = resolve_path(path, &resolved)) {
        return failure;
    }
    return format_text(buffer, size, "%s", resolved.text) < 0
               ? static_cast<uint32_t>(error_filename_too_long)
               : error_none;
}

static bool is_file(FILE *stream) {
    return GetFileType(handle_of(_get_osfhandle(_fileno(stream)))) == FILE_TYPE_DISK;
}

FILE *stream_open(const char *path, const char *mode) {
    system_path resolved;
    if (const uint32_t failure = begin_path_call("stream_open", path, &resolved)) {
        errno = errno_of_error(failure);
        return nullptr;
    }
    char full_mode[16]; // always binary
    if (!mode || strlen(mode) + sizeof "b" > sizeof full_mode) {
        errno = EINVAL;
        return nullptr;
    }
    strcat(strcpy(full_mode, mode), strchr(mode, 'b') ? "" : "b");
    FILE *const stream = _fsopen(resolved.text, full_mode, _SH_DENYNO);
    if (stream && *mode == 'r' && !strchr(mode, '+') && !is_file(stream)) {
        fclose(stream);
        errno = EACCES;
        return nullptr;
    }
    return stream;
}

int stream_truncate(FILE *stream, int64_t size) {
    if (const uint32_t failure = observe_call("stream_truncate", "")) {
        return errno_of_error(failure);
    }
    if (fflush(stream) != 0) {
        return errno;
    }
    return _chsize_s(_fileno(stream), size);
}

bool stream_is_terminal(FILE *stream) {
    return stream && _isatty(_fileno(stream));
}

static file_handle standard_handle(DWORD which) {
    return reinterpret_cast<file_handle>(GetStdHandle(which));
}

file_handle file_standard_input() {
    return standard_handle(STD_INPUT_HANDLE);
}

file_handle file_standard_output() {
    return standard_handle(STD_OUTPUT_HANDLE);
}

file_handle file_standard_error() {
    return standard_handle(STD_ERROR_HANDLE);
}

void prepare_standard_streams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

} // namespace quillfence::platform
