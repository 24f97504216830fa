// Many transactions at once: what comes out is what explain() says of each, in order, whatever the
// number of threads. Runs under the thread sanitizer, too.
#include "batch.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "../dns_sources/scripted_source.h"
#include "../reliability/engine_drive.h"
#include "answers_file.h"
#include "engine_door.h"
#include "explain.h"
#include "off_source.h"
#include "platform/error_numbers.h"
#include "platform/interruption.h"
#include "pool_asker.h"
#include "quillfence.h"
#include "record_reader.h"
#include "record_writer.h"
#include "snapshot.h"
#include "vc_w32.h"

namespace quillfence::testing {
namespace {

using namespace decision;

constexpr char input_path[] = "c:/input";

// A source in the place of the DNS, asked on threads.
class asked_ahead {
  public:
    explicit asked_ahead(dns_sources::source &of, unsigned threads = 64) : pool_(of, threads) {
        EXPECT_TRUE(pool_.start());
    }
    void put_into(batch_options *options) {
        options->live = &pool_;
        options->memo = &memo_;
    }

  private:
    dns_sources::off_source nobody_;
    dns_sources::memo_source memo_{nobody_};
    dns_sources::pool_asker pool_;
};

class batch_test : public ::testing::Test {
  protected:
    batch_test() {
        vc_set_log_function(nullptr);
        quillfence_init();
        write_configuration(drive);
        options.inputs = {input_path};
        options.jobs = 4;
        options.write = [this](std::string_view lines) {
            written += lines;
            return 0u;
        };
    }
    ~batch_test() override {
        quillfence_teardown();
    }

    batch_result run(const std::string &input) {
        drive.write(input_path, input);
        written.clear();
        return run_batch(options);
    }
    // The lines of a run in which nothing goes wrong as a whole.
    texts lines_of(const std::string &input) {
        const batch_result result = run(input);
        EXPECT_EQ(result.failure, "");
        EXPECT_EQ(result.write_error, 0u);
        return split(written);
    }
    static texts split(const std::string &text) {
        texts lines;
        size_t begin = 0;
        for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
            lines.push_back(text.substr(begin, end - begin));
        }
        EXPECT_EQ(begin, text.size()) << "a line without its end";
        return lines;
    }
    static decision_record record_of(const std::string &line) {
        json_problem problem;
        auto record = read_record(line, &problem);
        EXPECT_TRUE(record) << problem.text << ": " << line;
        return record.value_or(decision_record());
    }

    // What explain() says of one transaction, in the form of a line.
    std::string explained(const transaction &what, uint64_t number, dns_sources::source &answers) {
        dns_sources::engine_door door(answers);
        explain_options with{.report = options.report,
                             .near_misses = false,
                             .files = false,
                             .times = false,
                             .dns = door.slots(),
                             .configuration = options.configuration,
                             .id = std::to_string(number)};
        const explain_result result = explain(what, with);
        EXPECT_EQ(result.failed, nullptr);
        std::string line;
        write_record(line, result.record, record_form::brief);
        return line;
    }

    drive_c drive;
    batch_options options;
    std::string written;
};

std::vector<transaction> many_transactions(size_t count) {
    std::mt19937 random(11);
    static constexpr const char *domains[] = {"good.example", "foe.example", "friend.example",
                                              "tied.example"};
    std::vector<transaction> all;
    for (size_t i = 0; i < count; ++i) {
        transaction made;
        made.ip = "192.0.2." + std::to_string(random() % 256);
        made.port = "25";
        made.tls = random() % 2 == 0;
        made.authuser = "";
        made.mua = false;
        if (random() % 10 != 0) {
            made.helo = random() % 3 ? "mail.good.example" : "x";
        }
        made.sender = "a@" + std::string(domains[random() % 4]);
        made.recipient = "b@here.example";
        all.push_back(made);
    }
    return all;
}

std::string json_lines(const std::vector<transaction> &all) {
    std::string text;
    for (const transaction &one : all) {
        write_transaction(text, one);
        text += '\n';
    }
    return text;
}

// Answers to every question, made of its name alone: found, no such name, or a failure.
answer answer_by_name(const question &asked) {
    const size_t sum = std::hash<std::string>()(dns_sources::name_key(asked.name));
    if (asked.type == type_ptr) {
        return sum % 4 ? found({"PTR host" + std::to_string(sum % 9) + ".good.example."})
                       : answer_of_server(3, {});
    }
    switch (sum % 8) {
    case 0:
        return answer_of_status(timed_out);
    case 1:
        return answer_of_server(2, {});
    case 2:
    case 3:
    case 4:
        return asked.type == type_a ? found({"A 192.0.2.1"}) : answer_of_server(0, {});
    default:
        return answer_of_server(3, {});
    }
}

// --- order, and what each line says ---

TEST_F(batch_test, each_line_is_what_explain_says) {
    const std::vector<transaction> all = many_transactions(600);
    options.report = true;
    const texts lines = lines_of(json_lines(all));
    ASSERT_EQ(lines.size(), all.size());
    dns_sources::off_source off;
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(lines[i], explained(all[i], i + 1, off));
    }
}

