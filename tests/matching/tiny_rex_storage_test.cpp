#include "tiny_rex_storage.h"

#include "step_budget.h"

#include <cstring>
#include <string>
#include <vector>

#include "call_watch.h"
#include "drive_c.h"
#include "failing_memory.h"
#include "platform/file.h"
#include "platform/observer.h"
#include "slow_matcher.h"

namespace quillfence {
namespace {

using testing::drive_test;
using testing::lines;
using testing::traced_drive_test;

constexpr char path[] = "c:/quillfence/dynaregex/dyna.cregexes";

// --- Files by hand ---

std::string le32(int64_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(static_cast<uint64_t>(value) >> shift & 0xFF);
    }
    return bytes;
}

std::string node(int64_t type, int64_t left = -1, int64_t right = -1, int64_t next = -1) {
    return le32(type) + le32(left) + le32(right) + le32(next);
}

const std::string header("\xB9\xEB\x00\x00", 4);

// ^<letter>$ as a block of four nodes.
std::string letter_block(char letter) {
    return le32(4) + node(258, 1, 0) + node(267, -1, -1, 2) + node(letter, -1, -1, 3) + node(266);
}

const std::string not_valid =
    "compiled_regex_match: file [c:/quillfence/dynaregex/dyna.cregexes] is not a valid vellumcraft "
    "generated regex file";

class tiny_rex_storage : public drive_test {
  protected:
    // Answers for the one-letter names a, b and c.
    std::string answers(const std::string &bytes) {
        drive.write(path, bytes);
        std::string hits;
        for (const char *name : {"a", "b", "c"}) {
            hits += compiled_regex_match(path, name) ? name : "-";
        }
        return hits;
    }
};
class tiny_rex_storage_traced : public traced_drive_test {};

// A record that holds nothing yet.
trex_ptr empty_record() {
    return trex_ptr(static_cast<TRex *>(std::calloc(1, sizeof(TRex))));
}

TEST_F(tiny_rex_storage, missing_arguments) {
    EXPECT_EQ(compiled_regex_match(nullptr, "a"), 0);
    EXPECT_EQ(compiled_regex_match("", "a"), 0);
    EXPECT_EQ(compiled_regex_match(path, nullptr), 0);
    EXPECT_EQ(log.errors(), lines(3, "compiled_regex_match: Invalid argument"));
}

TEST_F(tiny_rex_storage, a_missing_file_matches_nothing_silently) {
    EXPECT_EQ(compiled_regex_match(path, "a"), 0);
    EXPECT_FALSE(drive.exists(path));
    drive.make_folder(path); // a folder is no file
    EXPECT_EQ(compiled_regex_match(path, "a"), 0);
}

TEST_F(tiny_rex_storage, a_file_of_the_magic_alone_matches_nothing_silently) {
    EXPECT_EQ(answers(header), "---");
}

TEST_F(tiny_rex_storage, a_file_matches_what_one_of_its_blocks_matches) {
    EXPECT_EQ(answers(header + letter_block('a')), "a--");
    EXPECT_EQ(answers(header + letter_block('a') + letter_block('c')), "a-c");
    EXPECT_EQ(compiled_regex_match(path, "A"), 1); // case is folded
    EXPECT_EQ(compiled_regex_match(path, "aa"), 0);
    EXPECT_EQ(compiled_regex_match(path, ""), 0);
}

TEST_F(tiny_rex_storage, a_file_without_the_magic_is_refused_as_a_whole) {
    const std::string block = letter_block('a');
    EXPECT_EQ(answers(std::string("\xB9\xEB\x00\x01", 4) + block), "---");
    EXPECT_EQ(log.errors(), lines(3, not_valid));
    EXPECT_EQ(answers(std::string("\x00\x00\xEB\xB9", 4) + block), "---");
    EXPECT_EQ(log.errors(), lines(3, not_valid));
}

TEST_F(tiny_rex_storage, a_file_that_can_not_be_opened_is_refused_too) {
    drive.write(path, header + letter_block('a'));
    testing::call_watch calls;
    calls.fail("file_open", 1, 5); // access denied
    EXPECT_EQ(compiled_regex_match(path, "a"), 0);
    EXPECT_EQ(log.errors(), (lines{"trs_valid_file: Invalid argument", not_valid}));
}

// The second read is the one that finds the end.
TEST_F(tiny_rex_storage, a_file_that_can_not_be_read) {
    drive.write(path, header + letter_block('a'));
    const std::string denied = strerror(EACCES);
    {
        testing::call_watch calls;
        calls.fail("file_read", 1, 5); // access denied
        EXPECT_EQ(compiled_regex_match(path, "a"), 0);
    }
    EXPECT_EQ(log.errors(),
              (lines{"trs_valid_file: failed to read header bit: " + denied, not_valid}));
    {
        testing::call_watch calls;
        calls.fail("file_read", 2, 5);
        EXPECT_EQ(compiled_regex_match(path, "b"), 0);
    }
    EXPECT_EQ(log.errors(), (lines{"trs_next: Error reading node block size: " + denied,
                                   "trs_next: nallocated is 0", "trs_next: bytes read is 0"}));
    drive.write(path, header + letter_block('b').substr(0, 40));
    {
        testing::call_watch calls;
        calls.fail("file_read", 2, 5);
        EXPECT_EQ(compiled_regex_match(path, "b"), 0);
    }
    EXPECT_EQ(log.errors(), lines{"trs_next: short read when attempting to read node #2"});
}

TEST_F(tiny_rex_storage, a_folder_in_its_place_matches_nothing) {
    drive.make_folder(path);
    EXPECT_EQ(compiled_regex_match(path, "a"), 0);
}

TEST_F(tiny_rex_storage, what_is_written_is_read_back) {
    drive.write(path, "an old file");
    const platform::stream_ptr stream(platform::stream_open(path, "r+b"));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(trs_set_header(stream.get()), 1);
    for (const char *pattern : {"^a$", "^(b|x)"}) {
        const trex_ptr expression(trex_compile_ex(pattern, trex_exact_case));
        EXPECT_EQ(trs_store(stream.get(), expression.get()), 1);
    }
    EXPECT_EQ(std::fflush(stream.get()), 0);
    EXPECT_EQ(drive.read(path).substr(0, 4), header);
    EXPECT_EQ(trs_valid_file(stream.get()), 1);
    EXPECT_EQ(std::ftell(stream.get()), 4);

    const trex_ptr expression = empty_record();
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 1);
    EXPECT_EQ(trex_match(expression.get(), "A"), 1);
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 1); // replaces the first
    EXPECT_EQ(trex_match(expression.get(), "bee"), 1);
    EXPECT_EQ(trex_match(expression.get(), "a"), 0);
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 0);
    EXPECT_EQ(compiled_regex_match(path, "xyz"), 1);
}

