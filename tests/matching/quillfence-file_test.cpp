#include "quillfence-file.h"

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "failing_memory.h"
#include "tiny_rex.h"
#include "vc_file.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char dir[] = "c:/quillfence";

std::string in_dir(const std::string &name) {
    return std::string(dir) + "/" + name;
}

class list_test : public drive_test {
  protected:
    void put(const std::string &name, const std::string &bytes) {
        drive.write(in_dir(name), bytes);
    }
};

class list_trace_test : public traced_drive_test {
  protected:
    // The DEBUG and ERROR lines of one function of the module.
    lines trace_of(const std::string &function) {
        lines wanted;
        for (const log_line &line : log.take()) {
            if (line.function == function) {
                EXPECT_EQ(line.source, "quillfence-file") << line.message;
                wanted.push_back(line.message);
            }
        }
        return wanted;
    }
};

// --- __build_path ---

TEST_F(list_test, build_path_joins_with_one_slash) {
    static const struct {
        const char *directory, *name, *want;
    } cases[] = {
        {"c:/quillfence", "enabled", "c:/quillfence/enabled"},
        {"c:/quillfence/", "enabled", "c:/quillfence/enabled"},
        {"/", "x", "/x"},
        {"c:/quillfence//", "x", "c:/quillfence//x"},
        {"c:\\quillfence\\", "x", "c:\\quillfence\\/x"},
        {"d", "/x", "d//x"},
    };
    for (const auto &c : cases) {
        const heap_string got(__build_path(c.directory, c.name));
        EXPECT_STREQ(got.get(), c.want);
    }
    const std::string deep(3000, 'd');
    const heap_string got(__build_path(deep.c_str(), "x"));
    EXPECT_EQ(got.get(), deep + "/x") << "no length is cut";
}

TEST_F(list_test, build_path_refuses_empty_arguments) {
    static const struct {
        const char *directory, *name;
    } cases[] = {{nullptr, "x"}, {"", "x"}, {"d", nullptr}, {"d", ""}};
    for (const auto &c : cases) {
        EXPECT_EQ(__build_path(c.directory, c.name), nullptr);
        EXPECT_EQ(log.errors(), lines{"__build_path: Invalid argument"});
    }
}

// --- __file_contains_line ---

TEST_F(list_test, lines_match_or_not) {
    static const struct {
        const char *name, *bytes, *value;
        list_matcher matcher;
        int want;
    } cases[] = {
        {"exact", "a@b.example\n", "a@b.example", __wildcardmatch, 1},
        {"other letter case", "A@b.Example\n", "a@B.example", __wildcardmatch, 1},
        {"leading blanks, other case", "  u@b.example\n", "U@B.EXAMPLE", __wildcardmatch, 1},
        {"leading TAB", "\tu@b.example\n", "u@b.example", __wildcardmatch, 1},
        {"every white space leads", "\v\f\r\t u@b.example\n", "u@b.example", __wildcardmatch, 1},
        {"trailing blank", "u@b.example \n", "u@b.example", __wildcardmatch, 0},
        {"leading and trailing blanks", "  u@b.example \n", "u@b.example", __wildcardmatch, 0},
        {"CR LF", "u@b.example\r\n", "u@b.example", __wildcardmatch, 1},
        {"lone CR at the end stays", "u@b.example\r", "u@b.example", __wildcardmatch, 0},
        {"no LF at the end", "x\nu@b.example", "u@b.example", __wildcardmatch, 1},
        {"comment", "#u@b.example\n", "#u@b.example", _stricmp, 0},
        {"comment behind blanks", "  # *\n", "# x", __wildcardmatch, 0},
        {"blank lines", "\n   \n\t\n", "x", __regexmatch, 0},
        {"a # inside is text", "a#b\n", "a#b", _stricmp, 1},
        {"the last of many", "a\nb\n#c\n\nd\n", "d", _stricmp, 1},
        {"an address is whole", "10.0.0.1\n", "10.0.0.10", _stricmp, 0},
        {"an address is whole, the other way", "10.0.0.10\n", "10.0.0.1", _stricmp, 0},
        {"wildcards mean nothing to _stricmp", "10.*\n", "10.0.0.1", _stricmp, 0},
        {"expression", "spam.*x\n", "a spammer x", __regexmatch, 1},
        {"empty list", "", "x", _stricmp, 0},
        {"0x1A is no end", "\x1A\nx\n", "x", _stricmp, 1},
    };
    for (const auto &c : cases) {
        put("list", c.bytes);
        EXPECT_EQ(__file_contains_line(dir, "list", c.value, c.matcher), c.want) << c.name;
    }
}

