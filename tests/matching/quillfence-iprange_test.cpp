#include "quillfence-iprange.h"

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "quillfence-iprange-file.h"
#include "range_bytes.h"

namespace quillfence::testing {
namespace {

constexpr char dir[] = "c:/quillfence";
constexpr char path[] = "c:/quillfence/ips.range";

class range_test : public drive_test {
  protected:
    void put(const std::string &bytes) {
        drive.write(path, bytes);
    }
    int listed(const char *address) {
        return file_contains_ip_range_match("ips.range", address, dir);
    }
};

class range_trace_test : public traced_drive_test {
  protected:
    // The DEBUG lines of this module as "function: message".
    lines trace() {
        lines texts;
        for (const log_line &line : log.take()) {
            if (line.source == "quillfence-iprange") {
                texts.push_back(line.function + ": " + line.message);
            }
        }
        return texts;
    }
};

// --- arithmetic ---

TEST_F(range_test, ge_compares_inside_the_prefix_of_its_level) {
    static const struct {
        std::array<int, 4> a, b;
        std::array<int, 4> want; // at levels 0 to 3
    } cases[] = {
        {{10, 1, 2, 3}, {10, 1, 2, 3}, {1, 1, 1, 1}},
        {{10, 1, 2, 4}, {10, 1, 2, 3}, {1, 1, 1, 1}},
        {{10, 1, 2, 2}, {10, 1, 2, 3}, {0, 0, 0, 0}},
        {{10, 1, 3, 0}, {10, 1, 2, 3}, {1, 1, 1, 0}},
        {{10, 1, 1, 9}, {10, 1, 2, 3}, {0, 0, 0, 0}},
        {{10, 2, 0, 0}, {10, 1, 2, 3}, {1, 1, 0, 0}},
        {{10, 0, 9, 9}, {10, 1, 2, 3}, {0, 0, 0, 0}},
        {{11, 0, 0, 0}, {10, 1, 2, 3}, {1, 0, 0, 0}},
        {{9, 9, 9, 9}, {10, 1, 2, 3}, {0, 0, 0, 0}},
        {{200, 0, 0, 1}, {100, 0, 0, 2}, {1, 0, 0, 0}},
        {{0, 0, 0, 0}, {0, 0, 0, 0}, {1, 1, 1, 1}},
        {{255, 255, 255, 255}, {255, 255, 255, 254}, {1, 1, 1, 1}},
    };
    for (const auto &c : cases) {
        for (int level = 0; level <= 3; ++level) {
            EXPECT_EQ(qf_ip_ge(address(c.a), address(c.b), level),
                      c.want[static_cast<size_t>(level)])
                << text(c.a) << " >= " << text(c.b) << " at level " << level;
        }
        EXPECT_EQ(qf_ip_ge(address(c.a), address(c.b), 4), c.want[3]);
    }
}

TEST_F(range_trace_test, arithmetic_tells_why) {
    qf_ip_ge(address({10, 0, 0, 1}), address({11, 0, 0, 1}), 1);
    EXPECT_EQ(trace(), lines{"qf_ip_ge: not even part of the same /8 comparing 10, 11"});
    qf_ip_ge(address({10, 0, 0, 1}), address({11, 0, 0, 1}), 2);
    EXPECT_EQ(trace(), lines{"qf_ip_ge: not even part of the same /8 comparing 10, 11"});
    qf_ip_ge(address({10, 0, 0, 1}), address({10, 1, 0, 1}), 2);
    EXPECT_EQ(trace(), lines{"qf_ip_ge: not even part of the same /16"});
    qf_ip_ge(address({200, 0, 0, 1}), address({10, 1, 0, 1}), 3);
    EXPECT_EQ(trace(), lines{"qf_ip_ge: not even part of the same /8 comparing 200, 10"});
    qf_ip_ge(address({10, 0, 0, 1}), address({10, 1, 0, 1}), 3);
    EXPECT_EQ(trace(), lines{"qf_ip_ge: not even part of the same /16"});
    qf_ip_ge(address({10, 0, 0, 1}), address({10, 0, 1, 1}), 3);
    EXPECT_EQ(trace(), lines{"qf_ip_ge: not even part of the same /24"});
    qf_ip_ge(address({10, 0, 0, 1}), address({11, 0, 0, 1}), 0);
    EXPECT_EQ(trace(), lines{});

    const qf_ip_range good = {address({10, 1, 2, 0}), address({10, 1, 2, 9})};
    const qf_ip_range bad = {address({10, 1, 2, 9}), address({10, 1, 2, 0})};
    EXPECT_EQ(qf_valid_ip_range(nullptr), 0);
    EXPECT_EQ(trace(), lines{"qf_valid_ip_range: range is NULL, returning false"});
    EXPECT_EQ(qf_valid_ip_range(&bad), 0);
    EXPECT_EQ(trace(),
              lines{"qf_valid_ip_range: low range is greater than highrange - invalid range"});
    EXPECT_EQ(qf_valid_ip_range(&good), 1);
    EXPECT_EQ(trace(), lines{});

    EXPECT_EQ(qf_ip_in_range(0, &good), 0);
    EXPECT_EQ(trace(), lines{"qf_ip_in_range: refusing to test 0.0.0.0 ip"});
    EXPECT_EQ(qf_ip_in_range(0xFFFFFFFF, &good), 0);
    EXPECT_EQ(trace(), lines{"qf_ip_in_range: refusing to test 255.255.255.255 ip"});
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 3}), &bad), 0);
    EXPECT_EQ(trace(),
              (lines{"qf_valid_ip_range: low range is greater than highrange - invalid range",
                     "qf_ip_in_range: invalid range - returning false"}));
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 3}), nullptr), 0);
    EXPECT_EQ(trace(), (lines{"qf_valid_ip_range: range is NULL, returning false",
                              "qf_ip_in_range: invalid range - returning false"}));
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 10}), &good), 0);
    EXPECT_EQ(trace(), lines{"qf_ip_in_range: no match"});
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 9}), &good), 1);
    EXPECT_EQ(trace(), lines{});
}

