#include "platform/dynamic_library.h"

#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

dynamic_library *library_open(const char *name) {
    if (!name || !*name || observe_call("library_open", name)) {
        return nullptr;
    }
    HMODULE module = GetModuleHandleA(name);
    if (!module) {
        module = LoadLibraryA(name);
    }
    return reinterpret_cast<dynamic_library *>(module);
}

void *library_symbol(dynamic_library *library, const char *name) {
    if (!library || !name || observe_call("library_symbol", name)) {
        return nullptr;
    }
    return reinterpret_cast<void *>(GetProcAddress(reinterpret_cast<HMODULE>(library), name));
}

} // namespace quillfence::platform