TEST_F(list_test, long_lines_are_several_lines) {
    const std::string x1022(1022, 'x');
    put("list", x1022 + "tail\n");
    EXPECT_EQ(__file_contains_line(dir, "list", "tail", _stricmp), 1);
    EXPECT_EQ(__file_contains_line(dir, "list", x1022.c_str(), _stricmp), 1);
    EXPECT_EQ(__file_contains_line(dir, "list", (x1022 + "tail").c_str(), _stricmp), 0);
    put("list", x1022 + "#tail\n" + std::string(1022, ' ') + "b\n");
    EXPECT_EQ(__file_contains_line(dir, "list", "#tail", _stricmp), 0) << "a comment of its own";
    EXPECT_EQ(__file_contains_line(dir, "list", "b", _stricmp), 1);
}

TEST_F(list_test, the_directory_may_be_absent_or_closed) {
    put("list", "x\n");
    EXPECT_EQ(__file_contains_line("c:/quillfence/", "list", "x", _stricmp), 1);
    EXPECT_EQ(__file_contains_line(nullptr, "c:/quillfence/list", "x", _stricmp), 1);
    EXPECT_EQ(__file_contains_line("", "c:/quillfence/list", "x", _stricmp), 0)
        << "an empty directory puts a slash in front";
}

TEST_F(list_test, lookup_refuses_bad_arguments) {
    static const struct {
        const char *name, *value;
        list_matcher matcher;
    } cases[] = {
        {nullptr, "x", _stricmp}, {"", "x", _stricmp},    {"list", nullptr, _stricmp},
        {"list", "", _stricmp},   {"list", "x", nullptr},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(__file_contains_line(dir, c.name, c.value, c.matcher), 0);
        const auto taken = log.take();
        ASSERT_EQ(taken.size(), 1u);
        EXPECT_EQ(taken[0].source, "quillfence-file");
        EXPECT_EQ(taken[0].function, "__file_contains_line");
        EXPECT_EQ(taken[0].message, "Invalid argument");
    }
}

TEST_F(list_test, a_missing_list_is_an_empty_one_and_stays_missing) {
    EXPECT_EQ(__file_contains_line(dir, "list", "x", _stricmp), 0);
    EXPECT_FALSE(drive.exists(in_dir("list")));
    EXPECT_EQ(__file_contains_line("c:/quillfence/no/such", "list", "x", _stricmp), 0);
    drive.make_folder(in_dir("folder"));
    EXPECT_EQ(__file_contains_line(dir, "folder", "x", _stricmp), 0) << "a folder is no list";
}

TEST_F(list_test, an_unreadable_list_is_an_empty_one) {
    put("list", "x\n");
    call_watch calls;
    calls.fail("file_open", 1, 5);
    EXPECT_EQ(__file_contains_line(dir, "list", "x", _stricmp), 0);
    calls.fail("file_read", 1, 1117);
    EXPECT_EQ(__file_contains_line(dir, "list", "x", _stricmp), 0);
    EXPECT_EQ(__file_contains_line(dir, "list", "x", _stricmp), 1);
}

TEST_F(list_test, a_lookup_makes_no_needless_call) {
    put("list", "# comment\nx\n");
    EXPECT_EQ(__file_contains_line(dir, "list", "y", _stricmp), 0); // VERBOSEDEBUG is looked up
    call_watch calls;
    EXPECT_EQ(__file_contains_line(dir, "list", "y", _stricmp), 0);
    EXPECT_EQ(calls.take(),
              (lines{"path_attributes", "file_open", "file_read", "file_read", "file_close"}));
    EXPECT_EQ(__file_contains_line(dir, "list", "x", _stricmp), 1);
    EXPECT_EQ(calls.take(), (lines{"path_attributes", "file_open", "file_read", "file_close"}));
    EXPECT_EQ(__file_contains_line(dir, "missing", "x", _stricmp), 0);
    EXPECT_EQ(calls.take(), lines{"path_attributes"});
    std::string large;
    while (large.size() < 100000) {
        large += "someone@somewhere.example\n";
    }
    put("list", large);
    EXPECT_EQ(__file_contains_line(dir, "list", "y", _stricmp), 0);
    EXPECT_LE(calls.count("file_read"), 5) << "pieces of 32 KiB";
}

