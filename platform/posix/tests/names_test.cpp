// What only a Linux folder can hold: names that differ in letter case alone. What finding a name
// costs, and what the administrator is told.
#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "platform/complaint.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/process.h"

namespace quillfence::platform {
namespace {

std::vector<std::string> told;

void tell(event_type type, const char *function, const char *message) {
    told.push_back((type == event_type::error ? "error " : "warning ") + std::string(function) +
                   ": " + message);
}

class names : public ::testing::Test {
  protected:
    names() {
        told.clear();
        set_complaint_listener(tell);
    }
    ~names() override {
        set_complaint_listener(nullptr);
    }
    static uint32_t look(const std::string &path) {
        uint32_t attributes = 0;
        return path_attributes(path.c_str(), &attributes);
    }
    testing::drive_c drive;
};

using texts = std::vector<std::string>;

TEST_F(names, the_exact_name_wins_without_a_word) {
    drive.write("c:/quillfence/LIST", "upper");
    drive.write("c:/quillfence/list", "lower");
    ASSERT_EQ(path_copy("c:/quillfence/list", "c:/quillfence/copy"), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/copy"), "lower");
    ASSERT_EQ(path_copy("c:/quillfence/LIST", "c:/quillfence/copy"), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/copy"), "upper");
    EXPECT_EQ(told, texts{});
}

TEST_F(names, else_the_first_in_byte_order_with_one_warning) {
    for (const char *name : {"list", "LIst", "LiST"}) {
        drive.write(std::string("c:/quillfence/") + name, name);
    }
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(path_copy("c:/quillfence/List", "c:/quillfence/copy"), error_none);
        EXPECT_EQ(drive.read("c:/quillfence/copy"), "LIst");
    }
    EXPECT_EQ(told, texts{"warning find_other_case: several names differ in letter case alone: "
                          "taking " +
                          drive.native("c:/quillfence/LIst")});
}

TEST_F(names, an_exact_folder_wins_even_without_the_file) {
    drive.make_folder("c:/quillfence/bms");
    drive.write("c:/quillfence/BMS/map", "");
    EXPECT_EQ(look("c:/quillfence/bms/map"), error_file_not_found);
    EXPECT_EQ(look("c:/QUILLFENCE/bms/map"), error_file_not_found);
    EXPECT_EQ(look("c:/quillfence/BMS/MAP"), error_none);
}

// As on Windows; Wine leaves the name as it was.
TEST_F(names, a_file_can_be_renamed_to_another_case) {
    drive.write("c:/quillfence/from_blacklist", "list");
    EXPECT_EQ(path_rename("c:/QUILLFENCE/FROM_blacklist", "c:/quillfence/From_Blacklist"),
              error_none);
    EXPECT_TRUE(drive.exists("c:/quillfence/From_Blacklist"));
    EXPECT_FALSE(drive.exists("c:/quillfence/from_blacklist"));
}

TEST_F(names, without_a_drive_names_are_exact) {
    drive.write("c:/quillfence/list", "");
    EXPECT_EQ(look(drive.native("c:/quillfence/list")), error_none);
    EXPECT_EQ(look(drive.native("c:/quillfence/LIST")), error_file_not_found);
}

TEST_F(names, a_link_to_nothing_is_missing_and_can_be_filled) {
    ASSERT_EQ(symlink("target", drive.native("c:/quillfence/list").c_str()), 0);
    EXPECT_EQ(look("c:/quillfence/LIST"), error_file_not_found);
    file_handle file = invalid_file;
    ASSERT_EQ(
        file_open("c:/quillfence/list", {.write = true, .when = disposition::open_always}, &file),
        error_none);
    EXPECT_EQ(file_close(file), error_none);
    EXPECT_TRUE(drive.exists("c:/quillfence/target"));
}

// The longest path that the seam takes, all of folders that are missing.
TEST_F(names, a_deep_path_ends) {
    std::string path = "c:";
    while (path.size() < 3900) {
        path += "/X";
    }
    EXPECT_EQ(look(path), error_path_not_found);
    EXPECT_EQ(look("c:/" + std::string(300, 'x')), error_filename_too_long);
    EXPECT_EQ(look("c:/Missing/" + std::string(300, 'x')), error_path_not_found);
}

TEST_F(names, a_folder_of_many_names_is_read_to_its_end) {
    for (int i = 0; i < 3000; ++i) {
        drive.write("c:/quillfence/name-" + std::to_string(i), "");
    }
    drive.write("c:/quillfence/list", "");
    EXPECT_EQ(look("c:/quillfence/LIST"), error_none);
    EXPECT_EQ(look("c:/quillfence/NAME-0"), error_none);
    EXPECT_EQ(look("c:/quillfence/NAME-2999"), error_none);
    EXPECT_EQ(look("c:/quillfence/NAME-3000"), error_file_not_found);
}

// The listing belongs to the call that missed.
TEST_F(names, the_observer_sees_one_call) {
    drive.write("c:/quillfence/list", "");
    testing::call_watch watch;
    EXPECT_EQ(look("c:/QUILLFENCE/LIST"), error_none);
    EXPECT_EQ(look("c:/QUILLFENCE/missing"), error_file_not_found);
    EXPECT_EQ(watch.take(), (texts{"path_attributes", "path_attributes"}));
}

TEST_F(names, a_drive_without_a_folder_is_told_once) {
    const std::string missing = drive.native("c:/missing");
    environment_set("QUILLFENCE_DRIVE_C", missing.c_str());
    EXPECT_EQ(look("c:/quillfence/a"), error_path_not_found);
    EXPECT_EQ(look("c:/quillfence/a"), error_path_not_found);
    EXPECT_EQ(look("c:/b"), error_path_not_found);
    EXPECT_EQ(told, texts{"error find_drive: QUILLFENCE_DRIVE_C names no readable folder (No such "
                          "file or directory): " +
                          missing + "/"});
}

TEST_F(names, a_file_in_a_drives_place_is_told) {
    drive.write("c:/quillfence/file", "");
    environment_set("QUILLFENCE_DRIVE_C", drive.native("c:/quillfence/file").c_str());
    EXPECT_EQ(look("c:/quillfence/a"), error_path_not_found);
    EXPECT_EQ(told, texts{"error find_drive: QUILLFENCE_DRIVE_C names no readable folder (Not a "
                          "directory): " +
                          drive.native("c:/quillfence/file") + "/"});
}

TEST_F(names, without_a_variable_nothing_is_told) {
    environment_set("QUILLFENCE_DRIVE_C", nullptr);
    EXPECT_EQ(look("c:/quillfence/a"), error_path_not_found);
    EXPECT_EQ(told, texts{});
}

// Nobody listens yet: it is told later.
TEST_F(names, what_nobody_heard_is_told_again) {
    environment_set("QUILLFENCE_DRIVE_C", drive.native("c:/not there").c_str());
    set_complaint_listener(nullptr);
    EXPECT_EQ(look("c:/quillfence/a"), error_path_not_found);
    set_complaint_listener(tell);
    EXPECT_EQ(look("c:/quillfence/a"), error_path_not_found);
    EXPECT_EQ(told.size(), 1u);
}

TEST_F(names, a_process_tells_so_much_and_no_more) {
    for (int i = 0; i < 1000; ++i) {
        complain(event_type::warning, "test", "%d", i);
    }
    EXPECT_LE(told.size(), 64u);
    EXPECT_GE(told.size(), 50u);
}

} // namespace
} // namespace quillfence::platform
