#include "frozen_ranges.h"

#include <memory>
#include <optional>
#include <random>

#include "failing_memory.h"
#include "log_capture.h"
#include "quillfence-iprange-file.h"
#include "vc_dns.h"

namespace quillfence::testing {
namespace {

struct ranges_deleter {
    void operator()(frozen_ranges *ranges) const {
        frozen_ranges_free(ranges);
    }
};
using owned_ranges = std::unique_ptr<frozen_ranges, ranges_deleter>;

struct range {
    uint32_t low; // host byte order
    uint32_t high;
};

void append_big(std::string *bytes, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes->push_back(static_cast<char>(value >> shift & 0xFF));
    }
}
void append_little(std::string *bytes, uint64_t value, int size) {
    for (int i = 0; i < size; ++i) {
        bytes->push_back(static_cast<char>(value >> 8 * i & 0xFF));
    }
}

std::string file_of(const std::vector<range> &ranges) {
    std::string bytes;
    append_little(&bytes, range_signature, 8);
    append_little(&bytes, range_version, 4);
    append_little(&bytes, ranges.size(), 4);
    for (const range &one : ranges) {
        append_big(&bytes, one.low);
        append_big(&bytes, one.high);
        bytes.append(range_record_size - legacy_record_size, 'c');
    }
    return bytes;
}

owned_ranges frozen(const std::string &bytes) {
    frozen_ranges *made = nullptr;
    EXPECT_TRUE(frozen_ranges_make(bytes.data(), bytes.size(), &made));
    return owned_ranges(made);
}

std::optional<uint32_t> found(const owned_ranges &in, uint32_t host_order) {
    std::string octets;
    append_big(&octets, host_order);
    uint32_t address = 0;
    memcpy(&address, octets.data(), sizeof address);
    uint32_t record = 0;
    return frozen_ranges_find(in.get(), address, &record) ? std::optional(record) : std::nullopt;
}

constexpr uint32_t net = 0xC0000200; // 192.0.2.0

class frozen_range_files : public logged_test {};

TEST_F(frozen_range_files, find_the_first_record_that_contains_the_address) {
    const owned_ranges ranges =
        frozen(file_of({{net + 10, net + 20}, {net, net + 255}, {net + 15, net + 30}}));
    ASSERT_NE(ranges, nullptr);
    EXPECT_EQ(found(ranges, net + 9), 1u);
    EXPECT_EQ(found(ranges, net + 10), 0u);
    EXPECT_EQ(found(ranges, net + 20), 0u);
    EXPECT_EQ(found(ranges, net + 21), 1u);
    EXPECT_EQ(found(ranges, net - 1), std::nullopt);
    EXPECT_EQ(found(ranges, net + 256), std::nullopt);
}

TEST_F(frozen_range_files, have_an_end_at_the_highest_address) {
    const owned_ranges ranges = frozen(file_of({{0xFFFF0000, 0xFFFFFFFF}, {0, 5}}));
    ASSERT_NE(ranges, nullptr);
    EXPECT_EQ(found(ranges, 0xFFFFFFFE), 0u);
    EXPECT_EQ(found(ranges, 5), 1u);
    EXPECT_EQ(found(ranges, 6), std::nullopt);
}

TEST_F(frozen_range_files, without_records_find_nothing) {
    const owned_ranges ranges = frozen(file_of({}));
    ASSERT_NE(ranges, nullptr);
    EXPECT_EQ(found(ranges, net), std::nullopt);
}

TEST_F(frozen_range_files, need_of_the_last_record_its_addresses_alone) {
    std::string bytes = file_of({{net, net + 1}, {net + 2, net + 3}});
    bytes.resize(bytes.size() - (range_record_size - legacy_record_size));
    const owned_ranges ranges = frozen(bytes);
    ASSERT_NE(ranges, nullptr);
    EXPECT_EQ(found(ranges, net + 3), 1u);
    bytes.pop_back();
    EXPECT_EQ(frozen(bytes), nullptr);
}

TEST_F(frozen_range_files, that_are_damaged_have_no_form) {
    const std::string sound = file_of({{net, net + 1}});
    EXPECT_EQ(frozen(""), nullptr);
    EXPECT_EQ(frozen(sound.substr(0, range_header_size - 1)), nullptr);
    std::string bytes = sound;
    bytes[0] ^= 1; // the signature
    EXPECT_EQ(frozen(bytes), nullptr);
    bytes = sound;
    bytes[15] = '\x7F'; // the count
    EXPECT_EQ(frozen(bytes), nullptr);
    EXPECT_EQ(frozen(file_of({{net, net + 1}, {net + 5, net + 4}})), nullptr);
    EXPECT_EQ(frozen(file_of({{net, net + 0x10000}})), nullptr); // not in one /16
}

TEST_F(frozen_range_files, without_memory_say_so) {
    const std::string bytes = file_of({{net, net + 1}});
    for (unsigned n = 1; n <= 2; ++n) {
        frozen_ranges *made = nullptr;
        const failing_allocation failing(n);
        EXPECT_FALSE(frozen_ranges_make(bytes.data(), bytes.size(), &made));
        EXPECT_EQ(made, nullptr);
    }
}

TEST_F(frozen_range_files, answer_as_a_walk_over_the_records) {
    std::mt19937 random(20261122);
    unsigned hits = 0;
    for (int files = 0; files < 400 && !HasFailure(); ++files) {
        std::vector<range> ranges(random() % 40);
        for (range &one : ranges) {
            one.low = net + static_cast<uint32_t>(random() % 60);
            one.high = one.low + static_cast<uint32_t>(random() % 12);
        }
        const owned_ranges made = frozen(file_of(ranges));
        ASSERT_NE(made, nullptr);
        for (uint32_t address = net - 2; address < net + 80; ++address) {
            std::optional<uint32_t> first;
            for (uint32_t i = 0; i < ranges.size() && !first; ++i) {
                if (ranges[i].low <= address && address <= ranges[i].high) {
                    first = i;
                }
            }
            EXPECT_EQ(found(made, address), first);
            hits += first.has_value();
        }
    }
    EXPECT_GT(hits, 5000u);
}

} // namespace
} // namespace quillfence::testing
