// The worst files and answers for the foundation library: JSON documents, control files, saved
// maps, whole files, the hosts file, DNS answers.
#include <filesystem>
#include <vector>

#include "byte_cursor.h"
#include "cost.h"
#include "dns_script.h"
#include "drive_c.h"
#include "platform/dns.h"
#include "platform/dns_answer.h"
#include "platform/net.h"
#include "platform/process.h"
#include "vc_dns.h"
#include "vc_file.h"
#include "vc_hashmap.h"
#include "vc_json.h"
#include "vc_list.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {
namespace {

constexpr char path[] = "c:/quillfence/file";

class bounds_common : public drive_test {
  protected:
    // Writes an input where the operations look for it.
    preparation written() {
        return [this](const std::string &input) { drive.write(path, input); };
    }
    void write_zeros(uint64_t size) {
        drive.write(path, "");
        std::filesystem::resize_file(drive.native(path), size);
    }
};

// A file of its own for each piece of the same kind: "k0=v", "k1=v", ...
template <class Piece>
std::string numbered(size_t size, const std::string &head, const std::string &tail, Piece piece) {
    std::string text = head;
    for (unsigned n = 0; text.size() + tail.size() < size; ++n) {
        text += piece(std::to_string(n));
    }
    return text + tail;
}

// --- Whole files ---

constexpr uint64_t largest_contents = 100 << 20;

TEST_F(bounds_common, a_whole_file_of_100_mib_is_one_block) {
    write_zeros(largest_contents);
    uint64_t size = 0;
    const cost spent = cost_of([&] { free(vc_file_get_contents_ex(path, &size)); });
    EXPECT_EQ(size, largest_contents);
    EXPECT_EQ(spent.allocations, 1U);
    EXPECT_EQ(spent.bytes, largest_contents + 1);
    EXPECT_EQ(spent.reads, largest_contents / 4096);
    EXPECT_LE(spent.steps, spent.reads * 100);
}

TEST_F(bounds_common, a_larger_file_is_refused_before_it_is_read) {
    write_zeros(largest_contents + 1);
    const cost spent = cost_of([&] { EXPECT_EQ(vc_file_get_contents_ex(path, nullptr), nullptr); });
    EXPECT_EQ(log.errors().size(), 2U);
    EXPECT_EQ(spent.reads, 0U);
    EXPECT_LE(spent.bytes, 4096U) << "the lines";
}

// --- JSON ---

void parse(const std::string &text) {
    vc_json_free(vc_json_parse_string(text.c_str()));
}

void parse_blocks(const std::string &) {
    vc_json **roots = vc_json_parse_full_file(path);
    vc_lstfree(reinterpret_cast<void ***>(&roots), vc_json_free);
}

std::string long_string(size_t size) {
    return rows_of(size, "a", "[\"", "\"]");
}
std::string escapes(size_t size) {
    return rows_of(size, "\\\\", "[\"", "\"]");
}
std::string unclosed_string(size_t size) {
    return rows_of(size, "a", "[\"");
}
std::string long_number(size_t size) {
    return rows_of(size, "1", "[0.", "]");
}
std::string long_keyword(size_t size) {
    return rows_of(size, "t", "[", "]");
}
std::string white_space(size_t size) {
    return rows_of(size, " ", "[", "]");
}
std::string numbers_in_an_array(size_t size) {
    return rows_of(size, "1,", "[", "1]");
}
std::string empty_arrays(size_t size) {
    return rows_of(size, "[],", "[", "[]]");
}
std::string small_objects(size_t size) {
    return rows_of(size, "{\"a\":1},", "[", "1]");
}
std::string deep_arrays(size_t size) {
    return rows_of(size, std::string(999, '[') + std::string(999, ']') + ",", "[", "1]");
}
std::string wrong_end(size_t size) {
    return rows_of(size, "1,", "[", "!]");
}
std::string members(size_t size) {
    return numbered(size, "{", "\"\xC3\xA4\":1}",
                    [](const std::string &n) { return "\"" + n + "\":1,"; });
}

TEST_F(bounds_common, a_document_costs_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"a string", long_string, parse, 20, 1, 5},
        {"a string of escapes", escapes, parse, 20, 1, 5},
        {"a string without an end", unclosed_string, parse, 20, 1, 5},
        {"a number", long_number, parse, 20, 1, 5},
        {"a keyword", long_keyword, parse, 20, 1, 5},
        {"white space", white_space, parse, 20, 1, 5},
        {"numbers", numbers_in_an_array, parse, 200, 30, every_byte},
        {"arrays", empty_arrays, parse, 200, 30, every_byte},
        {"objects", small_objects, parse, 300, 120, every_byte},
        {"arrays as deep as they go", deep_arrays, parse, 200, 60, every_byte},
        {"a mistake at the end", wrong_end, parse, 200, 30, every_byte},
    };
    expect_in_step(rows, 100'000);
    log.take();
}

