// What is cut out of a map answers as the whole does: judged by the engine's own look-up.
#include "cut_map.h"

#include <random>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "evidence.h"
#include "log_capture.h"
#include "lookup.h"
#include "platform/net.h"

namespace quillfence::decision {
namespace {

constexpr char whole[] = "c:/quillfence/whole.bms";
constexpr char part[] = "c:/quillfence/part.bms";

struct answer {
    bool listed = false;
    uint32_t level = 0;
    testing::lines errors{};
    bool operator==(const answer &) const = default;
};

answer last_answer;

answer answer_of(const char *path, uint32_t address) {
    evidence_sink sink = {};
    sink.asked_map = [](void *, const map_lookup *fact) noexcept {
        last_answer = {.listed = fact->listed, .level = fact->level};
    };
    call_context context = {.evidence = &sink, .dns = nullptr, .configuration = nullptr};
    const call_scope scope(&context);
    testing::log_capture log;
    lookupMapFile(path, address);
    last_answer.errors = log.errors();
    return last_answer;
}

void put(std::string *map, size_t at, uint32_t entry) {
    for (size_t i = 0; i < 4; ++i) {
        (*map)[at + i] = static_cast<char>(entry >> 8 * i & 0xFF);
    }
}

class map_cutting : public ::testing::Test {
  protected:
    // The cut for an address; both answer the same.
    std::string cut(const std::string &bytes, const char *text) {
        return cut(bytes, platform::net_inet_addr(text), text);
    }
    std::string cut(const std::string &bytes, uint32_t address, const std::string &text) {
        drive.write(whole, bytes);
        data_files::open_file map;
        EXPECT_EQ(map.open(whole), 0u);
        uint32_t error = 0;
        const auto made = cut_map(map, address, &error);
        EXPECT_TRUE(made && !error);
        drive.write(part, made.value_or(""));
        EXPECT_EQ(answer_of(part, address), answer_of(whole, address)) << text;
        return made.value_or("");
    }
    testing::drive_c drive;
};

// The map of docs/formats/block-maps.md.
std::string sample() {
    std::string map(10240, '\0');
    put(&map, 4 * 10, 0xFFFFFFFF);
    put(&map, 4 * 11, 1024);
    put(&map, 1024, 0xFFFFFFFF);
    put(&map, 1024 + 4, 2048);
    map[2048] = '\xA0';
    map[2049] = '\x40';
    return map;
}

TEST_F(map_cutting, levels) {
    std::string want(1024, '\0');
    EXPECT_EQ(cut(sample(), "9.1.2.3"), want);
    put(&want, 4 * 10, 0xFFFFFFFF);
    EXPECT_EQ(cut(sample(), "10.1.2.3"), want);
    want.assign(2048, '\0');
    put(&want, 4 * 11, 1024);
    EXPECT_EQ(cut(sample(), "11.2.0.0"), want);
    put(&want, 1024, 0xFFFFFFFF);
    EXPECT_EQ(cut(sample(), "11.0.0.0"), want);
    want.assign(10240, '\0');
    put(&want, 4 * 11, 1024);
    put(&want, 1024 + 4, 2048);
    EXPECT_EQ(cut(sample(), "11.1.0.1"), want);
    want[2048] = '\x20';
    EXPECT_EQ(cut(sample(), "11.1.0.2"), want) << "its neighbours go";
}

TEST_F(map_cutting, damaged_maps) {
    EXPECT_EQ(cut("", "1.2.3.4"), "");
    EXPECT_EQ(cut(std::string(100, '\1'), "200.2.3.4"), "") << "cut off before the entry";
    std::string map = sample();
    put(&map, 4 * 12, 10240 - 1023); // a table that does not fit
    EXPECT_EQ(cut(map, "12.1.2.3").size(), 1024u);
    put(&map, 1024 + 8, 10240 - 8191); // a bitmap that does not
    EXPECT_EQ(cut(map, "11.2.2.3").size(), 2048u);
    put(&map, 4 * 13, 0x80000000);
    EXPECT_EQ(cut(map, "13.1.2.3").size(), 1024u);
    put(&map, 4 * 14, 4); // into the first table, which the engine follows
    cut(map, "14.9.0.1");
}

TEST_F(map_cutting, random_maps) {
    std::mt19937 random(20261122);
    for (int i = 0; i < 500; ++i) {
        std::string map(1 + random() % 20000, '\0');
        for (char &byte : map) {
            byte = random() % 8 ? '\0' : static_cast<char>(random());
        }
        const uint32_t entries[] = {0,
                                    0xFFFFFFFF,
                                    1024,
                                    2048,
                                    static_cast<uint32_t>(random()),
                                    static_cast<uint32_t>(random() % map.size())};
        for (size_t at = 0; at + 4 <= map.size() && at < 2048; at += 4) {
            put(&map, at, entries[random() % 6]);
        }
        const auto address = static_cast<uint32_t>(random());
        EXPECT_LE(cut(map, address, std::to_string(i)).size(), 10240u);
    }
}

} // namespace
} // namespace quillfence::decision
