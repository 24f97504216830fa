// The hash map in insertion order: walking, positions, sorting.
#include <cstdlib>

#include "vc_hashmap_internal.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "vc_hashmap";

// Flags of an iterator.
static constexpr uint32_t walks_slots = 1; // a static map has no chain
static constexpr uint32_t walks_backward = 2;

using cursor = vc_map_iterator::cursor;

// --- Walking ---

// The first occupied slot from `slot` on, in steps of 1 or -1.
static cursor occupied_slot(const vc_hashmap *map, int64_t slot, int step) {
    for (; slot >= 0 && slot < map->map_size; slot += step) {
        if (map->const_pairs[slot]) {
            return {map->const_pairs[slot], slot};
        }
    }
    return {nullptr, slot};
}

static cursor first_cursor(const vc_hashmap *map) {
    return hashmap::is_static(map) ? occupied_slot(map, 0, 1) : cursor{map->first, 0};
}

static cursor last_cursor(const vc_hashmap *map) {
    return hashmap::is_static(map) ? occupied_slot(map, int64_t{map->map_size} - 1, -1)
                                   : cursor{map->last, 0};
}

vc_map_iterator hashmap::walk(const vc_hashmap *map) {
    return {.flags = is_static(map) ? walks_slots : 0,
            .map = map,
            .current = {nullptr, 0},
            .next = first_cursor(map),
            .prev = last_cursor(map)};
}

// Moves onto a neighbour; false, and no move, when there is none.
static bool move_to(vc_map_iterator *iterator, cursor to) {
    if (!to.pair) {
        return false;
    }
    iterator->current = to;
    if (iterator->flags & walks_slots) {
        iterator->next = occupied_slot(iterator->map, to.slot + 1, 1);
        iterator->prev = occupied_slot(iterator->map, to.slot - 1, -1);
    } else {
        iterator->next = {to.pair->next, 0};
        iterator->prev = {to.pair->prev, 0};
    }
    return true;
}

const hash_pair_t *hashmap::next_entry(vc_map_iterator *iterator) {
    return move_to(iterator, iterator->next) ? iterator->current.pair : nullptr;
}

static int report(const hash_pair_t *pair, const char **key, void **value) {
    if (!pair) {
        return 0;
    }
    if (key) {
        *key = pair->key;
    }
    if (value) {
        *value = pair->value;
    }
    return 1;
}

vc_map_iterator *vc_map_iterator_start_ex(const vc_hashmap *map, int direction) {
    if (!map) {
        QF_EINVAL();
        return nullptr;
    }
    auto *iterator = static_cast<vc_map_iterator *>(malloc(sizeof(vc_map_iterator)));
    if (!iterator) {
        QF_ENOMEM();
        return nullptr;
    }
    *iterator = hashmap::walk(map);
    if (direction == 1) {
        iterator->flags |= walks_backward;
    }
    return iterator;
}

enum class way { next, prev };

// The neighbour that "next" or "prev" means in this walk.
static cursor neighbour(const vc_map_iterator *iterator, way wanted) {
    const bool backward = (iterator->flags & walks_backward) != 0;
    return (wanted == way::next) != backward ? iterator->next : iterator->prev;
}

static int step(const char *operation, vc_map_iterator *iterator, way wanted, const char **key,
                void **value) {
    if (!iterator) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    return move_to(iterator, neighbour(iterator, wanted))
               ? report(iterator->current.pair, key, value)
               : 0;
}

static int peek(const char *operation, const vc_map_iterator *iterator, way wanted,
                const char **key, void **value) {
    if (!iterator) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    return report(neighbour(iterator, wanted).pair, key, value);
}

int vc_map_iterator_next(vc_map_iterator *iterator, const char **key, void **value) {
    return step(__func__, iterator, way::next, key, value);
}

int vc_map_iterator_prev(vc_map_iterator *iterator, const char **key, void **value) {
    return step(__func__, iterator, way::prev, key, value);
}

int vc_map_iterator_peek_next(const vc_map_iterator *iterator, const char **key, void **value) {
    return peek(__func__, iterator, way::next, key, value);
}

int vc_map_iterator_peek_prev(const vc_map_iterator *iterator, const char **key, void **value) {
    return peek(__func__, iterator, way::prev, key, value);
}

