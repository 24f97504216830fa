// A pattern file that was read beforehand against the same file walked through, by what the lookup
// answers, tells and complains of.
#include "frozen_patterns.h"

#include <fstream>
#include <memory>
#include <random>

#include "drive_c.h"
#include "evidence_watch.h"
#include "failing_memory.h"
#include "frozen_files.h"
#include "platform/file.h"
#include "step_budget.h"
#include "tiny_rex_storage.h"

namespace quillfence::testing {
namespace {

constexpr char path[] = "c:/quillfence/dynaregex/dyna.cregexes";

struct patterns_deleter {
    void operator()(frozen_patterns *patterns) const {
        frozen_patterns_free(patterns);
    }
};
using owned_patterns = std::unique_ptr<frozen_patterns, patterns_deleter>;

void append_number(std::string *bytes, int32_t value) {
    for (int i = 0; i < 4; ++i) {
        bytes->push_back(static_cast<char>(static_cast<uint32_t>(value) >> 8 * i & 0xFF));
    }
}

std::string file_of(const std::vector<std::string> &patterns) {
    std::string bytes;
    append_number(&bytes, trs_magic);
    for (const std::string &pattern : patterns) {
        TRex *const expression = trex_compile_ex(pattern.c_str(), trex_fold_case);
        if (!expression) {
            continue;
        }
        append_number(&bytes, expression->nsize);
        for (int32_t i = 0; i < expression->nsize; ++i) {
            const TRexNode &node = expression->nodes[i];
            for (const int32_t field : {node.type, node.left, node.right, node.next}) {
                append_number(&bytes, field);
            }
        }
        trex_free(expression);
    }
    return bytes;
}

struct answer {
    int matched = 0;
    lines told{};
    lines errors{};
    bool operator==(const answer &) const = default;
};
std::ostream &operator<<(std::ostream &to, const answer &of) {
    to << of.matched;
    for (const std::string &line : of.told) {
        to << "\n  " << line;
    }
    for (const std::string &line : of.errors) {
        to << "\n  E " << line;
    }
    return to;
}

class frozen_pattern_files : public drive_test {
  protected:
    void use(const std::string &file) {
        log.take(); // a pattern may have been none
        bytes = file;
        drive.write(path, file);
        frozen_patterns *made = nullptr;
        EXPECT_TRUE(frozen_patterns_make(bytes.data(), bytes.size(), &made));
        patterns.reset(made);
        row = {.path = name.data(),
               .error = 0,
               .attributes = platform::attribute_normal,
               .bytes = bytes.data(),
               .size = bytes.size(),
               .changed = 0,
               .sha256 = "",
               .list = nullptr,
               .ranges = nullptr,
               .patterns = made,
               .declarations = nullptr,
               .domains = nullptr};
    }
    answer ask(const std::string &subject, const frozen_files *configuration) {
        evidence_watch watch;
        current_call_context()->configuration = configuration;
        answer made;
        made.matched = compiled_regex_match(path, subject.c_str());
        made.told = watch.take();
        made.errors = log.errors();
        return made;
    }
    answer by_file(const std::string &subject) {
        return ask(subject, nullptr);
    }
    answer frozen(const std::string &subject) {
        frozen_files files = {};
        files.rows = &row;
        files.row_count = 1;
        EXPECT_TRUE(index_frozen_files(&files));
        const answer made = ask(subject, &files);
        free(files.slots);
        return made;
    }
    // Whether both give the same answer, which is returned.
    int both(const std::string &subject) {
        const answer expected = by_file(subject);
        EXPECT_EQ(frozen(subject), expected) << subject;
        return expected.matched;
    }
    // How many expressions are tried on a name.
    uint32_t tried(const std::string &subject) {
        pattern_walk walk;
        TRex expression = {};
        uint32_t count = 0;
        frozen_patterns_begin(patterns.get(), subject.data(), subject.data() + subject.size(),
                              &walk);
        while (frozen_patterns_next(&walk, &expression)) {
            ++count;
        }
        return count;
    }

