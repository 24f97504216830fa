#include <cstring>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/file.h"
#include "tar_header.h"
#include "tar_reader.h"
#include "tar_writer.h"

namespace quillfence::decision {
namespace {

// --- names --------------------------------------------------------------------------------------

TEST(tar_name, good_ones) {
    for (const char *const name :
         {"a", "case.json", "c/quillfence/from_blacklist", "c/Program Files/Mail Enable/DOMAIN.TAB",
          "c/\xC3\xA4/\xE2\x82\xAC", "...a", ".hidden", "confirmed", "com0", "com10", "lpt",
          "a..b"}) {
        EXPECT_EQ(why_no_tar_name(name), "") << name;
    }
    EXPECT_EQ(why_no_tar_name(std::string(255, 'a')), "");
}

TEST(tar_name, refused_ones) {
    const struct {
        std::string name;
        const char *why;
    } cases[] = {
        {"", "has no name"},
        {"/etc/passwd", "has an absolute name"},
        {"..", "leads out of its folder with \"..\""},
        {"c/../../x", "leads out of its folder with \"..\""},
        {"c/x/..", "leads out of its folder with \"..\""},
        {"./x", "has \".\" for a folder"},
        {"c/./x", "has \".\" for a folder"},
        {"c//x", "has a folder without a name"},
        {"c/", "has a folder without a name"},
        {"c:/x", "has a colon in its name, which is a drive or a stream on Windows"},
        {"c/x:stream", "has a colon in its name, which is a drive or a stream on Windows"},
        {"c\\x", "has a backslash in its name"},
        {"..\\x", "has a backslash in its name"},
        {"x\n", "has a control character in its name"},
        {std::string("x\0y", 3), "has a control character in its name"},
        {"x\x7F", "has a control character in its name"},
        {"x*", "has a character in its name that Windows has in none"},
        {"x?y", "has a character in its name that Windows has in none"},
        {"c/x.", "has a name that ends in a dot or blank, which Windows drops"},
        {"c./x", "has a name that ends in a dot or blank, which Windows drops"},
        {"c/x ", "has a name that ends in a dot or blank, which Windows drops"},
        {"c/...", "has a name that ends in a dot or blank, which Windows drops"},
        {"nul", "has the name of a device on Windows"},
        {"c/CON.txt", "has the name of a device on Windows"},
        {"Com1/x", "has the name of a device on Windows"},
        {"c/\xE4", "has a name that is not UTF-8"},
        {"c/\xC0\xAF", "has a name that is not UTF-8"}, // an overlong "/"
        {"c/" + std::string(256, 'a'), "has a name of more than 255 bytes"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(why_no_tar_name(c.name), c.why) << c.name;
    }
    std::string deep = "a";
    while (deep.size() <= longest_tar_name) {
        deep += "/a";
    }
    EXPECT_EQ(why_no_tar_name(deep), "has a name of more than 1000 bytes");
    deep.resize(deep.size() - 2);
    EXPECT_EQ(why_no_tar_name(deep), "");
}

TEST(tar_name, together) {
    tar_names names;
    EXPECT_EQ(names.add("c/quillfence/from_blacklist", false), "");
    EXPECT_EQ(names.add("c/quillfence", true), "") << "a folder may follow what lies in it";
    EXPECT_EQ(names.add("c/quillfence", true), "is there twice");
    EXPECT_EQ(names.add("c/quillfence/from_blacklist", false), "is there twice");
    EXPECT_EQ(names.add("c/quillfence/From_Blacklist", false),
              "differs from \"c/quillfence/from_blacklist\" in letter case alone");
    EXPECT_EQ(names.add("C/x", false), "differs from \"c\" in letter case alone");
    EXPECT_EQ(names.add("c/quillfence/from_blacklist/x", false),
              "\"c/quillfence/from_blacklist\" is a file and a folder");
    EXPECT_EQ(names.add("c", false), "\"c\" is a file and a folder");
}

// --- bytes --------------------------------------------------------------------------------------

// A header as POSIX draws it.
TEST(tar_header, of_a_file) {
    const std::string bytes = tar_header_of({.name = "c/x", .size = 10, .time = 8});
    ASSERT_EQ(bytes.size(), 512u);
    const auto at = [&](size_t begin, size_t size) { return bytes.substr(begin, size); };
    EXPECT_EQ(at(0, 100), "c/x" + std::string(97, '\0'));
    EXPECT_EQ(at(100, 8), std::string("0000600\0", 8));
    EXPECT_EQ(at(108, 16), std::string("0000000\0"
                                       "0000000\0",
                                       16));
    EXPECT_EQ(at(124, 12), std::string("00000000012\0", 12));
    EXPECT_EQ(at(136, 12), std::string("00000000010\0", 12));
    EXPECT_EQ(at(156, 1), "0");
    EXPECT_EQ(at(157, 100), std::string(100, '\0'));
    EXPECT_EQ(at(257, 8), std::string("ustar\0"
                                      "00",
                                      8));
    EXPECT_EQ(at(265, 64), std::string(64, '\0'));
    unsigned sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        sum += static_cast<unsigned char>(i >= 148 && i < 156 ? ' ' : bytes[i]);
    }
    char checksum[9];
    std::snprintf(checksum, sizeof checksum, "%06o", sum);
    EXPECT_EQ(at(148, 8), std::string(checksum, 7) + " ");
}

TEST(tar_header, pax_only_where_needed) {
    const std::string deep = std::string(155, 'd') + "/" + std::string(100, 'f');
    EXPECT_EQ(tar_header_of({.name = deep}).size(), 512u) << "prefix and name are full";
    EXPECT_EQ(tar_header_of({.name = deep + "f"}).size(), 3 * 512u);
    EXPECT_EQ(tar_header_of({.name = std::string(101, 'f')}).size(), 3 * 512u);
    EXPECT_EQ(tar_header_of({.name = std::string(99, 'f'), .folder = true}).size(), 512u);
    EXPECT_EQ(tar_header_of({.name = std::string(100, 'f'), .folder = true}).size(), 3 * 512u);
    const std::string umlaut = tar_header_of({.name = "\xC3\xA4"});
    EXPECT_EQ(umlaut.substr(512, 12), std::string("11 path=\xC3\xA4\n\0", 12));
    const std::string large = tar_header_of({.name = "x", .size = uint64_t{1} << 33});
    EXPECT_EQ(large.substr(512, 20), std::string("19 size=8589934592\n\0", 20));
    EXPECT_EQ(tar_header_of({.name = "x", .size = (uint64_t{1} << 33) - 1}).size(), 512u);
}

TEST(tar_header, times_that_do_not_fit) {
    EXPECT_EQ(tar_header_of({.name = "x", .time = -1}).substr(136, 11), "00000000000");
    EXPECT_EQ(tar_header_of({.name = "x", .time = INT64_MAX}).substr(136, 11), "77777777777");
}

// --- archives -----------------------------------------------------------------------------------

struct packed {
    std::string name;
    std::string bytes;
    bool folder = false;
    int64_t time = 0;
    bool operator==(const packed &) const = default;
};

class tar_archive : public ::testing::Test {
  protected:
    tar_archive() : stream_(platform::stream_open("c:/quillfence/out.tar", "w+b")) {}

