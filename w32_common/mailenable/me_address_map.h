// Where Mail Enable delivers an address: its address map, the library "MEAIAM.dll".
//
// ERROR lines name the operation and "w32_common/me_address_map". That there is no such library, as
// on every machine without Mail Enable, is none.
#pragma once

namespace quillfence {

inline constexpr int me_whole_destination = 0; // "[SF:example.com/alice]"
inline constexpr int me_postoffice = 1;        // "example.com": between the first ":" and "/"
inline constexpr int me_mailbox = 2;           // "alice": from behind the first "/" up to "]"

// The destination of a mail address, or the part of it that mode names; a new string that the
// caller frees. Null when the map does not know the address, the address is too long for it
// ("[SMTP:%s]" above 1023 characters), or the destination lacks a separator of the part.
// The library is looked for once in the life of the process, also when it is not found.
// ERROR lines: EINVAL for an empty address or another mode, ENOMEM.
char *load_me_destination_address_ex(const char *address, int mode);

// Takes a whole destination apart: 1 and two new strings that the caller frees, else 0 and both
// left alone. ":", "/" and "]" must be there, in this order.
// ERROR lines: EINVAL for an empty destination or a null place, ENOMEM.
int split_full_destination_address(const char *destination, char **postoffice, char **mailbox);

// Forgets whether the library was found, so that the next call looks again. For tests.
void forget_address_map();

} // namespace quillfence
