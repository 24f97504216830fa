#include "me_settings.h"

#include <cstdint>
#include <cstring>

#include "evidence.h"
#include "registry.h"

namespace quillfence {

using platform::registry_read;
using platform::registry_text;

static constexpr uint32_t longest_directory = 512;

// Something stands there that is no directory.
static void tell_what_is_there(const char *key) {
    vc_regkey *const opened = vc_regkey_open_ex(vc_regroot::local_machine, key, registry_read);
    vc_regkey_tell(opened, key, me_configuration_value);
    vc_regkey_close(opened);
}

static void tell_directory(const char *key, const char *directory) {
    tell(&evidence_sink::looked_at_registry,
         {.key = key,
          .value = me_configuration_value,
          .found = directory != nullptr,
          .type = registry_text,
          .data = directory,
          .size = static_cast<uint32_t>(directory ? strlen(directory) + 1 : 0)});
}

char *me_configuration_directory(const char *key) {
    constexpr vc_regroot root = vc_regroot::local_machine;
    char *directory = nullptr;
    const bool is_there = vc_regkey_exists_ex(root, key, me_configuration_value);
    if (is_there) {
        vc_regkey_get_ex(root, key, me_configuration_value, longest_directory, &directory);
    }
    if (is_there && !directory && asked()) {
        tell_what_is_there(key);
    } else {
        tell_directory(key, directory);
    }
    return directory;
}

} // namespace quillfence