uint32_t number(const std::array<int, 4> &octets) {
    uint32_t value = 0;
    for (const int octet : octets) {
        value = value << 8 | static_cast<uint32_t>(octet);
    }
    return value;
}

std::array<int, 4> octets(uint32_t number) {
    return {static_cast<int>(number >> 24), static_cast<int>(number >> 16 & 255),
            static_cast<int>(number >> 8 & 255), static_cast<int>(number & 255)};
}

// A naive model: a range is the plain numbers between its ends, if these are in one /16.
int model_in_range(uint32_t a, uint32_t low, uint32_t high) {
    return low >> 16 == high >> 16 && low <= a && a <= high;
}

void compare_ranges(const std::vector<uint32_t> &ends, const std::vector<uint32_t> &addresses) {
    for (const uint32_t low : ends) {
        for (const uint32_t high : ends) {
            const qf_ip_range range = {address(octets(low)), address(octets(high))};
            ASSERT_EQ(qf_valid_ip_range(&range), low >> 16 == high >> 16 && low <= high)
                << text(octets(low)) << " to " << text(octets(high));
            for (const uint32_t a : addresses) {
                ASSERT_EQ(qf_ip_in_range(address(octets(a)), &range), model_in_range(a, low, high))
                    << text(octets(a)) << " in " << text(octets(low)) << " to "
                    << text(octets(high));
            }
        }
    }
}

TEST_F(range_test, agrees_with_plain_numbers_over_a_24) {
    std::vector<uint32_t> all;
    for (uint32_t d = 0; d < 256; ++d) {
        all.push_back(number({192, 0, 2, 0}) + d);
    }
    std::vector<uint32_t> some;
    for (size_t i = 0; i < all.size(); i += 9) {
        some.push_back(all[i]);
    }
    compare_ranges(some, all);
}

TEST_F(range_test, agrees_with_plain_numbers_around_16_borders) {
    std::vector<uint32_t> near;
    for (const auto &border : {std::array{10, 1, 0, 0}, std::array{10, 2, 0, 0},
                               std::array{11, 0, 0, 0}, std::array{128, 0, 0, 0}}) {
        for (const uint32_t step : {1u, 2u, 255u, 256u, 257u, 65535u}) {
            near.push_back(number(border) - step);
            near.push_back(number(border) + step);
        }
        near.push_back(number(border));
    }
    compare_ranges(near, near);
}

