// The calls of platform/registry.h that are the same on both systems.
#include "platform/observer.h"
#include "registry_in_export.h"

namespace quillfence::platform {

uint32_t registry_open(registry_root root, const char *path, uint32_t access,
                       registry_key **opened) {
    *opened = nullptr;
    const uint32_t failure = observe_call("registry_open", path);
    return failure ? failure : open_registry_key(root, path, access, false, opened);
}

uint32_t registry_create(registry_root root, const char *path, uint32_t access,
                         registry_key **opened) {
    *opened = nullptr;
    const uint32_t failure = observe_call("registry_create", path);
    return failure ? failure : open_registry_key(root, path, access, true, opened);
}

} // namespace quillfence::platform
