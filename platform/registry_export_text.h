// What reading and writing registry exports share: the text of an export as units, names of its
// header and roots, growing bytes, and UTF-8. Internal to the seam.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/registry.h"

namespace quillfence::platform {

// An export's text behind its byte order mark: units of 16 bits (little-endian) or of 8.
struct export_text {
    const unsigned char *bytes;
    size_t count; // of units; half a unit at the end does not count
    bool wide;
    bool version_5; // hexadecimal texts hold UTF-16 in version 5, and plain bytes in "REGEDIT4"
};

inline constexpr unsigned end_of_text = 0xFFFFFFFF;

// The unit at a place, end_of_text behind the last.
inline unsigned unit_at(const export_text &text, size_t at) {
    if (at >= text.count) {
        return end_of_text;
    }
    return text.wide ? static_cast<unsigned>(text.bytes[2 * at] | text.bytes[2 * at + 1] << 8)
                     : text.bytes[at];
}

// Finds out about the text of a file. False when it does not begin with a header of exports.
bool begin_export_text(const void *bytes, size_t size, export_text *text);

inline constexpr char export_header_5[] = "Windows Registry Editor Version 5.00";
inline constexpr char export_header_4[] = "REGEDIT4";

struct root_names {
    registry_root root;
    const char *long_name, *short_name;
};
inline constexpr root_names export_roots[] = {
    {registry_root::classes_root, "HKEY_CLASSES_ROOT", "HKCR"},
    {registry_root::current_user, "HKEY_CURRENT_USER", "HKCU"},
    {registry_root::local_machine, "HKEY_LOCAL_MACHINE", "HKLM"},
    {registry_root::users, "HKEY_USERS", "HKU"},
    {registry_root::current_config, "HKEY_CURRENT_CONFIG", "HKCC"},
};

constexpr unsigned fold_unit(unsigned unit) {
    return unit >= 'a' && unit <= 'z' ? unit - 'a' + 'A' : unit;
}

// Bytes that grow. Once memory has run out it takes no more and says so.
struct growing_bytes {
    unsigned char *bytes;
    size_t size;
    size_t capacity;
    bool no_memory;
};

inline void append_bytes(growing_bytes *to, const void *bytes, size_t size) {
    if (to->no_memory || !size) {
        return;
    }
    if (to->capacity - to->size < size) {
        const size_t doubled = to->capacity ? 2 * to->capacity : 64;
        const size_t capacity = doubled - to->size < size ? to->size + size : doubled;
        void *const grown = realloc(to->bytes, capacity);
        if (!grown) {
            to->no_memory = true;
            return;
        }
        to->bytes = static_cast<unsigned char *>(grown);
        to->capacity = capacity;
    }
    memcpy(to->bytes + to->size, bytes, size);
    to->size += size;
}

inline void append_byte(growing_bytes *to, unsigned byte) {
    const auto one = static_cast<unsigned char>(byte);
    append_bytes(to, &one, 1);
}

inline constexpr unsigned replacement_character = 0xFFFD;

inline void append_utf8(growing_bytes *to, unsigned point) {
    if (point < 0x80) {
        append_byte(to, point);
        return;
    }
    if (point < 0x800) {
        append_byte(to, 0xC0 | point >> 6);
    } else {
        if (point < 0x10000) {
            append_byte(to, 0xE0 | point >> 12);
        } else {
            append_byte(to, 0xF0 | point >> 18);
            append_byte(to, 0x80 | (point >> 12 & 0x3F));
        }
        append_byte(to, 0x80 | (point >> 6 & 0x3F));
    }
    append_byte(to, 0x80 | (point & 0x3F));
}

// UTF-16 units on their way to UTF-8: a pair of surrogates is one character, a lone one U+FFFD.
struct utf16_decoder {
    growing_bytes *to;
    unsigned high; // a high surrogate that waits for its low one, or 0
};

inline void end_utf16(utf16_decoder *decoder) {
    if (decoder->high) {
        append_utf8(decoder->to, replacement_character);
        decoder->high = 0;
    }
}

inline void decode_utf16(utf16_decoder *decoder, unsigned unit) {
    const bool is_low = unit >= 0xDC00 && unit <= 0xDFFF;
    if (decoder->high && is_low) {
        append_utf8(decoder->to, 0x10000 + ((decoder->high - 0xD800) << 10) + (unit - 0xDC00));
        decoder->high = 0;
        return;
    }
    end_utf16(decoder);
    if (unit >= 0xD800 && unit <= 0xDBFF) {
        decoder->high = unit;
    } else {
        append_utf8(decoder->to, is_low ? replacement_character : unit);
    }
}

// The next character of size bytes of UTF-8 from *at on, which moves behind it. A byte that does
// not begin a character is U+FFFD.
inline unsigned take_utf8(const unsigned char *bytes, size_t size, size_t *at) {
    const unsigned first = bytes[(*at)++];
    const unsigned length = first < 0x80                    ? 0
                            : first >= 0xC2 && first < 0xE0 ? 1
                            : first >= 0xE0 && first < 0xF0 ? 2
                            : first >= 0xF0 && first < 0xF5 ? 3
                                                            : 4;
    if (length == 0) {
        return first;
    }
    if (length > 3 || size - *at < length) {
        return replacement_character;
    }
    unsigned point = first & (0x3FU >> length);
    for (unsigned i = 0; i < length; ++i) {
        const unsigned next = bytes[*at + i];
        if ((next & 0xC0) != 0x80) {
            return replacement_character;
        }
        point = point << 6 | (next & 0x3F);
    }
    constexpr unsigned least[] = {0, 0x80, 0x800, 0x10000};
    if (point < least[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
        return replacement_character;
    }
    *at += length;
    return point;
}

inline void append_unit(growing_bytes *to, unsigned unit) {
    append_byte(to, unit & 0xFF);
    append_byte(to, unit >> 8);
}

// A character as one or two units of UTF-16.
inline void append_utf16(growing_bytes *to, unsigned point) {
    if (point >= 0x10000) {
        append_unit(to, 0xD800 + ((point - 0x10000) >> 10));
        append_unit(to, 0xDC00 + ((point - 0x10000) & 0x3FF));
    } else {
        append_unit(to, point);
    }
}

} // namespace quillfence::platform
