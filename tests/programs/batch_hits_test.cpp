// What each entry of the configuration was worth: counts that follow from the mail, and the same
// counted slowly, by taking each entry out of its file and judging everything anew.
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "../dns_sources/scripted_source.h"
#include "../reliability/engine_drive.h"
#include "batch.h"
#include "diff_entries.h"
#include "engine_door.h"
#include "explain.h"
#include "hit_tally.h"
#include "hits_output.h"
#include "off_source.h"
#include "owned_snapshot.h"
#include "record_writer.h"
#include "started_engine.h"
#include "vc_w32.h"

namespace quillfence::programs {
namespace {

using namespace decision;
using testing::answer;
using testing::owned_snapshot;
using testing::question;

constexpr char base[] = "c:/quillfence/";

// The entries of each file, by its name in the base folder.
using world = std::map<std::string, std::vector<std::string>>;

std::vector<std::string> without(std::vector<std::string> entries, size_t index) {
    entries.erase(entries.begin() + static_cast<ptrdiff_t>(index));
    return entries;
}

std::string lines_of(const std::vector<std::string> &entries) {
    std::string text;
    for (const std::string &entry : entries) {
        text += entry + '\n';
    }
    return text;
}

void store_patterns(const std::string &path, const std::vector<std::string> &texts) {
    const platform::stream_ptr stream(platform::stream_open(path.c_str(), "w+b"));
    trs_set_header(stream.get());
    for (const std::string &text : texts) {
        TRex *const expression = trex_compile_ex(text.c_str(), trex_fold_case);
        trs_store(stream.get(), expression);
        trex_free(expression);
    }
}

transaction mail(const char *ip, const char *sender, const char *helo = "mail.good.example") {
    transaction made;
    made.ip = ip;
    made.port = "25";
    made.tls = false;
    made.authuser = "";
    made.mua = false;
    made.helo = helo;
    made.sender = sender;
    made.recipient = "bob@here.example";
    return made;
}

// What one line is counted for, and what the comparison with a copy that lacks it shows.
struct line_without {
    std::string file; // in the base folder
    uint32_t line;
    hit_counts counted;
    verdict was;
    verdict is;
};

class batch_hits : public testing::drive_test {
  protected:
    batch_hits() {
        vc_set_log_function(nullptr); // the lines stand in the records
        drive.write("c:/quillfence/control/enabled", "1\n");
        drive.make_folder("c:/quillfence/dynaregex");
    }

    void write(const world &all) const {
        for (const auto &[name, entries] : all) {
            const std::string path = base + name;
            if (name.ends_with(".cregexes")) {
                store_patterns(path, entries);
            } else if (name.ends_with(".range")) {
                drive.remove(path);
                for (const std::string &entry : entries) {
                    const size_t at = entry.find('-');
                    ipr_add(base, name.c_str(), entry.substr(0, at).c_str(),
                            entry.substr(at + 1).c_str(), "", nullptr);
                }
            } else {
                drive.write(path, lines_of(entries));
            }
        }
    }

    // By file and place, those that matched.
    using counts = std::map<std::pair<std::string, uint32_t>, hit_counts>;

    counts count(const std::vector<transaction> &all, const frozen_files *configuration) {
        std::string input;
        for (const transaction &one : all) {
            write_transaction(input, one);
            input += '\n';
        }
        drive.write("c:/input", input);
        const std::vector<config_entry> names = control_entries(nullptr);
        const control_lines control(names);
        hit_tally tally;
        decision::batch_hits hits{&control, [&](const auto &of) { tally.add(of); }};
        batch_options options;
        options.inputs = {"c:/input"};
        options.jobs = 2;
        options.recorded = &nothing_;
        options.otherwise = &dns_;
        options.configuration = configuration;
        options.hits = &hits;
        options.write = [](std::string_view lines) {
            EXPECT_EQ(lines, "");
            return 0u;
        };
        EXPECT_EQ(run_batch(options).sums.transactions, all.size());
        counts made;
        for (const hit_row &row : tally.rows({})) {
            made[{row.entry.file, row.entry.place}] = row.counts;
        }
        return made;
    }

    decision_record judge(const transaction &what) {
        dns_sources::engine_door door(dns_);
        explain_options with{.report = false, .all = true, .near_misses = false};
        with.dns = door.slots();
        explain_result result = explain(what, with);
        EXPECT_EQ(result.failed, nullptr);
        return std::move(result.record);
    }

