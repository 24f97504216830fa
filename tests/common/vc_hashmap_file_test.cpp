// The hash map in files and as text.
#include "vc_hashmap.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "error_text.h"
#include "owned_map.h"
#include "platform/file.h"

namespace quillfence {
namespace {

using testing::call_watch;
using testing::lines;
using testing::order_of;
using testing::owned_map;
using testing::text_of;
using namespace std::string_literals;

constexpr char path[] = "c:/quillfence/map";

std::string text_in(const vc_hashmap *map, const char *key) {
    void *value = nullptr;
    return vc_map_fetch(map, key, &value) && value ? static_cast<const char *>(value) : "(none)";
}

class vc_hashmap_file : public testing::drive_test {};

// --- The binary file ---

std::string numbers(std::initializer_list<uint32_t> values) {
    std::string bytes;
    for (const uint32_t value : values) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes += static_cast<char>(value >> shift);
        }
    }
    return bytes;
}

// 5 x 2, in this order: "a" (bucket 3) the number -2, "d" (bucket 1) a copied string, "c"
// (bucket 1) nine borrowed bytes, "b" (bucket 0) nothing.
char nine_bytes[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

vc_hashmap *sample_map() {
    vc_hashmap *map = vc_map_create(5, 2);
    char text[] = "wxyz";
    EXPECT_EQ(vc_map_store_int32(map, "a", -2), 1);
    EXPECT_EQ(vc_map_store_ex(map, "d", text, 5, 1, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "c", nine_bytes, 9, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "b", nullptr, 0, 0, nullptr), 1);
    return map;
}

std::string sample_bytes() {
    return numbers({0, 5, 2, 10, 4, 6, 0}) +            // header
           numbers({0, 0, 0, 1, 0}) + "b" +             // slot 0, the last of the chain
           numbers({2, 3, 1, 1, 5}) + "d" + "wxyz\0"s + // slot 2, then slot 3
           numbers({3, 0, 1, 1, 9}) +
           "c"
           "123456789" + // slot 3, then slot 0
           numbers({6, 2, 0, 1, 4}) +
           "a" + "\xFE\xFF\xFF\xFF"; // slot 6, then slot 2
}

TEST_F(vc_hashmap_file, the_saved_bytes) {
    const owned_map map(sample_map());
    call_watch watch;
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    EXPECT_EQ(watch.count("file_write"), 1);
    EXPECT_EQ(watch.count("temporary_create"), 1);
    EXPECT_EQ(watch.count("file_close"), 1);
    EXPECT_EQ(drive.read(path), sample_bytes());
}

// The sample of the format page.
TEST_F(vc_hashmap_file, the_page_shows_these_bytes) {
    std::ifstream page(QF_FORMAT_PAGE);
    ASSERT_TRUE(page.is_open());
    std::string bytes;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("    00")) {
            std::istringstream hex(line.substr(12, 47));
            for (std::string byte; hex >> byte;) {
                bytes += static_cast<char>(std::stoi(byte, nullptr, 16));
            }
        }
    }
    EXPECT_EQ(bytes, sample_bytes());
}

// What the loader would not believe is not written, so that nothing is lost.
TEST_F(vc_hashmap_file, a_table_far_too_large_for_its_entries_is_not_saved) {
    const owned_map largest(vc_map_create(65536, 128));
    ASSERT_EQ(vc_map_store_int32(largest, "a", 1), 1);
    ASSERT_EQ(vc_map_save(largest, path, 1), 1);
    const std::string saved = drive.read(path);
    const owned_map loaded(vc_map_load(path));
    EXPECT_EQ(vc_map_count(loaded), 1u);
    const owned_map larger(vc_map_create(65536, 129));
    ASSERT_EQ(vc_map_store_int32(larger, "a", 1), 1);
    EXPECT_EQ(vc_map_save(larger, path, 1), 0);
    EXPECT_EQ(drive.read(path), saved);
    EXPECT_EQ(log.errors(),
              lines{"vc_map_save: Table is too large for its entries, failed to save"});
}

TEST_F(vc_hashmap_file, the_loaded_map) {
    drive.write(path, sample_bytes());
    const owned_map map(vc_map_load(path));
    EXPECT_EQ(map->flags, 0u);
    EXPECT_EQ(map->num_buckets, 5u);
    EXPECT_EQ(map->bucket_size, 2u);
    EXPECT_EQ(map->map_size, 10u);
    EXPECT_EQ(vc_map_count(map), 4u);
    EXPECT_EQ(order_of(map), "a d c b");
    int32_t number = 0;
    int64_t wide = 0;
    EXPECT_EQ(vc_map_fetch_int32(map, "a", &number), 1);
    EXPECT_EQ(number, -2);
    EXPECT_EQ(vc_map_fetch_int64(map, "a", &wide), 1);
    EXPECT_EQ(wide, 0xFFFFFFFE); // extended by zeros
    EXPECT_EQ(text_in(map, "d"), "wxyz");
    void *value = nullptr;
    EXPECT_EQ(vc_map_fetch(map, "c", &value), 1);
    EXPECT_EQ(std::memcmp(value, "123456789", 9), 0);
    EXPECT_EQ(vc_map_fetch(map, "b", &value), 1);
    EXPECT_EQ(value, nullptr);
    const char *key = nullptr;
    EXPECT_EQ(vc_map_index(map, 3, &key, nullptr), 1); // walks backward
    EXPECT_STREQ(key, "b");
    EXPECT_EQ(vc_map_remove(map, "d"), 1);
    EXPECT_EQ(vc_map_store_int32(map, "f", 1), 1);
    EXPECT_EQ(order_of(map), "a c b f");
}