int vc_map_iterator_cur(const vc_map_iterator *iterator, const char **key, void **value) {
    if (!iterator) {
        QF_EINVAL();
        return 0;
    }
    return report(iterator->current.pair, key, value);
}

void vc_map_iterator_free(vc_map_iterator *iterator) {
    free(iterator);
}

// --- Positions ---

static int report_end(const char *operation, const hash_pair_t *pair, const char **key,
                      void **value) {
    if (!pair) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    return report(pair, key, value);
}

int vc_map_get_first_entry(const vc_hashmap *map, const char **key, void **value) {
    return report_end(__func__, map ? first_cursor(map).pair : nullptr, key, value);
}

int vc_map_get_last_entry(const vc_hashmap *map, const char **key, void **value) {
    return report_end(__func__, map ? last_cursor(map).pair : nullptr, key, value);
}

int vc_map_index(const vc_hashmap *map, uint32_t position, const char **key, void **value) {
    if (!map || position > map->num_pairs) {
        QF_EINVAL();
        return 0;
    }
    vc_map_iterator *iterator = vc_map_iterator_start_ex(map, 0);
    if (!iterator) {
        QF_ERROR("Failed to create map iterator");
        return 0;
    }
    const bool forward = position < map->num_pairs / 2;
    const way toward = forward ? way::next : way::prev;
    // The count itself means no step at all, and so no entry.
    uint32_t steps = forward ? position + 1 : map->num_pairs - position;
    while (steps && move_to(iterator, neighbour(iterator, toward))) {
        --steps;
    }
    const int found = steps ? 0 : report(iterator->current.pair, key, value);
    vc_map_iterator_free(iterator);
    if (!found) {
        QF_ERROR("Failed to iterate to requested index");
    }
    return found;
}

// --- Sorting ---

namespace {

struct ordering {
    vc_map_compare_function compare;
    bool by_key;
};

} // namespace

// Of two runs, which one gives the next entry. Equal entries keep their order.
static bool second_goes_first(const ordering &order, const hash_pair_t *a, const hash_pair_t *b) {
    return order.by_key ? order.compare(&a->key, &b->key) >= 1
                        : order.compare(&a->value, &b->value) >= 1;
}

namespace {

// A chain that is being built at its end.
struct chain {
    hash_pair_t *first = nullptr;
    hash_pair_t *last = nullptr;

    void append(hash_pair_t *pair) {
        (last ? last->next : first) = pair;
        last = pair;
    }
};

} // namespace

// Moves the first entry of *run to the end of *to.
static void move_first(hash_pair_t **run, uint64_t *left, chain *to) {
    to->append(*run);
    *run = (*run)->next;
    --*left;
}

// Merges neighbouring runs of `width` entries, once through the chain; only the next links are
// kept. Returns the number of merges.
static uint64_t merge_runs(const ordering &order, uint64_t width, chain *entries) {
    uint64_t merges = 0;
    chain merged;
    for (hash_pair_t *a = entries->first; a; ++merges) {
        hash_pair_t *b = a;
        uint64_t a_left = 0;
        for (; a_left < width && b; ++a_left) {
            b = b->next;
        }
        uint64_t b_left = width;
        while (a_left || (b_left && b)) {
            const bool take_b = !a_left || (b_left && b && second_goes_first(order, a, b));
            take_b ? move_first(&b, &b_left, &merged) : move_first(&a, &a_left, &merged);
        }
        a = b;
    }
    merged.last->next = nullptr; // NOLINT(clang-analyzer-core.NullDereference): there are entries
    *entries = merged;
    return merges;
}

int vc_map_sort(vc_hashmap *map, vc_map_compare_function compare, int by_key) {
    if (!map || !compare || hashmap::is_static(map)) {
        QF_EINVAL();
        return 0;
    }
    if (map->first == map->last) {
        return 1;
    }
    const ordering order = {compare, by_key != 0};
    chain entries = {map->first, map->last};
    for (uint64_t width = 1; merge_runs(order, width, &entries) > 1; width *= 2) {
    }
    hash_pair_t *before = nullptr;
    for (hash_pair_t *pair = entries.first; pair; pair = pair->next) {
        pair->prev = before;
        before = pair;
    }
    map->first = entries.first;
    map->last = entries.last;
    return 1;
}

} // namespace quillfence
