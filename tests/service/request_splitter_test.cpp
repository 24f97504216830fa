#include "request_splitter.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "input.h"

namespace quillfence::testing {
namespace {

using decision::longest_policy_line;
using decision::longest_policy_request;
using decision::most_policy_lines;
using service::request_splitter;
using service::split;

struct taken {
    std::vector<std::string> requests;
    split end = split::none;
    size_t held = 0;     // the most at any time
    bool within = false; // at the end
    bool operator==(const taken &) const = default;
};

// All requests of a stream that comes in pieces of this size.
taken take_all(std::string_view stream, size_t piece) {
    request_splitter splitter;
    taken all;
    while (!stream.empty() && all.end == split::none) {
        splitter.add(stream.substr(0, piece));
        stream.remove_prefix(std::min(piece, stream.size()));
        all.held = std::max(all.held, splitter.held());
        std::string request;
        while ((all.end = splitter.next(&request)) == split::request) {
            all.requests.push_back(request);
        }
    }
    all.within = splitter.is_within();
    return all;
}

std::string line_of(size_t size) {
    return "a=" + std::string(size - 2, 'x');
}

TEST(request_splitter, streams) {
    static const struct {
        const char *name, *stream;
        std::vector<std::string> want;
        bool within;
    } cases[] = {
        {"nothing", "", {}, false},
        {"one", "a=b\nc=d\n\n", {"a=b\nc=d\n"}, false},
        {"two", "a=b\n\nc=d\n\n", {"a=b\n", "c=d\n"}, false},
        {"CR LF", "a=b\r\n\r\nc=d\r\n\r\n", {"a=b\r\n", "c=d\r\n"}, false},
        {"empty lines in front", "\n\r\n\na=b\n\n\n\n", {"a=b\n"}, false},
        {"within a line", "a=b\n\nc=", {"a=b\n"}, true},
        {"within a request", "a=b\n\nc=d\n", {"a=b\n"}, true},
        {"a CR alone", "a\rb\n\n", {"a\rb\n"}, false},
        {"what is no attribute", "garbage\n\n", {"garbage\n"}, false},
    };
    for (const auto &one : cases) {
        for (const size_t piece : std::initializer_list<size_t>{1, 2, 3, 5, 100}) {
            const taken all = take_all(one.stream, piece);
            EXPECT_EQ(all.requests, one.want) << one.name << " in pieces of " << piece;
            EXPECT_EQ(all.end, split::none) << one.name;
            EXPECT_EQ(all.within, one.within) << one.name;
        }
    }
}

TEST(request_splitter, a_nul_is_an_ordinary_byte) {
    const std::string stream("a=\0b\n\n", 6);
    EXPECT_EQ(take_all(stream, 100).requests, std::vector{std::string("a=\0b\n", 5)});
}

TEST(request_splitter, the_longest_line) {
    const std::string longest = line_of(longest_policy_line);
    for (const size_t piece : std::initializer_list<size_t>{1, 1000, 100'000}) {
        EXPECT_EQ(take_all(longest + "\n\n", piece).requests, std::vector{longest + "\n"});
        EXPECT_EQ(take_all(longest + "\r\n\n", piece).requests, std::vector{longest + "\r\n"});
        EXPECT_EQ(take_all(longest + "x\n\n", piece).end, split::line_too_long);
        EXPECT_EQ(take_all(longest + "x\r\n\n", piece).end, split::line_too_long);
    }
}

TEST(request_splitter, a_line_without_an_end) {
    const taken all = take_all(std::string(1'000'000, 'x'), 100);
    EXPECT_EQ(all.end, split::line_too_long);
    EXPECT_LE(all.held, longest_policy_line + 2 + 100);
}

TEST(request_splitter, the_most_lines) {
    std::string most;
    for (size_t i = 0; i < most_policy_lines; ++i) {
        most += "a=b\n";
    }
    for (const size_t piece : std::initializer_list<size_t>{1, 100, 100'000}) {
        EXPECT_EQ(take_all(most + "\n", piece).requests, std::vector{most});
        EXPECT_EQ(take_all(most + "a=b\n\n", piece).end, split::too_many_lines);
    }
}

TEST(request_splitter, the_longest_request) {
    std::string longest;
    while (longest.size() + 4000 < longest_policy_request) {
        longest += line_of(3999) + "\n";
    }
    longest += line_of(longest_policy_request - longest.size() - 1) + "\n";
    ASSERT_EQ(longest.size(), longest_policy_request);
    const std::string longer = longest.substr(0, longest.size() - 1) + "x\n";
    for (const size_t piece : std::initializer_list<size_t>{1, 1000, 100'000}) {
        EXPECT_EQ(take_all(longest + "\n", piece).requests, std::vector{longest});
        EXPECT_EQ(take_all(longer + "\n", piece).end, split::text_too_long);
    }
}

TEST(request_splitter, requests_in_front_of_the_end_are_given) {
    const taken all = take_all("a=b\n\n" + line_of(longest_policy_line + 1) + "\n\n", 100'000);
    EXPECT_EQ(all.requests, std::vector<std::string>{"a=b\n"});
    EXPECT_EQ(all.end, split::line_too_long);
}

TEST(request_splitter, the_end_stays) {
    request_splitter splitter;
    std::string request;
    splitter.add(line_of(longest_policy_line + 1) + "\n\na=b\n\n");
    EXPECT_EQ(splitter.next(&request), split::line_too_long);
    EXPECT_EQ(splitter.next(&request), split::line_too_long);
}

TEST(request_splitter, what_is_held_is_bounded) {
    constexpr size_t piece = 1000;
    std::string stream; // requests as long as they may be, one behind the other
    for (int i = 0; i < 10; ++i) {
        for (size_t line = 0; line < 16; ++line) {
            stream += line_of(4000) + "\n";
        }
        stream += "\n";
    }
    const taken all = take_all(stream, piece);
    EXPECT_EQ(all.requests.size(), 10u);
    EXPECT_LE(all.held, longest_policy_request + piece);
    EXPECT_LE(take_all(std::string(1'000'000, '\n'), piece).held, piece);
}

} // namespace
} // namespace quillfence::testing
