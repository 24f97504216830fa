#include "platform/net.h"

#include <arpa/inet.h>

#include "../address_text.h"
#include "platform/observer.h"

namespace quillfence::platform {

static net_prepare_stand_in stand_in_for_prepare;

static net_status prepare(const char *entry, int *error) {
    *error = 0;
    if (stand_in_for_prepare) {
        return stand_in_for_prepare(entry, error);
    }
    if (const uint32_t failure = observe_call("net_prepare", entry)) {
        *error = static_cast<int>(failure);
        return net_status::startup_failed;
    }
    return net_status::ok;
}

net_status net_prepare_pton(int *error) {
    return prepare("inet_pton", error);
}

net_status net_prepare_ntop(int *error) {
    return prepare("inet_ntop", error);
}

bool net_pton(int family, const char *text, void *binary) {
    if (family == family_ipv4) {
        return ipv4_from_text(text, static_cast<unsigned char *>(binary));
    }
    return family == family_ipv6 && ipv6_text_is_strict(text) &&
           inet_pton(AF_INET6, text, binary) == 1;
}

const char *net_ntop(int family, const void *binary, char *text, size_t size) {
    if (family == family_ipv4) {
        return inet_ntop(AF_INET, binary, text, static_cast<socklen_t>(size));
    }
    return family == family_ipv6
               ? ipv6_to_text(static_cast<const unsigned char *>(binary), text, size)
               : nullptr;
}

uint32_t net_inet_addr(const char *text) {
    return inet_addr(text);
}

void set_net_prepare_stand_in(net_prepare_stand_in stand_in) {
    stand_in_for_prepare = stand_in;
}

} // namespace quillfence::platform
