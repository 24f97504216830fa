#include "lookup.h"

#include <cstdlib>
#include <cstring>

#include "byte_cursor.h"
#include "evidence.h"
#include "frozen_files.h"
#include "platform/file.h"
#include "platform/net.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "blockmaps/lookup";

static constexpr uint32_t nothing_listed = 0;
static constexpr uint32_t everything_listed = 0xFFFFFFFF;
static constexpr uint32_t entry_size = 4;
static constexpr int64_t table_size = 1024;
static constexpr int64_t bitmap_size = 8192;

int __readBytes(vc_handle file, uint32_t offset, void *buffer, uint32_t length) {
    if (!buffer || file == vc_invalid_handle || !length) {
        QF_EINVAL();
        return 0;
    }
    memset(buffer, 0, length);
    uint32_t delivered = 0;
    return vc_seek(file, static_cast<int32_t>(offset), 0) &&
           vc_read_nonblock(file, buffer, length, 1, 0, &delivered) && delivered == length;
}

int __bitIsSet(uint8_t byte, uint32_t n) {
    return n <= 7 && (byte & 0x80 >> n);
}

namespace {

// A map that is asked: what was read beforehand, or an open file.
struct open_map {
    const frozen_file *frozen; // null: the file
    vc_handle file;
};

} // namespace

static int64_t size_of(const open_map *map) {
    return static_cast<int64_t>(map->frozen ? map->frozen->size : vc_filesize(map->file));
}

// From a frozen map that is kept open; the line is that of a reading file.
static int read_at(const frozen_file *map, uint32_t offset, void *buffer, uint32_t length) {
    auto *next = static_cast<char *>(buffer);
    for (uint32_t moved = 1; length && moved; length -= moved, next += moved, offset += moved) {
        if (const uint32_t error =
                platform::file_read_at(map->file, offset, next, length, &moved)) {
            QF_ERROR_AS("__readBytes", "fatal error on read (w32) got error code %d",
                        static_cast<int>(error));
            tell_failure(map->path, error);
            return 0;
        }
    }
    return length == 0;
}

// As __readBytes.
static int read_bytes(const open_map *map, uint32_t offset, void *buffer, uint32_t length) {
    if (!map->frozen) {
        return __readBytes(map->file, offset, buffer, length);
    }
    const uint64_t size = map->frozen->size;
    if (offset > size || size - offset < length) {
        return 0;
    }
    if (!map->frozen->bytes) {
        return read_at(map->frozen, offset, buffer, length);
    }
    memcpy(buffer, map->frozen->bytes + offset, length);
    return 1;
}

// Reads from a map for a lookup; what is not there to be read is told.
static int read_map(const open_map *map, uint32_t offset, void *buffer, uint32_t length) {
    const int read = read_bytes(map, offset, buffer, length);
    if (!read) {
        tell_failure(nullptr, 0, "the map is cut short or can't be read");
    }
    return read;
}

static int read_entry(const open_map *map, uint32_t table, uint8_t index, uint32_t *value) {
    unsigned char bytes[entry_size];
    if (!read_map(map, table + index * entry_size, bytes, sizeof bytes)) {
        return 0;
    }
    *value = load_le32(bytes);
    return 1;
}

static bool decides(uint32_t entry) {
    return entry == nothing_listed || entry == everything_listed;
}

static void report_corrupt_map() {
    QF_ERROR_AS("lookupMap", "corrupt BMS file");
    tell_failure(nullptr, 0, "the map is corrupt");
}

