#include "zone_source.h"

#include <gtest/gtest.h>

#include "scripted_source.h"

namespace quillfence::testing {
namespace {

using dns_sources::status_missing;

class zone : public ::testing::Test {
  protected:
    void add(const std::string &name, const std::string &type, const std::string &data) {
        EXPECT_EQ(names.add_record(name, type, data), std::nullopt);
    }
    void word(const std::string &name, const std::string &text) {
        EXPECT_EQ(names.add_word(name, text), std::nullopt);
    }
    dns_sources::zone_source names;
};

TEST_F(zone, records_by_name_and_type) {
    add("Mail.example", "A", "192.0.2.1");
    add("mail.EXAMPLE.", "A", "192.0.2.2");
    add("mail.example", "MX", "10 mx.example");
    EXPECT_EQ(names.ask(ask_for("mail.example.")), found({"A 192.0.2.1", "A 192.0.2.2"}));
    EXPECT_EQ(names.ask(ask_for("MAIL.example", type_mx)), found({"MX 10 mx.example."}));
    EXPECT_EQ(names.ask(ask_for("mail.example", type_aaaa)), answer_of_server(0, {}))
        << "the name is there, the type is not";
}

TEST_F(zone, names_that_are_not_there_are_missing) {
    add("mail.example", "A", "192.0.2.1");
    EXPECT_EQ(names.ask(ask_for("other.example")), answer_of_status(status_missing));
    EXPECT_EQ(names.ask(ask_for("sub.mail.example")), answer_of_status(status_missing));
}

TEST_F(zone, words) {
    word("gone.example", "NXDOMAIN");
    word("broken.example", "servfail");
    word("closed.example", "REFUSED");
    word("slow.example", "TIMEOUT");
    word("empty.example", "NODATA");
    EXPECT_EQ(names.ask(ask_for("gone.example.")), answer_of_server(3, {}));
    EXPECT_EQ(names.ask(ask_for("broken.example.", type_mx)), answer_of_server(2, {}));
    EXPECT_EQ(names.ask(ask_for("closed.example.")), answer_of_server(5, {}));
    EXPECT_EQ(names.ask(ask_for("slow.example.")), answer_of_status(timed_out));
    EXPECT_EQ(names.ask(ask_for("empty.example.")), answer_of_server(0, {}));
}

TEST_F(zone, word_beside_records) {
    add("half.example", "A", "192.0.2.1");
    word("half.example", "TIMEOUT");
    EXPECT_EQ(names.ask(ask_for("half.example")), found({"A 192.0.2.1"}));
    EXPECT_EQ(names.ask(ask_for("half.example", type_mx)), answer_of_status(timed_out));
}

TEST_F(zone, aliases_are_followed) {
    add("www.example", "CNAME", "host.example");
    add("host.example", "CNAME", "Real.example.");
    add("real.example", "A", "192.0.2.1");
    EXPECT_EQ(names.ask(ask_for("www.example.")),
              found({"CNAME host.example.", "CNAME Real.example.", "A 192.0.2.1"}));
    EXPECT_EQ(names.ask(ask_for("www.example.", type_cname)), found({"CNAME host.example."}));
    EXPECT_EQ(names.ask(ask_for("www.example.", type_mx)),
              found({"CNAME host.example.", "CNAME Real.example."}))
        << "aliases alone are records";
}

TEST_F(zone, alias_of_a_missing_name) {
    add("www.example", "CNAME", "gone.example");
    word("gone.example", "NXDOMAIN");
    EXPECT_EQ(names.ask(ask_for("www.example")),
              answer_of_server(3, {{type_cname, "CNAME gone.example."}}));
    add("slow.www.example", "CNAME", "slow.example");
    word("slow.example", "TIMEOUT");
    EXPECT_EQ(names.ask(ask_for("slow.www.example")), answer_of_status(timed_out));
}

TEST_F(zone, alias_out_of_the_data_is_missing) {
    add("www.example", "CNAME", "elsewhere.example");
    const answer got = names.ask(ask_for("www.example"));
    EXPECT_EQ(got.status, status_missing);
    EXPECT_EQ(got.missing_name, "elsewhere.example.") << "this is what an answer is needed for";
}

TEST_F(zone, endless_aliases) {
    add("a.example", "CNAME", "b.example");
    add("b.example", "CNAME", "a.example");
    EXPECT_EQ(names.ask(ask_for("a.example")).status, servfail);
    for (int i = 0; i < 16; ++i) {
        add("n" + std::to_string(i), "CNAME", "n" + std::to_string(i + 1));
    }
    add("n16", "A", "192.0.2.1");
    EXPECT_EQ(names.ask(ask_for("n0")).status, 0u) << "16 aliases";
    add("first", "CNAME", "n0");
    EXPECT_EQ(names.ask(ask_for("first")).status, servfail) << "17 aliases";
}

TEST_F(zone, a_name_that_has_nothing_else) {
    EXPECT_EQ(names.add_name("Here.example"), std::nullopt);
    EXPECT_EQ(names.ask(ask_for("here.example.")), answer_of_server(0, {}));
    add("here.example", "A", "192.0.2.1");
    EXPECT_EQ(names.add_name("here.example."), std::nullopt);
    EXPECT_EQ(names.ask(ask_for("here.example.")), found({"A 192.0.2.1"})) << "nothing is lost";
    EXPECT_EQ(names.add_name("a..b"), "a..b is no domain name");
}

TEST_F(zone, complaints) {
    EXPECT_EQ(names.add_record("a..b", "A", "192.0.2.1"), "a..b is no domain name");
    EXPECT_EQ(names.add_record("a.example", "A", "nowhere"), "nowhere is no IPv4 address");
    EXPECT_EQ(names.add_word("a b", "NXDOMAIN"), "a b is no domain name");
    EXPECT_EQ(names.add_word("a.example", "GONE"),
              "GONE is not one of NODATA, NXDOMAIN, REFUSED, SERVFAIL and TIMEOUT");
    EXPECT_EQ(names.ask(ask_for("a.example")).status, status_missing) << "nothing was added";
    word("a.example", "NXDOMAIN");
    EXPECT_EQ(names.add_record("A.example.", "A", "192.0.2.1"),
              "A.example. has records and is NXDOMAIN");
    EXPECT_EQ(names.add_word("a.example", "TIMEOUT"), "a.example has two such words");
    add("b.example", "A", "192.0.2.1");
    EXPECT_EQ(names.add_word("b.example", "NXDOMAIN"), "b.example has records and is NXDOMAIN");
}

} // namespace
} // namespace quillfence::testing