// A table grows when a bucket is full: it may be twice as large as the one before, or not yet.
TEST_F(bounds_common, members_cost_as_much_as_their_text) {
    for (const size_t size : {size_t{100'000}, size_t{1'000'000}}) {
        const std::string text = members(size);
        const cost spent = cost_of([&] { parse(text); });
        EXPECT_LE(spent.steps, 400 * text.size());
        EXPECT_LE(spent.bytes, 100 * text.size());
    }
}

TEST_F(bounds_common, arrays_nest_a_thousand_deep) {
    const auto nested = [](size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    vc_json *deepest = vc_json_parse_string(nested(1000).c_str());
    EXPECT_NE(deepest, nullptr);
    vc_json_free(deepest);
    const std::string endless = nested(1'000'000);
    for (const std::string &text : {nested(1001), endless}) {
        const cost spent = cost_of([&] { EXPECT_EQ(vc_json_parse_string(text.c_str()), nullptr); });
        EXPECT_LE(spent.allocations, 3 * 1000U);
        EXPECT_LE(spent.steps, 1'000'000U);
        const lines errors = log.errors();
        ASSERT_FALSE(errors.empty());
        EXPECT_EQ(errors.front(), "vc_json_parse_partial: Encountered invalid json");
    }
}

constexpr char blocks[] = "{}";
constexpr char block_members[] = "{\"a\":{\"b\":[1]}} text ";
constexpr char opening_braces[] = "{";

TEST_F(bounds_common, a_file_of_documents_costs_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"empty blocks", row<blocks>, parse_blocks, 200, 60, every_byte},
        {"blocks with text between", row<block_members>, parse_blocks, 200, 100, every_byte},
        {"a block without an end", row<opening_braces>, parse_blocks, 20, 2, 5},
    };
    expect_in_step(rows, 100'000, written());
    log.take();
}

// --- Keys that were chosen to fill the same bucket of every table ---

constexpr uint32_t table_sizes[] = {5,   11,   23,   47,   97,    199,   409,
                                    823, 1741, 3469, 6949, 14033, 28411, 57557};

std::vector<std::string> crowding_keys() {
    std::vector<std::string> keys;
    unsigned n = 0;
    for (const uint32_t buckets : table_sizes) {
        for (int found = 0; found < 14; ++n) {
            const std::string key = "k" + std::to_string(n);
            if (vc_map_hash(key.c_str()) % buckets == 0) {
                keys.push_back(key);
                ++found;
            }
        }
    }
    return keys;
}

// Each table has 13 slots a bucket. Growing ends where the next table would have 116,731 buckets.
TEST_F(bounds_common, keys_that_crowd_a_bucket_do_not_use_the_memory_up) {
    std::string document = "{";
    std::string control;
    for (const std::string &key : crowding_keys()) {
        document += (document == "{" ? "\"" : ",\"") + key + "\":1";
        control += key + "=1\n";
    }
    document += "}";
    ASSERT_LE(document.size(), 4096U);
    const cost parsed =
        cost_of([&] { EXPECT_EQ(vc_json_parse_string(document.c_str()), nullptr); });
    const lines errors = log.errors();
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(errors.front(), "vc_map_store_ex: Failed to rehash map.?");
    drive.write(path, control);
    vc_hashmap *map = nullptr;
    const cost loaded =
        cost_of([&] { EXPECT_EQ(vc_map_load_control_file(path, 0, '=', &map), -1); });
    EXPECT_EQ(log.errors(), (lines{"vc_map_store_ex: Failed to rehash map.?",
                                   "vc_map_load_control_file: Failed to store key/value in map"}));
    for (const cost &spent : {parsed, loaded}) {
        EXPECT_LE(spent.bytes, 32U << 20);
        EXPECT_LE(spent.steps, 32U << 20);
    }
}

// Keys of no special kind fill tables of any size.
TEST_F(bounds_common, other_keys_grow_a_table_as_far_as_it_is_needed) {
    vc_hashmap *map = vc_map_create(0, 0);
    int stored = 0;
    for (int n = 0; n < 200'000; ++n) {
        stored += vc_map_store_int32(map, ("key " + std::to_string(n)).c_str(), n);
    }
    EXPECT_EQ(stored, 200'000);
    EXPECT_GT(map->map_size, 1U << 20);
    vc_map_destroy(map);
}

// --- Control files ---

void load_control(const std::string &) {
    vc_hashmap *map = nullptr;
    if (vc_map_load_control_file(path, 0, '=', &map) == 1) {
        vc_map_destroy(map);
    }
}

std::string long_key(size_t size) {
    return rows_of(size, "k", "", "=v");
}
std::string long_value(size_t size) {
    return rows_of(size, "v", "k=", "");
}
std::string long_comment(size_t size) {
    return rows_of(size, "#", "k=v", "");
}
std::string separator_far_away(size_t size) {
    return rows_of(size, "k\n", "", "=");
}

constexpr char separators[] = "=";
constexpr char line_feeds[] = "\n";

TEST_F(bounds_common, a_control_file_costs_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"a key", long_key, load_control, 60, 6, 12},
        {"a value", long_value, load_control, 60, 6, 12},
        {"a comment", long_comment, load_control, 60, 6, 12},
        {"separators", row<separators>, load_control, 60, 6, 12},
        {"line ends", row<line_feeds>, load_control, 60, 6, 12},
        {"a separator at the end alone", separator_far_away, load_control, 60, 6, 12},
    };
    expect_in_step(rows, 100'000, written());
    log.take();
    for (const size_t size : {size_t{100'000}, size_t{1'000'000}}) {
        drive.write(path, numbered(size, "", "", [](const std::string &n) { return n + "=1\n"; }));
        const cost spent = cost_of([] { load_control(""); });
        EXPECT_LE(spent.steps, 200 * size);
        EXPECT_LE(spent.bytes, 80 * size);
    }
}

// --- Saved maps ---

std::string le32(std::initializer_list<uint32_t> numbers) {
    std::string bytes(4 * numbers.size(), '\0');
    char *place = bytes.data();
    for (const uint32_t number : numbers) {
        store_le32(place, number);
        place += 4;
    }
    return bytes;
}

constexpr char corrupt_line[] = "vc_map_load: Corrupt map file [c:/quillfence/file]";

TEST_F(bounds_common, a_header_that_claims_too_much_is_refused_before_memory_is_asked_for) {
    static const struct {
        const char *name;
        std::string bytes;
    } cases[] = {
        {"the largest table that a map can have", le32({0, 65535, 65537, 0, 0, 0, 0})},
        {"the largest product", le32({0, UINT32_MAX, UINT32_MAX, 0, 0, 0, 0})},
        {"a table of 64 MiB and a bucket", le32({0, (1 << 20) + 1, 8, 0, 0, 0, 0})},
        {"entries without records", le32({0, 5, 13, 65, UINT32_MAX, 0, 0})},
    };
    for (const auto &c : cases) {
        drive.write(path, c.bytes);
        const cost spent = cost_of([] { EXPECT_EQ(vc_map_load(path), nullptr); });
        EXPECT_EQ(log.errors(), lines{corrupt_line}) << c.name;
        EXPECT_LE(spent.bytes, 4096U) << c.name;
    }
}

TEST_F(bounds_common, a_record_that_claims_too_much_is_refused_before_memory_is_asked_for) {
    for (const std::string &lengths : {le32({UINT32_MAX, 0}), le32({0, UINT32_MAX}),
                                       le32({UINT32_MAX, UINT32_MAX}), le32({0x80000000, 1})}) {
        drive.write(path, le32({0, 5, 13, 65, 1, 0, 0}) + le32({0, 0, 1}) + lengths);
        const cost spent = cost_of([] { EXPECT_EQ(vc_map_load(path), nullptr); });
        EXPECT_EQ(log.errors(), lines{corrupt_line});
        EXPECT_LE(spent.bytes, 4096U);
    }
}

// A map that was emptied keeps its table, and a file tells of it.
TEST_F(bounds_common, an_empty_map_may_have_a_table_of_64_mib) {
    drive.write(path, le32({0, 1 << 20, 8, 1 << 23, 0, 0, 0}));
    vc_hashmap *map = nullptr;
    const cost spent = cost_of([&] { map = vc_map_load(path); });
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->map_size, 1U << 23);
    EXPECT_LE(spent.bytes, (64U << 20) + 4096);
    EXPECT_LE(spent.steps, 10'000U) << "the slots are not gone over";
    vc_map_destroy(map);
}

// Records with keys of four bytes, each in the slot of its number and linked to the next one.
std::string saved_map(uint32_t entries, uint32_t buckets, uint32_t slots, uint32_t last_link) {
    std::string bytes = le32({0, buckets, slots, 0, entries, 0, entries - 1});
    for (uint32_t n = 0; n < entries; ++n) {
        bytes += le32({n, n + 1 == entries ? last_link : n + 1, 0, 4, 0, n | 0x80808080});
    }
    return bytes;
}

TEST_F(bounds_common, a_larger_table_needs_an_entry_for_each_64_slots) {
    constexpr uint32_t entries = (1 << 17) + 1;
    drive.write(path, saved_map(entries, entries, 65, 0));
    EXPECT_EQ(vc_map_load(path), nullptr);
    EXPECT_EQ(log.errors(), lines{corrupt_line});
    drive.write(path, saved_map(entries, entries, 64, 0));
    vc_hashmap *map = nullptr;
    const cost spent = cost_of([&] { map = vc_map_load(path); });
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(vc_map_count(map), entries);
    EXPECT_LE(spent.bytes, uint64_t{entries} * (64 * 8 + 200));
    vc_map_destroy(map);
}

void load_map(const std::string &) {
    if (vc_hashmap *map = vc_map_load(path)) {
        vc_map_destroy(map);
    }
}

// All records in buckets of other keys, so that no slot can be worked out from a key.
void load_and_save_map(const std::string &) {
    vc_hashmap *map = vc_map_load(path);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(vc_map_save(map, "c:/quillfence/saved", 1), 1);
    vc_map_destroy(map);
}

constexpr size_t saved_record = 24;

std::string foreign_records(size_t size) {
    const auto entries = static_cast<uint32_t>(size / saved_record);
    return saved_map(entries, entries, 1, 0);
}
// The chain leads back to its first entry instead of ending in the last.
std::string chained_in_a_ring(size_t size) {
    const auto entries = static_cast<uint32_t>(size / saved_record);
    std::string bytes = saved_map(entries, entries, 1, 0);
    store_le32(&bytes[bytes.size() - 2 * saved_record + 4], 0);
    return bytes;
}
std::string chained_to_one(size_t size) {
    const auto entries = static_cast<uint32_t>(size / saved_record);
    std::string bytes = saved_map(entries, entries, 1, 0);
    for (uint32_t n = 0; n < entries; ++n) {
        store_le32(&bytes[28 + n * saved_record + 4], 1);
    }
    return bytes;
}
std::string all_in_one_slot(size_t size) {
    const auto entries = static_cast<uint32_t>(size / saved_record);
    std::string bytes = saved_map(entries, entries, 1, 0);
    store_le32(&bytes[bytes.size() - saved_record], 0);
    return bytes;
}

TEST_F(bounds_common, a_saved_map_costs_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"loaded", foreign_records, load_map, 30, 12, every_byte},
        {"loaded and saved again", foreign_records, load_and_save_map, 100, 20, every_byte},
        {"a ring", chained_in_a_ring, load_map, 30, 12, every_byte},
        {"links to one entry", chained_to_one, load_map, 30, 12, every_byte},
        {"a slot taken twice", all_in_one_slot, load_map, 30, 12, every_byte},
    };
    expect_in_step(rows, 120'000, written());
    EXPECT_EQ(log.errors(), lines(6, corrupt_line)) << "two sizes of the last three";
}

// --- The hosts file ---

void look_up_host(const std::string &) {
    vc_list_entry *names = nullptr;
    vc_append_list_entry(&names, "first", 6, 1);
    EXPECT_GE(vc_gethostent("192.0.2.1", &names), 0);
    vc_destroy_list(&names, free);
}

constexpr char host_lines[] = "192.0.2.1 a\n";
constexpr char name_lines[] = "192.0.2.1 a b c d e f g h i j k l m n o p q r s t u v w x y z\n";
constexpr char bad_lines[] = "x y\n";
constexpr char long_line[] = "x";
constexpr char comment_lines[] = "#\n";

TEST_F(bounds_common, a_hosts_file_costs_as_much_as_it_is_long) {
    platform::set_hosts_file_stand_in(path);
    static constexpr growing_input rows[] = {
        {"a name on each line", row<host_lines>, look_up_host, 60, 4, every_byte},
        {"many names on each line", row<name_lines>, look_up_host, 60, 15, every_byte},
        {"no address on any line", row<bad_lines>, look_up_host, 300, 0, 10},
        {"one line", row<long_line>, look_up_host, 60, 0, 10},
        {"comments", row<comment_lines>, look_up_host, 60, 0, 10},
    };
    for (const growing_input &input : rows) {
        expect_in_step(input, 50'000, written());
        log.take(); // one for each line without an address
    }
    platform::set_hosts_file_stand_in(nullptr);
}

// --- DNS answers ---

void put_u16(std::string *to, size_t number) {
    *to += static_cast<char>(number >> 8);
    *to += static_cast<char>(number & 0xFF);
}

std::string answer_header(size_t answers) {
    std::string message(2, '\0');
    put_u16(&message, 0x8000);
    put_u16(&message, 0);
    put_u16(&message, answers);
    return message + std::string(4, '\0');
}

// A record of the root's name.
std::string record(uint16_t type, const std::string &data) {
    std::string bytes(1, '\0');
    put_u16(&bytes, type);
    put_u16(&bytes, 1);
    bytes += std::string(4, '\0');
    put_u16(&bytes, data.size());
    return bytes + data;
}

constexpr size_t first_data = 12 + 11; // where the data of the first record lies

std::string pointer_to(size_t place) {
    std::string bytes;
    put_u16(&bytes, 0xC000 | place);
    return bytes;
}

// A name, and pointers of which each leads to the one before it: what the last of them costs.
std::string pointer_chain(size_t pointers) {
    std::string data("\1a\0", 3);
    for (size_t place = first_data; pointers > 0; --pointers) {
        data += pointer_to(place);
        place = first_data + data.size() - 2;
    }
    return data;
}

// PTR records with the same data, as many as fit.
std::string message_of(size_t size, const std::string &first, const std::string &each) {
    const std::string one = record(platform::dns_type_ptr, each);
    const size_t count = (size - first.size() - first_data) / one.size();
    std::string message = answer_header(count + 1) + record(16, first);
    for (size_t n = 0; n < count; ++n) {
        message += one;
    }
    return message;
}

// The records whose names jump most often: 126 times along the chain, and once to get there.
std::string most_jumps(size_t size) {
    const std::string chain = pointer_chain(126);
    return message_of(size, chain, pointer_to(first_data + chain.size() - 2));
}
// 255 bytes of name, of which each becomes four characters.
std::string longest_names(size_t size) {
    std::string name;
    for (const size_t length : {63U, 63U, 63U, 61U}) {
        name += static_cast<char>(length) + std::string(length, '\1');
    }
    return message_of(size, name + '\0', pointer_to(first_data));
}
std::string root_names(size_t size) {
    return message_of(size, "", std::string(1, '\0'));
}
std::string claimed_records(size_t size) {
    std::string message = most_jumps(size);
    message[6] = message[7] = '\xFF';
    return message;
}

uint32_t read_answer(const std::string &message) {
    platform::dns_record *records = nullptr;
    const uint32_t status = platform::read_dns_answer(message.data(), message.size(), &records);
    platform::dns_release(records);
    return status;
}
void use_answer(const std::string &message) {
    read_answer(message);
}

// A message has at most 65,535 bytes.
TEST_F(bounds_common, an_answer_costs_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"pointers to pointers", most_jumps, use_answer, 300, 6, every_byte},
        {"the longest names", longest_names, use_answer, 1000, 90, every_byte},
        {"the most records", root_names, use_answer, 60, 6, every_byte},
        {"more records claimed", claimed_records, use_answer, 300, 6, every_byte},
    };
    expect_in_step(rows, 32'000);
    EXPECT_EQ(read_answer(most_jumps(65'535)), 0U);
    EXPECT_EQ(read_answer(longest_names(65'535)), 0U);
    EXPECT_EQ(read_answer(claimed_records(65'535)), 9502U);
}

TEST_F(bounds_common, a_name_jumps_at_most_127_times) {
    for (const auto &[pointers, status] : {std::pair{126, 0U}, {127, 9502U}, {8000, 9502U}}) {
        const std::string chain = pointer_chain(static_cast<size_t>(pointers));
        const std::string message =
            message_of(65'535, chain, pointer_to(first_data + chain.size() - 2));
        EXPECT_EQ(read_answer(message), status) << pointers;
    }
}

constexpr char ptr_name[] = "a.example ";

void look_up_names(const std::string &) {
    char **names = nullptr;
    EXPECT_EQ(vc_lookup_reverse_dns(&names, "192.0.2.1", 0, 0), vc_dns_found);
    vc_lstfree(reinterpret_cast<void ***>(&names), free);
}

TEST_F(bounds_common, the_names_of_an_address_cost_as_much_as_they_are_long) {
    dns_script dns;
    const growing_input input = {"PTR records", row<ptr_name>, look_up_names, 60, 12, every_byte};
    expect_in_step(input, 20'000, [&](const std::string &text) {
        dns.ptr("1.2.0.192.in-addr.arpa.", lines(text.size() / 10, "a.example"));
    });
    EXPECT_EQ(dns_script::asked().size(), 2U);
}

} // namespace
} // namespace quillfence::testing