TEST_F(list_trace_test, a_hit_names_path_line_value_and_line_as_read) {
    drive.write(in_dir("list"), "# comment\r\n\r\n  A@b.example\r\na@b.example\r\n");
    EXPECT_EQ(__file_contains_line(dir, "list", "a@b.example", __wildcardmatch), 1);
    EXPECT_EQ(trace_of("__file_contains_line"),
              lines{"__file_contains_line(c:/quillfence/list, line 3): "
                    "hit [a@b.example][  A@b.example]"});
    drive.write(in_dir("list"), std::string(3000, 'x') + "\nend\n");
    EXPECT_EQ(__file_contains_line(dir, "list", "end", _stricmp), 1);
    EXPECT_EQ(trace_of("__file_contains_line"),
              lines{"__file_contains_line(c:/quillfence/list, line 4): hit [end][end]"})
        << "the pieces of a long line count";
    EXPECT_EQ(__file_contains_line(dir, "list", "none", _stricmp), 0);
    EXPECT_EQ(trace_of("__file_contains_line"), lines{});
}

lines seen_patterns;
int record_pattern(const char *pattern, const char *value) {
    seen_patterns.push_back(std::string(pattern) + "|" + value);
    return std::string(pattern) == "stop" ? 0 : 1;
}

TEST_F(list_test, the_matcher_gets_pattern_and_value_until_it_hits) {
    put("list", " a \n#b\n\n\tc\nstop\nd\n");
    seen_patterns.clear();
    EXPECT_EQ(__file_contains_line(dir, "list", "v", record_pattern), 1);
    EXPECT_EQ(seen_patterns, (lines{"a |v", "c|v", "stop|v"}));
}

// The list of the format page.
constexpr unsigned char sample[] = {
    0x23, 0x20, 0x73, 0x61, 0x6d, 0x70, 0x6c, 0x65, 0x0d, 0x0a, 0x75, 0x73, 0x65, 0x72, 0x40,
    0x65, 0x78, 0x61, 0x6d, 0x70, 0x6c, 0x65, 0x2e, 0x63, 0x6f, 0x6d, 0x0a, 0x09, 0x61, 0x64,
    0x64, 0x65, 0x64, 0x20, 0x62, 0x79, 0x20, 0x68, 0x61, 0x6e, 0x64, 0x0a, 0x20, 0x20, 0x2a,
    0x40, 0x65, 0x78, 0x61, 0x6d, 0x70, 0x6c, 0x65, 0x2e, 0x6f, 0x72, 0x67, 0x0a,
};
const std::string sample_bytes(reinterpret_cast<const char *>(sample), sizeof sample);

TEST_F(list_test, reads_the_sample_of_the_format_page) {
    put("list", sample_bytes);
    EXPECT_EQ(__file_contains_line(dir, "list", "USER@example.com", __wildcardmatch), 1);
    EXPECT_EQ(__file_contains_line(dir, "list", "any@example.org", __wildcardmatch), 1);
    EXPECT_EQ(__file_contains_line(dir, "list", "any@example.com", __wildcardmatch), 0);
}

// The patterns of a list, found the slow way.
lines model_patterns(std::string bytes) {
    lines patterns;
    for (size_t at = 0; (at = bytes.find("\r\n", at)) != std::string::npos;) {
        bytes.erase(at, 1);
    }
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = std::min(bytes.find('\n', at), bytes.size());
        std::string line = bytes.substr(at, end - at).c_str(); // up to a NUL
        line.erase(0, std::min(line.find_first_not_of(" \t\n\v\f\r"), line.size()));
        if (!line.empty() && line[0] != '#') {
            patterns.push_back(line + "|v");
        }
        at = end + 1;
    }
    return patterns;
}