TEST_F(vc_hashmap_file, what_is_saved_comes_back) {
    const owned_map map(vc_map_create(0, 0));
    const std::string block(100, 'B');
    EXPECT_EQ(vc_map_store_int32(map, "int32", -7), 1);
    EXPECT_EQ(vc_map_store_ex(map, "string", const_cast<char *>("text"), 5, 1, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "block", const_cast<char *>(block.data()), 100, 1, nullptr), 1);
    EXPECT_EQ(vc_map_store_bool(map, "bool", true), 1);
    EXPECT_EQ(vc_map_store_double(map, "double", 0.1), 1);
    EXPECT_EQ(vc_map_store_ex(map, "freed", ::strdup("heap"), 5, 0, std::free), 1);
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    const owned_map loaded(vc_map_load(path));
    EXPECT_EQ(order_of(loaded), "int32 string block bool double freed");
    int32_t number = 0;
    bool truth = false;
    double real = 0;
    void *value = nullptr;
    EXPECT_EQ(vc_map_fetch_int32(loaded, "int32", &number), 1);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(text_in(loaded, "string"), "text");
    EXPECT_EQ(vc_map_fetch(loaded, "block", &value), 1);
    EXPECT_EQ(std::string(static_cast<char *>(value), 100), block);
    EXPECT_EQ(vc_map_fetch_bool(loaded, "bool", &truth), 1);
    EXPECT_TRUE(truth);
    EXPECT_EQ(vc_map_fetch_double(loaded, "double", &real), 1);
    EXPECT_EQ(real, 0.1);
    EXPECT_EQ(text_in(loaded, "freed"), "heap");
    // And the same file comes out of the loaded map.
    EXPECT_EQ(vc_map_save(loaded, "c:/quillfence/again", 0), 1);
    const owned_map again(vc_map_load("c:/quillfence/again"));
    EXPECT_EQ(order_of(again), "int32 string block bool double freed");
}

TEST_F(vc_hashmap_file, a_large_map_keeps_its_order) {
    const owned_map map(vc_map_create(1, 1));
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(vc_map_store_int32(map, std::to_string(i * 7919 % 1000).c_str(), i), 1);
    }
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    const owned_map loaded(vc_map_load(path));
    EXPECT_EQ(order_of(loaded), order_of(map));
    EXPECT_EQ(loaded->num_buckets, map->num_buckets);
}

// What a map holds, in the plainest form.
enum class kept { number, copy, borrowed, handed_over, null };
struct model_entry {
    kept as;
    std::string key, bytes;
};

// Makes random entries and stores them; removes some, so that chain and slots differ.
class random_map {
  public:
    random_map(uint32_t seed, const std::string &key_prefix) : random_(seed), prefix_(key_prefix) {
        const size_t count = below(60);
        while (entries_.size() < count) {
            add();
        }
        for (size_t i = below(20); i > 0 && !entries_.empty(); --i) {
            const auto gone =
                entries_.begin() + static_cast<std::ptrdiff_t>(below(entries_.size()));
            EXPECT_EQ(vc_map_remove(map_, gone->key.c_str()), 1);
            entries_.erase(gone);
        }
    }
    const owned_map &map() const {
        return map_;
    }
    const std::vector<model_entry> &entries() const {
        return entries_;
    }

  private:
    size_t below(size_t limit) {
        return random_() % limit;
    }
    std::string bytes(size_t size) {
        std::string made(size, ' ');
        for (char &c : made) {
            c = static_cast<char>(below(256));
        }
        return made;
    }
    void add() {
        model_entry entry = {static_cast<kept>(below(5)), prefix_ + std::to_string(added_++), ""};
        const char *key = entry.key.c_str();
        int stored = 0;
        switch (entry.as) {
        case kept::number: {
            const auto number = static_cast<uint32_t>(random_());
            const bool wide = below(2) != 0;
            entry.bytes = numbers({number}) + (wide ? numbers({number}) : "");
            stored = wide ? vc_map_store_uint64(map_, key, uint64_t{number} << 32 | number)
                          : vc_map_store_uint32(map_, key, number);
            break;
        }
        case kept::copy:
            entry.bytes = bytes(below(40));
            stored = vc_map_store_ex(map_, key, entry.bytes.data(), entry.bytes.size(), 1, nullptr);
            break;
        case kept::borrowed:
            entry.bytes = bytes(1 + below(40));
            lent_.push_back(std::make_unique<std::string>(entry.bytes));
            stored =
                vc_map_store_ex(map_, key, lent_.back()->data(), entry.bytes.size(), 0, nullptr);
            break;
        case kept::handed_over: {
            entry.bytes = bytes(1 + below(40));
            void *block = std::malloc(entry.bytes.size());
            std::memcpy(block, entry.bytes.data(), entry.bytes.size());
            stored = vc_map_store_ex(map_, key, block, entry.bytes.size(), 0, std::free);
            break;
        }
        case kept::null:
            stored = vc_map_store_ex(map_, key, nullptr, below(20), 0, nullptr);
            break;
        }
        EXPECT_EQ(stored, 1);
        entries_.push_back(std::move(entry));
    }

