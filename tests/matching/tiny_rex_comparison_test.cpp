// The engine against the slow matcher: small patterns in full, larger ones by chance, and node
// arrays that somebody has damaged.
//
// QUILLFENCE_EXHAUSTIVE=<n> in the environment compares all patterns of up to n pieces (3 without
// it, about a second; 4 takes a minute, 5 an hour) and a million times n patterns by chance.
#include "slow_matcher.h"

#include <cstdlib>
#include <random>

#include "log_capture.h"
#include "tiny_rex.h"

namespace quillfence::testing {
namespace {

const std::vector<std::string> pieces = {"a",  "b",   ".",     "^",     "$",    "*",    "+",
                                         "?",  "(",   ")",     "|",     "[ab]", "[^a]", "{2}",
                                         ".*", "(?:", "{1,2}", "{0,2}", "{2,}", "\\b",  "\\w"};

// All texts over an alphabet up to a length, the shortest first.
std::vector<std::string> texts_over(const std::string &alphabet, size_t length) {
    std::vector<std::string> texts = {""};
    for (size_t from = 0; length > 0; --length) {
        const size_t to = texts.size();
        for (; from < to; ++from) {
            for (const char c : alphabet) {
                texts.push_back(texts[from] + c);
            }
        }
    }
    return texts;
}

size_t exhaustive_pieces() {
    const char *wanted = std::getenv("QUILLFENCE_EXHAUSTIVE");
    return wanted ? static_cast<size_t>(std::atoi(wanted)) : 3;
}
size_t random_patterns() {
    return std::getenv("QUILLFENCE_EXHAUSTIVE") ? 1'000'000 * exhaustive_pieces() : 20'000;
}

struct counts {
    size_t patterns = 0, compiled = 0, matches = 0, hits = 0, lines = 0, skipped = 0;
};

class tiny_rex_comparison : public logged_test {
  protected:
    ~tiny_rex_comparison() override {
        RecordProperty("patterns", static_cast<int>(seen.patterns));
        RecordProperty("matches", static_cast<int>(seen.matches));
    }

    // One subject; the record may hold a damaged array.
    void compare(TRex *expression, const slow_nodes &nodes, const std::string &pattern,
                 const std::string &subject) {
        const bool fold = expression->case_flag == trex_fold_case;
        const slow_answer want = slow_match(nodes, subject, fold);
        ++seen.matches;
        if (want.endless) {
            ++seen.skipped;
            return;
        }
        seen.hits += want.matched;
        seen.lines += !want.line.empty();
        const int got = trex_match(expression, subject.c_str());
        const lines got_lines = log.errors();
        const lines want_lines = want.line.empty() ? lines{} : lines{want.line};
        if (got != want.matched || got_lines != want_lines) {
            ADD_FAILURE() << "pattern " << pattern << ", subject \"" << subject << "\", fold "
                          << fold << ": got " << got << " " << ::testing::PrintToString(got_lines)
                          << ", want " << want.matched << " " << want.line << "\n"
                          << shown(nodes);
            ++failures;
        }
    }

    void compare_pattern(const std::string &pattern, const std::vector<std::string> &subjects) {
        ++seen.patterns;
        const std::optional<slow_nodes> slow = slow_parse(pattern);
        for (const uint8_t flag : {trex_fold_case, trex_exact_case}) {
            const trex_ptr expression(trex_compile_ex(pattern.c_str(), flag));
            EXPECT_EQ(log.errors().size(), expression ? 0u : 1u) << pattern;
            ASSERT_EQ(expression != nullptr, slow.has_value()) << pattern;
            if (!expression) {
                return;
            }
            ++seen.compiled;
            for (const std::string &subject : subjects) {
                compare(expression.get(), *slow, pattern, subject);
                if (failures > 20) {
                    return;
                }
            }
        }
    }

    static std::string shown(const slow_nodes &nodes) {
        std::string text;
        for (size_t i = 0; i < nodes.size(); ++i) {
            text += std::to_string(i) + ": " + std::to_string(nodes[i].type) + " " +
                    std::to_string(nodes[i].left) + " " + std::to_string(nodes[i].right) + " " +
                    std::to_string(nodes[i].next) + "\n";
        }
        return text;
    }

