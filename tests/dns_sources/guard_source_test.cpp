#include "guard_source.h"

#include <gtest/gtest.h>

#include "scripted_source.h"
#include "vc_dns.h"

namespace quillfence::testing {
namespace {

using namespace dns_sources;

const std::vector<std::string> lists = {"rbl.example", "Other.Example."};

TEST(guard, addresses_of_a_block_list) {
    const struct {
        texts records;
        uint32_t want;
    } cases[] = {
        {{"A 127.0.0.2"}, 0},
        {{"A 127.0.0.2", "A 127.0.0.10"}, 0},
        {{"A 127.0.0.0"}, 0},
        {{"A 127.255.254.255"}, 0},
        {{"CNAME x.example.", "A 127.0.0.2"}, 0},
        {{"A 127.255.255.254"}, status_no_listing},
        {{"A 127.255.255.0"}, status_no_listing},
        {{"A 127.0.0.2", "A 127.255.255.1"}, status_no_listing},
        {{"A 126.255.255.255"}, status_no_listing},
        {{"A 128.0.0.0"}, status_no_listing},
        {{"A 192.0.2.1"}, status_no_listing},
        {{"A 127.0.0.2", "A 192.0.2.1"}, status_no_listing},
        {{"AAAA ::ffff:127.0.0.2"}, status_no_listing},
        {{"CNAME x.example."}, status_no_listing},
    };
    for (const auto &[records, want] : cases) {
        SCOPED_TRACE(records.back());
        scripted_source behind(found(records));
        guard_source guarded(behind, lists);
        const answer got = guarded.ask(ask_for("1.2.0.192.rbl.example."));
        EXPECT_EQ(got.status, want);
        EXPECT_EQ(got.said, 0u) << "what the server said stays";
        EXPECT_EQ(texts_of(got), records);
        EXPECT_EQ(guarded.no_listings(), want ? 1u : 0u);
        EXPECT_EQ(guarded.refusals(), 0u);
    }
}

TEST(guard, only_questions_to_block_lists) {
    const struct {
        const char *name;
        uint16_t type;
        bool guarded;
    } cases[] = {
        {"1.2.0.192.rbl.example.", type_a, true},
        {"1.2.0.192.RBL.Example", type_a, true},
        {"1.2.0.192.other.example.", type_aaaa, true},
        {"255.255.255.255.rbl.example.", type_a, true},
        {"1.2.0.192.rbl.example.", type_mx, false},
        {"1.2.0.192.third.example.", type_a, false},
        {"rbl.example.", type_a, false},
        {"2.0.192.rbl.example.", type_a, false},
        {"0.1.2.0.192.rbl.example.", type_a, false},
        {"1.2.0.256.rbl.example.", type_a, false},
        {"1.2.0.x.rbl.example.", type_a, false},
        {"1.2.0.192.in-addr.arpa.", type_ptr, false},
    };
    for (const auto &[name, type, guarded] : cases) {
        scripted_source behind(found({"A 192.0.2.1"}));
        guard_source guard(behind, lists);
        EXPECT_EQ(guard.ask(ask_for(name, type)).status, guarded ? status_no_listing : 0u) << name;
    }
}

TEST(guard, refusals_to_any_question) {
    scripted_source behind(answer_of_server(5, {}));
    guard_source guarded(behind, lists);
    for (const uint16_t type : {type_a, type_ptr, type_mx}) {
        const answer got = guarded.ask(ask_for("a.example.", type));
        EXPECT_EQ(got.status, status_refusal);
        EXPECT_EQ(got.said, refused);
        EXPECT_EQ(got.response_code, 5u);
    }
    EXPECT_EQ(guarded.refusals(), 3u);
    EXPECT_EQ(guarded.no_listings(), 0u);
}

TEST(guard, other_statuses_pass) {
    for (const uint32_t status : {servfail, nxdomain, no_records, timed_out, status_missing}) {
        scripted_source behind(answer_of_status(status));
        guard_source guarded(behind, lists);
        EXPECT_EQ(guarded.ask(ask_for("1.2.0.192.rbl.example.")), answer_of_status(status));
        EXPECT_EQ(guarded.no_listings() + guarded.refusals(), 0u);
    }
}

TEST(guard, each_can_be_left_out) {
    scripted_source listing(found({"A 192.0.2.1"}));
    guard_source any_answer(listing, lists, {.block_lists = false});
    EXPECT_EQ(any_answer.ask(ask_for("1.2.0.192.rbl.example.")).status, 0u);
    scripted_source refusing(answer_of_server(5, {}));
    guard_source refused_is_missing(refusing, lists, {.refusals = false});
    EXPECT_EQ(refused_is_missing.ask(ask_for("a.example.")).status, refused);
}

// What the statuses of this room are to the engine.
TEST(guard, the_engine_takes_them_for_failures) {
    for (const uint32_t status :
         {status_missing, status_deadline, status_no_listing, status_refusal}) {
        EXPECT_EQ(vc_dns_code(status), vc_dns_failed);
        EXPECT_EQ(status & 0x20000000, 0x20000000u) << "no number of the system's";
    }
}

TEST(guard, zones) {
    EXPECT_EQ(block_list_zone("1.2.0.192.rbl.example."), "rbl.example");
    EXPECT_EQ(block_list_zone("1.2.0.192."), "");
    EXPECT_EQ(block_list_zone("1.2.0.192"), "");
    EXPECT_EQ(block_list_zone("0001.2.0.192.x"), "");
    EXPECT_EQ(block_list_zone(""), "");
}

} // namespace
} // namespace quillfence::testing
