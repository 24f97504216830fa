#include "dns_question.h"

#include <sys/random.h>

#include <cstring>

#include "platform/error_numbers.h"

namespace quillfence::platform {

// --- the question ---

// The name in wire form; a final dot makes no difference. False for a name that can't be asked.
static bool put_name(const char *name, dns_question *out) {
    constexpr size_t max_label = 63;
    constexpr size_t max_name = 255;
    const size_t start = out->size;
    if (!strcmp(name, ".")) {
        name = "";
    } else if (!*name) {
        return false;
    }
    while (*name) {
        const size_t length = strcspn(name, ".");
        if (length == 0 || length > max_label || out->size - start + length + 2 > max_name) {
            return false;
        }
        out->bytes[out->size++] = static_cast<unsigned char>(length);
        memcpy(out->bytes + out->size, name, length);
        out->size += length;
        name += length + (name[length] == '.');
    }
    out->bytes[out->size++] = 0;
    return true;
}

static void put_u16(unsigned value, dns_question *out) {
    out->bytes[out->size++] = static_cast<unsigned char>(value >> 8);
    out->bytes[out->size++] = static_cast<unsigned char>(value);
}

uint32_t make_dns_question(const char *name, uint16_t type, dns_question *out) {
    constexpr unsigned recursion_desired = 0x0100;
    constexpr unsigned class_internet = 1;
    uint16_t identifier = 0;
    if (getrandom(&identifier, sizeof identifier, 0) != sizeof identifier) {
        return error_gen_failure;
    }
    out->size = 0;
    put_u16(identifier, out);
    put_u16(recursion_desired, out);
    put_u16(1, out); // one question, nothing else
    put_u16(0, out);
    put_u16(0, out);
    put_u16(0, out);
    if (!put_name(name, out)) {
        return error_invalid_name;
    }
    put_u16(type, out);
    put_u16(class_internet, out);
    return error_none;
}

} // namespace quillfence::platform
