#include "platform/file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/clock.h"
#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {
namespace {

constexpr char folder[] = "c:/quillfence";
constexpr char file_a[] = "c:/quillfence/a";
constexpr char file_b[] = "c:/quillfence/b";
constexpr char missing[] = "c:/quillfence/missing";
constexpr char no_folder[] = "c:/quillfence/missing/file";
constexpr uint64_t past_32_bits = 0x100000005;

constexpr file_options reading = {};
constexpr file_options writing = {.write = true, .when = disposition::open_always};
constexpr file_options locking = {.write = true, .lock = true, .when = disposition::open_always};

// A file that is closed at the end.
class opened {
  public:
    explicit opened(const char *path, file_options options = writing) {
        EXPECT_EQ(file_open(path, options, &handle), error_none) << path;
    }
    ~opened() {
        close();
    }
    opened(const opened &) = delete;
    opened &operator=(const opened &) = delete;
    void close() {
        if (handle != invalid_file) {
            EXPECT_EQ(file_close(handle), error_none);
            handle = invalid_file;
        }
    }
    file_handle handle = invalid_file;
};

uint32_t error_of_opening(const char *path, file_options options) {
    file_handle file = 12345;
    const uint32_t error = file_open(path, options, &file);
    EXPECT_EQ(error == error_none, file != invalid_file) << "handle " << file;
    if (file != invalid_file) {
        EXPECT_EQ(file_close(file), error_none);
    }
    return error;
}

// The text that one read of up to `size` bytes delivers.
std::string read_once(file_handle file, uint32_t size) {
    std::string bytes(size, '#');
    uint32_t moved = 12345;
    EXPECT_EQ(file_read(file, bytes.data(), size, &moved), error_none);
    EXPECT_LE(moved, size);
    bytes.resize(moved);
    return bytes;
}

void write_all(file_handle file, const std::string &bytes) {
    uint32_t moved = 0;
    EXPECT_EQ(file_write(file, bytes.data(), static_cast<uint32_t>(bytes.size()), &moved),
              error_none);
    EXPECT_EQ(moved, bytes.size());
}

class file : public ::testing::Test {
  protected:
    testing::drive_c drive;
};
using path = file;
using stream = file;

TEST_F(file, open_by_disposition) {
    static constexpr struct {
        const char *name;
        disposition when;
        uint32_t want_missing; // when the file is not there
        uint32_t want_present; // when it holds "old"
        const char *want_bytes;
    } cases[] = {
        {"open_existing", disposition::open_existing, error_file_not_found, error_none, "old"},
        {"open_always", disposition::open_always, error_none, error_none, "old"},
        {"create_always", disposition::create_always, error_none, error_none, ""},
        {"create_new", disposition::create_new, error_none, error_file_exists, "old"},
    };
    for (const auto &c : cases) {
        for (const bool write : {false, true}) {
            const file_options options = {.write = write, .when = c.when};
            drive.remove(missing);
            EXPECT_EQ(error_of_opening(missing, options), c.want_missing) << c.name << write;
            EXPECT_EQ(drive.exists(missing), c.want_missing == error_none) << c.name << write;
            drive.write(file_a, "old");
            EXPECT_EQ(error_of_opening(file_a, options), c.want_present) << c.name << write;
            EXPECT_EQ(drive.read(file_a), c.want_bytes) << c.name << write;
        }
    }
}

TEST_F(file, open_failures) {
    drive.write(file_a, "");
    static constexpr struct {
        const char *path;
        uint32_t want;
    } cases[] = {
        {missing, error_file_not_found},
        {no_folder, error_path_not_found},
        {"c:/quillfence/a/below-a-file", error_path_not_found},
        {folder, error_access_denied},
        {"", error_path_not_found},
        {nullptr, error_path_not_found},
    };
    for (const auto &c : cases) {
        for (const bool write : {false, true}) {
            EXPECT_EQ(error_of_opening(c.path, {.write = write}), c.want)
                << (c.path ? c.path : "null") << " write " << write;
        }
    }
    EXPECT_EQ(error_of_opening(no_folder, writing), error_path_not_found) << "creates no folders";
    const std::string too_long = std::string("c:/quillfence/") + std::string(70000, 'x');
    EXPECT_NE(error_of_opening(too_long.c_str(), writing), error_none);
}

TEST_F(file, drive_letters_and_separators) {
    drive.write("c:/quillfence/sub/file", "text");
    for (const char *spelling : {"c:/quillfence/sub/file", "C:/quillfence/sub/file",
                                 "c:\\quillfence\\sub\\file", "c:\\quillfence/sub//file"}) {
        EXPECT_EQ(error_of_opening(spelling, reading), error_none) << spelling;
    }
}

TEST_F(file, a_locked_file_refuses_another_lock) {
    drive.write(file_a, "kept");
    opened first(file_a, locking);
    EXPECT_EQ(error_of_opening(file_a, locking), error_sharing_violation);
    const file_options emptying = {.write = true, .lock = true, .when = disposition::create_always};
    EXPECT_EQ(error_of_opening(file_a, emptying), error_sharing_violation);
    EXPECT_EQ(error_of_opening(file_a, reading), error_none) << "reading stays possible";
    EXPECT_EQ(error_of_opening(file_b, locking), error_none) << "another file is not locked";
    first.close();
    EXPECT_EQ(drive.read(file_a), "kept");
    EXPECT_EQ(error_of_opening(file_a, locking), error_none) << "closing unlocks";
}

TEST_F(file, writers_stand_beside_each_other_and_not_beside_a_lock) {
    const file_options appending = {.append = true, .among_writers = true};
    drive.write(file_a, "kept");
    opened first(file_a, appending);
    opened second(file_a, appending);
    EXPECT_EQ(error_of_opening(file_a, locking), error_sharing_violation);
    first.close();
    EXPECT_EQ(error_of_opening(file_a, locking), error_sharing_violation) << "there is another";
    second.close();
    const opened locked(file_a, locking);
    EXPECT_EQ(error_of_opening(file_a, appending), error_sharing_violation);
    EXPECT_EQ(drive.read(file_a), "kept");
}

TEST_F(file, without_lock_a_file_opens_twice) {
    const opened first(file_a);
    const opened second(file_a);
    write_all(first.handle, "abc");
    EXPECT_EQ(read_once(second.handle, 8), "abc");
}

TEST_F(file, read_delivers_what_is_there) {
    drive.write(file_a, std::string("ab\r\n\x1a\0c", 7));
    const opened a(file_a, reading);
    EXPECT_EQ(read_once(a.handle, 3), "ab\r");
    EXPECT_EQ(read_once(a.handle, 0), "");
    EXPECT_EQ(read_once(a.handle, 100), std::string("\n\x1a\0c", 4)) << "bytes as they are";
    EXPECT_EQ(read_once(a.handle, 100), "") << "the end of the file";
}

TEST_F(file, read_at_goes_by_the_offset_alone) {
    drive.write(file_a, "0123456789");
    const opened a(file_a, reading);
    EXPECT_EQ(read_once(a.handle, 2), "01");
    const auto read_at = [&](int64_t offset) {
        std::string bytes(4, '#');
        uint32_t moved = 12345;
        EXPECT_EQ(file_read_at(a.handle, offset, bytes.data(), 4, &moved), error_none) << offset;
        return bytes.substr(0, moved);
    };
    EXPECT_EQ(read_at(3), "3456");
    EXPECT_EQ(read_at(0), "0123");
    EXPECT_EQ(read_at(8), "89");
    EXPECT_EQ(read_at(10), "");
    EXPECT_EQ(read_at(int64_t{1} << 33), "");
}

TEST_F(file, write_at_the_position) {
    drive.write(file_a, "abcdef");
    opened a(file_a);
    write_all(a.handle, "XY");
    write_all(a.handle, "");
    EXPECT_EQ(read_once(a.handle, 1), "c");
    write_all(a.handle, "Z\n");
    a.close();
    EXPECT_EQ(drive.read(file_a), "XYcZ\nf");
}

TEST_F(file, an_append_goes_behind_what_others_have_written) {
    constexpr file_options appending = {.append = true, .when = disposition::open_always};
    opened one(file_a, appending);
    opened other(file_a, appending);
    write_all(one.handle, "1");
    write_all(other.handle, "22");
    EXPECT_EQ(file_seek(one.handle, 0, seek_origin::begin, nullptr), error_none);
    write_all(one.handle, "333");
    one.close();
    other.close();
    EXPECT_EQ(drive.read(file_a), "122333");
    drive.remove(file_a);
    opened read_back(file_a, appending);
    char byte = 0;
    uint32_t moved = 1;
    EXPECT_EQ(file_read(read_back.handle, &byte, 1, &moved), error_access_denied);
    EXPECT_EQ(moved, 0u);
}

TEST_F(file, write_needs_the_write_option) {
    drive.write(file_a, "abc");
    const opened a(file_a, reading);
    uint32_t moved = 12345;
    EXPECT_EQ(file_write(a.handle, "x", 1, &moved), error_access_denied);
    EXPECT_EQ(moved, 0u);
    const uint32_t error = file_truncate(a.handle);
    EXPECT_TRUE(error == error_access_denied || error == error_invalid_parameter) // Wine's number
        << error;
    EXPECT_EQ(drive.read(file_a), "abc");
}

TEST_F(file, a_closed_handle_is_invalid) {
    file_handle closed = invalid_file;
    ASSERT_EQ(file_open(file_a, writing, &closed), error_none);
    ASSERT_EQ(file_close(closed), error_none);
    char byte = 0;
    uint32_t moved = 12345;
    uint64_t size = 12345;
    file_mapping mapping = {};
    EXPECT_EQ(file_read(closed, &byte, 1, &moved), error_invalid_handle);
    EXPECT_EQ(moved, 0u);
    EXPECT_EQ(file_read_at(closed, 0, &byte, 1, &moved), error_invalid_handle);
    EXPECT_EQ(file_write(closed, &byte, 1, &moved), error_invalid_handle);
    EXPECT_EQ(file_seek(closed, 0, seek_origin::begin, nullptr), error_invalid_handle);
    EXPECT_EQ(file_size(closed, &size), error_invalid_handle);
    EXPECT_EQ(size, 0u);
    int64_t seconds = 12345;
    EXPECT_EQ(file_changed(closed, &seconds), error_invalid_handle);
    EXPECT_EQ(seconds, 0);
    file_identity identity = {1, 2};
    EXPECT_EQ(file_identify(closed, &identity), error_invalid_handle);
    EXPECT_EQ(identity, file_identity{});
    bool is_private = true;
    EXPECT_EQ(file_is_private(closed, &is_private), error_invalid_handle);
    EXPECT_FALSE(is_private);
    EXPECT_EQ(file_truncate(closed), error_invalid_handle);
    EXPECT_EQ(file_sync(closed), error_invalid_handle);
    EXPECT_EQ(file_map(closed, &mapping), error_invalid_handle);
    EXPECT_EQ(file_close(closed), error_invalid_handle);
}

TEST_F(file, pipe_carries_bytes_and_ends) {
    file_handle reader;
    file_handle writer;
    ASSERT_EQ(file_pipe(&reader, &writer), error_none);
    write_all(writer, "through");
    EXPECT_EQ(read_once(reader, 100), "through");
    EXPECT_EQ(file_close(writer), error_none);
    EXPECT_EQ(read_once(reader, 100), "") << "a pipe without a writer is at its end";
    EXPECT_EQ(file_close(reader), error_none);
}

TEST_F(file, write_to_a_closed_pipe_fails_without_a_signal) {
    file_handle reader;
    file_handle writer;
    ASSERT_EQ(file_pipe(&reader, &writer), error_none);
    EXPECT_EQ(file_close(reader), error_none);
    for (int attempt = 0; attempt < 2; ++attempt) {
        uint32_t moved = 12345;
        const uint32_t error = file_write(writer, "x", 1, &moved);
        EXPECT_TRUE(error == error_no_data || error == error_broken_pipe) << error;
        EXPECT_EQ(moved, 0u);
    }
    EXPECT_EQ(file_close(writer), error_none);
}

TEST_F(file, seek_from_each_origin) {
    drive.write(file_a, "0123456789");
    const opened a(file_a, reading);
    static constexpr struct {
        int64_t offset;
        seek_origin origin;
        uint32_t want;
        int64_t want_position;
        const char *want_next;
    } cases[] = {
        {4, seek_origin::begin, error_none, 4, "4"},
        {2, seek_origin::current, error_none, 7, "7"},
        {-3, seek_origin::current, error_none, 5, "5"},
        {-1, seek_origin::end, error_none, 9, "9"},
        {0, seek_origin::end, error_none, 10, ""},
        {5, seek_origin::end, error_none, 15, ""},
        {static_cast<int64_t>(past_32_bits), seek_origin::begin, error_none,
         static_cast<int64_t>(past_32_bits), ""},
        {1, seek_origin::begin, error_none, 1, "1"},
        {-1, seek_origin::begin, error_negative_seek, 12345, "2"},
        {-4, seek_origin::current, error_negative_seek, 12345, "3"},
        {-11, seek_origin::end, error_negative_seek, 12345, "4"},
        {0, static_cast<seek_origin>(3), error_invalid_parameter, 12345, "5"},
        {0, static_cast<seek_origin>(255), error_invalid_parameter, 12345, "6"},
    };
    for (const auto &c : cases) {
        int64_t position = 12345;
        const int origin = static_cast<int>(c.origin);
        EXPECT_EQ(file_seek(a.handle, c.offset, c.origin, &position), c.want)
            << c.offset << " from " << origin;
        EXPECT_EQ(position, c.want_position) << c.offset << " from " << origin;
        EXPECT_EQ(read_once(a.handle, 1), c.want_next) << c.offset << " from " << origin;
    }
    EXPECT_EQ(file_seek(a.handle, 3, seek_origin::begin, nullptr), error_none);
    EXPECT_EQ(read_once(a.handle, 1), "3") << "the position may go unasked";
}

TEST_F(file, sizes_past_32_bits) {
    const opened a(file_a);
    uint64_t size = 12345;
    EXPECT_EQ(file_size(a.handle, &size), error_none);
    EXPECT_EQ(size, 0u);
    ASSERT_EQ(file_seek(a.handle, past_32_bits, seek_origin::begin, nullptr), error_none);
    ASSERT_EQ(file_truncate(a.handle), error_none);
    EXPECT_EQ(file_size(a.handle, &size), error_none);
    EXPECT_EQ(size, past_32_bits);
    int64_t position = 0;
    EXPECT_EQ(file_seek(a.handle, -1, seek_origin::end, &position), error_none);
    EXPECT_EQ(position, static_cast<int64_t>(past_32_bits) - 1);
    write_all(a.handle, "yz");
    EXPECT_EQ(file_size(a.handle, &size), error_none);
    EXPECT_EQ(size, past_32_bits + 1);
    EXPECT_EQ(file_seek(a.handle, 0xffffffff, seek_origin::begin, nullptr), error_none);
    ASSERT_EQ(file_truncate(a.handle), error_none);
    EXPECT_EQ(file_size(a.handle, &size), error_none);
    EXPECT_EQ(size, 0xffffffffu);
}

TEST_F(file, truncate_at_the_position) {
    drive.write(file_a, "abcdef");
    opened a(file_a);
    EXPECT_EQ(read_once(a.handle, 2), "ab");
    EXPECT_EQ(file_truncate(a.handle), error_none);
    EXPECT_EQ(drive.read(file_a), "ab");
    EXPECT_EQ(file_seek(a.handle, 4, seek_origin::begin, nullptr), error_none);
    EXPECT_EQ(file_truncate(a.handle), error_none);
    a.close();
    EXPECT_EQ(drive.read(file_a), std::string("ab\0\0", 4)) << "grown with zero bytes";
}

TEST_F(file, sync_a_written_file) {
    const opened a(file_a);
    write_all(a.handle, "abc");
    EXPECT_EQ(file_sync(a.handle), error_none);
}

TEST_F(file, map_shows_the_bytes) {
    const std::string bytes = std::string(100000, 'x') + "end";
    drive.write(file_a, bytes);
    opened a(file_a, reading);
    file_mapping mapping = {};
    ASSERT_EQ(file_map(a.handle, &mapping), error_none);
    a.close();
    ASSERT_EQ(mapping.size, bytes.size());
    EXPECT_EQ(memcmp(mapping.bytes, bytes.data(), bytes.size()), 0) << "also once it is closed";
    file_unmap(&mapping);
    EXPECT_EQ(mapping.bytes, nullptr);
    EXPECT_EQ(mapping.size, 0u);
    file_unmap(&mapping); // nothing is left to do
}

TEST_F(file, map_of_an_empty_file_is_empty) {
    const opened a(file_a);
    static constexpr unsigned char stale = 1;
    file_mapping mapping = {&stale, 1};
    EXPECT_EQ(file_map(a.handle, &mapping), error_none);
    EXPECT_EQ(mapping.bytes, nullptr);
    EXPECT_EQ(mapping.size, 0u);
    file_unmap(&mapping);
}

TEST_F(path, attributes) {
    drive.write(file_a, "x");
    drive.make_folder("c:/quillfence/sub");
    static constexpr struct {
        const char *path;
        uint32_t want;
        uint32_t want_attributes;
    } cases[] = {
        {file_a, error_none, attribute_normal},
        {"c:/quillfence/sub", error_none, attribute_directory},
        {"c:/quillfence/sub/", error_none, attribute_directory},
        {missing, error_file_not_found, 0},
        {"c:/quillfence/missing/", error_file_not_found, 0},
        {no_folder, error_path_not_found, 0},
        {"", error_path_not_found, 0},
        {nullptr, error_path_not_found, 0},
    };
    for (const auto &c : cases) {
        uint32_t attributes = 12345;
        const std::string name = c.path ? c.path : "null";
        EXPECT_EQ(path_attributes(c.path, &attributes), c.want) << name;
        EXPECT_EQ(attributes, c.want_attributes) << name;
    }
    EXPECT_FALSE(drive.exists(missing)) << "asking creates nothing";
}

// --- path_stamp_of ---

TEST_F(path, stamp_tells_another_file_and_other_bytes) {
    const auto stamp_of = [](const char *of) {
        path_stamp stamp{};
        EXPECT_EQ(path_stamp_of(of, &stamp), error_none);
        return stamp;
    };
    drive.write(file_a, "one");
    const path_stamp first = stamp_of(file_a);
    EXPECT_EQ(stamp_of(file_a), first) << "nothing changed";
    EXPECT_EQ(first.size, 3u);
    drive.write(file_a, "one, two");
    const path_stamp longer = stamp_of(file_a);
    EXPECT_NE(longer, first);
    EXPECT_EQ(longer.file, first.file) << "written in place";
    drive.write("c:/quillfence/other", "one, 2nd");
    EXPECT_EQ(path_replace("c:/quillfence/other", file_a), error_none);
    EXPECT_NE(stamp_of(file_a).file, longer.file);
}

TEST_F(path, stamp_of_what_is_no_file) {
    path_stamp stamp{.volume = 1, .file = 2, .size = 3, .written = 4, .changed = 5};
    EXPECT_EQ(path_stamp_of(missing, &stamp), error_file_not_found);
    EXPECT_EQ(stamp, path_stamp{});
    EXPECT_EQ(path_stamp_of(no_folder, &stamp), error_path_not_found);
    EXPECT_EQ(path_stamp_of("c:/quillfence", &stamp), error_none) << "a folder has one, too";
    EXPECT_FALSE(drive.exists(missing)) << "asking creates nothing";
}

TEST_F(path, copy_makes_or_overwrites) {
    const std::string large(200000, 'x');
    drive.write(file_a, large);
    EXPECT_EQ(path_copy(file_a, file_b), error_none);
    EXPECT_EQ(drive.read(file_b), large);
    drive.write(file_a, "short");
    EXPECT_EQ(path_copy(file_a, file_b), error_none);
    EXPECT_EQ(drive.read(file_b), "short") << "nothing of the longer file is left";
    EXPECT_EQ(drive.read(file_a), "short");
    drive.write(file_a, "");
    EXPECT_EQ(path_copy(file_a, file_b), error_none);
    EXPECT_EQ(drive.read(file_b), "");
}

TEST_F(path, copy_onto_itself_leaves_the_file_alone) {
    drive.write(file_a, "kept");
    std::filesystem::create_hard_link(drive.native(file_a), drive.native(file_b));
    for (const char *same : {file_a, "C:/quillfence/a", "c:\\quillfence\\a", "c:/quillfence/./a",
                             "c:/quillfence//a", file_b}) {
        EXPECT_EQ(path_copy(file_a, same), error_sharing_violation) << same;
        EXPECT_EQ(path_copy(same, file_a), error_sharing_violation) << same;
        EXPECT_EQ(drive.read(file_a), "kept") << same;
    }
}

TEST_F(path, copy_failures) {
    drive.write(file_a, "kept");
    drive.make_folder("c:/quillfence/sub");
    static constexpr struct {
        const char *source, *destination;
        uint32_t want;
    } cases[] = {
        {missing, file_a, error_file_not_found},
        {no_folder, file_a, error_path_not_found},
        {file_a, no_folder, error_path_not_found},
        {file_a, "c:/quillfence/sub", error_access_denied},
        {"c:/quillfence/sub", file_a, error_access_denied},
        {"", file_a, error_path_not_found},
        {nullptr, file_a, error_path_not_found},
        {file_a, "", error_path_not_found},
        {file_a, nullptr, error_path_not_found},
    };
    for (const auto &c : cases) {
        const std::string name = std::string(c.source ? c.source : "null") + " to " +
                                 (c.destination ? c.destination : "null");
        EXPECT_EQ(path_copy(c.source, c.destination), c.want) << name;
        EXPECT_EQ(drive.read(file_a), "kept") << name;
    }
    EXPECT_FALSE(drive.exists(missing));
}

TEST_F(path, rename_moves_a_file) {
    drive.make_folder("c:/quillfence/sub");
    drive.write(file_a, "text");
    EXPECT_EQ(path_rename(file_a, "c:/quillfence/sub/new"), error_none);
    EXPECT_FALSE(drive.exists(file_a));
    EXPECT_EQ(drive.read("c:/quillfence/sub/new"), "text");
    EXPECT_EQ(path_rename("c:/quillfence/sub", "c:/quillfence/other"), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/other/new"), "text") << "a folder moves as well";
}

TEST_F(path, rename_refuses_an_existing_name) {
    drive.write(file_a, "a");
    drive.write(file_b, "b");
    drive.make_folder("c:/quillfence/sub");
    EXPECT_EQ(path_rename(file_a, file_b), error_already_exists);
    EXPECT_EQ(path_rename(file_a, "c:/quillfence/sub"), error_already_exists);
    EXPECT_EQ(drive.read(file_a), "a");
    EXPECT_EQ(drive.read(file_b), "b");
}

TEST_F(path, replace_takes_the_place) {
    drive.write(file_a, "new");
    drive.write(file_b, "old");
    EXPECT_EQ(path_replace(file_a, file_b), error_none);
    EXPECT_FALSE(drive.exists(file_a));
    EXPECT_EQ(drive.read(file_b), "new");
    EXPECT_EQ(path_replace(file_b, file_a), error_none) << "a new name";
    EXPECT_EQ(drive.read(file_a), "new");
    drive.make_folder("c:/quillfence/sub");
    EXPECT_EQ(path_replace(file_a, "c:/quillfence/sub"), error_access_denied);
    EXPECT_EQ(drive.read(file_a), "new");
}

TEST_F(path, rename_and_replace_failures) {
    drive.write(file_a, "kept");
    static constexpr struct {
        const char *from, *to;
        uint32_t want;
    } cases[] = {
        {missing, file_b, error_file_not_found},   {no_folder, file_b, error_path_not_found},
        {file_a, no_folder, error_path_not_found}, {"", file_b, error_path_not_found},
        {nullptr, file_b, error_path_not_found},   {file_a, "", error_path_not_found},
        {file_a, nullptr, error_path_not_found},
    };
    for (const auto &c : cases) {
        const std::string name =
            std::string(c.from ? c.from : "null") + " to " + (c.to ? c.to : "null");
        EXPECT_EQ(path_rename(c.from, c.to), c.want) << name;
        EXPECT_EQ(path_replace(c.from, c.to), c.want) << name;
    }
    EXPECT_EQ(drive.read(file_a), "kept");
}

TEST_F(path, delete_removes_a_file_only) {
    drive.write(file_a, "x");
    EXPECT_EQ(path_delete(file_a), error_none);
    EXPECT_FALSE(drive.exists(file_a));
    EXPECT_EQ(path_delete(file_a), error_file_not_found);
    EXPECT_EQ(path_delete(no_folder), error_path_not_found);
    drive.make_folder("c:/quillfence/sub");
    EXPECT_EQ(path_delete("c:/quillfence/sub"), error_access_denied);
    EXPECT_EQ(path_delete(""), error_path_not_found);
    EXPECT_EQ(path_delete(nullptr), error_path_not_found);
}

TEST_F(path, native_is_what_other_libraries_open) {
    drive.write(file_a, "text");
    char native[4096];
    ASSERT_EQ(path_native("c:\\quillfence\\a", native, sizeof native), error_none);
    EXPECT_TRUE(std::filesystem::equivalent(native, drive.native(file_a))) << native;
    ASSERT_EQ(path_native("plain", native, sizeof native), error_none);
    EXPECT_STREQ(native, "plain");
    EXPECT_EQ(path_native("plain", native, 6), error_none);
    EXPECT_EQ(path_native("plain", native, 5), error_filename_too_long);
    EXPECT_EQ(path_native("", native, sizeof native), error_path_not_found);
    EXPECT_EQ(path_native(nullptr, native, sizeof native), error_path_not_found);
}

void put(const char *mode, const std::string &bytes) {
    FILE *const written = stream_open(file_a, mode);
    ASSERT_NE(written, nullptr) << mode;
    EXPECT_EQ(fwrite(bytes.data(), 1, bytes.size(), written), bytes.size());
    EXPECT_EQ(fclose(written), 0);
}

TEST_F(stream, is_binary_in_every_mode) {
    static constexpr struct {
        const char *write, *append, *read;
    } cases[] = {{"w", "a", "r"}, {"wb", "ab", "rb"}, {"w+", "a+", "r+"}, {"wb+", "ab+", "rb+"}};
    for (const auto &c : cases) {
        put(c.write, "a\r\nb\n");
        put(c.append, "\x1a\n");
        EXPECT_EQ(drive.read(file_a), "a\r\nb\n\x1a\n") << c.write;
        FILE *const read = stream_open(file_a, c.read);
        ASSERT_NE(read, nullptr) << c.read;
        char bytes[16];
        EXPECT_EQ(std::string(bytes, fread(bytes, 1, sizeof bytes, read)), "a\r\nb\n\x1a\n");
        EXPECT_EQ(fclose(read), 0);
    }
}

TEST_F(stream, open_failures_set_errno) {
    static constexpr struct {
        const char *path, *mode;
        int want;
    } cases[] = {
        {missing, "rb", ENOENT},   {no_folder, "wb", ENOENT},
        {"", "wb", ENOENT},        {nullptr, "wb", ENOENT},
        {file_a, nullptr, EINVAL}, {file_a, "wbxxxxxxxxxxxxxxxxxxxxxxxx", EINVAL},
    };
    for (const auto &c : cases) {
        errno = 0;
        EXPECT_EQ(stream_open(c.path, c.mode), nullptr) << (c.path ? c.path : "null");
        EXPECT_EQ(errno, c.want) << (c.path ? c.path : "null");
    }
}

TEST_F(stream, truncate_cuts_the_file) {
    FILE *const written = stream_open(file_a, "wb");
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(fwrite("abcdef", 1, 6, written), 6u);
    EXPECT_EQ(stream_truncate(written, 4), 0) << "what is still in the buffer counts";
    EXPECT_EQ(drive.read(file_a), "abcd");
    EXPECT_EQ(stream_truncate(written, 6), 0);
    EXPECT_EQ(fclose(written), 0);
    EXPECT_EQ(drive.read(file_a), std::string("abcd\0\0", 6));
}

TEST_F(stream, truncate_needs_a_writing_stream) {
    drive.write(file_a, "abc");
    FILE *const read = stream_open(file_a, "rb");
    ASSERT_NE(read, nullptr);
    EXPECT_NE(stream_truncate(read, 1), 0);
    EXPECT_EQ(fclose(read), 0);
    EXPECT_EQ(drive.read(file_a), "abc");
}

std::string observed;

uint32_t fail_all(const char *call, const char *subject) {
    observed += std::string(call) + "(" + subject + ") ";
    return error_write_protect;
}

// Every function asks the observer before anything else, once, and fails with its number.
TEST_F(file, every_function_can_be_made_to_fail) {
    drive.write(file_a, "kept");
    opened a(file_a);
    file_handle other = 1;
    file_handle another = 1;
    char byte = 0;
    uint32_t count = 1;
    uint64_t size = 1;
    int64_t position = 1;
    bool is_private = false;
    file_identity identity = {};
    file_mapping mapping = {};
    FILE *const file_stream = stream_open(file_a, "rb+");
    ASSERT_NE(file_stream, nullptr);
    const struct {
        const char *want;
        std::function<uint32_t()> call;
    } cases[] = {
        {"file_open(c:/quillfence/b) ", [&] { return file_open(file_b, writing, &other); }},
        {"file_read() ", [&] { return file_read(a.handle, &byte, 1, &count); }},
        {"file_read_at() ", [&] { return file_read_at(a.handle, 0, &byte, 1, &count); }},
        {"file_write() ", [&] { return file_write(a.handle, &byte, 1, &count); }},
        {"file_pipe() ", [&] { return file_pipe(&other, &another); }},
        {"file_seek() ", [&] { return file_seek(a.handle, 0, seek_origin::end, &position); }},
        {"file_size() ", [&] { return file_size(a.handle, &size); }},
        {"file_changed() ", [&] { return file_changed(a.handle, &position); }},
        {"file_identify() ", [&] { return file_identify(a.handle, &identity); }},
        {"file_is_private() ", [&] { return file_is_private(a.handle, &is_private); }},
        {"file_truncate() ", [&] { return file_truncate(a.handle); }},
        {"file_sync() ", [&] { return file_sync(a.handle); }},
        {"file_map() ", [&] { return file_map(a.handle, &mapping); }},
        {"file_close() ", [&] { return file_close(a.handle); }},
        {"path_attributes(c:/quillfence/a) ", [&] { return path_attributes(file_a, &count); }},
        {"path_copy(c:/quillfence/a) ", [&] { return path_copy(file_a, file_b); }},
        {"path_rename(c:/quillfence/a) ", [&] { return path_rename(file_a, file_b); }},
        {"path_replace(c:/quillfence/a) ", [&] { return path_replace(file_a, file_b); }},
        {"path_delete(c:/quillfence/a) ", [&] { return path_delete(file_a); }},
    };
    set_call_observer(fail_all);
    for (const auto &c : cases) {
        observed.clear();
        EXPECT_EQ(c.call(), error_write_protect) << c.want;
        EXPECT_EQ(observed, c.want);
    }
    observed.clear();
    errno = 0;
    EXPECT_EQ(stream_open(file_b, "wb"), nullptr);
    EXPECT_NE(errno, 0);
    EXPECT_NE(stream_truncate(file_stream, 0), 0);
    EXPECT_EQ(observed, "stream_open(c:/quillfence/b) stream_truncate() ");
    set_call_observer(nullptr);
    EXPECT_EQ(fclose(file_stream), 0);
    a.handle = invalid_file; // a close that fails has closed the file all the same
    EXPECT_EQ(drive.read(file_a), "kept");
    EXPECT_FALSE(drive.exists(file_b));
}

TEST_F(file, the_time_of_the_last_change) {
    time_of_day now;
    ASSERT_TRUE(clock_now(&now));
    drive.write(file_a, "x");
    const opened a(file_a, reading);
    int64_t seconds = 0;
    EXPECT_EQ(file_changed(a.handle, &seconds), error_none);
    EXPECT_LE(std::abs(seconds - now.seconds), 60);
}

TEST_F(file, an_identity_stays_with_the_file_and_not_with_the_name) {
    const auto identity_of = [](const char *name) {
        const opened one(name, reading);
        file_identity identity = {};
        EXPECT_EQ(file_identify(one.handle, &identity), error_none);
        return identity;
    };
    drive.write(file_a, "x");
    const opened kept(file_a, reading); // so that nobody gets its identity
    const file_identity before = identity_of(file_a);
    EXPECT_EQ(identity_of(file_a), before);
    ASSERT_EQ(path_rename(file_a, file_b), error_none);
    EXPECT_EQ(identity_of(file_b), before);
    drive.write(file_a, "x");
    EXPECT_NE(identity_of(file_a), before);
}

} // namespace
} // namespace quillfence::platform