TEST_F(range_test, ranges_of_the_format) {
    const qf_ip_range whole = {address({10, 1, 0, 0}), address({10, 1, 255, 255})};
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 3}), &whole), 1);
    const qf_ip_range wide = {address({10, 1, 0, 0}), address({10, 2, 255, 255})};
    EXPECT_EQ(qf_ip_in_range(address({10, 2, 0, 1}), &wide), 0) << "not inside one /16";
    const qf_ip_range border = {address({10, 0, 0, 0}), address({10, 1, 0, 0})};
    EXPECT_EQ(qf_valid_ip_range(&border), 0);
    const qf_ip_range one = {address({10, 1, 2, 3}), address({10, 1, 2, 3})};
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 3}), &one), 1);
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 2}), &one), 0);
    EXPECT_EQ(qf_ip_in_range(address({10, 1, 2, 4}), &one), 0);
}

TEST_F(range_test, documentation_range) {
    EXPECT_EQ(qf_ip_in_documentation_range("192.0.2.0"), 1);
    EXPECT_EQ(qf_ip_in_documentation_range("192.0.2.255"), 1);
    EXPECT_EQ(qf_ip_in_documentation_range("192.0.1.255"), 0);
    EXPECT_EQ(qf_ip_in_documentation_range("192.0.3.0"), 0);
    EXPECT_EQ(qf_ip_in_documentation_range("2001:db8::1"), 0);
    EXPECT_EQ(log.errors(),
              lines{"__sane_ip: Sorry but this system does not yet support IPv6 range "
                    "checks for address [2001:db8::1]"});
}

// --- address texts ---

