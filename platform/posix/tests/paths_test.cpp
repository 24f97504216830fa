// Where the paths of the program lie on Linux, and what Linux says in the numbers of Windows.
#include "posix/system_path.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "drive_c.h"
#include "errno_of_error.h"
#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/process.h"
#include "posix/errors.h"
#include "posix/file_steps.h"

namespace quillfence::platform {
namespace {

class drives : public ::testing::Test {
  protected:
    ~drives() override {
        environment_set("QUILLFENCE_DRIVE_C", nullptr);
        environment_set("QUILLFENCE_DRIVE_D", nullptr);
    }
};

std::string resolved(const char *path) {
    system_path system;
    const uint32_t error = resolve_path(path, &system);
    return error ? "error " + std::to_string(error) : system.text;
}

TEST_F(drives, a_drive_lies_where_its_variable_says) {
    environment_set("QUILLFENCE_DRIVE_C", "/srv/c");
    environment_set("QUILLFENCE_DRIVE_D", "/srv/d/");
    static constexpr struct {
        const char *path, *want;
    } cases[] = {
        {"c:/quillfence/control", "/srv/c/quillfence/control"},
        {"C:/vc_breakpoint_bypass", "/srv/c/vc_breakpoint_bypass"},
        {"c:\\quillfence\\a b\\c", "/srv/c/quillfence/a b/c"},
        {"c:/quillfence//log/", "/srv/c/quillfence//log/"},
        {"c:", "/srv/c/"},
        {"c:name", "/srv/c/name"},
        {"d:/x", "/srv/d//x"},
        {"D:x", "/srv/d//x"},
        {"e:/x\\y", "e:/x/y"}, // no variable: a relative path
        {"/etc/hosts", "/etc/hosts"},
        {"plain\\name", "plain\\name"}, // no drive: as it is
        {"1:/x", "1:/x"},
        {":/x", ":/x"},
        {"c", "c"},
        {"cc:/x", "cc:/x"},
        {"", "error 3"},
        {nullptr, "error 3"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(resolved(c.path), c.want) << (c.path ? c.path : "null");
    }
}

TEST_F(drives, without_a_variable_paths_are_relative) {
    EXPECT_EQ(resolved("c:/quillfence/control"), "c:/quillfence/control");
    EXPECT_EQ(resolved("C:\\quillfence"), "C:/quillfence");
    environment_set("QUILLFENCE_DRIVE_C", "");
    EXPECT_EQ(resolved("c:/quillfence"), "c:/quillfence") << "empty is the same as not set";
}

TEST_F(drives, a_path_too_long_is_an_error) {
    environment_set("QUILLFENCE_DRIVE_C", "/srv/c");
    const std::string fits = "c:/" + std::string(PATH_MAX - 1 - 7, 'x');
    EXPECT_EQ(resolved(fits.c_str()).size(), size_t{PATH_MAX - 1});
    EXPECT_EQ(resolved((fits + "x").c_str()), "error 206");
    uint32_t attributes = 0;
    EXPECT_EQ(path_attributes((fits + "x").c_str(), &attributes), error_filename_too_long);
    EXPECT_EQ(path_attributes(("/" + std::string(300, 'x')).c_str(), &attributes),
              error_filename_too_long)
        << "a single name";
}

TEST(error_numbers, from_errno) {
    static constexpr struct {
        int number;
        uint32_t want;
    } cases[] = {
        {0, 0},           {ENOENT, 2},         {ENOTDIR, 3},
        {EMFILE, 4},      {ENFILE, 4},         {EACCES, 5},
        {EPERM, 5},       {EISDIR, 5},         {EBADF, 6},
        {ENOMEM, 8},      {EXDEV, 17},         {EROFS, 19},
        {ESPIPE, 25},     {EWOULDBLOCK, 32},   {ETXTBSY, 32},
        {EOPNOTSUPP, 50}, {ENOSYS, 50},        {ENOLCK, 50},
        {EEXIST, 80},     {EINVAL, 87},        {ECONNRESET, 109},
        {ENOSPC, 112},    {EDQUOT, 112},       {ENOTEMPTY, 145},
        {EBUSY, 170},     {ENAMETOOLONG, 206}, {EFBIG, 223},
        {EOVERFLOW, 223}, {EPIPE, 232},        {EIO, 1117},
        {ELOOP, 1921},    {ENOTTY, 31},        {-1, 31},
        {99999, 31},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(error_of_errno(c.number), c.want) << strerror(c.number);
    }
}

TEST(error_numbers, back_to_errno) {
    static constexpr struct {
        uint32_t error;
        int want;
    } cases[] = {{2, ENOENT}, {3, ENOENT},   {4, EMFILE}, {5, EACCES}, {8, ENOMEM},
                 {19, EROFS}, {112, ENOSPC}, {1117, EIO}, {31, EIO},   {9003, EIO}};
    for (const auto &c : cases) {
        EXPECT_EQ(errno_of_error(c.error), c.want) << c.error;
    }
}

// There and back by the seam's two tables, the same error is meant.
TEST(error_numbers, there_and_back) {
    static constexpr uint32_t same[] = {
        error_none,          error_file_not_found,    error_too_many_open_files,
        error_access_denied, error_invalid_handle,    error_not_enough_memory,
        error_file_exists,   error_invalid_parameter, error_disk_full,
        error_dir_not_empty, error_file_too_large,    error_no_data,
        error_io_device};
    for (const uint32_t error : same) {
        EXPECT_EQ(error_of_errno(errno_of(error)), error);
        EXPECT_EQ(errno_of_error(error), errno_of(error)) << error;
    }
    // Linux has a number of its own for these, which the C library of Windows lacks.
    static constexpr struct {
        uint32_t error;
        int number;
    } finer[] = {{error_not_same_device, EXDEV},
                 {error_write_protect, EROFS},
                 {error_seek, ESPIPE},
                 {error_sharing_violation, EAGAIN},
                 {error_not_supported, EOPNOTSUPP},
                 {error_broken_pipe, ECONNRESET},
                 {error_busy, EBUSY},
                 {error_filename_too_long, ENAMETOOLONG},
                 {error_cannot_resolve_filename, ELOOP}};
    for (const auto &c : finer) {
        EXPECT_EQ(errno_of_error(c.error), c.number) << c.error;
        EXPECT_EQ(error_of_errno(c.number), c.error) << c.number;
    }
}

TEST(error_numbers, missing_file_or_missing_folder) {
    static constexpr struct {
        const char *path;
        uint32_t want;
    } cases[] = {
        {"/no-such-file", 2},    {"/no-such-folder/file", 3},
        {"no-such-file", 2},     {"/no-such-folder///", 2},
        {"./no-such-file", 2},   {"no-such-folder/file", 3},
        {"/etc/hosts/below", 3}, {"", 3},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(error_of_errno_for(ENOENT, c.path), c.want) << c.path;
    }
    EXPECT_EQ(error_of_errno_for(EACCES, "/no-such-folder/file"), 5u) << "only ENOENT is two";
}

class linux_file : public ::testing::Test {
  protected:
    testing::drive_c drive;
};

TEST_F(linux_file, a_full_disk) {
    file_handle full = invalid_file;
    ASSERT_EQ(file_open("/dev/full", {.write = true}, &full), error_none);
    uint32_t moved = 12345;
    EXPECT_EQ(file_write(full, "x", 1, &moved), error_disk_full);
    EXPECT_EQ(moved, 0u);
    EXPECT_EQ(file_close(full), error_none);
}

TEST_F(linux_file, a_copy_that_fails_leaves_no_half_behind) {
    drive.write("c:/quillfence/a", "abc");
    EXPECT_EQ(path_copy("c:/quillfence/a", "/dev/full"), error_disk_full);
    EXPECT_EQ(access("/dev/full", F_OK), 0) << "a device stays where it is";
}

TEST_F(linux_file, truncate_without_the_right_is_access_denied) {
    drive.write("c:/quillfence/a", "abc");
    file_handle file = invalid_file;
    ASSERT_EQ(file_open("c:/quillfence/a", {}, &file), error_none);
    EXPECT_EQ(file_truncate(file), error_access_denied);
    EXPECT_EQ(file_close(file), error_none);
}

TEST_F(linux_file, numbers_that_are_no_descriptors) {
    for (const file_handle handle :
         {file_handle{-1}, file_handle{-2}, INTPTR_MIN, INTPTR_MAX, file_handle{INT_MAX} + 1}) {
        char byte;
        uint32_t moved;
        uint64_t size;
        EXPECT_EQ(file_read(handle, &byte, 1, &moved), error_invalid_handle) << handle;
        EXPECT_EQ(file_write(handle, &byte, 1, &moved), error_invalid_handle) << handle;
        EXPECT_EQ(file_size(handle, &size), error_invalid_handle) << handle;
        EXPECT_EQ(file_close(handle), error_invalid_handle) << handle;
    }
}

TEST_F(linux_file, descriptors_are_not_inherited) {
    file_handle file = invalid_file;
    ASSERT_EQ(
        file_open("c:/quillfence/a", {.write = true, .when = disposition::open_always}, &file),
        error_none);
    FILE *const stream = stream_open("c:/quillfence/a", "rb");
    file_handle reader = invalid_file;
    file_handle writer = invalid_file;
    ASSERT_EQ(file_pipe(&reader, &writer), error_none);
    for (const int descriptor : {static_cast<int>(file), fileno(stream), static_cast<int>(reader),
                                 static_cast<int>(writer)}) {
        EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC) << descriptor;
    }
    fclose(stream);
    for (const file_handle handle : {file, reader, writer}) {
        EXPECT_EQ(file_close(handle), error_none);
    }
}

TEST_F(linux_file, links_are_what_they_point_to) {
    drive.write("c:/quillfence/file", "text");
    drive.make_folder("c:/quillfence/folder");
    ASSERT_EQ(symlink("file", drive.native("c:/quillfence/to-file").c_str()), 0);
    ASSERT_EQ(symlink("folder", drive.native("c:/quillfence/to-folder").c_str()), 0);
    ASSERT_EQ(symlink("nothing", drive.native("c:/quillfence/to-nothing").c_str()), 0);
    ASSERT_EQ(symlink("to-self", drive.native("c:/quillfence/to-self").c_str()), 0);
    uint32_t attributes = 0;
    EXPECT_EQ(path_attributes("c:/quillfence/to-file", &attributes), error_none);
    EXPECT_EQ(attributes, attribute_normal);
    EXPECT_EQ(path_attributes("c:/quillfence/to-folder", &attributes), error_none);
    EXPECT_EQ(attributes, attribute_directory);
    EXPECT_EQ(path_attributes("c:/quillfence/to-nothing", &attributes), error_file_not_found);
    EXPECT_EQ(path_attributes("c:/quillfence/to-self", &attributes), error_cannot_resolve_filename);
    EXPECT_EQ(path_copy("c:/quillfence/to-file", "c:/quillfence/file"), error_sharing_violation);
    EXPECT_EQ(drive.read("c:/quillfence/file"), "text");

    std::string found;
    directory_listing *listing = nullptr;
    ASSERT_EQ(directory_open("c:/quillfence", &listing), error_none);
    directory_entry entry = {};
    while (directory_next(listing, &entry) == error_none) {
        found += entry.name + std::string(entry.attributes == attribute_directory ? "/ " : " ");
    }
    directory_close(listing);
    EXPECT_EQ(found, "./ ../ file folder/ to-file to-folder/ to-nothing to-self ");
}

TEST_F(linux_file, names_that_differ_in_case_alone_keep_one_order) {
    for (const char *name : {"b", "aA", "AA", "a", "aa", "B", "A"}) {
        drive.write(std::string("c:/quillfence/") + name, "");
    }
    std::string found;
    directory_listing *listing = nullptr;
    ASSERT_EQ(directory_open("c:/quillfence", &listing), error_none);
    directory_entry entry = {};
    while (directory_next(listing, &entry) == error_none) {
        found += entry.name + std::string(" ");
    }
    directory_close(listing);
    EXPECT_EQ(found, ". .. A a AA aA aa B b ");
}

TEST_F(linux_file, rename_where_the_file_system_cannot_refuse) {
    drive.write("c:/quillfence/a", "a");
    drive.write("c:/quillfence/b", "b");
    drive.make_folder("c:/quillfence/folder");
    const auto rename_native = [&](const std::string &from, const std::string &to) {
        errno = 0;
        return rename_in_steps(drive.native("c:/quillfence/" + from).c_str(),
                               drive.native("c:/quillfence/" + to).c_str());
    };
    EXPECT_EQ(rename_native("a", "b"), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(rename_native("folder", "b"), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(rename_native("missing", "c"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(rename_native("a", "missing/c"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(drive.read("c:/quillfence/a") + drive.read("c:/quillfence/b"), "ab");
    EXPECT_EQ(rename_native("a", "c"), 0);
    EXPECT_FALSE(drive.exists("c:/quillfence/a"));
    EXPECT_EQ(drive.read("c:/quillfence/c"), "a");
    EXPECT_EQ(rename_native("folder", "other"), 0);
    EXPECT_TRUE(drive.exists("c:/quillfence/other"));
}

// Fails with 232 twice in a row, and leaves the thread's signals as they were.
void expect_closed(file_handle writer) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        uint32_t moved = 12345;
        EXPECT_EQ(file_write(writer, "x", 1, &moved), error_no_data);
        EXPECT_EQ(moved, 0u);
    }
    sigset_t blocked;
    sigset_t pending;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&blocked, SIGPIPE));
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
}

TEST_F(linux_file, no_signal_from_a_closed_pipe) {
    file_handle reader = invalid_file;
    file_handle writer = invalid_file;
    ASSERT_EQ(file_pipe(&reader, &writer), error_none);
    ASSERT_EQ(file_close(reader), error_none);
    expect_closed(writer);
    EXPECT_EQ(file_close(writer), error_none);
}

TEST_F(linux_file, no_signal_from_a_closed_socket) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    uint32_t moved = 0;
    EXPECT_EQ(file_write(ends[0], "ab", 2, &moved), error_none);
    EXPECT_EQ(moved, 2u);
    char bytes[4];
    EXPECT_EQ(file_read(ends[1], bytes, sizeof bytes, &moved), error_none);
    EXPECT_EQ(std::string(bytes, moved), "ab");
    ASSERT_EQ(file_close(ends[1]), error_none);
    expect_closed(ends[0]);
    EXPECT_EQ(file_close(ends[0]), error_none);
}

TEST_F(linux_file, a_signal_that_waited_before_stays) {
    sigset_t pipe_signal;
    sigset_t before;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &pipe_signal, &before), 0);
    ASSERT_EQ(raise(SIGPIPE), 0);
    file_handle reader = invalid_file;
    file_handle writer = invalid_file;
    ASSERT_EQ(file_pipe(&reader, &writer), error_none);
    ASSERT_EQ(file_close(reader), error_none);
    uint32_t moved = 0;
    EXPECT_EQ(file_write(writer, "x", 1, &moved), error_no_data);
    EXPECT_EQ(file_close(writer), error_none);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_TRUE(sigismember(&pending, SIGPIPE));
    const timespec at_once = {};
    sigtimedwait(&pipe_signal, nullptr, &at_once);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// A signal without SA_RESTART interrupts the read; the bytes come all the same.
TEST_F(linux_file, an_interrupted_call_is_made_again) {
    static volatile sig_atomic_t alarms;
    alarms = 0;
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) { alarms = alarms + 1; };
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    file_handle reader = invalid_file;
    file_handle writer = invalid_file;
    ASSERT_EQ(file_pipe(&reader, &writer), error_none);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        while (kill(getppid(), SIGALRM) == 0 && usleep(20000) == 0) {
            static int sent;
            if (++sent == 5) {
                uint32_t moved = 0;
                file_write(writer, "late", 4, &moved);
                _exit(0);
            }
        }
        _exit(1);
    }
    char bytes[8];
    uint32_t moved = 0;
    EXPECT_EQ(file_read(reader, bytes, sizeof bytes, &moved), error_none);
    EXPECT_EQ(std::string(bytes, moved), "late");
    EXPECT_GT(alarms, 0);
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_EQ(status, 0);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(file_close(reader), error_none);
    EXPECT_EQ(file_close(writer), error_none);
}

} // namespace
} // namespace quillfence::platform
