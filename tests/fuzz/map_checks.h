// Everything that can be asked of a map and done with it, for maps that come out of files.
#pragma once

#include <memory>

#include "vc_hashmap.h"

namespace quillfence::testing {

struct map_destroyer {
    void operator()(vc_hashmap *map) const {
        vc_map_destroy(map);
    }
};
using map_ptr = std::unique_ptr<vc_hashmap, map_destroyer>;

// Whether a walk over every slot is affordable.
bool is_small(const vc_hashmap *map);

// Whether every key stands there once and is found: a damaged file may give another map.
bool is_sound(const vc_hashmap *map);

// Walks in both directions agree with the count.
void check_walk(const vc_hashmap *map);
// The same keys, values and order.
void check_equal(const vc_hashmap *a, const vc_hashmap *b);
// What only reads. The source text is of maps whose values are texts alone.
void read_map(const vc_hashmap *map);
void write_source(const vc_hashmap *map);
// Saved and loaded, copied and shrunk, a sound map stays the same.
void check_copies(const vc_hashmap *map, const char *path);
// Stores, updates, renames, removes, grows and sorts; the map is another one afterwards.
void change_map(vc_hashmap *map, const char *key);

} // namespace quillfence::testing
