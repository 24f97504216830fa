#include "platform/dns_answer.h"

#include "address_text.h"
#include "dns_text.h"
#include "platform/error_numbers.h"
#include "platform/format.h"

namespace quillfence::platform {

namespace {

// Integers are big-endian here. Once something did not fit, every later read gives zeros.
struct message_reader {
    const unsigned char *bytes;
    size_t size;
    size_t offset; // never above size
    bool failed;
};

struct message_header {
    uint16_t flags;
    uint16_t questions;
    uint16_t answers;
};

struct record_header {
    uint16_t type;
    uint16_t record_class;
    uint16_t length; // of the data that follows
};

} // namespace

static constexpr uint16_t flag_response = 0x8000;
static constexpr uint16_t mask_response_code = 0x000F;
static constexpr uint16_t class_internet = 1;

// A label's first byte: its length, or the upper part of a pointer to an earlier name.
static constexpr unsigned char mask_pointer = 0xC0;
static constexpr size_t max_wire_name = 255;
// A name has no more labels than this. Servers write no pointer to a bare pointer, so that there is
// no need for more jumps, either.
static constexpr unsigned max_jumps = max_wire_name / 2;
// Every byte of a name may become four characters, and every length byte a dot.
static constexpr size_t name_text_size = 4 * max_wire_name + 1;

static void skip(message_reader *in, size_t count) {
    if (in->failed || in->size - in->offset < count) {
        in->failed = true;
        return;
    }
    in->offset += count;
}

static unsigned char take_u8(message_reader *in) {
    const size_t at = in->offset;
    skip(in, 1);
    return in->failed ? static_cast<unsigned char>(0) : in->bytes[at];
}

static uint16_t take_u16(message_reader *in) {
    const unsigned upper = take_u8(in);
    const unsigned lower = take_u8(in);
    return static_cast<uint16_t>(upper << 8 | lower);
}

static message_header take_header(message_reader *in) {
    message_header header{};
    skip(in, 2); // the identifier has done its work
    header.flags = take_u16(in);
    header.questions = take_u16(in);
    header.answers = take_u16(in);
    skip(in, 4);
    return header;
}

static record_header take_record_header(message_reader *in) {
    record_header header{};
    header.type = take_u16(in);
    header.record_class = take_u16(in);
    skip(in, 4); // how long it may be kept
    header.length = take_u16(in);
    return header;
}

// Moves behind a name without following its pointer.
static void skip_name(message_reader *in) {
    while (!in->failed) {
        const unsigned char length = take_u8(in);
        if ((length & mask_pointer) == mask_pointer) {
            skip(in, 1);
            return;
        }
        if (length & mask_pointer) {
            in->failed = true;
        } else if (length == 0) {
            return;
        } else {
            skip(in, length);
        }
    }
}

// A label's byte as text; returns the place behind it.
static char *write_label_byte(char *text, unsigned char byte) {
    if (byte == '.' || byte == '\\') {
        *text++ = '\\';
        *text++ = static_cast<char>(byte);
        return text;
    }
    return write_dns_byte(text, byte);
}

// The name at the reader's place, pointers followed, as text of at most name_text_size bytes.
// Each jump must lead in front of the part that it leaves, so that there is an end.
static void expand_name(message_reader in, bool *failed, char *text) {
    char *end = text;
    size_t part_start = in.offset;
    size_t wire_length = 1;
    unsigned jumps = 0;
    while (const unsigned char length = take_u8(&in)) {
        if ((length & mask_pointer) == mask_pointer) {
            const size_t target = static_cast<size_t>(length & ~mask_pointer) << 8 | take_u8(&in);
            if (in.failed || target >= part_start || ++jumps > max_jumps) {
                in.failed = true;
                break;
            }
            in.offset = part_start = target;
            continue;
        }
        wire_length += 1u + length;
        if (length & mask_pointer || wire_length > max_wire_name) {
            in.failed = true;
            break;
        }
        const unsigned char *const label = in.bytes + in.offset;
        skip(&in, length);
        if (in.failed) {
            break;
        }
        if (end != text) {
            *end++ = '.';
        }
        for (size_t i = 0; i < length; ++i) {
            end = write_label_byte(end, label[i]);
        }
    }
    *end = '\0';
    *failed = in.failed;
}

// The name that takes up the whole of a record's data, which ends at an offset; without final dot.
static bool read_name(const message_reader &data, size_t end, char *text) {
    message_reader behind = data;
    skip_name(&behind);
    bool failed = false;
    expand_name(data, &failed, text);
    return !failed && behind.offset == end;
}

// --- records as text ---

static bool write_address(message_reader data, char *text, size_t size) {
    const unsigned char *const bytes = data.bytes + data.offset;
    return format_text(text, size, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]) > 0;
}