// The work of lookupMap. *level receives the level that has decided, 0 when none could.
static int look_up(const open_map *map, uint32_t address, uint32_t *level) {
    *level = 0;
    uint8_t octet[4]; // a, b, c, d
    memcpy(octet, &address, sizeof octet);
    const auto size = size_of(map);

    uint32_t level2 = 0;
    if (!read_entry(map, 0, octet[0], &level2)) {
        return 0;
    }
    if (decides(level2)) {
        *level = 1;
        return level2 == everything_listed;
    }
    if (level2 > size - table_size) {
        report_corrupt_map();
        return 0;
    }
    uint32_t bitmap = 0;
    if (!read_entry(map, level2, octet[1], &bitmap)) {
        return 0;
    }
    if (decides(bitmap)) {
        *level = 2;
        return bitmap == everything_listed;
    }
    if (bitmap > size - bitmap_size) {
        report_corrupt_map();
        return 0;
    }
    const uint32_t bit = octet[2] * 256u + octet[3];
    uint8_t byte = 0;
    if (!read_map(map, bitmap + (bit >> 3), &byte, 1)) {
        return 0;
    }
    *level = 3;
    return __bitIsSet(byte, bit & 7);
}

int lookupMap(vc_handle file, uint32_t address) {
    if (file == vc_invalid_handle) {
        QF_ERROR("invalid file handle");
        return 0;
    }
    const open_map map = {.frozen = nullptr, .file = file};
    uint32_t level = 0;
    return look_up(&map, address, &level);
}

// The work of lookupMapFile; the result and what led to it are kept in lookup.
static void look_up_file(map_lookup *lookup) {
    if (!vc_file_exists_ex(lookup->path, vc_type_file)) {
        return;
    }
    lookup->existed = true;
    open_map map = {.frozen = frozen_file_of(path_to_read(lookup->path)),
                    .file = vc_invalid_handle};
    if (map.frozen && map.frozen->is_file()) {
        lookup->listed = look_up(&map, lookup->address, &lookup->level);
        return;
    }
    map = {.frozen = nullptr, .file = vc_open_existing(lookup->path)};
    if (map.file == vc_invalid_handle) {
        return;
    }
    lookup->listed = look_up(&map, lookup->address, &lookup->level);
    vc_close(map.file);
}

int lookupMapFile(const char *path, uint32_t address) {
    if (!path) {
        QF_EINVAL();
        return 0;
    }
    map_lookup lookup = {.path = path, .address = address};
    look_up_file(&lookup);
    tell(&evidence_sink::asked_map, lookup);
    return lookup.listed;
}

// A new string, null without memory.
static char *map_path(const char *directory, const char *name) {
    char *path = nullptr;
    if (!vc_strcat(&path, directory) || !vc_strcat(&path, "/") || !vc_strcat(&path, name)) {
        free(path);
        return nullptr;
    }
    return path;
}

int lookupMaps(const char *directory, vc_list_entry *maps, const char *address,
               vc_list_entry **hits) {
    if (!directory || !address) {
        QF_EINVAL();
        return 0;
    }
    if (!maps) {
        QF_DEBUG("no lists to check against. returning");
        return 0;
    }
    const uint32_t binary = platform::net_inet_addr(address);
    if (binary == 0 || binary == 0xFFFFFFFF) {
        QF_ERROR("%s : invalid ip address", strerror(EINVAL));
        return 0;
    }
    int listed = 0;
    vc_list_entry **end = hits; // moves along, so that the list is walked once
    for (const vc_list_entry *map = maps; map; map = map->next) {
        if (!map->data) {
            continue;
        }
        const heap_string path(map_path(directory, static_cast<const char *>(map->data)));
        if (!path) {
            QF_ENOMEM();
            return 0;
        }
        if (!vc_file_exists_ex(path.get(), vc_type_file)) {
            tell(&evidence_sink::asked_map, {.path = path.get(), .address = binary});
            continue;
        }
        if (!lookupMapFile(path.get(), binary)) {
            continue;
        }
        listed = 1;
        QF_DEBUG("lookupMaps(): IP %s is on block list %s", address, path.get());
        if (hits) {
            vc_append_list_entry(end, map->data, map->size, 1); // a failure has its line there
            while (*end) {
                end = &(*end)->next;
            }
        }
    }
    return listed;
}

} // namespace quillfence