    std::string name = path;
    std::string bytes;
    owned_patterns patterns;
    frozen_file row = {};
};

TEST_F(frozen_pattern_files, try_what_ends_as_the_name_does_and_what_has_no_ending) {
    use(file_of({"dyn[0-9]+\\.one\\.example$", "dyn[0-9]+\\.two\\.example$", "^mail",
                 "[0-9]\\.two\\.example$", "host$"}));
    EXPECT_EQ(frozen_patterns_count(patterns.get()), 5u);
    EXPECT_EQ(tried("dyn1.TWO.example"), 3u);
    EXPECT_EQ(tried("other"), 1u);
    EXPECT_EQ(tried(""), 1u);
    EXPECT_TRUE(both("dyn1.TWO.example"));
    EXPECT_TRUE(both("mail.two.example"));
    EXPECT_TRUE(both("x.dyn7.one.example"));
    EXPECT_FALSE(both("dyn.one.example"));
    EXPECT_FALSE(both(""));
}

TEST_F(frozen_pattern_files,
       without_an_ending_are_tried_on_names_that_end_in_what_they_can_end_in) {
    use(file_of({"[0-9]+$", "\\.(net|[a-c]om)$", "^x(y|[^z])?$", "a[0-9]*$", "(.*)$", "^ab*\\b$",
                 "[a-z]{2}$", "(a|b+|(c?d)?)$"}));
    EXPECT_EQ(tried("1"), 5u); // [0-9]+, ^x(y|[^z])?, a[0-9]*, (.*), (a|b+|(c?d)?), which may be ""
    EXPECT_EQ(tried("T"), 5u); // \.(net|[a-c]om), ^x(y|[^z])?, (.*), [a-z]{2}, (a|b+|(c?d)?)
    EXPECT_EQ(tried("-"), 3u);
    for (const char *subject :
         {"1", "T",   "-",  ".neT", ".bom", ".Com", ".dom", "x",  "xy",  "xz", "xq",
          "a", "A12", "ab", "abb",  "ab-",  "mn",   "d",    "cd", "ccd", "b1", ""}) {
        both(subject);
    }
}

TEST_F(frozen_pattern_files, keep_the_order_of_the_file) {
    use(file_of({"b$", "[ab]b$", "^a", "ab$", ".*"}));
    for (const char *subject : {"ab", "bb", "ac", "b", "c"}) {
        EXPECT_TRUE(both(subject));
    }
}

TEST_F(frozen_pattern_files, with_more_candidates_than_a_walk_holds_try_all) {
    std::vector<std::string> many(most_candidates + 10, "[0-9]x\\.example$");
    many.insert(many.begin(), "z.example$");
    many.emplace_back("yx\\.example$");
    many.emplace_back("^y");
    use(file_of(many));
    EXPECT_EQ(tried("yx.example"), many.size());
    EXPECT_TRUE(both("yx.example"));
    EXPECT_TRUE(both("1x.example"));
    EXPECT_FALSE(both("qx.example"));
}

TEST_F(frozen_pattern_files, that_are_damaged_have_no_form_and_answer_all_the_same) {
    const std::string sound = file_of({"one$", "two$", "^three"});
    for (size_t size = 0; size < sound.size(); ++size) {
        use(sound.substr(0, size));
        for (const char *subject : {"one", "two", "three", "four"}) {
            both(subject);
        }
    }
    std::mt19937 random(20261122);
    unsigned without_form = 0;
    for (int i = 0; i < 600; ++i) {
        std::string changed = sound;
        for (int n = 0; n < 3; ++n) {
            changed[random() % (random() % 2 ? 40 : changed.size())] =
                static_cast<char>(random() % 3 ? random() % 6 : random() % 256);
        }
        use(changed);
        without_form += !patterns;
        for (const char *subject : {"one", "two", "three", "four", ""}) {
            both(subject);
        }
    }
    EXPECT_GT(without_form, 60u);
    EXPECT_LT(without_form, 540u);
}

TEST_F(frozen_pattern_files, may_end_in_fewer_bytes_than_a_count) {
    use(file_of({"one$"}) + "abc");
    EXPECT_NE(patterns, nullptr);
    EXPECT_TRUE(both("one"));
    EXPECT_FALSE(both("two"));
}

TEST_F(frozen_pattern_files, take_steps_out_of_the_budget_and_end_with_it) {
    use(file_of({"one$", "^a*b"}));
    const step_scope steps(3);
    EXPECT_FALSE(frozen("aaaab").matched);
    EXPECT_TRUE(steps_are_spent());
    EXPECT_EQ(frozen("aaaab").told.back(), by_file("aaaab").told.back());
}

TEST_F(frozen_pattern_files, without_memory_say_so) {
    use(file_of({"one$"}));
    frozen_patterns *made = nullptr;
    const failing_allocation failing(1);
    EXPECT_FALSE(frozen_patterns_make(bytes.data(), bytes.size(), &made));
}

TEST_F(frozen_pattern_files, of_random_patterns_answer_as_a_walk) {
    std::mt19937 random(20261122);
    const auto some = [&random](std::initializer_list<const char *> from) {
        return std::string(from.begin()[random() % from.size()]);
    };
    unsigned matched = 0;
    for (int files = 0; files < 300 && !HasFailure(); ++files) {
        std::vector<std::string> list(random() % 12);
        for (std::string &pattern : list) {
            pattern = some({"", "^"});
            for (size_t n = 1 + random() % 4; n; --n) {
                pattern += some({"a", "b", "ab", "A", "[ab]", "a*", "(a|b)", "(ab)+", "a?", ".*",
                                 "\\.", "b{1,2}", "."});
            }
            pattern += some({"", "$", "$"});
        }
        use(file_of(list));
        for (int names = 0; names < 20; ++names) {
            std::string subject;
            for (size_t n = random() % 6; n; --n) {
                subject += some({"a", "b", "B", "."});
            }
            matched += static_cast<unsigned>(both(subject));
        }
    }
    EXPECT_GT(matched, 1000u);
}

TEST_F(frozen_pattern_files, of_a_public_list_need_few_tries) {
    std::ifstream stream(QF_PATTERN_LIST);
    std::vector<std::string> list;
    for (std::string line; std::getline(stream, line);) {
        const size_t first = line.find('/');
        const size_t last = line.rfind('/');
        if (first == 0 && last > first) {
            list.push_back(line.substr(1, last - 1));
        }
    }
    ASSERT_GT(list.size(), 1500u);
    use(file_of(list));
    std::mt19937 random(20261122);
    unsigned all_tries = 0;
    unsigned names = 0;
    for (size_t i = 0; i < list.size(); i += 7) {
        const size_t dot = list[i].find("\\.");
        std::string subject = "host-1-2-3-4";
        for (size_t at = dot; at < list[i].size(); ++at) {
            if (!strchr("\\$^()[]", list[i][at])) {
                subject += list[i][at];
            }
        }
        both(subject);
        all_tries += tried(subject);
        ++names;
    }
    EXPECT_GT(names, 200u);
    EXPECT_LT(all_tries / names, 40u); // of more than 1,500
}

} // namespace
} // namespace quillfence::testing