    std::string written() {
        std::string bytes(static_cast<size_t>(std::ftell(stream_.get())), '\0');
        std::rewind(stream_.get());
        EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), stream_.get()), bytes.size());
        return bytes;
    }

    std::string archive_of(const std::vector<packed> &entries) {
        std::rewind(stream_.get());
        tar_writer writer(stream_.get());
        for (const packed &entry : entries) {
            if (entry.folder) {
                writer.add_folder(entry.name, entry.time);
            } else {
                writer.add_file(entry.name, entry.bytes, entry.time);
            }
        }
        writer.finish();
        EXPECT_EQ(writer.problem(), "");
        return written();
    }

    // A source that delivers a few bytes fewer than a block at a time.
    static tar_source source_of(const std::string &bytes, size_t *at) {
        *at = 0;
        return [&bytes, at](void *to, size_t size, size_t *got) {
            *got = std::min(size, bytes.size() - *at);
            std::memcpy(to, bytes.data() + *at, *got);
            *at += *got;
            return 0u;
        };
    }

    // What the reader says of an archive; entries up to there.
    std::string problem_of(const std::string &bytes, std::vector<packed> *entries = nullptr,
                           const tar_limits &limits = {}) {
        size_t at = 0;
        tar_reader reader(source_of(bytes, &at), limits);
        for (tar_entry entry; reader.next(&entry);) {
            packed found{entry.name, "", entry.folder, entry.time};
            char piece[100];
            size_t got = 0;
            while (reader.read(piece, sizeof piece, &got) && got) {
                found.bytes.append(piece, got);
            }
            if (entries) {
                entries->push_back(found);
            }
        }
        return reader.problem();
    }

    testing::drive_c drive_;
    platform::stream_ptr stream_;
};

