#include "vc_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "error_text.h"
#include "platform/process.h"
#include "vc_w32.h"

namespace quillfence {
namespace {

using testing::call_watch;
using testing::lines;
using testing::text_of;

constexpr char path[] = "c:/quillfence/file";

struct freed {
    void operator()(char *text) const {
        std::free(text);
    }
};
using heap_text = std::unique_ptr<char, freed>;

// An open file that is closed with the test.
class open_file {
  public:
    explicit open_file(const char *name = path, int write = 1)
        : handle_(vc_open_ex(name, 0, write, 0)) {
        EXPECT_NE(handle_, vc_invalid_handle);
    }
    ~open_file() {
        EXPECT_EQ(vc_close(handle_), 1);
    }
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    operator vc_handle() const {
        return handle_;
    }

  private:
    vc_handle handle_;
};

// The switch for DEBUG lines is looked up once a process; here before any call is counted.
template <class Base>
class looked_up : public Base {
  protected:
    looked_up() {
        vc_log_debug("", "", 0, "%s", "");
        this->log.take();
    }
};
class vc_file : public looked_up<testing::drive_test> {};
class vc_file_trace : public looked_up<testing::traced_drive_test> {};

// --- Arguments ---

TEST_F(vc_file, bad_arguments_are_refused) {
    const vc_handle none = vc_invalid_handle;
    char buffer[8] = {};
    uint64_t size = 0;
    const open_file file;
    const std::string invalid = text_of(EINVAL);
    const struct {
        const char *name;
        std::function<int64_t()> call;
        int64_t want;
        std::string want_line;
    } cases[] = {
        {"open null", [] { return vc_open_ex(nullptr, 0, 0, 0); }, -1, "vc_open_ex: " + invalid},
        {"open empty", [] { return vc_open_ex("", 0, 0, 0); }, -1, "vc_open_ex: " + invalid},
        {"close", [&] { return vc_close(none); }, 0, "vc_close: " + invalid},
        {"write to none", [&] { return vc_write(none, "a", 1); }, 0, "vc_write: " + invalid},
        {"write null", [&] { return vc_write(file, nullptr, 1); }, 0, "vc_write: " + invalid},
        {"write nothing", [&] { return vc_write(file, "a", 0); }, 0, "vc_write: " + invalid},
        {"read none", [&] { return vc_read(none, buffer, 1); }, 0,
         "vc_read: Invalid file handler!"},
        {"read to null", [&] { return vc_read(file, nullptr, 1); }, 0,
         "vc_read: Invalid buffer parameter!"},
        {"read nothing", [&] { return vc_read(file, buffer, 0); }, 0,
         "vc_read: Invalid read size: 0"},
        {"nonblock none", [&] { return vc_read_nonblock(none, buffer, 1, 1, 0, nullptr); }, 0,
         "vc_read_nonblock: " + invalid},
        {"nonblock null", [&] { return vc_read_nonblock(file, nullptr, 1, 1, 0, nullptr); }, 0,
         "vc_read_nonblock: " + invalid},
        {"nonblock nothing", [&] { return vc_read_nonblock(file, buffer, 0, 1, 0, nullptr); }, 0,
         "vc_read_nonblock: " + invalid},
        {"nonblock not required", [&] { return vc_read_nonblock(file, buffer, 1, 0, 1, nullptr); },
         0, "vc_read_nonblock: " + invalid},
        {"seek", [&] { return vc_seek(none, 0, 0); }, 0, "vc_seek: " + invalid},
        {"tell", [&] { return vc_tell(none); }, -1, "vc_tell: " + invalid},
        {"filesize", [&] { return vc_filesize(none); }, 0xFFFFFFFF, "vc_filesize: " + invalid},
        {"truncate", [&] { return vc_truncate(none); }, 0, "vc_truncate: " + invalid},
        {"contents of none", [&] { return vc_fd_get_contents_ex(none, &size) != nullptr; }, 0,
         "vc_fd_get_contents_ex: " + invalid},
        {"contents of null", [&] { return vc_file_get_contents_ex(nullptr, &size) != nullptr; }, 0,
         "vc_file_get_contents_ex: " + invalid},
        {"contents of empty", [&] { return vc_file_get_contents_ex("", &size) != nullptr; }, 0,
         "vc_file_get_contents_ex: " + invalid},
        {"exists null", [] { return vc_file_exists_ex(nullptr, 0); }, 0,
         "vc_file_exists_ex: " + invalid},
        {"exists empty", [] { return vc_file_exists_ex("", 0); }, 0,
         "vc_file_exists_ex: " + invalid},
        {"get_filesize null", [&] { return vc_get_filesize(nullptr, &size); }, 0,
         "vc_get_filesize: " + invalid},
        {"get_filesize empty", [&] { return vc_get_filesize("", &size); }, 0,
         "vc_get_filesize: " + invalid},
        {"get_filesize without size", [] { return vc_get_filesize(path, nullptr); }, 0,
         "vc_get_filesize: " + invalid},
        {"executable null", [] { return vc_file_executable(nullptr); }, 0,
         "vc_file_executable: " + invalid},
        {"executable empty", [] { return vc_file_executable(""); }, 0,
         "vc_file_executable: " + invalid},
        {"tmp null", [] { return vc_tmp_file(nullptr) != nullptr; }, 0, "vc_tmp_file: " + invalid},
        {"tmp empty", [] { return vc_tmp_file("") != nullptr; }, 0, "vc_tmp_file: " + invalid},
        {"copy to null", [] { return vc_copyfile(nullptr, path); }, 0, "vc_copyfile: " + invalid},
        {"copy to empty", [] { return vc_copyfile("", path); }, 0, "vc_copyfile: " + invalid},
        {"copy null", [] { return vc_copyfile(path, nullptr); }, 0, "vc_copyfile: " + invalid},
        {"copy empty", [] { return vc_copyfile(path, ""); }, 0, "vc_copyfile: " + invalid},
        {"print to none", [&] { return vc_fprintf(none, "a"); }, 0, "vc_fprintf: " + invalid},
        {"print null", [&] { return vc_fprintf(file, nullptr); }, 0, "vc_fprintf: " + invalid},
        {"line of none", [&] { return vc_readline(none, buffer, 8); }, 0,
         "vc_readline: " + invalid},
        {"line to null", [&] { return vc_readline(file, nullptr, 8); }, 0,
         "vc_readline: " + invalid},
        {"line of size 0", [&] { return vc_readline(file, buffer, 0); }, 0,
         "vc_readline: " + invalid},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(test.call(), test.want) << test.name;
        EXPECT_EQ(log.errors(), lines{test.want_line}) << test.name;
    }
    EXPECT_EQ(drive.read(path), "");
}

TEST_F(vc_file, lines_carry_the_module_name) {
    EXPECT_EQ(vc_close(vc_invalid_handle), 0);
    const auto taken = log.take();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].source, "vc_file");
}

