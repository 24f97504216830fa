// The binary files: ranges, compiled patterns, block maps, counters.
#include "verify.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include "byte_cursor.h"
#include "engine_messages.h"
#include "file_digest.h"
#include "list_files.h"
#include "open_file.h"
#include "pattern_lines.h"
#include "pattern_text.h"
#include "pattern_warnings.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "quillfence-log.h"
#include "range_records.h"
#include "text.h"
#include "tiny_rex_storage.h"

namespace quillfence::verification {

namespace {

// At most so many findings of one kind in one file.
constexpr unsigned most_findings = 10;

std::string record_name(uint32_t number) {
    return "record " + std::to_string(number);
}

} // namespace

// --- ranges ---

namespace {

// What is wrong with the file as a whole.
void verify_range_size(tree &in, const std::string &file, const range_records &ranges) {
    switch (ranges.state) {
    case range_state::missing:
        in.add_failure(file, "unreadable-file", "can't be read", ranges.error);
        return;
    case range_state::unreadable: // has been told
        return;
    case range_state::empty:
        if (ranges.size) {
            in.add(file, 0, "range-file-corrupt",
                   "is corrupt: " + counted(ranges.size, "byte") + " are less than a header");
        }
        return;
    case range_state::corrupt:
        in.add(file, 0, "range-file-corrupt", "is corrupt: no header of a range file");
        return;
    case range_state::legacy:
        in.add(
            file, 0, "range-file-legacy",
            "is of the legacy version, which lookups misread; run quillfence-data range convert");
        break;
    case range_state::current:
        break;
    }
    if (ranges.records.size() < ranges.counted) {
        in.add(file, 0, "range-file-corrupt",
               "is corrupt: the header counts " + counted(ranges.counted, "record") +
                   ", the file holds " + std::to_string(ranges.records.size()));
    } else if (ranges.size > wanted_size(ranges)) {
        in.add(file, 0, "range-file-longer",
               "is longer than its records by " +
                   counted(ranges.size - wanted_size(ranges), "byte") + ", which lookups ignore");
    }
}

void verify_records(tree &in, const std::string &file, const range_records &ranges) {
    const range_cover cover(ranges.records);
    for (const range_record &record : ranges.records) {
        const std::string name = record_name(record.number) + ", " + range_text(record) + ", ";
        if (!record.valid) {
            in.add(file, 0, "range-invalid",
                   name + "is no range inside one /16: lookups stop here and find nothing");
            return;
        }
        if (!record.comment_ends) {
            in.add(file, 0, "range-comment-endless", name + "has a comment without an end");
        }
        const range_record *const found = cover.find(record.low, record.high, record.number);
        const bool same = found && found->low == record.low && found->high == record.high;
        if (found && (!same || found->number < record.number)) {
            in.add(file, 0, "range-covered",
                   name + "is covered by " + record_name(found->number) + ", " +
                       range_text(*found));
        }
    }
}

// The ranges that are blocked, against those that are exempt and asked first.
void verify_opposite_ranges(tree &in) {
    for (const configuration_file &list : list_files()) {
        if (!list.range_file || list.decides) {
            continue;
        }
        const std::string file = list.range_file;
        const std::string opposite = find_list_file(list.opposite)->range_file;
        const range_records ranges = in.ranges(file);
        const range_records first = in.ranges(opposite);
        const range_cover cover(first.records);
        for (const range_record &record : ranges.records) {
            const range_record *const found =
                record.valid ? cover.find(record.low, record.high) : nullptr;
            if (found) {
                in.add(
                    file, 0, "range-covered-by-opposite",
                    record_name(record.number) + ", " + range_text(record) +
                        ", is covered by the opposite range file, which comes first: " + opposite +
                        ", " + record_name(found->number) + ", " + range_text(*found));
            }
        }
    }
}

bool ends_in(std::string_view text, std::string_view end) {
    return text.size() > end.size() && text.substr(text.size() - end.size()) == end;
}

} // namespace

void verify_ranges(tree &in) {
    for (const std::string &file : in.list("")) {
        if (ends_in(file, range_suffix)) {
            ++in.files;
            const range_records ranges = in.ranges(file);
            verify_range_size(in, file, ranges);
            verify_records(in, file, ranges);
        }
    }
    verify_opposite_ranges(in);
}

// --- compiled patterns ---

namespace {

constexpr std::string_view pattern_suffix = ".cregexes";

struct stored_expression {
    TRex record = {};
    ~stored_expression() {
        std::free(record.nodes);
    }
};

// What the engine says to the first node of a block that it refuses; "" when it takes all.
std::string why_refused(const TRex &expression) {
    engine_messages messages;
    for (int32_t i = 0; i < expression.nallocated; ++i) {
        if (!__trex_node_is_valid(&expression, &expression.nodes[i])) {
            break;
        }
    }
    return messages.take();
}

void verify_blocks(tree &in, const std::string &file, FILE *stream) {
    engine_messages messages;
    stored_expression expression;
    for (unsigned block = 1;; ++block) {
        const int next = std::fgetc(stream);
        if (std::ferror(stream)) {
            in.add(file, 0, "unreadable-file", "can't be read to its end");
            return;
        }
        if (next == EOF) {
            return;
        }
        std::ungetc(next, stream);
        const std::string name = "pattern " + std::to_string(block);
        if (!trs_next(stream, &expression.record)) {
            in.add(file, 0, "pattern-damaged",
                   name + " is damaged, and so is all that follows: the engine says \"" +
                       messages.take() + '"');
            return;
        }
        const std::string problem = why_refused(expression.record);
        if (!problem.empty()) {
            in.add(file, 0, "pattern-can-fail",
                   name + " can fail to match: the engine says \"" + problem + '"');
            continue;
        }
        std::string no_text;
        const std::string text = pattern_of_nodes(expression.record, &no_text);
        for (const std::string &warning : warnings_about(text)) {
            in.add(file, 0, "pattern-says-otherwise", name + ", " + text + ": " + warning);
        }
    }
}

void verify_pattern_file(tree &in, const std::string &file) {
    ++in.files;
    const engine_messages silent;
    const platform::stream_ptr stream(platform::stream_open(in.place(file).c_str(), "rb"));
    if (!stream) {
        in.add(file, 0, "unreadable-file", std::string("can't be read: ") + std::strerror(errno));
        return;
    }
    if (!trs_valid_file(stream.get())) {
        if (std::ferror(stream.get())) {
            in.add(file, 0, "unreadable-file", "can't be read");
        } else {
            in.add(file, 0, "patterns-no-such-file", "is no file of compiled patterns");
        }
        return;
    }
    verify_blocks(in, file, stream.get());
}

// What the compiler wrote of where the expressions come from, if it did.
void verify_pattern_lines(tree &in, const std::string &file) {
    const std::string lines = file + pattern_lines_suffix;
    std::string digest;
    if (!in.has(lines)) {
        return;
    }
    ++in.files;
    if (const uint32_t error = digest_of_file(in.place(file), &digest)) {
        in.add_failure(file, "unreadable-file", "can't be read", error);
        return;
    }
    const pattern_lines read = read_pattern_lines(in.place(file), digest);
    if (read.is == pattern_lines::state::stale) {
        in.add(lines, 0, "pattern-lines-stale",
               "speaks of another version of the pattern file, so that no line of the list can be "
               "named; compile the list again");
    } else if (read.is == pattern_lines::state::wrong) {
        in.add(lines, 0, "pattern-lines-wrong", read.problem);
    }
}

} // namespace

void verify_patterns(tree &in) {
    for (const std::string &name : in.list("dynaregex")) {
        const std::string file = "dynaregex/" + name;
        if (!ends_in(name, pattern_suffix)) {
            continue;
        }
        if (!find_configuration_file(file)) {
            in.add(file, 0, "patterns-not-asked", "the engine asks no file of this name");
        }
        verify_pattern_file(in, file);
        verify_pattern_lines(in, file);
    }
}

// --- block maps ---

namespace {

constexpr uint32_t table_size = 1024;
constexpr uint32_t bitmap_size = 8192;
constexpr uint32_t lists_nothing = 0;
constexpr uint32_t lists_all = 0xFFFFFFFF;

class map_reader {
  public:
    map_reader(tree &in, std::string file) : in_(in), file_(std::move(file)) {}

