#include <iterator>
#include <memory>
#include <random>

#include "platform/file.h"
#include "ptr_session.h"
#include "quillfence-spam-hooks.h"
#include "step_budget.h"
#include "tiny_rex_storage.h"

namespace quillfence::testing {
namespace {

constexpr char exempt_file[] = "c:/quillfence/dynaregex/exempt.cregexes";

class dynamic_names_default : public ptr_test {
  protected:
    uint8_t judge(const std::vector<std::string> &names) {
        state->rdns_resolves = 1;
        state.put_ptr_names(names);
        return rule_check_dynamic_reverse_dns_default(state);
    }
    void write_exempt_file(const char *pattern) {
        drive.make_folder("c:/quillfence/dynaregex");
        FILE *stream = platform::stream_open(exempt_file, "wb+");
        ASSERT_NE(stream, nullptr);
        TRex *expression = trex_compile_ex(pattern, trex_fold_case);
        EXPECT_TRUE(trs_set_header(stream));
        EXPECT_TRUE(trs_store(stream, expression));
        trex_free(expression);
        fclose(stream);
    }
};

TEST_F(dynamic_names_default, which_names_spell_an_address_out) {
    struct {
        const char *name;
        uint8_t want;
    } const cases[] = {
        {"1-2-3-4.pool.example", 1}, {"1.2.3.4.example", 1},
        {"1_2_3_4.example", 1},      {"192-0.2_1.example", 1},
        {"host-1-2-3-4.example", 1}, // anywhere in the name
        {"host1-2-3-4", 1},          {"1-2-3-4", 1},
        {"1234-2-3-4.example", 1}, // its last three digits
        {"1-2-3-4567.example", 1},   {"mail.example", 0},
        {"1-2-3.example", 0},        {"1-2-3-x.example", 0},
        {"1--2-3-4.example", 0},     {"1-2-3456-7-8.example", 0},
        {"1+2+3+4.example", 0},      {"10020030040.example", 0},
    };
    for (const auto &[name, want] : cases) {
        EXPECT_EQ(judge({name}), want) << name;
        EXPECT_EQ(state.rdns(), want ? "(none)" : name);
    }
}

// The rule answers as the engine does with the pattern that docs and records show for it.
TEST_F(dynamic_names_default, it_agrees_with_its_pattern) {
    const trex_ptr pattern(trex_compile_ex(
        R"([0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3})", trex_fold_case));
    ASSERT_NE(pattern, nullptr);
    static constexpr const char *pieces[] = {"0",  "12", "999", "1234", "00000", "-",
                                             "_",  ".",  "-.",  "a",    "/",     ":",
                                             "7.", "8-", "9_",  "10.",  "255-",  "\xB2"};
    std::mt19937 random(1);
    int matched = 0;
    for (int i = 0; i < 4000; ++i) {
        std::string name;
        for (size_t left = 1 + random() % 14; left; --left) {
            name += pieces[random() % std::size(pieces)];
        }
        const int want = trex_match(pattern.get(), name.c_str());
        EXPECT_EQ(judge({name}), want) << name;
        matched += want;
    }
    EXPECT_GT(matched, 200) << "names of both kinds are needed";
    EXPECT_LT(matched, 3600);
}

TEST_F(dynamic_names_default, all_names_must_match) {
    struct {
        std::vector<std::string> names;
        uint8_t want;
        const char *rdns;
    } const cases[] = {
        {{"1-2-3-4.pool.example"}, 1, "(none)"},
        {{"1-2-3-4.pool.example", "5-6-7-8.pool.example"}, 1, "(none)"},
        {{"1-2-3-4.pool.example", "mail.example"}, 0, "mail.example"},
        {{"mail.example", "1-2-3-4.pool.example"}, 0, "mail.example"},
        {{"1-2-3-4.pool.example", "b.example", "a.example"}, 0, "b.example"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(judge(c.names), c.want) << c.names[0];
        EXPECT_EQ(state.rdns(), c.rdns);
    }
}

TEST_F(dynamic_names_default, more_than_100_names_are_not_matched) {
    EXPECT_EQ(judge(std::vector<std::string>(100, "1-2-3-4.pool.example")), 1);
    log.take();
    EXPECT_EQ(judge(std::vector<std::string>(101, "1-2-3-4.pool.example")), 0);
    EXPECT_EQ(state.rdns(), "(none)");
    EXPECT_EQ(log.transcript().back(),
              "D rule_check_dynamic_reverse_dns_default: more than 100 PTR names, none is matched");
}

// Were the lookup that the steps ended taken for "not exempt", the rule would hit.
TEST_F(dynamic_names_default, an_exempt_file_that_the_run_has_no_steps_for) {
    write_exempt_file("[a-z]+[a-z]+[a-z]+[0-9]-");
    EXPECT_EQ(judge({"1-2-3-4.pool.example"}), 1);
    const step_scope steps(10);
    EXPECT_EQ(judge({"1-2-3-4.pool.example"}), 0);
    EXPECT_EQ(state.rdns(), "(none)");
    EXPECT_EQ(log.errors(), lines{std::string("rule_check_dynamic_reverse_dns_default: ") +
                                  ptr_steps_spent_line});
}

TEST_F(dynamic_names_default, never_fires_without_names) {
    EXPECT_EQ(judge({}), 0);
    state->ptr_results = static_cast<char **>(calloc(1, sizeof(char *)));
    EXPECT_EQ(rule_check_dynamic_reverse_dns_default(state), 0) << "an empty array";
}

TEST_F(dynamic_names_default, exempt_names) {
    write_exempt_file("\\.good\\.example$");
    EXPECT_EQ(judge({"1-2-3-4.good.example"}), 0);
    EXPECT_EQ(state.rdns(), "1-2-3-4.good.example");
    EXPECT_EQ(judge({"1-2-3-4.pool.example"}), 1);
    EXPECT_EQ(judge({"1-2-3-4.pool.example", "1-2-3-4.good.example"}), 0);
    EXPECT_EQ(state.rdns(), "1-2-3-4.good.example");
}

TEST_F(dynamic_names_default, damaged_exempt_file_exempts_nothing) {
    drive.write(exempt_file, "no patterns in here");
    EXPECT_EQ(judge({"1-2-3-4.good.example"}), 1);
    log.take(); // what compiled_regex_match says is its own matter
}

TEST_F(dynamic_names_default, missing_exempt_file_is_not_made) {
    EXPECT_EQ(judge({"1-2-3-4.pool.example"}), 1);
    EXPECT_FALSE(drive.exists(exempt_file));
}

} // namespace
} // namespace quillfence::testing