TEST_F(list_test, the_sample_cut_and_flipped_at_every_byte) {
    const auto compare = [&](const std::string &bytes, size_t at) {
        put("list", bytes);
        seen_patterns.clear();
        EXPECT_EQ(__file_contains_line(dir, "list", "v", record_pattern), 0) << at;
        EXPECT_EQ(seen_patterns, model_patterns(bytes)) << at;
    };
    for (size_t at = 0; at <= sample_bytes.size(); ++at) {
        compare(sample_bytes.substr(0, at), at);
    }
    for (size_t at = 0; at < sample_bytes.size(); ++at) {
        for (const char mask : {'\xFF', '\x01', '\x20', sample_bytes[at]}) {
            std::string flipped = sample_bytes;
            flipped[at] = static_cast<char>(flipped[at] ^ mask);
            compare(flipped, at);
        }
    }
}

// --- matchers ---

TEST_F(list_test, wildcards) {
    static const struct {
        const char *name, *pattern, *subject;
        bool want;
    } cases[] = {
        {"no star: whole text", "a@b", "a@b", true},
        {"no star: no part of it", "a@b", "a@bc", false},
        {"no star: case", "A@b", "a@B", true},
        {"no star: operators are letters", "a+b", "a+b", true},
        {"no star: operators do nothing", "a+b", "aab", false},
        {"no star: a dot is a dot", "a.b", "axb", false},
        {"local part", "*@example.com", "anyone@example.com", true},
        {"local part, empty", "*@example.com", "@example.com", true},
        {"case", "*@Example.com", "u@example.com", true},
        {"anchored at the end", "*@example.com", "u@example.com.net", false},
        {"anchored at the start", "u*", "xu", false},
        {"dot needs a label", "*.example.com", "example.com", false},
        {"dot with a label", "*.example.com", "a.example.com", true},
        {"a dot is a dot", "*.example.com", "a.examplexcom", false},
        {"everything", "*", "x", true},
        {"two stars", "*a*", "xay", true},
        {"two stars, nothing around", "*a*", "a", true},
        {"two stars, missing", "*a*", "xyz", false},
        {"pieces in order", "*a*b*", "xbxa", false},
        {"stars in a row", "a**b", "axxb", true},
        {"head and tail don't overlap", "ab*ba", "aba", false},
        {"a bar in a starred line", "*a|b", "b", true},
        {"plus repeats in a starred line", "u+@*", "uuu@example.com", true},
        {"plus needs one", "u+@*", "@example.com", false},
        {"class in a starred line", "[ab]c*", "bcx", true},
        {"class in a starred line, missing", "[ab]c*", "dcx", false},
        {"question mark in a starred line", "ab?c*", "acx", true},
        {"question mark in a starred line is no letter", "ab?c*", "ab?cx", false},
        {"group in a starred line", "(ab|cd)x*", "cdxy", true},
        {"group in a starred line, missing", "(ab|cd)x*", "adxy", false},
        {"escape in a starred line", "a\\+*", "a+b", true},
        {"high bytes of the subject", "*a",
         "\xE9\xFF"
         "a",
         true},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(__wildcardmatch(c.pattern, c.subject) == 0, c.want) << c.name;
    }
}

TEST_F(list_test, matchers_refuse_missing_arguments) {
    EXPECT_EQ(__wildcardmatch(nullptr, "x"), 1);
    EXPECT_EQ(__wildcardmatch("", "x"), 1);
    EXPECT_EQ(__wildcardmatch("x", nullptr), 1);
    EXPECT_EQ(__wildcardmatch("x", ""), 1);
    EXPECT_EQ(log.errors(), lines(4, "__wildcardmatch: Invalid argument"));
    EXPECT_EQ(__regexmatch(nullptr, "x"), 1);
    EXPECT_EQ(__regexmatch("x", nullptr), 1);
    EXPECT_EQ(log.errors(), lines(2, "__regexmatch: Invalid argument"));
}

TEST_F(list_test, regexmatch_searches_and_folds_case) {
    EXPECT_EQ(__regexmatch("foo", "xFOOy"), 0);
    EXPECT_EQ(__regexmatch("^foo$", "foo"), 0);
    EXPECT_EQ(__regexmatch("^foo$", "xfoo"), 1);
    EXPECT_EQ(__regexmatch("", "anything"), 0);
    EXPECT_EQ(__regexmatch("[", "["), 1) << "does not compile";
    EXPECT_FALSE(log.errors().empty()) << "the compiler tells why";
}