TEST_F(batch_test, threads_change_nothing) {
    const std::string input = json_lines(many_transactions(1000));
    options.jobs = 1;
    const batch_result alone = run(input);
    const std::string want = written;
    EXPECT_EQ(alone.sums.transactions, 1000u);
    for (const unsigned jobs : {2u, 5u}) {
        options.jobs = jobs;
        const batch_result together = run(input);
        EXPECT_TRUE(written == want) << jobs;
        EXPECT_EQ(together.sums, alone.sums);
    }
}

// The text of the expression that matched is worked out, which listens to the engine; meanwhile
// other threads' lines about an address of IPv6 are nobody's but their records'.
TEST_F(batch_test, patterns_that_match_on_several_threads) {
    std::string input;
    for (int i = 0; i < 200; ++i) {
        input +=
            R"({"schema":"quillfence.decision/1","transaction":{"stage":"RCPT","ip":"192.0.2.2",)"
            R"("mua":false,"helo":"mail.good.example","sender":"a@good.example",)"
            R"("recipient":"b@here.example"},"dns":[{"n":0,"name":"2.2.0.192.in-addr.arpa.",)"
            R"("type":"PTR","status":0,"rcode":"NOERROR","class":"found","records":["PTR dyn1.pool.example."],)"
            R"("attempt":1,"used_by":[]}]})"
            "\n"
            R"({"ip":"2001:db8::2","helo":"mail.good.example","sender":"a@good.example"})"
            "\n";
    }
    options.jobs = 1;
    run(input);
    const std::string want = written;
    EXPECT_EQ(want.find("can't be shown"), std::string::npos);
    EXPECT_NE(want.find(R"("pattern":"dyn[0-9].*")"), std::string::npos) << want;
    options.jobs = 4;
    run(input);
    EXPECT_TRUE(written == want);
}

TEST_F(batch_test, a_loaded_configuration_changes_nothing_but_its_name) {
    const std::string input = json_lines(many_transactions(600));
    const texts by_files = lines_of(input);
    snapshot_report report{};
    frozen_files *const loaded = snapshot_load(nullptr, &report);
    ASSERT_TRUE(loaded);
    options.configuration = loaded;
    const texts by_snapshot = lines_of(input);
    ASSERT_EQ(by_snapshot.size(), by_files.size());
    for (size_t i = 0; i < by_files.size(); ++i) {
        decision_record record = record_of(by_snapshot[i]);
        EXPECT_EQ(record.config.revision, loaded->revision);
        record.config.revision.clear();
        EXPECT_EQ(record, record_of(by_files[i]));
    }
    snapshot_report_release(&report);
    snapshot_free(loaded);
}

TEST_F(batch_test, what_the_input_says_is_handed_through) {
    const texts lines = lines_of("{\"ip\":\"192.0.2.1\",\"id\":\"x7\",\"score\":{\"a\":[1]}}\n"
                                 "{\"ip\":\"192.0.2.1\",\"time\":\"2026-11-22T04:51:13Z\"}\n");
    ASSERT_EQ(lines.size(), 2u);
    const decision_record first = record_of(lines[0]);
    EXPECT_EQ(first.id, "x7");
    EXPECT_EQ(first.time, "");
    EXPECT_EQ(first.extra, (std::vector<extra_member>{{"score", "{\"a\":[1]}"}}));
    const decision_record second = record_of(lines[1]);
    EXPECT_EQ(second.id, "2");
    EXPECT_EQ(second.time, "2026-11-22T04:51:13Z");
}

