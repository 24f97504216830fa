#include "range_records.h"

#include <algorithm>
#include <tuple>

#include "address_text.h"
#include "byte_cursor.h"
#include "engine_messages.h"
#include "quillfence-iprange-file.h"
#include "quillfence-iprange.h"
#include "text.h"

namespace quillfence::data_files {

static uint32_t number_of(const unsigned char *octets) {
    return uint32_t{octets[0]} << 24 | uint32_t{octets[1]} << 16 | uint32_t{octets[2]} << 8 |
           octets[3];
}

static range_record record_of(const unsigned char *bytes, uint32_t number, bool legacy) {
    const qf_ip_range range = __range_of_record(bytes);
    range_record record = {
        number, number_of(bytes), number_of(bytes + 4), {}, qf_valid_ip_range(&range) != 0, true};
    if (!legacy) {
        const char *const begin = reinterpret_cast<const char *>(bytes) + legacy_record_size;
        const char *const end = begin + range_record_size - legacy_record_size;
        const char *const nul = std::find(begin, end, '\0');
        record.comment.assign(begin, nul);
        record.comment_ends = nul != end;
    }
    return record;
}

static uint32_t record_size(range_state state) {
    return state == range_state::legacy ? legacy_record_size : range_record_size;
}

uint64_t wanted_size(const range_records &of) {
    return range_header_size + uint64_t{of.counted} * record_size(of.state);
}

range_records read_ranges(const std::string &path) {
    const engine_messages silent;
    range_records read;
    std::string text;
    read.error = read_file(path, &text);
    if (read.error) {
        read.state = is_missing(read.error) ? range_state::missing : range_state::unreadable;
        return read;
    }
    read.size = text.size();
    if (text.size() < range_header_size) {
        read.state = range_state::empty;
        return read;
    }
    const auto *const bytes = reinterpret_cast<const unsigned char *>(text.data());
    const ipr_file_header header = {load_le64(bytes), load_le32(bytes + 8), load_le32(bytes + 12)};
    if (!ipr_valid_file_header(&header)) {
        read.state = range_state::corrupt;
        return read;
    }
    const bool legacy = (header.version & 0xFF) == range_version_legacy;
    read.state = legacy ? range_state::legacy : range_state::current;
    read.counted = header.count;
    const uint32_t size = record_size(read.state);
    const uint64_t there =
        std::min<uint64_t>(header.count, (text.size() - range_header_size) / size);
    read.records.reserve(there);
    for (uint32_t i = 0; i < there; ++i) {
        read.records.push_back(
            record_of(bytes + range_header_size + uint64_t{i} * size, i + 1, legacy));
    }
    return read;
}

std::string range_text(const range_record &record) {
    return address_text(record.low) + '-' + address_text(record.high);
}

range_cover::range_cover(const std::vector<range_record> &records) {
    for (const range_record &record : records) {
        if (record.valid) {
            sorted_.push_back(&record);
        }
    }
    std::sort(sorted_.begin(), sorted_.end(), [](const range_record *a, const range_record *b) {
        return std::make_tuple(a->low, ~a->high, a->number) <
               std::make_tuple(b->low, ~b->high, b->number);
    });
    reach now = {nullptr, nullptr};
    for (const range_record *record : sorted_) {
        if (!now.furthest || record->high > now.furthest->high) {
            now = {record, now.furthest};
        } else if (!now.second || record->high > now.second->high) {
            now.second = record;
        }
        reach_.push_back(now);
    }
}

const range_record *range_cover::find(uint32_t low, uint32_t high, uint32_t except) const {
    const auto end = std::upper_bound(
        sorted_.begin(), sorted_.end(), low,
        [](uint32_t wanted, const range_record *record) { return wanted < record->low; });
    if (end == sorted_.begin()) {
        return nullptr;
    }
    const reach &best = reach_[static_cast<size_t>(end - sorted_.begin()) - 1];
    for (const range_record *record : {best.furthest, best.second}) {
        if (record && record->number != except && record->high >= high) {
            return record;
        }
    }
    return nullptr;
}

} // namespace quillfence::data_files
