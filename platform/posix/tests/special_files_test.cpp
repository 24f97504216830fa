// Pipes, sockets and devices in a file's place: refused, and not waited for. A file that somebody
// else has a lease of is waited for.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/error_numbers.h"
#include "platform/file.h"

namespace quillfence::platform {
namespace {

class special_files : public ::testing::Test {
  protected:
    special_files() {
        EXPECT_EQ(mkfifo(drive.native("c:/pipe").c_str(), 0600), 0);
        for (const char *device : {"null", "zero"}) {
            EXPECT_EQ(symlink(("/dev/" + std::string(device)).c_str(),
                              drive.native("c:/" + std::string(device)).c_str()),
                      0);
        }
        alarm(30); // a call that waits ends the test
    }
    ~special_files() override {
        alarm(0);
    }
    testing::drive_c drive;
};

TEST_F(special_files, are_not_opened_for_reading) {
    for (const char *path : {"c:/pipe", "c:/null", "c:/zero"}) {
        for (const disposition when : {disposition::open_existing, disposition::open_always}) {
            file_handle file = 0;
            EXPECT_EQ(file_open(path, {.when = when}, &file), error_access_denied) << path;
            EXPECT_EQ(file, invalid_file) << path;
        }
        for (const char *mode : {"r", "rb"}) {
            errno = 0;
            EXPECT_EQ(stream_open(path, mode), nullptr) << path;
            EXPECT_EQ(errno, EACCES) << path;
        }
    }
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_LT(next, 64) << "nothing stays open";
    close(next);
}

TEST_F(special_files, can_be_written) {
    file_handle file = invalid_file;
    EXPECT_EQ(file_open("c:/null", {.write = true}, &file), error_none);
    EXPECT_EQ(file_close(file), error_none);
    // So a log can be a link to /dev/null.
    EXPECT_EQ(file_open("c:/null", {.append = true, .when = disposition::open_always}, &file),
              error_none);
    EXPECT_EQ(file_close(file), error_none);
    FILE *const stream = stream_open("c:/null", "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fclose(stream), 0);
}

TEST_F(special_files, a_log_waits_for_no_reader) {
    constexpr file_options as_log = {.append = true, .when = disposition::open_always};
    file_handle file = 0;
    EXPECT_EQ(file_open("c:/pipe", as_log, &file), error_no_data);
    EXPECT_EQ(file, invalid_file);
    const int reader = open(drive.native("c:/pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_EQ(file_open("c:/pipe", as_log, &file), error_none);
    EXPECT_EQ(fcntl(static_cast<int>(file), F_GETFL) & O_NONBLOCK, 0) << "its writes wait";
    EXPECT_EQ(file_close(file), error_none);
    close(reader);
}

volatile sig_atomic_t lease_is_wanted;

// In a process of its own: holds a lease of the file until somebody wants it, and a little longer.
[[noreturn]] void hold_lease(const char *path, int ready) {
    const int file = open(path, O_RDWR);
    signal(SIGIO, [](int) { lease_is_wanted = 1; });
    const bool held = file >= 0 && fcntl(file, F_SETLEASE, F_WRLCK) == 0;
    if (write(ready, held ? "y" : "n", 1) != 1 || !held) {
        _exit(1);
    }
    for (int i = 0; i < 1000 && !lease_is_wanted; ++i) {
        usleep(10000);
    }
    usleep(50000);
    fcntl(file, F_SETLEASE, F_UNLCK);
    _exit(lease_is_wanted ? 0 : 2);
}

TEST_F(special_files, a_leased_file_is_waited_for) {
    drive.write("c:/file", "abc");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        hold_lease(drive.native("c:/file").c_str(), ready[1]);
    }
    char answer = '?';
    ASSERT_EQ(read(ready[0], &answer, 1), 1);
    file_handle file = invalid_file;
    const uint32_t error = file_open("c:/file", {}, &file);
    file_close(file);
    int status = -1;
    EXPECT_EQ(waitpid(holder, &status, 0), holder);
    close(ready[0]);
    close(ready[1]);
    if (answer != 'y') {
        GTEST_SKIP() << "the file system has no leases";
    }
    EXPECT_EQ(error, error_none);
    EXPECT_EQ(status, 0) << "somebody wanted it";
}

} // namespace
} // namespace quillfence::platform