// --- memory ---

// The writer is the slowest here: what is read waits for it.
TEST_F(batch_test, what_is_held_at_once_is_bounded) {
    const std::string input = json_lines(many_transactions(9000));
    options.jobs = 2;
    options.no_answers = true;
    unsigned writes = 0;
    options.write = [&writes](std::string_view) {
        std::this_thread::sleep_for(std::chrono::milliseconds(++writes < 30 ? 10 : 0));
        return 0u;
    };
    drive.write("c:/quillfence/control/enabled", "0\n"); // judged fast
    const batch_result result = run(input);
    EXPECT_EQ(result.sums.transactions, 9000u);
    constexpr size_t loads = 2 * 2 + 2;
    EXPECT_LE(result.most_loads, loads);
    EXPECT_LE(result.most_bytes, loads * 2 * 32 * 1024);
    EXPECT_GT(input.size(), 3 * loads * 2 * 32 * 1024);
}

// --- forms ---

constexpr char blocked[] = "{\"ip\":\"192.0.2.66\",\"port\":\"25\",\"tls\":false,\"authuser\":\"\","
                           "\"mua\":false,\"helo\":\"\",\"sender\":\"a@foe.example\","
                           "\"recipient\":\"b@here.example\"}\n";

TEST_F(batch_test, the_short_form_has_no_report_unless_it_is_asked_for) {
    EXPECT_FALSE(record_of(lines_of(blocked)[0]).report);
    options.report = true;
    EXPECT_TRUE(record_of(lines_of(blocked)[0]).report);
}

TEST_F(batch_test, the_whole_form) {
    options.form = batch_form::whole;
    const decision_record record = record_of(lines_of(blocked)[0]);
    EXPECT_TRUE(record.report);
    EXPECT_FALSE(record.config.files.empty());
    EXPECT_EQ(record.rules.size(), 31u);
}

TEST_F(batch_test, the_replayers_line) {
    options.form = batch_form::line;
    scripted_source none(answer_of_server(3, {}));
    asked_ahead memo(none);
    memo.put_into(&options);
    const texts lines = lines_of(std::string(blocked) + "{\"ip\":\"192.0.2.66\"}\n");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].starts_with("{\"spam_hits\":[\"")) << lines[0];
    EXPECT_TRUE(lines[0].ends_with("\"bms_hits\":[\"one\",\"two\"]}")) << lines[0];
    EXPECT_TRUE(lines[1].starts_with("{\"error\":\"there is no replayer's line: not known: "))
        << lines[1];
    EXPECT_TRUE(lines[1].ends_with(",\"line\":2}")) << lines[1];
}

TEST_F(batch_test, columns) {
    options.form = batch_form::tsv;
    const texts lines =
        lines_of("{\"id\":\"a\\tb\\\\\",\"ip\":\"192.0.2.245\",\"port\":\"25\",\"tls\":false,"
                 "\"authuser\":\"\",\"mua\":false,\"helo\":\"h\",\"sender\":\"x@friend.example\","
                 "\"recipient\":\"b@here.example\"}\n"
                 "{\"ip\":7}\n");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "id\ttime\tverdict\tby\trule\tfile\tplace\tentry\tip\tptr\thelo\tsender\t"
                        "recipient\tmissing\terror");
    EXPECT_EQ(lines[1], "a\\tb\\\\\t\taccept\texempt\tfrom_whitelist\tc:/quillfence/from_whitelist"
                        "\t1\t*@friend.example\t192.0.2.245\t\th\tx@friend.example\t"
                        "b@here.example\tPTR:245.2.0.192.in-addr.arpa.\t");
    EXPECT_EQ(lines[2], "\t\terror\t\t\t\t2\t\t\t\t\t\t\t\tip: is not a text");
}

// --- formats ---

