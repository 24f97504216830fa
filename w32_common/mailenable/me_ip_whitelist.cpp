#include "me_ip_whitelist.h"

namespace quillfence {

int is_mailenable_ip_whitelist(const char *) {
    return 0; // no Mail Enable settings can be read yet
}

} // namespace quillfence
