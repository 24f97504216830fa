// The hash map as text: the debug listing and the source of a constant map.
#include <cstdlib>
#include <cstring>

#include "vc_hashmap_internal.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "vc_hashmap";

static int written(FILE *stream) {
    return ferror(stream) ? 0 : 1;
}

// A pointer in one form on every system.
static void print_pointer(FILE *stream, const void *pointer) {
    if (pointer) {
        fprintf(stream, "0x%llx",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer)));
    } else {
        fputs("(nil)", stream);
    }
}

int vc_map_dump(const vc_hashmap *map, FILE *stream) {
    if (!map || !stream) {
        QF_EINVAL();
        return 0;
    }
    fprintf(stream, "Hashmap (%u buckets, %u slots per bucket, %u pairs)\n", map->num_buckets,
            map->bucket_size, map->num_pairs);
    fputs("=====================================================\n", stream);
    fputs("[bucket][slot] <key>:<hash> = <pointer>\n", stream);
    for (uint32_t slot = 0; slot < map->map_size; ++slot) {
        const hash_pair_t *pair = map->const_pairs[slot];
        fprintf(stream, "%d. [%d][%d] %s:%08x = ", static_cast<int>(slot),
                static_cast<int>(slot / map->bucket_size),
                static_cast<int>(slot % map->bucket_size), pair ? pair->key : "<null>",
                pair ? pair->hash : 0u);
        print_pointer(stream, pair ? pair->value : nullptr);
        fputc('\n', stream);
    }
    return written(stream);
}

// A value's text. A copy ends where its bytes end, with or without a NUL.
static void print_value(FILE *stream, const hash_pair_t *pair) {
    const char *text = static_cast<const char *>(pair->value);
    if (!text) {
        fputs("NULL", stream);
    } else if (pair->flags & MAP_PAIR_OWNED) {
        fwrite(text, 1, strnlen(text, pair->size), stream);
    } else {
        fputs(text, stream);
    }
}

static void print_slot(FILE *stream, const hash_pair_t *pair) {
    fprintf(stream, "        SLOT(0x%x, \"%s\", ", pair->hash, pair->key);
    print_value(stream, pair);
    fprintf(stream, ", 0x%x)", pair->flags & ~MAP_PAIR_OWNED);
}

static bool has_inline_value(const vc_hashmap *map) {
    vc_map_iterator entries = hashmap::walk(map);
    while (const hash_pair_t *pair = hashmap::next_entry(&entries)) {
        if (hashmap::is_inline(pair)) {
            return true;
        }
    }
    return false;
}

int gen_static_map_ex(FILE *stream, const vc_hashmap *map, const char *name) {
    if (!stream || !map || has_inline_value(map)) {
        QF_EINVAL();
        return 0;
    }
    if (map->num_pairs == map->num_buckets) {
        fputs("// \\(^_^)/ Yay! A perfect hashmap! (num pairs == num buckets)\n", stream);
    }
    fprintf(stream,
            "const vc_hashmap *%s = &(const vc_hashmap){\n"
            "   .flags = MAP_FLAG_STATIC,\n"
            "   .num_buckets = %u,\n"
            "   .bucket_size = %u,\n"
            "   .map_size = %u,\n"
            "   .num_pairs = %u,\n"
            "   .const_pairs = (const hash_pair_t *[]) {\n",
            name ? name : "static_map", map->num_buckets, map->bucket_size, map->map_size,
            map->num_pairs);
    bool in_run = false; // of free slots, which share a line
    for (uint32_t slot = 0; slot < map->map_size; ++slot) {
        const hash_pair_t *pair = map->const_pairs[slot];
        const bool continues = !pair && in_run;
        if (slot) {
            fputs(continues ? "," : ",\n", stream);
        }
        if (pair) {
            print_slot(stream, pair);
        } else {
            fputs(continues ? " NULL" : "        NULL", stream);
        }
        in_run = !pair;
    }
    fputs("\n    }\n};\n", stream);
    return written(stream);
}

} // namespace quillfence
