#include "platform/edit.h"

#include "platform/error_numbers.h"
#include "platform/format.h"
#include "system.h"
#include "system_path.h"

#include <sddl.h> // needs the system's other headers before it

namespace quillfence::platform {

static constexpr ULONGLONG longest_wait = 1000; // milliseconds
static constexpr DWORD pause_of_wait = 10;

// Who may take the mutex of a file: the system, administrators, and whoever has logged on, since
// the file's own rights decide who edits it.
static constexpr char mutex_rights[] = "D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;0x100001;;;AU)";

static HANDLE handle_of(file_handle file) {
    return reinterpret_cast<HANDLE>(file);
}

static file_handle number_of(HANDLE handle) {
    return reinterpret_cast<file_handle>(handle);
}

// Names of files ignore case.
static uint64_t hash_of(const char *text) {
    uint64_t hash = 0xCBF29CE484222325;
    for (; *text; ++text) {
        const char folded = *text >= 'A' && *text <= 'Z' ? static_cast<char>(*text + 32) : *text;
        hash = (hash ^ static_cast<unsigned char>(folded)) * 0x100000001B3;
    }
    return hash;
}

// The mutex of a file: named by its folder's identity, so that it is the same by whatever path, and
// by the file's own name.
static uint32_t name_mutex(const char *path, char *name, size_t size) {
    char full[MAX_PATH];
    char *last = nullptr;
    const DWORD length = GetFullPathNameA(path, sizeof full, full, &last);
    if (length == 0 || length >= sizeof full) {
        return length ? uint32_t{error_filename_too_long} : error_unless(FALSE);
    }
    if (!last) {
        return error_access_denied; // a folder
    }
    const uint64_t file = hash_of(last);
    *last = '\0';
    const HANDLE folder =
        CreateFileA(full, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (folder == INVALID_HANDLE_VALUE) {
        return error_path_not_found;
    }
    BY_HANDLE_FILE_INFORMATION facts;
    const uint32_t error = error_unless(GetFileInformationByHandle(folder, &facts));
    CloseHandle(folder);
    if (!error) {
        format_text(name, size, "Global\\quillfence-edit-%08lx-%08lx%08lx-%016llx",
                    static_cast<unsigned long>(facts.dwVolumeSerialNumber),
                    static_cast<unsigned long>(facts.nFileIndexHigh),
                    static_cast<unsigned long>(facts.nFileIndexLow),
                    static_cast<unsigned long long>(file));
    }
    return error;
}

static HANDLE open_mutex(const char *name) {
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, FALSE};
    ConvertStringSecurityDescriptorToSecurityDescriptorA(mutex_rights, SDDL_REVISION_1,
                                                         &attributes.lpSecurityDescriptor, nullptr);
    const HANDLE created = CreateMutexExA(&attributes, name, 0, SYNCHRONIZE | MUTEX_MODIFY_STATE);
    const DWORD error = GetLastError();
    LocalFree(attributes.lpSecurityDescriptor);
    SetLastError(error);
    return created;
}

// A mutex whose owner was killed is had like a free one.
static uint32_t take_mutex(const char *path, file_handle *guard) {
    char name[128];
    if (const uint32_t error = name_mutex(path, name, sizeof name)) {
        return error;
    }
    const HANDLE mutex = open_mutex(name);
    if (!mutex) {
        return error_unless(FALSE);
    }
    const DWORD waited = WaitForSingleObject(mutex, longest_wait);
    if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED) {
        CloseHandle(mutex);
        return error_sharing_violation;
    }
    *guard = number_of(mutex);
    return error_none;
}

static void give_mutex_back(file_handle *guard) {
    if (*guard != invalid_file) {
        ReleaseMutex(handle_of(*guard));
        CloseHandle(handle_of(*guard));
        *guard = invalid_file;
    }
}

// Opens a file without a share for writing; somebody else's handle is waited for. The mutex does
// not exclude the thread that has it, this does. A share for deleting there is, as another name of
// the file could not be deleted else.
static uint32_t open_exclusively(const char *path, DWORD creation, file_handle *opened) {
    const ULONGLONG deadline = GetTickCount64() + longest_wait;
    for (;;) {
        const HANDLE file =
            CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                        nullptr, creation, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            *opened = number_of(file);
            return error_none;
        }
        const uint32_t error = error_unless(FALSE);
        if (error != error_sharing_violation || GetTickCount64() > deadline) {
            return error;
        }
        Sleep(pause_of_wait);
    }
}

// Creates the temporary file, in the place of one that nobody holds any more. It can be opened once
// more for writing, as the mutex excludes others.
static uint32_t create_in_place(const char *path, file_handle *created) {
    if (!DeleteFileA(path) && GetLastError() != ERROR_FILE_NOT_FOUND) {
        return error_unless(FALSE);
    }
    const HANDLE file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE | WRITE_DAC | WRITE_OWNER,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return error_unless(FALSE);
    }
    *created = number_of(file);
    return error_none;
}