    std::vector<decision_record> judge(const std::vector<transaction> &all) {
        std::vector<decision_record> made;
        for (const transaction &one : all) {
            made.push_back(judge(one));
        }
        return made;
    }

    void expect_besides(const world &all, const transaction &what, const line_without &of) {
        write(all);
        EXPECT_EQ((count({what}, nullptr)[{base + of.file, of.line}]), of.counted) << of.file;
        const decision_record now = judge(what);
        write({{of.file, without(all.at(of.file), of.line - 1)}});
        const decision_record then = judge(what);
        EXPECT_TRUE(compare_decisions(now, then).is_change) << of.file;
        EXPECT_EQ(now.decision.is, of.was) << of.file;
        EXPECT_EQ(then.decision.is, of.is) << of.file;
    }

    // Names and listings that follow from the address; the last one is not known to anybody.
    static answer say(const question &asked) {
        const int host = std::atoi(asked.name.c_str());
        if (asked.type == testing::type_ptr) {
            return host % 3 == 0 ? testing::answer_of_server(3, {})
                   : host % 3 == 1
                       ? testing::found({"PTR dyn" + std::to_string(host) + ".pool.example."})
                       : testing::found({"PTR dyn" + std::to_string(host) + ".pool.example.",
                                         "PTR host7.pool.example."});
        }
        if (asked.name.find(".zone") != std::string::npos && host == 5) {
            return dns_sources::off_source().ask(asked);
        }
        const bool listed = asked.name.find(".zone1.") != std::string::npos
                                ? host == 2
                                : asked.name.find(".zone2.") != std::string::npos && host < 4;
        return listed && asked.type == testing::type_a ? testing::found({"A 127.0.0.2"})
                                                       : testing::answer_of_server(3, {});
    }