    std::mt19937 random_;
    std::string prefix_;
    unsigned added_ = 0;
    std::vector<std::unique_ptr<std::string>> lent_;
    owned_map map_{1 + static_cast<uint32_t>(random_() % 9), static_cast<uint32_t>(random_() % 4)};
    std::vector<model_entry> entries_;
};

TEST_F(vc_hashmap_file, random_maps_come_back_entry_by_entry) {
    for (uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        const random_map made(seed, seed % 2 ? "k" : "a longer key ");
        drive.remove(path);
        ASSERT_EQ(vc_map_save(made.map(), path, 0), 1);
        const owned_map loaded(vc_map_load(path));
        ASSERT_EQ(vc_map_count(loaded), made.entries().size());
        const hash_pair_t *pair = loaded->first;
        for (const model_entry &entry : made.entries()) {
            ASSERT_STREQ(pair->key, entry.key.c_str());
            ASSERT_EQ(pair->size, entry.bytes.size()) << entry.key;
            void *value = nullptr;
            ASSERT_EQ(vc_map_fetch(loaded, pair->key, &value), 1);
            const bool is_inline = entry.as == kept::number;
            std::string held(entry.bytes.size(), '\0');
            if (!held.empty()) {
                std::memcpy(held.data(), is_inline ? &value : value, held.size());
            }
            ASSERT_EQ(held, entry.bytes) << entry.key;
            const bool in_a_block = !is_inline && entry.as != kept::null;
            EXPECT_EQ(pair->freefn != nullptr, in_a_block) << entry.key;
            pair = pair->next;
        }
        EXPECT_EQ(pair, nullptr);
        drive.remove("c:/quillfence/again");
        ASSERT_EQ(vc_map_save(loaded, "c:/quillfence/again", 0), 1);
        EXPECT_EQ(drive.read("c:/quillfence/again"), drive.read(path));
    }
}

TEST_F(vc_hashmap_file, empty_maps_come_back_empty) {
    for (const uint32_t slots : {0u, 3u}) {
        const owned_map map(vc_map_create(7, slots));
        EXPECT_EQ(vc_map_save(map, path, 1), 1);
        EXPECT_EQ(drive.read(path), numbers({0, 7, slots, 7 * slots, 0, 0, 0}));
        const owned_map loaded(vc_map_load(path));
        EXPECT_EQ(vc_map_count(loaded), 0u);
        EXPECT_EQ(loaded->map_size, 7 * slots);
        EXPECT_EQ(vc_map_store_int32(loaded, "a", 1), 1);
    }
}

TEST_F(vc_hashmap_file, a_short_borrowed_value_is_saved_as_its_bytes) {
    const owned_map map(vc_map_create(5, 2));
    char text[] = "ab";
    EXPECT_EQ(vc_map_store_ex(map, "d", text, 3, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "a", nullptr, 3, 0, nullptr), 1);
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    EXPECT_EQ(drive.read(path), numbers({0, 5, 2, 10, 2, 2, 6}) + numbers({2, 6, 1, 1, 3}) + "d" +
                                    "ab\0"s + numbers({6, 0, 0, 1, 0}) + "a");
}

TEST_F(vc_hashmap_file, an_existing_file_is_kept_unless_overwriting) {
    const owned_map map(sample_map());
    drive.write(path, "precious");
    EXPECT_EQ(vc_map_save(map, path, 0), 0);
    EXPECT_EQ(drive.read(path), "precious");
    EXPECT_EQ(vc_map_save(map, "c:/quillfence/new", 0), 1);
    EXPECT_EQ(drive.read("c:/quillfence/new"), sample_bytes());
}

TEST_F(vc_hashmap_file, nothing_of_a_longer_file_stays) {
    const owned_map map(sample_map());
    drive.write(path, std::string(sample_bytes().size() + 50, 'T'));
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    EXPECT_EQ(drive.read(path), sample_bytes());
    EXPECT_FALSE(drive.exists(path + ".tmp"s));
}

TEST_F(vc_hashmap_file, a_file_that_was_left_over_beside_it_goes) {
    const owned_map map(sample_map());
    drive.write(path + ".tmp"s, std::string(sample_bytes().size() + 50, 'T'));
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    EXPECT_EQ(drive.read(path), sample_bytes());
    EXPECT_FALSE(drive.exists(path + ".tmp"s));
}