TEST_F(list_trace_test, a_match_of_an_expression_is_traced) {
    EXPECT_EQ(__wildcardmatch("*@Example.com", "u@example.com"), 0);
    EXPECT_EQ(trace_of("__regexmatch"),
              lines{"got a match [u@example.com] => [^.*@Example\\.com$]"});
    EXPECT_NE(__wildcardmatch("*@Example.com", "u@example.net"), 0);
    EXPECT_EQ(__wildcardmatch("a", "A"), 0);
    EXPECT_EQ(trace_of("__regexmatch"), lines{});
}

// The answer of the expression engine for a wildcard pattern, without any shortcut.
class engine_answer {
  public:
    explicit engine_answer(const std::string &pattern) {
        std::string expression = "^";
        for (const char c : pattern) {
            expression += c == '*' ? ".*" : c == '.' ? "\\." : std::string(1, c);
        }
        compiled_ = trex_compile_ex((expression + "$").c_str(), trex_fold_case);
    }
    ~engine_answer() {
        trex_free(compiled_);
    }
    engine_answer(const engine_answer &) = delete;
    engine_answer &operator=(const engine_answer &) = delete;
    bool matches(const std::string &subject) const {
        return compiled_ && trex_match(compiled_, subject.c_str());
    }

  private:
    TRex *compiled_;
};

// Every text of 1 to longest letters.
lines all_texts(const std::string &letters, size_t longest) {
    lines texts;
    lines last{""};
    for (size_t length = 1; length <= longest; ++length) {
        lines next;
        for (const std::string &text : last) {
            for (const char c : letters) {
                next.push_back(text + c);
            }
        }
        texts.insert(texts.end(), next.begin(), next.end());
        last = next;
    }
    return texts;
}

void compare_all(const lines &patterns, const lines &subjects) {
    for (const std::string &pattern : patterns) {
        if (pattern.find('*') == std::string::npos) {
            continue;
        }
        const engine_answer engine(pattern);
        for (const std::string &subject : subjects) {
            ASSERT_EQ(__wildcardmatch(pattern.c_str(), subject.c_str()) == 0,
                      engine.matches(subject))
                << "[" << pattern << "] [" << subject << "]";
        }
    }
}

TEST_F(list_test, shortcut_agrees_with_the_engine) {
    compare_all(all_texts("aB.*", 5), all_texts("ab.", 4));
    compare_all(all_texts("a*", 7), all_texts("aB", 7));
    compare_all(all_texts("ab*", 6), all_texts("ab", 5));
}

