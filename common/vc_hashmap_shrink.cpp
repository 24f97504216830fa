// The smallest table for a hash map's entries. A copy into b x s slots ends in a table whose size
// follows from the hashes alone, so the geometries are judged without making the copies.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>

#include "vc_hashmap_internal.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

using hashmap::next_table_size;
using hashmap::table_sizes;
using hashmap::too_many_slots;

static constexpr char module_name[] = "vc_hashmap";

namespace {

// The hashes of a map's entries, and how full a bucket gets when they are spread over b buckets.
struct spread {
    uint32_t count;
    heap_ptr<uint32_t> hashes;
    uint32_t largest_counted;    // bucket counts up to here are counted, larger ones sorted
    heap_ptr<uint32_t> counters; // one a bucket
    heap_ptr<uint32_t> residues; // one a hash
    // Fullest bucket plus one for each table size, 0 when not known yet.
    uint64_t known[std::size(table_sizes)];
};

} // namespace

static heap_ptr<uint32_t> numbers(size_t count) {
    return heap_ptr<uint32_t>(static_cast<uint32_t *>(calloc(count + 1, sizeof(uint32_t))));
}

static bool make_spread(const vc_hashmap *map, spread *made) {
    uint32_t count = 0; // the chain may hold more than num_pairs after a failed rename
    for (const hash_pair_t *pair = map->first; pair; pair = pair->next) {
        ++count;
    }
    *made = {count, numbers(count), map->num_buckets, numbers(map->num_buckets), numbers(count),
             {}};
    if (!made->hashes || !made->counters || !made->residues) {
        return false;
    }
    uint32_t *hash = made->hashes.get();
    for (const hash_pair_t *pair = map->first; pair; pair = pair->next) {
        *hash++ = pair->hash;
    }
    return true;
}

static uint32_t fullest_bucket_by_counting(const spread &of, uint32_t buckets) {
    uint32_t *counters = of.counters.get();
    std::fill_n(counters, buckets, 0u);
    uint32_t fullest = 0;
    for (uint32_t i = 0; i < of.count; ++i) {
        fullest = std::max(fullest, ++counters[of.hashes.get()[i] % buckets]);
    }
    return fullest;
}

static uint32_t fullest_bucket_by_sorting(const spread &of, uint32_t buckets) {
    uint32_t *residues = of.residues.get();
    std::transform(of.hashes.get(), of.hashes.get() + of.count, residues,
                   [buckets](uint32_t hash) { return hash % buckets; });
    std::sort(residues, residues + of.count);
    uint32_t fullest = 0;
    uint32_t run = 0;
    for (uint32_t i = 0; i < of.count; ++i) {
        run = i && residues[i] == residues[i - 1] ? run + 1 : 1;
        fullest = std::max(fullest, run);
    }
    return fullest;
}

static uint32_t fullest_bucket(const spread &of, uint32_t buckets) {
    return buckets <= of.largest_counted ? fullest_bucket_by_counting(of, buckets)
                                         : fullest_bucket_by_sorting(of, buckets);
}

// The slot total with which a copy into `buckets` x `slots` ends: a table grows exactly past the
// sizes in which some bucket would overflow. 0 when no size will do.
static uint64_t final_slots(spread *of, uint32_t buckets, uint32_t fullest, uint32_t slots) {
    const uint32_t *size = next_table_size(buckets);
    while (fullest > slots) {
        if (size == std::end(table_sizes) || too_many_slots(*size, slots)) {
            return 0;
        }
        buckets = *size;
        uint64_t &known = of->known[size - table_sizes];
        if (!known) {
            known = uint64_t{fullest_bucket(*of, buckets)} + 1;
        }
        fullest = static_cast<uint32_t>(known - 1);
        ++size;
    }
    return uint64_t{buckets} * slots;
}

namespace {

struct geometry {
    uint32_t buckets;
    uint32_t slots;
};

} // namespace

// Tries every smaller geometry that has room for all entries.
static bool best_geometry(const vc_hashmap *map, geometry *best) {
    spread hashes;
    if (!make_spread(map, &hashes)) {
        return false;
    }
    uint64_t best_total = map->map_size;
    *best = {map->num_buckets, map->bucket_size};
    for (uint32_t buckets = 1; buckets < map->num_buckets; ++buckets) {
        const uint64_t needed = (uint64_t{map->num_pairs} + buckets - 1) / buckets;
        uint32_t slots = std::max(static_cast<uint32_t>(needed), 1u);
        if (slots >= map->bucket_size) {
            continue;
        }
        const uint32_t fullest = fullest_bucket(hashes, buckets);
        for (; slots < map->bucket_size; ++slots) {
            const uint64_t total = final_slots(&hashes, buckets, fullest, slots);
            if (!total) {
                return false;
            }
            if (total < best_total) {
                best_total = total;
                *best = {buckets, slots};
            }
            if (total == map->num_pairs) { // every slot used
                *best = {buckets, slots};
                return true;
            }
        }
    }
    return true;
}

vc_hashmap *vc_map_shrink(const vc_hashmap *map) {
    if (!map) {
        QF_EINVAL();
        return nullptr;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR("Attempting to shrink a static hashmap!");
        return nullptr;
    }
    geometry best = {map->num_buckets, map->bucket_size};
    vc_hashmap *shrunk = nullptr;
    if (!map->map_size || best_geometry(map, &best)) {
        shrunk = vc_map_copy_ex(map, best.buckets, best.slots);
    }
    if (!shrunk) {
        QF_ENOMEM();
    }
    return shrunk;
}

} // namespace quillfence
