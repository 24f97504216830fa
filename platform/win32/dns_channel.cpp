// The system's client asks one question at a time.
#include "platform/dns_channel.h"

#include "platform/error_numbers.h"

namespace quillfence::platform {

uint32_t dns_channel_open(const char *, dns_channel_listener, void *, dns_channel **opened) {
    *opened = nullptr;
    return error_not_supported;
}

void dns_channel_close(dns_channel *) {}

void dns_channel_ask(dns_channel *, const char *, uint16_t, int64_t, void *) {}

void dns_channel_work(dns_channel *, int64_t) {}

void dns_channel_wake(dns_channel *) {}

int dns_channel_send(dns_channel *) {
    return -1;
}

void dns_channel_take(dns_channel *, int) {}

intptr_t dns_channel_descriptor(const dns_channel *) {
    return -1;
}

} // namespace quillfence::platform
