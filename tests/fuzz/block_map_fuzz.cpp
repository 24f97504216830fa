// Block maps, against a second reading of the format.
//
//     the size that zeros fill the file up to   16 bits
//     an address                                a line
//     the file
#include <optional>

#include "byte_cursor.h"
#include "fuzz_support.h"
#include "lookup.h"
#include "vc_dns.h"

namespace quillfence::testing {

namespace {

constexpr char folder[] = "c:/quillfence/bms";
constexpr char name[] = "map";
constexpr char path[] = "c:/quillfence/bms/map";

constexpr uint32_t none_below = 0;
constexpr uint32_t all_below = 0xFFFFFFFF;

// The entry of a table; nothing where the file ends before it.
std::optional<uint32_t> entry_at(const std::string &file, uint64_t offset) {
    if (offset + 4 > file.size()) {
        return std::nullopt;
    }
    return load_le32(file.data() + offset);
}

// Whether the next level, of so many bytes, can begin there.
bool has_room(const std::string &file, uint32_t offset, uint64_t bytes) {
    return offset <= INT32_MAX && offset + bytes <= file.size();
}

bool lists(const std::string &file, const uint8_t *octets) {
    const std::optional<uint32_t> first = entry_at(file, 4u * octets[0]);
    if (!first || *first == none_below || *first == all_below) {
        return first && *first == all_below;
    }
    if (!has_room(file, *first, 1024)) {
        return false;
    }
    const std::optional<uint32_t> second = entry_at(file, uint64_t{*first} + 4u * octets[1]);
    if (!second || *second == none_below || *second == all_below) {
        return second && *second == all_below;
    }
    if (!has_room(file, *second, 8192)) {
        return false;
    }
    const unsigned bit = octets[2] * 256u + octets[3];
    const auto byte = static_cast<uint8_t>(file[*second + bit / 8]);
    return byte & (0x80 >> bit % 8);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const size_t size = input.number16();
    const std::string address = input.line();
    std::string bytes = input.rest();
    if (bytes.size() < size) {
        bytes.resize(size);
    }
    fuzz_drive().write(path, bytes);

    const uint32_t number = vc_inet_addr(address.c_str());
    uint8_t octets[4];
    memcpy(octets, &number, sizeof octets);
    const bool listed = lists(bytes, octets);
    QF_PROMISE(lookupMapFile(path, number) == listed);

    vc_list_entry *maps = nullptr;
    vc_list_entry *hits = nullptr;
    vc_append_list_entry(&maps, "missing", 8, 1);
    vc_append_list_entry(&maps, name, sizeof name, 1);
    const int found = lookupMaps(folder, maps, address.c_str(), &hits);
    QF_PROMISE(found == (hits != nullptr));
    QF_PROMISE(found <= listed);
    QF_PROMISE(vc_list_count(hits) == found);
    vc_destroy_list(&maps, free);
    vc_destroy_list(&hits, free);
    QF_PROMISE(file_bytes(path) == bytes);
    QF_PROMISE(!fuzz_drive().exists(std::string(folder) + "/missing"));
}

} // namespace quillfence::testing
