#include "live_source.h"

#include <atomic>
#include <thread>

#include "allocation_pause.h"
#include "failing_memory.h"
#include "scripted_source.h"

namespace quillfence::testing {
namespace {

using namespace std::chrono_literals;

// "ptr" asks for two names, "many" for 1,500, anything else does not exist.
std::atomic<int> questions_asked;
bool memory_fails; // but not the stand-in's own

platform::dns_record *names(int count) {
    platform::dns_record *first = nullptr;
    for (int i = count; i-- > 0;) {
        auto *const one =
            platform::dns_new_record(type_ptr, ("host-" + std::to_string(i) + ".example").c_str());
        one->next = first;
        first = one;
    }
    return first;
}

uint32_t stand_in(const char *name, uint16_t, uint32_t, platform::dns_record **records) {
    ++questions_asked;
    std::optional<allocation_pause> pause;
    if (memory_fails) {
        pause.emplace();
    }
    const std::string asked = name;
    if (asked == "ptr." || asked == "many.") {
        *records = names(asked == "ptr." ? 2 : 1500);
        return 0;
    }
    return nxdomain;
}

class live : public ::testing::Test {
  protected:
    live() {
        questions_asked = 0;
        platform::set_dns_stand_in(stand_in);
    }
    ~live() override {
        platform::set_dns_stand_in(nullptr);
    }
    dns_sources::live_source source;
};

TEST_F(live, asks_the_system) {
    const answer got = source.ask(ask_for("ptr.", type_ptr));
    EXPECT_EQ(got.status, 0u);
    EXPECT_EQ(got.said, 0u);
    EXPECT_EQ(texts_of(got), (texts{"PTR host-0.example.", "PTR host-1.example."}));
    EXPECT_TRUE(got.microseconds);
    EXPECT_EQ(got.left_out, 0u);
    EXPECT_EQ(source.ask(ask_for("none.")).status, nxdomain);
    EXPECT_EQ(questions_asked, 2);
    EXPECT_EQ(source.usable(), 0u);
}

// The details hold a thousand; the engine gets all.
TEST_F(live, no_name_is_lost) {
    const answer got = source.ask(ask_for("many.", type_ptr));
    ASSERT_EQ(got.records.size(), 1500u);
    for (size_t i = 0; i < got.records.size(); ++i) {
        EXPECT_EQ(got.records[i].text, "PTR host-" + std::to_string(i) + ".example.");
        EXPECT_EQ(got.records[i].type, type_ptr);
    }
    EXPECT_EQ(got.left_out, 0u);
}

TEST_F(live, threads) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                wrong += source.ask(ask_for("ptr.", type_ptr)).records.size() != 2;
            }
        });
    }
    for (std::thread &one : threads) {
        one.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(questions_asked, 800);
}

TEST_F(live, without_memory) {
    bool thrown = false;
    answer got;
    memory_fails = true;
    const unsigned failed = sweep_allocations(
        [&] {
            thrown = false;
            try {
                got = source.ask({"ptr.", type_ptr, 0, 100ms});
            } catch (const std::exception &) {
                thrown = true;
            }
        },
        [&](unsigned n) { EXPECT_TRUE(thrown) << n; });
    memory_fails = false;
    EXPECT_GT(failed, 4u);
    EXPECT_EQ(texts_of(got), (texts{"PTR host-0.example.", "PTR host-1.example."}));
}

TEST(live_server, a_name_that_is_no_server) {
    dns_sources::live_source source("nowhere");
    const uint32_t why = source.usable();
    EXPECT_TRUE(why == 87 || why == 50) << why << " (50: Windows)";
    EXPECT_EQ(source.ask(ask_for("a.example.")), answer_of_status(why));
}

} // namespace
} // namespace quillfence::testing
