// The registry of another server, as rows tell it.
#include "given_registry.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/error_numbers.h"

namespace quillfence::testing {
namespace {

constexpr auto machine = platform::registry_root::local_machine;

// Two keys, one that was looked at and not found, and a value that was not.
constexpr registry_row rows[] = {
    {"Software\\Gone", nullptr, false, 0, nullptr, 0},
    {"Software\\One", "absent", false, 0, nullptr, 0},
    {"Software\\One", "first", true, platform::registry_text, "a", 2},
    {"Software\\Two", "other", true, platform::registry_text, "b", 2},
    {"SOFTWARE\\ONE", "last", true, platform::registry_text, "c", 2},
    {},
};

class given_registry : public ::testing::Test {
  protected:
    static platform::registry_key *open(const char *key) {
        platform::registry_key *opened = nullptr;
        const uint32_t error = given_key_open(rows, machine, key, &opened);
        EXPECT_EQ(error, opened ? platform::error_none : platform::error_file_not_found);
        return opened;
    }
    static std::string value(const char *key, const char *name) {
        char data[8] = {};
        uint32_t size = sizeof data;
        uint32_t type = 0;
        const uint32_t error = given_key_query(open(key), name, &type, data, &size);
        return error ? std::to_string(error) : std::string(data, size - 1);
    }
    const std::string missing = std::to_string(platform::error_file_not_found);
};

TEST_F(given_registry, opens_the_keys_that_it_has) {
    EXPECT_NE(open("Software\\One"), nullptr);
    EXPECT_NE(open("software\\two"), nullptr);
    EXPECT_EQ(open("Software\\Three"), nullptr);
    EXPECT_EQ(open("Software\\Gone"), nullptr);
    EXPECT_EQ(open("Software"), nullptr);
}

TEST_F(given_registry, has_the_values_of_that_key_alone) {
    EXPECT_EQ(value("Software\\One", "first"), "a");
    EXPECT_EQ(value("software\\one", "LAST"), "c");
    EXPECT_EQ(value("Software\\One", "other"), missing);
    EXPECT_EQ(value("Software\\One", "absent"), missing);
    EXPECT_EQ(value("Software\\Two", "last"), missing);
}

TEST_F(given_registry, lists_the_values_that_were_found) {
    platform::registry_key *const key = open("Software\\One");
    const char *const names[] = {"first", "last"};
    for (uint32_t i = 0; i < 2; ++i) {
        char name[16];
        uint32_t size = sizeof name;
        ASSERT_EQ(given_key_enumerate(key, i, name, &size), platform::error_none);
        EXPECT_EQ(std::string(name, size), names[i]);
    }
    char name[16];
    uint32_t size = sizeof name;
    EXPECT_EQ(given_key_enumerate(key, 2, name, &size), platform::error_no_more_items);
    size = 4;
    EXPECT_EQ(given_key_enumerate(key, 1, name, &size), platform::error_more_data);
}

} // namespace
} // namespace quillfence::testing
