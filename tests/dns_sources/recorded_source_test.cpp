#include "recorded_source.h"

#include <gtest/gtest.h>

#include "off_source.h"
#include "scripted_source.h"

namespace quillfence::testing {
namespace {

using dns_sources::status_missing;

TEST(recorded, attempt_by_attempt) {
    dns_sources::recorded_source source;
    source.add("1.2.0.192.in-addr.arpa.", type_ptr, answer_of_server(2, {}));
    source.add("1.2.0.192.IN-ADDR.arpa", type_ptr, answer_of_status(timed_out));
    source.add("1.2.0.192.in-addr.arpa", type_ptr, found({"PTR mail.example."}));
    const question asked = ask_for("1.2.0.192.in-addr.arpa.", type_ptr);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(source.ask(asked).status, servfail);
        EXPECT_EQ(source.ask(asked).status, timed_out);
        EXPECT_EQ(source.ask(asked), found({"PTR mail.example."}));
        EXPECT_EQ(source.ask(asked), found({"PTR mail.example."})) << "the last one stays";
        source.rewind();
    }
}

TEST(recorded, each_type_for_itself) {
    dns_sources::recorded_source source;
    source.add("a.example.", type_a, answer_of_server(3, {}));
    source.add("a.example.", type_mx, found({"MX 10 mail.example."}));
    EXPECT_EQ(source.ask(ask_for("A.EXAMPLE")).status, nxdomain);
    EXPECT_EQ(source.ask(ask_for("a.example.", type_mx)).status, 0u);
    EXPECT_EQ(source.ask(ask_for("a.example.", type_aaaa)), answer_of_status(status_missing));
}

TEST(recorded, what_is_not_there_is_missing) {
    dns_sources::recorded_source source;
    EXPECT_EQ(source.ask(ask_for("a.example.")), answer_of_status(status_missing));
}

TEST(recorded, each_walk_has_places_of_its_own) {
    dns_sources::recorded_source source;
    source.add("a.example.", type_a, answer_of_server(2, {}));
    source.add("a.example.", type_a, found({"A 192.0.2.1"}));
    dns_sources::recorded_walk one(source);
    dns_sources::recorded_walk other(source);
    EXPECT_EQ(one.ask(ask_for("A.example")).status, servfail);
    EXPECT_EQ(one.ask(ask_for("a.example.")).status, 0u);
    EXPECT_EQ(one.ask(ask_for("a.example.")).status, 0u) << "the last one stays";
    EXPECT_EQ(other.ask(ask_for("a.example.")).status, servfail);
    one.rewind();
    EXPECT_EQ(one.ask(ask_for("a.example.")).status, servfail);
    EXPECT_EQ(one.ask(ask_for("b.example.")), answer_of_status(status_missing));
    EXPECT_EQ(one.ask(ask_for("a.example.", type_mx)), answer_of_status(status_missing));
}

TEST(recorded, a_walk_asks_another_for_the_rest) {
    dns_sources::recorded_source source;
    source.add("a.example.", type_a, answer_of_server(3, {}));
    scripted_source rest(found({"A 192.0.2.1"}));
    dns_sources::recorded_walk walk(source, &rest);
    EXPECT_EQ(walk.ask(ask_for("a.example.")).status, nxdomain);
    EXPECT_EQ(walk.ask(ask_for("b.example.")), found({"A 192.0.2.1"}));
    EXPECT_EQ(rest.asked(), texts{"b.example. A"});
}

TEST(off, everything_is_missing) {
    dns_sources::off_source source;
    EXPECT_EQ(source.ask(ask_for("a.example.")), answer_of_status(status_missing));
}

} // namespace
} // namespace quillfence::testing
