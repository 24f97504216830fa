#include "quillfence-iprange.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "byte_cursor.h"
#include "evidence.h"
#include "frozen_files.h"
#include "frozen_ranges.h"
#include "quillfence-iprange-file.h"
#include "read_ahead.h"
#include "vc_dns.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-iprange";

static constexpr uint32_t any_address = 0;                // 0.0.0.0
static constexpr uint32_t broadcast_address = 0xFFFFFFFF; // 255.255.255.255
static constexpr int range_level = 2;                     // every range lies in one /16

static constexpr char corrupt[] = "the file is corrupt"; // to whoever asks

// --- arithmetic ---

struct octets {
    unsigned char of[4]; // a, b, c, d of a.b.c.d
};

static octets octets_of(uint32_t address) {
    octets parts;
    memcpy(parts.of, &address, sizeof parts.of); // network order: the first octet comes first
    return parts;
}

int qf_ip_ge(uint32_t a, uint32_t b, int level) {
    const octets left = octets_of(a);
    const octets right = octets_of(b);
    if (level >= 1 && left.of[0] != right.of[0]) {
        QF_DEBUG("not even part of the same /8 comparing %u, %u", unsigned{left.of[0]},
                 unsigned{right.of[0]});
        return 0;
    }
    if (level >= 2 && left.of[1] != right.of[1]) {
        QF_DEBUG("not even part of the same /16");
        return 0;
    }
    if (level >= 3 && left.of[2] != right.of[2]) {
        QF_DEBUG("not even part of the same /24");
        return 0;
    }
    return memcmp(left.of, right.of, sizeof left.of) >= 0;
}

int qf_valid_ip_range(const qf_ip_range *range) {
    if (!range) {
        QF_DEBUG("range is NULL, returning false");
        return 0;
    }
    if (!qf_ip_ge(range->high, range->low, range_level)) {
        QF_DEBUG("low range is greater than highrange - invalid range");
        return 0;
    }
    return 1;
}

int qf_ip_in_range(uint32_t address, const qf_ip_range *range) {
    if (address == any_address) {
        QF_DEBUG("refusing to test 0.0.0.0 ip");
        return 0;
    }
    if (address == broadcast_address) {
        QF_DEBUG("refusing to test 255.255.255.255 ip");
        return 0;
    }
    if (!qf_valid_ip_range(range)) {
        QF_DEBUG("invalid range - returning false");
        return 0;
    }
    if (!qf_ip_ge(address, range->low, range_level) ||
        !qf_ip_ge(range->high, address, range_level)) {
        QF_DEBUG("no match");
        return 0;
    }
    return 1;
}

static uint32_t address_of(unsigned char a, unsigned char b, unsigned char c, unsigned char d) {
    const unsigned char bytes[4] = {a, b, c, d};
    uint32_t address = 0;
    memcpy(&address, bytes, sizeof bytes);
    return address;
}

int qf_ip_in_documentation_range(const char *address) {
    uint32_t binary = 0;
    if (!__sane_ip(address, &binary)) {
        return 0;
    }
    const qf_ip_range network = {address_of(192, 0, 2, 0), address_of(192, 0, 2, 255)};
    return qf_ip_in_range(binary, &network);
}

// --- arguments ---

int __sane_ip(const char *text, uint32_t *address) {
    if (is_empty(text)) {
        QF_ERROR("IP address argument is empty or NULL");
        return 0;
    }
    const int family = vc_is_ip(text);
    if (family == vc_family_ipv6) {
        QF_ERROR("Sorry but this system does not yet support IPv6 range checks for address [%s]",
                 text);
        return 0;
    }
    if (family != vc_family_ipv4) {
        QF_ERROR("Invalid IP address argument [%s]", text);
        return 0;
    }
    *address = vc_inet_addr(text);
    if (*address == any_address || *address == broadcast_address) {
        QF_ERROR("This system does not support broadcast addresses [%s]", text);
        return 0;
    }
    return 1;
}

char *__range_path(const char *directory, const char *name) {
    if (is_empty(directory)) {
        QF_ERROR("prefix argument is empty or NULL");
        return nullptr;
    }
    if (is_empty(name)) {
        QF_ERROR("file argument is empty or NULL");
        return nullptr;
    }
    const bool closed = directory[strlen(directory) - 1] == '/';
    char *const path = vc_concatenate(directory, closed ? "" : "/", name);
    if (!path) {
        QF_ENOMEM();
        return nullptr;
    }
    return path;
}

