#include "platform/dynamic_library.h"

#include <dlfcn.h>

#include "platform/observer.h"

namespace quillfence::platform {

dynamic_library *library_open(const char *name) {
    if (!name || !*name || observe_call("library_open", name)) {
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
