#include "memo_source.h"

#include <thread>

#include <gtest/gtest.h>

#include "scripted_source.h"

namespace quillfence::testing {
namespace {

using namespace dns_sources;

TEST(memo, what_was_found_or_does_not_exist_is_asked_once) {
    for (const answer &kept : {found({"A 192.0.2.1", "A 192.0.2.2"}), answer_of_server(3, {}),
                               answer_of_server(5, {}), answer_of_server(10, {})}) {
        answer said = kept;
        said.tries = 2;
        said.microseconds = 1500;
        said.server = "192.0.2.53:53";
        scripted_source behind(said);
        memo_source memo(behind);
        EXPECT_EQ(memo.ask(ask_for("Host.example.")), said);
        answer again = said;
        again.tries = 0; // no question was sent
        again.microseconds.reset();
        EXPECT_EQ(memo.ask(ask_for("host.EXAMPLE")), again);
        EXPECT_EQ(behind.asked(), texts{"Host.example. A"});
        memo.ask(ask_for("host.example.", type_mx));
        memo.ask(ask_for("other.example."));
        EXPECT_EQ(behind.asked(), (texts{"host.example. MX", "other.example. A"}));
    }
}

TEST(memo, a_failure_is_asked_again) {
    for (const uint32_t status : {servfail, timed_out, no_records, 9502u, 123u, status_missing,
                                  status_deadline, status_no_listing, status_refusal}) {
        int asked = 0;
        scripted_source behind([&](const question &) {
            return ++asked < 5 ? answer_of_status(status) : found({"A 192.0.2.1"});
        });
        memo_source memo(behind);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(memo.ask(ask_for("host.example.")).status, status);
        }
        EXPECT_EQ(memo.ask(ask_for("host.example.")).status, 0u);
        EXPECT_EQ(memo.ask(ask_for("host.example.")).status, 0u);
        EXPECT_EQ(asked, 5);
        EXPECT_TRUE(memo.zones_left_alone().empty());
    }
}

TEST(memo, a_zone_that_failed_three_times_is_left_alone) {
    scripted_source behind([](const question &asked) {
        return asked.name.ends_with("dead.example.") ? answer_of_status(timed_out)
                                                     : found({"A 127.0.0.2"});
    });
    memo_source memo(behind, {.leaves_zones_alone = true});
    for (int i = 0; i < 10; ++i) {
        const std::string number = std::to_string(i);
        EXPECT_EQ(memo.ask(ask_for(number + ".2.0.192.dead.example.")).status, timed_out);
        EXPECT_EQ(memo.ask(ask_for(number + ".2.0.192.good.example.")).status, 0u);
    }
    const auto asked = behind.asked();
    EXPECT_EQ(
        std::count_if(asked.begin(), asked.end(),
                      [](const std::string &one) { return one.ends_with("dead.example. A"); }),
        3);
    EXPECT_EQ(asked.size(), 13u);
    EXPECT_EQ(memo.zones_left_alone(), texts{"dead.example"});
}

TEST(memo, an_answer_in_between_gives_another_chance) {
    int asked = 0;
    scripted_source behind([&](const question &) {
        return ++asked % 3 ? answer_of_status(timed_out) : answer_of_server(0, {});
    });
    memo_source memo(behind, {.leaves_zones_alone = true});
    for (int i = 0; i < 30; ++i) {
        memo.ask(ask_for("host.example."));
    }
    EXPECT_EQ(asked, 30);
    EXPECT_TRUE(memo.zones_left_alone().empty());
}

TEST(memo, what_is_no_servers_failure_does_not_count) {
    for (const uint32_t status : {no_records, 123u, status_missing, status_deadline, nxdomain}) {
        scripted_source behind(answer_of_status(status));
        memo_source memo(behind, {.leaves_zones_alone = true});
        for (int i = 0; i < 5; ++i) {
            memo.ask(ask_for(std::to_string(i) + ".2.0.192.rbl.example."));
        }
        EXPECT_EQ(behind.asked().size(), 5u) << status;
    }
}

TEST(memo, zones) {
    const struct {
        const char *name;
        const char *want;
    } cases[] = {
        {"1.2.0.192.RBL.example.", "rbl.example"},
        {"1.2.0.192.in-addr.arpa.", "2.0.192.in-addr.arpa"},
        {"1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.9.8.7.6.5.4.3.2.8.b.d.0.1.0.0.2.ip6.arpa.",
         "9.8.7.6.5.4.3.2.8.b.d.0.1.0.0.2.ip6.arpa"},
        {"Mail.example.", "mail.example"},
        {"ip6.arpa.", "ip6.arpa"},
        {".", ""},
    };
    for (const auto &[name, want] : cases) {
        EXPECT_EQ(zone_of(name), want) << name;
    }
}

// The memory stays within its bounds; what is asked for again and again stays.
TEST(memo, is_bounded) {
    scripted_source behind(found({"A 192.0.2.1"}));
    memo_source memo(behind, {.bytes = 20'000});
    for (int i = 0; i < 1000; ++i) {
        memo.ask(ask_for("n" + std::to_string(i) + ".example."));
        memo.ask(ask_for("often.example."));
    }
    const auto asked = behind.asked();
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "often.example. A"), 1);
    EXPECT_EQ(asked.size(), 1001u);
    memo.ask(ask_for("n0.example."));
    EXPECT_EQ(behind.asked(), texts{"n0.example. A"}) << "forgotten";
    memo.ask(ask_for("n999.example."));
    EXPECT_EQ(behind.asked(), texts{}) << "still known";
}

TEST(memo, an_answer_larger_than_all_is_not_kept) {
    scripted_source behind(found({"PTR " + std::string(5000, 'x') + "."}));
    memo_source memo(behind, {.bytes = 8'000});
    memo.ask(ask_for("a.example.", type_ptr));
    memo.ask(ask_for("a.example.", type_ptr));
    EXPECT_EQ(behind.asked().size(), 2u);
}

TEST(memo, threads) {
    scripted_source behind([](const question &asked) {
        return asked.name.starts_with("x") ? answer_of_status(timed_out)
                                           : found({"PTR " + asked.name});
    });
    memo_source memo(behind, {.leaves_zones_alone = true, .bytes = 100'000});
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                const std::string name = "n" + std::to_string(i % 300) + ".example.";
                wrong +=
                    memo.ask(ask_for(name, type_ptr)).records != found({"PTR " + name}).records;
                wrong += memo.ask(ask_for("x.example.")).status != timed_out;
            }
        });
    }
    for (std::thread &one : threads) {
        one.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(memo.zones_left_alone(), texts{"x.example"});
}

TEST(memo, what_is_known_is_told_without_asking) {
    scripted_source behind([](const question &asked) {
        return asked.name == "a.example." ? answer_of_server(3, {}) : answer_of_server(2, {});
    });
    memo_source memo(behind, {.leaves_zones_alone = true});
    EXPECT_EQ(memo.known(ask_for("a.example.")), std::nullopt);
    EXPECT_TRUE(behind.asked().empty());
    memo.ask(ask_for("a.example."));
    ASSERT_TRUE(memo.known(ask_for("A.EXAMPLE")));
    EXPECT_EQ(memo.known(ask_for("A.EXAMPLE"))->status, nxdomain);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(memo.known(ask_for("b.example.")), std::nullopt);
        memo.ask(ask_for("b.example."));
    }
    ASSERT_TRUE(memo.known(ask_for("b.example."))) << "its zone is left alone";
    EXPECT_EQ(memo.known(ask_for("b.example."))->status, servfail);
    EXPECT_EQ(behind.asked().size(), 4u);
}

// A transaction that had no time left says nothing about the servers.
TEST(memo, a_hurried_silence_does_not_count) {
    scripted_source behind(answer_of_status(timed_out));
    memo_source memo(behind, {.leaves_zones_alone = true});
    question hurried = ask_for("a.example.");
    hurried.limit = std::chrono::milliseconds(2999);
    for (int i = 0; i < 5; ++i) {
        memo.ask(hurried);
    }
    EXPECT_TRUE(memo.zones_left_alone().empty());
    question patient = ask_for("a.example.");
    patient.limit = std::chrono::milliseconds(3000);
    for (int i = 0; i < 3; ++i) {
        memo.ask(patient);
    }
    EXPECT_EQ(memo.zones_left_alone(), texts{"a.example"});
}

} // namespace
} // namespace quillfence::testing
