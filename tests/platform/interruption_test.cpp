#include "platform/interruption.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "platform/error_numbers.h"

namespace quillfence::testing {
namespace {

using namespace platform;

class interruption : public ::testing::Test {
  protected:
    interruption() {
        EXPECT_EQ(interruption_listen(), 0u);
        EXPECT_EQ(file_pipe(&reader, &writer), 0u);
    }
    ~interruption() override {
        interruption_ignore();
        file_close(reader);
        file_close(writer);
    }
    uint32_t read() {
        return file_read_unless_interrupted(reader, bytes, sizeof bytes, &got);
    }

    file_handle reader = invalid_file;
    file_handle writer = invalid_file;
    char bytes[16] = {};
    uint32_t got = 0;
};

TEST_F(interruption, bytes_arrive_as_from_any_read) {
    uint32_t put = 0;
    ASSERT_EQ(file_write(writer, "abc", 3, &put), 0u);
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(got, 3u);
    EXPECT_STREQ(bytes, "abc");
    EXPECT_FALSE(interruption_noted());
}

TEST_F(interruption, the_end_of_a_pipe_is_no_interruption) {
    file_close(writer);
    writer = invalid_file;
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(got, 0u);
}

TEST_F(interruption, one_that_came_before_is_seen_in_front_of_bytes) {
    uint32_t put = 0;
    ASSERT_EQ(file_write(writer, "abc", 3, &put), 0u);
    interruption_note();
    EXPECT_TRUE(interruption_noted());
    EXPECT_EQ(read(), error_operation_aborted);
    EXPECT_EQ(got, 0u);
}

TEST_F(interruption, a_read_that_waits_ends) {
    std::thread other([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        interruption_note();
    });
    EXPECT_EQ(read(), error_operation_aborted);
    other.join();
}

TEST_F(interruption, listening_anew_forgets) {
    interruption_note();
    interruption_ignore();
    ASSERT_EQ(interruption_listen(), 0u);
    EXPECT_FALSE(interruption_noted());
}

} // namespace
} // namespace quillfence::testing