// --- open files ---

int ipr_valid_file_header(const ipr_file_header *header) {
    if (!header || header->signature != range_signature) {
        return 0;
    }
    const uint32_t version = header->version & 0xFF;
    return version == range_version_legacy || version == range_version;
}

int __write_range_header(const range_file *file) {
    unsigned char bytes[range_header_size];
    store_le64(bytes, file->header.signature);
    store_le32(bytes + 8, file->header.version);
    store_le32(bytes + 12, file->header.count);
    return vc_seek(file->file, 0, 0) && vc_write(file->file, bytes, sizeof bytes);
}

int __reset_range_file(range_file *file) {
    file->header = {range_signature, range_version, 0};
    return vc_seek(file->file, 0, 0) && vc_truncate(file->file) && __write_range_header(file);
}

static uint32_t size_of(const range_file *file) {
    return file->frozen ? static_cast<uint32_t>(file->frozen->size) : vc_filesize(file->file);
}

// 1 when a whole header was read, valid or not. Of a frozen file it is there.
static int read_header(range_file *file) {
    unsigned char bytes[range_header_size] = {};
    uint32_t delivered = 0;
    if (file->frozen) {
        memcpy(bytes, file->frozen->bytes, sizeof bytes);
    } else if (!vc_read_nonblock(file->file, bytes, sizeof bytes, 1, 0, &delivered) ||
               delivered != sizeof bytes) {
        return 0;
    }
    file->header = {load_le64(bytes), load_le32(bytes + 8), load_le32(bytes + 12)};
    return 1;
}

static constexpr char open_operation[] = "__open_range_file";

range_header __look_at_range_header(range_file *file) {
    if (size_of(file) < range_header_size) {
        return range_header::invalid;
    }
    if (!read_header(file)) {
        return range_header::unread;
    }
    return ipr_valid_file_header(&file->header) ? range_header::valid : range_header::invalid;
}

int __refuse_range_file(const range_file *file) {
    const uint32_t size = size_of(file);
    if (!size) {
        QF_DEBUG_AS(open_operation, "zero byte file on non initializing operation");
        return 0;
    }
    tell_failure(file->path, 0, corrupt);
    if (size < range_header_size) {
        QF_DEBUG_AS(open_operation, "file %s is corrupt", file->path);
    } else {
        QF_ERROR_AS(open_operation, "file %s is corrupt", file->path);
    }
    return 0;
}

// 1 when the file just opened has a usable header, or has got one.
static int take_header(range_file *file, bool initialise) {
    switch (__look_at_range_header(file)) {
    case range_header::valid:
        return 1;
    case range_header::unread:
        return 0;
    case range_header::invalid:
        break;
    }
    return initialise ? __reset_range_file(file) : __refuse_range_file(file);
}

// A record of the file at the path, which it takes over, not open yet; null without memory.
static range_file *new_range_file(heap_string *path) {
    auto *const file = static_cast<range_file *>(calloc(1, sizeof(range_file)));
    if (!file) {
        QF_ERRNO_AS(open_operation, ENOMEM);
        return nullptr;
    }
    file->path = path->release();
    file->file = vc_invalid_handle;
    return file;
}

static bool is_there(const char *path) {
    if (vc_file_exists_ex(path, vc_type_file)) {
        return true;
    }
    tell(&evidence_sink::searched_ranges, {.path = path});
    return false;
}

// The work of __open_range_file; takes the path over, null for none.
static range_file *open_at(heap_string path, int write, bool initialising) {
    if (!path || (!initialising && !is_there(path.get()))) {
        return nullptr;
    }
    range_file_ptr file(new_range_file(&path));
    if (!file) {
        return nullptr;
    }
    file->file = write ? vc_open_ex(file->path, write, write, 0) : vc_open_existing(file->path);
    if (file->file == vc_invalid_handle || !take_header(file.get(), initialising)) {
        return nullptr;
    }
    return file.release();
}

range_file *__open_range_file(const char *directory, const char *name, int write, int initialise) {
    return open_at(heap_string(__range_path(directory, name)), write, write && initialise);
}

