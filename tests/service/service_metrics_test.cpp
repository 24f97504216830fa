#include "service_metrics.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

namespace quillfence::testing {
namespace {

using namespace decision;
using service::connection_event;
using service::doubt;
using service::policy_answer;
using service::service_metrics;
using std::chrono::microseconds;

// Every sample of a text by its name and labels, as they stand there.
std::map<std::string, double> samples_of(const service_metrics &metrics) {
    std::map<std::string, double> samples;
    std::istringstream lines(metrics.text());
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with('#')) {
            const size_t blank = line.rfind(' ');
            EXPECT_TRUE(
                samples.emplace(line.substr(0, blank), std::stod(line.substr(blank))).second)
                << "twice: " << line;
        }
    }
    return samples;
}

// 0 for a sample that is not there.
double sample(const service_metrics &metrics, const std::string &name) {
    const auto samples = samples_of(metrics);
    const auto at = samples.find("quillfence_" + name);
    return at == samples.end() ? 0 : at->second;
}

bool has_sample(const service_metrics &metrics, const std::string &name) {
    return samples_of(metrics).contains("quillfence_" + name);
}

decision_record record_of(verdict is, decided_by by, const std::string &rule = "") {
    decision_record record;
    record.decision.is = is;
    record.decision.by = by;
    record.decision.rule = rule;
    return record;
}

dns_block_list_record list_of(const std::string &zone, std::optional<block_list_answer> answer) {
    dns_block_list_record list;
    list.zone = zone;
    list.answer = answer;
    return list;
}

rule_record rule_of(uint32_t n, const char *name, outcome is) {
    rule_record rule;
    rule.n = n;
    rule.rule = name;
    rule.decision = is;
    return rule;
}

dns_record dns_of(const char *type, answer_class is) {
    dns_record dns;
    dns.type = type;
    dns.is = is;
    return dns;
}

TEST(service_metrics, decisions_by_verdict_maker_and_rule) {
    service_metrics metrics;
    metrics.decided(record_of(verdict::reject, decided_by::rule, "from_blacklist"), {});
    metrics.decided(record_of(verdict::reject, decided_by::rule, "from_blacklist"), {});
    metrics.decided(record_of(verdict::reject, decided_by::rbl, "block_rbl_lists"), {});
    metrics.decided(record_of(verdict::accept, decided_by::nothing), {});
    metrics.decided(record_of(verdict::undecided, decided_by::missing), {});
    const std::string name = "decisions_total";
    EXPECT_EQ(sample(metrics, name + R"({verdict="reject",by="rule",rule="from_blacklist"})"), 2);
    EXPECT_EQ(sample(metrics, name + R"({verdict="reject",by="rbl",rule="block_rbl_lists"})"), 1);
    EXPECT_EQ(sample(metrics, name + R"({verdict="accept",by="nothing",rule=""})"), 1);
    EXPECT_EQ(sample(metrics, name + R"({verdict="undecided",by="missing",rule=""})"), 1);
}

// What did not happen is left out here: most of these can't.
TEST(service_metrics, decisions_that_were_not_made_are_not_written) {
    const service_metrics metrics;
    for (const auto &[name, value] : samples_of(metrics)) {
        EXPECT_FALSE(name.starts_with("quillfence_decisions_total")) << name;
    }
}

TEST(service_metrics, outcomes_by_rule) {
    service_metrics metrics;
    decision_record record = record_of(verdict::accept, decided_by::nothing);
    record.rules = {rule_of(1, "to_whitelist", outcome::no_hit),
                    rule_of(9, "from_blacklist", outcome::undecided),
                    rule_of(40, "block_lists", outcome::not_enabled)};
    metrics.decided(record, {});
    metrics.decided(record, {});
    const std::string name = "rule_outcomes_total";
    EXPECT_EQ(sample(metrics, name + R"({rule="to_whitelist",outcome="no_hit"})"), 2);
    EXPECT_EQ(sample(metrics, name + R"({rule="from_blacklist",outcome="undecided"})"), 2);
    EXPECT_EQ(sample(metrics, name + R"({rule="block_lists",outcome="not_enabled"})"), 2);
}

TEST(service_metrics, dns_answers_by_type_and_class) {
    service_metrics metrics;
    decision_record record = record_of(verdict::accept, decided_by::nothing);
    record.dns = {dns_of("PTR", answer_class::found), dns_of("A", answer_class::no_name),
                  dns_of("A", answer_class::failure), dns_of("TYPE99", answer_class::missing)};
    metrics.decided(record, {});
    const std::string name = "dns_answers_total";
    EXPECT_EQ(sample(metrics, name + R"({type="PTR",class="found"})"), 1);
    EXPECT_EQ(sample(metrics, name + R"({type="A",class="no_name"})"), 1);
    EXPECT_EQ(sample(metrics, name + R"({type="A",class="failure"})"), 1);
    EXPECT_EQ(sample(metrics, name + R"({type="other",class="missing"})"), 1);
    EXPECT_TRUE(has_sample(metrics, name + R"({type="MX",class="failure"})"));
}

