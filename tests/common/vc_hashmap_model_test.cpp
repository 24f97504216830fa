// Random operations beside a vector of pairs.
#include <algorithm>
#include <string>
#include <vector>

#include "drive_c.h"
#include "map_fixture.h"

namespace quillfence::testing {
namespace {

struct model_entry {
    std::string key;
    int64_t value;
};

// What a map must do, in the plainest way.
class model {
  public:
    std::vector<model_entry> entries; // in insertion order

    std::vector<model_entry>::iterator find(const std::string &key) {
        return std::find_if(entries.begin(), entries.end(),
                            [&](const model_entry &entry) { return entry.key == key; });
    }
    bool has(const std::string &key) {
        return find(key) != entries.end();
    }
};

// Compares everything that can be asked of a map with the model, and looks into the table.
void expect_same(const vc_hashmap *map, model &want) {
    ASSERT_EQ(vc_map_count(map), want.entries.size());
    vc_map_iterator *forward = vc_map_iterator_start_ex(map, 0);
    vc_map_iterator *backward = vc_map_iterator_start_ex(map, 1);
    const char *key = nullptr;
    void *value = nullptr;
    for (size_t i = 0; i < want.entries.size(); ++i) {
        const model_entry &entry = want.entries[i];
        const model_entry &mirrored = want.entries[want.entries.size() - 1 - i];
        int64_t number = 0;
        ASSERT_EQ(vc_map_iterator_peek_next(forward, &key, nullptr), 1);
        ASSERT_EQ(key, entry.key);
        ASSERT_EQ(vc_map_iterator_next(forward, &key, &value), 1);
        ASSERT_EQ(key, entry.key);
        ASSERT_EQ(reinterpret_cast<intptr_t>(value), entry.value);
        ASSERT_EQ(vc_map_iterator_next(backward, &key, nullptr), 1);
        ASSERT_EQ(key, mirrored.key);
        ASSERT_EQ(vc_map_fetch_int64(map, entry.key.c_str(), &number), 1);
        ASSERT_EQ(number, entry.value);
        ASSERT_EQ(vc_map_index(map, static_cast<uint32_t>(i), &key, nullptr), 1);
        ASSERT_EQ(key, entry.key);
    }
    EXPECT_EQ(vc_map_iterator_next(forward, nullptr, nullptr), 0);
    EXPECT_EQ(vc_map_iterator_next(backward, nullptr, nullptr), 0);
    vc_map_iterator_free(forward);
    vc_map_iterator_free(backward);

    ASSERT_EQ(uint64_t{map->num_buckets} * map->bucket_size, map->map_size);
    size_t occupied = 0;
    for (uint32_t slot = 0; slot < map->map_size; ++slot) {
        if (const hash_pair_t *pair = map->pairs[slot]) {
            ++occupied;
            ASSERT_EQ(pair->hash, expected_hash(pair->key));
            ASSERT_EQ(pair->hash % map->num_buckets, slot / map->bucket_size);
        }
    }
    ASSERT_EQ(occupied, want.entries.size());
}

int by_value(const void *a, const void *b) {
    const int64_t left = *static_cast<const int64_t *>(a) / 8;
    const int64_t right = *static_cast<const int64_t *>(b) / 8;
    return left > right ? 1 : left < right ? -1 : 0;
}

class model_run {
  public:
    model_run(uint32_t seed, uint32_t buckets, uint32_t slots)
        : random_(seed), map_(vc_map_create(buckets, slots)) {}
    ~model_run() {
        vc_map_destroy(map_);
    }
    model_run(const model_run &) = delete;
    model_run &operator=(const model_run &) = delete;

    void run(int steps) {
        for (int i = 0; i < steps && !::testing::Test::HasFatalFailure(); ++i) {
            step();
            if (i % 16 == 0) {
                compare();
            }
        }
        compare();
    }