// The same for a lookup: what was read beforehand, or the file.
static range_file *open_for_lookup(const char *directory, const char *name) {
    heap_string path(__range_path(directory, name));
    const frozen_file *const frozen = path ? frozen_file_of(path_to_read(path.get())) : nullptr;
    if (!frozen || !frozen->bytes) {
        return open_at(std::move(path), 0, false);
    }
    if (!is_there(path.get())) {
        return nullptr;
    }
    range_file_ptr file(new_range_file(&path));
    if (!file) {
        return nullptr;
    }
    file->frozen = frozen;
    return take_header(file.get(), false) ? file.release() : nullptr;
}

void __close_range_file(range_file *file) {
    if (!file) {
        return;
    }
    if (file->file != vc_invalid_handle) {
        vc_close(file->file);
    }
    free(file->path);
    free(file);
}

// --- records ---

void __begin_records(record_reader *in, vc_handle file, uint32_t record_size, uint32_t count) {
    in->file = file;
    in->rest = nullptr;
    in->rest_size = 0;
    in->record_size = record_size;
    in->unread = uint64_t{count} * record_size;
    in->begin = 0;
    in->end = 0;
}

// The same over the records of a file, frozen or not.
static void begin_records_of(record_reader *in, const range_file *file) {
    __begin_records(in, file->file, range_record_size, file->header.count);
    if (file->frozen) {
        in->rest = reinterpret_cast<const unsigned char *>(file->frozen->bytes) + range_header_size;
        in->rest_size = file->frozen->size - range_header_size;
    }
}

// As platform::file_read.
static uint32_t read_piece(record_reader *in, void *to, uint32_t room, uint32_t *moved) {
    if (!in->rest) {
        return platform::file_read(in->file, to, room, moved);
    }
    *moved = static_cast<uint32_t>(std::min<uint64_t>(room, in->rest_size));
    memcpy(to, in->rest, *moved);
    in->rest += *moved;
    in->rest_size -= *moved;
    return 0;
}

// Reads until the piece is full or nothing is left.
static void fill(record_reader *in) {
    move_rest_to_front(in->piece, &in->begin, &in->end);
    while (in->unread && in->end < sizeof in->piece) {
        const uint64_t room = std::min<uint64_t>(sizeof in->piece - in->end, in->unread);
        uint32_t moved = 0;
        const uint32_t error =
            read_piece(in, in->piece + in->end, static_cast<uint32_t>(room), &moved);
        if (error) {
            QF_ERROR_AS("__next_record", "Failed to read range records: error code %d",
                        static_cast<int>(error));
        }
        if (error || !moved) {
            in->unread = 0;
            return;
        }
        in->end += moved;
        in->unread -= moved;
    }
}

const unsigned char *__next_record(record_reader *in, uint32_t *size) {
    if (in->end - in->begin < in->record_size) {
        fill(in);
    }
    const unsigned char *const record = in->piece + in->begin;
    *size = std::min(in->end - in->begin, in->record_size);
    in->begin += *size;
    return record;
}

qf_ip_range __range_of_record(const unsigned char *record) {
    qf_ip_range range;
    memcpy(&range.low, record, 4);
    memcpy(&range.high, record + 4, 4);
    return range;
}

range_search __find_range(const char *operation, const range_file *file, const qf_ip_range *range,
                          uint32_t *index) {
    record_reader in;
    __begin_records(&in, file->file, is_legacy(file) ? legacy_record_size : range_record_size,
                    file->header.count);
    for (uint32_t i = 0; i < file->header.count; ++i) {
        uint32_t size = 0;
        const unsigned char *const record = __next_record(&in, &size);
        if (size < in.record_size) {
            QF_ERROR_AS(operation, "file %s is corrupt", file->path);
            return range_search::failed;
        }
        const qf_ip_range stored = __range_of_record(record);
        if (stored.low == range->low && stored.high == range->high) {
            *index = i;
            return range_search::found;
        }
    }
    return range_search::absent;
}

// --- the searches ---

// Keeps the record that contains the address; its comment is cut at the first NUL.
static void keep_record(range_lookup *lookup, const qf_ip_range &range, const unsigned char *record,
                        uint32_t size, char (&comment)[longest_range_comment + 1]) {
    comment[0] = '\0';
    if (size >= range_record_size) {
        memcpy(comment, record + legacy_record_size, longest_range_comment);
        comment[longest_range_comment] = '\0';
    }
    lookup->record = lookup->records;
    lookup->low = range.low;
    lookup->high = range.high;
    lookup->comment = comment;
}

