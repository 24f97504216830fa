#include "platform/process.h"

#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {
namespace {

constexpr char variable[] = "QUILLFENCE_TEST_VARIABLE";

class environment : public ::testing::Test {
  protected:
    ~environment() override {
        environment_set(variable, nullptr);
    }
};

// A value of five characters read into buffers of different sizes.
TEST_F(environment, value_by_buffer_size) {
    ASSERT_TRUE(environment_set(variable, "12345"));
    static constexpr struct {
        uint32_t size;
        uint32_t want;
        const char *want_text;
    } cases[] = {{16, 5, "12345"}, {6, 5, "12345"}, {5, 6, "#"}, {1, 6, "#"}, {0, 6, "#"}};
    for (const auto &c : cases) {
        char buffer[16] = "#";
        EXPECT_EQ(environment_variable(variable, buffer, c.size), c.want) << c.size;
        EXPECT_STREQ(buffer, c.want_text) << c.size;
    }
}

TEST_F(environment, unset_and_empty) {
    char buffer[16] = "#";
    EXPECT_EQ(environment_variable(variable, buffer, sizeof buffer), 0u);
    EXPECT_STREQ(buffer, "#");
    EXPECT_FALSE(environment_has(variable));
    ASSERT_TRUE(environment_set(variable, ""));
    EXPECT_EQ(environment_variable(variable, buffer, sizeof buffer), 0u);
    EXPECT_TRUE(environment_has(variable)) << "set, though empty";
    ASSERT_TRUE(environment_set(variable, nullptr));
    EXPECT_FALSE(environment_has(variable));
    EXPECT_EQ(environment_variable(nullptr, buffer, sizeof buffer), 0u);
    EXPECT_FALSE(environment_has(nullptr));
}

TEST_F(environment, a_value_is_replaced) {
    char buffer[16];
    ASSERT_TRUE(environment_set(variable, "first"));
    ASSERT_TRUE(environment_set(variable, "two"));
    EXPECT_EQ(environment_variable(variable, buffer, sizeof buffer), 3u);
    EXPECT_STREQ(buffer, "two");
}

TEST_F(environment, a_long_value) {
    const std::string value(5000, 'v');
    ASSERT_TRUE(environment_set(variable, value.c_str()));
    std::string buffer(6000, '#');
    EXPECT_EQ(environment_variable(variable, buffer.data(), 254), 5001u);
    EXPECT_EQ(environment_variable(variable, buffer.data(), 6000), 5000u);
    EXPECT_EQ(buffer.substr(0, 5000), value);
}

TEST(process, ids) {
    EXPECT_NE(process_id(), 0u);
    EXPECT_EQ(process_id(), process_id());
    const uint32_t own = thread_id();
    EXPECT_EQ(thread_id(), own);
    uint32_t other = own;
    std::thread([&] { other = thread_id(); }).join();
    EXPECT_NE(other, own);
}

TEST(process, nobody_debugs_a_test) {
    EXPECT_FALSE(debugger_present());
}

TEST(process, hosts_file_path_fits_or_fails) {
    char path[512];
    ASSERT_EQ(hosts_file_path(path, sizeof path), error_none);
    std::string lower = path;
    for (char &c : lower) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    EXPECT_TRUE(lower.ends_with("/etc/hosts") || lower.ends_with("\\drivers\\etc\\hosts")) << path;
    const size_t length = strlen(path);
    char exact[512];
    EXPECT_EQ(hosts_file_path(exact, length + 1), error_none);
    EXPECT_STREQ(exact, path);
    EXPECT_EQ(hosts_file_path(exact, length), error_insufficient_buffer);
    EXPECT_EQ(hosts_file_path(exact, 1), error_insufficient_buffer);
}

TEST(process, temp_directory_exists) {
    char path[512];
    ASSERT_EQ(temp_directory(path, sizeof path), error_none);
    EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    EXPECT_NE(path[strlen(path) - 1], '/');
    EXPECT_NE(path[strlen(path) - 1], '\\');
    char small[2];
    EXPECT_EQ(temp_directory(small, sizeof small), error_insufficient_buffer);
}

TEST(mutex, keeps_threads_apart) {
    platform::mutex *lock = nullptr;
    ASSERT_EQ(mutex_create(&lock), error_none);
    int counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(mutex_lock(lock), error_none);
            const int before = counter;
            std::this_thread::yield();
            counter = before + 1;
            EXPECT_EQ(mutex_unlock(lock), error_none);
        }
    };
    std::thread one(count);
    std::thread other(count);
    one.join();
    other.join();
    EXPECT_EQ(counter, 2000);
    mutex_destroy(lock);
}

TEST(mutex, belongs_to_the_thread_that_locked_it) {
    platform::mutex *lock = nullptr;
    ASSERT_EQ(mutex_create(&lock), error_none);
    EXPECT_EQ(mutex_unlock(lock), error_not_owner);
    EXPECT_EQ(mutex_lock(lock), error_none);
    EXPECT_EQ(mutex_lock(lock), error_none) << "its owner may lock it again";
    uint32_t from_other_thread = error_none;
    std::thread([&] { from_other_thread = mutex_unlock(lock); }).join();
    EXPECT_EQ(from_other_thread, error_not_owner);
    EXPECT_EQ(mutex_unlock(lock), error_none);
    EXPECT_EQ(mutex_unlock(lock), error_none);
    EXPECT_EQ(mutex_unlock(lock), error_not_owner);
    mutex_destroy(lock);
}

TEST(mutex, null_is_no_mutex) {
    EXPECT_EQ(mutex_lock(nullptr), error_invalid_handle);
    EXPECT_EQ(mutex_unlock(nullptr), error_invalid_handle);
    mutex_destroy(nullptr);
}

std::string observed;

uint32_t fail_all(const char *call, const char *subject) {
    observed += std::string(call) + "(" + subject + ") ";
    return error_gen_failure;
}

TEST_F(environment, every_function_can_be_made_to_fail) {
    ASSERT_TRUE(environment_set(variable, "x"));
    platform::mutex *lock = nullptr;
    ASSERT_EQ(mutex_create(&lock), error_none);
    platform::mutex *other = nullptr;
    char buffer[512];
    observed.clear();
    set_call_observer(fail_all);
    EXPECT_EQ(environment_variable(variable, buffer, sizeof buffer), 0u);
    EXPECT_FALSE(environment_has(variable));
    EXPECT_EQ(hosts_file_path(buffer, sizeof buffer), error_gen_failure);
    EXPECT_EQ(temp_directory(buffer, sizeof buffer), error_gen_failure);
    EXPECT_EQ(mutex_create(&other), error_gen_failure);
    EXPECT_EQ(mutex_lock(lock), error_gen_failure);
    EXPECT_EQ(mutex_unlock(lock), error_gen_failure);
    set_call_observer(nullptr);
    EXPECT_EQ(other, nullptr);
    mutex_destroy(lock);
    EXPECT_EQ(observed, "environment_variable(QUILLFENCE_TEST_VARIABLE) "
                        "environment_has(QUILLFENCE_TEST_VARIABLE) hosts_file_path() "
                        "temp_directory() mutex_create() mutex_lock() mutex_unlock() ");
}

} // namespace
} // namespace quillfence::platform
