#include "platform/directory.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/observer.h"
#include "platform/process.h"
#include "platform/scratch_folder.h"

namespace quillfence::platform {
namespace {

constexpr char folder[] = "c:/quillfence/list";
constexpr char missing[] = "c:/quillfence/missing";
constexpr char below_missing[] = "c:/quillfence/missing/sub";

using names = std::vector<std::string>;

// The names of a listing in order, a folder with a slash behind it.
names listed(const char *path) {
    names found;
    directory_listing *listing = nullptr;
    EXPECT_EQ(directory_open(path, &listing), error_none) << path;
    if (!listing) {
        return found;
    }
    directory_entry entry = {};
    uint32_t error = directory_next(listing, &entry);
    for (; !error; error = directory_next(listing, &entry)) {
        EXPECT_TRUE(entry.attributes == attribute_directory || entry.attributes == attribute_normal)
            << entry.name;
        found.push_back(std::string(entry.name) +
                        (entry.attributes == attribute_directory ? "/" : ""));
    }
    EXPECT_EQ(error, error_no_more_files);
    EXPECT_EQ(directory_next(listing, &entry), error_no_more_files) << "the end stays the end";
    directory_close(listing);
    return found;
}

class directory : public ::testing::Test {
  protected:
    directory() {
        drive.make_folder(folder);
    }
    void make_file(const std::string &name) const {
        drive.write(folder + ("/" + name), "");
    }
    testing::drive_c drive;
};

TEST_F(directory, an_empty_folder_lists_itself_and_its_parent) {
    EXPECT_EQ(listed(folder), (names{"./", "../"}));
}

TEST_F(directory, names_are_sorted_without_regard_to_case) {
    for (const char *name : {"b", "A", "_x", "a1", "Z", "1", "a-b", "B.txt", "ab", "!", "{"}) {
        make_file(name);
    }
    drive.make_folder("c:/quillfence/list/Sub");
    drive.make_folder("c:/quillfence/list/.hidden");
    EXPECT_EQ(listed(folder), (names{"./", "../", "!", ".hidden/", "1", "A", "a-b", "a1", "ab", "b",
                                     "B.txt", "Sub/", "Z", "_x", "{"}));
}

TEST_F(directory, the_path_may_end_in_a_separator) {
    make_file("x");
    for (const char *spelling : {"c:/quillfence/list/", "c:\\quillfence\\list\\",
                                 "C:/quillfence/list", "c:/quillfence/./list"}) {
        EXPECT_EQ(listed(spelling), (names{"./", "../", "x"})) << spelling;
    }
}

TEST_F(directory, many_entries) {
    names want = {"./", "../"};
    for (int i = 0; i < 300; ++i) {
        make_file("n" + std::to_string(i));
        want.push_back("n" + std::to_string(i));
    }
    std::sort(want.begin() + 2, want.end());
    EXPECT_EQ(listed(folder), want);
}

TEST_F(directory, open_failures) {
    make_file("file");
    static constexpr struct {
        const char *path;
        uint32_t want;
    } cases[] = {
        {missing, error_path_not_found},
        {below_missing, error_path_not_found},
        {"c:/quillfence/list/file", error_directory},
        {"", error_path_not_found},
        {nullptr, error_path_not_found},
    };
    for (const auto &c : cases) {
        auto *listing = reinterpret_cast<directory_listing *>(1);
        EXPECT_EQ(directory_open(c.path, &listing), c.want) << (c.path ? c.path : "null");
        EXPECT_EQ(listing, nullptr);
    }
    const std::string too_long(70000, 'x');
    directory_listing *listing = nullptr;
    EXPECT_NE(directory_open(("c:/" + too_long).c_str(), &listing), error_none);
    EXPECT_EQ(listing, nullptr);
}

TEST_F(directory, closing_early_or_nothing) {
    make_file("x");
    directory_listing *listing = nullptr;
    ASSERT_EQ(directory_open(folder, &listing), error_none);
    directory_entry entry = {};
    EXPECT_EQ(directory_next(listing, &entry), error_none);
    directory_close(listing);
    directory_close(nullptr);
}

TEST_F(directory, create_makes_one_level) {
    make_file("file");
    EXPECT_EQ(directory_create(missing), error_none);
    uint32_t attributes = 0;
    EXPECT_EQ(path_attributes(missing, &attributes), error_none);
    EXPECT_EQ(attributes, attribute_directory);
    EXPECT_EQ(directory_create(missing), error_already_exists);
    EXPECT_EQ(directory_create("c:/quillfence/list/file"), error_already_exists);
    EXPECT_EQ(directory_create("c:/quillfence/none/sub"), error_path_not_found);
    EXPECT_EQ(directory_create(""), error_path_not_found);
    EXPECT_EQ(directory_create(nullptr), error_path_not_found);
}

TEST_F(directory, remove_takes_an_empty_folder_only) {
    make_file("file");
    EXPECT_EQ(directory_remove(folder), error_dir_not_empty);
    EXPECT_EQ(directory_remove("c:/quillfence/list/file"), error_directory);
    EXPECT_TRUE(drive.exists("c:/quillfence/list/file"));
    drive.remove("c:/quillfence/list/file");
    EXPECT_EQ(directory_remove(folder), error_none);
    EXPECT_FALSE(drive.exists(folder));
    EXPECT_EQ(directory_remove(folder), error_file_not_found);
    EXPECT_EQ(directory_remove(below_missing), error_path_not_found);
    EXPECT_EQ(directory_remove(""), error_path_not_found);
    EXPECT_EQ(directory_remove(nullptr), error_path_not_found);
}

// --- scratch folders: of the system's own names ---

class scratch : public ::testing::Test {
  protected:
    scratch() {
        char temporary[1024];
        EXPECT_EQ(temp_directory(temporary, sizeof temporary), error_none);
        path = std::string(temporary) + "/quillfence-scratch-" + std::to_string(process_id());
    }
    static bool exists(const std::string &name) {
        uint32_t attributes = 0;
        return path_attributes(name.c_str(), &attributes) == error_none;
    }
    static void make_file(const std::string &name) {
        file_handle file = invalid_file;
        EXPECT_EQ(file_open(name.c_str(), {.write = true, .when = disposition::create_new}, &file),
                  error_none);
        file_close(file);
    }
    std::string path;
};

TEST_F(scratch, it_goes_with_everything_in_it) {
    ASSERT_EQ(scratch_folder_make(path.c_str()), error_none);
    EXPECT_EQ(scratch_folder_make(path.c_str()), error_already_exists);
    std::string below = path;
    for (int depth = 0; depth < 20; ++depth) {
        for (int i = 0; i < 60; ++i) { // more than one piece of a listing
            make_file(below + "/a file with a long name " + std::to_string(i));
        }
        ASSERT_EQ(directory_create((below + "/e").c_str()), error_none);
        below += "/d";
        ASSERT_EQ(directory_create(below.c_str()), error_none);
    }
    EXPECT_EQ(scratch_folder_remove(path.c_str()), error_none);
    EXPECT_FALSE(exists(path));
    EXPECT_EQ(scratch_folder_remove(path.c_str()), error_none); // none is none to remove
}

TEST_F(scratch, there_are_no_more_than_can_be_looked_after) {
    const auto name = [this](int i) { return path + "-" + std::to_string(i); };
    for (int i = 0; i < most_scratch_folders; ++i) {
        ASSERT_EQ(scratch_folder_make(name(i).c_str()), error_none);
    }
    EXPECT_EQ(scratch_folder_make(name(most_scratch_folders).c_str()), error_not_enough_memory);
    EXPECT_FALSE(exists(name(most_scratch_folders)));
    EXPECT_EQ(scratch_folder_remove(name(3).c_str()), error_none);
    EXPECT_EQ(scratch_folder_make(path.c_str()), error_none);
    EXPECT_EQ(scratch_folder_remove(path.c_str()), error_none);
    for (int i = 0; i < most_scratch_folders; ++i) {
        EXPECT_EQ(scratch_folder_remove(name(i).c_str()), error_none);
        EXPECT_FALSE(exists(name(i)));
    }
}

TEST_F(scratch, wrong_paths) {
    EXPECT_EQ(scratch_folder_make((path + "/none").c_str()), error_path_not_found);
    EXPECT_EQ(scratch_folder_make(std::string(longest_scratch_path, 'a').c_str()),
              error_filename_too_long);
}

std::string observed;

uint32_t fail_all(const char *call, const char *subject) {
    observed += std::string(call) + "(" + subject + ") ";
    return error_io_device;
}

TEST_F(directory, every_function_can_be_made_to_fail) {
    directory_listing *listing = nullptr;
    ASSERT_EQ(directory_open(folder, &listing), error_none);
    directory_listing *other = nullptr;
    directory_entry entry = {};
    observed.clear();
    set_call_observer(fail_all);
    EXPECT_EQ(directory_open(folder, &other), error_io_device);
    EXPECT_EQ(directory_next(listing, &entry), error_io_device);
    EXPECT_EQ(directory_create(missing), error_io_device);
    EXPECT_EQ(directory_remove(folder), error_io_device);
    EXPECT_EQ(scratch_folder_make("scratch"), error_io_device);
    EXPECT_EQ(scratch_folder_remove("scratch"), error_io_device);
    set_call_observer(nullptr);
    EXPECT_EQ(observed, "directory_open(c:/quillfence/list) directory_next() "
                        "directory_create(c:/quillfence/missing) "
                        "directory_remove(c:/quillfence/list) "
                        "scratch_folder_make(scratch) scratch_folder_remove(scratch) ");
    directory_close(listing);
    EXPECT_TRUE(drive.exists(folder));
    EXPECT_FALSE(drive.exists(missing));
}

} // namespace
} // namespace quillfence::platform
