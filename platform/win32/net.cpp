#include "platform/net.h"

#include "../address_text.h"
#include "platform/dynamic_library.h"
#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

namespace {

using pton_function = int(WSAAPI *)(int family, const char *text, void *binary);
using ntop_function = const char *(WSAAPI *)(int family, const void *binary, char *text,
                                             size_t size);

} // namespace

static net_prepare_stand_in stand_in_for_prepare;
static bool started;
static pton_function system_pton;
static ntop_function system_ntop;

static int start_winsock() {
    if (started) {
        return 0;
    }
    WSADATA facts;
    const int error = WSAStartup(MAKEWORD(2, 2), &facts);
    started = error == 0;
    return error;
}

template <class function>
static net_status prepare(const char *name, function *entry, int *error) {
    *error = 0;
    if (stand_in_for_prepare) {
        const net_status status = stand_in_for_prepare(name, error);
        if (status != net_status::ok) {
            return status;
        }
    }
    if (*entry) {
        return net_status::ok;
    }
    *error = static_cast<int>(observe_call("net_prepare", name));
    if (*error) {
        return net_status::startup_failed;
    }
    dynamic_library *const winsock = library_open("ws2_32.dll");
    if (!winsock) {
        return net_status::no_library;
    }
    *error = start_winsock();
    if (*error) {
        return net_status::startup_failed;
    }
    *entry = reinterpret_cast<function>(library_symbol(winsock, name));
    return *entry ? net_status::ok : net_status::no_entry;
}

net_status net_prepare_pton(int *error) {
    return prepare("inet_pton", &system_pton, error);
}

net_status net_prepare_ntop(int *error) {
    return prepare("inet_ntop", &system_ntop, error);
}

bool net_pton(int family, const char *text, void *binary) {
    if (!system_pton) {
        return false;
    }
    if (family == family_ipv4) {
        return ipv4_from_text(text, static_cast<unsigned char *>(binary));
    }
    return family == family_ipv6 && ipv6_text_is_strict(text) &&
           system_pton(AF_INET6, text, binary) == 1;
}

const char *net_ntop(int family, const void *binary, char *text, size_t size) {
    if (!system_ntop) {
        return nullptr;
    }
    if (family == family_ipv4) {
        return system_ntop(AF_INET, binary, text, size);
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
