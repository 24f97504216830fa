// Reads a DNS message as it came from a server. A pure function from bytes to status and records:
// every read is checked against the message's size, a compressed name may only point backwards
// and at most 127 times, and nothing of the message is believed before it has been looked at.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/dns.h"

namespace quillfence::platform {

// Reads the header, skips the questions and gathers the answer section; the sections behind it
// are not looked at. Returns 0 with the records (never none), 9501, 9000 + the response code
// whatever the answer section holds, 9502 for a message that ends early, is no answer or holds a
// name that can't be read, or 8 without memory. *records is null unless the result is 0.
//
// Targets are given for PTR records of the Internet class. Their text is that of a zone file, so
// that a hostile name can't pass for another one: a dot or backslash inside a label gets a
// backslash in front, and a byte outside 0x21-0x7E is a backslash and three decimal digits.
//
// details, when not null, receives the response code and the texts of all records, also of those
// next to a response code; of an answer that can't be read, those before the place of the damage.
uint32_t read_dns_answer(const void *message, size_t size, dns_record **records,
                         dns_details *details = nullptr);

} // namespace quillfence::platform