TEST_F(batch_test, each_format_is_told_by_its_look) {
    const struct {
        const char *input;
        const char *ip;
        const char *sender;
    } cases[] = {
        {"{\"ip\":\"192.0.2.1\",\"sender\":\"a@b.example\"}\n", "192.0.2.1", "a@b.example"},
        {"{\n  \"ip\": \"192.0.2.1\"\n}\n", "192.0.2.1", ""},
        {"request=smtpd_access_policy\nclient_address=192.0.2.1\nsender=a@b.example\n\n",
         "192.0.2.1", "a@b.example"},
        {"R\t192.0.2.1\t25\t0\t\t0\th\ta@b.example\tc@d.example\n", "192.0.2.1", "a@b.example"},
        {"2026-11-20 08:15:42 quillfence[1]: HAM: mua=[no:(null)],ip=[192.0.2.1:a.example],"
         "port=<1>,tls=<no>,helo=<a.example>,from=<a@b.example>,rcpt=<c@d.example>\n",
         "192.0.2.1", "a@b.example"},
        {"Nov 22 04:51:13 mx postfix/smtpd[7]: 4F8: client=a[192.0.2.1]\n", "192.0.2.1", ""},
        {"2026-11-22 04:51:13 1abcDE-000123-4F <= a@b.example H=x [192.0.2.1] P=smtp S=1\n",
         "192.0.2.1", "a@b.example"},
    };
    for (const auto &c : cases) {
        const texts lines = lines_of(c.input);
        ASSERT_EQ(lines.size(), 1u) << c.input;
        const decision_record record = record_of(lines[0]);
        EXPECT_EQ(record.transaction.ip.value_or(""), c.ip) << c.input;
        EXPECT_EQ(record.transaction.sender.value_or(""), c.sender) << c.input;
    }
}

TEST_F(batch_test, a_format_that_is_not_known) {
    EXPECT_EQ(run("hello\n").failure,
              "c:/input: it looks like no format that is known; name one with --from");
    EXPECT_EQ(written, "");
    EXPECT_EQ(run("").failure, "");
    EXPECT_EQ(run("\n \n").failure, "");
    // The first line that looks like one of them tells.
    EXPECT_EQ(lines_of("cut off\n{\"ip\":\"192.0.2.1\"}\n").size(), 2u);
    options.format = input_format::tsv;
    EXPECT_EQ(lines_of("hello\n"),
              texts{"{\"error\":\"stage: is none of C, A, M and R\",\"line\":1}"});
}

// --- bad input ---

TEST_F(batch_test, a_bad_line_is_told_and_the_rest_goes_on) {
    const batch_result result = run("{\"ip\":\"192.0.2.1\"}\n\n{\"ip\":7}\n{\"cut\n"
                                    "{\"ip\":\"192.0.2.1\"}\n");
    const texts lines = split(written);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1], "{\"error\":\"ip: is not a text\",\"line\":3}");
    EXPECT_TRUE(lines[2].starts_with("{\"error\":\"")) << lines[2];
    EXPECT_TRUE(lines[2].ends_with(",\"line\":4}")) << lines[2];
    EXPECT_EQ(record_of(lines[3]).id, "4");
    EXPECT_EQ(result.sums.transactions, 2u);
    EXPECT_EQ(result.sums.refused, 2u);
}

TEST_F(batch_test, the_file_is_named_where_there_are_several) {
    options.inputs.push_back("c:/other");
    drive.write("c:/other", "\n{\"ip\":8}\n");
    EXPECT_EQ(lines_of("{\"ip\":7}\n"),
              (texts{"{\"error\":\"ip: is not a text\",\"file\":\"c:/input\",\"line\":1}",
                     "{\"error\":\"ip: is not a text\",\"file\":\"c:/other\",\"line\":2}"}));
}

TEST_F(batch_test, a_line_of_ten_megabytes) {
    options.format = input_format::tsv;
    const std::string good = "R\t192.0.2.1\t25\t0\t\t0\th\ta@b\tc@d\n";
    const batch_result result = run(good + std::string(10 << 20, 'x') + "\n" + good);
    const texts lines = split(written);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "{\"error\":\"it is too long\",\"line\":2}");
    EXPECT_LT(result.most_bytes, size_t{1} << 20);
}

TEST_F(batch_test, a_file_that_is_not_there_ends_the_run) {
    options.inputs.push_back("c:/none");
    const batch_result result = run("{\"ip\":\"192.0.2.1\"}\n");
    EXPECT_EQ(result.failure, "c:/none: No such file or directory");
    EXPECT_EQ(split(written).size(), 1u);
}

// --- the end before the end ---