// Behind a tail that an earlier version left, the reader never looks.
TEST_F(vc_hashmap_file, a_tail_is_not_read) {
    drive.write(path, sample_bytes() + std::string(50, 'T'));
    EXPECT_EQ(order_of(owned_map(vc_map_load(path))), "a d c b");
}

TEST_F(vc_hashmap_file, a_save_that_breaks_off_leaves_the_old_map) {
    const owned_map map(sample_map());
    const struct {
        const char *call;
        uint32_t error;
        lines want_errors;
    } cases[] = {
        {"file_write",
         112,
         {"vc_write: fatal error on block write (w32) got error code 112",
          "vc_map_save: Failed to write the data to the file during save: [" + text_of(0) + "]"}},
        {"file_sync",
         112,
         {"vc_map_save: Failed to write the data to the file during save: [" + text_of(ENOSPC) +
          "]"}},
        {"path_replace",
         5,
         {"vc_map_save: Failed to write the data to the file during save: [" + text_of(EACCES) +
          "]"}},
    };
    for (const auto &c : cases) {
        drive.write(path, "the old one");
        call_watch watch;
        watch.fail(c.call, 1, c.error);
        EXPECT_EQ(vc_map_save(map, path, 1), 0) << c.call;
        EXPECT_EQ(log.errors(), c.want_errors) << c.call;
        EXPECT_EQ(drive.read(path), "the old one") << c.call;
        EXPECT_FALSE(drive.exists(path + ".tmp"s)) << c.call;
    }
}

void foreign_free(void *) {}