TEST_F(range_test, address_texts) {
    put(header(2, 0));
    static const struct {
        const char *text, *want;
    } cases[] = {
        {nullptr, "IP address argument is empty or NULL"},
        {"", "IP address argument is empty or NULL"},
        {"2001:db8::1",
         "Sorry but this system does not yet support IPv6 range checks for address [2001:db8::1]"},
        {"example.com", "Invalid IP address argument [example.com]"},
        {"10.1.2", "Invalid IP address argument [10.1.2]"},
        {"10.1.2.3 ", "Invalid IP address argument [10.1.2.3 ]"},
        {"0.0.0.0", "This system does not support broadcast addresses [0.0.0.0]"},
        {"255.255.255.255", "This system does not support broadcast addresses [255.255.255.255]"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(listed(c.text), 0);
        EXPECT_EQ(log.errors(), lines{std::string("__sane_ip: ") + c.want});
    }
}

// --- the check ---

// As the format page shows it.
constexpr unsigned char sample_head[] = {
    0xEA, 0xD3, 0x37, 0xA9, 0x80, 0x6C, 0xD7, 0x66, // signature
    0x02, 0x00, 0x00, 0x00,                         // version
    0x01, 0x00, 0x00, 0x00,                         // count
    0x0A, 0x01, 0x02, 0x00,                         // low: 10.1.2.0
    0x0A, 0x01, 0x02, 0xFF,                         // high: 10.1.2.255
    'l',  'a',  'b',                                // comment
};

TEST_F(range_test, reads_the_sample_of_the_format_page) {
    std::string bytes(reinterpret_cast<const char *>(sample_head), sizeof sample_head);
    bytes.resize(280);
    put(bytes);
    EXPECT_EQ(listed("10.1.2.0"), 1);
    EXPECT_EQ(listed("10.1.2.255"), 1);
    EXPECT_EQ(listed("10.1.1.255"), 0);
    EXPECT_EQ(listed("10.1.3.0"), 0);
    uint32_t offset = 0;
    EXPECT_EQ(ipr_file_contains_range(path, "10.1.2.0", "10.1.2.255", &offset), 1);
    EXPECT_EQ(offset, 16u);
}

TEST_F(range_test, records_are_searched_in_order) {
    put(header(2, 3) + record({10, 0, 0, 1}, {10, 0, 0, 5}) + record({10, 0, 1, 0}, {10, 0, 1, 9}) +
        record({10, 9, 0, 0}, {10, 9, 255, 255}));
    for (const char *const inside : {"10.0.0.1", "10.0.0.5", "10.0.1.4", "10.9.77.1"}) {
        EXPECT_EQ(listed(inside), 1) << inside;
    }
    for (const char *const outside : {"10.0.0.6", "10.0.1.10", "10.8.255.255", "10.10.0.0"}) {
        EXPECT_EQ(listed(outside), 0) << outside;
    }
}

TEST_F(range_test, more_records_than_one_piece) {
    std::string bytes = header(2, 1000);
    for (int i = 0; i < 1000; ++i) {
        bytes += record({10, i / 250, i % 250, 7}, {10, i / 250, i % 250, 8});
    }
    put(bytes);
    for (const int i : {0, 1, 123, 124, 125, 248, 500, 998, 999}) {
        const auto at = [&](int d) { return text({10, i / 250, i % 250, d}); };
        EXPECT_EQ(listed(at(7).c_str()), 1) << i;
        EXPECT_EQ(listed(at(8).c_str()), 1) << i;
        EXPECT_EQ(listed(at(9).c_str()), 0) << i;
        uint32_t offset = 0;
        EXPECT_EQ(ipr_file_contains_range(path, at(7).c_str(), at(8).c_str(), &offset), 1);
        EXPECT_EQ(offset, 16u + static_cast<uint32_t>(i) * 264u);
    }
}

TEST_F(range_test, a_missing_file_is_empty_and_stays_missing) {
    EXPECT_EQ(listed("10.0.0.1"), 0);
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", "10.0.0.2", nullptr), 0);
    EXPECT_FALSE(drive.exists(path));
}

TEST_F(range_test, empty_parts_of_the_path) {
    static const struct {
        const char *directory, *name, *want;
    } cases[] = {
        {nullptr, "x", "__range_path: prefix argument is empty or NULL"},
        {"", "x", "__range_path: prefix argument is empty or NULL"},
        {dir, nullptr, "__range_path: file argument is empty or NULL"},
        {dir, "", "__range_path: file argument is empty or NULL"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(file_contains_ip_range_match(c.name, "10.0.0.1", c.directory), 0);
        EXPECT_EQ(log.errors(), lines{c.want});
        EXPECT_EQ(ipr_convert_file(c.directory, c.name), 0);
        EXPECT_EQ(log.errors(), lines{c.want});
    }
    put(header(2, 1) + record({10, 0, 0, 1}, {10, 0, 0, 5}));
    EXPECT_EQ(file_contains_ip_range_match("ips.range", "10.0.0.2", "c:/quillfence/"), 1);
}

TEST_F(range_test, damaged_files) {
    const std::string good = record({10, 0, 0, 1}, {10, 0, 0, 5});
    const std::string other = record({10, 0, 1, 1}, {10, 0, 1, 5});
    const std::string invalid = record({10, 0, 0, 5}, {10, 0, 0, 1});
    static const std::string corrupt =
        "file_contains_ip_range_match: file c:/quillfence/ips.range is corrupt";
    static const std::string bad_header =
        "__open_range_file: file c:/quillfence/ips.range is corrupt";
    static const std::string bad_range = "file_contains_ip_range_match: file "
                                         "c:/quillfence/ips.range has an invalid range - treating "
                                         "as corrupt";
    const struct {
        const char *name;
        std::string bytes;
        int want;
        lines want_errors;
    } cases[] = {
        {"empty", "", 0, {}},
        {"15 bytes", header(2, 1).substr(0, 15), 0, {}},
        {"no records", header(2, 0), 0, {}},
        {"a count of 0 hides records", header(2, 0) + good, 0, {}},
        {"version 3", header(3, 1) + good, 0, {bad_header}},
        {"version 0", header(0, 1) + good, 0, {bad_header}},
        {"version 0x102: the low byte counts", header(0x102, 1) + good, 1, {}},
        {"version 0x201: the low byte counts", header(0x201, 1) + good, 1, {}},
        {"wrong signature", "X" + header(2, 1).substr(1) + good, 0, {bad_header}},
        {"the count is too high", header(2, 2) + other, 0, {corrupt}},
        {"found before the end", header(2, 2) + good, 1, {}},
        {"a huge count", header(2, 0xFFFFFFFF) + other, 0, {corrupt}},
        {"a last record of 7 bytes", header(2, 1) + good.substr(0, 7), 0, {corrupt}},
        {"a last record of 8 bytes", header(2, 1) + good.substr(0, 8), 1, {}},
        {"a last record of 263 bytes", header(2, 1) + good.substr(0, 263), 1, {}},
        {"nothing behind a short record", header(2, 2) + other.substr(0, 9), 0, {corrupt}},
        {"an invalid range ends the search", header(2, 2) + invalid + good, 0, {bad_range}},
        {"found before the invalid range", header(2, 2) + good + invalid, 1, {}},
        {"legacy records are taken as 264 bytes", header(1, 2) + good + other, 1, {}},
        {"legacy, second record", header(1, 2) + other + good, 1, {}},
    };
    for (const auto &c : cases) {
        put(c.bytes);
        EXPECT_EQ(listed("10.0.0.2"), c.want) << c.name;
        EXPECT_EQ(log.errors(), c.want_errors) << c.name;
    }
}

TEST_F(range_trace_test, short_files_are_traced) {
    drive.write(path, "");
    EXPECT_EQ(file_contains_ip_range_match("ips.range", "10.0.0.2", dir), 0);
    EXPECT_EQ(trace(), lines{"__open_range_file: zero byte file on non initializing operation"});
    drive.write(path, "x");
    EXPECT_EQ(file_contains_ip_range_match("ips.range", "10.0.0.2", dir), 0);
    EXPECT_EQ(trace(), lines{"__open_range_file: file c:/quillfence/ips.range is corrupt"});
}

// A file cut at every byte: the answer depends on how much of the record is there.
TEST_F(range_test, cut_at_every_byte) {
    const std::string bytes =
        header(2, 2) + record({10, 0, 1, 1}, {10, 0, 1, 5}) + record({10, 0, 0, 1}, {10, 0, 0, 5});
    for (size_t size = 0; size <= bytes.size(); ++size) {
        put(bytes.substr(0, size));
        EXPECT_EQ(listed("10.0.0.2"), size >= 16 + 264 + 8) << size;
        const lines want = size < 16 || size >= 16 + 264 + 8
                               ? lines{}
                               : lines{"file_contains_ip_range_match: file "
                                       "c:/quillfence/ips.range is corrupt"};
        EXPECT_EQ(log.errors(), want) << size;
        EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", "10.0.0.5", nullptr),
                  size == bytes.size())
            << size;
        const lines want_contains =
            size == 0 || size == bytes.size()
                ? lines{}
                : lines{"ipr_file_contains_range: file c:/quillfence/ips.range is corrupt"};
        EXPECT_EQ(log.errors(), want_contains) << size;
    }
}

// A file with every byte flipped in turn: the answer is what the changed bytes say.
TEST_F(range_test, flipped_at_every_byte) {
    const std::string bytes = header(2, 1) + record({10, 0, 0, 1}, {10, 0, 0, 5}, "c");
    for (size_t at = 0; at < bytes.size(); ++at) {
        std::string flipped = bytes;
        flipped[at] = static_cast<char>(~flipped[at]);
        put(flipped);
        // The header counts up to the version's low byte; a flipped count is still more than 0. A
        // flipped low end is above the high one or outside its /16, as is a high end whose first
        // two octets are flipped; the other two only make the range larger.
        const bool want = at < 16 ? at > 8 : at > 21;
        EXPECT_EQ(listed("10.0.0.2"), want) << at;
        EXPECT_EQ(log.errors().empty(), want) << at;
    }
}

TEST_F(range_test, a_file_is_begun_for_writing_only) {
    EXPECT_EQ(__open_range_file(dir, "ips.range", 0, 1), nullptr);
    EXPECT_FALSE(drive.exists(path));
    put(header(3, 1));
    EXPECT_EQ(__open_range_file(dir, "ips.range", 0, 1), nullptr);
    EXPECT_EQ(log.errors(), lines{"__open_range_file: file c:/quillfence/ips.range is corrupt"});
    EXPECT_EQ(drive.read(path), header(3, 1));

    range_file_ptr file(__open_range_file(dir, "ips.range", 1, 1));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->header.signature, 0x66D76C80A937D3EAu);
    EXPECT_EQ(file->header.version, 2u);
    EXPECT_EQ(file->header.count, 0u);
    EXPECT_STREQ(file->path, path);
    file.reset();
    EXPECT_EQ(drive.read(path), header(2, 0));

    // A valid header stays as it is, and is what the handle has.
    put(header(0x201, 7));
    file.reset(__open_range_file("c:/quillfence/", "ips.range", 1, 1));
    ASSERT_TRUE(file);
    EXPECT_STREQ(file->path, path) << "one slash is enough";
    EXPECT_EQ(file->header.version, 0x201u);
    EXPECT_EQ(file->header.count, 7u);
    file.reset();
    EXPECT_EQ(drive.read(path), header(0x201, 7));
}

