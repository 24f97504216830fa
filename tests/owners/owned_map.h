// Maps that go away with their scope, and what a test sees of a map.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "vc_hashmap.h"

namespace quillfence::testing {

class owned_map {
  public:
    explicit owned_map(uint32_t buckets = 0, uint32_t slots = 0)
        : owned_map(vc_map_create(buckets, slots)) {}
    explicit owned_map(vc_hashmap *map) : map_(map) {
        EXPECT_NE(map, nullptr);
    }
    ~owned_map() {
        if (map_) {
            map_->flags = 0; // a file may have called it static
            EXPECT_EQ(vc_map_destroy(map_), 1);
        }
    }
    owned_map(const owned_map &) = delete;
    owned_map &operator=(const owned_map &) = delete;
    operator vc_hashmap *() const {
        return map_;
    }
    vc_hashmap *operator->() const {
        return map_;
    }

  private:
    vc_hashmap *map_;
};

// The keys in the order of iteration, as "a b c".
inline std::string order_of(const vc_hashmap *map) {
    std::string order;
    vc_map_iterator *iterator = vc_map_iterator_start_ex(map, 0);
    const char *key;
    while (vc_map_iterator_next(iterator, &key, nullptr)) {
        order += (order.empty() ? "" : " ") + std::string(key);
    }
    vc_map_iterator_free(iterator);
    return order;
}

} // namespace quillfence::testing