// Owner and rights of one file for another. Only some accounts may give a file to another owner.
static uint32_t take_over_rights(const char *path, const char *like) {
    static constexpr SECURITY_INFORMATION owner =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION;
    static constexpr SECURITY_INFORMATION rights = DACL_SECURITY_INFORMATION;
    alignas(SECURITY_DESCRIPTOR) unsigned char descriptor[8192];
    DWORD needed = 0;
    if (!GetFileSecurityA(like, owner | rights, descriptor, sizeof descriptor, &needed) ||
        !SetFileSecurityA(path, rights, descriptor)) {
        return error_unless(FALSE);
    }
    alignas(SECURITY_DESCRIPTOR) unsigned char own[8192];
    PSID wanted_owner = nullptr;
    PSID owner_now = nullptr;
    BOOL defaulted = FALSE;
    if (!GetFileSecurityA(path, owner, own, sizeof own, &needed) ||
        !GetSecurityDescriptorOwner(descriptor, &wanted_owner, &defaulted) ||
        !GetSecurityDescriptorOwner(own, &owner_now, &defaulted)) {
        return error_unless(FALSE);
    }
    return EqualSid(wanted_owner, owner_now)
               ? static_cast<uint32_t>(error_none)
               : error_unless(SetFileSecurityA(path, owner, descriptor));
}

static void close_handle(file_handle *file) {
    if (*file != invalid_file) {
        file_close(*file);
        *file = invalid_file;
    }
}

static uint32_t copy_path(const char *path, char *buffer, size_t size) {
    return format_text(buffer, size, "%s", path) < 0
               ? static_cast<uint32_t>(error_filename_too_long)
               : static_cast<uint32_t>(error_none);
}

uint32_t edit_lock_take(const char *path, disposition when, edit_lock *taken) {
    *taken = {};
    system_path resolved;
    if (const uint32_t failure = begin_path_call("edit_lock_take", path, &resolved)) {
        return failure;
    }
    if (const uint32_t error = take_mutex(resolved.text, &taken->guard)) {
        return error;
    }
    const DWORD creation = when == disposition::open_existing ? OPEN_EXISTING : OPEN_ALWAYS;
    const uint32_t error = open_exclusively(resolved.text, creation, &taken->file);
    if (error) {
        give_mutex_back(&taken->guard);
    }
    return error;
}

void edit_lock_close_file(edit_lock *lock) {
    close_handle(&lock->file);
}

void edit_lock_release(edit_lock *lock) {
    close_handle(&lock->file);
    give_mutex_back(&lock->guard);
}

uint32_t path_target(const char *path, char *buffer, size_t size) {
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_target", path, &resolved)) {
        return failure;
    }
    const DWORD attributes = GetFileAttributesA(resolved.text);
    const bool is_link =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
    if (!is_link) {
        return copy_path(path, buffer, size);
    }
    const HANDLE target =
        CreateFileA(resolved.text, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (target == INVALID_HANDLE_VALUE) {
        return error_unless(FALSE);
    }
    const DWORD length =
        GetFinalPathNameByHandleA(target, buffer, static_cast<DWORD>(size), FILE_NAME_NORMALIZED);
    const uint32_t error =
        length >= size ? uint32_t{error_filename_too_long} : error_unless(length != 0);
    CloseHandle(target);
    return error;
}

uint32_t temporary_create(const char *path, const char *like, edit_lock *created,
                          file_rights rights) {
    *created = {};
    system_path resolved;
    system_path model;
    if (const uint32_t failure =
            begin_two_path_call("temporary_create", path, like, &resolved, &model)) {
        return failure;
    }
    const DWORD found = GetFileAttributesA(model.text);
    const bool replaces = found != INVALID_FILE_ATTRIBUTES;
    if (replaces && (found & FILE_ATTRIBUTE_DIRECTORY)) {
        return error_access_denied;
    }
    if (const uint32_t error = take_mutex(resolved.text, &created->guard)) {
        return error;
    }
    uint32_t error = create_in_place(resolved.text, &created->file);
    if (!error && replaces && rights == file_rights::of_replaced) {
        error = take_over_rights(resolved.text, model.text);
    }
    if (error) {
        if (created->file != invalid_file) {
            CloseHandle(handle_of(created->file));
            DeleteFileA(resolved.text);
        }
        give_mutex_back(&created->guard);
        *created = {};
    }
    return error;
}

// CreateHardLink exists on NTFS alone.
uint32_t path_link(const char *existing, const char *name) {
    system_path old_name;
    system_path new_name;
    if (const uint32_t failure =
            begin_two_path_call("path_link", existing, name, &old_name, &new_name)) {
        return failure;
    }
    const uint32_t error = error_unless(CreateHardLinkA(new_name.text, old_name.text, nullptr));
    const bool no_such_thing = error == ERROR_INVALID_FUNCTION || error == ERROR_TOO_MANY_LINKS;
    return no_such_thing ? static_cast<uint32_t>(error_not_supported) : error;
}

uint32_t path_sync_folder(const char *path) {
    system_path resolved;
    return begin_path_call("path_sync_folder", path, &resolved); // path_replace writes through
}

} // namespace quillfence::platform
