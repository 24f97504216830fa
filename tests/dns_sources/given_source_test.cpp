#include "given_source.h"

#include <gtest/gtest.h>

#include "log_capture.h"
#include "scripted_source.h"

namespace quillfence::testing {
namespace {

class given : public logged_test {
  protected:
    void add(const std::string &name, const std::string &type, const std::string &value) {
        EXPECT_EQ(source.add(name, type, value), std::nullopt);
    }
    scripted_source behind{found({"A 203.0.113.1"})};
    dns_sources::given_source source{behind};
};

TEST_F(given, answers_what_was_given_and_hands_on_the_rest) {
    add("Host.example", "A", "192.0.2.1");
    add("host.example.", "a", "192.0.2.2");
    EXPECT_EQ(source.ask(ask_for("HOST.example.")), found({"A 192.0.2.1", "A 192.0.2.2"}));
    EXPECT_EQ(behind.asked(), texts{});
    EXPECT_EQ(source.ask(ask_for("host.example.", type_mx)), found({"A 203.0.113.1"}));
    EXPECT_EQ(source.ask(ask_for("other.example.")), found({"A 203.0.113.1"}));
    EXPECT_EQ(behind.asked(), (texts{"host.example. MX", "other.example. A"}));
}

TEST_F(given, words) {
    add("host.example", "MX", "NXDOMAIN");
    add("slow.example", "A", "timeout");
    EXPECT_EQ(source.ask(ask_for("host.example.", type_mx)), answer_of_server(3, {}));
    EXPECT_EQ(source.ask(ask_for("slow.example.")), answer_of_status(timed_out));
    source.ask(ask_for("host.example."));
    EXPECT_EQ(behind.asked(), texts{"host.example. A"}) << "for this type alone";
}

TEST_F(given, names_of_a_client) {
    EXPECT_EQ(source.add_ptr("192.0.2.1", "Mail.Example"), std::nullopt);
    EXPECT_EQ(source.add_ptr("192.0.2.1", "b.example"), std::nullopt);
    EXPECT_EQ(source.add_ptr("2001:db8::1", "six.example"), std::nullopt);
    EXPECT_EQ(source.add_ptr("192.0.2.9", "NXDOMAIN"), std::nullopt);
    EXPECT_EQ(source.ask(ask_for("1.2.0.192.in-addr.arpa.", type_ptr)),
              found({"PTR Mail.Example.", "PTR b.example."}));
    EXPECT_EQ(source.ask(ask_for("1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2."
                                 "ip6.arpa.",
                                 type_ptr)),
              found({"PTR six.example."}));
    EXPECT_EQ(source.ask(ask_for("9.2.0.192.in-addr.arpa.", type_ptr)), answer_of_server(3, {}));
    EXPECT_EQ(behind.asked(), texts{});
}

TEST_F(given, complaints) {
    EXPECT_EQ(source.add("a.example", "TXT", "x"), "TXT is no record type");
    EXPECT_EQ(source.add("a..example", "A", "192.0.2.1"), "a..example is no domain name");
    EXPECT_EQ(source.add("a.example", "A", "x"), "x is no IPv4 address");
    EXPECT_EQ(source.add_ptr("192.0.2", "x"), "192.0.2 is no address");
    EXPECT_EQ(source.add_ptr("192.0.2.1", "a b"), "a b is no domain name");
    add("a.example", "A", "192.0.2.1");
    EXPECT_EQ(source.add("A.example.", "A", "NXDOMAIN"),
              "there is already an answer for A.example. A");
    add("b.example", "A", "NXDOMAIN");
    EXPECT_EQ(source.add("b.example", "A", "192.0.2.1"),
              "there is already an answer for b.example A");
    EXPECT_EQ(source.ask(ask_for("b.example")), answer_of_server(3, {}));
}

} // namespace
} // namespace quillfence::testing
