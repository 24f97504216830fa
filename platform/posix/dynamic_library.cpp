#include "platform/dynamic_library.h"

#include <cstdlib>
#include <cstring>

#include <dlfcn.h>

#include "platform/observer.h"

namespace quillfence::platform {

// The program's libraries are Windows DLLs, which no Linux installs: only a folder that the
// administrator names can hold one. Asking the loader all the same costs some eighty system calls.
static bool can_be_found(const char *name) {
    if (strchr(name, '/')) {
        return true;
    }
    const char *const folders = getenv("LD_LIBRARY_PATH");
    return folders && *folders;
}

dynamic_library *library_open(const char *name) {
    if (!name || !*name || !can_be_found(name) || observe_call("library_open", name)) {
        return nullptr;
    }
    return static_cast<dynamic_library *>(dlopen(name, RTLD_NOW | RTLD_LOCAL));
}

void *library_symbol(dynamic_library *library, const char *name) {
    if (!library || !name || observe_call("library_symbol", name)) {
        return nullptr;
    }
    return dlsym(library, name);
}

} // namespace quillfence::platform
