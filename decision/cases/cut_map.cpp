#include "cut_map.h"

#include <cstring>

#include "byte_cursor.h"

namespace quillfence::decision {

static constexpr size_t table_size = 1024;
static constexpr size_t bitmap_size = 8192;
static constexpr size_t entry_size = 4;

static bool decides(uint32_t entry) {
    return entry == 0 || entry == 0xFFFFFFFF;
}

namespace {

struct octets {
    unsigned char at[4];
};

// Reads of the map; the first failure is kept.
class map_bytes {
  public:
    explicit map_bytes(const data_files::open_file &map) : map_(map), error_(map.size(&size_)) {}

    // False behind the file's end, and for an error.
    bool read(uint64_t offset, unsigned char *bytes, size_t size) {
        size_t got = 0;
        error_ = error_ ? error_ : map_.read_at(offset, bytes, size, &got);
        return !error_ && got == size;
    }
    // Whether a level fits there; the engine goes nowhere from 2 GiB on.
    bool has(uint32_t offset, size_t size) const {
        return size_ >= size && offset <= size_ - size && offset <= INT32_MAX;
    }
    uint32_t error() const {
        return error_;
    }

  private:
    const data_files::open_file &map_;
    uint64_t size_ = 0;
    uint32_t error_;
};

} // namespace

static void put_entry(std::string *map, size_t table, unsigned index, uint32_t entry) {
    for (size_t i = 0; i < entry_size; ++i) {
        (*map)[table + index * entry_size + i] = static_cast<char>(entry >> 8 * i & 0xFF);
    }
}

static bool read_entry(map_bytes *map, uint64_t table, unsigned index, uint32_t *entry) {
    unsigned char bytes[entry_size];
    if (!map->read(table + index * entry_size, bytes, sizeof bytes)) {
        return false;
    }
    *entry = load_le32(bytes);
    return true;
}

// The third level: a bitmap with one bit, or none.
static void add_bitmap(map_bytes *map, uint32_t bitmap, const octets &of, std::string *cut) {
    const unsigned bit = of.at[2] * 256u + of.at[3];
    unsigned char byte = 0;
    put_entry(cut, table_size, of.at[1], 2 * table_size);
    cut->resize(2 * table_size + bitmap_size, '\0');
    if (map->read(bitmap + bit / 8, &byte, 1)) {
        (*cut)[2 * table_size + bit / 8] = static_cast<char>(byte & 0x80 >> bit % 8);
    }
}

static void add_second_table(map_bytes *map, uint32_t table, const octets &of, std::string *cut) {
    uint32_t bitmap = 0;
    if (!read_entry(map, table, of.at[1], &bitmap)) {
        return;
    }
    put_entry(cut, 0, of.at[0], table_size);
    cut->resize(2 * table_size, '\0');
    if (decides(bitmap) || !map->has(bitmap, bitmap_size)) {
        put_entry(cut, table_size, of.at[1], bitmap); // one that leads out of the file does so here
    } else {
        add_bitmap(map, bitmap, of, cut);
    }
}

static std::string cut_down(map_bytes *map, const octets &of) {
    uint32_t table = 0;
    if (!read_entry(map, 0, of.at[0], &table)) {
        return {}; // a map without bytes is cut off, too
    }
    std::string cut(table_size, '\0');
    if (decides(table) || !map->has(table, table_size)) {
        put_entry(&cut, 0, of.at[0], table);
    } else {
        add_second_table(map, table, of, &cut);
    }
    return cut;
}

std::optional<std::string> cut_map(const data_files::open_file &map, uint32_t address,
                                   uint32_t *error) {
    octets of;
    std::memcpy(of.at, &address, sizeof of.at);
    map_bytes bytes(map);
    std::string cut = cut_down(&bytes, of);
    *error = bytes.error();
    return *error ? std::nullopt : std::optional(std::move(cut));
}

} // namespace quillfence::decision
