#include "platform/registry.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "platform/error_numbers.h"
#include "test_registry.h"

namespace quillfence::platform {
namespace {

using namespace std::string_literals;
using testing::test_key;

constexpr registry_root machine = registry_root::local_machine;

class registry : public ::testing::Test {
  protected:
#ifdef QF_TEST_REGISTRY_EXPORT
    testing::test_registry store{testing::test_registry::exported()};
#else
    testing::test_registry store;
#endif

    // An open key that closes itself.
    struct open_key {
        registry_key *key = nullptr;
        uint32_t error;
        explicit open_key(const std::string &path, uint32_t access = registry_read)
            : error(registry_open(machine, path.c_str(), access, &key)) {}
        ~open_key() {
            registry_close(key);
        }
        open_key(const open_key &) = delete;
        open_key &operator=(const open_key &) = delete;
    };

    struct answer {
        uint32_t error, type;
        std::string data;
        bool operator==(const answer &) const = default;
    };
    static answer query(registry_key *key, const char *name, uint32_t room = 1000) {
        std::string data(room, '#');
        uint32_t type = 0;
        uint32_t size = room;
        const uint32_t error = registry_query(key, name, &type, data.data(), &size);
        return {error, type, error ? "" : data.substr(0, size)};
    }
    static std::vector<std::string> names(registry_key *key) {
        std::vector<std::string> found;
        char name[100];
        uint32_t size = sizeof name;
        for (uint32_t i = 0; registry_enumerate(key, i, name, &size) == 0; ++i) {
            found.emplace_back(name, size);
            size = sizeof name;
        }
        std::sort(found.begin(), found.end());
        return found;
    }
};

TEST_F(registry, a_missing_key_is_error_2) {
    for (const char *path :
         {"SOFTWARE\\Quillfence-test\\none", "SOFTWARE\\Quillfence-none\\a\\b"}) {
        const open_key none(path);
        EXPECT_EQ(none.error, uint32_t{error_file_not_found}) << path;
        EXPECT_EQ(none.key, nullptr) << path;
    }
    registry_close(nullptr);
}

TEST_F(registry, a_root_is_always_there) {
    for (const char *path : {"", static_cast<const char *>(nullptr)}) {
        registry_key *key = nullptr;
        EXPECT_EQ(registry_open(machine, path, registry_read, &key), 0U);
        EXPECT_NE(key, nullptr);
        registry_close(key);
    }
}

TEST_F(registry, creating_makes_every_key_on_the_way) {
    store.create(test_key + "\\a\\b\\c"s);
    for (const char *path : {"\\a", "\\a\\b", "\\A\\B\\C"}) {
        EXPECT_EQ(open_key(test_key + std::string(path)).error, 0U) << path;
    }
    store.set_text(test_key + "\\a\\b\\c"s, "x", "kept");
    store.create(test_key + "\\a\\b\\c"s);
    const open_key again(test_key + "\\a\\b\\c"s);
    EXPECT_EQ(query(again.key, "x"), (answer{0, registry_text, "kept\0"s}));
}

TEST_F(registry, values_read_back) {
    store.set_text(test_key, "text", "a \"quoted\" C:\\path");
    store.set_text(test_key, "", "the default");
    store.set_dword(test_key, "number", 0x01020304);
    store.set(test_key, "bytes", registry_binary, "\0\xFF\n"s);
    store.set(test_key, "expand", registry_expandable_text, "%A%\0"s);
    store.set(test_key, "several", registry_texts, "a\0b\0\0"s);
    store.set(test_key, "embedded", registry_text, "a\0b\0"s);
    store.set(test_key, "nothing", registry_binary, "");
    store.set(test_key, "typeless", 0, "x");
    const open_key key(test_key);
    ASSERT_EQ(key.error, 0U);
    EXPECT_EQ(query(key.key, "text"), (answer{0, registry_text, "a \"quoted\" C:\\path\0"s}));
    EXPECT_EQ(query(key.key, "TEXT"), query(key.key, "text"));
    EXPECT_EQ(query(key.key, ""), (answer{0, registry_text, "the default\0"s}));
    EXPECT_EQ(query(key.key, nullptr), query(key.key, ""));
    EXPECT_EQ(query(key.key, "number"), (answer{0, registry_dword, "\4\3\2\1"s}));
    EXPECT_EQ(query(key.key, "bytes"), (answer{0, registry_binary, "\0\xFF\n"s}));
    EXPECT_EQ(query(key.key, "expand"), (answer{0, registry_expandable_text, "%A%\0"s}));
    EXPECT_EQ(query(key.key, "several"), (answer{0, registry_texts, "a\0b\0\0"s}));
    EXPECT_EQ(query(key.key, "embedded"), (answer{0, registry_text, "a\0b\0"s}));
    EXPECT_EQ(query(key.key, "nothing"), (answer{0, registry_binary, ""}));
    EXPECT_EQ(query(key.key, "typeless"), (answer{0, 0, "x"}));
    EXPECT_EQ(query(key.key, "missing"), (answer{error_file_not_found, 0, ""}));
}

TEST_F(registry, a_value_is_set_anew) {
    store.set_text(test_key, "x", "one");
    store.set_dword(test_key, "X", 2);
    const open_key key(test_key);
    EXPECT_EQ(query(key.key, "x"), (answer{0, registry_dword, "\2\0\0\0"s}));
    EXPECT_EQ(names(key.key).size(), 1U);
}

TEST_F(registry, data_that_does_not_fit_tells_its_size_and_type) {
    store.set_text(test_key, "x", "12345");
    const open_key key(test_key);
    char data[6];
    for (const uint32_t room : {0U, 1U, 5U}) {
        uint32_t type = 0;
        uint32_t size = room;
        EXPECT_EQ(registry_query(key.key, "x", &type, data, &size), uint32_t{error_more_data});
        EXPECT_EQ(size, 6U) << room;
        EXPECT_EQ(type, registry_text) << room;
    }
    uint32_t size = 0;
    EXPECT_EQ(registry_query(key.key, "x", nullptr, nullptr, &size), 0U);
    EXPECT_EQ(size, 6U);
    uint32_t type = 0;
    EXPECT_EQ(registry_query(key.key, "x", &type, nullptr, nullptr), 0U);
    EXPECT_EQ(type, registry_text);
    EXPECT_EQ(registry_query(key.key, "x", nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(query(key.key, "x", 6).data, "12345\0"s);
}

TEST_F(registry, names_are_walked_through) {
    const std::string longest(300, 'n');
    for (const std::string &name : {"b"s, "A"s, ""s, longest}) {
        store.set_dword(test_key, name, 1);
    }
    const open_key key(test_key);
    uint32_t values = 0;
    uint32_t length = 0;
    EXPECT_EQ(registry_count(key.key, &values, &length), 0U);
    EXPECT_EQ(values, 4U);
    EXPECT_EQ(length, 300U);
    EXPECT_EQ(registry_count(key.key, nullptr, nullptr), 0U);

    std::vector<std::string> found;
    int too_long = 0;
    uint32_t error = 0;
    for (uint32_t i = 0; error != error_no_more_items && i < 10; ++i) {
        char name[65];
        uint32_t size = sizeof name;
        error = registry_enumerate(key.key, i, name, &size);
        if (error == error_more_data) {
            ++too_long;
        } else if (!error) {
            EXPECT_EQ(name[size], '\0');
            found.emplace_back(name);
        }
    }
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{"", "A", "b"}));
    EXPECT_EQ(too_long, 1);
    EXPECT_EQ(error, uint32_t{error_no_more_items});

    char whole[301];
    uint32_t size = sizeof whole;
    std::vector<std::string> all;
    for (uint32_t i = 0; registry_enumerate(key.key, i, whole, &size) == 0; ++i) {
        all.emplace_back(whole);
        size = sizeof whole;
    }
    EXPECT_NE(std::find(all.begin(), all.end(), longest), all.end());
}

TEST_F(registry, the_two_views_are_two_places) {
    const std::string redirected = "SOFTWARE\\Wow6432Node\\Quillfence-test";
    store.set_text(test_key, "x", "64");
    EXPECT_EQ(open_key(test_key, 131609).error, uint32_t{error_file_not_found});
    store.set_text(redirected, "x", "32");
    for (const uint32_t access : {131609U, registry_read | registry_view_32}) {
        const open_key key(test_key, access);
        ASSERT_EQ(key.error, 0U);
        EXPECT_EQ(query(key.key, "x").data, "32\0"s);
    }
    for (const uint32_t access : {registry_read, registry_read | registry_view_64}) {
        const open_key key(test_key, access);
        ASSERT_EQ(key.error, 0U);
        EXPECT_EQ(query(key.key, "x").data, "64\0"s);
    }
    store.set_text(test_key, "y", "set", registry_view_32);
    const open_key key(redirected);
    EXPECT_EQ(query(key.key, "y").data, "set\0"s);
}

TEST_F(registry, the_access_mask_counts) {
    store.set_text(test_key, "x", "1");
    const open_key read_only(test_key, registry_read);
    ASSERT_EQ(read_only.error, 0U);
    EXPECT_EQ(registry_set(read_only.key, "x", registry_text, "2", 2),
              uint32_t{error_access_denied});
    const open_key write_only(test_key, registry_write);
    ASSERT_EQ(write_only.error, 0U);
    EXPECT_EQ(query(write_only.key, "x").error, uint32_t{error_access_denied});
    const open_key both(test_key, registry_read | registry_write);
    EXPECT_EQ(registry_set(both.key, "x", registry_text, "2", 2), 0U);
    EXPECT_EQ(query(both.key, "x").data, "2\0"s);
}

TEST_F(registry, a_deleted_key_takes_all_below_along) {
    store.set_text(test_key + "\\a\\b"s, "x", "1");
    store.remove(test_key + "\\a"s);
    EXPECT_EQ(open_key(test_key + "\\a\\b"s).error, uint32_t{error_file_not_found});
    EXPECT_EQ(open_key(test_key + "\\a"s).error, uint32_t{error_file_not_found});
    EXPECT_EQ(registry_delete(machine, "SOFTWARE\\Quillfence-test\\a", 0),
              uint32_t{error_file_not_found});
}

TEST_F(registry, every_call_asks_the_observer) {
    store.create(test_key);
    testing::call_watch watch;
    registry_key *key = nullptr;
    ASSERT_EQ(registry_create(machine, test_key, registry_read | registry_write, &key), 0U);
    char name[10];
    uint32_t size = sizeof name;
    uint32_t count = 0;
    EXPECT_EQ(registry_set(key, "x", registry_binary, "y", 1), 0U);
    EXPECT_EQ(registry_query(key, "x", nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(registry_enumerate(key, 0, name, &size), 0U);
    EXPECT_EQ(registry_count(key, &count, nullptr), 0U);
    registry_close(key);
    ASSERT_EQ(registry_open(machine, test_key, registry_read, &key), 0U);
    registry_close(key);
    EXPECT_EQ(registry_delete(machine, test_key, 0), 0U);
    EXPECT_EQ(watch.take(),
              (std::vector<std::string>{"registry_create", "registry_set", "registry_query",
                                        "registry_enumerate", "registry_count", "registry_open",
                                        "registry_delete"}));
    for (const char *call : {"registry_create", "registry_open"}) {
        watch.fail(call, 1, error_access_denied);
        EXPECT_EQ((call[9] == 'c' ? registry_create : registry_open)(machine, test_key,
                                                                     registry_read, &key),
                  uint32_t{error_access_denied});
        EXPECT_EQ(key, nullptr);
    }
}

} // namespace
} // namespace quillfence::platform
