#include "lookup.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"

namespace quillfence::testing {
namespace {

constexpr char dir[] = "c:/quillfence/bms";
constexpr char path[] = "c:/quillfence/bms/map";

std::string little_endian(uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        bytes += static_cast<char>(value >> 8 * i & 255);
    }
    return bytes;
}

void put_entry(std::string *map, size_t at, uint32_t value) {
    map->replace(at, 4, little_endian(value));
}

// Network byte order.
uint32_t address(int a, int b, int c, int d) {
    const unsigned char bytes[] = {static_cast<unsigned char>(a), static_cast<unsigned char>(b),
                                   static_cast<unsigned char>(c), static_cast<unsigned char>(d)};
    uint32_t value = 0;
    std::memcpy(&value, bytes, 4);
    return value;
}

constexpr uint32_t all = 0xFFFFFFFF;

// 10.1.0.0 and nothing else: one table, one bitmap.
std::string small_map() {
    std::string map(1024 + 1024 + 8192, '\0');
    put_entry(&map, 10 * 4, 1024);
    put_entry(&map, 1024 + 1 * 4, 2048);
    map[2048] = '\x80';
    return map;
}

class map_test : public drive_test {
  protected:
    int lookup(const std::string &bytes, uint32_t ip) {
        drive.write(path, bytes);
        return lookupMapFile(path, ip);
    }
};

TEST_F(map_test, levels) {
    std::string none(1024, '\0');
    std::string eight = none;
    put_entry(&eight, 10 * 4, all);
    std::string sixteen(2048, '\0');
    put_entry(&sixteen, 10 * 4, 1024);
    put_entry(&sixteen, 1024 + 2 * 4, all);
    const struct {
        const char *name;
        std::string map;
        uint32_t ip;
        int want;
    } cases[] = {
        {"nothing listed", none, address(10, 1, 2, 3), 0},
        {"a whole /8", eight, address(10, 1, 2, 3), 1},
        {"beside the /8", eight, address(11, 1, 2, 3), 0},
        {"a whole /16", sixteen, address(10, 2, 255, 255), 1},
        {"beside the /16", sixteen, address(10, 3, 0, 0), 0},
        {"one address", small_map(), address(10, 1, 0, 0), 1},
        {"beside the address", small_map(), address(10, 1, 0, 1), 0},
        {"the first octet is the first byte", small_map(), address(0, 0, 1, 10), 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(lookup(c.map, c.ip), c.want) << c.name;
    }
}

TEST_F(map_test, bits_are_numbered_from_the_most_significant) {
    for (int d = 0; d < 256; ++d) {
        for (const int c : {0, 1, 255}) {
            std::string map = small_map();
            map[2048] = '\0';
            const int bit = c * 256 + d;
            map[2048 + static_cast<size_t>(bit / 8)] = static_cast<char>(0x80 >> bit % 8);
            ASSERT_EQ(lookup(map, address(10, 1, c, d)), 1) << c << "." << d;
            ASSERT_EQ(lookup(map, address(10, 1, c, (d + 1) % 256)), 0) << c << "." << d;
        }
        if (d > 8) {
            d += 40;
        }
    }
    for (uint32_t n = 0; n < 8; ++n) {
        EXPECT_EQ(__bitIsSet(static_cast<uint8_t>(0x80 >> n), n), 1);
        EXPECT_EQ(__bitIsSet(static_cast<uint8_t>(~(0x80 >> n)), n), 0);
    }
    EXPECT_EQ(__bitIsSet(0xFF, 8), 0);
    EXPECT_EQ(__bitIsSet(0xFF, 0xFFFFFFFF), 0);
}

// The sample of the format page: 10.0.0.0/8, 11.0.0.0/16 and 11.1.0.0, .2 and 11.1.0.9.
TEST_F(map_test, reads_the_sample_of_the_format_page) {
    std::string map(1024 + 1024 + 8192, '\0');
    map.replace(0x28, 8, "\xFF\xFF\xFF\xFF\x00\x04\x00\x00", 8);
    map.replace(0x400, 8, "\xFF\xFF\xFF\xFF\x00\x08\x00\x00", 8);
    map.replace(0x800, 2, "\xA0\x40", 2);
    drive.write(path, map);
    static const struct {
        int a, b, c, d, want;
    } cases[] = {
        {10, 9, 9, 9, 1}, {9, 9, 9, 9, 0},  {11, 0, 7, 7, 1}, {11, 2, 0, 0, 0}, {11, 1, 0, 0, 1},
        {11, 1, 0, 1, 0}, {11, 1, 0, 2, 1}, {11, 1, 0, 9, 1}, {11, 1, 0, 8, 0}, {11, 1, 1, 0, 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(lookupMapFile(path, address(c.a, c.b, c.c, c.d)), c.want)
            << c.a << "." << c.b << "." << c.c << "." << c.d;
    }
}

TEST_F(map_test, corrupt_maps) {
    const auto with_level1 = [](uint32_t value, size_t size) {
        std::string map(size, '\0');
        put_entry(&map, 10 * 4, value);
        return map;
    };
    const auto with_level2 = [](uint32_t value, size_t size) {
        std::string map(size, '\0');
        put_entry(&map, 10 * 4, 1024);
        put_entry(&map, 1024 + 1 * 4, value);
        return map;
    };
    static const lines corrupt{"lookupMap: corrupt BMS file"};
    const struct {
        const char *name;
        std::string map;
        int want;
        lines want_errors;
    } cases[] = {
        {"empty file", "", 0, {}},
        {"cut before the entry", std::string(40, '\0'), 0, {}},
        {"cut inside the entry", std::string(43, '\xFF'), 0, {}},
        {"the entry is enough when it decides", std::string(44, '\xFF'), 1, {}},
        {"an entry of a short file that does not decide", std::string(44, '\x01'), 0, corrupt},
        {"level 2 at the last possible place", with_level1(1024, 2048), 0, {}},
        {"level 2 one byte further", with_level1(1025, 2048), 0, corrupt},
        {"level 2 in the last 1023 bytes", with_level1(2047, 2048), 0, corrupt},
        {"level 2 behind the end", with_level1(2048, 2048), 0, corrupt},
        {"level 2 far behind the end", with_level1(0xFFFFFFFE, 2048), 0, corrupt},
        {"level 2 on top of level 1", with_level1(1, 1025), 0, {}},
        {"bitmap at the last possible place", with_level2(2048, 10240), 0, {}},
        {"bitmap one byte further", with_level2(2049, 10240), 0, corrupt},
        {"bitmap in a file without room for one", with_level2(1, 2048), 0, corrupt},
        {"bitmap far behind the end", with_level2(0x80000000, 10240), 0, corrupt},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(lookup(c.map, address(10, 1, 2, 3)), c.want) << c.name;
        EXPECT_EQ(log.errors(), c.want_errors) << c.name;
    }
}

TEST_F(map_test, cut_at_every_byte) {
    std::string map = small_map();
    for (size_t size = 0; size <= map.size(); size += size < 60 || size > 10200 ? 1 : 183) {
        const int want = size == map.size();
        EXPECT_EQ(lookup(map.substr(0, size), address(10, 1, 0, 0)), want) << size;
        const lines errors = log.errors();
        EXPECT_EQ(errors, size < 44 || want ? lines{} : lines{"lookupMap: corrupt BMS file"})
            << size;
    }
}

TEST_F(map_test, flipped_at_every_byte) {
    const std::string map = small_map();
    drive.write(path, map);
    const vc_handle file = vc_open_ex(path, 0, 1, 0);
    const auto put = [&](size_t at, int byte) {
        const char c = static_cast<char>(byte);
        ASSERT_TRUE(vc_seek(file, static_cast<int32_t>(at), 0) && vc_write(file, &c, 1));
    };
    for (size_t at = 0; at < map.size(); ++at) {
        put(at, ~map[at]);
        // A changed entry points to zeros (the lowest byte of level 1: there is room for a table at
        // 0x04FF) or too far; the bitmap's first byte holds the bit.
        const bool level1 = at >= 40 && at < 44;
        const bool level2 = at >= 1028 && at < 1032;
        const bool too_far = (level1 && at != 40) || level2;
        ASSERT_EQ(lookupMap(file, address(10, 1, 0, 0)), !level1 && !level2 && at != 2048) << at;
        ASSERT_EQ(log.errors(), too_far ? lines{"lookupMap: corrupt BMS file"} : lines{}) << at;
        put(at, map[at]);
    }
    vc_close(file);
}

// --- maps against a set of addresses ---

// Builds a map of a set of addresses (host order) by the layout; full /8 and /16 become entries.
std::string map_of(const std::set<uint32_t> &addresses, const std::set<uint32_t> &full_16) {
    std::string map(1024, '\0');
    std::map<uint32_t, size_t> tables;
    std::map<uint32_t, size_t> bitmaps;
    const auto table_for = [&](uint32_t a) {
        if (!tables.contains(a)) {
            tables[a] = map.size();
            put_entry(&map, a * 4, static_cast<uint32_t>(map.size()));
            map.append(1024, '\0');
        }
        return tables[a];
    };
    for (const uint32_t prefix : full_16) {
        put_entry(&map, table_for(prefix >> 8) + (prefix & 255) * 4, all);
    }
    for (const uint32_t ip : addresses) {
        const uint32_t prefix = ip >> 16;
        if (full_16.contains(prefix)) {
            continue;
        }
        if (!bitmaps.contains(prefix)) {
            const size_t table = table_for(prefix >> 8);
            bitmaps[prefix] = map.size();
            put_entry(&map, table + (prefix & 255) * 4, static_cast<uint32_t>(map.size()));
            map.append(8192, '\0');
        }
        const uint32_t index = ip & 0xFFFF;
        char &byte = map[bitmaps[prefix] + index / 8];
        byte = static_cast<char>(byte | 0x80 >> index % 8);
    }
    return map;
}

TEST_F(map_test, agrees_with_a_set_of_addresses) {
    std::mt19937 engine(7);
    const auto random = [&] { return static_cast<uint32_t>(engine()); };
    for (int round = 0; round < 6; ++round) {
        std::set<uint32_t> addresses;
        std::set<uint32_t> full_16;
        for (int i = 0; i < 400; ++i) {
            const uint32_t near = (random() % 3 + 10) << 24 | (random() % 3) << 16;
            addresses.insert(near | random() % 600);
        }
        full_16.insert(11 << 8 | random() % 4);
        drive.write(path, map_of(addresses, full_16));
        const vc_handle file = vc_open_ex(path, 0, 0, 0);
        for (int i = 0; i < 4000; ++i) {
            const uint32_t ip = (random() % 5 + 9) << 24 | (random() % 5) << 16 | random() % 700;
            const int want = addresses.contains(ip) || full_16.contains(ip >> 16);
            const auto octet = [&](int shift) { return static_cast<int>(ip >> shift & 255); };
            ASSERT_EQ(lookupMap(file, address(octet(24), octet(16), octet(8), octet(0))), want)
                << octet(24) << "." << octet(16) << "." << octet(8) << "." << octet(0);
        }
        vc_close(file);
    }
}

// --- arguments and single reads ---

TEST_F(map_test, read_bytes_wants_exactly_its_length) {
    drive.write(path, "0123456789");
    const vc_handle file = vc_open_ex(path, 0, 0, 0);
    char buffer[5] = "....";
    EXPECT_EQ(__readBytes(file, 3, buffer, 4), 1);
    EXPECT_EQ(std::string(buffer, 4), "3456");
    EXPECT_EQ(__readBytes(file, 6, buffer, 4), 1);
    EXPECT_EQ(std::string(buffer, 4), "6789");
    EXPECT_EQ(__readBytes(file, 7, buffer, 4), 0);
    EXPECT_EQ(std::string(buffer, 4), std::string("789\0", 4)) << "the buffer was zeroed";
    EXPECT_EQ(__readBytes(file, 100, buffer, 1), 0);
    EXPECT_EQ(__readBytes(file, 0, nullptr, 4), 0);
    EXPECT_EQ(__readBytes(file, 0, buffer, 0), 0);
    EXPECT_EQ(__readBytes(vc_invalid_handle, 0, buffer, 4), 0);
    EXPECT_EQ(log.errors(), lines(3, "__readBytes: Invalid argument"));
    vc_close(file);
}

TEST_F(map_test, bad_arguments) {
    EXPECT_EQ(lookupMap(vc_invalid_handle, address(10, 0, 0, 1)), 0);
    EXPECT_EQ(log.errors(), lines{"lookupMap: invalid file handle"});
    EXPECT_EQ(lookupMapFile(nullptr, address(10, 0, 0, 1)), 0);
    EXPECT_EQ(log.errors(), lines{"lookupMapFile: Invalid argument"});
    EXPECT_EQ(lookupMapFile(path, address(10, 0, 0, 1)), 0) << "a missing file, silently";
    EXPECT_FALSE(drive.exists(path));
}

TEST_F(map_test, failed_reads_list_nothing) {
    drive.write(path, small_map());
    for (int n = 1; n <= 3; ++n) {
        call_watch calls;
        calls.fail("file_read", n, 1117);
        EXPECT_EQ(lookupMapFile(path, address(10, 1, 0, 0)), 0);
        EXPECT_EQ(log.errors(),
                  lines{"vc_read_nonblock: fatal error on read (w32) got error code 1117"});
    }
    call_watch calls;
    calls.fail("file_open", 1, 5);
    EXPECT_EQ(lookupMapFile(path, address(10, 1, 0, 0)), 0);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 5"});
}

TEST_F(map_test, at_most_three_reads) {
    drive.write(path, small_map());
    EXPECT_EQ(lookupMapFile(path, address(10, 1, 0, 0)), 1); // VERBOSEDEBUG is looked up
    call_watch calls;
    EXPECT_EQ(lookupMapFile(path, address(10, 1, 0, 0)), 1);
    EXPECT_EQ(calls.take(),
              (lines{"path_attributes", "file_open", "file_size", "file_seek", "file_read",
                     "file_seek", "file_read", "file_seek", "file_read", "file_close"}));
    EXPECT_EQ(lookupMapFile(path, address(9, 1, 0, 0)), 0);
    EXPECT_EQ(calls.count("file_read"), 1) << "level 1 decides";
}

// --- lookupMaps ---

class maps_test : public traced_drive_test {
  protected:
    ~maps_test() override {
        vc_destroy_list(&maps, std::free);
        vc_destroy_list(&hits, std::free);
    }
    void use(const lines &names) {
        vc_destroy_list(&maps, std::free);
        vc_destroy_list(&hits, std::free);
        for (const std::string &name : names) {
            vc_append_list_entry(&maps, name.c_str(), name.size() + 1, 1);
        }
    }
    lines hit_names() {
        lines names;
        for (const vc_list_entry *hit = hits; hit; hit = hit->next) {
            names.emplace_back(static_cast<const char *>(hit->data));
            EXPECT_EQ(hit->size, names.back().size() + 1);
        }
        return names;
    }
    // The lines of this module as "function: message".
    lines trace() {
        lines texts;
        for (const log_line &line : log.take()) {
            if (line.source == "blockmaps/lookup") {
                texts.push_back((line.priority == 3 ? "E " : "D ") + line.function + ": " +
                                line.message);
            }
        }
        return texts;
    }
    vc_list_entry *maps = nullptr;
    vc_list_entry *hits = nullptr;
};

TEST_F(maps_test, every_map_is_asked) {
    drive.write("c:/quillfence/bms/one", small_map());
    drive.write("c:/quillfence/bms/two", std::string(1024, '\0'));
    drive.write("c:/quillfence/bms/three", small_map());
    drive.write("c:/quillfence/bms/bad", std::string(1024, '\x01'));
    use({"bad", "one", "missing", "two", "three"});
    EXPECT_EQ(lookupMaps(dir, maps, "10.1.0.0", &hits), 1);
    EXPECT_EQ(hit_names(), (lines{"one", "three"}));
    EXPECT_EQ(trace(), (lines{"E lookupMap: corrupt BMS file",
                              "D lookupMaps: lookupMaps(): IP 10.1.0.0 is on block list "
                              "c:/quillfence/bms/one",
                              "D lookupMaps: lookupMaps(): IP 10.1.0.0 is on block list "
                              "c:/quillfence/bms/three"}));
    EXPECT_NE(hits->data, maps->next->data) << "a hit is a copy";
    EXPECT_FALSE(drive.exists("c:/quillfence/bms/missing"));

    EXPECT_EQ(lookupMaps(dir, maps, "10.1.0.0", nullptr), 1) << "nobody need ask for the hits";
    use({"two", "missing"});
    EXPECT_EQ(lookupMaps(dir, maps, "10.1.0.0", &hits), 0);
    EXPECT_EQ(hit_names(), lines{});
    log.take();
}

TEST_F(maps_test, hits_are_appended) {
    drive.write("c:/quillfence/bms/one", small_map());
    use({"one"});
    EXPECT_EQ(lookupMaps(dir, maps, "10.1.0.0", &hits), 1);
    EXPECT_EQ(lookupMaps(dir, maps, "10.1.0.0", &hits), 1);
    EXPECT_EQ(hit_names(), (lines{"one", "one"}));
}

TEST_F(maps_test, a_slash_is_always_put_between) {
    drive.write("c:/quillfence/bms/one", small_map());
    use({"one"});
    EXPECT_EQ(lookupMaps("c:/quillfence/bms/", maps, "10.1.0.0", nullptr), 1);
    EXPECT_EQ(trace(), lines{"D lookupMaps: lookupMaps(): IP 10.1.0.0 is on block list "
                             "c:/quillfence/bms//one"});
}

TEST_F(maps_test, an_address_may_be_in_any_form_that_the_platform_takes) {
    drive.write("c:/quillfence/bms/one", small_map());
    use({"one"});
    for (const char *const same : {"10.1.0.0", "10.1.0", "10.65536", "0x0a.1.0.0", "012.1.0.0"}) {
        EXPECT_EQ(lookupMaps(dir, maps, same, nullptr), 1) << same;
        log.take();
    }
    EXPECT_EQ(lookupMaps(dir, maps, "10.1.1", nullptr), 0);
}

TEST_F(maps_test, arguments) {
    use({"one"});
    EXPECT_EQ(lookupMaps(nullptr, maps, "10.1.0.0", &hits), 0);
    EXPECT_EQ(lookupMaps(dir, maps, nullptr, &hits), 0);
    EXPECT_EQ(trace(), lines(2, "E lookupMaps: Invalid argument"));
    EXPECT_EQ(lookupMaps(dir, nullptr, "10.1.0.0", &hits), 0);
    EXPECT_EQ(lookupMaps(dir, nullptr, "no address", &hits), 0) << "which nobody looks at then";
    EXPECT_EQ(trace(), lines(2, "D lookupMaps: no lists to check against. returning"));
    for (const char *const bad :
         {"0.0.0.0", "255.255.255.255", "", "example.com", "2001:db8::1", "10.1.0.256"}) {
        EXPECT_EQ(lookupMaps(dir, maps, bad, &hits), 0) << bad;
        EXPECT_EQ(trace(), lines{"E lookupMaps: Invalid argument : invalid ip address"}) << bad;
    }
    EXPECT_EQ(hits, nullptr);
}

} // namespace
} // namespace quillfence::testing
