// What a record of a subcommand promises: what is taken, where it is stored, what is refused and in
// which words.
#include "command_line.h"

#include <memory>
#include <ostream>

#include <gtest/gtest.h>

namespace quillfence::programs {
namespace {

struct values {
    bool flag = false;
    int calls = 0;
    std::string text;
    std::optional<std::string> missing;
    std::vector<std::string> rest;
    std::vector<std::string> singles;
    std::vector<std::string> pairs;
    uint64_t number = 0;
    double seconds = 0;
    std::string needed;
    std::string file;
    bool other = false;
};

values got;
bool ran;

command take_command() {
    auto to = std::make_shared<values>();
    return {
        .name = "take",
        .description = "Take what there is",
        .options = {{"FIRST", &to->text, "The first"},
                    {"REST", &to->rest, "The rest", {.required = false}},
                    {"--flag", &to->flag, "A flag"},
                    {"--call",
                     flag_call{[to] { ++to->calls; }},
                     "A flag that calls",
                     {.excludes = {"--flag"}}},
                    {"--missing", &to->missing, "A text that may be missing", {.value = "WORD"}}},
        .groups = {{"Lists",
                    {{"--single", &to->singles, "One at a time", {.values_at_once = 1}},
                     {"--pair", &to->pairs, "Two at a time", {.values_at_once = 2}}}},
                   {"Numbers",
                    {{"--number", &to->number, "From 3", {.check = at_least(3)}},
                     {"--seconds", &to->seconds, "1 to 2", {.check = between(1, 2)}}}}},
        .footer = "Said last.",
        .run =
            [to] {
                got = *to;
                ran = true;
                return exit_status::partly;
            },
    };
}

command demand_command() {
    auto to = std::make_shared<values>();
    return {
        .name = "demand",
        .description = "Demand options",
        .options =
            {{"--word", &to->needed, "a or b", {.required = true, .check = one_of({"a", "b"})}},
             {"--flag", &to->flag, "Goes with the other", {.needs = {"--other"}}},
             {"--file", &to->file, "A file", {.check = not_empty()}},
             {"--other", &to->other, "The other"}},
        .run =
            [to] {
                got = *to;
                ran = true;
                return exit_status::no;
            },
    };
}

command both_command() {
    return {
        .name = "both", .description = "Two", .subcommands = {take_command(), demand_command()}};
}

struct ending {
    exit_status status;
    std::string out, err;
    bool operator==(const ending &) const = default;
};

std::ostream &operator<<(std::ostream &out, const ending &what) {
    return out << static_cast<int>(what.status) << '\n' << what.out << what.err;
}

ending run(std::vector<std::string> words) {
    static constexpr command_maker commands[] = {both_command};
    const program_frame frame = {
        .name = "words", .description = "Words.", .footer = "The end.", .commands = commands};
    words.insert(words.begin(), "words");
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    got = {};
    ran = false;
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    const int status = run_program(frame, static_cast<int>(words.size()), argv.data());
    std::string out = ::testing::internal::GetCapturedStdout();
    return {exit_status{status}, out, ::testing::internal::GetCapturedStderr()};
}

std::vector<std::string> below(const char *command, std::vector<std::string> words) {
    words.insert(words.begin(), {"both", command});
    return words;
}

using words = std::vector<std::string>;

TEST(command_line, values_arrive_where_they_belong) {
    EXPECT_EQ(run(below("take", {"--call", "--call", "one", "two", "three", "--missing", "",
                                 "--number", "3", "--seconds", "1.5"})),
              (ending{exit_status::partly, "", ""}));
    EXPECT_EQ(got.text, "one");
    EXPECT_EQ(got.rest, (words{"two", "three"}));
    EXPECT_EQ(got.missing, "");
    EXPECT_EQ(got.number, 3u);
    EXPECT_EQ(got.seconds, 1.5);
    EXPECT_EQ(got.calls, 1); // however often it is given
    EXPECT_FALSE(got.flag);
}

TEST(command_line, what_is_not_given_stays_as_it_was) {
    EXPECT_EQ(run(below("take", {"/one/"})), (ending{exit_status::partly, "", ""}));
    EXPECT_EQ(got.text, "/one/"); // a value, however it looks to Windows
    EXPECT_EQ(got.rest, words());
    EXPECT_FALSE(got.missing);
    EXPECT_FALSE(got.flag);
    EXPECT_EQ(got.calls, 0);
}

TEST(command_line, lists_take_as_many_at_once_as_they_say) {
    run(below("take", {"--single", "a", "b", "--single", "c"}));
    EXPECT_EQ(got.singles, (words{"a", "c"}));
    EXPECT_EQ(got.text, "b");
    run(below("take", {"--pair", "a", "b", "one", "--pair", "c", "d"}));
    EXPECT_EQ(got.pairs, (words{"a", "b", "c", "d"}));
    EXPECT_EQ(got.text, "one");
}

TEST(command_line, what_is_wrong_is_said_and_nothing_runs) {
    const struct {
        const char *command;
        words arguments;
        const char *said;
    } cases[] = {
        {"take", {}, "FIRST is required"},
        {"take", {"a", "--number", "2"}, "--number: 2 is no number from 3"},
        {"take", {"a", "--number", "-3"}, "--number: -3 is no number from 3"},
        {"take", {"a", "--number", "3x"}, "--number: 3x is no number from 3"},
        {"take", {"a", "--number", ""}, "--number:  is no number from 3"},
        {"take",
         {"a", "--number", "18446744073709551616"},
         "--number: 18446744073709551616 is no number from 3"},
        {"take",
         {"a", "--seconds", "0.9"},
         "--seconds: Value 0.9 not in range 1.000000 to 2.000000"},
        {"take",
         {"a", "--seconds", "nan"},
         "--seconds: Value nan not in range 1.000000 to 2.000000"},
        {"take",
         {"a", "--seconds", "-nan(1)"},
         "--seconds: Value -nan(1) not in range 1.000000 to 2.000000"},
        {"take",
         {"a", "--seconds", "inf"},
         "--seconds: Value inf not in range 1.000000 to 2.000000"},
        {"take", {"a", "--seconds", ""}, "--seconds: Value  not in range 1.000000 to 2.000000"},
        {"take", {"a", "--pair", "b"}, "--pair: 2 required TEXT missing"},
        {"take", {"a", "--call", "--flag"}, "--flag excludes --call"},
        {"take", {"a", "--nope"}, "The following argument was not expected: --nope"},
        {"demand", {}, "--word is required"},
        {"demand", {"--word", "c"}, "--word: c not in {a,b}"},
        {"demand", {"--word", "a", "--flag"}, "--flag requires --other"},
        {"demand",
         {"--word", "a", "--file", ""},
         "--file: must not be empty (is a variable unset?)"},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(run(below(each.command, each.arguments)),
                  (ending{exit_status::failed, "",
                          std::string("words: ") + each.said + "; try \"words both " +
                              each.command + " --help\"\n"}));
        EXPECT_FALSE(ran) << each.said;
    }
}

TEST(command_line, an_option_that_ends_in_an_equals_sign_takes_nothing_from_its_neighbour) {
    EXPECT_EQ(run(below("take", {"one", "--missing=", "--flag"})),
              (ending{exit_status::failed, "",
                      "words: --missing= has no value; an empty one stands by itself: --missing "
                      "\"\"\n"}));
    EXPECT_FALSE(ran);
    run(below("take", {"one", "--missing=a="}));
    EXPECT_EQ(got.missing, "a=");
    run(below("take", {"--missing", "b", "--", "--flag="}));
    EXPECT_EQ(got.text, "--flag=");
}

TEST(command_line, an_option_that_another_needs) {
    EXPECT_EQ(run(below("demand", {"--word", "b", "--flag", "--other"})),
              (ending{exit_status::no, "", ""}));
    EXPECT_TRUE(got.flag && got.other);
    EXPECT_EQ(got.needed, "b");
}

TEST(command_line, one_subcommand_must_be_asked_for) {
    EXPECT_EQ(run({"both"}).err, "words: A subcommand is required; try \"words both --help\"\n");
    EXPECT_EQ(run({"both", "neither"}).err,
              "words: there is no subcommand \"neither\"; try \"words both --help\"\n");
    EXPECT_EQ(run({"neither"}).err,
              "words: there is no subcommand \"neither\"; try \"words --help\"\n");
}

TEST(command_line, the_help_shows_the_groups) {
    EXPECT_EQ(run(below("take", {"--help"})), (ending{exit_status::done,
                                                      R"(Take what there is
Usage: words both take [OPTIONS] FIRST [REST...]

Positionals:
  FIRST TEXT REQUIRED         The first
  REST TEXT ...               The rest

Options:
  -h,--help                   Print this help and exit
  --flag Excludes: --call     A flag
  --call Excludes: --flag     A flag that calls
  --missing WORD              A text that may be missing


Lists:
  --single TEXT ...           One at a time
  --pair TEXT ...             Two at a time


Numbers:
  --number UINT               From 3
  --seconds FLOAT             1 to 2

Said last.
)",
                                                      ""}));
    EXPECT_FALSE(ran);
}

TEST(command_line, a_footer_is_inherited) {
    const std::string help = run(below("demand", {"--help"})).out;
    EXPECT_TRUE(help.ends_with("\nThe end.\n")) << help;
}

} // namespace
} // namespace quillfence::programs