    std::mt19937 dice{20151116};
    size_t roll(size_t sides) {
        return std::uniform_int_distribution<size_t>(0, sides - 1)(dice);
    }
    std::string random_text(const std::string &alphabet, size_t length) {
        std::string text;
        for (size_t n = roll(length + 1); n > 0; --n) {
            text += alphabet[roll(alphabet.size())];
        }
        return text;
    }
    // A pattern that mostly compiles: elements, quantifiers, groups in balance.
    std::string random_pattern(size_t elements, int depth) {
        static const std::vector<std::string> atoms = {
            "a",   "b",   "A",  "-", ".", "[a-b]", "[^b]", "[A\\d]", "\\w", "\\W",
            "\\b", "\\B", ".*", "^", "$", "[^-a]", "a",    "b",      "\\-", "\\u"};
        static const std::vector<std::string> quantifiers = {
            "*", "+", "?", "{2}", "{0,2}", "{1,3}", "{2,}", "{1,2}", "{0}", "{3,2}", "*", "+", "?"};
        std::string text;
        for (size_t i = 0; i < elements; ++i) {
            if (i > 0 && roll(8) == 0) {
                text += "|";
            }
            if (depth > 0 && roll(4) == 0) {
                text += (roll(2) ? "(" : "(?:") + random_pattern(1 + roll(3), depth - 1) + ")";
            } else {
                text += atoms[roll(atoms.size())];
            }
            if (roll(3) == 0) {
                text += quantifiers[roll(quantifiers.size())];
            }
        }
        return text;
    }

    counts seen;
    size_t failures = 0;
};

TEST_F(tiny_rex_comparison, all_small_patterns) {
    const std::vector<std::string> subjects = texts_over("ab", 4);
    std::vector<std::string> patterns = {""};
    size_t from = 0;
    for (size_t length = 0; length <= exhaustive_pieces(); ++length) {
        const size_t to = patterns.size();
        for (size_t i = from; i < to && failures <= 20; ++i) {
            compare_pattern(patterns[i], subjects);
            compare_pattern("^" + patterns[i] + "$", subjects);
        }
        if (length == exhaustive_pieces()) {
            break;
        }
        for (; from < to; ++from) {
            for (const std::string &piece : pieces) {
                patterns.push_back(patterns[from] + piece);
            }
        }
    }
    EXPECT_GT(seen.hits, seen.matches / 20);
    EXPECT_LT(seen.hits, seen.matches * 19 / 20);
    EXPECT_EQ(seen.skipped, 0u);
}

TEST_F(tiny_rex_comparison, larger_patterns_by_chance) {
    for (size_t i = 0; i < random_patterns() && failures <= 20; ++i) {
        std::string pattern = random_pattern(1 + roll(6), 3);
        pattern = (roll(2) ? "^" : "") + pattern + (roll(2) ? "$" : "");
        std::vector<std::string> subjects;
        for (int n = 0; n < 6; ++n) {
            subjects.push_back(random_text("aabbA-1", 10));
        }
        compare_pattern(pattern, subjects);
    }
    EXPECT_GT(seen.hits, seen.matches / 50);
    EXPECT_GT(seen.lines, 0u); // {3,2} fails the check
    EXPECT_LT(seen.skipped, seen.matches / 50);
}

TEST_F(tiny_rex_comparison, damaged_node_arrays) {
    static constexpr int64_t types[] = {'a', 'b', 256, 257, 258, 259, 260, 261, 262,
                                        263, 264, 265, 266, 267, 268, 269, 127, -1};
    for (size_t i = 0; i < random_patterns() && failures <= 20; ++i) {
        const std::string pattern = (roll(2) ? "^" : "") + random_pattern(1 + roll(5), 2) + "$";
        std::optional<slow_nodes> parsed = slow_parse(pattern);
        if (!parsed) {
            log.errors();
            continue;
        }
        slow_nodes &nodes = *parsed;
        for (size_t n = 1 + roll(3); n > 0; --n) {
            slow_node &node = nodes[roll(nodes.size())];
            const auto link = [&] { return static_cast<int64_t>(roll(nodes.size() + 2)) - 1; };
            switch (roll(6)) {
            case 0:
                node.type = types[roll(std::size(types))];
                break;
            case 1:
                node.left = link();
                break;
            case 2:
                node.right = node.type == 256 && roll(2) ? link() << 16 | link() : link();
                break;
            default:
                node.next = link();
                break;
            }
        }
        std::vector<TRexNode> stored;
        for (const slow_node &n : nodes) {
            stored.push_back({static_cast<int32_t>(n.type), static_cast<int32_t>(n.left),
                              static_cast<int32_t>(n.right), static_cast<int32_t>(n.next)});
        }
        TRex record = {};
        record.nodes = stored.data();
        record.nallocated = static_cast<int32_t>(stored.size());
        for (int n = 0; n < 6; ++n) {
            compare(&record, nodes, pattern + " (damaged)", random_text("aabbA-", 12));
        }
        compare(&record, nodes, pattern + " (damaged)", std::string(100, 'a'));
    }
    EXPECT_GT(seen.lines, seen.matches / 20);
    EXPECT_GT(seen.hits, seen.matches / 100);
    EXPECT_LT(seen.skipped, seen.matches / 10);
}

} // namespace
} // namespace quillfence::testing