// Pieces that overlap themselves, so that a search has to fall back to a part of what it has.
TEST_F(list_test, shortcut_agrees_with_the_engine_on_pieces_by_chance) {
    std::mt19937 random(20261122);
    const auto text_of = [&random](size_t most, const std::string &letters) {
        std::string text;
        for (size_t n = 1 + random() % most; n > 0; --n) {
            text += letters[random() % letters.size()];
        }
        return text;
    };
    int hits = 0;
    for (int i = 0; i < 20'000; ++i) {
        const std::string pattern = "*" + text_of(8, "aab") + "*" + text_of(5, "aB*");
        const std::string subject = text_of(30, "aaab");
        const bool want = engine_answer(pattern).matches(subject);
        ASSERT_EQ(__wildcardmatch(pattern.c_str(), subject.c_str()) == 0, want)
            << "[" << pattern << "] [" << subject << "]";
        hits += want;
    }
    EXPECT_GT(hits, 4'000);
    EXPECT_LT(hits, 16'000);
}

// The longest that a list line holds, and one that none does.
TEST_F(list_test, the_longest_pieces) {
    for (const size_t length : {1000u, 1020u, 1021u, 1022u, 1100u}) {
        const std::string piece(length, 'a');
        EXPECT_EQ(__wildcardmatch(("*" + piece + "*").c_str(), ("b" + piece + "b").c_str()), 0);
        EXPECT_NE(__wildcardmatch(("*" + piece + "a*").c_str(), ("b" + piece + "b").c_str()), 0);
    }
}

TEST_F(list_test, shortcut_agrees_with_the_engine_on_every_plain_byte) {
    std::mt19937 random(4711);
    lines subjects;
    for (int c = 1; c < 256; ++c) {
        subjects.push_back({'x', static_cast<char>(c)});
        subjects.push_back({static_cast<char>(c), static_cast<char>(c), 'Z'});
    }
    lines patterns;
    for (char c = 32; c <= 126; ++c) {
        patterns.push_back({'*', c});
        patterns.push_back({c, '*'});
        patterns.push_back({'*', c, '*'});
        patterns.push_back({'x', c, '*'});
        patterns.push_back({c, '*', 'z'});
    }
    for (const std::string &pattern : patterns) {
        const engine_answer engine(pattern);
        for (const std::string &subject : subjects) {
            ASSERT_EQ(__wildcardmatch(pattern.c_str(), subject.c_str()) == 0,
                      engine.matches(subject))
                << "[" << pattern << "] [" << subject << "]";
        }
    }
    log.errors(); // some of these do not compile, in both ways alike
}

// Of every printable character but the operators: no expression is made for a line that does not
// match, and only its text, for a DEBUG line, for one that does.
TEST_F(list_test, shortcut_spares_the_engine) {
    const std::string operators = "$()*+?[\\]^{|}";
    for (char c = 32; c <= 126; ++c) {
        if (operators.find(c) != std::string::npos) {
            continue;
        }
        const std::string pattern = {'*', c};
        const unsigned long before = allocations_made();
        const int result = __wildcardmatch(pattern.c_str(), "\x01");
        EXPECT_EQ(allocations_made() - before, 0u) << c;
        EXPECT_NE(result, 0) << c;
        const std::string subject = {'x', c};
        EXPECT_EQ(__wildcardmatch(pattern.c_str(), subject.c_str()), 0) << c;
        EXPECT_EQ(allocations_made() - before, 1u) << c;
    }
}

TEST_F(list_test, shortcut_leaves_what_does_not_compile_to_the_engine) {
    for (const char *const pattern : {"*\xE9", "\x01*x", "a*(", "*[", "*\t"}) {
        EXPECT_NE(__wildcardmatch(pattern, "nothing like it"), 0) << pattern;
        EXPECT_FALSE(log.errors().empty()) << pattern;
    }
}

// --- whole files ---

TEST_F(list_test, file_to_int) {
    static const struct {
        const char *bytes;
        int want;
    } cases[] = {
        {"1", 1},
        {"1\n", 1},
        {" 42 apples", 42},
        {"-7", -7},
        {"+7", 7},
        {"", 0},
        {"text", 0},
        {"0x10", 0},
        {"1\r\n", 1},
        {"12\n34", 12},
        {"99999999999", 2147483647},
        {"-99999999999", -2147483647 - 1},
    };
    for (const auto &c : cases) {
        put("number", c.bytes);
        EXPECT_EQ(vc_file_to_int(dir, "number"), c.want) << c.bytes;
    }
    EXPECT_EQ(vc_file_to_int(dir, "missing"), 0);
    EXPECT_FALSE(drive.exists(in_dir("missing")));
    EXPECT_EQ(vc_file_to_int(nullptr, "number"), 0);
    EXPECT_EQ(vc_file_to_int("", "number"), 0);
    EXPECT_EQ(vc_file_to_int(dir, nullptr), 0);
    EXPECT_EQ(vc_file_to_int(dir, ""), 0);
    EXPECT_EQ(log.errors(), lines(4, "vc_file_to_int: Invalid argument"));
}

TEST_F(list_trace_test, file_to_int_tells_why_it_is_0) {
    EXPECT_EQ(vc_file_to_int(dir, "number"), 0);
    EXPECT_EQ(trace_of("vc_file_to_int"), lines{"file c:/quillfence/number does not exist"});
    drive.write(in_dir("number"), "5");
    call_watch calls;
    calls.fail("file_open", 1, 5);
    EXPECT_EQ(vc_file_to_int(dir, "number"), 0);
    EXPECT_EQ(trace_of("vc_file_to_int"),
              lines{"failed to retrieve contents of file c:/quillfence/number"});
    drive.make_folder(in_dir("folder"));
    EXPECT_EQ(vc_file_to_int(dir, "folder"), 0);
    EXPECT_EQ(trace_of("vc_file_to_int"), lines{"file c:/quillfence/folder does not exist"});
}

lines texts_of(vc_list_entry *list) {
    lines texts;
    for (const vc_list_entry *entry = list; entry; entry = entry->next) {
        texts.emplace_back(static_cast<const char *>(entry->data));
    }
    vc_destroy_list(&list, std::free);
    return texts;
}

TEST_F(list_test, file_to_list_splits_at_lf) {
    static const struct {
        const char *bytes;
        lines want;
    } cases[] = {
        {"a\nb", {"a", "b"}},
        {"a\nb\n", {"a", "b", ""}},
        {"a\r\nb\r\n", {"a\r", "b\r", ""}},
        {" # a \n\nb", {" # a ", "", "b"}},
        {"\n", {"", ""}},
        {"", {}},
    };
    for (const auto &c : cases) {
        put("names", c.bytes);
        EXPECT_EQ(texts_of(vc_file_to_list(dir, "names")), c.want) << c.bytes;
    }
    EXPECT_EQ(vc_file_to_list(dir, "missing"), nullptr);
    EXPECT_FALSE(drive.exists(in_dir("missing")));
}

TEST_F(list_test, file_to_list_tells_which_name_it_could_not_assemble) {
    EXPECT_EQ(vc_file_to_list(nullptr, "names"), nullptr);
    EXPECT_EQ(
        log.errors(),
        (lines{"__build_path: Invalid argument",
               "vc_file_to_list: Invalid argument attempting to assemble name (null) names"}));
    EXPECT_EQ(vc_file_to_list(dir, ""), nullptr);
    EXPECT_EQ(
        log.errors(),
        (lines{"__build_path: Invalid argument",
               "vc_file_to_list: Invalid argument attempting to assemble name c:/quillfence "}));
}

TEST_F(list_trace_test, file_to_list_traces_its_steps) {
    EXPECT_EQ(vc_file_to_list(dir, "names"), nullptr);
    EXPECT_EQ(trace_of("vc_file_to_list"),
              lines{"file c:/quillfence/names does not exist. Aborting"});
    drive.write(in_dir("names"), "a\nb");
    EXPECT_EQ(texts_of(vc_file_to_list(dir, "names")), (lines{"a", "b"}));
    EXPECT_EQ(trace_of("vc_file_to_list"), (lines{"loading contents of file c:/quillfence/names",
                                                  "loaded [a?b]", "list loaded"}));
    drive.write(in_dir("names"), "");
    EXPECT_EQ(vc_file_to_list(dir, "names"), nullptr);
    EXPECT_EQ(trace_of("vc_file_to_list"),
              (lines{"loading contents of file c:/quillfence/names", "loaded []"}));
    call_watch calls;
    calls.fail("file_open", 1, 5);
    EXPECT_EQ(vc_file_to_list(dir, "names"), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 5"});
}

lines called_back;
void record_line(const char *line, uint32_t length) {
    EXPECT_EQ(std::string(line).size(), length);
    called_back.emplace_back(line);
}

TEST_F(list_test, iterate_gives_every_line_without_its_end) {
    const std::string x1022(1022, 'x');
    put("list", "# a\r\n\n b \n" + x1022 + "c\r\r\nlast");
    called_back.clear();
    EXPECT_EQ(vc_iterate_file(dir, "list", record_line), 1);
    EXPECT_EQ(called_back, (lines{"# a", "", " b ", x1022, "c", "last"}));
    called_back.clear();
    put("empty", "");
    EXPECT_EQ(vc_iterate_file(dir, "empty", record_line), 1) << "read to its end at once";
    EXPECT_EQ(vc_iterate_file(dir, "missing", record_line), 0);
    EXPECT_EQ(vc_iterate_file(nullptr, "list", record_line), 0);
    EXPECT_EQ(vc_iterate_file(dir, "", record_line), 0);
    EXPECT_EQ(vc_iterate_file(dir, "list", nullptr), 0);
    EXPECT_EQ(log.errors(), lines(3, "vc_iterate_file: Invalid argument"));
    EXPECT_EQ(called_back, lines{});
}

TEST_F(list_test, iterate_tells_why_a_file_does_not_open_or_read) {
    put("list", "a\n");
    call_watch calls;
    calls.fail("file_open", 1, 5);
    EXPECT_EQ(vc_iterate_file(dir, "list", record_line), 0);
    EXPECT_EQ(log.errors(), lines{"vc_iterate_file: Permission denied"});
    calls.fail("file_read", 1, 1117);
    EXPECT_EQ(vc_iterate_file(dir, "list", record_line), 0);
    EXPECT_EQ(log.errors(), lines{"vc_iterate_file: Input/output error"});
}

} // namespace
} // namespace quillfence::testing