// --- zones ---

TEST(service_metrics, a_zone_begins_with_0) {
    service_metrics metrics;
    metrics.zones(std::vector<std::string>{"RBL.example.", "", "rbl.example"});
    const std::string name = R"(block_list_answers_total{zone="rbl.example",answer=")";
    for (const char *const state : {"listed", "not_listed", "refused", "no_listing", "failed"}) {
        EXPECT_TRUE(has_sample(metrics, name + state + "\"}")) << state;
    }
    EXPECT_FALSE(has_sample(metrics, R"(block_list_answers_total{zone="",answer="listed"})"));
}

TEST(service_metrics, answers_of_zones) {
    service_metrics metrics;
    decision_record record = record_of(verdict::accept, decided_by::nothing);
    record.dns_block_lists = {list_of("rbl.example", block_list_answer::refused),
                              list_of("Other.example.", block_list_answer::listed),
                              list_of("unasked.example", std::nullopt)};
    metrics.decided(record, {});
    metrics.decided(record, {});
    const std::string name = "block_list_answers_total";
    EXPECT_EQ(sample(metrics, name + R"({zone="rbl.example",answer="refused"})"), 2);
    EXPECT_EQ(sample(metrics, name + R"({zone="rbl.example",answer="listed"})"), 0);
    EXPECT_EQ(sample(metrics, name + R"({zone="other.example",answer="listed"})"), 2);
    EXPECT_FALSE(has_sample(metrics, name + R"({zone="unasked.example",answer="listed"})"));
}

// A thousand lists, edited in and out, cost no more than 64.
TEST(service_metrics, zones_are_bounded) {
    service_metrics metrics;
    decision_record record = record_of(verdict::accept, decided_by::nothing);
    for (int i = 0; i < 1000; ++i) {
        record.dns_block_lists = {
            list_of("z" + std::to_string(i) + ".example", block_list_answer::listed)};
        metrics.decided(record, {});
    }
    std::set<std::string> zones;
    const std::string text = metrics.text();
    const std::regex label("zone=\"([^\"]*)\"");
    for (std::sregex_iterator at(text.begin(), text.end(), label), end; at != end; ++at) {
        zones.insert((*at)[1]);
    }
    EXPECT_EQ(zones.size(), 65u);
    EXPECT_EQ(sample(metrics, R"(block_list_answers_total{zone="other",answer="listed"})"), 936);
    EXPECT_EQ(sample(metrics, R"(block_list_answers_total{zone="z63.example",answer="listed"})"),
              1);
}

// Nothing else of a line in rbl.enabled gets into the text: it would end it, or be no UTF-8.
TEST(service_metrics, what_is_no_plain_name_has_no_counter_of_its_own) {
    for (const std::string &zone :
         {std::string("a\nquillfence_evil 1"), std::string("a b"), std::string("\xff.example"),
          std::string("a\0b", 3), std::string(254, 'a')}) {
        service_metrics metrics;
        decision_record record = record_of(verdict::accept, decided_by::nothing);
        record.dns_block_lists = {list_of(zone, block_list_answer::failed)};
        metrics.decided(record, {});
        EXPECT_EQ(sample(metrics, R"(block_list_answers_total{zone="other",answer="failed"})"), 1);
    }
}

