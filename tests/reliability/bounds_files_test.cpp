// The worst files that the engine may be given: lists, ranges, block maps, patterns, counters,
// sender forgery, registry exports.
#include <filesystem>
#include <fstream>

#include "byte_cursor.h"
#include "cost.h"
#include "drive_c.h"
#include "is_local_domain.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "platform/registry_export.h"
#include "quillfence-file.h"
#include "quillfence-iprange.h"
#include "quillfence-log.h"
#include "test_registry.h"
#include "tiny_rex.h"
#include "tiny_rex_storage.h"
#include "vc_list.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char directory[] = "c:/quillfence";
constexpr char name[] = "file";
constexpr char path[] = "c:/quillfence/file";

class bounds_files : public drive_test {
  protected:
    bounds_files() {
        vc_file_exists_ex(directory, vc_type_directory); // VERBOSEDEBUG is asked for once
    }
    preparation written() {
        return [this](const std::string &input) { drive.write(path, input); };
    }
    void write_zeros(const std::string &file, uint64_t size) {
        drive.write(file, "");
        std::filesystem::resize_file(drive.native(file), size);
    }
};

// --- Lists ---

constexpr uint64_t list_piece = 32768; // bytes of one read

void look_up(const std::string &) {
    __file_contains_line(directory, name, "no.such.example", _stricmp);
}
void look_up_wildcards(const std::string &) {
    __file_contains_line(directory, name, "user@no.such.example", __wildcardmatch);
}
void walk(const std::string &) {
    vc_iterate_file(directory, name, [](const char *, uint32_t) {});
}
void add_entry(const std::string &) {
    vc_add_entry(directory, name, "new.example", nullptr, _stricmp);
}
void delete_entry(const std::string &) {
    vc_del_entry(directory, name, "a", 0, _stricmp);
}
void comment_entry(const std::string &) {
    vc_add_entry(directory, name, "a", "a comment", _stricmp);
}

constexpr char short_lines[] = "a\n";
constexpr char entries[] = "some.name.example\n";
constexpr char wildcards[] = "*@*.other\n";
constexpr char many_stars[] = "*a*b*c*d*e*f*g*h*i*j*k\n";
constexpr char patterns_in_a_list[] = "*(q|z)*\n";
constexpr char comment_lines[] = "# comment\n";
constexpr char line_feeds[] = "\n";
constexpr char carriage_returns[] = "\r";
constexpr char blanks[] = " ";
constexpr char letters[] = "a";
constexpr char tabs[] = "a\n\tcomment\n";