TEST_F(batch_test, an_output_that_can_not_be_written_ends_the_run) {
    unsigned writes = 0;
    options.write = [&writes](std::string_view) {
        return ++writes == 3 ? static_cast<uint32_t>(platform::error_disk_full) : 0u;
    };
    const batch_result result = run(json_lines(many_transactions(2000)));
    EXPECT_EQ(result.write_error, platform::error_disk_full);
    EXPECT_EQ(writes, 3u);
}

TEST_F(batch_test, an_interruption_leaves_whole_lines_in_order) {
    const std::string input = json_lines(many_transactions(3000));
    lines_of(input);
    const std::string all = written;
    ASSERT_EQ(platform::interruption_listen(), 0u);
    options.write = [this](std::string_view lines) {
        written += lines;
        platform::interruption_note();
        return 0u;
    };
    const batch_result result = run(input);
    platform::interruption_ignore();
    EXPECT_TRUE(result.interrupted);
    EXPECT_TRUE(all.starts_with(written));
    EXPECT_LT(written.size(), all.size());
    EXPECT_EQ(result.sums.transactions, split(written).size());
    EXPECT_GT(result.sums.transactions, 0u);
}

// --- DNS ---

TEST_F(batch_test, a_record_brings_its_own_answers) {
    scripted_source by_name(answer_by_name);
    dns_sources::memo_source memo(by_name);
    const std::vector<transaction> all = many_transactions(50);
    std::string records;
    for (size_t i = 0; i < all.size(); ++i) {
        records += explained(all[i], i + 1, memo) + '\n';
    }
    const texts again = lines_of(records);
    ASSERT_EQ(again.size(), all.size());
    const texts before = split(records);
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(again[i], before[i]);
    }
    // The same from a file, and none of them at all.
    drive.write("c:/answers", records);
    answers_file answers;
    ASSERT_EQ(answers.load("c:/answers"), std::nullopt);
    options.recorded = &answers.recorded();
    EXPECT_EQ(lines_of(json_lines(all)), before);
    options.recorded = nullptr;
    options.no_answers = true;
    for (const std::string &line : lines_of(records)) {
        for (const dns_record &one : record_of(line).dns) {
            EXPECT_EQ(one.is, answer_class::missing);
        }
    }
}

TEST_F(batch_test, answers_of_a_case) {
    drive.write("c:/answers",
                "{\"schema\":\"quillfence.case/1\",\"transaction\":{\"ip\":\"192.0.2.2\"},"
                "\"zonedata\":{\"2.2.0.192.in-addr.arpa\":[{\"PTR\":\"dyn1.pool.example\"}]}}\n");
    answers_file answers;
    ASSERT_EQ(answers.load("c:/answers"), std::nullopt);
    options.recorded = &answers.recorded();
    options.otherwise = answers.zone();
    EXPECT_EQ(record_of(lines_of("{\"ip\":\"192.0.2.2\"}\n")[0]).facts.ptr,
              texts{"dyn1.pool.example"});
}

TEST_F(batch_test, what_is_wrong_with_a_file_of_answers) {
    const struct {
        const char *text;
        const char *want;
    } cases[] = {
        {"\n{\"schema\":\"quillfence.decision/9\"}\n",
         "c:/answers:2: schema: is a version that this program does not know; it reads "
         "\"quillfence.decision/1\""},
        {"{\"n\":0}\n", "c:/answers:1: the document has no member \"name\""},
    };
    for (const auto &c : cases) {
        drive.write("c:/answers", c.text);
        EXPECT_EQ(answers_file().load("c:/answers"), c.want);
    }
    EXPECT_EQ(answers_file().load("c:/none"), "c:/none: No such file or directory");
}

// Asked ahead, with thousands waiting, or asked one after the other: the same record.
TEST_F(batch_test, answers_that_are_asked_ahead_change_nothing) {
    const std::vector<transaction> all = many_transactions(700);
    scripted_source slow([](const question &asked) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        return answer_by_name(asked);
    });
    asked_ahead ahead(slow, 16);
    ahead.put_into(&options);
    options.questions = 16;
    const texts lines = lines_of(json_lines(all));
    ASSERT_EQ(lines.size(), all.size());
    scripted_source by_name(answer_by_name);
    dns_sources::memo_source memo(by_name);
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(lines[i], explained(all[i], i + 1, memo));
    }
}

// --- two configurations ---