TEST_F(vc_file, filesize_of_the_invalid_handle_asks_the_system_all_the_same) {
    call_watch watch;
    EXPECT_EQ(vc_filesize(vc_invalid_handle), 0xFFFFFFFFu);
    EXPECT_EQ(watch.take(), lines{"file_size"});
    EXPECT_EQ(log.errors(), lines{"vc_filesize: " + text_of(EINVAL)});
}

// --- Open, close ---

TEST_F(vc_file, opening_a_missing_file_creates_it_also_for_reading) {
    EXPECT_EQ(vc_close(vc_open_ex("c:/quillfence/to-read", 0, 0, 0)), 1);
    EXPECT_EQ(vc_close(vc_open_ex("c:/quillfence/to-write", 1, 1, 0)), 1);
    EXPECT_EQ(drive.read("c:/quillfence/to-read"), "");
    EXPECT_EQ(drive.read("c:/quillfence/to-write"), "");
}

TEST_F(vc_file, opening_what_exists_creates_nothing) {
    EXPECT_EQ(vc_open_existing("c:/quillfence/missing"), vc_invalid_handle);
    EXPECT_EQ(vc_open_existing("c:/quillfence/none/missing"), vc_invalid_handle);
    EXPECT_FALSE(drive.exists("c:/quillfence/missing"));
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_EQ(vc_open_existing("c:/quillfence"), vc_invalid_handle);
    EXPECT_EQ(vc_open_existing(""), vc_invalid_handle);
    EXPECT_EQ(log.errors(), (lines{"vc_open_ex: unknown error opening - got error code 5",
                                   "vc_open_ex: " + std::string(strerror(EINVAL))}));
    drive.write(path, "kept");
    EXPECT_EQ(vc_close(vc_open_existing(path)), 1);
    EXPECT_EQ(drive.read(path), "kept");
}

TEST_F(vc_file, opening_keeps_what_is_there) {
    drive.write(path, "kept");
    EXPECT_EQ(vc_close(vc_open_ex(path, 0, 1, 0)), 1);
    EXPECT_EQ(drive.read(path), "kept");
}

TEST_F(vc_file, a_file_opened_for_reading_takes_no_bytes) {
    const open_file file(path, 0);
    EXPECT_EQ(vc_write(file, "a", 1), 0);
    EXPECT_EQ(log.errors(), lines{"vc_write: fatal error on block write (w32) got error code 5"});
}

TEST_F(vc_file, a_locked_file_is_not_opened_with_a_lock_again) {
    const vc_handle first = vc_open_ex(path, 1, 1, 0);
    ASSERT_NE(first, vc_invalid_handle);
    EXPECT_EQ(vc_open_ex(path, 1, 1, 0), vc_invalid_handle);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 32"});
    EXPECT_EQ(vc_close(first), 1);
    EXPECT_EQ(vc_close(vc_open_ex(path, 1, 1, 0)), 1);
}

TEST_F(vc_file, without_locks_a_file_is_shared) {
    const open_file one;
    const open_file other;
    EXPECT_EQ(vc_write(one, "a", 1), 1);
    EXPECT_EQ(vc_filesize(other), 1u);
}

TEST_F(vc_file, a_path_in_a_missing_folder_does_not_open) {
    EXPECT_EQ(vc_open_ex("c:/quillfence/none/file", 0, 1, 0), vc_invalid_handle);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 3"});
}

