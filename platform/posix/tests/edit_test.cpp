// Replacements among owners, rights and links, which are these systems' own.
#include "platform/edit.h"

#include <cerrno>
#include <climits>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "drive_c.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {
namespace {

constexpr char list[] = "c:/quillfence/list";
constexpr uid_t somebody = 12345;
constexpr gid_t some_group = 23456;

class edit_rights : public ::testing::Test {
  protected:
    std::string native(const std::string &path) {
        return drive.native(path);
    }
    uint32_t replace(const std::string &path, const std::string &bytes) {
        replacement fresh;
        uint32_t error = replacement_begin(path.c_str(), ".new", &fresh);
        if (!error) {
            uint32_t moved = 0;
            file_write(fresh.lock.file, bytes.data(), static_cast<uint32_t>(bytes.size()), &moved);
            error = replacement_commit(&fresh, nullptr);
        }
        replacement_end(&fresh);
        return error;
    }
    mode_t mode_of(const std::string &path) {
        struct stat facts = {};
        EXPECT_EQ(stat(native(path).c_str(), &facts), 0) << path;
        return facts.st_mode & 07777;
    }
    void link_to(const std::string &target, const std::string &name) {
        ASSERT_EQ(symlink(target.c_str(), native(name).c_str()), 0);
    }
    testing::drive_c drive;
};

TEST_F(edit_rights, the_mode_is_kept) {
    for (const mode_t mode : {0600u, 0640u, 0644u, 0666u, 0400u, 0755u}) {
        drive.remove(list);
        drive.write(list, "old");
        ASSERT_EQ(chmod(native(list).c_str(), mode), 0);
        EXPECT_EQ(replace(list, "new"), error_none);
        EXPECT_EQ(mode_of(list), mode);
        EXPECT_EQ(drive.read(list), "new");
    }
}

TEST_F(edit_rights, a_new_file_has_the_mode_of_new_files) {
    const mode_t before = umask(027);
    EXPECT_EQ(replace(list, "new"), error_none);
    umask(before);
    EXPECT_EQ(mode_of(list), 0640u);
}

// The contents of a private file are private while they are written, too.
TEST_F(edit_rights, the_temporary_file_has_them_from_the_beginning) {
    drive.write(list, "old");
    ASSERT_EQ(chmod(native(list).c_str(), 0600), 0);
    replacement fresh;
    ASSERT_EQ(replacement_begin(list, ".new", &fresh), error_none);
    EXPECT_EQ(mode_of("c:/quillfence/list.new"), 0600u);
    replacement_end(&fresh);
}

// What is for its owner alone is so from the beginning, whatever it replaces.
TEST_F(edit_rights, of_the_owner) {
    const mode_t before = umask(0);
    for (const bool over : {false, true}) {
        drive.remove(list);
        if (over) {
            drive.write(list, "old");
            ASSERT_EQ(chmod(native(list).c_str(), 0666), 0);
        }
        replacement fresh;
        ASSERT_EQ(replacement_begin(list, ".new", &fresh, file_rights::of_owner), error_none);
        EXPECT_EQ(mode_of("c:/quillfence/list.new"), 0600u);
        EXPECT_EQ(replacement_commit(&fresh, nullptr), error_none);
        replacement_end(&fresh);
        EXPECT_EQ(mode_of(list), 0600u);
    }
    umask(before);
}

// What others are to read they can, however private the process's new files and the replaced one
// are.
TEST_F(edit_rights, of_readers) {
    const mode_t before = umask(0077);
    for (const bool over : {false, true}) {
        drive.remove(list);
        if (over) {
            drive.write(list, "old");
            ASSERT_EQ(chmod(native(list).c_str(), 0600), 0);
        }
        replacement fresh;
        ASSERT_EQ(replacement_begin(list, ".new", &fresh, file_rights::of_readers), error_none);
        EXPECT_EQ(replacement_commit(&fresh, nullptr), error_none);
        replacement_end(&fresh);
        EXPECT_EQ(mode_of(list), 0644u);
    }
    umask(before);
}

TEST_F(edit_rights, the_owner_is_kept) {
    drive.write(list, "old");
    ASSERT_EQ(chmod(native(list).c_str(), 04640), 0);
    if (chown(native(list).c_str(), somebody, some_group) != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    ASSERT_EQ(chmod(native(list).c_str(), 0640), 0);
    EXPECT_EQ(replace(list, "new"), error_none);
    struct stat facts = {};
    ASSERT_EQ(stat(native(list).c_str(), &facts), 0);
    EXPECT_EQ(facts.st_uid, somebody);
    EXPECT_EQ(facts.st_gid, some_group);
    EXPECT_EQ(facts.st_mode & 07777, 0640u);
}

// A list that the mail server could not read any more would list nobody.
TEST_F(edit_rights, where_the_owner_cannot_be_kept_the_old_file_stands) {
    drive.write(list, "old");
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs a file of somebody else's";
    }
    ASSERT_EQ(chmod(native("c:/quillfence").c_str(), 0777), 0);
    ASSERT_EQ(seteuid(somebody), 0);
    const uint32_t error = replace(list, "new");
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(error, error_access_denied);
    EXPECT_EQ(drive.read(list), "old");
    EXPECT_FALSE(drive.exists("c:/quillfence/list.new"));
}

TEST_F(edit_rights, a_link_stays_and_its_target_is_replaced) {
    drive.write("c:/quillfence/real/file", "old");
    link_to("real/file", list);                    // relative
    link_to(native(list), "c:/quillfence/second"); // absolute, and of a link
    EXPECT_EQ(replace("c:/quillfence/second", "new"), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/real/file"), "new");
    struct stat facts = {};
    for (const char *const name : {list, "c:/quillfence/second"}) {
        EXPECT_EQ(lstat(native(name).c_str(), &facts), 0);
        EXPECT_TRUE(S_ISLNK(facts.st_mode)) << name;
    }
    EXPECT_FALSE(drive.exists("c:/quillfence/real/file.new"));
}

TEST_F(edit_rights, a_link_to_nothing_makes_its_target) {
    drive.make_folder("c:/quillfence/real");
    link_to("real/file", list);
    EXPECT_EQ(replace(list, "new"), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/real/file"), "new");
}

TEST_F(edit_rights, links_in_a_circle_are_an_error) {
    link_to("other", list);
    link_to("list", "c:/quillfence/other");
    EXPECT_EQ(replace(list, "new"), error_cannot_resolve_filename);
    char target[8];
    link_to("a/name/that/is/too/long/for/the/buffer", "c:/quillfence/long");
    EXPECT_EQ(path_target("c:/quillfence/long", target, sizeof target), error_filename_too_long);
}

// What somebody has laid in the temporary file's place is neither written to nor followed.
TEST_F(edit_rights, a_link_in_the_temporary_files_place_is_not_followed) {
    drive.write(list, "old");
    drive.write("c:/quillfence/victim", "kept");
    link_to("victim", "c:/quillfence/list.new");
    EXPECT_EQ(replace(list, "new"), error_none);
    EXPECT_EQ(drive.read(list), "new");
    ASSERT_EQ(
        link(native("c:/quillfence/victim").c_str(), native("c:/quillfence/list.new").c_str()), 0);
    EXPECT_EQ(replace(list, "newer"), error_none);
    EXPECT_EQ(drive.read(list), "newer");
    EXPECT_EQ(drive.read("c:/quillfence/victim"), "kept");
}

TEST_F(edit_rights, devices_and_pipes_are_not_replaced_nor_waited_for) {
    ASSERT_EQ(mkfifo(native(list).c_str(), 0600), 0);
    EXPECT_EQ(replace(list, "new"), error_access_denied);
    edit_lock lock;
    EXPECT_EQ(edit_lock_take(list, disposition::open_always, &lock), error_access_denied);
    EXPECT_EQ(replace("/dev/null", "new"), error_access_denied);
}

// Editors of other systems that take this lock are waited for, too.
TEST_F(edit_rights, the_lock_is_on_the_file) {
    drive.write(list, "old");
    const int other = open(native(list).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    edit_lock lock;
    EXPECT_EQ(edit_lock_take(list, disposition::open_existing, &lock), error_sharing_violation);
    close(other);
    ASSERT_EQ(edit_lock_take(list, disposition::open_existing, &lock), error_none);
    edit_lock_release(&lock);
}

// An interrupted program of another user leaves a file that can't be looked at: it stays.
TEST_F(edit_rights, a_leftover_that_may_not_be_opened_stays) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs a file of somebody else's";
    }
    ASSERT_EQ(chmod(native("c:/quillfence").c_str(), 0777), 0);
    drive.write("c:/quillfence/list.new", "left");
    ASSERT_EQ(chmod(native("c:/quillfence/list.new").c_str(), 0600), 0);
    ASSERT_EQ(seteuid(somebody), 0);
    const uint32_t error = replace(list, "new");
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(error, error_access_denied);
    EXPECT_EQ(drive.read("c:/quillfence/list.new"), "left");
}

// The folder may be used and not listed, so that it can't be synced; the file is replaced even so.
TEST_F(edit_rights, a_folder_that_may_not_be_opened_is_not_synced) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs rights to take away";
    }
    ASSERT_EQ(chmod(native("c:/quillfence").c_str(), 0333), 0);
    ASSERT_EQ(seteuid(somebody), 0);
    const uint32_t error = replace(list, "new");
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(error, error_none);
    EXPECT_EQ(drive.read(list), "new");
}

TEST_F(edit_rights, a_folder_that_is_gone_is_an_error) {
    EXPECT_EQ(path_sync_folder("c:/quillfence/none/list"), error_path_not_found);
    EXPECT_EQ(path_sync_folder((std::string(PATH_MAX, 'x') + "/list").c_str()),
              error_filename_too_long);
}

TEST_F(edit_rights, a_file_is_private_when_its_group_and_others_may_not_read_it) {
    drive.write(list, "secret");
    for (const auto &[mode, want] : {std::pair(0600u, true),
                                     {0400u, true},
                                     {0711u, true},
                                     {0640u, false},
                                     {0604u, false},
                                     {0644u, false}}) {
        ASSERT_EQ(chmod(native(list).c_str(), mode), 0);
        file_handle file = invalid_file;
        ASSERT_EQ(file_open(list, {}, &file), error_none);
        bool is = !want;
        EXPECT_EQ(file_is_private(file, &is), error_none);
        EXPECT_EQ(is, want) << std::oct << mode;
        EXPECT_EQ(file_close(file), error_none);
    }
}

} // namespace
} // namespace quillfence::platform