TEST_F(tiny_rex_storage, stored_bytes_are_little_endian_nodes_in_index_order) {
    drive.write(path, "");
    const platform::stream_ptr stream(platform::stream_open(path, "r+b"));
    TRexNode nodes[] = {{258, 1, 0, -1}, {0x01020304, -2, 0x7FFFFFFF, 5}, {9, 9, 9, 9}};
    TRex expression = {};
    expression.nodes = nodes;
    expression.nallocated = 3;
    expression.nsize = 2; // what is allocated beyond that is not written
    EXPECT_EQ(trs_set_header(stream.get()), 1);
    EXPECT_EQ(trs_store(stream.get(), &expression), 1);
    std::fflush(stream.get());
    const std::string want("\xB9\xEB\x00\x00"
                           "\x02\x00\x00\x00"
                           "\x02\x01\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00\xFF\xFF\xFF\xFF"
                           "\x04\x03\x02\x01\xFE\xFF\xFF\xFF\xFF\xFF\xFF\x7F\x05\x00\x00\x00",
                           40);
    EXPECT_EQ(drive.read(path), want);
}

// --- Messages of the stream operations ---

TEST_F(tiny_rex_storage, stream_operations_refuse_what_is_missing) {
    drive.write(path, header);
    const platform::stream_ptr stream(platform::stream_open(path, "r+b"));
    const trex_ptr expression(trex_compile_ex("a", trex_fold_case));
    EXPECT_EQ(trs_valid_file(nullptr), 0);
    EXPECT_EQ(trs_set_header(nullptr), 0);
    EXPECT_EQ(trs_store(nullptr, expression.get()), 0);
    EXPECT_EQ(trs_store(stream.get(), nullptr), 0);
    TRex unused = {};
    unused.nodes = expression->nodes;
    EXPECT_EQ(trs_store(stream.get(), &unused), 0);
    TRex without_nodes = {};
    without_nodes.nsize = 1;
    EXPECT_EQ(trs_store(stream.get(), &without_nodes), 0);
    EXPECT_EQ(trs_next(nullptr, expression.get()), 0);
    EXPECT_EQ(trs_next(stream.get(), nullptr), 0);
    EXPECT_EQ(log.errors(), (lines{
                                "trs_valid_file: Invalid argument",
                                "trs_set_header: Invalid argument",
                                "trs_store: Invalid argument",
                                "trs_store: Invalid argument",
                                "trs_store: Invalid argument",
                                "trs_store: Invalid argument",
                                "trs_next: Invalid argument",
                                "trs_next: Invalid argument",
                            }));
    EXPECT_EQ(drive.read(path), header);
}