// --- ipr_file_contains_range ---

TEST_F(range_test, contains_wants_exactly_these_ends) {
    put(header(2, 2) + record({10, 0, 0, 1}, {10, 0, 0, 5}) + record({10, 0, 0, 0}, {10, 0, 0, 9}));
    uint32_t offset = 77;
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.0", "10.0.0.9", &offset), 1);
    EXPECT_EQ(offset, 16u + 264u);
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", "10.0.0.5", nullptr), 1);
    offset = 77;
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", "10.0.0.9", &offset), 0);
    EXPECT_EQ(offset, 77u);
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.5", "10.0.0.1", nullptr), 0);
    EXPECT_EQ(log.errors(),
              lines{"ipr_file_contains_range: Invalid arguments for low and high range"});
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", "10.1.0.5", nullptr), 0);
    EXPECT_EQ(log.errors(),
              lines{"ipr_file_contains_range: Invalid arguments for low and high range"});
    EXPECT_EQ(ipr_file_contains_range(path, "", "10.1.0.5", nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"__sane_ip: IP address argument is empty or NULL"});
}

TEST_F(range_test, contains_reads_legacy_records_of_8_bytes) {
    put(header(1, 2) + legacy_record({10, 0, 0, 1}, {10, 0, 0, 5}) +
        legacy_record({10, 0, 0, 6}, {10, 0, 0, 7}));
    uint32_t offset = 0;
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.6", "10.0.0.7", &offset), 1);
    EXPECT_EQ(offset, 16u + 264u) << "counted in the current version's records, on purpose";
}

