#include "block_map.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "address_set.h"
#include "address_text.h"
#include "drive_c.h"
#include "lookup.h"

namespace quillfence::data_tool {
namespace {

using kind = address_line::kind;

uint32_t address(const std::string &text) {
    return parse_address(text).value_or(0);
}

std::string map_of(const address_set &addresses, map_size *size = nullptr) {
    std::string bytes;
    const map_size written = write_block_map(addresses, [&](const void *piece, size_t count) {
        bytes.append(static_cast<const char *>(piece), count);
    });
    if (size) {
        *size = written;
    }
    return bytes;
}

std::string map_of_lines(const std::vector<std::string> &lines, map_size *size = nullptr) {
    address_set addresses;
    for (const std::string &text : lines) {
        const address_line line = read_address_line(text);
        EXPECT_TRUE(line.is == kind::range) << text << ": " << line.problem;
        addresses.add(line.range.first, line.range.last);
    }
    return map_of(addresses, size);
}

// --- Text ---

TEST(address_line, ranges) {
    const struct {
        const char *line;
        const char *first;
        const char *last;
    } cases[] = {
        {"192.0.2.1", "192.0.2.1", "192.0.2.1"},
        {"  192.0.2.1\t# bad", "192.0.2.1", "192.0.2.1"},
        {"192.0.2.1;bad", "192.0.2.1", "192.0.2.1"},
        {"10.0.0.0/8", "10.0.0.0", "10.255.255.255"},
        {"10.1.2.3/32", "10.1.2.3", "10.1.2.3"},
        {"0.0.0.0/0", "0.0.0.0", "255.255.255.255"},
        {"128.0.0.0/1", "128.0.0.0", "255.255.255.255"},
        {"10.0.0.9-10.0.1.3", "10.0.0.9", "10.0.1.3"},
        {"10.0.0.9 - 10.0.0.9", "10.0.0.9", "10.0.0.9"},
        {"10.0.0.8 / 31", "10.0.0.8", "10.0.0.9"},
    };
    for (const auto &c : cases) {
        const address_line got = read_address_line(c.line);
        EXPECT_TRUE(got.is == kind::range) << c.line << ": " << got.problem;
        EXPECT_EQ(address_text(got.range.first), c.first) << c.line;
        EXPECT_EQ(address_text(got.range.last), c.last) << c.line;
    }
}

TEST(address_line, nothing_and_wrong_lines) {
    for (const char *line : {"", "  ", "# 10.0.0.1", ";", "\t#"}) {
        EXPECT_TRUE(read_address_line(line).is == kind::nothing) << line;
    }
    const std::string help = " is no IPv4 address; write four numbers from 0 to 255, as in "
                             "192.0.2.1";
    const struct {
        const char *line;
        std::string want;
    } cases[] = {
        {"10.0.0", "\"10.0.0\"" + help},
        {"10.0.0.0.0", "\"10.0.0.0.0\"" + help},
        {"10.0.0.256", "\"10.0.0.256\"" + help},
        {"10.0.0.01", "\"10.0.0.01\"" + help},
        {"10.0.0.", "\"10.0.0.\"" + help},
        {"+1.0.0.0", "\"+1.0.0.0\"" + help},
        {"10.0. 0.1", "\"10.0. 0.1\"" + help},
        {"10.0.0.1 10.0.0.2", "\"10.0.0.1 10.0.0.2\"" + help},
        {"::1", "\"::1\"" + help},
        {"4294967296.0.0.1", "\"4294967296.0.0.1\"" + help},
        {"-10.0.0.1", "\"\"" + help},
        {"10.0.0.1-", "\"\"" + help},
        {"x/8", "\"x\"" + help},
        {"10.0.0.0/33", "\"/33\" is no prefix length; write a number from 0 to 32"},
        {"10.0.0.0/", "\"/\" is no prefix length; write a number from 0 to 32"},
        {"10.0.0.0/08", "\"/08\" is no prefix length; write a number from 0 to 32"},
        {"10.1.2.3/8", "10.1.2.3/8 has bits behind its prefix; write 10.0.0.0/8 for the network, "
                       "or 10.1.2.3 for the address"},
        {"10.0.0.2-10.0.0.1", "the range ends before it begins; write 10.0.0.1-10.0.0.2"},
    };
    for (const auto &c : cases) {
        const address_line got = read_address_line(c.line);
        EXPECT_TRUE(got.is == kind::wrong) << c.line;
        EXPECT_EQ(got.problem, c.want) << c.line;
    }
}

TEST(for_each_network, the_fewest) {
    const struct {
        const char *first;
        const char *last;
        std::vector<std::string> want;
    } cases[] = {
        {"10.0.0.0", "10.255.255.255", {"10.0.0.0/8"}},
        {"0.0.0.0", "255.255.255.255", {"0.0.0.0/0"}},
        {"0.0.0.0", "0.0.0.0", {"0.0.0.0"}},
        {"255.255.255.255", "255.255.255.255", {"255.255.255.255"}},
        {"255.255.255.254", "255.255.255.255", {"255.255.255.254/31"}},
        {"10.0.0.1", "10.0.0.8", {"10.0.0.1", "10.0.0.2/31", "10.0.0.4/30", "10.0.0.8"}},
        {"9.255.255.255", "10.1.0.0", {"9.255.255.255", "10.0.0.0/16", "10.1.0.0"}},
    };
    for (const auto &c : cases) {
        std::vector<std::string> got;
        for_each_network({address(c.first), address(c.last)}, [&](uint32_t at, unsigned prefix) {
            got.push_back(network_text(at, prefix));
        });
        EXPECT_EQ(got, c.want) << c.first << " to " << c.last;
    }
}

// --- Writing ---

void put(std::string *bytes, size_t at, const std::vector<int> &values) {
    for (const int value : values) {
        (*bytes)[at++] = static_cast<char>(value);
    }
}

TEST(write_block_map, the_sample_of_the_format_page) {
    std::string want(10240, '\0');
    put(&want, 0x28, {0xff, 0xff, 0xff, 0xff, 0x00, 0x04});
    put(&want, 0x400, {0xff, 0xff, 0xff, 0xff, 0x00, 0x08});
    put(&want, 0x800, {0xa0, 0x40});
    EXPECT_TRUE(map_of_lines({"10.0.0.0/8", "11.0.0.0/16", "11.1.0.0", "11.1.0.2", "11.1.0.9"}) ==
                want);
}

TEST(write_block_map, sizes) {
    const struct {
        const char *name;
        std::vector<std::string> lines;
        map_size want;
    } cases[] = {
        {"nothing", {}, {0, 0, 1024, 0}},
        {"everything", {"0.0.0.0/0"}, {0, 0, 1024, uint64_t{1} << 32}},
        {"a /8 of its two halves", {"10.128.0.0/9", "10.0.0.0/9"}, {0, 0, 1024, 1 << 24}},
        {"a /16 of single stretches",
         {"10.0.0.0/17", "10.0.128.0/18", "10.0.192.0-10.0.255.254", "10.0.255.255"},
         {1, 0, 2048, 65536}},
        {"equal /16s share their bitmap", {"10.1.0.1", "10.2.0.1"}, {1, 1, 10240, 2}},
        {"equal /8s share their table", {"10.1.0.1", "11.1.0.1"}, {1, 1, 10240, 2}},
        {"others do not", {"10.1.0.1", "11.1.0.2"}, {2, 2, 19456, 2}},
        {"twice the same", {"10.1.0.1", "10.1.0.1", "10.1.0.0/30"}, {1, 1, 10240, 4}},
    };
    for (const auto &c : cases) {
        map_size got = {};
        const std::string bytes = map_of_lines(c.lines, &got);
        EXPECT_EQ(got.tables, c.want.tables) << c.name;
        EXPECT_EQ(got.bitmaps, c.want.bitmaps) << c.name;
        EXPECT_EQ(got.bytes, c.want.bytes) << c.name;
        EXPECT_EQ(got.addresses, c.want.addresses) << c.name;
        EXPECT_EQ(bytes.size(), c.want.bytes) << c.name;
    }
}

// A /16 changes from a list to a bitmap on its way; whatever the way, the set is the same.
TEST(address_set, the_order_and_the_pieces_do_not_matter) {
    std::mt19937 random(3);
    std::vector<uint32_t> addresses;
    for (uint32_t i = 0; i < 6000; ++i) {
        addresses.push_back(0x0A000000 + i * 7);
    }
    std::string first;
    for (int round = 0; round < 3; ++round) {
        address_set set;
        for (const uint32_t at : addresses) {
            set.add(at, at);
        }
        for (const uint32_t at : addresses) { // a second time
            set.add(at, at);
        }
        const std::string bytes = map_of(set);
        first = first.empty() ? bytes : first;
        EXPECT_TRUE(bytes == first) << "round " << round;
        std::shuffle(addresses.begin(), addresses.end(), random);
    }
}

// --- Through the engine ---

constexpr char path[] = "c:/quillfence/map.bms";

class map_test : public testing::drive_test {
  protected:
    bool engine_lists(uint32_t ip) {
        const uint8_t octets[] = {static_cast<uint8_t>(ip >> 24), static_cast<uint8_t>(ip >> 16),
                                  static_cast<uint8_t>(ip >> 8), static_cast<uint8_t>(ip)};
        uint32_t in_network_order;
        std::memcpy(&in_network_order, octets, sizeof octets);
        return lookupMapFile(path, in_network_order) != 0;
    }