    void verify() {
        uint32_t error = opened_.open(in_.place(file_));
        error = error ? error : opened_.size(&size_);
        if (error) {
            in_.add_failure(file_, "unreadable-file", "can't be read", error);
        } else if (size_ < table_size) {
            in_.add(file_, 0, "map-corrupt",
                    "is corrupt: " + counted(size_, "byte") + " are less than its first table");
        } else {
            verify_first_table();
        }
        if (found_ > most_findings) {
            in_.add(file_, 0, "map-corrupt",
                    "is corrupt: " + std::to_string(found_ - most_findings) + " more such entries");
        }
    }

  private:
    using table = std::array<unsigned char, table_size>;

    // A finding when the table, which lies within the file, can't be read.
    bool read(uint32_t offset, table *bytes) {
        size_t got = 0;
        const uint32_t error = opened_.read_at(offset, bytes->data(), table_size, &got);
        if (error || got < table_size) {
            in_.add_failure(file_, "unreadable-file", "can't be read",
                            error ? error : platform::error_io_device);
        }
        return !error && got == table_size;
    }

    // Whether an entry points to something that must be looked into; a finding when that does not
    // fit into the file or lies over its first table.
    bool follow(uint32_t entry, uint32_t size, const std::string &network) {
        if (entry == lists_nothing || entry == lists_all) {
            return false;
        }
        const bool fits = size_ >= size && entry <= size_ - size;
        if (fits && entry >= table_size) {
            return true;
        }
        if (++found_ <= most_findings) {
            in_.add(file_, 0, "map-corrupt",
                    "is corrupt: the entry of " + network + " points " +
                        (fits ? "into the first table" : "behind the end of the file"));
        }
        return false;
    }