// A disk that fails is not a file that ends early: the number says which.
TEST_F(range_test, a_read_of_records_that_fails_is_told) {
    put(header(2, 1) + record({10, 0, 0, 1}, {10, 0, 0, 5}));
    call_watch calls;
    calls.fail("file_read", 2, 1117);
    EXPECT_EQ(file_contains_ip_range_match("ips.range", "10.0.0.3", dir), 0);
    EXPECT_EQ(log.errors(),
              (lines{"__next_record: Failed to read range records: error code 1117",
                     "file_contains_ip_range_match: file c:/quillfence/ips.range is corrupt"}));
}

TEST_F(range_test, contains_tells_corrupt_files) {
    put("");
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", "10.0.0.5", nullptr), 0);
    for (const std::string &bytes : {std::string("x"), header(2, 1).substr(0, 15), header(3, 0)}) {
        put(bytes);
        EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", "10.0.0.5", nullptr), 0);
        EXPECT_EQ(log.errors(),
                  lines{"ipr_file_contains_range: file c:/quillfence/ips.range is corrupt"});
    }
}

TEST_F(range_trace_test, contains_traces_missing_arguments) {
    EXPECT_EQ(ipr_file_contains_range(nullptr, "10.0.0.1", "10.0.0.5", nullptr), 0);
    EXPECT_EQ(ipr_file_contains_range(path, nullptr, "10.0.0.5", nullptr), 0);
    EXPECT_EQ(ipr_file_contains_range(path, "10.0.0.1", nullptr, nullptr), 0);
    EXPECT_EQ(trace(), lines(3, "ipr_file_contains_range: Invalid parameter"));
}

TEST_F(range_test, valid_headers) {
    const auto valid = [](uint64_t signature, uint32_t version) {
        const ipr_file_header head = {signature, version, 0};
        return ipr_valid_file_header(&head);
    };
    EXPECT_EQ(valid(0x66D76C80A937D3EA, 1), 1);
    EXPECT_EQ(valid(0x66D76C80A937D3EA, 2), 1);
    EXPECT_EQ(valid(0x66D76C80A937D3EA, 0xFFFFFF02), 1);
    EXPECT_EQ(valid(0x66D76C80A937D3EA, 0), 0);
    EXPECT_EQ(valid(0x66D76C80A937D3EA, 3), 0);
    EXPECT_EQ(valid(0x66D76C80A937D3EA, 0x200), 0);
    EXPECT_EQ(valid(0x66D76C80A937D3EB, 2), 0);
    EXPECT_EQ(ipr_valid_file_header(nullptr), 0);
}

} // namespace
} // namespace quillfence::testing