TEST_F(vc_file_trace, opening_tells_about_the_lock) {
    vc_close(vc_open_ex(path, 1, 0, 0));
    EXPECT_EQ(log.transcript(),
              lines{"D vc_open_ex: request for lock: omitting WRITE share options"});
    vc_close(vc_open_ex(path, 0, 1, 0));
    EXPECT_EQ(log.transcript(),
              lines{"D vc_open_ex: no lock requested - setting read and write share options"});
}

TEST_F(vc_file, a_failed_close_is_reported) {
    const vc_handle file = vc_open_ex(path, 0, 1, 0); // a close that fails closes it all the same
    call_watch watch;
    watch.fail("file_close", 1, 6);
    EXPECT_EQ(vc_close(file), 0);
    EXPECT_EQ(log.errors(), lines{"vc_close: error closing got error code 6"});
}

// --- Write, read ---

TEST_F(vc_file_trace, writing_goes_out_in_blocks_of_4096) {
    const open_file file;
    log.take();
    const std::string bytes(10000, 'x');
    call_watch watch;
    EXPECT_EQ(vc_write(file, bytes.data(), 10000), 1);
    EXPECT_EQ(watch.take(), (lines{"file_write", "file_write", "file_write"}));
    EXPECT_EQ(
        log.transcript(),
        (lines{"D vc_write: 10000 bytes left to write",
               "D vc_write: Attempting to write 4096 bytes", "D vc_write: wrote 4096 bytes",
               "D vc_write: 5904 bytes left to write", "D vc_write: Attempting to write 4096 bytes",
               "D vc_write: wrote 4096 bytes", "D vc_write: 1808 bytes left to write",
               "D vc_write: Attempting to write 1808 bytes", "D vc_write: wrote 1808 bytes"}));
    EXPECT_EQ(drive.read(path), bytes);
}

TEST_F(vc_file, a_failed_block_ends_the_writing) {
    const open_file file;
    const std::string bytes(10000, 'x');
    call_watch watch;
    watch.fail("file_write", 2, 112);
    EXPECT_EQ(vc_write(file, bytes.data(), 10000), 0);
    EXPECT_EQ(watch.count("file_write"), 2);
    EXPECT_EQ(log.errors(), lines{"vc_write: fatal error on block write (w32) got error code 112"});
    EXPECT_EQ(drive.read(path).size(), 4096u);
}

TEST_F(vc_file, a_short_write_is_followed_by_the_rest) {
    const open_file file;
    call_watch watch;
    watch.fail("file_write", 1, platform::observed_half);
    EXPECT_EQ(vc_write(file, "abcdef", 6), 1);
    EXPECT_EQ(watch.count("file_write"), 2);
    EXPECT_EQ(drive.read(path), "abcdef");
}

TEST_F(vc_file, a_write_of_nothing_counts_as_a_full_disk) {
    const open_file file;
    call_watch watch;
    watch.fail("file_write", 1, platform::observed_half, true); // of one byte that is none
    EXPECT_EQ(vc_write(file, "a", 1), 0);
    EXPECT_EQ(watch.count("file_write"), 1);
    EXPECT_EQ(log.errors(), lines{"vc_write: fatal error on block write (w32) got error code 112"});
}

TEST_F(vc_file, a_short_read_ends_the_reading) {
    drive.write(path, "abcdef");
    const open_file file;
    char buffer[7] = "......";
    uint32_t delivered = 77;
    call_watch watch;
    watch.fail("file_read", 1, platform::observed_half);
    EXPECT_EQ(vc_read_nonblock(file, buffer, 6, 1, 0, &delivered), 1);
    EXPECT_EQ(watch.count("file_read"), 1);
    EXPECT_EQ(delivered, 3u);
    EXPECT_STREQ(buffer, "abc...");
}

TEST_F(vc_file_trace, reading_stops_at_the_end_of_the_file) {
    drive.write(path, std::string(3000, 'x'));
    const open_file file;
    log.take();
    std::string buffer(5000, '.');
    call_watch watch;
    EXPECT_EQ(vc_read(file, buffer.data(), 5000), 1);
    EXPECT_EQ(watch.take(), lines{"file_read"});
    EXPECT_EQ(buffer, std::string(3000, 'x') + std::string(2000, '.'));
    EXPECT_EQ(log.transcript(), (lines{"D vc_read: 5000 bytes remaining to read",
                                       "D vc_read: attempting to read 4096 bytes in one block",
                                       "D vc_read: read 3000 bytes"}));
}

TEST_F(vc_file_trace, reading_goes_in_blocks_of_4096) {
    drive.write(path, std::string(4096, 'x') + "yz-");
    const open_file file;
    log.take();
    std::string buffer(4098, '.');
    uint32_t delivered = 77;
    call_watch watch;
    EXPECT_EQ(vc_read_nonblock(file, buffer.data(), 4098, 1, 0, &delivered), 1);
    EXPECT_EQ(watch.take(), (lines{"file_read", "file_read"}));
    EXPECT_EQ(delivered, 4098u);
    EXPECT_EQ(buffer, std::string(4096, 'x') + "yz");
    EXPECT_EQ(log.transcript(),
              (lines{"D vc_read_nonblock: 4098 bytes remaining to read",
                     "D vc_read_nonblock: attempting to read 4096 bytes in one block",
                     "D vc_read_nonblock: read 4096 bytes",
                     "D vc_read_nonblock: 2 bytes remaining to read",
                     "D vc_read_nonblock: attempting to read 2 bytes in one block",
                     "D vc_read_nonblock: read 2 bytes"}));
}