TEST_F(tiny_rex_storage, a_stream_at_its_end_has_no_next_block) {
    drive.write(path, header);
    const platform::stream_ptr stream(platform::stream_open(path, "rb"));
    EXPECT_EQ(trs_valid_file(stream.get()), 1);
    const trex_ptr expression = empty_record();
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 0); // finds the end, silently
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 0);
    EXPECT_EQ(log.errors(), lines{"trs_next: Invalid argument"});
}

TEST_F(tiny_rex_storage, a_header_that_is_cut_short) {
    drive.write(path, header.substr(0, 3));
    const platform::stream_ptr stream(platform::stream_open(path, "rb"));
    EXPECT_EQ(trs_valid_file(stream.get()), 0);
    EXPECT_EQ(log.errors(),
              lines{std::string("trs_valid_file: failed to read header bit: ") + strerror(0)});
}

TEST_F(tiny_rex_storage, a_stream_that_can_not_be_read) {
    drive.write(path, header);
    const platform::stream_ptr stream(platform::stream_open(path, "ab"));
    const trex_ptr expression = empty_record();
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 0);
    const lines errors = log.errors();
    ASSERT_EQ(errors.size(), 3u);
    // Not every C library says why.
    EXPECT_TRUE(errors[0].starts_with("trs_next: Error reading node block size: ")) << errors[0];
    EXPECT_EQ(errors[1], "trs_next: nallocated is 0");
    EXPECT_EQ(errors[2], "trs_next: bytes read is 0");
}

TEST_F(tiny_rex_storage, a_stream_that_can_not_be_written) {
    drive.write(path, header);
    const platform::stream_ptr stream(platform::stream_open(path, "rb"));
    const trex_ptr expression(trex_compile_ex("a", trex_fold_case));
    EXPECT_EQ(trs_store(stream.get(), expression.get()), 0);
    EXPECT_EQ(log.errors(),
              lines{std::string("trs_store: Error writing node block size: ") + strerror(EBADF)});
}

TEST_F(tiny_rex_storage, a_file_that_can_not_be_cut) {
    drive.write(path, "old");
    const platform::stream_ptr stream(platform::stream_open(path, "r+b"));
    platform::set_call_observer([](const char *call, const char *) -> uint32_t {
        return std::strcmp(call, "stream_truncate") ? 0 : 5; // access denied
    });
    EXPECT_EQ(trs_set_header(stream.get()), 0);
    platform::set_call_observer(nullptr);
    EXPECT_EQ(log.errors(),
              lines{std::string("trs_set_header: failed to truncate file: ") + strerror(EACCES)});
    EXPECT_EQ(drive.read(path), "old");
}

TEST_F(tiny_rex_storage, more_nodes_than_a_block_may_hold) {
    drive.write(path, "");
    const platform::stream_ptr stream(platform::stream_open(path, "r+b"));
    std::vector<TRexNode> nodes(4096, TRexNode{'a', -1, -1, -1});
    TRex expression = {};
    expression.nodes = nodes.data();
    expression.nallocated = expression.nsize = 4096;
    EXPECT_EQ(trs_store(stream.get(), &expression), 0);
    EXPECT_EQ(log.errors(),
              lines{"trs_store: allocation 4096 size exceeds maximum sane boundaries"});
    expression.nsize = 4095;
    EXPECT_EQ(trs_store(stream.get(), &expression), 1);
    std::fflush(stream.get());
    EXPECT_EQ(drive.read(path).size(), 4u + 16 * 4095);
}

