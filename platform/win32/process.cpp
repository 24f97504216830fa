#include "platform/process.h"

#include <cstdlib>
#include <cstring>

#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

uint32_t process_id() {
    return GetCurrentProcessId();
}

uint32_t thread_id() {
    return GetCurrentThreadId();
}

uint32_t environment_variable(const char *name, char *buffer, uint32_t size) {
    if (!name || observe_call("environment_variable", name)) {
        return 0;
    }
    return GetEnvironmentVariableA(name, buffer, size);
}

bool environment_has(const char *name) {
    if (!name || observe_call("environment_has", name)) {
        return false;
    }
    SetLastError(ERROR_SUCCESS);
    return GetEnvironmentVariableA(name, nullptr, 0) != 0 ||
           GetLastError() != ERROR_ENVVAR_NOT_FOUND;
}

// The C library keeps a copy of the environment, in which it looks for TZ; both are changed.
bool environment_set(const char *name, const char *value) {
    return _putenv_s(name, value ? value : "") == 0 && SetEnvironmentVariableA(name, value);
}

bool debugger_present() {
    return IsDebuggerPresent();
}

void debugger_break() {
    DebugBreak();
}

static const char *stand_in_for_hosts_file;

void set_hosts_file_stand_in(const char *path) {
    stand_in_for_hosts_file = path;
}

uint32_t hosts_file_path(char *buffer, size_t size) {
    static constexpr char below[] = "\\drivers\\etc\\HOSTS";
    if (const uint32_t failure = observe_call("hosts_file_path", "")) {
        return failure;
    }
    if (stand_in_for_hosts_file) {
        const size_t needed = strlen(stand_in_for_hosts_file) + 1;
        if (needed > size) {
            return error_insufficient_buffer;
        }
        memcpy(buffer, stand_in_for_hosts_file, needed);
        return error_none;
    }
    const UINT length = GetSystemDirectoryA(buffer, static_cast<UINT>(size));
    if (length == 0) {
        return error_unless(FALSE);
    }
    if (length + sizeof below > size) {
        return error_insufficient_buffer;
    }
    memcpy(buffer + length, below, sizeof below);
    return error_none;
}

uint32_t temp_directory(char *buffer, size_t size) {
    if (const uint32_t failure = observe_call("temp_directory", "")) {
        return failure;
    }
    const DWORD length = GetTempPathA(static_cast<DWORD>(size), buffer);
    if (length == 0) {
        return error_unless(FALSE);
    }
    if (length >= size) {
        return error_insufficient_buffer;
    }
    if (buffer[length - 1] == '\\') {
        buffer[length - 1] = '\0';
    }
    return error_none;
}

uint32_t mutex_create(mutex **created) {
    *created = nullptr;
    if (const uint32_t failure = observe_call("mutex_create", "")) {
        return failure;
    }
    *created = static_cast<mutex *>(CreateMutexA(nullptr, FALSE, nullptr));
    return error_unless(*created != nullptr);
}

void mutex_destroy(mutex *unlocked) {
    if (unlocked) {
        CloseHandle(unlocked);
    }
}

// A mutex whose owner has ended without unlocking it is locked all the same.
uint32_t mutex_lock(mutex *locked) {
    if (const uint32_t failure = observe_call("mutex_lock", "")) {
        return failure;
    }
    return error_unless(WaitForSingleObject(locked, INFINITE) != WAIT_FAILED);
}

uint32_t mutex_unlock(mutex *locked) {
    const uint32_t failure = observe_call("mutex_unlock", "");
    return failure ? failure : error_unless(ReleaseMutex(locked));
}

} // namespace quillfence::platform
