#include "is_local_domain.h"

namespace quillfence {

int is_local_domain(const char *) {
    return 0; // no Mail Enable settings can be read yet
}

} // namespace quillfence
