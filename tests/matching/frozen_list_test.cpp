#include "frozen_list.h"

#include <memory>
#include <random>

#include "failing_memory.h"
#include "line_reader.h"
#include "log_capture.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

struct list_deleter {
    void operator()(frozen_list *list) const {
        frozen_list_free(list);
    }
};
using owned_list = std::unique_ptr<frozen_list, list_deleter>;

// What a look finds.
struct finding {
    uint32_t entries = 0;
    uint32_t line = 0;
    std::string text;    // the whole line
    std::string pattern; // of it
    std::vector<std::string> said{};
    bool operator==(const finding &) const = default;
};
std::ostream &operator<<(std::ostream &to, const finding &of) {
    to << "line " << of.line << " [" << of.text << "] of " << of.entries << " entries";
    for (const std::string &line : of.said) {
        to << "\n  " << line;
    }
    return to;
}

class frozen_lists : public traced_test {
  protected:
    // A walk over all lines, as over a file's.
    finding walked(const std::string &bytes, const std::string &value, list_matcher matcher) {
        finding found;
        line_reader in;
        begin_lines_of(&in, bytes.data(), bytes.size(), longest_list_line, true);
        uint32_t length = 0;
        uint32_t number = 0;
        while (const char *const line = next_line(&in, &length)) {
            ++number;
            const char *const pattern = pattern_of_line(line);
            if (is_comment(pattern)) {
                continue;
            }
            ++found.entries;
            if (matcher(pattern, value.c_str()) == 0) {
                found.line = number;
                found.text = line;
                found.pattern = pattern;
                break;
            }
        }
        found.said = log.transcript();
        return found;
    }

    finding indexed(const frozen_list *list, const std::string &value) {
        frozen_line found;
        finding made;
        const bool is_found = frozen_list_find(list, value.c_str(), &found);
        made.entries = found.entries;
        made.line = found.line;
        EXPECT_EQ(is_found, found.line != 0);
        if (is_found) {
            made.text = found.text;
            made.pattern = found.pattern;
        }
        made.said = log.transcript();
        return made;
    }

    finding find(const std::string &bytes, const std::string &value,
                 list_matcher matcher = __wildcardmatch) {
        const owned_list list(frozen_list_make(bytes.data(), bytes.size(), matcher));
        log.take();
        return indexed(list.get(), value);
    }
    static finding at(uint32_t entries, uint32_t line, const std::string &text,
                      const std::string &pattern) {
        return {entries, line, text, pattern};
    }
};

TEST_F(frozen_lists, find_the_first_entry_that_matches) {
    const std::string list = "# mine\n\n b@x.example \r\nB@X.example\nc@x.example\nb@x.example\n";
    EXPECT_EQ(find(list, "b@x.EXAMPLE"), at(2, 4, "B@X.example", "B@X.example"));
    EXPECT_EQ(find(list, "b@x.example "), at(1, 3, " b@x.example ", "b@x.example "));
    EXPECT_EQ(find(list, "d@x.example"), at(4, 0, "", ""));
    EXPECT_EQ(find(list, "# mine").line, 0u);
    EXPECT_EQ(find("", "a"), at(0, 0, "", ""));
}

TEST_F(frozen_lists, find_wildcards_by_their_beginning_and_end) {
    const std::string list = "*@x.example\na@*\n*.y.example\na@x.example\nab*cd*yz\n";
    EXPECT_EQ(find(list, "b@x.example").line, 1u);
    EXPECT_EQ(find(list, "a@x.example").line, 1u); // in the file's order, not the whole text first
    EXPECT_EQ(find(list, "a@z.example").line, 2u);
    EXPECT_EQ(find(list, "q@b.Y.example").line, 3u);
    EXPECT_EQ(find(list, "abcdyz").line, 5u);
    EXPECT_EQ(find(list, "abdcyz").line, 0u);
    EXPECT_EQ(find("*\n", "q").line, 1u);
    EXPECT_EQ(find("a*a\n", "a").line, 0u); // head and tail do not share a character
}

