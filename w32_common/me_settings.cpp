#include "me_settings.h"

#include <cstdint>

#include "evidence.h"
#include "registry.h"

namespace quillfence {

static constexpr uint32_t longest_directory = 512;

char *me_configuration_directory(const char *key) {
    char *directory = nullptr;
    if (vc_regkey_exists_ex(vc_regroot::local_machine, key, me_configuration_value)) {
        vc_regkey_get_ex(vc_regroot::local_machine, key, me_configuration_value, longest_directory,
                         &directory);
    }
    tell(&evidence_sink::looked_at_registry, {.key = key,
                                              .value = me_configuration_value,
                                              .found = directory != nullptr,
                                              .data = directory});
    return directory;
}

} // namespace quillfence