TEST_F(vc_file, a_full_block_at_the_end_needs_one_more_read) {
    drive.write(path, std::string(4096, 'x'));
    const open_file file;
    std::string buffer(5000, '.');
    uint32_t delivered = 77;
    call_watch watch;
    EXPECT_EQ(vc_read_nonblock(file, buffer.data(), 5000, 1, 0, &delivered), 1);
    EXPECT_EQ(watch.count("file_read"), 2);
    EXPECT_EQ(delivered, 4096u);
}

TEST_F(vc_file, a_negative_count_reads_nothing_and_succeeds) {
    drive.write(path, "abc");
    const open_file file;
    char buffer[4] = "...";
    uint32_t delivered = 77;
    call_watch watch;
    EXPECT_EQ(vc_read(file, buffer, -1), 1);
    EXPECT_EQ(vc_read_nonblock(file, buffer, -1, 1, 0, &delivered), 1);
    EXPECT_EQ(watch.take(), lines{});
    EXPECT_EQ(delivered, 0u);
    EXPECT_STREQ(buffer, "...");
}

TEST_F(vc_file, a_failed_block_ends_the_reading) {
    drive.write(path, std::string(9000, 'x'));
    const open_file file;
    std::string buffer(9000, '.');
    uint32_t delivered = 77;
    call_watch watch;
    watch.fail("file_read", 2, 1117);
    EXPECT_EQ(vc_read_nonblock(file, buffer.data(), 9000, 1, 0, &delivered), 0);
    EXPECT_EQ(delivered, 4096u);
    EXPECT_EQ(log.errors(),
              lines{"vc_read_nonblock: fatal error on read (w32) got error code 1117"});
    watch.fail("file_read", 1, 6);
    EXPECT_EQ(vc_read(file, buffer.data(), 9000), 0);
    EXPECT_EQ(log.errors(), lines{"vc_read: fatal error on read (w32) got error code 6"});
}

// --- Position, size ---

TEST_F(vc_file_trace, seeking_and_telling) {
    drive.write(path, "0123456789");
    const open_file file;
    log.take();
    const struct {
        int32_t offset;
        int origin;
        int32_t want;
        const char *want_line;
    } cases[] = {
        {3, 0, 3, "D vc_seek: successfully sought 3 from offset 0"},
        {4, 1, 7, "D vc_seek: successfully sought 4 from offset 1"},
        {-2, 1, 5, "D vc_seek: successfully sought -2 from offset 1"},
        {-1, 2, 9, "D vc_seek: successfully sought -1 from offset 2"},
        {5, 2, 15, "D vc_seek: successfully sought 5 from offset 2"},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(vc_seek(file, test.offset, test.origin), 1);
        EXPECT_EQ(vc_tell(file), test.want);
        EXPECT_EQ(log.transcript(), lines{test.want_line});
    }
}

TEST_F(vc_file, seeking_fails) {
    const open_file file;
    EXPECT_EQ(vc_seek(file, -1, 0), 0);
    EXPECT_EQ(log.errors(), lines{"vc_seek: failed to set file pointer: got error code 131"});
    for (const int origin : {-1, 3}) {
        EXPECT_EQ(vc_seek(file, 0, origin), 0);
        EXPECT_EQ(log.errors(), lines{"vc_seek: failed to set file pointer: got error code 87"});
    }
}

TEST_F(vc_file, a_failed_tell_is_minus_two) {
    const open_file file;
    call_watch watch;
    watch.fail("file_seek", 1, 6);
    EXPECT_EQ(vc_tell(file), -2);
    EXPECT_EQ(log.errors(), lines{"vc_tell: error finding position got error code 6"});
}

TEST_F(vc_file, filesize_is_all_ones_when_the_system_does_not_tell) {
    drive.write(path, "12345");
    const open_file file;
    EXPECT_EQ(vc_filesize(file), 5u);
    call_watch watch;
    watch.fail("file_size", 1, 6);
    EXPECT_EQ(vc_filesize(file), 0xFFFFFFFFu);
}

TEST_F(vc_file_trace, truncating_cuts_at_the_position) {
    drive.write(path, "0123456789");
    const open_file file;
    EXPECT_EQ(vc_seek(file, 4, 0), 1);
    log.take();
    EXPECT_EQ(vc_truncate(file), 1);
    EXPECT_EQ(log.transcript(), lines{"D vc_truncate: file truncated"});
    EXPECT_EQ(drive.read(path), "0123");
    call_watch watch;
    watch.fail("file_truncate", 1, 5);
    EXPECT_EQ(vc_truncate(file), 0);
    EXPECT_EQ(log.transcript(), lines{"E vc_truncate: got error code 5"});
}

// --- Whole contents ---

