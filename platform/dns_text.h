// DNS data as text that is safe to show: all of it is printable ASCII. Internal to platform/.
#pragma once

namespace quillfence::platform {

// The longest text of a byte: a backslash and three digits.
inline constexpr int dns_byte_text_max = 4;

// Room for the text of any record of dns_details.
inline constexpr int dns_record_text_size = 1024 * dns_byte_text_max + 64;

// A byte outside 0x21-0x7E becomes a backslash and three decimal digits, any other stays. Returns
// the place behind what was written.
inline char *write_dns_byte(char *text, unsigned char byte) {
    if (byte > 0x20 && byte < 0x7F) {
        *text++ = static_cast<char>(byte);
        return text;
    }
    *text++ = '\\';
    *text++ = static_cast<char>('0' + byte / 100);
    *text++ = static_cast<char>('0' + byte / 10 % 10);
    *text++ = static_cast<char>('0' + byte % 10);
    return text;
}

} // namespace quillfence::platform
