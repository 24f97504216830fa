#include "address_text.h"

#include <cstring>

#include "platform/format.h"

namespace quillfence::platform {

static constexpr int group_count = 8;
static constexpr size_t longest_ipv6_text = 45; // "ffff:...:ffff:255.255.255.255" of eight groups

static bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

static bool is_hex_digit(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// A group of an address: a 16-bit number in network order.
static unsigned group_of(const unsigned char *address, int index) {
    return static_cast<unsigned>(address[2 * index] << 8 | address[2 * index + 1]);
}

// How many of the leading groups are written in hexadecimal: 6 before a dotted quad, else all 8.
static int hexadecimal_groups(const unsigned char *address) {
    static constexpr unsigned char no_bytes[8] = {};
    const unsigned fifth = group_of(address, 4);
    const unsigned sixth = group_of(address, 5);
    const bool isatap = (fifth & ~0x200u) == 0 && sixth == 0x5efe;
    const bool in_zero_prefix = memcmp(address, no_bytes, sizeof no_bytes) == 0;
    const bool compatible_or_mapped = fifth == 0 && (sixth == 0 || sixth == 0xffff);
    const bool translated = fifth == 0xffff && sixth == 0;
    const bool has_quad = group_of(address, 6) != 0 && (compatible_or_mapped || translated);
    return isatap || (in_zero_prefix && has_quad) ? 6 : group_count;
}

namespace {

struct zero_run {
    int begin;
    int end;
};

} // namespace

// The longest run of zero groups among the first `groups`, {-1, -1} when none is longer than one.
static zero_run longest_zero_run(const unsigned char *address, int groups) {
    zero_run longest = {-1, -1};
    int begin = 0;
    for (int i = 0; i < groups; ++i) {
        if (group_of(address, i) != 0) {
            begin = i + 1;
        } else if (i + 1 - begin > 1 && i + 1 - begin > longest.end - longest.begin) {
            longest = {begin, i + 1};
        }
    }
    return longest;
}

// A number of a dotted quad, which *text is moved behind; -1 when there is none.
static int take_number(const char **text) {
    static constexpr int largest = 255;
    const char *at = *text;
    int number = -1;
    while (is_digit(*at) && number != 0 && number <= largest) {
        number = (number < 0 ? 0 : number * 10) + (*at++ - '0');
    }
    *text = at;
    return number > largest || is_digit(*at) ? -1 : number;
}

bool ipv4_from_text(const char *text, unsigned char *address) {
    unsigned char bytes[4];
    for (int i = 0; i < 4; ++i) {
        if (i > 0 && *text++ != '.') {
            return false;
        }
        const int number = take_number(&text);
        if (number < 0) {
            return false;
        }
        bytes[i] = static_cast<unsigned char>(number);
    }
    if (*text) {
        return false;
    }
    memcpy(address, bytes, sizeof bytes);
    return true;
}

bool ipv6_text_is_strict(const char *text) {
    const char *const text_begin = text;
    const char *group = text; // where the current group begins
    for (; *text; ++text) {
        if (*text == ':') {
            group = text + 1;
        } else if (*text == '.') {
            unsigned char quad[4];
            return group != text_begin && ipv4_from_text(group, quad);
        } else if (!is_hex_digit(*text) || text - group >= 4) {
            return false;
        }
    }
    return true;
}

const char *ipv6_to_text(const unsigned char *address, char *text, size_t size) {
    char built[longest_ipv6_text + 1];
    size_t length = 0;
    const auto append = [&](const char *format, unsigned number) {
        const int added = format_text(built + length, sizeof built - length, format, number);
        length += added > 0 ? static_cast<size_t>(added) : 0;
    };
    const int groups = hexadecimal_groups(address);
    const zero_run run = longest_zero_run(address, groups);
    built[0] = '\0';
    for (int i = 0; i < groups; ++i) {
        if (i == run.begin) {
            append("::", 0);
            i = run.end - 1;
        } else {
            append(i == 0 || i == run.end ? "%x" : ":%x", group_of(address, i));
        }
    }
    if (groups < group_count) {
        const bool after_run = run.end == groups;
        append(after_run ? "%u" : ":%u", address[12]);
        append(".%u", address[13]);
        append(".%u", address[14]);
        append(".%u", address[15]);
    }
    if (length >= size) {
        return nullptr;
    }
    memcpy(text, built, length + 1);
    return text;
}

} // namespace quillfence::platform