    // Everything that the file lists, and what is wrong with it.
    std::vector<std::string> walked() {
        std::vector<std::string> text;
        block_map(path).walk(
            [&](address_range range) {
                text.push_back(address_text(range.first) + "-" + address_text(range.last));
            },
            [&](const std::string &damage) { text.push_back(damage); });
        return text;
    }
};

TEST_F(map_test, random_sets_are_looked_up_and_come_back) {
    std::mt19937 random(4);
    for (int round = 0; round < 12; ++round) {
        address_set set;
        std::map<uint32_t, uint32_t> ranges; // joined: first to last
        std::vector<uint32_t> edges = {0, 0xFFFFFFFF};
        for (int i = 0; i < 60; ++i) {
            const uint32_t length =
                (random() % 2 ? 0 : static_cast<uint32_t>(random()) >> (6 + random() % 26));
            const uint32_t near =
                random() % 3 ? 0x0A000000 + random() % 0x200000 : static_cast<uint32_t>(random());
            const uint32_t last = near + std::min(length, 0xFFFFFFFF - near);
            set.add(near, last);
            ranges[near] = std::max(ranges[near], last);
            for (const uint32_t edge : {near - 1, near, near + 1, last - 1, last, last + 1}) {
                edges.push_back(edge);
            }
        }
        const auto listed = [&](uint32_t ip) {
            return std::any_of(ranges.begin(), ranges.end(), [=](const auto &range) {
                return range.first <= ip && ip <= range.second;
            });
        };
        const std::string bytes = map_of(set);
        drive.write(path, bytes);
        block_map map(path);
        for (int i = 0; i < 300; ++i) {
            edges.push_back(i % 2 ? static_cast<uint32_t>(random())
                                  : 0x0A000000 + random() % 0x200000);
        }
        for (const uint32_t ip : edges) {
            ASSERT_EQ(engine_lists(ip), listed(ip)) << address_text(ip);
            ASSERT_EQ(map.ask(ip).listed, listed(ip)) << address_text(ip);
        }
        address_set again;
        map.walk(
            [&](address_range range) {
                for_each_network(range, [&](uint32_t at, unsigned prefix) {
                    const address_line line = read_address_line(network_text(at, prefix));
                    ASSERT_TRUE(line.is == kind::range);
                    again.add(line.range.first, line.range.last);
                });
            },
            [](const std::string &damage) { ADD_FAILURE() << damage; });
        ASSERT_TRUE(map_of(again) == bytes) << "round " << round;
    }
}

TEST_F(map_test, stretches_are_joined_across_all_levels) {
    drive.write(path, map_of_lines({"9.255.255.255", "10.0.0.0/8", "11.0.0.0/16",
                                    "11.1.0.0-11.1.0.20", "255.255.255.255"}));
    EXPECT_EQ(walked(),
              (testing::lines{"9.255.255.255-11.1.0.20", "255.255.255.255-255.255.255.255"}));
}

TEST_F(map_test, the_level_that_decides) {
    drive.write(path, map_of_lines({"10.0.0.0/8", "11.0.0.0/16", "11.1.0.1", "11.3.0.8-11.3.0.15",
                                    "11.3.128.0/17"}));
    const struct {
        const char *ip;
        bool listed;
        int level;
        unsigned prefix;
    } cases[] = {
        {"10.1.2.3", true, 1, 8},   {"12.0.0.0", false, 1, 8},     {"11.0.255.255", true, 2, 16},
        {"11.2.0.0", false, 2, 16}, {"11.1.0.1", true, 3, 32},     {"11.1.0.2", false, 3, 31},
        {"11.1.0.0", false, 3, 32}, {"11.1.128.7", false, 3, 17},  {"11.1.64.20", false, 3, 18},
        {"11.3.0.9", true, 3, 29},  {"11.3.255.255", true, 3, 17}, {"11.3.0.16", false, 3, 28},
    };
    block_map map(path);
    for (const auto &c : cases) {
        const map_answer got = map.ask(address(c.ip));
        EXPECT_EQ(got.listed, c.listed) << c.ip;
        EXPECT_EQ(got.level, c.level) << c.ip;
        EXPECT_EQ(got.prefix, c.prefix) << c.ip;
        EXPECT_EQ(got.damage, "") << c.ip;
    }
}

TEST_F(map_test, damage_lists_nothing_and_is_told) {
    const std::string whole = map_of_lines({"10.0.0.0/8", "11.0.0.0/16", "11.1.0.0/32"});
    std::string far = whole;
    put(&far, 11 * 4, {0xfe, 0xff, 0xff, 0xff});
    const struct {
        const char *name;
        std::string bytes;
        testing::lines want;
    } cases[] = {
        {"whole", whole, {"10.0.0.0-11.1.0.0"}},
        {"the bitmap cut short",
         whole.substr(0, 10239),
         {"the entry of 11.1.0.0/16 points to offset 2048, and the 8192 bytes that should be "
          "there end behind the file's 10239",
          "10.0.0.0-11.0.255.255"}},
        {"the table cut short",
         whole.substr(0, 2047),
         {"the entry of 11.0.0.0/8 points to offset 1024, and the 1024 bytes that should be there "
          "end behind the file's 2047",
          "10.0.0.0-10.255.255.255"}},
        {"a wild entry",
         far,
         {"the entry of 11.0.0.0/8 points to offset 4294967294, and the 1024 bytes that should be "
          "there end behind the file's 10240",
          "10.0.0.0-10.255.255.255"}},
        {"level 1 cut short",
         whole.substr(0, 43),
         {"the file ends after 43 bytes, inside the table of level 1"}},
        {"empty", "", {"the file ends after 0 bytes, inside the table of level 1"}},
    };
    for (const auto &c : cases) {
        drive.write(path, c.bytes);
        EXPECT_EQ(walked(), c.want) << c.name;
        block_map map(path);
        for (const char *ip : {"10.1.2.3", "11.0.0.1", "11.1.0.0", "11.1.0.1"}) {
            EXPECT_EQ(map.ask(address(ip)).listed, engine_lists(address(ip))) << c.name << ip;
        }
        log.errors(); // "corrupt BMS file", which the engine's own tests count
    }
}

} // namespace
} // namespace quillfence::data_tool
