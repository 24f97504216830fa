#include "input_splitter.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillfence::decision {
namespace {

struct taken {
    std::string text;
    uint64_t line;
    bool too_long;
    bool operator==(const taken &) const = default;
};

std::ostream &operator<<(std::ostream &out, const taken &one) {
    return out << one.line << (one.too_long ? " too long" : ": " + one.text);
}

void take(input_splitter *splitter, std::vector<taken> *all) {
    for (input_unit unit; splitter->next(&unit);) {
        all->push_back({std::string(unit.text), unit.line, unit.too_long});
    }
}

// The units of a text that arrives in pieces of these sizes, one after the other and over again.
std::vector<taken> split(input_format format, std::string_view text,
                         const std::vector<size_t> &pieces = {1}) {
    input_splitter splitter(format);
    std::vector<taken> all;
    for (size_t i = 0; !text.empty(); ++i) {
        const size_t size = std::min(pieces[i % pieces.size()], text.size());
        splitter.add(text.substr(0, size));
        text.remove_prefix(size);
        take(&splitter, &all);
    }
    splitter.end();
    take(&splitter, &all);
    return all;
}

// As take_input() does it.
std::vector<taken> split_whole(input_format format, std::string_view text) {
    std::vector<taken> all;
    uint32_t skipped = 0;
    uint64_t line = 1;
    const char *seen = text.data();
    for (std::string_view unit; !(unit = take_input(format, &text, &skipped)).empty();) {
        line += static_cast<uint64_t>(std::count(seen, unit.data(), '\n'));
        seen = unit.data();
        all.push_back({std::string(unit), line, false});
    }
    return all;
}

TEST(input_splitter, lines) {
    const std::vector<taken> want = {{"a", 3, false}, {"b", 5, false}, {"c", 6, false}};
    for (const size_t piece : {1u, 2u, 3u, 100u}) {
        EXPECT_EQ(split(input_format::tsv, "\n \na\r\n\nb\nc", {piece}), want) << piece;
    }
}

TEST(input_splitter, documents_on_one_line_and_indented) {
    EXPECT_EQ(split(input_format::json, "{\"a\":1}\n{\n  \"a\": {\n  }\n}\r\n{\"b\":2}\n"),
              (std::vector<taken>{{"{\"a\":1}", 1, false},
                                  {"{\n  \"a\": {\n  }\n}", 2, false},
                                  {"{\"b\":2}", 6, false}}));
}

TEST(input_splitter, a_document_that_is_cut_off_takes_no_other_with_it) {
    EXPECT_EQ(split(input_format::json, "{\n \"cut\": 1,\n{\"b\":2}\n{\n{\n}\n"),
              (std::vector<taken>{{"{\n \"cut\": 1,", 1, false},
                                  {"{\"b\":2}", 3, false},
                                  {"{", 4, false},
                                  {"{\n}", 5, false}}));
    EXPECT_EQ(split(input_format::json, "{\n \"cut\": 1\n"),
              (std::vector<taken>{{"{\n \"cut\": 1", 1, false}}));
}

TEST(input_splitter, requests) {
    EXPECT_EQ(split(input_format::policy, "\na=1\r\nb=2\r\n\r\n\nc=3"),
              (std::vector<taken>{{"a=1\r\nb=2\r\n", 2, false}, {"c=3", 6, false}}));
}

// Whatever the pieces are, the units are those of the whole text.
TEST(input_splitter, pieces_make_no_difference) {
    static constexpr const char *lines[] = {
        "{",    "}",  " }", "{\"a\":1}", "  \"b\": 2", "a=b", "",   " ",  "c=d\r",
        "x\ty", "\r", "{ ", "plain",     "}}",         "=",   "e=", "{}", "\t"};
    static constexpr input_format formats[] = {input_format::policy, input_format::tsv,
                                               input_format::json};
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        const input_format format = formats[random() % 3];
        std::string text;
        for (auto n = random() % 12; n > 0; --n) {
            text += std::string(lines[random() % std::size(lines)]) + (random() % 9 ? "\n" : "");
        }
        const std::vector<size_t> pieces = {1 + random() % 5, 1 + random() % 30};
        const auto whole = split(format, text, {text.size() + 1});
        EXPECT_EQ(split(format, text, pieces), whole) << text;
        if (format != input_format::json) {
            EXPECT_EQ(whole, split_whole(format, text)) << text;
        }
    }
}

TEST(input_splitter, what_is_too_long_is_passed_over) {
    const std::string longer(longest_line + 1, 'x');
    for (const size_t piece : {size_t{1000}, size_t{100'000}}) {
        EXPECT_EQ(split(input_format::tsv, "a\n" + longer + "\nb\n", {piece}),
                  (std::vector<taken>{{"a", 1, false}, {"", 2, true}, {"b", 3, false}}));
    }
    const std::string longest(longest_line, 'x');
    EXPECT_EQ(split(input_format::tsv, longest, {1000}), (std::vector<taken>{{longest, 1, false}}));

    std::string request;
    while (request.size() <= longest_policy_request) {
        request += "name=" + std::string(1000, 'v') + "\n";
    }
    for (const size_t piece : {size_t{1000}, size_t{200'000}}) {
        const auto got = split(input_format::policy, "a=1\n\n" + request + "\nb=2\n\n", {piece});
        EXPECT_EQ(got, (std::vector<taken>{
                           {"a=1\n", 1, false}, {"", 3, true}, {"b=2\n", 3 + 66 + 1, false}}));
    }
}

TEST(input_splitter, what_is_held_is_bounded) {
    const struct {
        input_format format;
        size_t bound;
    } cases[] = {{input_format::qflog, longest_line},
                 {input_format::policy, longest_policy_request},
                 {input_format::json, longest_json}};
    const std::string piece(64 * 1024, 'x');
    for (const auto &c : cases) {
        input_splitter splitter(c.format);
        std::vector<taken> all;
        for (size_t fed = 0; fed < 2 * longest_json; fed += piece.size()) {
            splitter.add(piece);
            take(&splitter, &all);
            EXPECT_LE(splitter.held(), c.bound);
        }
        EXPECT_EQ(all, (std::vector<taken>{{"", 1, true}}));
        splitter.add(c.format == input_format::policy ? "\n\na=1\n\n" : "\na=1\n");
        take(&splitter, &all);
        ASSERT_EQ(all.size(), 2u);
        EXPECT_EQ(all[1].line, c.format == input_format::policy ? 3u : 2u);
    }
}

} // namespace
} // namespace quillfence::decision
