#include "platform/process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

#include "errors.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {

struct mutex {
    pthread_mutex_t native;
};

static uint32_t copy_text(const char *text, size_t length, char *buffer, size_t size) {
    if (length >= size) {
        return error_insufficient_buffer;
    }
    memcpy(buffer, text, length);
    buffer[length] = '\0';
    return error_none;
}

uint32_t process_id() {
    return static_cast<uint32_t>(getpid());
}

uint32_t thread_id() {
    return static_cast<uint32_t>(gettid());
}

uint32_t environment_variable(const char *name, char *buffer, uint32_t size) {
    if (!name || observe_call("environment_variable", name)) {
        return 0;
    }
    const char *const value = getenv(name);
    if (!value) {
        return 0;
    }
    const size_t length = strlen(value);
    const bool fits = copy_text(value, length, buffer, size) == error_none;
    return static_cast<uint32_t>(fits ? length : length + 1);
}

bool environment_has(const char *name) {
    return name && !observe_call("environment_has", name) && getenv(name);
}

bool environment_set(const char *name, const char *value) {
    return (value ? setenv(name, value, 1) : unsetenv(name)) == 0;
}

// A tracer is named in the process's status.
bool debugger_present() {
    FILE *const status = fopen("/proc/self/status", "re");
    if (!status) {
        return false;
    }
    char line[256];
    long tracer = 0;
    while (fgets(line, sizeof line, status)) {
        if (strncmp(line, "TracerPid:", 10) == 0) {
            tracer = strtol(line + 10, nullptr, 10);
            break;
        }
    }
    fclose(status);
    return tracer != 0;
}

void debugger_break() {
    raise(SIGTRAP);
}

static const char *stand_in_for_hosts_file;

void set_hosts_file_stand_in(const char *path) {
    stand_in_for_hosts_file = path;
}

uint32_t hosts_file_path(char *buffer, size_t size) {
    if (const uint32_t failure = observe_call("hosts_file_path", "")) {
        return failure;
    }
    const char *const path = stand_in_for_hosts_file ? stand_in_for_hosts_file : "/etc/hosts";
    return copy_text(path, strlen(path), buffer, size);
}

uint32_t temp_directory(char *buffer, size_t size) {
    if (const uint32_t failure = observe_call("temp_directory", "")) {
        return failure;
    }
    const char *path = getenv("TMPDIR");
    if (!path || !*path) {
        path = "/tmp";
    }
    size_t length = strlen(path);
    while (length > 1 && path[length - 1] == '/') {
        --length;
    }
    return copy_text(path, length, buffer, size);
}

// Recursive, as a mutex of Windows is.
static int start_mutex(pthread_mutex_t *native) {
    pthread_mutexattr_t attributes;
    int number = pthread_mutexattr_init(&attributes);
    if (number == 0) {
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        number = pthread_mutex_init(native, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    return number;
}

uint32_t mutex_create(mutex **created) {
    *created = nullptr;
    if (const uint32_t failure = observe_call("mutex_create", "")) {
        return failure;
    }
    auto *const made = static_cast<mutex *>(malloc(sizeof(mutex)));
    if (!made) {
        return error_not_enough_memory;
    }
    if (const int number = start_mutex(&made->native)) {
        free(made);
        return error_of_errno(number);
    }
    *created = made;
    return error_none;
}

void mutex_destroy(mutex *unlocked) {
    if (unlocked) {
        pthread_mutex_destroy(&unlocked->native);
        free(unlocked);
    }
}

uint32_t mutex_lock(mutex *locked) {
    if (const uint32_t failure = observe_call("mutex_lock", "")) {
        return failure;
    }
    return locked ? error_of_errno(pthread_mutex_lock(&locked->native)) : error_invalid_handle;
}

uint32_t mutex_unlock(mutex *locked) {
    if (const uint32_t failure = observe_call("mutex_unlock", "")) {
        return failure;
    }
    if (!locked) {
        return error_invalid_handle;
    }
    const int number = pthread_mutex_unlock(&locked->native);
    return number == EPERM ? error_not_owner : error_of_errno(number);
}

} // namespace quillfence::platform