    const started_engine engine_;
    const dns_sources::recorded_source nothing_;
    testing::scripted_source dns_{say};
};

// --- by hand ------------------------------------------------------------------------------------

TEST_F(batch_hits, counts_that_follow_from_the_mail) {
    write({{"control/rules.enabled", {"valid_ptr\r", "require_helo"}},
           {"from_blacklist", {"*@foe.example", "# mine", "a@foe.example", "*@nobody.example"}},
           {"blocked_ips", {"192.0.2.66"}},
           {"from_whitelist", {"*@friend.example"}}});
    const counts got = count(
        {
            mail("192.0.2.3", "a@foe.example"),     // without line 1, line 3
            mail("192.0.2.3", "b@foe.example"),     // nothing but line 1
            mail("192.0.2.66", "b@foe.example"),    // both lists; the addresses come first
            mail("192.0.2.66", "c@good.example"),   // nothing but the address
            mail("192.0.2.66", "x@friend.example"), // saved from the list of addresses
            mail("192.0.2.3", "x@friend.example"),  // needs no saving
            mail("192.0.2.3", "c@good.example", ""),
            mail("192.0.2.3", "c@good.example"),
        },
        nullptr);
    const counts want = {
        {{"c:/quillfence/control/rules.enabled", 2}, {1, 1, 1, 0}},
        {{"c:/quillfence/from_blacklist", 1}, {3, 2, 1, 0}},
        {{"c:/quillfence/blocked_ips", 1}, {3, 2, 1, 0}},
        {{"c:/quillfence/from_whitelist", 1}, {2, 2, 1, 0}},
    };
    EXPECT_EQ(got, want);
}

TEST_F(batch_hits, every_name_of_a_client_has_to_match) {
    write({{"control/rules.enabled", {"check_dynamic_reverse_dns"}},
           {"dynaregex/dyna.cregexes", {"^mail", "^dyn", "^host"}},
           {"dynaregex/exempt.cregexes", {"^dyn4", "^x"}}});
    const counts got = count(
        {
            mail("192.0.2.1", "c@good.example"), // dyn1
            mail("192.0.2.2", "c@good.example"), // dyn2 and host7
            mail("192.0.2.4", "c@good.example"), // dyn4, which is exempt
            mail("192.0.2.3", "c@good.example"), // no name
        },
        nullptr);
    const counts want = {
        {{"c:/quillfence/control/rules.enabled", 1}, {2, 2, 2, 0}},
        {{"c:/quillfence/dynaregex/dyna.cregexes", 2}, {3, 2, 2, 0}},
        {{"c:/quillfence/dynaregex/dyna.cregexes", 3}, {1, 0, 1, 0}},
        {{"c:/quillfence/dynaregex/exempt.cregexes", 1}, {1, 0, 1, 0}},
    };
    EXPECT_EQ(got, want);
}

TEST_F(batch_hits, what_would_not_be_known_without_an_entry) {
    write({{"control/rules.enabled", {"require_helo"}},
           {"from_blacklist", {"*@foe.example"}},
           {"rbl.enabled", {"zone1.example"}}});
    const counts got = count({mail("192.0.2.5", "a@foe.example"), // the zone is silent about 5
                              mail("192.0.2.2", "a@foe.example"), // and lists 2
                              mail("192.0.2.2", "a@good.example")},
                             nullptr);
    const counts want = {
        {{"c:/quillfence/from_blacklist", 1}, {2, 2, 0, 1}},
        {{"c:/quillfence/rbl.enabled", 1}, {2, 1, 1, 0}},
    };
    EXPECT_EQ(got, want);
}

// --- what a comparison shows besides ------------------------------------------------------------

constexpr hit_counts none;

TEST_F(batch_hits, a_line_that_keeps_the_verdict_open_is_counted_nowhere) {
    const line_without zone = {"rbl.enabled", 1, none, verdict::undecided, verdict::accept};
    expect_besides(
        {{"control/rules.enabled", {"require_helo"}}, {"rbl.enabled", {"zone1.example"}}},
        mail("192.0.2.5", "c@good.example"), zone);
    transaction unknown = mail("192.0.2.3", "c@good.example");
    unknown.helo.reset();
    expect_besides(
        {{"control/rules.enabled", {"valid_ptr\r", "require_helo"}}, {"rbl.enabled", {}}}, unknown,
        {"control/rules.enabled", 2, none, verdict::undecided, verdict::accept});
}

TEST_F(batch_hits, of_a_domain_declared_twice_the_line_that_lets_pass_is_counted_nowhere) {
    const world twice = {{"control/rules.enabled", {"known_sender_forgery"}},
                         {"control/valid_domain_ips", {"d.test : 192.0.2.7", "d.test : 10.1.2.3"}}};
    const char *const file = "control/valid_domain_ips";
    expect_besides(twice, mail("192.0.2.7", "a@d.test"),
                   {file, 1, none, verdict::accept, verdict::reject});
    // The line that refuses is counted as ever.
    expect_besides(twice, mail("10.1.2.3", "a@d.test"),
                   {file, 1, {1, 1, 1, 0}, verdict::reject, verdict::accept});
}

TEST_F(batch_hits, the_same_verdict_by_another_rule_is_counted_nowhere) {
    expect_besides({{"control/rules.enabled", {"require_helo"}},
                    {"blocked_ips", {"192.0.2.3"}},
                    {"from_blacklist", {"*@foe.example"}}},
                   mail("192.0.2.3", "a@foe.example"),
                   {"blocked_ips", 1, {1, 1, 0, 0}, verdict::reject, verdict::reject});
}

// --- by taking each entry out -------------------------------------------------------------------

template <class Container>
auto one_of(std::mt19937 &random, const Container &from) {
    return *(std::begin(from) + static_cast<ptrdiff_t>(random() % std::size(from)));
}

// Ranges with the same ends are one record, and of a domain the first declaration counts.
bool stands_already(const std::string &file, const std::vector<std::string> &entries,
                    const std::string &entry) {
    const bool declares = file == "control/valid_domain_ips";
    const std::string key = declares ? entry.substr(0, entry.find(':')) : entry;
    return (declares || file.ends_with(".range")) &&
           std::any_of(entries.begin(), entries.end(),
                       [&](const std::string &other) { return other.starts_with(key); });
}

world random_world(std::mt19937 &random) {
    const std::map<std::string, std::vector<std::string>> pools = {
        {"from_whitelist", {"*@one.example", "a@two.example", "b@*", "*@three.example"}},
        {"from_blacklist", {"*@two.example", "a@*", "*@pool.example", "b@pool.example", "# a"}},
        {"exempt_users", {"postmaster@here.example", "ann@*"}},
        {"exempt_ips", {"192.0.2.4", "192.0.2.1"}},
        {"blocked_ips", {"192.0.2.3", "192.0.2.4", "192.0.2.7"}},
        {"blocked_ips.range", {"192.0.2.1-192.0.2.3", "192.0.2.3-192.0.2.3", "10.0.0.0-10.0.0.9"}},
        {"dynaregex/dyna.cregexes", {"^dyn[0-9]", "pool", "host7", "^mail"}},
        {"dynaregex/exempt.cregexes", {"dyn1", "host", "^mail"}},
        {"control/valid_domain_ips",
         {"two.example : 192.0.2.0/30", "pool.example : 10.0.0.0/8", "two.example : 10.0.0.0/8"}},
        {"control/bms.enabled", {"odd", "low", "missing"}},
        {"rbl.enabled", {"zone1.example", "zone2.example"}},
        {"control/rules.enabled",
         {"require_helo", "check_dynamic_reverse_dns", "known_sender_forgery", "valid_ptr\r",
          "require_helo", "from_blacklist"}},
    };
    world made;
    for (const auto &[name, pool] : pools) {
        std::vector<std::string> &entries = made[name];
        for (size_t count = random() % 5; count > 0; --count) {
            const std::string entry = one_of(random, pool);
            if (!stands_already(name, entries, entry)) {
                entries.push_back(entry);
            }
        }
    }
    return made;
}

std::vector<transaction> random_mail(std::mt19937 &random, size_t count) {
    static constexpr const char *senders[] = {"a@one.example",  "a@two.example",  "b@two.example",
                                              "b@pool.example", "c@good.example", ""};
    static constexpr const char *recipients[] = {"bob@here.example", "bob@here.example",
                                                 "postmaster@here.example", "ann@here.example"};
    std::vector<transaction> all;
    for (size_t i = 0; i < count; ++i) {
        transaction made = mail(("192.0.2." + std::to_string(1 + random() % 7)).c_str(),
                                one_of(random, senders), random() % 5 ? "h.example" : "");
        made.recipient = one_of(random, recipients);
        all.push_back(made);
    }
    return all;
}

// A map that lists these of 192.0.2.0/24.
std::string map_with(std::initializer_list<size_t> hosts) {
    std::string map(1024 + 1024 + 8192, '\0');
    map[192 * 4 + 1] = '\x04'; // 0x400
    map[1024 + 1] = '\x08';    // 0x800
    for (const size_t host : hosts) {
        const size_t bit = 2 * 256 + host;
        map[2048 + bit / 8] = static_cast<char>(map[2048 + bit / 8] | 0x80 >> bit % 8);
    }
    return map;
}

hit_counts changes_between(const std::vector<decision_record> &now,
                           const std::vector<decision_record> &then) {
    hit_counts made;
    for (size_t i = 0; i < now.size(); ++i) {
        const verdict was = now[i].decision.is;
        const verdict is = then[i].decision.is;
        const bool is_counted = was != is && was != verdict::undecided;
        EXPECT_TRUE(!is_counted || compare_decisions(now[i], then[i]).is_change);
        made.only += is_counted && is != verdict::undecided;
        made.open += is_counted && is == verdict::undecided;
    }
    return made;
}

TEST_F(batch_hits, an_entry_taken_out_changes_what_was_counted_for_it) {
    drive.write("c:/quillfence/bms/odd", map_with({1, 3}));
    drive.write("c:/quillfence/bms/low", map_with({1, 2}));
    std::mt19937 random(7);
    uint64_t only = 0;
    uint64_t open = 0;
    for (int round = 0; round < 5; ++round) {
        const world all = random_world(random);
        const std::vector<transaction> mails = random_mail(random, 24);
        write(all);
        const std::vector<decision_record> now = judge(mails);
        snapshot_report report = {};
        const owned_snapshot frozen(snapshot_load(nullptr, &report));
        snapshot_report_release(&report);
        counts got = count(mails, frozen.get());
        EXPECT_EQ(count(mails, nullptr), got) << "read beforehand or not";
        for (const auto &[name, entries] : all) {
            for (size_t i = 0; i < entries.size(); ++i) {
                write({{name, without(entries, i)}});
                const hit_counts want = changes_between(now, judge(mails));
                const hit_counts &counted = got[{base + name, static_cast<uint32_t>(i + 1)}];
                EXPECT_EQ(counted.only, want.only) << name << ": " << entries[i] << ", " << round;
                EXPECT_EQ(counted.open, want.open) << name << ": " << entries[i] << ", " << round;
                EXPECT_LE(counted.only + counted.open, counted.matched);
                EXPECT_LE(counted.decided, counted.matched);
                only += want.only;
                open += want.open;
            }
            write({{name, entries}});
        }
    }
    EXPECT_GT(only, 30u) << "or nothing was tried";
    EXPECT_GT(open, 0u);
}

// --- the output ---------------------------------------------------------------------------------

const std::vector<hit_row> rows = {
    {{"c:/quillfence/from_blacklist", 1, "*@foe.example"}, {1234, 1200, 7, 1}},
    {{"c:/quillfence/from_blacklist", 2, "a\tb"}, {}},
    {{"c:/quillfence/from_blacklist", 9, "a@foe.example"}, {2000, 0, 0, 0}},
    {{"c:/quillfence/rbl.enabled", 1, std::string(50, 'z')}, {1, 1, 0, 0}},
    {{"c:/quillfence/exempt_ips", 1, "192.0.2.1"}, {}},
};

TEST(hits_output, columns) {
    EXPECT_EQ(hits_text(rows, hits_form::tsv),
              "file\tplace\tentry\tmatched\tdecided\tonly\topen\n"
              "c:/quillfence/from_blacklist\t1\t*@foe.example\t1234\t1200\t7\t1\n"
              "c:/quillfence/from_blacklist\t2\ta\\tb\t0\t0\t0\t0\n"
              "c:/quillfence/from_blacklist\t9\ta@foe.example\t2000\t0\t0\t0\n"
              "c:/quillfence/rbl.enabled\t1\t" +
                  std::string(50, 'z') +
                  "\t1\t1\t0\t0\n"
                  "c:/quillfence/exempt_ips\t1\t192.0.2.1\t0\t0\t0\t0\n");
}

TEST(hits_output, objects) {
    EXPECT_EQ(hits_text({rows[0], rows[1]}, hits_form::json),
              R"({"file":"c:/quillfence/from_blacklist","place":1,"entry":"*@foe.example",)"
              R"("matched":1234,"decided":1200,"only":7,"open":1})"
              "\n"
              R"({"file":"c:/quillfence/from_blacklist","place":2,"entry":"a\tb",)"
              R"("matched":0,"decided":0,"only":0,"open":0})"
              "\n");
}

TEST(hits_output, a_table_for_people) {
    EXPECT_EQ(hits_text(rows, hits_form::table),
              "c:/quillfence/from_blacklist: 3 entries, 1 unused\n"
              "  matched  decided     only    open  place  entry\n"
              "     2000        0        0       0      9  a@foe.example\n"
              "     1234     1200        7       1      1  *@foe.example\n"
              "\n"
              "c:/quillfence/rbl.enabled: 1 entry, 0 unused\n"
              "  matched  decided     only    open  place  entry\n"
              "        1        1        0       0      1  " +
                  std::string(33, 'z') +
                  "...\n"
                  "\n"
                  "c:/quillfence/exempt_ips: 1 entry, 1 unused\n");
    EXPECT_EQ(hits_text({}, hits_form::table), "The configuration has no entries.\n");
}

TEST(hits_output, a_table_shows_the_most_useful_ones) {
    std::vector<hit_row> many;
    for (uint32_t i = 1; i <= 25; ++i) {
        many.push_back({{"c:/quillfence/blocked_ips", i, "x"}, {i, 0, 0, 0}});
    }
    const std::string text = hits_text(many, hits_form::table);
    EXPECT_NE(text.find("       25        0        0       0     25  x\n"), std::string::npos);
    EXPECT_NE(text.find("      6        0        0       0      6  x\n"), std::string::npos);
    EXPECT_TRUE(text.ends_with("  and 5 more that matched\n")) << text;
}

TEST(hit_tally, what_is_not_in_the_configuration_comes_last) {
    hit_tally tally;
    tally.add({{.entry = {"b", 2, "x"}, .decided = true, .may_matter = true, .is_only = true}});
    tally.add({{.entry = {"a", 7, "y"}}, {.entry = {"b", 2, "x"}, .is_open = true}});
    const std::vector<hit_row> want = {
        {{"b", 1, "w"}, {}}, {{"b", 2, "x"}, {2, 1, 1, 1}}, {{"a", 7, "y"}, {1, 0, 0, 0}}};
    EXPECT_EQ(tally.rows({{"b", 1, "w"}, {"b", 2, "x"}}), want);
}

} // namespace
} // namespace quillfence::programs