TEST_F(tiny_rex_storage, block_counts_out_of_range_are_refused_and_reading_goes_on) {
    static const struct {
        int64_t count;
        const char *line;
    } cases[] = {
        {0, "trs_next: node count size of zero read: invalid regex"},
        {4096, "trs_next: block size 65536 exceeds sane boundaries"},
        {0x7FFFFFFF, "trs_next: block size -16 exceeds sane boundaries"},
        {-1, "trs_next: block size -16 exceeds sane boundaries"},
        {0x10000001, "trs_next: block size 16 exceeds sane boundaries"}, // in 32 bits
        {0x10000000, "trs_next: block size 0 exceeds sane boundaries"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.count);
        EXPECT_EQ(answers(header + le32(c.count) + letter_block('b')), "-b-");
        EXPECT_EQ(log.errors(), lines(3, c.line));
        // Not looked at when an earlier block matches.
        EXPECT_EQ(answers(header + letter_block('a') + le32(c.count)), "a--");
        EXPECT_EQ(log.errors(), lines(2, c.line));
        // The same from a stream; the record is left without nodes.
        drive.write(path, header + letter_block('a') + le32(c.count) + letter_block('b'));
        const platform::stream_ptr stream(platform::stream_open(path, "rb"));
        const trex_ptr expression = empty_record();
        EXPECT_EQ(trs_valid_file(stream.get()), 1);
        EXPECT_EQ(trs_next(stream.get(), expression.get()), 1);
        EXPECT_EQ(trs_next(stream.get(), expression.get()), 0);
        EXPECT_EQ(expression->nodes, nullptr);
        EXPECT_EQ(log.errors(), lines{c.line});
        EXPECT_EQ(trs_next(stream.get(), expression.get()), 1);
        EXPECT_EQ(trex_match(expression.get(), "b"), 1);
    }
}

TEST_F(tiny_rex_storage, the_largest_block) {
    std::string block = le32(4095) + node(258, 1, 0) + node(267, -1, -1, 2);
    for (int i = 2; i < 4094; ++i) {
        block += node('a', -1, -1, i + 1);
    }
    block += node(266);
    drive.write(path, header + block + letter_block('b') + block + letter_block('c'));
    EXPECT_EQ(compiled_regex_match(path, std::string(4092, 'a').c_str()), 1);
    EXPECT_EQ(compiled_regex_match(path, std::string(4091, 'a').c_str()), 0);
    EXPECT_EQ(compiled_regex_match(path, "b"), 1);
    EXPECT_EQ(compiled_regex_match(path, "c"), 1);
}

TEST_F(tiny_rex_storage, a_file_of_many_blocks) {
    std::string bytes = header;
    for (int i = 0; i < 5000; ++i) {
        bytes += letter_block('a') + (i % 100 == 99 ? le32(0) : "");
    }
    EXPECT_EQ(answers(bytes + letter_block('c')), "a-c");
    // b and c go past every zero count, a past none.
    EXPECT_EQ(log.errors(), lines(100, "trs_next: node count size of zero read: invalid regex"));
}

TEST_F(tiny_rex_storage_traced, debug_lines) {
    drive.write(path, header + letter_block('a'));
    const auto of_this_module = [this] {
        lines texts;
        for (const testing::log_line &line : log.take()) {
            if (line.source == "tiny_rex_storage") {
                texts.push_back(line.function + ": " + line.message);
            }
        }
        return texts;
    };
    EXPECT_EQ(compiled_regex_match(path, "a"), 1);
    EXPECT_EQ(of_this_module(), lines{"trs_next: read nallocated value of 4"});
    EXPECT_EQ(compiled_regex_match(path, "b"), 0);
    const lines to_the_end = {"trs_next: read nallocated value of 4",
                              "trs_next: end of file. terminating"};
    EXPECT_EQ(of_this_module(), to_the_end);

    const platform::stream_ptr stream(platform::stream_open(path, "r+b"));
    const trex_ptr expression = empty_record();
    EXPECT_EQ(trs_valid_file(stream.get()), 1);
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 1);
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 0);
    EXPECT_EQ(of_this_module(), to_the_end);
    const trex_ptr stored(trex_compile_ex("^a$", trex_fold_case));
    EXPECT_EQ(trs_set_header(stream.get()), 1);
    EXPECT_EQ(trs_store(stream.get(), stored.get()), 1);
    EXPECT_EQ(of_this_module(), lines{"trs_store: writing out nsize 4 for node block size"});
}

