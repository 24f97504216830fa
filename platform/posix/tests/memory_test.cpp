// The seam's Linux side without memory. (On Windows it asks the system, which is out of reach.)
#include "failing_memory.h"

#include <string>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "platform/event_log.h"
#include "platform/file.h"
#include "platform/process.h"

namespace quillfence::platform {
namespace {

TEST(without_memory, no_mutex) {
    platform::mutex *made = nullptr;
    uint32_t error = error_none;
    const unsigned failed = testing::sweep_allocations(
        [&] {
            mutex_destroy(made);
            error = mutex_create(&made);
        },
        [&](unsigned n) {
            EXPECT_EQ(error, error_not_enough_memory) << n;
            EXPECT_EQ(made, nullptr) << n;
        });
    EXPECT_EQ(failed, 1u);
    EXPECT_EQ(error, error_none);
    mutex_destroy(made);
}

TEST(without_memory, no_event_log) {
    platform::event_log *made = nullptr;
    const unsigned failed =
        testing::sweep_allocations([&] { made = event_log_open("Quillfence"); },
                                   [&](unsigned n) { EXPECT_EQ(made, nullptr) << n; });
    EXPECT_EQ(failed, 1u);
    EXPECT_NE(made, nullptr);
    event_log_close(made);
}

TEST(without_memory, no_listing) {
    testing::drive_c drive;
    for (int i = 0; i < 40; ++i) {
        drive.write("c:/quillfence/n" + std::to_string(i), "");
    }
    directory_listing *made = nullptr;
    uint32_t error = error_none;
    const unsigned failed =
        testing::sweep_allocations([&] { error = directory_open("c:/quillfence", &made); },
                                   [&](unsigned n) {
                                       EXPECT_EQ(error, error_not_enough_memory) << n;
                                       EXPECT_EQ(made, nullptr) << n;
                                   });
    EXPECT_EQ(failed, 1u + 2u + 42u) << "the listing, its table made and grown, the names";
    EXPECT_EQ(error, error_none);
    directory_close(made);
}

// Paths of ordinary length cost no allocation at all.
TEST(without_memory, files_need_none) {
    testing::drive_c drive;
    drive.write("c:/quillfence/a", "abc");
    uint32_t attributes = 0;
    const unsigned failed = testing::sweep_allocations(
        [&] {
            file_handle file = invalid_file;
            file_mapping mapping = {};
            char byte;
            uint32_t moved;
            EXPECT_EQ(path_attributes("c:/quillfence/a", &attributes), error_none);
            EXPECT_EQ(file_open("c:/quillfence/a", {.write = true, .lock = true}, &file),
                      error_none);
            EXPECT_EQ(file_read(file, &byte, 1, &moved), error_none);
            EXPECT_EQ(file_write(file, &byte, 1, &moved), error_none);
            EXPECT_EQ(file_map(file, &mapping), error_none);
            file_unmap(&mapping);
            EXPECT_EQ(file_close(file), error_none);
            EXPECT_EQ(path_copy("c:/quillfence/a", "c:/quillfence/b"), error_none);
            EXPECT_EQ(path_replace("c:/quillfence/b", "c:/quillfence/a"), error_none);
        },
        [](unsigned) {});
    EXPECT_EQ(failed, 0u);
}

} // namespace
} // namespace quillfence::platform