TEST_F(bounds_files, a_list_is_looked_through_once) {
    static constexpr growing_input rows[] = {
        {"entries of a letter", row<short_lines>, look_up, 60, 0, 4},
        {"entries", row<entries>, look_up, 60, 0, 4},
        {"comments", row<comment_lines>, look_up, 60, 0, 4},
        {"empty lines", row<line_feeds>, look_up, 60, 0, 4},
        {"carriage returns", row<carriage_returns>, look_up, 60, 0, 4},
        {"blanks", row<blanks>, look_up, 60, 0, 4},
        {"a line", row<letters>, look_up, 60, 0, 4},
        {"wildcards", row<wildcards>, look_up_wildcards, 100, 0, 4},
        {"many stars", row<many_stars>, look_up_wildcards, 100, 0, 4},
        {"walked through", row<short_lines>, walk, 60, 0, 4},
    };
    expect_in_step(rows, 100'000, written());
    static constexpr growing_input compiled[] = {
        {"patterns", row<patterns_in_a_list>, look_up_wildcards, 800, 120, every_byte},
    };
    expect_in_step(compiled, 20'000, written());
}

std::string full_lines(size_t size) {
    return rows_of(size, std::string(1021, 'a') + "\n");
}
std::string overlong_lines(size_t size) {
    return rows_of(size, std::string(1023, 'a') + "\r\n");
}
std::string lines_of_nuls(size_t size) {
    return rows_of(size, std::string(1021, '\0') + "\n");
}

TEST_F(bounds_files, the_longest_lines_are_looked_through_once) {
    static constexpr growing_input rows[] = {
        {"as long as a line may be", full_lines, look_up, 60, 0, 4},
        {"longer", overlong_lines, look_up, 60, 0, 4},
        {"of NULs", lines_of_nuls, look_up, 60, 0, 4},
    };
    expect_in_step(rows, 100'000, written());
}

// A wildcard line against the sender that a client chooses: the line almost occurs in it at every
// place, or does at its end.
template <char last>
std::string almost(size_t size) {
    return rows_of(size, "a", "", std::string(1, last));
}
const std::string nearly_a_line = "*" + std::string(1018, 'a') + "b*";
std::string stars_and(const std::string &piece, size_t size, const std::string &tail = "") {
    return rows_of(size, "*" + piece, "", tail);
}

void match_a_long_piece(const std::string &sender) {
    __wildcardmatch(nearly_a_line.c_str(), sender.c_str());
}
void match_ten_stars_and_a_class(const std::string &sender) {
    __wildcardmatch(stars_and("a", 20, "[x]").c_str(), sender.c_str());
}
void match_three_hundred_stars_and_a_class(const std::string &sender) {
    __wildcardmatch(stars_and("a", 600, "[x]").c_str(), sender.c_str());
}
TEST_F(bounds_files, a_wildcard_line_costs_as_much_as_the_sender_is_long) {
    static constexpr growing_input rows[] = {
        {"a long piece, not found", almost<'a'>, match_a_long_piece, 40, 0, 0},
        {"a long piece, found", almost<'b'>, match_a_long_piece, 40, 0, 1},
        {"ten stars and a class", row<letters>, match_ten_stars_and_a_class, 100, 0, 8},
        {"300 stars and a class", row<letters>, match_three_hundred_stars_and_a_class, 100, 0, 8},
    };
    expect_in_step(rows, 65'000);
    EXPECT_EQ(__wildcardmatch(nearly_a_line.c_str(), almost<'b'>(65'000).c_str()), 0);
}

TEST_F(bounds_files, a_list_of_a_million_entries_is_read_in_pieces) {
    drive.write(path, rows_of(2'000'000, short_lines));
    const cost spent = cost_of([] { look_up(""); });
    EXPECT_LE(spent.allocations, 2U);
    EXPECT_LE(spent.bytes, 4096U);
    EXPECT_EQ(spent.reads, 2'000'000 / list_piece + 2) << "the last finds the end";
    EXPECT_LE(spent.calls, spent.reads + 4);
}

TEST_F(bounds_files, a_line_of_100_mib_is_read_in_pieces) {
    write_zeros(path, 100 << 20);
    const cost spent = cost_of([] { look_up(""); });
    EXPECT_LE(spent.bytes, 4096U);
    EXPECT_LE(spent.reads, (100 << 20) / (list_piece - 1024) + 2);
    const cost walked = cost_of([] { walk(""); });
    EXPECT_LE(walked.bytes, 4096U);
    EXPECT_EQ(walked.reads, spent.reads);
}

// One write a line, and two copies of the whole.
TEST_F(bounds_files, an_edit_costs_as_much_as_the_list_is_long) {
    static constexpr growing_input rows[] = {
        {"an entry added", row<entries>, add_entry, 100, 0, 6},
        {"the same to short lines", row<short_lines>, add_entry, 200, 0, 6},
        {"the same to one line", row<letters>, add_entry, 60, 0, 6},
        {"the same to blanks", row<blanks>, add_entry, 60, 0, 6},
        {"every entry deleted", row<short_lines>, delete_entry, 100, 0, 6},
        {"every entry and its comment deleted", row<tabs>, delete_entry, 100, 0, 6},
        {"every entry commented", row<tabs>, comment_entry, 100, 0, 6},
    };
    expect_in_step(rows, 20'000, written());
}

void load_list(const std::string &) {
    vc_list_entry *list = vc_file_to_list(directory, name);
    vc_destroy_list(&list, free);
}

TEST_F(bounds_files, a_control_file_costs_two_blocks_a_line) {
    static constexpr growing_input rows[] = {
        {"lines of a letter", row<short_lines>, load_list, 30, 20, every_byte},
        {"names", row<entries>, load_list, 30, 6, every_byte},
        {"empty lines", row<line_feeds>, load_list, 30, 30, every_byte},
        {"a line", row<letters>, load_list, 30, 3, 6},
    };
    expect_in_step(rows, 200'000, written());

    write_zeros(path, 100 << 20);
    const cost spent = cost_of([] { load_list(""); });
    EXPECT_LE(spent.allocations, 6U);
    EXPECT_LE(spent.bytes, (200U << 20) + 4096) << "the text and its only line";
    write_zeros(path, (100 << 20) + 1);
    const cost refused = cost_of([] { load_list(""); });
    EXPECT_EQ(log.errors().size(), 2U);
    EXPECT_LE(refused.bytes, 4096U);
    EXPECT_EQ(refused.reads, 0U);
}

constexpr char other_domains[] = "other.example\tx\n";

void look_up_domain(const std::string &) {
    EXPECT_EQ(is_local_domain("user@no.such.example"), 0);
}

TEST_F(bounds_files, the_mail_servers_domains_are_looked_through_once) {
    const test_registry registry;
    registry.set_text("SOFTWARE\\Mail Enable\\Mail Enable", "Configuration Directory",
                      "c:\\quillfence");
    static constexpr growing_input rows[] = {
        {"domains", row<other_domains>, look_up_domain, 30, 0, 20},
        {"empty lines", row<line_feeds>, look_up_domain, 30, 0, 20},
        {"a line", row<letters>, look_up_domain, 30, 0, 20},
    };
    expect_in_step(rows, 100'000, [this](const std::string &input) {
        drive.write("c:/quillfence/DOMAIN.TAB", input);
    });
}

// --- Ranges ---

std::string range_header(uint32_t version, uint32_t count) {
    std::string bytes(16, '\0');
    store_le64(bytes.data(), 0x66D76C80A937D3EA);
    store_le32(&bytes[8], version);
    store_le32(&bytes[12], count);
    return bytes;
}

// 10.1.0.0 to 10.1.0.255, as many records as fit, and a header that tells of four thousand million.
std::string ranges(size_t size, uint32_t version, size_t record) {
    const std::string one =
        std::string("\x0A\x01\0\0\x0A\x01\0\xFF", 8) + std::string(record - 8, 'c');
    return rows_of(size, one, range_header(version, UINT32_MAX));
}
std::string claimed_ranges(size_t size) {
    return ranges(size, 2, 264);
}
std::string claimed_legacy_ranges(size_t size) {
    return ranges(size, 1, 8);
}
// The header tells the truth.
std::string counted_ranges(size_t size) {
    std::string bytes = ranges(size, 2, 264);
    store_le32(&bytes[12], static_cast<uint32_t>((bytes.size() - 16) / 264));
    return bytes;
}
std::string counted_legacy_ranges(size_t size) {
    std::string bytes = ranges(size, 1, 8);
    store_le32(&bytes[12], static_cast<uint32_t>((bytes.size() - 16) / 8));
    return bytes;
}

void look_up_range(const std::string &) {
    file_contains_ip_range_match(name, "10.2.3.4", directory);
}
void look_for_range(const std::string &) {
    ipr_file_contains_range(path, "10.2.0.0", "10.2.0.9", nullptr);
}
void add_range(const std::string &) {
    ipr_add(directory, name, "10.2.0.0", "10.2.0.9", "new", nullptr);
}
void delete_range(const std::string &) {
    ipr_del_range_from_file(directory, name, "10.1.0.0", "10.1.0.255", nullptr);
}
void convert_ranges(const std::string &) {
    ipr_convert_file(directory, name);
}

TEST_F(bounds_files, a_range_file_is_read_as_far_as_it_goes) {
    static constexpr growing_input rows[] = {
        {"four thousand million claimed", claimed_ranges, look_up_range, 10, 0, 6},
        {"the same, sought", claimed_ranges, look_for_range, 10, 0, 6},
        {"the same, added to", claimed_ranges, add_range, 10, 0, 8},
        {"the same, deleted from", claimed_ranges, delete_range, 10, 0, 12},
        {"legacy", claimed_legacy_ranges, look_up_range, 30, 0, 6},
        {"legacy, sought", claimed_legacy_ranges, look_for_range, 30, 0, 6},
        {"legacy, converted", claimed_legacy_ranges, convert_ranges, 60, 0, 12},
        {"counted rightly", counted_ranges, look_up_range, 10, 0, 6},
        {"the same, all deleted", counted_ranges, delete_range, 10, 0, 12},
        {"legacy, counted rightly, converted", counted_legacy_ranges, convert_ranges, 60, 0, 12},
    };
    for (const growing_input &input : rows) {
        expect_in_step(input, 40'000, written());
        log.take();
    }
    drive.write(path, claimed_ranges(2'640'016));
    const cost spent = cost_of([] { look_up_range(""); });
    EXPECT_LE(spent.reads, 2'640'016 / (124 * 264) + 3) << "the header, pieces, the end";
    EXPECT_EQ(log.errors(),
              lines{"file_contains_ip_range_match: file c:/quillfence/file is corrupt"});
}

// --- Block maps ---

// An address whose three steps lie far apart in a map of half a gigabyte.
TEST_F(bounds_files, a_block_map_of_any_size_costs_three_reads) {
    constexpr uint32_t size = 512 << 20;
    write_zeros(path, size);
    const auto put = [this](uint32_t place, uint32_t number) {
        char bytes[4];
        store_le32(bytes, number);
        std::fstream file(drive.native(path), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(place);
        file.write(bytes, sizeof bytes);
    };
    put(10 * 4, size - 8192 - 1024);              // 10.x: its table
    put(size - 8192 - 1024 + 1 * 4, size - 8192); // 10.1.x: its bitmap
    put(size - 4, 0x01000000);                    // 10.1.255.255, the last bit of the last byte
    int listed = 0;
    const cost spent = cost_of([&] { listed = lookupMapFile(path, 0xFFFF010A); });
    EXPECT_EQ(listed, 1);
    EXPECT_EQ(spent.reads, 3U);
    EXPECT_EQ(spent.allocations, 0U);
    EXPECT_LE(spent.calls, 3U + 3 + 4) << "a seek each; looked for, opened, sized, closed";
    EXPECT_LE(spent.steps, 2000U);
}

void look_up_maps(const std::string &names) {
    vc_list_entry *maps = nullptr;
    vc_list_from_string_by_char(&maps, names.data(), names.size(), '\n');
    vc_list_entry *hits = nullptr;
    lookupMaps(directory, maps, "10.1.2.3", &hits);
    EXPECT_EQ(vc_list_count(hits), static_cast<int>(names.size() / 4));
    vc_destroy_list(&hits, free);
    vc_destroy_list(&maps, free);
}

constexpr char map_names[] = "map\n";

TEST_F(bounds_files, a_list_of_block_maps_costs_as_much_as_it_is_long) {
    std::string map(1024, '\0');
    map.replace(10 * 4, 4, 4, '\xFF');
    drive.write("c:/quillfence/map", map);
    constexpr growing_input input = {
        "the same map many times", row<map_names>, look_up_maps, 500, 80, every_byte};
    expect_in_step(input, 8'000, nullptr);
}

// --- Patterns ---

void compile(const std::string &pattern) {
    trex_free(trex_compile_ex(pattern.c_str(), trex_fold_case));
}

constexpr char branches[] = "a|";
constexpr char groups[] = "(a)";
constexpr char open_groups[] = "(";
constexpr char stars[] = "a*";
constexpr char any_sequences[] = ".*";
constexpr char bounds_in_braces[] = "a{1,65534}";
constexpr char classes[] = "[a-z]";
constexpr char escapes[] = "\\";
constexpr char dollars[] = "$";

std::string class_of_items(size_t size) {
    return rows_of(size, "a-z", "[", "]");
}
std::string unclosed_class(size_t size) {
    return rows_of(size, "a", "[", "");
}
std::string digits_in_braces(size_t size) {
    return rows_of(size, "0", "a{", "}");
}
std::string groups_in_groups(size_t size) {
    return rows_of(size, std::string(900, '(') + "a" + std::string(900, ')'));
}

TEST_F(bounds_files, a_pattern_is_compiled_for_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"letters", row<letters>, compile, 100, 20, 8},
        {"branches", row<branches>, compile, 100, 20, 8},
        {"groups", row<groups>, compile, 100, 30, 8},
        {"groups in groups", groups_in_groups, compile, 100, 30, 8},
        {"groups without an end", row<open_groups>, compile, 100, 20, 8},
        {"repetitions", row<stars>, compile, 100, 20, 8},
        {"any sequences", row<any_sequences>, compile, 100, 20, 8},
        {"large repetitions", row<bounds_in_braces>, compile, 100, 20, 8},
        {"digits", digits_in_braces, compile, 100, 20, 8},
        {"classes", row<classes>, compile, 100, 20, 8},
        {"one class", class_of_items, compile, 100, 20, 8},
        {"a class without an end", unclosed_class, compile, 100, 20, 8},
        {"escapes", row<escapes>, compile, 100, 20, 8},
        {"ends", row<dollars>, compile, 100, 50, 8},
    };
    expect_in_step(rows, 100'000);
    log.take();
}

// A pattern may have 33,554,431 characters; one more is refused before memory is asked for.
TEST_F(bounds_files, the_longest_pattern_is_known_beforehand) {
    constexpr size_t longest = 33'554'431;
    std::string pattern(longest + 1, 'a');
    const cost refused = cost_of([&] { compile(pattern); });
    EXPECT_EQ(log.errors(), lines{"trex_compile_ex: pattern is longer than 33554431 characters"});
    EXPECT_LE(refused.bytes, 4096U);
    pattern[longest] = '\0';
    pattern[0] = '(';
    pattern[1] = ')'; // fails at once, with all the memory that the longest pattern takes
    const cost spent = cost_of([&] { compile(pattern); });
    EXPECT_EQ(log.errors(), lines{"__trex_element: failed to parse through sub expression"});
    EXPECT_LE(spent.bytes, 17 * (longest + 6) + 4096);
}

// What a match goes through is told by its steps: each is a bounded piece of work.
TEST_F(bounds_files, a_step_of_a_match_is_a_bounded_piece_of_work) {
    static constexpr const char *patterns[] = {
        "^(a*)*b$",      "^((a+)+)+b$",        "(a|b)*c.*d",
        "([a-f]+\\d)*x", ".*a.*b.*c",          "^(a?)(a?)(a?)(a?)b$",
        "(.*.*.*)*x",    "^(a{1,60}){1,60}b$", "[^b-z]*\\bz",
    };
    const std::string subject(300, 'a');
    for (const char *pattern : patterns) {
        TRex *expression = trex_compile_ex(pattern, trex_fold_case);
        ASSERT_NE(expression, nullptr) << pattern;
        const cost spent = cost_of([&] { EXPECT_EQ(trex_match(expression, subject.c_str()), 0); });
        EXPECT_EQ(spent.allocations, 0U) << pattern;
        EXPECT_LE(spent.steps, 60 * uint64_t{expression->steps} + 10'000) << pattern;
        trex_free(expression);
    }
}

// --- Compiled patterns ---

std::string pattern_node(int32_t type, int32_t left, int32_t right, int32_t next) {
    std::string bytes(16, '\0');
    int place = 0;
    for (const int32_t field : {type, left, right, next}) {
        store_le32(&bytes[static_cast<size_t>(4 * place++)], static_cast<uint32_t>(field));
    }
    return bytes;
}
std::string le32(uint32_t number) {
    std::string bytes(4, '\0');
    store_le32(bytes.data(), number);
    return bytes;
}

const std::string pattern_magic = le32(60345);

// ^xxx...$ in so many nodes.
std::string pattern_block(int32_t nodes) {
    std::string bytes = le32(static_cast<uint32_t>(nodes)) + pattern_node(258, 1, 0, -1) +
                        pattern_node(267, -1, -1, 2);
    for (int32_t n = 2; n < nodes - 1; ++n) {
        bytes += pattern_node('x', -1, -1, n + 1);
    }
    return bytes + pattern_node(266, -1, -1, -1);
}

std::string largest_blocks(size_t size) {
    return rows_of(size, pattern_block(4095), pattern_magic);
}
std::string smallest_blocks(size_t size) {
    return rows_of(size, pattern_block(4), pattern_magic);
}
std::string counts_of_zero(size_t size) {
    return rows_of(size, std::string(4, '\0'), pattern_magic);
}
std::string counts_too_large(size_t size) {
    return rows_of(size, le32(4096), pattern_magic);
}
// The last block claims what is not there, and is read node by node.
std::string cut_block(size_t size) {
    const std::string block = pattern_block(4095);
    return rows_of(size, pattern_block(4), pattern_magic, block.substr(0, block.size() - 8));
}

void match_file(const std::string &) {
    compiled_regex_match(path, "name.example");
}

TEST_F(bounds_files, a_pattern_file_costs_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"the largest expressions", largest_blocks, match_file, 10, 0, 6},
        {"the smallest expressions", smallest_blocks, match_file, 60, 0, 6},
        {"expressions without nodes", counts_of_zero, match_file, 400, 0, 6},
        {"expressions too large", counts_too_large, match_file, 400, 0, 6},
        {"a block without an end", cut_block, match_file, 60, 0, 6},
    };
    static constexpr uint64_t window_and_nodes = 96 * 1024 + 4095 * 16;
    for (const growing_input &input : rows) {
        const std::string bytes = input.made(400'000);
        drive.write(path, bytes);
        const cost spent = cost_of([] { match_file(""); });
        EXPECT_LE(spent.bytes, window_and_nodes + fixed_bytes) << input.name;
        EXPECT_LE(spent.stream_bytes, bytes.size() + bytes.size() / 2 + 4) << input.name;
        log.take();
    }
    for (growing_input input : rows) {
        input.bytes_a_byte = 1; // the window
        expect_in_step(input, 200'000, written());
        log.take();
    }
}

// --- Counters ---

TEST_F(bounds_files, a_counter_file_of_any_size_costs_the_same) {
    drive.make_folder("c:/quillfence/log");
    const auto counted = [this](uint64_t size) {
        for (int month = 1; month <= 12; ++month) {
            const std::string digits = month < 10 ? "0" : "";
            write_zeros("c:/quillfence/log/.counterv2.dat." + digits + std::to_string(month), size);
        }
        write_zeros("c:/quillfence/log/.counterv2.dat.hourly", size);
        return cost_of([] {
            quillfence_increment_counter("c:/quillfence/log", log_type_spam, 0);
            quillfence_increment_counter_hourly("c:/quillfence/log", log_type_spam, 0);
        });
    };
    const cost small = counted(10);
    const cost large = counted(100 << 20);
    EXPECT_EQ(large.calls, small.calls);
    EXPECT_EQ(large.reads, small.reads);
    EXPECT_LE(large.reads, 6U);
    EXPECT_EQ(large.bytes, small.bytes);
    EXPECT_LE(large.bytes, 4096U);
}

// --- Sender forgery ---

void check_sender(const std::string &) {
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("10.1.1.1", "no.such.example", path), 1);
}

constexpr char declarations[] = "some.example:192.0.2.1,10.0.0.0/8\n";
constexpr char shortest_declarations[] = "a.b:0.0.0.0\n";
constexpr char colons[] = ":";
constexpr char broken_lines[] = "x\n";

std::string many_items(size_t size) {
    return rows_of(size, "1.1.1.1,", "some.example:", "1.1.1.1\n");
}
std::string commas(size_t size) {
    return rows_of(size, ",", "some.example:1.1.1.1");
}
std::string slashes(size_t size) {
    return rows_of(size, "/", "some.example:1.1.1.1");
}
std::string broken_items(size_t size) {
    return rows_of(size, "x,", "some.example:1.1.1.1,");
}
std::string long_domain(size_t size) {
    return rows_of(size, "a.", "", "a:1.1.1.1");
}

TEST_F(bounds_files, declarations_cost_as_much_as_they_are_long) {
    static constexpr growing_input rows[] = {
        {"declarations", row<declarations>, check_sender, 60, 8, every_byte},
        {"the shortest declarations", row<shortest_declarations>, check_sender, 60, 12, every_byte},
        {"one with many items", many_items, check_sender, 60, 4, 10},
        {"one with commas", commas, check_sender, 60, 4, 10},
        {"one with slashes", slashes, check_sender, 60, 4, 10},
        {"one with items that are none", broken_items, check_sender, 60, 4, 10},
        {"a domain", long_domain, check_sender, 60, 4, 10},
        {"colons", row<colons>, check_sender, 60, 4, 10},
        {"lines that declare nothing", row<broken_lines>, check_sender, 60, 3, every_byte},
        {"comments", row<comment_lines>, check_sender, 60, 3, 10},
        {"empty lines", row<line_feeds>, check_sender, 60, 3, 10},
        {"blanks", row<blanks>, check_sender, 60, 3, 10},
    };
    expect_in_step(rows, 100'000, written());
}

// --- Registry exports ---

constexpr char wanted_key[] = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail";

void read_export(const std::string &bytes) {
    platform::exported_key key;
    EXPECT_EQ(platform::registry_export_read(bytes.data(), bytes.size(), wanted_key, &key), 0U);
    platform::registry_export_release(&key);
}

const std::string export_head = "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\n";

template <char const *piece>
std::string export_of(size_t size) {
    return rows_of(size, piece, export_head);
}
// The same in UTF-16.
template <char const *piece>
std::string wide_export_of(size_t size) {
    const std::string text =
        "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\n";
    std::string wide("\xFF\xFE");
    for (const char c : rows_of(size / 2, piece, text)) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

constexpr char values[] = "\"a\"=\"b\"\n";
constexpr char open_names[] = "\"a\n";
constexpr char open_texts[] = "@=\"a\n";
constexpr char escaped_quotes[] = "\"\\\"\n";
constexpr char only_quotes[] = "\"";
constexpr char hex_lines[] = "@=hex:00,\\\n";
constexpr char hex_bytes[] = "00,\\\n";
constexpr char sections[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\n";
constexpr char deletions[] =
    "@=\"a\"\n[-HKEY_LOCAL_MACHINE\\SOFTWARE]\n[HKEY_LOCAL_MACHINE\\SOFTWARE"
    "\\Mail]\n";
constexpr char open_sections[] = "[HKEY_LOCAL_MACHINE\\\n";
constexpr char section_brackets[] = "[";
constexpr char text_lines[] = "\"a\"=\"\n [\n";

std::string long_hex(size_t size) {
    return rows_of(size, hex_bytes, export_head + "@=hex:");
}
std::string long_section(size_t size) {
    return rows_of(size, "[HKLM\\", export_head, "\n");
}
std::string different_values(size_t size) {
    std::string text = export_head;
    for (unsigned n = 0; text.size() < size; ++n) {
        text += "\"value " + std::to_string(n * 2654435761U) + "\"=dword:1\n";
    }
    return text;
}

TEST_F(bounds_files, an_export_costs_as_much_as_it_is_long) {
    static constexpr growing_input rows[] = {
        {"values of one name", export_of<values>, read_export, 300, 60, every_byte},
        {"values", different_values, read_export, 300, 60, every_byte},
        {"names without an end", export_of<open_names>, read_export, 300, 60, every_byte},
        {"texts without an end", export_of<open_texts>, read_export, 300, 60, every_byte},
        {"escaped quotes", export_of<escaped_quotes>, read_export, 300, 60, every_byte},
        {"quotes", export_of<only_quotes>, read_export, 300, 60, every_byte},
        {"bytes that go on", export_of<hex_lines>, read_export, 300, 60, every_byte},
        {"one value of bytes", long_hex, read_export, 300, 60, every_byte},
        {"sections", export_of<sections>, read_export, 300, 60, every_byte},
        {"deletions", export_of<deletions>, read_export, 300, 60, every_byte},
        {"sections without an end", export_of<open_sections>, read_export, 300, 60, every_byte},
        {"brackets", export_of<section_brackets>, read_export, 300, 60, every_byte},
        {"a section of sections", long_section, read_export, 300, 60, every_byte},
        {"texts over many lines", export_of<text_lines>, read_export, 300, 60, every_byte},
        {"blanks", export_of<blanks>, read_export, 300, 60, every_byte},
        {"empty lines", export_of<line_feeds>, read_export, 300, 60, every_byte},
        {"wide values", wide_export_of<values>, read_export, 300, 60, every_byte},
        {"wide names without an end", wide_export_of<open_names>, read_export, 300, 60, every_byte},
        {"wide quotes", wide_export_of<only_quotes>, read_export, 300, 60, every_byte},
    };
    expect_in_step(rows, 100'000);
}

} // namespace
} // namespace quillfence::testing