TEST(service_metrics, quotes_and_backslashes_are_escaped) {
    service_metrics metrics;
    metrics.zones(std::vector<std::string>{R"(a"b\c)"});
    EXPECT_TRUE(has_sample(metrics, R"(block_list_answers_total{zone="a\"b\\c",answer="listed"})"));
}

// --- the rest ---

TEST(service_metrics, durations_are_cumulative) {
    service_metrics metrics;
    const decision_record record = record_of(verdict::accept, decided_by::nothing);
    for (const int took : {50, 100, 101, 6'000, 20'000'000}) {
        metrics.decided(record, microseconds(took));
    }
    const std::string name = "decision_duration_seconds";
    EXPECT_EQ(sample(metrics, name + R"(_bucket{le="0.0001"})"), 2); // the end belongs to it
    EXPECT_EQ(sample(metrics, name + R"(_bucket{le="0.00025"})"), 3);
    EXPECT_EQ(sample(metrics, name + R"(_bucket{le="0.005"})"), 3);
    EXPECT_EQ(sample(metrics, name + R"(_bucket{le="0.01"})"), 4);
    EXPECT_EQ(sample(metrics, name + R"(_bucket{le="10"})"), 4);
    EXPECT_EQ(sample(metrics, name + R"(_bucket{le="+Inf"})"), 5);
    EXPECT_EQ(sample(metrics, name + "_count"), 5);
    EXPECT_DOUBLE_EQ(sample(metrics, name + "_sum"), 20.006251);
}

TEST(service_metrics, answers_doubts_connections_and_logs) {
    service_metrics metrics;
    metrics.answered(policy_answer::reject);
    metrics.in_doubt(doubt::deadline);
    metrics.in_doubt(doubt::stopping);
    metrics.connection(connection_event::idle);
    metrics.log_written(true);
    metrics.log_written(false);
    metrics.log_written(false);
    EXPECT_EQ(sample(metrics, R"(answers_total{answer="reject"})"), 1);
    EXPECT_EQ(sample(metrics, R"(answers_total{answer="ok"})"), 0);
    EXPECT_EQ(sample(metrics, R"(unjudged_total{reason="deadline"})"), 1);
    EXPECT_EQ(sample(metrics, R"(unjudged_total{reason="stopping"})"), 1);
    EXPECT_EQ(sample(metrics, R"(unjudged_total{reason="bad_request"})"), 0);
    EXPECT_EQ(sample(metrics, R"(connections_total{event="idle"})"), 1);
    EXPECT_EQ(sample(metrics, R"(log_records_total{result="written"})"), 1);
    EXPECT_EQ(sample(metrics, R"(log_records_total{result="lost"})"), 2);
}

// All of them are there from the beginning, so that an alarm sees the first one.
TEST(service_metrics, every_doubt_is_written) {
    const service_metrics metrics;
    for (const char *const reason : {"bad_request", "other_state", "no_configuration", "no_memory",
                                     "deadline", "overload", "failure", "stopping"}) {
        EXPECT_TRUE(has_sample(metrics, std::string(R"(unjudged_total{reason=")") + reason + "\"}"))
            << reason;
    }
}

TEST(service_metrics, open_connections) {
    service_metrics metrics;
    EXPECT_EQ(sample(metrics, "connections_open"), 0);
    metrics.connection(connection_event::opened);
    metrics.connection(connection_event::opened);
    metrics.connection(connection_event::refused);
    metrics.connection(connection_event::too_long);
    metrics.connection(connection_event::closed);
    EXPECT_EQ(sample(metrics, "connections_open"), 1);
    EXPECT_EQ(sample(metrics, R"(connections_total{event="opened"})"), 2);
}

double now_in_seconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

TEST(service_metrics, loads_of_the_configuration) {
    const double before = now_in_seconds();
    service_metrics metrics;
    metrics.configuration_loaded(false);
    const std::string time = "configuration_last_success_timestamp_seconds";
    EXPECT_EQ(sample(metrics, time), 0);
    metrics.configuration_loaded(true);
    const double loaded = sample(metrics, time);
    EXPECT_NEAR(loaded, before, 60);
    EXPECT_GE(loaded, before - 0.001);
    EXPECT_NEAR(sample(metrics, "start_timestamp_seconds"), before, 60);
    metrics.configuration_loaded(false);
    EXPECT_EQ(sample(metrics, time), loaded);
    EXPECT_EQ(sample(metrics, R"(configuration_loads_total{result="loaded"})"), 1);
    EXPECT_EQ(sample(metrics, R"(configuration_loads_total{result="failed"})"), 2);
}

TEST(service_metrics, the_build) {
    const service_metrics metrics({.version = "1.0.0", .build = "linux-x86_64"});
    EXPECT_EQ(sample(metrics, R"(build_info{version="1.0.0",build="linux-x86_64"})"), 1);
}

TEST(service_metrics, each_metric_has_its_help_and_type_in_front) {
    service_metrics metrics({.version = "1", .build = "b"});
    metrics.decided(record_of(verdict::accept, decided_by::nothing), {});
    std::istringstream lines(metrics.text());
    std::string known;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("# HELP ")) {
            known = line.substr(7, line.find(' ', 7) - 7);
            std::string type;
            ASSERT_TRUE(std::getline(lines, type));
            EXPECT_TRUE(type.starts_with("# TYPE " + known + ' ')) << type;
            EXPECT_EQ(type.ends_with(" counter"), known.ends_with("_total")) << type;
        } else {
            EXPECT_TRUE(line.starts_with(known)) << line;
        }
    }
    EXPECT_EQ(metrics.text().back(), '\n');
}

// Threads that count at once lose nothing, and two that meet a zone for the first time make one.
TEST(service_metrics, from_several_threads) {
    service_metrics metrics;
    constexpr int each = 2000;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&metrics] {
            decision_record record = record_of(verdict::reject, decided_by::rule, "from_blacklist");
            for (int n = 0; n < each; ++n) {
                record.dns_block_lists = {
                    list_of("z" + std::to_string(n % 20) + ".example", block_list_answer::listed)};
                metrics.decided(record, microseconds(n));
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        metrics.text();
    }
    for (std::thread &one : threads) {
        one.join();
    }
    const std::string reject = R"({verdict="reject",by="rule",rule="from_blacklist"})";
    EXPECT_EQ(sample(metrics, "decisions_total" + reject), 4 * each);
    EXPECT_EQ(sample(metrics, "decision_duration_seconds_count"), 4 * each);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(sample(metrics, "block_list_answers_total{zone=\"z" + std::to_string(i) +
                                      ".example\",answer=\"listed\"}"),
                  4 * each / 20);
    }
}

} // namespace
} // namespace quillfence::testing
