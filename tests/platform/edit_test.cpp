#include "platform/edit.h"

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "open_handles.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {
namespace {

constexpr char list[] = "c:/quillfence/list";
constexpr char fresh_name[] = "c:/quillfence/list.new";

void write_all(file_handle file, const std::string &bytes) {
    uint32_t moved = 0;
    EXPECT_EQ(file_write(file, bytes.data(), static_cast<uint32_t>(bytes.size()), &moved),
              error_none);
    EXPECT_EQ(moved, bytes.size());
}

class edit : public ::testing::Test {
  protected:
    // Error numbers of replacing the list, the first that is not 0.
    uint32_t replace(const std::string &bytes, edit_lock *held = nullptr) {
        replacement fresh;
        uint32_t error = replacement_begin(list, ".new", &fresh);
        if (!error) {
            write_all(fresh.lock.file, bytes);
            error = replacement_commit(&fresh, held);
        }
        const uint32_t end_error = replacement_end(&fresh);
        return error ? error : end_error;
    }
    testing::drive_c drive;
};

// --- the lock ---

TEST_F(edit, a_lock_opens_the_file) {
    edit_lock lock;
    EXPECT_EQ(edit_lock_take(list, disposition::open_existing, &lock), error_file_not_found);
    EXPECT_EQ(lock.file, invalid_file);
    EXPECT_EQ(edit_lock_take("c:/quillfence/none/list", disposition::open_always, &lock),
              error_path_not_found);
    EXPECT_EQ(edit_lock_take("", disposition::open_always, &lock), error_path_not_found);
    EXPECT_EQ(edit_lock_take("c:/quillfence", disposition::open_always, &lock),
              error_access_denied);
    ASSERT_EQ(edit_lock_take(list, disposition::open_always, &lock), error_none);
    write_all(lock.file, "a");
    edit_lock_release(&lock);
    edit_lock_release(&lock); // nothing is held any more
    EXPECT_EQ(drive.read(list), "a");
}

TEST_F(edit, a_second_editor_is_refused_after_a_while) {
    edit_lock first;
    edit_lock second;
    ASSERT_EQ(edit_lock_take(list, disposition::open_always, &first), error_none);
    std::thread([&] {
        EXPECT_EQ(edit_lock_take(list, disposition::open_always, &second), error_sharing_violation);
    }).join();
    EXPECT_EQ(edit_lock_take(list, disposition::open_always, &second), error_sharing_violation)
        << "the same thread";
    edit_lock_release(&first);
    EXPECT_EQ(edit_lock_take(list, disposition::open_always, &second), error_none);
    edit_lock_release(&second);
}

TEST_F(edit, files_have_locks_of_their_own) {
    edit_lock one;
    edit_lock other;
    ASSERT_EQ(edit_lock_take(list, disposition::open_always, &one), error_none);
    EXPECT_EQ(edit_lock_take("c:/quillfence/other", disposition::open_always, &other), error_none);
    edit_lock_release(&other);
    edit_lock_release(&one);
}

// Ten threads count in a file that each of them replaces: the lock is on the file that has the
// name, and not on one that has lost it.
TEST_F(edit, a_second_editor_waits_and_finds_the_new_file) {
    drive.write(list, "0");
    const auto count = [&] {
        for (int i = 0; i < 5; ++i) {
            edit_lock lock;
            replacement fresh;
            char text[16] = "";
            uint32_t moved = 0;
            ASSERT_EQ(edit_lock_take(list, disposition::open_existing, &lock), error_none);
            ASSERT_EQ(replacement_begin(list, ".new", &fresh), error_none);
            ASSERT_EQ(file_read(lock.file, text, sizeof text - 1, &moved), error_none);
            write_all(fresh.lock.file, std::to_string(std::stoi(text) + 1));
            ASSERT_EQ(replacement_commit(&fresh, &lock), error_none);
            ASSERT_EQ(replacement_end(&fresh), error_none);
            edit_lock_release(&lock);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(count);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(drive.read(list), "20");
    EXPECT_FALSE(drive.exists(fresh_name));
}

// --- replacing ---

TEST_F(edit, a_replacement_makes_a_file_or_takes_its_place) {
    EXPECT_EQ(replace("one"), error_none);
    EXPECT_EQ(drive.read(list), "one");
    EXPECT_EQ(replace("other"), error_none);
    EXPECT_EQ(drive.read(list), "other");
    EXPECT_EQ(replace(""), error_none);
    EXPECT_EQ(drive.read(list), "");
    EXPECT_FALSE(drive.exists(fresh_name));
}

TEST_F(edit, a_replacement_that_is_not_committed_leaves_no_trace) {
    drive.write(list, "old");
    replacement fresh;
    ASSERT_EQ(replacement_begin(list, ".new", &fresh), error_none);
    write_all(fresh.lock.file, "new");
    EXPECT_TRUE(drive.exists(fresh_name));
    EXPECT_EQ(replacement_end(&fresh), error_none);
    EXPECT_EQ(drive.read(list), "old");
    EXPECT_FALSE(drive.exists(fresh_name));
    EXPECT_EQ(replacement_end(&fresh), error_none) << "again";
}

TEST_F(edit, a_leftover_is_deleted_and_never_taken_over) {
    drive.write(list, "old");
    drive.write(fresh_name, "half of something, longer than the new file");
    EXPECT_EQ(replace("new"), error_none);
    EXPECT_EQ(drive.read(list), "new");
    EXPECT_FALSE(drive.exists(fresh_name));
}

TEST_F(edit, a_temporary_file_that_is_being_written_is_no_leftover) {
    replacement first;
    ASSERT_EQ(replacement_begin(list, ".new", &first), error_none);
    write_all(first.lock.file, "first");
    std::thread([&] {
        replacement second;
        EXPECT_EQ(replacement_begin(list, ".new", &second), error_sharing_violation);
        EXPECT_EQ(replacement_end(&second), error_none);
    }).join();
    EXPECT_EQ(replacement_commit(&first, nullptr), error_none);
    EXPECT_EQ(replacement_end(&first), error_none);
    EXPECT_EQ(drive.read(list), "first");
}

TEST_F(edit, only_files_are_replaced) {
    drive.make_folder(list);
    EXPECT_EQ(replace("new"), error_access_denied);
    EXPECT_TRUE(drive.exists(list));
    EXPECT_FALSE(drive.exists(fresh_name));
    drive.remove(list);
    drive.make_folder(fresh_name);
    EXPECT_NE(replace("new"), error_none);
    EXPECT_TRUE(drive.exists(fresh_name)) << "a folder is no leftover";
    replacement fresh;
    EXPECT_EQ(replacement_begin("", ".new", &fresh), error_path_not_found);
    EXPECT_EQ(replacement_begin("c:/quillfence/none/list", ".new", &fresh), error_path_not_found);
    EXPECT_EQ(replacement_begin(std::string(5000, 'x').c_str(), ".new", &fresh),
              error_filename_too_long);
    EXPECT_EQ(replacement_end(&fresh), error_none);
}

// A reader has the file open all the time. It goes on reading the old one, and whoever opens the
// name finds the new one.
TEST_F(edit, a_lookup_goes_on_reading_the_old_file) {
    drive.write(list, "old");
    file_handle reader;
    ASSERT_EQ(file_open(list, {}, &reader), error_none);
    const uint32_t error = replace("new");
    if (error == error_access_denied) {
        // Wine refuses while any handle is open. Windows 10 does not.
        EXPECT_EQ(drive.read(list), "old");
        EXPECT_FALSE(drive.exists(fresh_name));
    } else {
        EXPECT_EQ(error, error_none);
        EXPECT_EQ(drive.read(list), "new");
    }
    char text[4] = "";
    uint32_t moved = 0;
    EXPECT_EQ(file_read(reader, text, 3, &moved), error_none);
    EXPECT_STREQ(text, "old");
    EXPECT_EQ(file_close(reader), error_none);
}

TEST_F(edit, an_editor_may_keep_its_lock_over_the_replacement) {
    drive.write(list, "old");
    edit_lock lock;
    ASSERT_EQ(edit_lock_take(list, disposition::open_existing, &lock), error_none);
    EXPECT_EQ(replace("new", &lock), error_none);
    EXPECT_EQ(drive.read(list), "new");
    edit_lock_release(&lock);
    ASSERT_EQ(edit_lock_take(list, disposition::open_existing, &lock), error_none);
    edit_lock_release(&lock);
}

// --- the steps ---

TEST_F(edit, a_link_is_a_second_name) {
    drive.write(list, "a");
    EXPECT_EQ(path_link(list, "c:/quillfence/link"), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/link"), "a");
    EXPECT_EQ(path_link(list, "c:/quillfence/link"), error_already_exists);
    EXPECT_EQ(path_link("c:/quillfence/none", "c:/quillfence/new"), error_file_not_found);
    EXPECT_EQ(replace("b"), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/link"), "a") << "the old contents";
}

TEST_F(edit, the_target_of_what_is_no_link_is_itself) {
    char target[64];
    for (const char *const path : {list, "c:/quillfence", "some/where"}) {
        EXPECT_EQ(path_target(path, target, sizeof target), error_none);
        EXPECT_STREQ(target, path);
    }
    EXPECT_EQ(path_target(list, target, sizeof list - 1), error_filename_too_long);
    EXPECT_EQ(path_target("", target, sizeof target), error_path_not_found);
}

TEST_F(edit, folders_are_synced) {
    EXPECT_EQ(path_sync_folder(list), error_none);
    EXPECT_EQ(path_sync_folder("no_folder_named"), error_none) << "the working folder";
    EXPECT_EQ(path_sync_folder(""), error_path_not_found);
}

// Every step fails once; the old file stands unless it is the folder that fails.
TEST_F(edit, each_step_can_fail) {
    const int handles = testing::open_handles();
    for (const char *const call :
         {"path_target", "temporary_create", "file_sync", "path_replace", "path_sync_folder"}) {
        drive.write(list, "old");
        testing::call_watch watch;
        watch.fail(call, 1, error_disk_full);
        EXPECT_EQ(replace("new"), error_disk_full) << call;
        EXPECT_EQ(watch.failed(), 1) << call;
        EXPECT_EQ(drive.read(list), call == std::string("path_sync_folder") ? "new" : "old")
            << call;
        EXPECT_FALSE(drive.exists(fresh_name)) << call;
    }
    EXPECT_EQ(testing::open_handles(), handles);
}

TEST_F(edit, each_call_names_its_path) {
    static std::string observed;
    const auto refuse = [](const char *call, const char *subject) -> uint32_t {
        observed += std::string(call) + "(" + subject + ") ";
        return error_write_protect;
    };
    edit_lock lock;
    char target[64];
    const struct {
        const char *want;
        std::function<uint32_t()> call;
    } cases[] = {
        {"edit_lock_take(c:/quillfence/list) ",
         [&] { return edit_lock_take(list, disposition::open_always, &lock); }},
        {"path_target(c:/quillfence/list) ",
         [&] { return path_target(list, target, sizeof target); }},
        {"temporary_create(c:/quillfence/list.new) ",
         [&] { return temporary_create(fresh_name, list, &lock); }},
        {"path_link(c:/quillfence/list) ", [&] { return path_link(list, fresh_name); }},
        {"path_sync_folder(c:/quillfence/list) ", [&] { return path_sync_folder(list); }},
    };
    set_call_observer(refuse);
    for (const auto &c : cases) {
        observed.clear();
        EXPECT_EQ(c.call(), error_write_protect) << c.want;
        EXPECT_EQ(observed, c.want);
    }
    set_call_observer(nullptr);
    EXPECT_FALSE(drive.exists(list));
    EXPECT_FALSE(drive.exists(fresh_name));
}

} // namespace
} // namespace quillfence::platform
