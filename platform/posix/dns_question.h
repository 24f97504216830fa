// A DNS question as it is sent.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence::platform {

struct dns_question {
    unsigned char bytes[512];
    size_t size;
};

// The question for a name's records of a type, recursion desired, with an identifier that can't be
// guessed. A final dot of the name makes no difference. error_invalid_name when the name can't be
// asked: empty, or with an empty or too long label, or too long.
uint32_t make_dns_question(const char *name, uint16_t type, dns_question *out);

} // namespace quillfence::platform
