// The process and its surroundings.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence::platform {

// The numbers by which the system knows the process and the calling thread.
uint32_t process_id();
uint32_t thread_id();

// The value of an environment variable, as GetEnvironmentVariableA gives it: 0 when it is not
// set (or set empty); the length without the NUL when it fits into size bytes; otherwise the size
// that it needs, NUL included, with the buffer left as it was. A null name is not set.
uint32_t environment_variable(const char *name, char *buffer, uint32_t size);
// Whether a variable is set at all, empty or not.
bool environment_has(const char *name);
// Sets a variable for this process, or removes it when value is null. For tests.
bool environment_set(const char *name, const char *value);

// Whether a debugger is attached, and a stop in it; without one, the stop ends the process.
bool debugger_present();
void debugger_break();

// The path of the hosts file: "\drivers\etc\HOSTS" below the Windows system directory, or
// "/etc/hosts". 0 or a Win32 error number (122 when it does not fit into size bytes).
uint32_t hosts_file_path(char *buffer, size_t size);
// Another path in its place, for tests; borrowed. Null restores the system's.
void set_hosts_file_stand_in(const char *path);

// A directory for temporary files, without a trailing separator: GetTempPathA's, or TMPDIR, or
// "/tmp". 0 or a Win32 error number (122 when it does not fit into size bytes).
uint32_t temp_directory(char *buffer, size_t size);

// A lock between threads. Numbers are Win32 error numbers, 0 for success.
struct mutex;                           // opaque
uint32_t mutex_create(mutex **created); // *created is null on failure
void mutex_destroy(mutex *unlocked);    // null is accepted
// Waits without a time limit. The thread that has locked it may lock it again, and unlocks it as
// often. Null: error 6.
uint32_t mutex_lock(mutex *locked);
// Error 288 when the calling thread has not locked it.
uint32_t mutex_unlock(mutex *locked);

} // namespace quillfence::platform