TEST_F(vc_file, contents_come_with_a_terminator_and_their_size) {
    drive.write(path, std::string("ab\0cd\n", 6));
    uint64_t size = 77;
    call_watch watch;
    const heap_text text(vc_file_get_contents_ex(path, &size));
    EXPECT_EQ(watch.take(), (lines{"file_open", "file_size", "file_read", "file_close"}));
    ASSERT_TRUE(text);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(std::string(text.get(), 7), std::string("ab\0cd\n\0", 7));
    EXPECT_TRUE(heap_text(vc_file_get_contents_ex(path, nullptr)));
}

TEST_F(vc_file, contents_of_an_empty_file_are_an_empty_string) {
    const open_file file;
    uint64_t size = 77;
    call_watch watch;
    const heap_text text(vc_fd_get_contents_ex(file, &size));
    EXPECT_EQ(watch.take(), lines{"file_size"});
    ASSERT_TRUE(text);
    EXPECT_STREQ(text.get(), "");
    EXPECT_EQ(size, 0u);
}

TEST_F(vc_file, contents_of_a_missing_file_are_empty_and_leave_a_file_behind) {
    uint64_t size = 77;
    const heap_text text(vc_file_get_contents_ex("c:/quillfence/missing", &size));
    ASSERT_TRUE(text);
    EXPECT_STREQ(text.get(), "");
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(drive.read("c:/quillfence/missing"), "");
}

TEST_F(vc_file, existing_contents) {
    uint64_t size = 77;
    EXPECT_FALSE(heap_text(vc_existing_contents("c:/quillfence/missing", &size)));
    EXPECT_EQ(size, 77u);
    EXPECT_FALSE(drive.exists("c:/quillfence/missing"));
    EXPECT_EQ(log.errors(), lines{});
    drive.write(path, "abc");
    EXPECT_STREQ(heap_text(vc_existing_contents(path, &size)).get(), "abc");
    EXPECT_EQ(size, 3u);
    EXPECT_FALSE(heap_text(vc_existing_contents(nullptr, &size)));
    EXPECT_EQ(log.errors(), (lines{"vc_existing_contents: " + std::string(strerror(EINVAL))}));
}

TEST_F(vc_file, contents_start_at_the_position_and_count_the_whole_file) {
    drive.write(path, "abcdef");
    const open_file file;
    vc_seek(file, 2, 0);
    uint64_t size = 0;
    const heap_text text(vc_fd_get_contents_ex(file, &size));
    ASSERT_TRUE(text);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(std::string(text.get(), 7), std::string("cdef\0\0\0", 7));
}

TEST_F(vc_file, a_failed_read_of_contents) {
    drive.write(path, "abc");
    call_watch watch;
    watch.fail("file_read", 1, 1117);
    errno = EACCES; // from something that went before
    EXPECT_EQ(vc_file_get_contents_ex(path, nullptr), nullptr);
    EXPECT_EQ(log.errors(), (lines{"vc_read: fatal error on read (w32) got error code 1117",
                                   "vc_fd_get_contents_ex: Cannot read content of cid history file",
                                   "vc_file_get_contents_ex: Failed to get file contents "
                                   "[c:/quillfence/file]: " +
                                       text_of(0)}));
    EXPECT_EQ(watch.take(), (lines{"file_open", "file_size", "file_read", "file_close"}));
}

TEST_F(vc_file_trace, a_failed_open_for_contents_adds_only_a_debug_line) {
    call_watch watch;
    watch.fail("file_open", 1, 5);
    EXPECT_EQ(vc_file_get_contents_ex(path, nullptr), nullptr);
    EXPECT_EQ(log.transcript(),
              (lines{"D vc_open_ex: no lock requested - setting read and write share options",
                     "E vc_open_ex: unknown error opening - got error code 5",
                     "D vc_file_get_contents_ex: couldn't open file so aborting"}));
}

// Makes the file at `path` that long, without writing the bytes.
void stretch(int64_t size) {
    const open_file file;
    ASSERT_EQ(platform::file_seek(file, size, platform::seek_origin::begin, nullptr), 0u);
    ASSERT_EQ(vc_truncate(file), 1);
}

TEST_F(vc_file, contents_end_at_100_mebibytes) {
    stretch(104857600);
    uint64_t size = 0;
    const heap_text all(vc_file_get_contents_ex(path, &size));
    ASSERT_TRUE(all);
    EXPECT_EQ(size, 104857600u);

    stretch(104857601);
    EXPECT_EQ(vc_file_get_contents_ex(path, &size), nullptr);
    EXPECT_EQ(log.errors(), (lines{"vc_fd_get_contents_ex: " + text_of(27),
                                   "vc_file_get_contents_ex: Failed to get file contents "
                                   "[c:/quillfence/file]: " +
                                       text_of(27)}));
}

