// Range files: looked up in, converted, edited, and looked up in again.
//
//     an address, a low end, a high end, a comment   a line each
//     the file
#include "byte_cursor.h"
#include "fuzz_support.h"
#include "quillfence-iprange.h"

namespace quillfence::testing {

namespace {

constexpr char folder[] = "c:/quillfence/";
constexpr char name[] = "exempt_ips.range";
constexpr char path[] = "c:/quillfence/exempt_ips.range";

struct edit_result {
    int done;
    const char *error;
};

ipr_file_header header_of(const std::string &file) {
    ipr_file_header header = {};
    byte_reader in = byte_reader_of(file.data(), file.size());
    header.signature = take_le64(&in);
    header.version = take_le32(&in);
    header.count = take_le32(&in);
    return header;
}

bool has_header(const std::string &file) {
    const ipr_file_header header = header_of(file);
    return file.size() >= 16 && ipr_valid_file_header(&header);
}

// Whether all records are there that the header counts.
bool is_whole(const std::string &file) {
    return file.size() >= 16 + 264 * uint64_t{header_of(file).count};
}

// Whether the file has become one without ranges.
bool begun_anew() {
    return file_bytes(path).substr(8) == std::string("\x02\0\0\0\0\0\0\0", 8);
}

// What every edit leaves: no other file, and on failure the old bytes; a file without a valid
// header is begun anew even so.
void check_edit(edit_result result, const std::string &before) {
    QF_PROMISE(result.done == 0 || (result.done == 1 && !result.error));
    QF_PROMISE(result.done || file_bytes(path) == before || (!has_header(before) && begun_anew()));
    for (const char *ending : {".new", ".bak"}) {
        QF_PROMISE(!fuzz_drive().exists(path + std::string(ending)));
    }
}

bool contains(const std::string &low, const std::string &high) {
    uint32_t offset = 0;
    return ipr_file_contains_range(path, low.c_str(), high.c_str(), &offset);
}

bool add(const std::string &low, const std::string &high, const std::string &comment) {
    const std::string before = file_bytes(path);
    edit_result result = {0, nullptr};
    result.done = ipr_add(folder, name, low.c_str(), high.c_str(), comment.c_str(), &result.error);
    QF_PROMISE(result.done || result.error);
    check_edit(result, before);
    return result.done;
}

bool del(const std::string &low, const std::string &high) {
    const std::string before = file_bytes(path);
    edit_result result = {0, nullptr};
    result.done = ipr_del_range_from_file(folder, name, low.c_str(), high.c_str(), &result.error);
    check_edit(result, before);
    return result.done;
}

void read_ranges(const std::string &address, const std::string &low, const std::string &high) {
    const std::string before = file_bytes(path);
    const int listed = file_contains_ip_range_match(name, address.c_str(), folder);
    QF_PROMISE(listed == 0 || listed == 1);
    contains(low, high);
    QF_PROMISE(file_bytes(path) == before);
    qf_ip_in_documentation_range(address.c_str());
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string address = input.line();
    const std::string low = input.line();
    const std::string high = input.line();
    const std::string comment = input.line();
    const std::string bytes = input.rest();
    fuzz_drive().write(path, bytes);
    read_ranges(address, low, high);
    if (add(low, high, comment)) {
        QF_PROMISE(contains(low, high));
        const bool whole = is_whole(file_bytes(path));
        QF_PROMISE(del(low, high) == whole); // a corrupt file is not rewritten
        QF_PROMISE(contains(low, high) == !whole);
    }

    fuzz_drive().write(path, bytes);
    const int converted = ipr_convert_file(folder, name);
    check_edit({converted, nullptr}, bytes);
    if (converted && add(low, high, comment)) {
        QF_PROMISE(contains(low, high));
    }
    read_ranges(low, low, high);
    del(low, high);
}

} // namespace quillfence::testing
