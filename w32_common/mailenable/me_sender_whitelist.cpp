#include "me_sender_whitelist.h"

namespace quillfence {

int is_mailenable_sender_whitelist(const char *, const char *) {
    return 0; // no Mail Enable settings can be read yet
}

} // namespace quillfence