// --- The run's steps ---

// A pattern that takes every step it gets with such a name.
constexpr char hopeless_pattern[] = "(x+x+)+y";
const std::string hopeless_name(2000, 'x');

class tiny_rex_budget : public tiny_rex_storage {
  protected:
    static std::string block_of(const char *pattern) {
        const trex_ptr expression(trex_compile_ex(pattern, trex_fold_case));
        std::string bytes = le32(expression->nsize);
        for (int32_t i = 0; i < expression->nsize; ++i) {
            const TRexNode &n = expression->nodes[i];
            bytes += node(n.type, n.left, n.right, n.next);
        }
        return bytes;
    }
};

TEST_F(tiny_rex_budget, a_lookup_ends_with_it_without_a_line) {
    drive.write(path, header + block_of(hopeless_pattern) + block_of("x"));
    const step_scope steps(10'000);
    EXPECT_EQ(compiled_regex_match(path, hopeless_name.c_str()), 0) << "x is not tried any more";
    EXPECT_TRUE(steps_are_spent());
    EXPECT_EQ(compiled_regex_match(path, "x"), 0);
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(tiny_rex_budget, what_is_enough_changes_nothing) {
    drive.write(path, header + block_of("[a-c]{2}1") + block_of("x"));
    const step_scope steps(1000);
    EXPECT_EQ(compiled_regex_match(path, "ab1"), 1);
    EXPECT_EQ(compiled_regex_match(path, "ab2"), 0);
    EXPECT_EQ(compiled_regex_match(path, "x"), 1);
    EXPECT_FALSE(steps_are_spent());
    EXPECT_LT(steps_to_take(1000), 1000u) << "they are counted";
    EXPECT_GT(steps_to_take(1000), 900u);
}

// A stored expression keeps its own limit, and its line.
TEST_F(tiny_rex_budget, one_match_takes_its_own_limit_at_most) {
    drive.write(path, header + block_of(hopeless_pattern) + block_of("x"));
    const step_scope steps(uint64_t{2} * trex_most_steps);
    EXPECT_EQ(compiled_regex_match(path, hopeless_name.c_str()), 1) << "by x";
    EXPECT_EQ(log.errors(), lines{"__trex_matchnode: regex takes too many steps"});
    EXPECT_FALSE(steps_are_spent());
    EXPECT_LT(steps_to_take(trex_most_steps), trex_most_steps);
}

// --- Without memory ---

TEST_F(tiny_rex_storage, a_lookup_asks_for_none) {
    drive.write(path, header + letter_block('a') + le32(0) + letter_block('b'));
    const unsigned long before = testing::allocations_made();
    EXPECT_EQ(compiled_regex_match(path, "b"), 1);
    EXPECT_EQ(testing::allocations_made() - before, 0u);
    EXPECT_EQ(log.errors(), lines{"trs_next: node count size of zero read: invalid regex"});
}

TEST_F(tiny_rex_storage, a_block_without_memory_is_not_read) {
    drive.write(path, header + letter_block('a'));
    const platform::stream_ptr stream(platform::stream_open(path, "rb"));
    EXPECT_EQ(trs_valid_file(stream.get()), 1);
    const trex_ptr expression = empty_record();
    {
        const testing::failing_allocation failing(1);
        EXPECT_EQ(trs_next(stream.get(), expression.get()), 0);
    }
    EXPECT_EQ(expression->nodes, nullptr);
    EXPECT_EQ(log.errors(), lines{std::string("trs_next: ") + strerror(ENOMEM)});
}

// --- Damaged files ---

// What a lookup must answer and write, worked out from the bytes alone.
struct outcome {
    int answer = 0;
    lines errors;
    bool endless = false;
};

int64_t integer_at(const std::string &bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return static_cast<int32_t>(value);
}

outcome expected_of(const std::string &bytes, const std::string &name) {
    outcome want;
    if (bytes.size() < 4) {
        want.errors = {std::string("trs_valid_file: failed to read header bit: ") + strerror(0),
                       not_valid};
        return want;
    }
    if (bytes.substr(0, 4) != header) {
        want.errors = {not_valid};
        return want;
    }
    for (size_t at = 4; bytes.size() - at >= 4;) {
        const int64_t count = integer_at(bytes, at);
        at += 4;
        if (count == 0) {
            want.errors.push_back("trs_next: node count size of zero read: invalid regex");
            continue;
        }
        if (count < 0 || count * 16 > 65535) {
            want.errors.push_back("trs_next: block size " +
                                  std::to_string(static_cast<int32_t>(count * 16)) +
                                  " exceeds sane boundaries");
            continue;
        }
        testing::slow_nodes nodes;
        for (int64_t i = 0; i < count; ++i, at += 16) {
            if (bytes.size() - at < 16) {
                want.errors.push_back("trs_next: short read when attempting to read node #" +
                                      std::to_string(i));
                return want;
            }
            nodes.push_back({integer_at(bytes, at), integer_at(bytes, at + 4),
                             integer_at(bytes, at + 8), integer_at(bytes, at + 12)});
        }
        const testing::slow_answer found = testing::slow_match(nodes, name, true);
        want.endless = want.endless || found.endless;
        if (!found.line.empty()) {
            want.errors.push_back(found.line);
        }
        if (found.matched) {
            want.answer = 1;
            return want;
        }
    }
    return want;
}

class tiny_rex_damage : public tiny_rex_storage {
  protected:
    // A file in which the block in the middle is ^(a|[b-d]x{1,2})*$.
    const std::string middle =
        le32(12) + node(258, 1, 0) + node(267, -1, -1, 2) + node(256, 4, 65535, 3) + node(266) +
        node(258, 5, 1) + node(257, 6, 7) + node('a') + node(261, 9, -1, 8) +
        node(256, 10, 1 << 16 | 2) + node(264, 'b', 'd', 11) + node('x') + node(262, 'p');
    const std::string whole = header + letter_block('a') + middle + letter_block('c');
    const std::vector<std::string> names = {"",  "a", "c", "bx", "abx-xxax", "aaaaaaaaaaaaaaaa",
                                            "ab"};

    void expect_stated(const std::string &bytes, const std::string &what) {
        drive.write(path, bytes);
        for (const std::string &name : names) {
            const outcome want = expected_of(bytes, name);
            ASSERT_FALSE(want.endless);
            EXPECT_EQ(compiled_regex_match(path, name.c_str()), want.answer)
                << what << ", name \"" << name << "\"";
            EXPECT_EQ(log.errors(), want.errors) << what << ", name \"" << name << "\"";
        }
    }
};

TEST_F(tiny_rex_damage, the_whole_file) {
    expect_stated(whole, "the whole file");
    EXPECT_EQ(compiled_regex_match(path, "abx-xxA"), 1);
    EXPECT_EQ(compiled_regex_match(path, "ab"), 0);
}

TEST_F(tiny_rex_damage, cut_at_every_byte) {
    for (size_t size = 0; size < whole.size(); ++size) {
        expect_stated(whole.substr(0, size), "cut to " + std::to_string(size));
    }
}

TEST_F(tiny_rex_damage, flipped_at_every_byte) {
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int flip : {0x01, 0x80, 0xFF}) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(bytes[at] ^ flip);
            expect_stated(bytes, "byte " + std::to_string(at) + " ^ " + std::to_string(flip));
        }
    }
}

TEST_F(tiny_rex_damage, every_field_of_a_node_made_to_point_anywhere) {
    const size_t first = header.size() + letter_block('a').size() + 4;
    for (size_t at = first; at < first + middle.size() - 4; at += 4) {
        for (int64_t link = -1; link <= 13; ++link) {
            std::string bytes = whole;
            bytes.replace(at, 4, le32(link));
            expect_stated(bytes, "integer at " + std::to_string(at) + " = " + std::to_string(link));
        }
    }
}

} // namespace
} // namespace quillfence