static bool write_name_data(const message_reader &data, size_t end, char *text, size_t size) {
    char name[name_text_size];
    return read_name(data, end, name) && format_text(text, size, "%s.", name) > 0;
}

static bool write_exchanger(message_reader data, size_t end, char *text, size_t size) {
    const int preference = take_u16(&data);
    char name[name_text_size];
    return read_name(data, end, name) && format_text(text, size, "%d %s.", preference, name) > 0;
}

// The data in its type's own form; false when it has none or is not in it.
static bool write_data(uint16_t type, const message_reader &data, size_t end, char *text,
                       size_t size) {
    const size_t length = end - data.offset;
    switch (type) {
    case dns_type_a:
        return length == 4 && write_address(data, text, size);
    case dns_type_aaaa:
        return length == 16 && ipv6_to_text(data.bytes + data.offset, text, size);
    case dns_type_ns:
    case dns_type_cname:
    case dns_type_ptr:
        return write_name_data(data, end, text, size);
    case dns_type_mx:
        return length > 2 && write_exchanger(data, end, text, size);
    default:
        return false;
    }
}

// The form of RFC 3597 for any data.
static void write_unknown_data(const message_reader &data, size_t end, char *text, size_t size) {
    const size_t length = end - data.offset;
    int used = format_text(text, size, "\\# %zu%s", length, length ? " " : "");
    for (size_t i = 0; i < length && i < dns_detail_data_max; ++i) {
        used += format_text(text + used, size - static_cast<size_t>(used), "%02x",
                            data.bytes[data.offset + i]);
    }
    if (length > dns_detail_data_max) {
        format_text(text + used, size - static_cast<size_t>(used), "...");
    }
}

static void detail_record(const record_header &header, const message_reader &data, size_t end,
                          dns_details *details) {
    char text[dns_record_text_size];
    char type[dns_type_name_size];
    const bool internet = header.record_class == class_internet;
    int used = 0;
    if (!internet) {
        used = format_text(text, sizeof text, "CLASS%d ", static_cast<int>(header.record_class));
    }
    used += format_text(text + used, sizeof text - static_cast<size_t>(used), "%s ",
                        dns_type_name(header.type, type));
    char *const rest = text + used;
    const size_t size = sizeof text - static_cast<size_t>(used);
    if (!internet || !write_data(header.type, data, end, rest, size)) {
        write_unknown_data(data, end, rest, size);
    }
    dns_details_add(details, header.type, text);
}

// Reads one record of the answer section. 0, 8 or 9502.
static uint32_t take_record(message_reader *in, dns_record **record, dns_details *details) {
    skip_name(in);
    const record_header header = take_record_header(in);
    const message_reader data = *in;
    skip(in, header.length);
    if (in->failed) {
        return dns_status_bad_packet;
    }
    char text[name_text_size];
    const bool has_target = header.type == dns_type_ptr && header.record_class == class_internet;
    if (has_target && !read_name(data, in->offset, text)) {
        return dns_status_bad_packet;
    }
    if (details) {
        detail_record(header, data, in->offset, details);
    }
    *record = dns_new_record(header.type, has_target ? text : nullptr);
    return *record ? error_none : error_not_enough_memory;
}

uint32_t read_dns_answer(const void *message, size_t size, dns_record **records,
                         dns_details *details) {
    *records = nullptr;
    message_reader in{static_cast<const unsigned char *>(message), size, 0, false};
    const message_header header = take_header(&in);
    for (unsigned i = 0; i < header.questions && !in.failed; ++i) {
        skip_name(&in);
        skip(&in, 4);
    }
    if (in.failed || !(header.flags & flag_response)) {
        return dns_status_bad_packet;
    }
    const uint32_t response_code = header.flags & mask_response_code;
    if (details) {
        details->response_code = static_cast<int32_t>(response_code);
    }
    dns_record **link = records;
    for (unsigned i = 0; i < header.answers; ++i) {
        if (const uint32_t status = take_record(&in, link, details)) {
            dns_release(*records);
            *records = nullptr;
            return status;
        }
        link = &(*link)->next;
    }
    if (response_code) {
        dns_release(*records);
        *records = nullptr;
        return dns_status_rcode_base + response_code;
    }
    return *records ? error_none : dns_status_no_records;
}

} // namespace quillfence::platform
