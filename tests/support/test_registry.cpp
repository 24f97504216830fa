#include "test_registry.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "platform/error_numbers.h"
#include "platform/process.h"
#include "platform/surroundings.h"

namespace quillfence::testing {

namespace {

using platform::registry_key;
using platform::registry_root;

std::string make_export() {
    static unsigned counter;
    const std::string file = (std::filesystem::temp_directory_path() /
                              ("quillfence-test-" + std::to_string(platform::process_id()) + "-" +
                               std::to_string(++counter) + ".reg"))
                                 .string();
    std::ofstream(file, std::ios::trunc).close(); // empty, and no complaint that it is missing
    return file;
}

#ifdef QF_TEST_REAL_DRIVES
// Every key that a test may have made; the first one marks that it was a test.
constexpr char wow_test_key[] = "SOFTWARE\\Wow6432Node\\Quillfence-test";
constexpr const char *own_keys[] = {test_key, wow_test_key, "SOFTWARE\\Mail Enable",
                                    "SOFTWARE\\Wow6432Node\\Mail Enable"};

bool key_exists(const char *path) {
    registry_key *key = nullptr;
    platform::registry_open(registry_root::local_machine, path, platform::registry_read, &key);
    platform::registry_close(key);
    return key != nullptr;
}

void remove_own_keys() {
    for (const char *path : own_keys) {
        platform::registry_delete(registry_root::local_machine, path, 0);
    }
}

std::string begin_registry() {
    if (key_exists(test_key)) {
        remove_own_keys();
    }
    for (const char *path : own_keys) {
        EXPECT_FALSE(key_exists(path)) << path << " is in use; not touching it";
    }
    registry_key *key = nullptr;
    EXPECT_EQ(platform::registry_create(registry_root::local_machine, test_key,
                                        platform::registry_write, &key),
              0U);
    platform::registry_close(key);
    return "";
}

void end_registry(const std::string &) {
    remove_own_keys();
}
#else
std::string begin_registry() {
    const std::string file = make_export();
    platform::environment_set("QUILLFENCE_REGISTRY", file.c_str());
    return file;
}

void end_registry(const std::string &file) {
    std::filesystem::remove(file);
    platform::environment_set("QUILLFENCE_REGISTRY", nullptr);
}
#endif

} // namespace

test_registry::test_registry() : file_(begin_registry()) {}

test_registry::test_registry(exported) : file_(make_export()), is_named_(true) {
    platform::set_registry_export(file_.c_str());
}

test_registry::~test_registry() {
    if (is_named_) {
        platform::set_registry_export(nullptr);
        std::filesystem::remove(file_);
    } else {
        end_registry(file_);
    }
}

void test_registry::create(const std::string &key, uint32_t view) const {
    registry_key *created = nullptr;
    EXPECT_EQ(platform::registry_create(registry_root::local_machine, key.c_str(),
                                        platform::registry_write | view, &created),
              0U)
        << key;
    platform::registry_close(created);
}

void test_registry::set(const std::string &key, const std::string &name, uint32_t type,
                        const std::string &bytes, uint32_t view) const {
    registry_key *created = nullptr;
    ASSERT_EQ(platform::registry_create(registry_root::local_machine, key.c_str(),
                                        platform::registry_write | view, &created),
              0U)
        << key;
    EXPECT_EQ(platform::registry_set(created, name.c_str(), type, bytes.data(),
                                     static_cast<uint32_t>(bytes.size())),
              0U)
        << key << " " << name;
    platform::registry_close(created);
}

void test_registry::set_text(const std::string &key, const std::string &name,
                             const std::string &text, uint32_t view) const {
    set(key, name, platform::registry_text, text + '\0', view);
}

void test_registry::set_dword(const std::string &key, const std::string &name, uint32_t number,
                              uint32_t view) const {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(number >> shift & 0xFF);
    }
    set(key, name, platform::registry_dword, bytes, view);
}

void test_registry::remove(const std::string &key, uint32_t view) const {
    EXPECT_EQ(platform::registry_delete(registry_root::local_machine, key.c_str(), view), 0U)
        << key;
}

} // namespace quillfence::testing
