// What the tests of the hash map share: keys that fall where a test wants them, and values whose
// release is counted.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "log_capture.h"
#include "owned_map.h"

namespace quillfence::testing {

inline void store_all(vc_hashmap *map, const std::vector<const char *> &keys) {
    int32_t number = 0;
    for (const char *key : keys) {
        EXPECT_EQ(vc_map_store_int32(map, key, ++number), 1) << key;
    }
}

// Keys that fall into one bucket of a table.
inline std::vector<std::string> keys_of_bucket(uint32_t buckets, uint32_t bucket, size_t count) {
    std::vector<std::string> keys;
    for (int i = 0; keys.size() < count; ++i) {
        const std::string key = "key" + std::to_string(i);
        if (vc_map_hash(key.c_str()) % buckets == bucket) {
            keys.push_back(key);
        }
    }
    return keys;
}

// The same numbers on every run.
class dice {
  public:
    explicit dice(uint32_t seed) : engine_(seed) {}
    uint32_t below(uint32_t limit) {
        return static_cast<uint32_t>(engine_()) % limit;
    }

  private:
    std::mt19937 engine_;
};

class vc_hashmap_test : public logged_test {};

// The same function written down once more, in 64 bits and by its description.
inline uint32_t expected_hash(const std::string &text) {
    const auto byte = [&](size_t i) { return uint64_t{static_cast<unsigned char>(text[i])}; };
    const auto pair = [&](size_t i) { return byte(i) + 256 * byte(i + 1); };
    const auto cut = [](uint64_t value) { return value % 4294967296; };
    uint64_t hash = text.size();
    size_t i = 0;
    for (; i + 4 <= text.size(); i += 4) {
        hash = cut(hash + pair(i));
        hash = cut(hash * 65536) ^ cut(pair(i + 2) * 2048) ^ hash;
        hash = cut(hash + hash / 2048);
    }
    switch (text.size() - i) {
    case 1:
        hash = cut(hash + byte(i));
        hash ^= cut(hash * 1024);
        hash = cut(hash + hash / 2);
        break;
    case 2:
        hash = cut(hash + pair(i));
        hash ^= cut(hash * 2048);
        hash = cut(hash + hash / 131072);
        break;
    case 3:
        hash = cut(hash + pair(i));
        hash ^= cut(hash * 65536);
        hash ^= byte(i + 2) * 262144;
        hash = cut(hash + hash / 2048);
        break;
    }
    hash ^= cut(hash * 8);
    hash = cut(hash + hash / 32);
    hash ^= cut(hash * 16);
    hash = cut(hash + hash / 131072);
    hash ^= cut(hash * 33554432);
    return static_cast<uint32_t>(cut(hash + hash / 64));
}

inline int any_match(const void *, const void *) {
    return 1;
}

inline int any_order(const void *, const void *) {
    return 0;
}

// Both keys hash to 90D5328Bh, so that no table parts them.
inline constexpr char twin[] = "bocs";
inline constexpr char other_twin[] = "krgc";

inline int freed_count;
inline void *freed_value;

inline void counting_free(void *value) {
    ++freed_count;
    freed_value = value;
}

class vc_hashmap_values : public vc_hashmap_test {
  protected:
    vc_hashmap_values() {
        freed_count = 0;
        freed_value = nullptr;
    }
};

} // namespace quillfence::testing
