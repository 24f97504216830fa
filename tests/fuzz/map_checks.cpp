#include "map_checks.h"

#include <set>

#include "fuzz_support.h"
#include "platform/file.h"

namespace quillfence::testing {

namespace {

constexpr char listing_path[] = "c:/quillfence/listing";

struct iterator_free {
    void operator()(vc_map_iterator *iterator) const {
        vc_map_iterator_free(iterator);
    }
};
using iterator_ptr = std::unique_ptr<vc_map_iterator, iterator_free>;

iterator_ptr start(const vc_hashmap *map, int direction = 0) {
    iterator_ptr iterator(vc_map_iterator_start_ex(map, direction));
    QF_PROMISE(iterator);
    return iterator;
}

int compare_keys(const void *a, const void *b) {
    return strcmp(*static_cast<const char *const *>(a), *static_cast<const char *const *>(b));
}

template <class Write>
void write_listing(Write write) {
    FILE *stream = platform::stream_open(listing_path, "wb");
    QF_PROMISE(stream);
    write(stream);
    fclose(stream);
}

} // namespace

bool is_small(const vc_hashmap *map) {
    return map->map_size <= 2'000;
}

bool is_sound(const vc_hashmap *map) {
    const iterator_ptr iterator = start(map);
    const char *key = nullptr;
    std::set<std::string> keys;
    while (vc_map_iterator_next(iterator.get(), &key, nullptr)) {
        if (!vc_map_fetch(map, key, nullptr) || !keys.insert(key).second) {
            return false;
        }
    }
    return true;
}

void check_walk(const vc_hashmap *map) {
    const iterator_ptr forward = start(map);
    const iterator_ptr backward = start(map, 1);
    const char *key = nullptr;
    uint32_t seen = 0;
    while (vc_map_iterator_next(forward.get(), &key, nullptr)) {
        QF_PROMISE(key);
        vc_map_fetch(map, key, nullptr);
        QF_PROMISE(++seen <= vc_map_count(map));
    }
    QF_PROMISE(seen == vc_map_count(map));
    while (vc_map_iterator_prev(backward.get(), &key, nullptr)) {
        --seen;
    }
    QF_PROMISE(seen == 0);
}

void check_equal(const vc_hashmap *a, const vc_hashmap *b) {
    QF_PROMISE(vc_map_count(a) == vc_map_count(b));
    const iterator_ptr left = start(a);
    const iterator_ptr right = start(b);
    const char *left_key = nullptr;
    const char *right_key = nullptr;
    void *left_value = nullptr;
    void *right_value = nullptr;
    while (vc_map_iterator_next(left.get(), &left_key, &left_value)) {
        QF_PROMISE(vc_map_iterator_next(right.get(), &right_key, &right_value));
        QF_PROMISE(!strcmp(left_key, right_key));
        QF_PROMISE(!left_value == !right_value);
    }
}

void read_map(const vc_hashmap *map) {
    check_walk(map);
    vc_map_memory_size(map);
    vc_map_get_first_entry(map, nullptr, nullptr);
    vc_map_get_last_entry(map, nullptr, nullptr);
    vc_map_index(map, vc_map_count(map) / 2, nullptr, nullptr);
    if (is_small(map)) {
        write_listing([map](FILE *stream) { QF_PROMISE(vc_map_dump(map, stream)); });
    }
}

void write_source(const vc_hashmap *map) {
    write_listing([map](FILE *stream) { QF_PROMISE(gen_static_map_ex(stream, map, nullptr)); });
}

void check_copies(const vc_hashmap *map, const char *path) {
    if (!is_small(map) || !is_sound(map)) {
        return;
    }
    fuzz_drive().remove(path);
    QF_PROMISE(vc_map_save(map, path, 1));
    const map_ptr loaded(vc_map_load(path));
    QF_PROMISE(loaded);
    check_equal(map, loaded.get());
    const map_ptr copied(vc_map_copy_ex(map, 0, 0));
    QF_PROMISE(copied);
    check_equal(map, copied.get());
    const map_ptr shrunk(vc_map_shrink(map));
    if (shrunk) {
        check_equal(map, shrunk.get());
        QF_PROMISE(shrunk->map_size <= map->map_size || map->map_size == 0);
    }
}

void change_map(vc_hashmap *map, const char *key) {
    if (map->map_size > 50'000) {
        return; // growing such a table takes too long
    }
    const uint32_t count = vc_map_count(map);
    char value[] = "value";
    const int stored = vc_map_store_ex(map, key, value, sizeof value, 1, nullptr);
    QF_PROMISE(vc_map_count(map) == count + (stored ? 1 : 0));
    void *found = nullptr;
    QF_PROMISE(!stored ||
               (vc_map_fetch(map, key, &found) && !strcmp(value, static_cast<char *>(found))));
    vc_map_update_ex(map, key, value, sizeof value, 1, nullptr);
    if (is_small(map)) {
        vc_map_rehash(map);
    }
    vc_map_sort(map, compare_keys, 1);
    check_walk(map);
    const char *first = nullptr;
    // A failed rename leaves an entry in the chain alone, which can only happen to other maps.
    if (is_sound(map) && vc_map_count(map) > 0 && vc_map_get_first_entry(map, &first, nullptr)) {
        vc_map_rename(map, std::string(first).c_str(), "another name");
    }
    vc_map_remove(map, key);
    check_walk(map);
}

} // namespace quillfence::testing