TEST_F(tar_archive, is_read_as_it_was_written) {
    const std::vector<packed> entries = {
        {"case.json", "{}", false, 1},
        {"c", "", true, 2},
        {"c/empty", "", false, 3},
        {"c/block", std::string(512, 'b'), false, 4},
        {"c/blocks", std::string(1025, 'c'), false, 5},
        {"c/Program Files/\xC3\xA4 \xE2\x82\xAC", "u", false, 6},
        {"c/" + std::string(200, 'l') + "/" + std::string(200, 'm'), "long", false, 7},
        {std::string(155, 'd') + "/" + std::string(99, 'f'), "", true, 8},
    };
    const std::string bytes = archive_of(entries);
    EXPECT_EQ(bytes.size() % 512, 0u);
    EXPECT_EQ(bytes.substr(bytes.size() - 1024), std::string(1024, '\0'));
    std::vector<packed> found;
    EXPECT_EQ(problem_of(bytes, &found), "");
    EXPECT_EQ(found, entries);
    EXPECT_EQ(archive_of(entries), bytes) << "nothing but the entries counts";
}

TEST_F(tar_archive, contents_may_be_passed_over) {
    const std::string bytes = archive_of({{"a", std::string(100'000, 'a')}, {"b", "bb"}});
    size_t at = 0;
    tar_reader reader(source_of(bytes, &at));
    tar_entry entry;
    EXPECT_TRUE(reader.next(&entry));
    EXPECT_TRUE(reader.next(&entry));
    EXPECT_EQ(entry, (tar_entry{.name = "b", .size = 2}));
    char byte = 0;
    size_t got = 0;
    EXPECT_TRUE(reader.read(&byte, 1, &got));
    EXPECT_EQ(byte, 'b');
    EXPECT_FALSE(reader.next(&entry));
    EXPECT_EQ(reader.problem(), "");
}

TEST_F(tar_archive, what_the_writer_refuses) {
    const struct {
        const char *want;
        std::function<void(tar_writer *)> write;
    } cases[] = {
        {"\"../x\": leads out of its folder with \"..\"",
         [](tar_writer *to) { to->add_file("../x", "", 0); }},
        {"\"x\": is there twice",
         [](tar_writer *to) {
             to->add_file("x", "1", 0);
             to->add_file("x", "2", 0);
         }},
        {"\"x\": is longer than it was",
         [](tar_writer *to) {
             to->begin_file("x", 1, 0);
             to->write("12", 2);
         }},
        {"\"x\": is shorter than it was",
         [](tar_writer *to) {
             to->begin_file("x", 2, 0);
             to->write("1", 1);
             to->end_file();
         }},
        {"\"x\": has 11 bytes, more than the 10 that a file may have",
         [](tar_writer *to) { to->begin_file("x", 11, 0); }},
        {"\"y\": makes it more than 15 bytes",
         [](tar_writer *to) {
             to->add_file("x", "1234567890", 0);
             to->add_file("y", "123456", 0);
         }},
        {"\"z\": is one more than 2 entries",
         [](tar_writer *to) {
             to->add_file("x", "", 0);
             to->add_folder("y", 0);
             to->add_file("z", "", 0);
         }},
    };
    for (const auto &c : cases) {
        std::rewind(stream_.get());
        tar_writer writer(stream_.get(), {.entries = 2, .file_size = 10, .total_size = 15});
        c.write(&writer);
        EXPECT_EQ(writer.problem(), c.want);
        const long end = std::ftell(stream_.get());
        writer.add_file("later", "", 0);
        writer.finish();
        EXPECT_EQ(std::ftell(stream_.get()), end) << "nothing is written behind a problem";
        EXPECT_EQ(writer.problem(), c.want);
    }
}

// One byte more or fewer at each place: the archive is refused, or it is the same.
TEST_F(tar_archive, cut_off_anywhere) {
    const std::string bytes = archive_of({{"a", std::string(600, 'a')}, {"b", "bb"}});
    for (size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_TRUE(problem_of(bytes.substr(0, size)).starts_with("is cut off in ")) << size;
    }
    EXPECT_EQ(problem_of(bytes.substr(0, 100)), "is cut off in its first entry");
    EXPECT_EQ(problem_of(bytes.substr(0, 600)), "is cut off in or behind \"a\"");
}

TEST_F(tar_archive, bytes_behind_the_end) {
    const std::string bytes = archive_of({{"a", "a"}});
    EXPECT_EQ(problem_of(bytes + std::string(9 * 512, '\0')), "") << "as GNU tar fills it up";
    EXPECT_EQ(problem_of(bytes + std::string(513, '\0')), "");
    EXPECT_EQ(problem_of(bytes + "x"), "has bytes behind its end");
    EXPECT_EQ(problem_of(bytes.substr(0, bytes.size() - 512) + bytes), "has bytes behind its end");
}

// Every other value of every byte of a header changes its sum, or makes it no header.
TEST_F(tar_archive, a_changed_byte_in_a_header) {
    const std::string bytes = archive_of({{"a", "a", false, 5}});
    for (size_t at = 0; at < 512; ++at) {
        std::string changed = bytes;
        changed[at] = static_cast<char>(changed[at] + 1);
        const std::string problem = problem_of(changed);
        EXPECT_TRUE(problem == "the first header: its checksum is wrong" ||
                    problem == "the first header: is no header of a tar file")
            << at << ": " << problem;
    }
}

// A header with other bytes in one place, and the sum that goes with them.
std::string with(std::string header, size_t at, const std::string &bytes) {
    header.replace(at, bytes.size(), bytes);
    header.replace(148, 8, "        ");
    unsigned sum = 0;
    for (size_t i = 0; i < 512; ++i) {
        sum += static_cast<unsigned char>(header[i]);
    }
    char text[9];
    std::snprintf(text, sizeof text, "%06o", sum);
    return header.replace(148, 8, std::string(text, 7) + " ");
}

TEST_F(tar_archive, kinds_and_numbers_that_are_refused) {
    const std::string file = archive_of({{"c/x", ""}});
    const struct {
        size_t at;
        std::string bytes;
        const char *want;
    } cases[] = {
        {156, "1", "\"c/x\": is a hard link"},
        {156, "2", "\"c/x\": is a link"},
        {156, "3", "\"c/x\": is a device"},
        {156, "4", "\"c/x\": is a device"},
        {156, "6", "\"c/x\": is a pipe"},
        {156, "7", "\"c/x\": is neither a file nor a folder"},
        {156, "S", "\"c/x\": is a sparse file"},
        {156, "M", "\"c/x\": is neither a file nor a folder"},
        {156, std::string(1, '\0'), ""},
        {124, "0000000000x", "\"c/x\": its size is no number"},
        {124, "00000000008", "\"c/x\": its size is no number"},
        {124, "           ", "\"c/x\": its size is no number"},
        {124, "-0000000001", "\"c/x\": its size is no number"},
        {124, "0 000000000", "\"c/x\": its size is no number"},
        {124, std::string(12, '\0'), "\"c/x\": its size is no number"},
        {124, std::string("\x80\0\0\0\0\0\0\0\0\0\0\1", 12),
         "\"c/x\": its size is a binary number, which is not read here"},
        {136, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE",
         "\"c/x\": its time is a binary number, which is not read here"},
        {136, "later      ", "\"c/x\": its time is no number"},
        {124, "          0", ""},
        {0, "c/x/", "\"c/x/\": has a folder without a name"},
        {0, "/c/x", "\"/c/x\": has an absolute name"},
        {345, "..", "\"../c/x\": leads out of its folder with \"..\""},
        {0, std::string(3, '\0'), "\"\": has no name"},
        {265, "somebody", ""},
        {108, "garbage", ""}, // whose it is does not matter
    };
    for (const auto &c : cases) {
        EXPECT_EQ(problem_of(with(file.substr(0, 512), c.at, c.bytes) + file.substr(512)), c.want);
    }
}

TEST_F(tar_archive, sizes_above_the_limits) {
    const std::string bytes = archive_of({{"a", std::string(600, 'a')}, {"b", "bb"}});
    EXPECT_EQ(problem_of(bytes, nullptr, {.file_size = 599}),
              "\"a\": has 600 bytes, more than the 599 that a file may have");
    EXPECT_EQ(problem_of(bytes, nullptr, {.total_size = 601}),
              "\"b\": makes it more than 601 bytes");
    EXPECT_EQ(problem_of(bytes, nullptr, {.entries = 1}), "\"b\": is one more than 1 entries");
    EXPECT_EQ(problem_of(bytes, nullptr, {.entries = 2, .file_size = 600, .total_size = 602}), "");
    // A size that nothing stands behind costs nothing.
    const std::string huge = with(bytes.substr(0, 512), 124, "77777777777");
    std::vector<packed> entries;
    EXPECT_EQ(problem_of(huge, &entries), "is cut off in or behind \"a\"");
}

std::string extension(char type, const std::string &text, const std::string &name = "x") {
    const std::string header = tar_header_of({.name = name, .size = text.size()});
    return with(header, 156, std::string(1, type)) + text +
           std::string(tar_padding(text.size()), '\0');
}

TEST_F(tar_archive, extended_headers) {
    const std::string file = archive_of({{"c/x", "1"}});
    const struct {
        std::string in_front;
        const char *want;
        const char *name = "";
    } cases[] = {
        {extension('x', "12 path=c/y\n"), "", "c/y"},
        {extension('x', "12 mtime=1.5\n13 SCHILY.x=y\n"), "\"x\": its extended header is damaged"},
        {extension('x', "13 mtime=1.5\n14 SCHILY.x=y\n"), "", "c/x"},
        {extension('g', "14 comment=no\n"), "", "c/x"},
        {extension('L', std::string("c/y\0", 4)), "", "c/y"},
        {extension('x', "12 path=../y\n"), "\"x\": its extended header is damaged"},
        {extension('x', "13 path=../y\n"), "\"../y\": leads out of its folder with \"..\""},
        {extension('x', "13 path=/c/y\n"), "\"/c/y\": has an absolute name"},
        {extension('L', "../y"), "\"../y\": leads out of its folder with \"..\""},
        {extension('g', "12 path=c/y\n"), "\"x\": gives all entries one name or size"},
        {extension('x', "9 size=x\n"), "\"x\": its size is no number"},
        {extension('x', "29 size=99999999999999999999\n"), "\"x\": its size is no number"},
        {extension('x', "26 GNU.sparse.realsize=99\n"), "\"x\": is a sparse file"},
        {extension('x', "path=c/y\n"), "\"x\": its extended header is damaged"},
        {extension('x', "999 path=c/y\n"), "\"x\": its extended header is damaged"},
        {extension('x', "0 path=c/y\n"), "\"x\": its extended header is damaged"},
        {extension('x', "12 path=c/y"), "\"x\": its extended header is damaged"},
        {extension('x', "12 pathc/y.\n"), "\"x\": its extended header is damaged"},
        {extension('x', std::string("13 path=c/\0y\n", 13)),
         "\"c/\\x00y\": has a control character in its name"},
        {extension('x', "12 path=c/y\n") + extension('x', "12 path=c/z\n"),
         "\"x\": is a second extended header in a row"},
        {extension('K', "c/z"), "\"x\": is a link"},
        {extension('L', std::string(70'000, 'a')),
         "\"x\": is an extended header of 70000 bytes, which is too long"},
    };
    for (const auto &c : cases) {
        std::vector<packed> entries;
        EXPECT_EQ(problem_of(c.in_front + file, &entries), c.want);
        if (!*c.want) {
            EXPECT_EQ(entries, (std::vector<packed>{{c.name, "1"}}));
        }
    }
    EXPECT_EQ(problem_of(extension('x', "12 path=c/y\n") + std::string(1024, '\0')),
              "ends behind an extended header");
}

// GNU's headers have times where ustar has the name's beginning.
TEST_F(tar_archive, a_gnu_header_has_no_prefix) {
    const std::string file = archive_of({{"c/x", "1"}});
    std::string header = with(file.substr(0, 512), 257, std::string("ustar  \0", 8));
    header = with(header, 345, "14000000000");
    std::vector<packed> entries;
    EXPECT_EQ(problem_of(header + file.substr(512), &entries), "");
    EXPECT_EQ(entries, (std::vector<packed>{{"c/x", "1"}}));
}

TEST_F(tar_archive, a_dot_in_front_is_dropped) {
    const std::string file = archive_of({{"c/x", "1"}});
    std::string dot = with(tar_header_of({.name = "x", .folder = true}), 0, std::string("./\0", 3));
    std::vector<packed> entries;
    EXPECT_EQ(problem_of(dot + with(file.substr(0, 512), 0, "./c/x") + file.substr(512), &entries),
              "");
    EXPECT_EQ(entries, (std::vector<packed>{{"c/x", "1"}}));
    EXPECT_EQ(problem_of(with(file.substr(0, 512), 0, "././c/x") + file.substr(512)),
              "\"./c/x\": has \".\" for a folder");
}

TEST_F(tar_archive, a_source_that_fails) {
    tar_reader reader([](void *, size_t, size_t *) { return 5u; });
    tar_entry entry;
    EXPECT_FALSE(reader.next(&entry));
    EXPECT_EQ(reader.problem(), "can't be read: Permission denied");
    EXPECT_FALSE(reader.next(&entry));
}

} // namespace
} // namespace quillfence::decision
