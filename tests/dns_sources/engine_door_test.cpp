#include "engine_door.h"

#include <cstdlib>
#include <thread>

#include "evidence.h"
#include "failing_memory.h"
#include "log_capture.h"
#include "off_source.h"
#include "scripted_source.h"
#include "vc_dns.h"
#include "vc_nulltermlist.h"
#include "zone_source.h"

namespace quillfence::testing {
namespace {

using namespace dns_sources;

// The engine behind a door.
struct engine {
    engine_door door;
    call_context context;
    call_scope scope;

    explicit engine(source &answers)
        : door(answers), context{.evidence = nullptr,
                                 .dns = door.slots(),
                                 .configuration = nullptr},
          scope(&context) {}
};

texts ptr_names(const char *address, int *code) {
    char **names = nullptr;
    *code = vc_lookup_reverse_dns(&names, address, 1, 0);
    texts all;
    for (char **name = names; name && *name; ++name) {
        all.emplace_back(*name);
    }
    vc_lstfree(&names, std::free);
    return all;
}

TEST(engine_door, answers_reach_the_engine) {
    log_capture log;
    scripted_source behind(found({"CNAME other.example.", "PTR Mail.Example.", "PTR .",
                                  "PTR a\\.b.example.", "A 192.0.2.1"}));
    engine asked(behind);
    int code = 0;
    EXPECT_EQ(ptr_names("192.0.2.1", &code), (texts{"Mail.Example", "a\\.b.example"}));
    EXPECT_EQ(code, 0);
    EXPECT_EQ(behind.asked(), texts{"1.2.0.192.in-addr.arpa. PTR"});
    EXPECT_EQ(behind.last().options, platform::dns_query_tcp_only);
    EXPECT_EQ(behind.last().limit, std::nullopt);
    EXPECT_FALSE(asked.door.failed());
    EXPECT_TRUE(asked.door.missing().empty());
}

TEST(engine_door, statuses_reach_the_engine) {
    log_capture log;
    const struct {
        answer given;
        int want;
    } cases[] = {
        {found({"A 192.0.2.1"}), 0},           {answer_of_server(3, {{type_cname, "CNAME x."}}), 1},
        {answer_of_server(5, {}), 1},          {answer_of_server(2, {}), 2},
        {answer_of_server(0, {}), 2},          {answer_of_status(timed_out), 2},
        {answer_of_status(status_missing), 2}, {answer_of_status(status_deadline), 2},
        {answer_of_status(status_refusal), 2}};
    for (const auto &[given, want] : cases) {
        scripted_source behind(given);
        engine asked(behind);
        EXPECT_EQ(vc_resolv_WIN32("a.example.", type_a, 0), want) << given.status;
    }
}

TEST(engine_door, details) {
    answer given = found({"CNAME x.example.", "A 127.0.0.2"});
    given.status = status_no_listing;
    given.server = "192.0.2.53:53";
    given.transport = platform::dns_transport::tcp;
    given.tries = 2;
    given.microseconds = 12400;
    given.left_out = 3;
    scripted_source behind(given);
    engine_door door(behind);
    platform::dns_record *records = nullptr;
    platform::dns_details details;
    const dns_source *const slots = door.slots();
    EXPECT_EQ(slots->ask(slots->context, "a.example.", 1, 0, &records, &details),
              status_no_listing);
    EXPECT_EQ(records, nullptr) << "an error has no records for the engine";
    EXPECT_STREQ(details.server, "192.0.2.53:53");
    EXPECT_EQ(details.transport, platform::dns_transport::tcp);
    EXPECT_EQ(details.tries, 2u);
    EXPECT_EQ(details.microseconds, 12400);
    EXPECT_EQ(details.status, 0u) << "what the server said";
    EXPECT_EQ(details.response_code, 0);
    ASSERT_EQ(details.record_count, 2u);
    EXPECT_STREQ(details.records->text, "CNAME x.example.");
    EXPECT_STREQ(details.last->text, "A 127.0.0.2");
    EXPECT_EQ(details.left_out, 3u);
    platform::dns_details_clear(&details);
}

TEST(engine_door, what_is_not_known_is_absent) {
    scripted_source behind(answer_of_status(timed_out));
    engine_door door(behind);
    platform::dns_record *records = nullptr;
    platform::dns_details details;
    EXPECT_EQ(door.slots()->ask(&door, "a.example.", 1, 0, &records, &details), timed_out);
    EXPECT_STREQ(details.server, "");
    EXPECT_EQ(details.transport, platform::dns_transport::unknown);
    EXPECT_EQ(details.microseconds, -1);
    EXPECT_EQ(details.response_code, -1);
    EXPECT_EQ(details.status, timed_out);
}

TEST(engine_door, missing_questions_are_kept_once) {
    log_capture log;
    off_source off;
    engine asked(off);
    int code = 0;
    ptr_names("192.0.2.1", &code);
    EXPECT_EQ(code, 2) << "nothing missing is ever guessed: a failure";
    EXPECT_EQ(vc_has_a_or_mx("A.example", 1), 2);
    EXPECT_EQ(vc_has_a_or_mx("a.EXAMPLE", 1), 2);
    texts missing;
    for (const question &one : asked.door.missing()) {
        missing.push_back(one.name + " " + type_word(one.type));
    }
    EXPECT_EQ(missing, (texts{"1.2.0.192.in-addr.arpa. PTR", "A.example. A", "A.example. AAAA",
                              "A.example. MX"}));
    EXPECT_FALSE(asked.door.failed());
}

TEST(engine_door, missing_end_of_an_alias) {
    log_capture log;
    zone_source zone;
    ASSERT_EQ(zone.add_record("www.example", "CNAME", "elsewhere.example"), std::nullopt);
    engine asked(zone);
    EXPECT_EQ(vc_resolv_WIN32("www.example.", type_a, 0), 2);
    ASSERT_EQ(asked.door.missing().size(), 1u);
    EXPECT_EQ(asked.door.missing()[0].name, "elsewhere.example.");
}

TEST(engine_door, threads_share_a_door) {
    log_capture log;
    off_source off;
    engine_door door(off);
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            call_context context{
                .evidence = nullptr, .dns = door.slots(), .configuration = nullptr};
            const call_scope scope(&context);
            for (int i = 0; i < 200; ++i) {
                const std::string name = "n" + std::to_string(i % 20) + ".example.";
                wrong += vc_resolv_WIN32(name.c_str(), type_a, 0) != 2;
            }
        });
    }
    for (std::thread &one : threads) {
        one.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(door.missing().size(), 20u);
}

