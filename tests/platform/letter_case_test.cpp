// Names below drive c: are found whatever their letter case, on both systems.
#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/directory.h"
#include "platform/edit.h"
#include "platform/error_numbers.h"
#include "platform/file.h"

namespace quillfence::platform {
namespace {

class letter_case : public ::testing::Test {
  protected:
    letter_case() {
        drive.write("c:/quillfence/from_blacklist", "list");
        drive.write("c:/quillfence/Bms/Bots.bms", "map");
    }
    // The names in a folder, without "." and "..", each with a blank behind it.
    static std::string listed(const char *folder) {
        std::string names;
        directory_listing *listing = nullptr;
        EXPECT_EQ(directory_open(folder, &listing), error_none) << folder;
        directory_entry entry = {};
        while (listing && directory_next(listing, &entry) == error_none) {
            names += entry.name[0] == '.' ? "" : entry.name + std::string(" ");
        }
        directory_close(listing);
        return names;
    }
    static auto count(const char *folder) {
        const std::string names = listed(folder);
        return std::count(names.begin(), names.end(), ' ');
    }
    static std::string contents(const char *path) {
        file_handle file = invalid_file;
        if (const uint32_t error = file_open(path, {}, &file)) {
            return "error " + std::to_string(error);
        }
        char bytes[64];
        uint32_t moved = 0;
        EXPECT_EQ(file_read(file, bytes, sizeof bytes, &moved), error_none) << path;
        EXPECT_EQ(file_close(file), error_none);
        return {bytes, moved};
    }
    testing::drive_c drive;
};

TEST_F(letter_case, names_and_folders_on_the_way_are_found) {
    static constexpr struct {
        const char *path, *want;
    } cases[] = {
        {"c:/quillfence/from_blacklist", "list"},
        {"c:/quillfence/From_Blacklist", "list"},
        {"C:\\QUILLFENCE\\FROM_BLACKLIST", "list"},
        {"c:/Quillfence//from_blackLIST", "list"},
        {"c:/quillfence/bms/bots.BMS", "map"},
        {"c:/QuillFence/BMS/BOTS.BMS", "map"},
        {"c:/quillfence/Bms/../BMS/bots.bms", "map"},
        {"c:/quillfence/from_blacklist2", "error 2"},
        {"c:/quillfence/from_blacklis", "error 2"},
        {"c:/QUILLFENCE/BMS/other", "error 2"},
        {"c:/quillfence/other/bots.bms", "error 3"},
        {"c:/QUILLFENCE/other/BMS/bots.bms", "error 3"},
        {"c:/quillfence/FROM_BLACKLIST/x", "error 3"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(contents(c.path), c.want) << c.path;
    }
}

// Only ASCII letters have two cases; the bytes here are those of a-umlaut in UTF-8.
TEST_F(letter_case, other_letters_and_signs_differ) {
    drive.write("c:/quillfence/x@[", "");
    uint32_t attributes = 0;
    EXPECT_EQ(path_attributes("c:/quillfence/X@[", &attributes), error_none);
    EXPECT_EQ(path_attributes("c:/quillfence/x`{", &attributes), error_file_not_found);
}

TEST_F(letter_case, every_call_finds_them) {
    uint32_t attributes = 0;
    EXPECT_EQ(path_attributes("c:/quillfence/BMS", &attributes), error_none);
    EXPECT_EQ(attributes, attribute_directory);
    EXPECT_EQ(listed("c:/QUILLFENCE/BMS"), "Bots.bms ");

    FILE *const stream = stream_open("c:/quillfence/bms/BOTS.bms", "rb");
    ASSERT_NE(stream, nullptr);
    char bytes[8] = {};
    EXPECT_EQ(fread(bytes, 1, sizeof bytes, stream), 3u);
    fclose(stream);

    EXPECT_EQ(path_copy("c:/quillfence/bms/BOTS.bms", "c:/quillfence/BMS/copy"), error_none);
    EXPECT_EQ(path_rename("c:/quillfence/bms/COPY", "c:/quillfence/bms/moved"), error_none);
    EXPECT_EQ(listed("c:/quillfence/Bms"), "Bots.bms moved ");
    EXPECT_EQ(path_delete("c:/quillfence/bms/MOVED"), error_none);
    EXPECT_EQ(path_delete("c:/quillfence/BMS/BOTS.BMS"), error_none);
    EXPECT_EQ(directory_remove("c:/quillfence/BMS"), error_none);
    EXPECT_EQ(listed("c:/quillfence"), "from_blacklist ");
}

TEST_F(letter_case, nothing_is_made_beside_what_is_there) {
    file_handle file = invalid_file;
    const char *const path = "c:/quillfence/From_Blacklist";
    EXPECT_EQ(file_open(path, {.write = true, .when = disposition::create_new}, &file),
              error_file_exists);
    ASSERT_EQ(file_open(path, {.write = true, .when = disposition::open_always}, &file),
              error_none);
    EXPECT_EQ(file_close(file), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/from_blacklist"), "list");
    EXPECT_EQ(directory_create("c:/quillfence/BMS"), error_already_exists);

    ASSERT_EQ(file_open(path, {.write = true, .when = disposition::create_always}, &file),
              error_none);
    EXPECT_EQ(file_close(file), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/from_blacklist"), "");

    FILE *const stream = stream_open("c:/quillfence/FROM_blacklist", "w+b");
    ASSERT_NE(stream, nullptr);
    fputs("new", stream);
    fclose(stream);
    EXPECT_EQ(drive.read("c:/quillfence/from_blacklist"), "new");
    EXPECT_EQ(path_copy("c:/quillfence/bms/bots.bms", path), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/from_blacklist"), "map");
    EXPECT_EQ(path_rename("c:/quillfence/bms/bots.bms", path), error_already_exists);
    EXPECT_EQ(listed("c:/quillfence"), "Bms from_blacklist ");
}

TEST_F(letter_case, what_is_new_is_made_in_the_folder_that_is_there) {
    file_handle file = invalid_file;
    ASSERT_EQ(file_open("c:/QUILLFENCE/BMS/New", {.write = true, .when = disposition::open_always},
                        &file),
              error_none);
    EXPECT_EQ(file_close(file), error_none);
    EXPECT_EQ(directory_create("c:/QUILLFENCE/BMS/Folder"), error_none);
    EXPECT_EQ(listed("c:/quillfence/Bms"), "Bots.bms Folder New ");
    EXPECT_EQ(listed("c:/quillfence"), "Bms from_blacklist ");
}

TEST_F(letter_case, a_replaced_file_stays_one) {
    drive.write("c:/quillfence/from_blacklist.tmp", "new");
    EXPECT_EQ(path_replace("c:/quillfence/FROM_BLACKLIST.tmp", "c:/quillfence/FROM_BLACKLIST"),
              error_none);
    EXPECT_EQ(contents("c:/quillfence/from_blacklist"), "new");
    drive.remove("c:/quillfence/Bms");
    EXPECT_EQ(count("c:/quillfence"), 1);
}

TEST_F(letter_case, editors_by_any_name_lock_one_file) {
    edit_lock first;
    edit_lock second;
    ASSERT_EQ(edit_lock_take("c:/QUILLFENCE/From_Blacklist", disposition::open_always, &first),
              error_none);
    char bytes[8] = "";
    uint32_t moved = 0;
    EXPECT_EQ(file_read(first.file, bytes, sizeof bytes, &moved), error_none);
    EXPECT_EQ(std::string(bytes, moved), "list");
    EXPECT_EQ(edit_lock_take("c:/quillfence/FROM_BLACKLIST", disposition::open_existing, &second),
              error_sharing_violation);
    edit_lock_release(&first);
    EXPECT_EQ(listed("c:/quillfence"), "Bms from_blacklist ");
}

TEST_F(letter_case, an_edit_replaces_the_file_that_is_there) {
    drive.write("c:/quillfence/FROM_blacklist.tmp", "a leftover");
    drive.remove("c:/quillfence/Bms");
    replacement fresh;
    ASSERT_EQ(replacement_begin("c:/Quillfence/From_Blacklist", ".tmp", &fresh), error_none);
    uint32_t moved = 0;
    EXPECT_EQ(file_write(fresh.lock.file, "new", 3, &moved), error_none);
    EXPECT_EQ(replacement_commit(&fresh, nullptr), error_none);
    EXPECT_EQ(replacement_end(&fresh), error_none);
    EXPECT_EQ(contents("c:/quillfence/from_blacklist"), "new");
    EXPECT_EQ(count("c:/quillfence"), 1);
}

TEST_F(letter_case, a_replacement_that_is_given_up_leaves_the_file_that_is_there) {
    replacement fresh;
    ASSERT_EQ(replacement_begin("c:/quillfence/From_Blacklist", ".tmp", &fresh), error_none);
    EXPECT_EQ(replacement_end(&fresh), error_none);
    EXPECT_EQ(listed("c:/quillfence"), "Bms from_blacklist ");
}

TEST_F(letter_case, a_second_name_is_made_where_there_is_none) {
    EXPECT_EQ(path_link("c:/quillfence/From_Blacklist", "c:/QUILLFENCE/bms/copy"), error_none);
    EXPECT_EQ(contents("c:/quillfence/Bms/copy"), "list");
    EXPECT_EQ(path_link("c:/quillfence/bms/bots.bms", "c:/quillfence/bms/COPY"),
              error_already_exists);
    EXPECT_EQ(path_sync_folder("c:/QUILLFENCE/BMS/x"), error_none);
    EXPECT_EQ(listed("c:/quillfence/Bms"), "Bots.bms copy ");
}

TEST_F(letter_case, a_library_gets_the_name_that_is_there) {
    char native[4096];
    ASSERT_EQ(path_native("c:/quillfence/bms/BOTS.bms", native, sizeof native), error_none);
    FILE *const stream = fopen(native, "rb");
    EXPECT_NE(stream, nullptr) << native;
    if (stream) {
        fclose(stream);
    }
}

} // namespace
} // namespace quillfence::platform