TEST_F(vc_file, contents_of_a_file_beyond_32_bits_are_refused_too) {
    stretch(4294967301);
    const open_file file;
    EXPECT_EQ(vc_filesize(file), 5u); // the low half of the size
    EXPECT_EQ(vc_fd_get_contents_ex(file, nullptr), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_fd_get_contents_ex: " + text_of(27)});
    uint64_t size = 0;
    EXPECT_EQ(vc_get_filesize(path, &size), 1);
    EXPECT_EQ(size, 4294967301u);
}

TEST_F(vc_file, contents_of_a_file_of_unknown_size_are_refused) {
    drive.write(path, "abc");
    const open_file file;
    call_watch watch;
    watch.fail("file_size", 1, 6);
    EXPECT_EQ(vc_fd_get_contents_ex(file, nullptr), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_fd_get_contents_ex: " + text_of(27)});
}

// --- Existence, size by path ---

TEST_F(vc_file_trace, a_file_is_a_file_and_a_folder_a_folder) {
    drive.write(path, "");
    drive.make_folder("c:/quillfence/folder");
    const struct {
        const char *path;
        int type;
        int want;
        lines want_lines;
    } cases[] = {
        {path, 0, 1, {"D vc_file_exists_ex: [c:/quillfence/file] exists and is a [0]"}},
        {path,
         16,
         0,
         {"D vc_file_exists_ex: [c:/quillfence/file] exists but is of unexpected type [16]"}},
        {"c:/quillfence/folder",
         0,
         0,
         {"D vc_file_exists_ex: [c:/quillfence/folder] exists but is of unexpected type [0]"}},
        {"c:/quillfence/folder",
         16,
         1,
         {"D vc_file_exists_ex: [c:/quillfence/folder] exists and is a [16]"}},
        {path,
         1,
         0,
         {"D vc_file_exists_ex: [c:/quillfence/file] exists but is of unexpected type [1]"}},
        {"c:/quillfence/missing", 0, 0, {}},
        {"c:/quillfence/missing/deeper", 16, 0, {}},
    };
    for (const auto &test : cases) {
        call_watch watch;
        EXPECT_EQ(vc_file_exists_ex(test.path, test.type), test.want)
            << test.path << " as " << test.type;
        EXPECT_EQ(watch.take(), lines{"path_attributes"});
        EXPECT_EQ(log.transcript(), test.want_lines) << test.path << " as " << test.type;
    }
    EXPECT_FALSE(drive.exists("c:/quillfence/missing"));
}

TEST_F(vc_file, attributes_that_can_not_be_had_are_reported_unless_the_path_is_missing) {
    call_watch watch;
    for (const uint32_t missing : {2u, 3u}) {
        watch.fail("path_attributes", 1, missing);
        EXPECT_EQ(vc_file_exists_ex(path, 0), 0);
        EXPECT_EQ(log.errors(), lines{});
    }
    watch.fail("path_attributes", 1, 5);
    EXPECT_EQ(vc_file_exists_ex(path, 0), 0);
    EXPECT_EQ(log.errors(),
              lines{"vc_file_exists_ex: Failed to get file attributes [c:/quillfence/file]: 5"});
}

TEST_F(vc_file, size_by_path) {
    drive.write(path, "12345");
    uint64_t size = 0;
    call_watch watch;
    EXPECT_EQ(vc_get_filesize(path, &size), 1);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(watch.take(), (lines{"path_attributes", "file_open", "file_size", "file_close"}));
    EXPECT_EQ(vc_get_filesize("c:/quillfence", &size), 0);
    EXPECT_EQ(vc_get_filesize("c:/quillfence/missing", &size), 0);
    EXPECT_FALSE(drive.exists("c:/quillfence/missing"));
}

TEST_F(vc_file, size_by_path_fails) {
    drive.write(path, "12345");
    uint64_t size = 0;
    call_watch watch;
    watch.fail("file_open", 1, 32);
    EXPECT_EQ(vc_get_filesize(path, &size), 0);
    EXPECT_EQ(log.errors(), lines{"vc_get_filesize: Failed to open file: 32"});
    watch.take();
    watch.fail("file_size", 1, 6);
    EXPECT_EQ(vc_get_filesize(path, &size), 0);
    EXPECT_EQ(log.errors(), lines{"vc_get_filesize: Failed to get filesize: 6"});
    EXPECT_EQ(watch.take(), (lines{"path_attributes", "file_open", "file_size", "file_close"}));
}

TEST_F(vc_file_trace, every_file_counts_as_executable) {
    drive.write(path, "");
    EXPECT_EQ(vc_file_executable(path), 1);
    EXPECT_EQ(log.transcript(),
              (lines{"D vc_file_exists_ex: [c:/quillfence/file] exists and is a [0]",
                     "D vc_file_executable: returning true"}));
    EXPECT_EQ(vc_file_executable("c:/quillfence/missing"), 0);
    EXPECT_EQ(log.transcript(), lines{"D vc_file_executable: file doesn't exist - return false"});
    EXPECT_EQ(vc_file_executable("c:/quillfence"), 0);
}

// --- Names, copies ---

// Sets TEMP for a test, and back.
class temp_variable {
  public:
    explicit temp_variable(const char *value) {
        platform::environment_variable("TEMP", before_, sizeof before_);
        platform::environment_set("TEMP", value);
    }
    ~temp_variable() {
        platform::environment_set("TEMP", *before_ ? before_ : nullptr);
    }
    temp_variable(const temp_variable &) = delete;
    temp_variable &operator=(const temp_variable &) = delete;

  private:
    char before_[512] = {};
};

bool holds(const lines &all, const std::string &line) {
    return std::find(all.begin(), all.end(), line) != all.end();
}

TEST_F(vc_file_trace, a_temporary_name_lies_in_temp) {
    const temp_variable temp("C:/x");
    const std::string want = "C:/x/job." + std::to_string(platform::process_id());
    const heap_text name(vc_tmp_file("job"));
    ASSERT_TRUE(name);
    EXPECT_EQ(name.get(), want);
    const lines trace = log.transcript();
    EXPECT_TRUE(holds(trace, "D vc_tmp_file: found environment variable C:/x"));
    EXPECT_EQ(trace.back(), "D vc_tmp_file: generated " + want);
    EXPECT_EQ(vc_file_exists_ex(want.c_str(), 0), 0);
}

TEST_F(vc_file_trace, a_temporary_name_without_temp) {
    const temp_variable temp(nullptr);
    const std::string want = "C:/TEMP/job." + std::to_string(platform::process_id());
    const heap_text name(vc_tmp_file("job"));
    ASSERT_TRUE(name);
    EXPECT_EQ(name.get(), want);
    EXPECT_TRUE(holds(log.transcript(), "D vc_tmp_file: TEMP environment variable not found: "
                                        "setting explicit C:\\temp"));
}

TEST_F(vc_file_trace, copying_names_the_destination_first) {
    drive.write(path, "new");
    drive.write("c:/quillfence/copy", "old and longer");
    EXPECT_EQ(vc_copyfile("c:/quillfence/copy", path), 1);
    EXPECT_EQ(drive.read("c:/quillfence/copy"), "new");
    EXPECT_EQ(drive.read(path), "new");
    EXPECT_EQ(log.transcript(),
              lines{"D vc_copyfile: Copying file c:/quillfence/file => c:/quillfence/copy"});
}

TEST_F(vc_file, copying_fails) {
    EXPECT_EQ(vc_copyfile("c:/quillfence/copy", path), 0);
    EXPECT_EQ(log.errors(), lines{"vc_copyfile: Error copying file: 2"});
    drive.write(path, "abc");
    EXPECT_EQ(vc_copyfile(path, path), 0);
    EXPECT_EQ(log.errors(), lines{"vc_copyfile: Error copying file: 32"});
    EXPECT_EQ(drive.read(path), "abc");
}

// --- Formatted text ---

TEST_F(vc_file_trace, printing_formats_and_writes_once) {
    const open_file file;
    log.take();
    call_watch watch;
    EXPECT_EQ(vc_fprintf(file, "%s=%d", "a", 5), 1);
    EXPECT_EQ(watch.take(), lines{"file_write"});
    EXPECT_EQ(log.transcript(),
              (lines{"D vc_fprintf: arguments and format converted [a=5]",
                     "D vc_write: 3 bytes left to write", "D vc_write: Attempting to write 3 bytes",
                     "D vc_write: wrote 3 bytes"}));
    EXPECT_EQ(drive.read(path), "a=5");
}

TEST_F(vc_file, printing_takes_1023_characters) {
    const std::string longest(1023, 'x');
    const open_file file;
    EXPECT_EQ(vc_fprintf(file, "%s", longest.c_str()), 1);
    EXPECT_EQ(vc_fprintf(file, "%s", (longest + "x").c_str()), 0);
    EXPECT_EQ(log.errors(), lines{"vc_fprintf: unknown error on vsnprintf() " + text_of(56)});
    EXPECT_EQ(drive.read(path), longest);
}

TEST_F(vc_file, printing_nothing_is_refused) {
    const open_file file;
    EXPECT_EQ(vc_fprintf(file, "%s", ""), 0);
    EXPECT_EQ(log.errors(), lines{"vc_write: " + text_of(EINVAL)});
}

// --- Lines ---

// All lines of a text, read with a buffer of `size` bytes that was not cleared.
lines lines_of(const testing::drive_c &drive, const std::string &text, uint32_t size) {
    drive.write(path, text);
    const open_file file;
    std::string buffer(size, '#');
    buffer += '\0';
    lines read;
    while (read.size() < 100 && vc_readline(file, buffer.data(), size) == 1) {
        read.emplace_back(buffer.c_str());
        EXPECT_EQ(buffer.size(), size + 1);
    }
    return read;
}

TEST_F(vc_file, reading_lines) {
    const struct {
        const char *name;
        std::string text;
        uint32_t size;
        lines want;
    } cases[] = {
        {"CR LF and no end", "ab\r\ncd", 63, {"ab", "cd"}},
        {"LF", "ab\ncd\n", 63, {"ab", "cd"}},
        {"empty lines", "\n\r\na\n\n", 63, {"", "", "a", ""}},
        {"empty file", "", 63, {}},
        {"CR alone stays", "a\rb\r\n\r", 63, {"a\rb", "\r"}},
        {"one CR is taken", "a\r\r\n", 63, {"a\r"}},
        {"longer than the buffer", "abcdefgh\nij", 4, {"abcd", "efgh", "", "ij"}},
        {"line end in the last byte", "abc\nde", 4, {"abc", "de"}},
        {"CR LF across the blocks", "abc\r\nde", 4, {"abc\r", "", "de"}},
        {"one byte at a time", "a\nb", 1, {"a", "", "b"}},
        {"high bytes and 0x1A", "\xFF\x1A\x80\n\xC3\xA9", 63, {"\xFF\x1A\x80", "\xC3\xA9"}},
        {"the first NUL ends the block", std::string("ab\0c\nd", 6), 63, {"ab"}},
        {"LF before the NUL", std::string("a\nb\0c\n", 6), 63, {"a", "b"}},
        {"NUL first reads as the end", std::string("\0a\n", 3), 63, {}},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(lines_of(drive, test.text, test.size), test.want) << test.name;
    }
}

// The same on std::string: of the next `size` bytes those before the first LF, less a CR.
lines lines_in(const std::string &text, size_t size) {
    lines found;
    for (size_t at = 0; at < text.size();) {
        std::string line = text.substr(at, size);
        const size_t newline = line.find('\n');
        at += newline == std::string::npos ? line.size() : newline + 1;
        if (newline != std::string::npos) {
            line.resize(newline);
            if (line.ends_with('\r')) {
                line.pop_back();
            }
        }
        found.push_back(line);
    }
    return found;
}

TEST_F(vc_file, reading_random_lines) {
    std::mt19937 random(23);
    for (int round = 0; round < 300; ++round) {
        std::string text(random() % 40, ' ');
        for (char &c : text) {
            c = "ab\r\n"[random() % 4];
        }
        const uint32_t size = 1 + static_cast<uint32_t>(random() % 9);
        ASSERT_EQ(lines_of(drive, text, size), lines_in(text, size))
            << ::testing::PrintToString(text) << " by " << size;
    }
}

TEST_F(vc_file, a_line_longer_than_a_block_of_the_reader) {
    const std::string text(6000, 'x');
    EXPECT_EQ(lines_of(drive, text + "\r\nend\n", 7000), (lines{text, "end"}));
}

TEST_F(vc_file_trace, a_line_in_full) {
    drive.write(path, "ab\r\ncd");
    const open_file file;
    log.take();
    char buffer[64] = {};
    call_watch watch;
    EXPECT_EQ(vc_readline(file, buffer, 63), 1);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(watch.take(), (lines{"file_seek", "file_read", "file_seek"}));
    EXPECT_EQ(
        log.transcript(),
        (lines{"D vc_readline: current position in file 0", "D vc_read: 63 bytes remaining to read",
               "D vc_read: attempting to read 63 bytes in one block", "D vc_read: read 6 bytes",
               "D vc_readline: read data block: [ab??cd]",
               "D vc_readline: newline found at character 3",
               "D vc_seek: successfully sought 4 from offset 0"}));
    EXPECT_EQ(vc_tell(file), 4);
    watch.take();
    EXPECT_EQ(vc_readline(file, buffer, 63), 1);
    EXPECT_STREQ(buffer, "cd");
    EXPECT_EQ(watch.take(), (lines{"file_seek", "file_read"}));
    EXPECT_EQ(
        log.transcript(),
        (lines{"D vc_readline: current position in file 4", "D vc_read: 63 bytes remaining to read",
               "D vc_read: attempting to read 63 bytes in one block", "D vc_read: read 2 bytes",
               "D vc_readline: read data block: [cd]"}));
    EXPECT_EQ(vc_tell(file), 6);
}

TEST_F(vc_file, a_line_never_reaches_past_the_buffer) {
    drive.write(path, "abcdefgh");
    const open_file file;
    char buffer[6] = {'.', '.', '.', '.', '!', '!'};
    EXPECT_EQ(vc_readline(file, buffer, 4), 1);
    EXPECT_EQ(std::string(buffer, 6), "abcd!!");
}

TEST_F(vc_file, a_line_that_can_not_be_read) {
    drive.write(path, "ab\ncd\n");
    const open_file file;
    char buffer[64] = {};
    call_watch watch;
    watch.fail("file_read", 1, 1117);
    EXPECT_EQ(vc_readline(file, buffer, 63), 0);
    EXPECT_EQ(log.errors(), (lines{"vc_read: fatal error on read (w32) got error code 1117",
                                   "vc_readline: " + text_of(125)}));
    watch.fail("file_seek", 1, 6);
    EXPECT_EQ(vc_readline(file, buffer, 63), 0);
    EXPECT_EQ(log.errors(), lines{"vc_tell: error finding position got error code 6"});
    watch.fail("file_seek", 2, 6);
    EXPECT_EQ(vc_readline(file, buffer, 63), 0);
    EXPECT_EQ(log.errors(), lines{"vc_seek: failed to set file pointer: got error code 6"});
}

TEST_F(vc_file, lines_beyond_two_gibibytes) {
    stretch(3221225472);
    const open_file file;
    ASSERT_EQ(platform::file_seek(file, 0, platform::seek_origin::end, nullptr), 0u);
    EXPECT_EQ(vc_write(file, "one\ntwo\n", 8), 1);
    ASSERT_EQ(platform::file_seek(file, -8, platform::seek_origin::end, nullptr), 0u);
    char buffer[64] = {};
    EXPECT_EQ(vc_readline(file, buffer, 63), 1);
    EXPECT_STREQ(buffer, "one");
    EXPECT_EQ(vc_readline(file, buffer, 63), 1);
    EXPECT_STREQ(buffer, "two");
    EXPECT_EQ(vc_readline(file, buffer, 63), 0);
}

} // namespace
} // namespace quillfence