    void verify_first_table() {
        table first;
        const bool there = read(0, &first);
        for (uint32_t a = 0; there && a < 256; ++a) {
            const uint32_t entry = load_le32(&first[4 * a]);
            if (follow(entry, table_size, std::to_string(a) + ".0.0.0/8")) {
                verify_second_table(a, entry);
            }
        }
    }

    void verify_second_table(uint32_t a, uint32_t offset) {
        table second;
        const bool there = read(offset, &second);
        for (uint32_t b = 0; there && b < 256; ++b) {
            follow(load_le32(&second[4 * b]), bitmap_size,
                   std::to_string(a) + '.' + std::to_string(b) + ".0.0/16");
        }
    }

    tree &in_;
    std::string file_;
    open_file opened_;
    uint64_t size_ = 0;
    unsigned found_ = 0;
};

} // namespace

std::set<std::string> named_maps(tree &in) {
    std::set<std::string> names;
    for (const configuration_file &file : configuration_files) {
        std::string bytes;
        if (file.kind != file_kind::map_names || !in.has(path_in_base(file)) ||
            !in.read_again(path_in_base(file), &bytes)) {
            continue;
        }
        for (const text_line &line : lines_of(bytes)) {
            names.emplace(line.text);
        }
    }
    names.erase("");
    return names;
}

void verify_block_maps(tree &in) {
    const std::set<std::string> names = named_maps(in);
    for (const std::string &name : names) {
        if (in.has("bms/" + name)) {
            ++in.files;
            map_reader(in, "bms/" + name).verify();
        }
    }
    for (const std::string &name : in.list("bms")) {
        if (name != "lists_to_update" && !names.contains(name)) {
            in.add("bms/" + name, 0, "map-unlisted", "no list of block maps names this file");
        }
    }
}

// --- counters ---

namespace {

constexpr const char *daily_files = path_in_base(configured("log/.counterv2.dat"));
constexpr const char *hourly_file = path_in_base(configured("log/.counterv2.dat.hourly"));

void verify_counter_file(tree &in, const std::string &file, uint64_t wanted,
                         int (*is_valid)(vc_handle)) {
    if (!in.has(file)) {
        return;
    }
    ++in.files;
    engine_messages messages;
    open_file opened;
    uint64_t size = 0;
    uint32_t error = opened.open(in.place(file));
    error = error ? error : opened.size(&size);
    if (error) {
        in.add_failure(file, "unreadable-file", "can't be read", error);
    } else if (size != wanted) {
        in.add(file, 0, "counter-size",
               "has " + counted(size, "byte") + " instead of " + std::to_string(wanted) +
                   ": the next count starts it anew");
    } else if (!is_valid(opened.handle())) {
        const std::string problem = messages.take();
        if (problem.empty()) {
            in.add(file, 0, "counter-header",
                   "has no header of a counter file: the next count starts it anew");
        } else {
            in.add(file, 0, "unreadable-file", "can't be read: " + problem);
        }
    }
}

} // namespace

void verify_counters(tree &in) {
    for (int month = 1; month <= 12; ++month) {
        const std::string digits = std::to_string(month);
        verify_counter_file(in, std::string(daily_files) + (month < 10 ? ".0" : ".") + digits,
                            ql_daily_size, __valid_counter_file);
    }
    verify_counter_file(in, hourly_file, ql_hourly_size, __valid_counter_file_hourly);
}

} // namespace quillfence::verification
