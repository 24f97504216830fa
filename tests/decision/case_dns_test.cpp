// The DNS that a case carries.
#include "case_dns.h"

#include <gtest/gtest.h>

#include "../dns_sources/scripted_source.h"
#include "engine_door.h"
#include "explaining.h"

namespace quillfence::decision {
namespace {

using namespace testing;
using dns_sources::status_missing;

// --- by hand ---

TEST(case_dns, zone_data_answer) {
    dns_sources::zone_source zone;
    ASSERT_EQ(add_zone_data(zone, {{"A.example", {{"A", "192.0.2.1"}, {"", "TIMEOUT"}}},
                                   {"mx.example", {{"mx", "10 a.example"}}},
                                   {"gone.example", {{"", "NXDOMAIN"}}},
                                   {"empty.example", {}},
                                   {"text.example", {{"TXT", "anything"}, {"spf", "v=spf1"}}}}),
              std::nullopt);
    EXPECT_EQ(zone.ask(ask_for("a.example.")), found({"A 192.0.2.1"}));
    EXPECT_EQ(zone.ask(ask_for("a.example.", type_mx)).status, timed_out);
    EXPECT_EQ(zone.ask(ask_for("mx.example.", type_mx)), found({"MX 10 a.example."}));
    EXPECT_EQ(zone.ask(ask_for("gone.example.")).status, nxdomain);
    EXPECT_EQ(zone.ask(ask_for("empty.example.")), answer_of_server(0, {})) << "the name is there";
    EXPECT_EQ(zone.ask(ask_for("text.example.")), answer_of_server(0, {}))
        << "texts are no answer, but the name is there";
    EXPECT_EQ(zone.ask(ask_for("other.example.")).status, status_missing);
}

TEST(case_dns, zone_data_that_are_wrong) {
    const auto refused_for = [](const std::vector<zone_name> &data) {
        dns_sources::zone_source zone;
        return add_zone_data(zone, data).value_or("");
    };
    EXPECT_EQ(refused_for({{"a.example", {}}, {"a b", {}}}), "zonedata.a b: a b is no domain name");
    EXPECT_EQ(refused_for({{"a.example", {{"A", "192.0.2.1"}, {"A", "x"}}}}),
              "zonedata.a.example[1]: x is no IPv4 address");
    EXPECT_EQ(refused_for({{"a.example", {{"", "GONE"}}}}),
              "zonedata.a.example[0]: GONE is not one of NODATA, NXDOMAIN, REFUSED, SERVFAIL and "
              "TIMEOUT");
    EXPECT_EQ(refused_for({{"a.example", {{"SRV", "x"}}}}),
              "zonedata.a.example[0]: SRV is not one of A, AAAA, CNAME, MX, NS and PTR");
}

// --- recorded ---

dns_record made(const std::string &name, const std::string &type, uint32_t status) {
    dns_record one;
    one.name = name;
    one.type = type;
    one.status = status;
    one.is = status == 0                               ? answer_class::found
             : status == nxdomain || status == refused ? answer_class::no_name
                                                       : answer_class::failure;
    return one;
}

TEST(case_dns, an_answer_as_it_was) {
    dns_record one = made("a.example.", "MX", 0);
    one.rcode = "NOERROR";
    one.records = {"CNAME b.example.", "MX 10 mail.example.", "TYPE99 anything"};
    one.server = "192.0.2.53:53";
    one.transport = "tcp";
    one.tries = 3;
    one.ms = 12.345;
    dns_sources::recorded_source recorded;
    ASSERT_EQ(add_answers(recorded, {one}), std::nullopt);
    answer want = found(one.records);
    want.server = "192.0.2.53:53";
    want.transport = platform::dns_transport::tcp;
    want.tries = 3;
    want.microseconds = 12345;
    EXPECT_EQ(recorded.ask(ask_for("A.example", type_mx)), want);
    EXPECT_EQ(recorded.ask(ask_for("a.example.")).status, status_missing) << "nobody else is asked";
}

TEST(case_dns, attempt_by_attempt) {
    dns_sources::recorded_source recorded;
    ASSERT_EQ(add_answers(recorded,
                          {made("a.example.", "A", timed_out), made("b.example.", "A", nxdomain),
                           made("a.example.", "A", servfail), made("a.example.", "A", 0)}),
              std::nullopt);
    for (const uint32_t want : {timed_out, servfail, 0u, 0u}) {
        EXPECT_EQ(recorded.ask(ask_for("a.example.")).status, want);
    }
    EXPECT_EQ(recorded.ask(ask_for("b.example.")).status, nxdomain);
}

TEST(case_dns, what_was_missing_is_missing_again) {
    dns_record never_asked = made("a.example.", "A", status_missing);
    never_asked.is = answer_class::missing;
    dns_record cut_off = made("b.example.", "A", dns_sources::status_deadline);
    cut_off.is = answer_class::missing;
    dns_sources::recorded_source recorded;
    ASSERT_EQ(add_answers(recorded, {never_asked, cut_off}), std::nullopt);
    EXPECT_EQ(recorded.ask(ask_for("a.example.")).status, status_missing);
    EXPECT_EQ(recorded.ask(ask_for("b.example.")).status, dns_sources::status_deadline)
        << "for want of time, as it was";
}

// A guard had read the server's word as a failure: it still is one, and the word is still known.
TEST(case_dns, what_a_guard_made_of_an_answer) {
    dns_record refusal = made("a.example.", "A", refused);
    refusal.rcode = "REFUSED";
    refusal.is = answer_class::failure;
    dns_record no_listing = made("1.2.0.192.bl.example.", "A", 0);
    no_listing.records = {"A 192.0.2.1"};
    no_listing.is = answer_class::failure;
    dns_sources::recorded_source recorded;
    ASSERT_EQ(add_answers(recorded, {refusal, no_listing}), std::nullopt);
    const answer first = recorded.ask(ask_for("a.example."));
    EXPECT_EQ(first.status, dns_sources::status_refusal);
    EXPECT_EQ(first.said, refused);
    const answer second = recorded.ask(ask_for("1.2.0.192.bl.example."));
    EXPECT_EQ(second.status, dns_sources::status_no_listing);
    EXPECT_EQ(second.said, 0u);
    EXPECT_EQ(texts_of(second), no_listing.records);
}

TEST(case_dns, answers_that_are_wrong) {
    const auto refused_for = [](void (*damage)(dns_record & one)) {
        dns_record one = made("a.example.", "MX", 0);
        damage(one);
        dns_sources::recorded_source recorded;
        return add_answers(recorded, {made("b.example.", "A", 0), one}).value_or("");
    };
    EXPECT_EQ(refused_for([](dns_record &) {}), "");
    EXPECT_EQ(refused_for([](dns_record &one) { one.type = "MAIL"; }),
              "dns[1]: the type \"MAIL\" is not known");
    EXPECT_EQ(refused_for([](dns_record &one) { one.transport = "TCP"; }),
              "dns[1]: the transport \"TCP\" is not known");
    EXPECT_EQ(refused_for([](dns_record &one) { one.rcode = "FINE"; }),
              "dns[1]: the response code \"FINE\" is not known");
    EXPECT_EQ(refused_for([](dns_record &one) {
                  one.records = {"MX 1 a.", "mail"};
              }),
              "dns[1]: the record type \"mail\" is not known");
    EXPECT_EQ(refused_for([](dns_record &one) { one.status = nxdomain; }),
              "dns[1]: class and status do not say the same");
    EXPECT_EQ(refused_for([](dns_record &one) { one.is = answer_class::no_name; }),
              "dns[1]: class and status do not say the same");
}

// --- both, under the engine ---

// A decision is written as a case, read, and made once more with nobody else to ask: it is the same
// record, to the last answer.
TEST_F(explain_test, a_case_decides_as_it_was_captured) {
    for (const client &who : clients) {
        options.dns = nullptr;
        test_case captured;
        captured.captured = true;
        captured.record = explained(transaction_of(who));
        std::string json;
        write_case(json, captured);
        json_problem problem;
        const auto read = read_case(json, &problem);
        ASSERT_TRUE(read) << who.name << ": " << problem.text;
        dns_sources::recorded_source recorded;
        ASSERT_EQ(add_answers(recorded, read->record.dns), std::nullopt);
        dns_sources::engine_door door(recorded);
        options.dns = door.slots();
        EXPECT_TRUE(explained(read->record.transaction) == captured.record) << who.name;
        EXPECT_TRUE(door.missing().empty()) << who.name;
    }
}

TEST_F(explain_test, one_answer_less_is_missing) {
    const client &who = clients[0];
    decision_record record = explained(transaction_of(who));
    ASSERT_FALSE(record.dns.empty());
    const dns_record taken = record.dns.front();
    std::erase_if(record.dns, [&](const dns_record &one) {
        return one.name == taken.name && one.type == taken.type;
    });
    dns_sources::recorded_source recorded;
    ASSERT_EQ(add_answers(recorded, record.dns), std::nullopt);
    dns_sources::engine_door door(recorded);
    options.dns = door.slots();
    const decision_record again = explained(transaction_of(who));
    const missing_item want{"dns", taken.name, taken.type, ""};
    EXPECT_NE(std::find(again.missing.begin(), again.missing.end(), want), again.missing.end());
}

} // namespace
} // namespace quillfence::decision