// Judged with both, on the same answers: what batch says of each.
TEST_F(batch_test, two_configurations_share_their_answers) {
    const std::string input = json_lines(many_transactions(300));
    const std::string blacklist = "c:/quillfence/from_blacklist";
    const texts before = lines_of(input);
    drive.write("c:/other", "*@foe.example\n*@good.example\n");
    const file_substitute changed[] = {{blacklist.c_str(), "c:/other"}, {nullptr, nullptr}};
    for (const bool live : {false, true}) {
        scripted_source source(answer_by_name);
        asked_ahead ahead(source);
        options.live = nullptr;
        if (live) {
            ahead.put_into(&options);
        }
        options.substitutes = nullptr;
        const texts was = lines_of(input);
        options.substitutes = changed;
        const texts is = lines_of(input);
        options.substitutes = nullptr;

        scripted_source both(answer_by_name);
        asked_ahead ahead_of_both(both);
        options.live = nullptr;
        if (live) {
            ahead_of_both.put_into(&options);
        }
        batch_comparison with;
        with.substitutes = changed;
        size_t at = 0;
        size_t changes = 0;
        with.note = [&](const decision_change &one) {
            ASSERT_LT(at, was.size());
            const decision_record first = record_of(was[at]);
            const decision_record second = record_of(is[at]);
            EXPECT_EQ(one.is_before, first.decision.is);
            EXPECT_EQ(one.is_after, second.decision.is);
            EXPECT_EQ(one.is_change, first.decision.is != second.decision.is ||
                                         first.decision.by != second.decision.by ||
                                         first.decision.rule != second.decision.rule);
            changes += one.is_change;
            ++at;
        };
        options.compared = &with;
        const texts lines = lines_of(input);
        options.compared = nullptr;
        EXPECT_EQ(at, was.size());
        EXPECT_EQ(lines.size(), changes);
        EXPECT_GT(changes, 0u);
    }
    EXPECT_EQ(before.size(), 300u);
}

// What no configuration holds is read where each side has it.
TEST_F(batch_test, each_side_has_its_own_drive) {
    drive.write("c:/one/quillfence/control/enabled", "1\n");
    drive.write("c:/one/quillfence/control/rules.enabled", "require_helo\n");
    drive.write("c:/two/quillfence/control/enabled", "1\n");
    drive.write("c:/two/quillfence/control/rules.enabled", "require_helo\n");
    drive.write("c:/two/quillfence/from_whitelist", "a@foe.example\n");
    batch_comparison with;
    with.drive_c_before = drive.native("c:/one");
    with.drive_c_after = drive.native("c:/two");
    std::vector<bool> changed;
    with.note = [&](const decision_change &one) { changed.push_back(one.is_change); };
    options.compared = &with;
    options.no_answers = true;
    run(R"({"ip":"192.0.2.1","authuser":"","mua":false,"helo":"","sender":"a@foe.example","recipient":""})"
        "\n"
        R"({"ip":"192.0.2.1","authuser":"","mua":false,"helo":"","sender":"b@foe.example","recipient":""})"
        "\n");
    EXPECT_EQ(changed, (std::vector<bool>{true, false}));
}

TEST_F(batch_test, a_transaction_that_runs_out_of_time_is_undecided) {
    scripted_source slow([](const question &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        return answer_of_status(timed_out);
    });
    asked_ahead ahead(slow);
    ahead.put_into(&options);
    options.deadline = std::chrono::milliseconds(20);
    const batch_result result = run("{\"ip\":\"192.0.2.1\"}\n");
    EXPECT_EQ(record_of(split(written)[0]).decision.is, verdict::undecided);
    EXPECT_EQ(result.sums.missing.at("PTR answers"), 1u);
}

TEST_F(batch_test, an_interruption_while_answers_are_awaited) {
    ASSERT_EQ(platform::interruption_listen(), 0u);
    scripted_source slow([](const question &asked) {
        if (asked.name.starts_with("77.")) {
            platform::interruption_note();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return answer_by_name(asked);
    });
    asked_ahead ahead(slow);
    ahead.put_into(&options);
    options.questions = 4;
    const batch_result result = run(json_lines(many_transactions(5000)));
    platform::interruption_ignore();
    EXPECT_TRUE(result.interrupted);
    EXPECT_EQ(result.sums.transactions, split(written).size());
    EXPECT_LT(result.sums.transactions, 5000u);
}

} // namespace
} // namespace quillfence::testing