  private:
    std::string some_key() {
        return "key " + std::to_string(random_.below(150));
    }
    void compare() {
        expect_same(map_, want_);
        const std::string key = some_key();
        ASSERT_EQ(vc_map_fetch(map_, key.c_str(), nullptr), want_.has(key) ? 1 : 0);
    }
    void step() {
        static const struct {
            unsigned below; // of a thousand
            void (model_run::*act)(const std::string &key);
        } actions[] = {
            {400, &model_run::store},         {520, &model_run::update}, {740, &model_run::remove},
            {870, &model_run::rename},        {940, &model_run::find},   {955, &model_run::sort},
            {965, &model_run::grow},          {975, &model_run::copy},   {985, &model_run::shrink},
            {998, &model_run::save_and_load}, {1000, &model_run::clear}};
        const uint32_t thrown = random_.below(1000);
        const auto *action = actions;
        while (thrown >= action->below) {
            ++action;
        }
        (this->*action->act)(some_key());
    }
    int64_t some_value() {
        return static_cast<int64_t>(random_.below(64));
    }
    void store(const std::string &key) {
        const int64_t value = some_value();
        const bool known = want_.has(key);
        ASSERT_EQ(vc_map_store_int64(map_, key.c_str(), value), known ? 0 : 1);
        if (!known) {
            want_.entries.push_back({key, value});
        }
    }
    void update(const std::string &key) {
        const int64_t value = some_value();
        const auto found = want_.find(key);
        const bool known = found != want_.entries.end();
        ASSERT_EQ(vc_map_update_int64(map_, key.c_str(), value), known ? 1 : 0);
        if (known) {
            found->value = value;
        }
    }
    void remove(const std::string &key) {
        const auto found = want_.find(key);
        const bool known = found != want_.entries.end();
        ASSERT_EQ(vc_map_remove(map_, key.c_str()), known ? 1 : 0);
        if (known) {
            want_.entries.erase(found);
        }
    }
    void rename(const std::string &key) {
        const std::string fresh = some_key();
        const bool possible = want_.has(key) && !want_.has(fresh);
        ASSERT_EQ(vc_map_rename(map_, key.c_str(), fresh.c_str()), possible ? 1 : 0);
        if (possible) {
            want_.find(key)->key = fresh;
        }
    }
    void find(const std::string &) {
        const int64_t value = some_value();
        const bool held =
            std::any_of(want_.entries.begin(), want_.entries.end(),
                        [&](const model_entry &entry) { return entry.value == value; });
        const char *key = nullptr;
        ASSERT_EQ(vc_map_find(map_, &value, nullptr, &key), held ? 1 : 0);
        if (held) {
            const auto found = want_.find(key);
            ASSERT_NE(found, want_.entries.end()) << key;
            ASSERT_EQ(found->value, value) << key;
        }
    }
    void sort(const std::string &) {
        ASSERT_EQ(vc_map_sort(map_, by_value, 0), 1);
        std::stable_sort(
            want_.entries.begin(), want_.entries.end(),
            [](const model_entry &a, const model_entry &b) { return a.value / 8 < b.value / 8; });
    }
    void grow(const std::string &) {
        if (map_->map_size < 5000) {
            ASSERT_EQ(vc_map_rehash(map_), 1);
        }
    }
    void copy(const std::string &) {
        const uint32_t buckets = 1 + random_.below(9);
        replace(vc_map_copy_ex(map_, buckets, 2 + random_.below(9)));
    }
    void shrink(const std::string &) {
        replace(vc_map_shrink(map_));
    }
    // Over the file of an earlier save, which may have been longer.
    void save_and_load(const std::string &) {
        static constexpr char path[] = "c:/quillfence/model.map";
        ASSERT_EQ(vc_map_save(map_, path, 1), 1);
        vc_hashmap *loaded = vc_map_load(path);
        ASSERT_NE(loaded, nullptr);
        EXPECT_EQ(loaded->num_buckets, map_->num_buckets);
        EXPECT_EQ(loaded->bucket_size, map_->bucket_size);
        replace(loaded);
    }
    void clear(const std::string &) {
        ASSERT_EQ(vc_map_clear(map_), 1);
        want_.entries.clear();
    }
    void replace(vc_hashmap *copy) {
        ASSERT_NE(copy, nullptr);
        ASSERT_EQ(vc_map_destroy(map_), 1);
        map_ = copy;
    }

    dice random_;
    vc_hashmap *map_;
    model want_;
};

class vc_hashmap_model : public drive_test {};

TEST_F(vc_hashmap_model, random_operations_do_as_the_model_does) {
    const struct {
        uint32_t buckets;
        uint32_t slots;
    } geometries[] = {{0, 0}, {1, 1}, {1, 3}, {3, 2}, {5, 13}, {16, 4}, {97, 1}};
    uint32_t seed = 1;
    for (const auto &geometry : geometries) {
        SCOPED_TRACE(::testing::Message() << geometry.buckets << " x " << geometry.slots);
        for (int round = 0; round < 3; ++round) {
            model_run(++seed, geometry.buckets, geometry.slots).run(800);
        }
    }
}

} // namespace
} // namespace quillfence::testing