// Whether one of the file's records contains the address.
static int search_records(const char *operation, const range_file *file, uint32_t address,
                          range_lookup *lookup, char (&comment)[longest_range_comment + 1]) {
    const uint32_t left_out = place_left_out(file->path);
    record_reader in;
    begin_records_of(&in, file);
    for (uint32_t i = 0; i < file->header.count; ++i) {
        uint32_t size = 0;
        const unsigned char *const record = __next_record(&in, &size);
        if (size < legacy_record_size) {
            QF_ERROR_AS(operation, "file %s is corrupt", file->path);
            tell_failure(file->path, 0, corrupt);
            return 0;
        }
        const qf_ip_range range = __range_of_record(record);
        if (!qf_valid_ip_range(&range)) {
            QF_ERROR_AS(operation, "file %s has an invalid range - treating as corrupt",
                        file->path);
            tell_failure(file->path, 0, corrupt);
            return 0;
        }
        ++lookup->records;
        if (lookup->records != left_out && qf_ip_in_range(address, &range)) {
            keep_record(lookup, range, record, size, comment);
            return 1;
        }
    }
    return 0;
}

// The same by the form of a frozen file.
static int search_stretches(const range_file *file, uint32_t address, range_lookup *lookup,
                            char (&comment)[longest_range_comment + 1]) {
    uint32_t index = 0;
    if (!frozen_ranges_find(file->frozen->ranges, address, &index)) {
        lookup->records = file->header.count;
        return 0;
    }
    const uint64_t offset = range_header_size + index * uint64_t{range_record_size};
    const auto *const record =
        reinterpret_cast<const unsigned char *>(file->frozen->bytes) + offset;
    const uint64_t size = std::min<uint64_t>(file->frozen->size - offset, range_record_size);
    lookup->records = index + 1;
    keep_record(lookup, __range_of_record(record), record, static_cast<uint32_t>(size), comment);
    return 1;
}

int file_contains_ip_range_match(const char *name, const char *address, const char *directory) {
    uint32_t binary = 0;
    if (!__sane_ip(address, &binary)) {
        return 0;
    }
    const range_file_ptr file(open_for_lookup(directory, name));
    if (!file) {
        return 0;
    }
    char comment[longest_range_comment + 1];
    range_lookup lookup = {.path = file->path, .value = address, .existed = true};
    // The stretches know the first record that contains an address, and none behind it.
    const bool indexed = file->frozen && file->frozen->ranges && !place_left_out(file->path);
    const int contained = indexed ? search_stretches(file.get(), binary, &lookup, comment)
                                  : search_records(__func__, file.get(), binary, &lookup, comment);
    tell(&evidence_sink::searched_ranges, lookup);
    return contained;
}

static constexpr char contains_operation[] = "ipr_file_contains_range";

// The same on a file that is open at its start and borrowed.
static int contains_range(range_file *file, const qf_ip_range *range, uint32_t *offset) {
    const uint32_t size = vc_filesize(file->file);
    if (!size) {
        return 0;
    }
    if (size < range_header_size || !read_header(file) || !ipr_valid_file_header(&file->header)) {
        QF_ERROR_AS(contains_operation, "file %s is corrupt", file->path);
        return 0;
    }
    if (!qf_valid_ip_range(range)) {
        QF_ERROR_AS(contains_operation, "Invalid arguments for low and high range");
        return 0;
    }
    uint32_t index = 0;
    if (__find_range(contains_operation, file, range, &index) != range_search::found) {
        return 0;
    }
    if (offset) {
        *offset = range_header_size + index * range_record_size;
    }
    return 1;
}

int ipr_file_contains_range(const char *path, const char *low, const char *high, uint32_t *offset) {
    if (is_empty(path) || !low || !high) {
        QF_DEBUG("Invalid parameter");
        return 0;
    }
    qf_ip_range range = {};
    if (!__sane_ip(low, &range.low) || !__sane_ip(high, &range.high) ||
        !vc_file_exists_ex(path, vc_type_file)) {
        return 0;
    }
    range_file file = {vc_open_existing(path), {}, const_cast<char *>(path)}; // path is borrowed
    if (file.file == vc_invalid_handle) {
        return 0;
    }
    const int contained = contains_range(&file, &range, offset);
    vc_close(file.file);
    return contained;
}

} // namespace quillfence
