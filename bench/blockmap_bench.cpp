// One cold question to a block map (open, look up, close) beside the same question to libmaxminddb
// and tinycdb, and beside the system calls alone. All hold the same 100,000 addresses; every
// address that is asked lies in a /16 with a bitmap, so that a block map needs all three reads.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bare_calls.h"
#include "byte_cursor.h"
#include "lookup.h"

#ifdef QF_PEER_LIBMAXMINDDB
#include <maxminddb.h>
#endif
#ifdef QF_PEER_LIBCDB
#include <cdb.h>
#endif

namespace {

using namespace quillfence;

constexpr size_t network_count = 500; // of /16
constexpr size_t addresses_each = 200;
constexpr size_t question_count = 4096;

struct question {
    uint32_t host;    // host byte order
    uint32_t network; // network byte order
    bool listed;
};

struct world {
    world();
    ~world() {
        std::filesystem::remove_all(directory);
    }
    world(const world &) = delete;
    world &operator=(const world &) = delete;
    std::set<uint32_t> addresses;
    std::vector<question> questions;
    std::filesystem::path directory;
    std::string file(const char *name) const {
        return (directory / name).string();
    }
};

void write_file(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string block_map_of(const std::set<uint32_t> &addresses) {
    std::string map(1024, '\0');
    std::map<uint32_t, size_t> tables;
    std::map<uint32_t, size_t> bitmaps;
    for (const uint32_t ip : addresses) {
        if (!tables.contains(ip >> 24)) {
            store_le32(&map[(ip >> 24) * 4], static_cast<uint32_t>(map.size()));
            tables[ip >> 24] = map.size();
            map.append(1024, '\0');
        }
        if (!bitmaps.contains(ip >> 16)) {
            store_le32(&map[tables[ip >> 24] + (ip >> 16 & 255) * 4],
                       static_cast<uint32_t>(map.size()));
            bitmaps[ip >> 16] = map.size();
            map.append(8192, '\0');
        }
        char &byte = map[bitmaps[ip >> 16] + (ip & 0xFFFF) / 8];
        byte = static_cast<char>(byte | 0x80 >> (ip & 7));
    }
    return map;
}

uint32_t network_order(uint32_t host) {
    const unsigned char bytes[] = {
        static_cast<unsigned char>(host >> 24), static_cast<unsigned char>(host >> 16),
        static_cast<unsigned char>(host >> 8), static_cast<unsigned char>(host)};
    uint32_t ordered;
    std::memcpy(&ordered, bytes, sizeof ordered);
    return ordered;
}

#ifdef QF_PEER_LIBMAXMINDDB
std::string big_endian(uint32_t value) {
    const uint32_t ordered = network_order(value);
    return {reinterpret_cast<const char *>(&ordered), 4};
}

std::string mmdb_text(const std::string &text) {
    return static_cast<char>(0x40 | text.size()) + text;
}

// A database whose only value is "true", with 32-bit records.
std::string mmdb_of(const std::set<uint32_t> &addresses) {
    constexpr uint32_t listed = 0xFFFFFFFF;
    std::vector<std::array<uint32_t, 2>> nodes(1);
    for (const uint32_t ip : addresses) {
        uint32_t at = 0;
        for (int bit = 31; bit > 0; --bit) {
            const uint32_t side = ip >> bit & 1;
            if (!nodes[at][side]) {
                nodes[at][side] = static_cast<uint32_t>(nodes.size());
                nodes.push_back({});
            }
            at = nodes[at][side];
        }
        nodes[at][ip & 1] = listed;
    }
    const auto count = static_cast<uint32_t>(nodes.size());
    std::string bytes;
    for (const auto &node : nodes) {
        for (const uint32_t record : node) {
            bytes += big_endian(record == listed ? count + 16 : record ? record : count);
        }
    }
    bytes += std::string(16, '\0') + "\x01\x07"; // the separator, and "true"
    bytes += "\xAB\xCD\xEFMaxMind.com\xE9";
    bytes += mmdb_text("node_count") + "\xC4" + big_endian(count);
    bytes += mmdb_text("record_size") + "\xA1\x20";
    bytes += mmdb_text("ip_version") + "\xA1\x04";
    bytes += mmdb_text("database_type") + mmdb_text("block list");
    bytes += mmdb_text("languages") + std::string("\x00\x04", 2);
    bytes += mmdb_text("binary_format_major_version") + "\xA1\x02";
    bytes += mmdb_text("binary_format_minor_version") + "\xA0";
    bytes += mmdb_text("build_epoch") + "\x04\x02" + big_endian(1700000000);
    bytes += mmdb_text("description") + "\xE0";
    return bytes;
}
#endif

#ifdef QF_PEER_LIBCDB
void write_cdb(const std::string &path, const std::set<uint32_t> &addresses) {
    const int file = bare::open_new(path.c_str());
    cdb_make make;
    cdb_make_start(&make, file);
    for (const uint32_t ip : addresses) {
        const uint32_t key = network_order(ip);
        cdb_make_add(&make, &key, 4, "", 0);
    }
    cdb_make_finish(&make);
    bare::close_file(file);
}
#endif

world::world() {
    std::mt19937 engine(1);
    const auto random = [&] { return static_cast<uint32_t>(engine()); };
    std::vector<uint32_t> networks;
    while (networks.size() < network_count) {
        networks.push_back((random() % 222 + 1) << 24 | (random() % 256) << 16);
    }
    while (addresses.size() < network_count * addresses_each) {
        addresses.insert(networks[random() % networks.size()] | (random() & 0xFFFF));
    }
    const std::vector<uint32_t> listed(addresses.begin(), addresses.end());
    while (questions.size() < question_count) {
        const uint32_t ip = questions.size() % 2
                                ? listed[random() % listed.size()]
                                : networks[random() % networks.size()] | (random() & 0xFFFF);
        questions.push_back({ip, network_order(ip), addresses.contains(ip)});
    }
    directory = std::filesystem::temp_directory_path() / "quillfence-blockmap-bench";
    std::filesystem::create_directories(directory);
    write_file(file("map"), block_map_of(addresses));
#ifdef QF_PEER_LIBMAXMINDDB
    write_file(file("mmdb"), mmdb_of(addresses));
#endif
#ifdef QF_PEER_LIBCDB
    write_cdb(file("cdb"), addresses);
#endif
}

const world &the_world() {
    static const world made;
    return made;
}

// Asks one question after another; every answer is checked before and while the clock runs.
template <class Ask>
void ask_all(benchmark::State &state, const char *file, Ask ask) {
    const world &w = the_world();
    const std::string path = w.file(file);
    for (const question &q : w.questions) {
        if (ask(path, q) != q.listed) {
            state.SkipWithError("a wrong answer");
            return;
        }
    }
    size_t next = 0;
    for (auto _ : state) {
        const question &q = w.questions[next++ % question_count];
        if (ask(path, q) != q.listed) {
            state.SkipWithError("a wrong answer");
        }
    }
}

void block_map(benchmark::State &state) {
    ask_all(state, "map", [](const std::string &path, const question &q) {
        return lookupMapFile(path.c_str(), q.network) == 1;
    });
}
BENCHMARK(block_map);

uint32_t entry_at(int file, uint32_t place) {
    unsigned char bytes[4] = {};
    return bare::read_at(file, bytes, sizeof bytes, place) ? load_le32(bytes) : 0;
}

bool bit_at(int file, uint32_t bitmap, uint32_t index) {
    unsigned char byte = 0;
    return bare::read_at(file, &byte, 1, bitmap + index / 8) && (byte & 0x80 >> (index & 7));
}

// What the questions cost at least: is the file there, open it, its size, three reads, close it.
void bare_system_calls(benchmark::State &state) {
    ask_all(state, "map", [](const std::string &path, const question &q) {
        if (!bare::exists(path.c_str())) {
            return false;
        }
        const int file = bare::open_for_reading(path.c_str());
        if (file < 0 || !bare::has_size(file)) {
            return false;
        }
        const uint32_t table = entry_at(file, (q.host >> 24) * 4);
        const uint32_t bitmap = table ? entry_at(file, table + (q.host >> 16 & 255) * 4) : 0;
        const bool listed = bitmap && bit_at(file, bitmap, q.host & 0xFFFF);
        bare::close_file(file);
        return listed;
    });
}
BENCHMARK(bare_system_calls);

#ifdef QF_PEER_LIBMAXMINDDB
void libmaxminddb(benchmark::State &state) {
    ask_all(state, "mmdb", [](const std::string &path, const question &q) {
        MMDB_s database;
        if (MMDB_open(path.c_str(), MMDB_MODE_MMAP, &database) != MMDB_SUCCESS) {
            return false;
        }
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = q.network;
        int error = 0;
        const MMDB_lookup_result_s result =
            MMDB_lookup_sockaddr(&database, reinterpret_cast<const sockaddr *>(&address), &error);
        MMDB_close(&database);
        return error == MMDB_SUCCESS && result.found_entry;
    });
}
BENCHMARK(libmaxminddb);
#endif

#ifdef QF_PEER_LIBCDB
void tinycdb(benchmark::State &state) {
    ask_all(state, "cdb", [](const std::string &path, const question &q) {
        const int file = bare::open_for_reading(path.c_str());
        cdb database;
        if (file < 0 || cdb_init(&database, file) != 0) {
            return false;
        }
        const bool listed = cdb_find(&database, &q.network, 4) > 0;
        cdb_free(&database);
        bare::close_file(file);
        return listed;
    });
}
BENCHMARK(tinycdb);
#endif

} // namespace

BENCHMARK_MAIN();