TEST_F(vc_hashmap_file, saving_fails) {
    const owned_map map(sample_map());
    EXPECT_EQ(vc_map_save(nullptr, path, 1), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_save: " + text_of(EINVAL)});
    EXPECT_EQ(vc_map_save(map, nullptr, 1), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_save: " + text_of(EINVAL)});
    EXPECT_EQ(vc_map_save(map, "c:/quillfence/none/map", 1), 0);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 3"});
    {
        call_watch watch;
        watch.fail("file_write", 1, 112);
        EXPECT_EQ(vc_map_save(map, path, 1), 0);
        EXPECT_EQ(log.errors(),
                  (lines{"vc_write: fatal error on block write (w32) got error code 112",
                         "vc_map_save: Failed to write the data to the file during save: [" +
                             text_of(0) + "]"}));
        EXPECT_EQ(watch.count("file_close"), 1);
    }
    drive.remove(path);
    EXPECT_EQ(vc_map_store_ex(map, "x", nine_bytes, 9, 0, foreign_free), 1);
    EXPECT_EQ(vc_map_save(map, path, 1), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_save: Cannot save complex maps!"});
    EXPECT_FALSE(drive.exists(path));
}

TEST_F(vc_hashmap_file, a_value_beyond_32_bits_is_not_saved) {
    for (const uint64_t size : {uint64_t{4294967296}, uint64_t{4294967295}}) {
        const owned_map map(vc_map_create(5, 2));
        EXPECT_EQ(vc_map_store_ex(map, "a", nine_bytes, size, 0, nullptr), 1);
        EXPECT_EQ(vc_map_save(map, path, 1), 0);
        EXPECT_EQ(log.errors(), lines{"vc_map_save: Key or value is too big, failed to save"});
        EXPECT_FALSE(drive.exists(path));
    }
}

TEST_F(vc_hashmap_file, an_entry_without_a_slot_is_left_out) {
    const owned_map map(vc_map_create(5, 1)); // "bocs" and "krgc" have one hash
    for (const char *key : {"a", "bocs", "b"}) {
        EXPECT_EQ(vc_map_store_int32(map, key, 1), 1);
    }
    EXPECT_EQ(vc_map_rename(map, "a", "krgc"), 0);
    EXPECT_EQ(log.errors().size(), 2u);
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    const owned_map loaded(vc_map_load(path));
    EXPECT_EQ(order_of(loaded), "bocs b");
}

// --- Loading what is not right ---

TEST_F(vc_hashmap_file, a_path_that_is_no_file_is_null_without_a_line) {
    EXPECT_EQ(vc_map_load("c:/quillfence/missing"), nullptr);
    EXPECT_FALSE(drive.exists("c:/quillfence/missing"));
    EXPECT_EQ(vc_map_load("c:/quillfence"), nullptr);
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_EQ(vc_map_load(nullptr), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_map_load: " + text_of(EINVAL)});
}

TEST_F(vc_hashmap_file, a_file_that_can_not_be_read) {
    drive.write(path, sample_bytes());
    const std::string start = "Failed to grab contents of file [c:/quillfence/map]: ";
    call_watch watch;
    for (const auto load : {+[] { return vc_map_load(path) != nullptr ? 1 : -1; },
                            +[] {
                                vc_hashmap *map = nullptr;
                                return vc_map_load_control_file(path, 0, '=', &map);
                            }}) {
        watch.fail("file_read", 1, 1117);
        EXPECT_EQ(load(), -1);
        const lines errors = log.errors();
        ASSERT_FALSE(errors.empty());
        EXPECT_TRUE(errors.back().ends_with(start + "[unkown error]")) << errors.back();
    }
}

TEST_F(vc_hashmap_file, a_file_that_is_too_long_is_named_with_the_reason) {
    platform::file_handle file = platform::invalid_file;
    ASSERT_EQ(platform::file_open(path, {.write = true, .when = platform::disposition::open_always},
                                  &file),
              0u);
    ASSERT_EQ(platform::file_seek(file, 104857601, platform::seek_origin::begin, nullptr), 0u);
    ASSERT_EQ(platform::file_truncate(file), 0u);
    ASSERT_EQ(platform::file_close(file), 0u);
    EXPECT_EQ(vc_map_load(path), nullptr);
    EXPECT_EQ(log.errors().back(), "vc_map_load: Failed to grab contents of file "
                                   "[c:/quillfence/map]: [" +
                                       text_of(27) + "]");
}

TEST_F(vc_hashmap_file, damaged_files) {
    const std::string record_a = numbers({6, 0, 0, 1, 4}) + "a" + "\1\0\0\0"s;
    const std::string record_d = numbers({2, 6, 0, 1, 0}) + "d";
    const struct {
        const char *name;
        std::string bytes;
        lines want_before;
    } cases[] = {
        {"an empty file", "", {}},
        {"half a header", sample_bytes().substr(0, 14), {}},
        {"more entries than the file can hold", numbers({0, 5, 2, 10, 1000000000, 0, 0}), {}},
        {"an entry is missing", numbers({0, 5, 2, 10, 2, 2, 6}) + record_d, {}},
        {"entries without slots", numbers({0, 5, 0, 0, 1, 6, 6}) + record_a, {}},
        {"a slot behind the table", numbers({0, 3, 2, 6, 1, 6, 6}) + record_a, {}},
        {"a slot twice", numbers({0, 5, 2, 10, 2, 6, 6}) + record_a + record_a, {}},
        {"a key beyond the file",
         numbers({0, 5, 2, 10, 1, 6, 6, 6, 0, 0, 0xFFFFFFFF, 4}) + "a\1\0\0\0"s,
         {}},
        {"a value beyond the file",
         numbers({0, 5, 2, 10, 1, 6, 6, 6, 0, 0, 1, 5}) + "a\1\0\0\0"s,
         {}},
        {"a NUL in a key", numbers({0, 5, 2, 10, 1, 6, 6, 6, 0, 0, 3, 0}) + "a\0b"s, {}},
        {"a first slot without entry", numbers({0, 5, 2, 10, 1, 3, 6}) + record_a, {}},
        {"a first slot behind the table", numbers({0, 5, 2, 10, 1, 99, 6}) + record_a, {}},
        {"a last slot without entry", numbers({0, 5, 2, 10, 1, 6, 3}) + record_a, {}},
        {"a link to a free slot",
         numbers({0, 5, 2, 10, 2, 2, 6}) + numbers({2, 5, 0, 1, 0}) + "d" + record_a,
         {}},
        {"a link behind the table",
         numbers({0, 5, 2, 10, 2, 2, 6}) + numbers({2, 10, 0, 1, 0}) + "d" + record_a,
         {}},
        {"a link to itself",
         numbers({0, 5, 2, 10, 2, 2, 6}) + numbers({2, 2, 0, 1, 0}) + "d" + record_a,
         {}},
        {"an entry outside the chain", numbers({0, 5, 2, 10, 2, 6, 6}) + record_d + record_a, {}},
        {"a table of gigabytes", numbers({0, 100000000, 40, 0, 0, 0, 0}), {}},
        {"slots without buckets",
         numbers({0, 0, 40, 0, 0, 0, 0}),
         {"vc_map_create: Failed to initialize buckets of new map"}},
    };
    for (const auto &test : cases) {
        drive.write(path, test.bytes);
        EXPECT_EQ(vc_map_load(path), nullptr) << test.name;
        lines want = test.want_before;
        want.push_back(want.empty() ? "vc_map_load: Corrupt map file [c:/quillfence/map]"
                                    : "vc_map_load: Failed to create new map");
        EXPECT_EQ(log.errors(), want) << test.name;
    }
}

// Uses a map in every way that reads it and in some that change it.
void exercise(vc_hashmap *map) {
    const std::string order = order_of(map);
    vc_map_fetch(map, "a", nullptr);
    vc_map_index(map, 1, nullptr, nullptr);
    vc_map_memory_size(map);
    if (map->map_size > 10000) {
        return; // a damaged size; the rest would walk the whole table
    }
    vc_map_save(map, "c:/quillfence/saved", 1);
    if (const owned_map again(vc_map_load("c:/quillfence/saved")); again) {
        EXPECT_EQ(order_of(again), order);
    }
    vc_map_remove(map, "a");
    vc_map_rename(map, "d", "new");
    vc_map_store_int32(map, "another", 1);
    vc_map_rehash(map);
}

TEST_F(vc_hashmap_file, no_damage_does_harm) {
    const std::string whole = sample_bytes();
    for (size_t length = 0; length < whole.size(); ++length) {
        drive.remove(path);
        drive.write(path, whole.substr(0, length));
        EXPECT_EQ(vc_map_load(path), nullptr) << length;
        EXPECT_EQ(log.errors(), lines{"vc_map_load: Corrupt map file [c:/quillfence/map]"});
    }
    int loaded = 0;
    for (size_t bit = 0; bit < whole.size() * 8; ++bit) {
        std::string damaged = whole;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
        drive.remove(path); // a new file is written faster than an old one is emptied
        drive.write(path, damaged);
        if (vc_hashmap *map = vc_map_load(path)) {
            const owned_map owner(map);
            EXPECT_TRUE(vc_map_count(map) == 4 || vc_map_count(map) == 0) << "bit " << bit;
            map->flags = 0;
            exercise(map);
            ++loaded;
        } else {
            EXPECT_FALSE(log.errors().empty()) << "bit " << bit;
        }
        log.errors();
    }
    EXPECT_GT(loaded, 0); // keys, values and flags may be anything
}

TEST_F(vc_hashmap_file, a_record_in_a_foreign_bucket_keeps_its_slot) {
    drive.write(path, numbers({0, 5, 2, 10, 2, 9, 8}) + numbers({8, 0, 0, 1, 0}) + "d" +
                          numbers({9, 8, 0, 1, 0}) + "a");
    const owned_map map(vc_map_load(path));
    EXPECT_EQ(order_of(map), "a d");
    EXPECT_EQ(vc_map_fetch(map, "a", nullptr), 0);
    EXPECT_EQ(vc_map_save(map, "c:/quillfence/again", 1), 1);
    EXPECT_EQ(drive.read("c:/quillfence/again"), drive.read(path));
}

TEST_F(vc_hashmap_file, flags_of_a_file_are_kept_but_not_the_internal_one) {
    drive.write(path, numbers({1, 5, 2, 10, 1, 6, 6, 6, 0, 0x80000004, 1, 4}) + "a\1\2\3\4");
    const owned_map map(vc_map_load(path));
    EXPECT_EQ(map->flags, MAP_FLAG_STATIC);
    EXPECT_EQ(vc_map_destroy(map), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_destroy: Attempting to destroy a static hashmap!"});
    map->flags = 0;
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    EXPECT_EQ(drive.read(path), numbers({0, 5, 2, 10, 1, 6, 6, 6, 0, 4, 1, 4}) + "a\1\2\3\4");
}

TEST_F(vc_hashmap_file, a_static_map_is_saved_as_a_chain_in_slot_order) {
    const owned_map map(sample_map());
    map->flags = MAP_FLAG_STATIC;
    EXPECT_EQ(vc_map_save(map, path, 1), 1);
    EXPECT_EQ(drive.read(path), numbers({1, 5, 2, 10, 4, 0, 6}) + //
                                    numbers({0, 2, 0, 1, 0}) + "b" + numbers({2, 3, 1, 1, 5}) +
                                    "d" + "wxyz\0"s + numbers({3, 6, 1, 1, 9}) + "c123456789" +
                                    numbers({6, 0, 0, 1, 4}) + "a" + "\xFE\xFF\xFF\xFF");
    const owned_map loaded(vc_map_load(path));
    EXPECT_EQ(order_of(loaded), "b d c a");
    loaded->flags = 0;
    EXPECT_EQ(order_of(loaded), "b d c a");
}

// --- Control files ---

TEST_F(vc_hashmap_file, control_files) {
    const std::string no_separator =
        "vc_map_load_control_file: Invalid syntax in control file: [c:/quillfence/map]";
    const std::string bad_line =
        "vc_map_load_control_file: Invalid syntax in control files: [c:/quillfence/map]";
    const std::string twice = "vc_map_load_control_file: Failed to store key/value in map";
    const struct {
        const char *name;
        std::string text;
        uint32_t maximum;
        int want;
        std::string want_entries; // as "key=value;"
        lines want_errors;
    } cases[] = {
        {"trimmed, with a comment", "a = b # note\n", 0, 1, "a=b;", {}},
        {"no line end at the end", "a=b\nc=d", 0, 1, "a=b;c=d;", {}},
        {"CR LF", "a=b\r\nc=d\r\n", 0, 1, "a=b;c=d;", {}},
        {"value with separators", "a=b=c\n", 0, 1, "a=b=c;", {}},
        {"empty value", "a=\nb= # c\n", 0, 1, "a=;b=;", {}},
        {"inner space stays", "a b = c  d\t\n", 0, 1, "a b=c  d;", {}},
        {"two of three", "a=1\nb=2\nc=3\n", 2, 1, "a=1;b=2;", {}},
        {"the rest is not looked at", "a=1\n\n", 1, 1, "a=1;", {}},
        {"more allowed than there", "a=1\n", 9, 1, "a=1;", {}},
        {"text ends at a NUL", "a=1\n\0b=2\n"s, 0, 1, "a=1;", {}},
        {"blank line first", "\na=b\n", 0, -1, "", {bad_line}},
        {"blank line between", "a=b\n\nc=d\n", 0, -1, "", {bad_line}},
        {"blank line last", "a=b\n\n", 0, -1, "", {no_separator}},
        {"comment line", "# a\na=b\n", 0, -1, "", {bad_line}},
        {"separator in the comment", "a # =b\n", 0, -1, "", {bad_line}},
        {"no separator", "a b\n", 0, -1, "", {no_separator}},
        {"no separator later", "a=b\nc\n", 0, -1, "", {no_separator}},
        {"no separator on this line", "a\nb=c\n", 0, -1, "", {bad_line}},
        {"only a line end", "\n", 0, -1, "", {no_separator}},
        {"NUL first", "\0a=b"s, 0, -1, "", {no_separator}},
        {"key twice", "a=1\na=2\n", 0, -1, "", {twice}},
        {"empty file", "", 0, 0, "", {}},
    };
    for (const auto &test : cases) {
        drive.write(path, test.text);
        vc_hashmap *map = nullptr;
        EXPECT_EQ(vc_map_load_control_file(path, test.maximum, '=', &map), test.want) << test.name;
        EXPECT_EQ(log.errors(), test.want_errors) << test.name;
        EXPECT_EQ(map != nullptr, test.want == 1) << test.name;
        std::string entries;
        for (uint32_t i = 0; map && i < vc_map_count(map); ++i) {
            const char *key = nullptr;
            void *value = nullptr;
            EXPECT_EQ(vc_map_index(map, i, &key, &value), 1);
            entries += key + "="s + static_cast<char *>(value) + ";";
        }
        EXPECT_EQ(entries, test.want_entries) << test.name;
        if (map) {
            EXPECT_EQ(vc_map_destroy(map), 1);
        }
    }
}

TEST_F(vc_hashmap_file, values_of_control_files_are_counted_with_their_nul) {
    drive.write(path, "key: value\n");
    vc_hashmap *map = nullptr;
    ASSERT_EQ(vc_map_load_control_file(path, 0, ':', &map), 1);
    const owned_map owner(map);
    EXPECT_EQ(map->first->size, 6u);
    EXPECT_EQ(map->first->freefn, nullptr);
    EXPECT_EQ(map->num_buckets, 5u);
    EXPECT_EQ(map->bucket_size, 13u);
}

TEST_F(vc_hashmap_file, a_hash_sign_is_no_separator) {
    drive.write(path, "a#b\n");
    vc_hashmap *map = nullptr;
    EXPECT_EQ(vc_map_load_control_file(path, 0, '#', &map), -1);
    EXPECT_EQ(log.errors(), lines{"vc_map_load_control_file: Invalid syntax in control files: "
                                  "[c:/quillfence/map]"});
}

TEST_F(vc_hashmap_file, control_file_arguments) {
    vc_hashmap *map = nullptr;
    drive.write(path, "a=b\n");
    const std::string invalid = "vc_map_load_control_file: " + text_of(EINVAL);
    EXPECT_EQ(vc_map_load_control_file(nullptr, 0, '=', &map), -1);
    EXPECT_EQ(vc_map_load_control_file(path, 0, '\0', &map), -1);
    EXPECT_EQ(vc_map_load_control_file(path, 0, '=', nullptr), -1);
    EXPECT_EQ(log.errors(), (lines{invalid, invalid, invalid}));
    EXPECT_EQ(vc_map_load_control_file("c:/quillfence/missing", 0, '=', &map), -1);
    EXPECT_EQ(vc_map_load_control_file("c:/quillfence", 0, '=', &map), -1);
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_FALSE(drive.exists("c:/quillfence/missing"));
    EXPECT_EQ(map, nullptr);
}

// --- As text ---

class vc_hashmap_text : public vc_hashmap_file {
  protected:
    // What a function writes to a stream.
    template <class Write>
    std::string written_by(Write write) {
        FILE *stream = platform::stream_open(path, "wb");
        EXPECT_NE(stream, nullptr);
        EXPECT_EQ(write(stream), 1);
        EXPECT_EQ(std::fclose(stream), 0);
        return drive.read(path);
    }
    std::string dump_of(const vc_hashmap *map) {
        return written_by([&](FILE *stream) { return vc_map_dump(map, stream); });
    }
    std::string source_of(const vc_hashmap *map, const char *name) {
        return written_by([&](FILE *stream) { return gen_static_map_ex(stream, map, name); });
    }
};

TEST_F(vc_hashmap_text, a_dump_shows_every_slot) {
    const owned_map map(vc_map_create(2, 2)); // "a" and "d" lie in buckets 0 and 1
    EXPECT_EQ(vc_map_store_uint32(map, "d", 0xABC), 1);
    EXPECT_EQ(vc_map_store_ex(map, "a", nullptr, 0, 0, nullptr), 1);
    EXPECT_EQ(dump_of(map), "Hashmap (2 buckets, 2 slots per bucket, 2 pairs)\n"
                            "=====================================================\n"
                            "[bucket][slot] <key>:<hash> = <pointer>\n"
                            "0. [0][0] a:115ea782 = (nil)\n"
                            "1. [0][1] <null>:00000000 = (nil)\n"
                            "2. [1][0] d:030fe761 = 0xabc\n"
                            "3. [1][1] <null>:00000000 = (nil)\n");
}

TEST_F(vc_hashmap_text, a_dump_without_buckets_is_its_heading) {
    const owned_map map(vc_map_create(0, 0));
    EXPECT_EQ(dump_of(map), "Hashmap (0 buckets, 0 slots per bucket, 0 pairs)\n"
                            "=====================================================\n"
                            "[bucket][slot] <key>:<hash> = <pointer>\n");
}

TEST_F(vc_hashmap_text, the_source_of_a_constant_map) {
    // Slots of 5 x 2: "b" 0, "c" 2, "d" 3, "a" 6.
    const owned_map map(vc_map_create(5, 2));
    char expression[] = "&settings";
    char copied[] = {'4', '2'};
    EXPECT_EQ(vc_map_store_ex(map, "a", expression, 10, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "b", copied, 2, 1, nullptr), 1); // a copy without a NUL
    EXPECT_EQ(vc_map_store_ex(map, "c", nullptr, 0, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "d", ::strdup("\"text\""), 7, 0, std::free), 1);
    EXPECT_EQ(source_of(map, "settings_map"),
              "const vc_hashmap *settings_map = &(const vc_hashmap){\n"
              "   .flags = MAP_FLAG_STATIC,\n"
              "   .num_buckets = 5,\n"
              "   .bucket_size = 2,\n"
              "   .map_size = 10,\n"
              "   .num_pairs = 4,\n"
              "   .const_pairs = (const hash_pair_t *[]) {\n"
              "        SLOT(0x70c1a0e1, \"b\", 42, 0x0),\n"
              "        NULL,\n"
              "        SLOT(0xf4c73ebf, \"c\", NULL, 0x0),\n"
              "        SLOT(0x30fe761, \"d\", \"text\", 0x0),\n"
              "        NULL, NULL,\n"
              "        SLOT(0x115ea782, \"a\", &settings, 0x0),\n"
              "        NULL, NULL, NULL\n"
              "    }\n"
              "};\n");
}

TEST_F(vc_hashmap_text, the_source_of_a_perfect_map) {
    const owned_map map(vc_map_create(1, 1));
    EXPECT_EQ(vc_map_store_ex(map, "a", nullptr, 0, 0, nullptr), 1);
    EXPECT_EQ(source_of(map, nullptr),
              "// \\(^_^)/ Yay! A perfect hashmap! (num pairs == num buckets)\n"
              "const vc_hashmap *static_map = &(const vc_hashmap){\n"
              "   .flags = MAP_FLAG_STATIC,\n"
              "   .num_buckets = 1,\n"
              "   .bucket_size = 1,\n"
              "   .map_size = 1,\n"
              "   .num_pairs = 1,\n"
              "   .const_pairs = (const hash_pair_t *[]) {\n"
              "        SLOT(0x115ea782, \"a\", NULL, 0x0)\n"
              "    }\n"
              "};\n");
}

TEST_F(vc_hashmap_text, the_source_of_a_map_without_slots) {
    const owned_map map(vc_map_create(3, 0));
    EXPECT_EQ(source_of(map, "m"), "const vc_hashmap *m = &(const vc_hashmap){\n"
                                   "   .flags = MAP_FLAG_STATIC,\n"
                                   "   .num_buckets = 3,\n"
                                   "   .bucket_size = 0,\n"
                                   "   .map_size = 0,\n"
                                   "   .num_pairs = 0,\n"
                                   "   .const_pairs = (const hash_pair_t *[]) {\n"
                                   "\n"
                                   "    }\n"
                                   "};\n");
}

TEST_F(vc_hashmap_text, an_inline_value_has_no_source) {
    const owned_map map(vc_map_create(1, 1));
    EXPECT_EQ(vc_map_store_int32(map, "a", 1), 1);
    FILE *stream = platform::stream_open(path, "wb");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(gen_static_map_ex(stream, map, nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"gen_static_map_ex: " + text_of(EINVAL)});
    EXPECT_EQ(std::fclose(stream), 0);
    EXPECT_EQ(drive.read(path), "");
}

TEST_F(vc_hashmap_text, null_arguments_are_refused) {
    const owned_map map(vc_map_create(0, 0));
    EXPECT_EQ(vc_map_dump(nullptr, stdout), 0);
    EXPECT_EQ(vc_map_dump(map, nullptr), 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_map_dump: " + text_of(EINVAL), "vc_map_dump: " + text_of(EINVAL)}));
    EXPECT_EQ(gen_static_map_ex(nullptr, map, "m"), 0);
    EXPECT_EQ(gen_static_map_ex(stdout, nullptr, "m"), 0);
    EXPECT_EQ(log.errors(), (lines{"gen_static_map_ex: " + text_of(EINVAL),
                                   "gen_static_map_ex: " + text_of(EINVAL)}));
}

} // namespace
} // namespace quillfence