// A source that runs out of memory by itself.
TEST(engine_door, a_source_that_fails) {
    log_capture log;
    bool broken = true;
    scripted_source behind([&](const question &) -> answer {
        if (broken) {
            throw std::bad_alloc();
        }
        return found({"A 192.0.2.1"});
    });
    engine asked(behind);
    EXPECT_EQ(vc_resolv_WIN32("a.example.", type_a, 0), 2);
    EXPECT_TRUE(asked.door.failed());
    broken = false;
    EXPECT_EQ(vc_resolv_WIN32("a.example.", type_a, 0), 0);
    EXPECT_TRUE(asked.door.failed()) << "it is remembered";
    scripted_source status(answer_of_status(8));
    engine other(status);
    EXPECT_EQ(vc_resolv_WIN32("a.example.", type_a, 0), 2);
    EXPECT_TRUE(other.door.failed());
}

// Each allocation in turn: the answer is right, or the door says that it failed.
TEST(engine_door, without_memory) {
    zone_source zone;
    ASSERT_EQ(zone.add_record("a.example", "CNAME", "b.example"), std::nullopt);
    ASSERT_EQ(zone.add_record("b.example", "PTR", "a-name-that-is-not-short.example"),
              std::nullopt);
    for (const bool detailed : {false, true}) {
        uint32_t status = 0;
        bool failed = false;
        uint32_t count = 0;
        const auto operation = [&] {
            engine_door door(zone);
            platform::dns_record *records = nullptr;
            platform::dns_details details = platform::dns_no_details();
            status = door.slots()->ask(&door, "a.example.", type_ptr, 0, &records,
                                       detailed ? &details : nullptr);
            count = details.record_count;
            failed = door.failed();
            platform::dns_release(records);
            platform::dns_details_clear(&details);
        };
        const long before = live_allocations();
        const unsigned swept = sweep_allocations(operation, [&](unsigned n) {
            EXPECT_TRUE(failed) << n;
            EXPECT_TRUE(status == 8 || status == 0) << n;
        });
        EXPECT_GT(swept, detailed ? 6u : 4u);
        EXPECT_FALSE(failed);
        EXPECT_EQ(status, 0u);
        EXPECT_EQ(count, detailed ? 2u : 0u);
        EXPECT_EQ(live_allocations(), before) << "nothing is left behind";
    }
}

} // namespace
} // namespace quillfence::testing
