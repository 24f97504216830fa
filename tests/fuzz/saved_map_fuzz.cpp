// Saved maps: loaded, asked, saved and loaded again, changed.
//
//     a key
//     the file
#include "byte_cursor.h"
#include "fuzz_support.h"
#include "map_checks.h"

namespace quillfence::testing {

namespace {

// Tables that are loaded, but take a second each because of their size alone.
bool takes_long(const std::string &file) {
    byte_reader in = byte_reader_of(file.data(), file.size());
    take_le32(&in);
    const uint64_t slots = uint64_t{take_le32(&in)} * take_le32(&in);
    return slots > 1u << 18 && slots <= 1u << 27;
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string key = input.line();
    const std::string bytes = input.rest();
    if (takes_long(bytes)) {
        return;
    }
    static constexpr char path[] = "c:/quillfence/given.map";
    fuzz_drive().write(path, bytes);
    vc_hashmap *map = vc_map_load(path);
    QF_PROMISE(file_bytes(path) == bytes);
    if (!map) {
        return;
    }
    if (is_small(map) || !(map->flags & MAP_FLAG_STATIC)) { // else each slot would be looked at
        read_map(map);
    }
    vc_map_fetch(map, key.c_str(), nullptr);
    if (map->flags & MAP_FLAG_STATIC) {
        QF_PROMISE(!vc_map_destroy(map));
        map->flags &= ~MAP_FLAG_STATIC; // so that it can go
    }
    const map_ptr owner(map);
    check_copies(map, "c:/quillfence/saved");
    change_map(map, key.c_str());
}

} // namespace quillfence::testing