TEST_F(frozen_lists, stars_are_characters_to_the_other_matcher) {
    EXPECT_EQ(find("192.0.2.*\n", "192.0.2.1", _stricmp).line, 0u);
    EXPECT_EQ(find("192.0.2.*\n", "192.0.2.*", _stricmp).line, 1u);
}

TEST_F(frozen_lists, the_rest_is_asked_in_its_place_and_says_what_it_says) {
    const finding found = find("*[x\n*@x.example\n*[y\n", "a@x.example");
    EXPECT_EQ(found.line, 2u);
    EXPECT_EQ(found.entries, 2u);
    EXPECT_EQ(found,
              [&] { return walked("*[x\n*@x.example\n*[y\n", "a@x.example", __wildcardmatch); }());
    ASSERT_FALSE(found.said.empty());
    EXPECT_EQ(found.said[0].substr(0, 2), "E "); // of the first line alone
}

TEST_F(frozen_lists, no_other_matcher_has_an_index) {
    EXPECT_EQ(frozen_list_make("a\n", 2, __regexmatch), nullptr);
    EXPECT_EQ(frozen_list_matcher(owned_list(frozen_list_make("a\n", 2, _stricmp)).get()),
              _stricmp);
}

TEST_F(frozen_lists, without_memory_there_is_none) {
    const failing_allocation failing(1);
    EXPECT_EQ(frozen_list_make("a\n", 2, _stricmp), nullptr);
}

TEST_F(frozen_lists, take_what_they_say) {
    std::string bytes;
    for (int i = 0; i < 1000; ++i) {
        bytes += "user" + std::to_string(i) + "@example.com\n";
    }
    const unsigned long long before = bytes_asked_for();
    const owned_list list(frozen_list_make(bytes.data(), bytes.size(), __wildcardmatch));
    EXPECT_EQ(frozen_list_size(list.get()), bytes_asked_for() - before);
    EXPECT_LT(frozen_list_size(list.get()), 2 * bytes.size());
}

// --- at random ---

class random_texts {
  public:
    std::string line() {
        std::string made = some({"", "", "", " ", "\t", "#"});
        for (size_t n = below(5); n; --n) {
            made += some({"a", "b", "A", "ab", "*", "*", ".", "@", "[ab]", "(a|b)", "[", "?",
                          "\x80", "\r", "+", "$"});
        }
        if (below(300) == 0) {
            made += std::string(1 + below(3), '\0') + some({"a", "*"});
        }
        if (below(150) == 0) {
            made += std::string(1017 + below(8) - std::min<size_t>(made.size(), 10), 'a') +
                    some({"", "*", "b"});
        }
        return made;
    }
    std::string list() {
        std::string bytes;
        for (size_t n = below(30); n; --n) {
            bytes += line() + some({"\n", "\n", "\n", "\r\n", "\r\n", ""});
        }
        return bytes;
    }
    std::string value() {
        std::string made = some({"a", "b", "A", ".", "@", "\x80"});
        for (size_t n = below(5); n; --n) {
            made += some({"a", "b", "B", ".", "@", "\x80", "ab", "*"});
        }
        return below(100) ? made : std::string(1010 + below(20), 'a') + some({"", "b"});
    }

  private:
    size_t below(size_t count) {
        return std::uniform_int_distribution<size_t>(0, count - 1)(random_);
    }
    std::string some(std::initializer_list<const char *> from) {
        return from.begin()[below(from.size())];
    }
    std::mt19937 random_{20261122};
};

TEST_F(frozen_lists, find_what_a_walk_finds_and_say_what_it_says) {
    random_texts texts;
    unsigned hits = 0;
    for (int lists = 0; lists < 1500 && !HasFailure(); ++lists) {
        const std::string bytes = texts.list();
        for (const list_matcher matcher : {__wildcardmatch, _stricmp}) {
            const owned_list list(frozen_list_make(bytes.data(), bytes.size(), matcher));
            for (int values = 0; values < 6; ++values) {
                const std::string value = texts.value();
                const finding expected = walked(bytes, value, matcher);
                EXPECT_EQ(indexed(list.get(), value), expected) << value << " in\n" << bytes;
                hits += expected.line != 0;
            }
        }
    }
    EXPECT_GT(hits, 2000u);
}

} // namespace
} // namespace quillfence::testing
