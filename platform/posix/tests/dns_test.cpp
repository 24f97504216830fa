// The Linux side of the DNS client, as far as it needs no server to answer.
#include "platform/dns.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "failing_memory.h"
#include "platform/dns_channel.h"
#include "platform/process.h"

namespace quillfence::testing {
namespace {

// Port 1 of the local host: nobody is there.
class dns_without_server : public ::testing::Test {
  protected:
    dns_without_server() {
        platform::environment_set("QUILLFENCE_DNS_SERVER", "127.0.0.1:1");
    }
    ~dns_without_server() override {
        platform::environment_set("QUILLFENCE_DNS_SERVER", nullptr);
    }
    static uint32_t ask(const std::string &name, uint32_t options = 2) {
        auto *records = reinterpret_cast<platform::dns_record *>(1);
        const uint32_t status =
            platform::dns_query(name.c_str(), platform::dns_type_a, options, &records);
        EXPECT_EQ(records, nullptr);
        return status;
    }
};

TEST_F(dns_without_server, nobody_answers) {
    EXPECT_EQ(ask("host.example.", 0), 9002u);
    EXPECT_EQ(ask("host.example.", 2), 9002u);
}

TEST_F(dns_without_server, names) {
    const std::string label(63, 'x');
    const std::string longest =
        label + "." + label + "." + label + "." + std::string(61, 'y'); // 255 bytes on the wire
    const struct {
        std::string name;
        uint32_t want;
    } cases[] = {
        {"a", 9002},
        {"a.", 9002},
        {".", 9002},
        {label + ".", 9002},
        {longest, 9002},
        {longest + ".", 9002},
        {"", 123},
        {"..", 123},
        {".a", 123},
        {"a..b", 123},
        {"a..", 123},
        {label + "x", 123},
        {longest + "y", 123},
        {longest + "y.", 123},
        {std::string(100000, '.'), 123},
        {std::string(100000, 'a'), 123},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(ask(c.name), c.want) << c.name.substr(0, 300);
    }
}

TEST_F(dns_without_server, without_memory) {
    for (const uint32_t options : {0u, 2u}) {
        uint32_t status = 0;
        const unsigned failed =
            sweep_allocations([&] { status = ask("host.example.", options); },
                              [&](unsigned n) { EXPECT_TRUE(status == 8 || status == 9002) << n; });
        EXPECT_GT(failed, 5u);
        EXPECT_EQ(status, 9002u);
    }
}

TEST_F(dns_without_server, details_without_memory) {
    for (const uint32_t options : {0u, 2u}) {
        platform::dns_details details = platform::dns_no_details();
        platform::dns_record *records = nullptr;
        uint32_t status = 0;
        const unsigned failed = sweep_allocations(
            [&] {
                platform::dns_details_clear(&details);
                status =
                    platform::dns_query_detailed("host.example.", 1, options, &records, &details);
            },
            [&](unsigned n) { EXPECT_TRUE(status == 8 || status == 9002) << n; });
        EXPECT_GT(failed, 5u);
        EXPECT_EQ(status, 9002u);
        EXPECT_STREQ(details.server, "127.0.0.1:1");
        EXPECT_EQ(details.response_code, -1);
        EXPECT_EQ(records, nullptr);
    }
}

TEST_F(dns_without_server, details_of_an_ipv6_server) {
    platform::environment_set("QUILLFENCE_DNS_SERVER", "[::1]:1");
    platform::dns_record *records = nullptr;
    platform::dns_details details = platform::dns_no_details();
    EXPECT_EQ(platform::dns_query_detailed("host.example.", 1, 2, &records, &details), 9002u);
    EXPECT_STREQ(details.server, "[::1]:1");
    EXPECT_EQ(details.transport, platform::dns_transport::tcp);
}

// Each question of a client fails at another allocation; the client stays of use.
TEST_F(dns_without_server, client_without_memory) {
    platform::dns_client *client = nullptr;
    uint32_t status = 0;
    EXPECT_EQ(sweep_allocations([&] { status = platform::dns_client_open("127.0.0.1:1", &client); },
                                [&](unsigned) {
                                    EXPECT_EQ(status, 8u);
                                    EXPECT_EQ(client, nullptr);
                                }),
              1u);
    ASSERT_EQ(status, 0u);
    platform::dns_record *records = nullptr;
    for (const uint32_t options : {0u, 2u}) {
        const unsigned failed = sweep_allocations(
            [&] {
                status = platform::dns_client_query(client, "host.example.", 1, options, &records,
                                                    nullptr);
            },
            [&](unsigned n) { EXPECT_TRUE(status == 8 || status == 9002) << n; });
        EXPECT_GT(failed, 5u);
        EXPECT_EQ(status, 9002u);
    }
    platform::dns_client_close(client);
}

// --- many at once ---

// What was told of questions, and how often.
struct outcome {
    int count = 0;
    uint32_t status = 0;
};

void note(void *context, void *, uint32_t status, const platform::dns_record *,
          const platform::dns_details *) {
    auto *const kept = static_cast<outcome *>(context);
    ++kept->count;
    kept->status = status;
}

// Each question fails at another allocation, and is told all the same; the channel stays of use.
TEST_F(dns_without_server, channel_without_memory) {
    outcome told;
    platform::dns_channel *channel = nullptr;
    uint32_t status = 0;
    EXPECT_GT(sweep_allocations(
                  [&] {
                      platform::dns_channel_close(channel);
                      status = platform::dns_channel_open("127.0.0.1:1", note, &told, &channel);
                  },
                  [&](unsigned n) { // c-ares can do without some
                      EXPECT_TRUE(status == 0 || status == 8) << n;
                      EXPECT_EQ(channel == nullptr, status != 0) << n;
                  }),
              5u);
    ASSERT_EQ(status, 0u);
    const unsigned failed = sweep_allocations(
        [&] {
            told = {};
            platform::dns_channel_ask(channel, "host.example.", 1, -1, nullptr);
            while (told.count == 0) {
                platform::dns_channel_work(channel, 100);
            }
        },
        [&](unsigned n) {
            EXPECT_EQ(told.count, 1) << n;
            EXPECT_TRUE(told.status == 8 || told.status == 9002) << told.status;
        });
    EXPECT_GE(failed, 3u);
    EXPECT_EQ(told.status, 9002u);
    platform::dns_channel_close(channel);
}

// What is on its way is dropped with the channel, and nobody is told.
TEST_F(dns_without_server, channel_closed_with_questions) {
    outcome told;
    platform::dns_channel *channel = nullptr;
    ASSERT_EQ(platform::dns_channel_open("192.0.2.1", note, &told, &channel), 0u);
    for (int i = 0; i < 100; ++i) {
        platform::dns_channel_ask(channel, "host.example.", 1, -1, nullptr);
    }
    const int before = told.count; // a machine without a network has told all of them
    EXPECT_TRUE(before == 0 || before == 100) << before;
    platform::dns_channel_close(channel);
    EXPECT_EQ(told.count, before);
}

TEST_F(dns_without_server, channel_questions_that_are_none) {
    outcome told;
    platform::dns_channel *channel = nullptr;
    ASSERT_EQ(platform::dns_channel_open("127.0.0.1:1", note, &told, &channel), 0u);
    const struct {
        const char *name;
        int64_t limit;
        uint32_t want;
    } cases[] = {{"", -1, 123}, {"a..b", -1, 123}, {nullptr, -1, 87}, {"a.example.", 0, 1460}};
    for (const auto &c : cases) {
        told = {};
        platform::dns_channel_ask(channel, c.name, 1, c.limit, nullptr);
        EXPECT_EQ(told.count, 1);
        EXPECT_EQ(told.status, c.want);
    }
    platform::dns_channel_close(channel);
    platform::dns_channel_close(nullptr);
}

TEST(dns_channel, servers) {
    for (const auto &[server, want] : {std::pair{"192.0.2.53", 0u},
                                       {"[2001:db8::53]:5353", 0u},
                                       {"localhost", 87u},
                                       {"", 87u},
                                       {"fe80::1", 50u}}) {
        auto *channel = reinterpret_cast<platform::dns_channel *>(1);
        EXPECT_EQ(platform::dns_channel_open(server, note, nullptr, &channel), want) << server;
        EXPECT_EQ(channel == nullptr, want != 0);
        platform::dns_channel_close(channel);
    }
}

TEST(dns_client, servers) {
    const struct {
        const char *server;
        uint32_t want;
    } cases[] = {
        {"192.0.2.53", 0},
        {"192.0.2.53:5353", 0},
        {"2001:db8::53", 0},
        {"[2001:db8::53]:5353", 0},
        {"", 87},
        {"localhost", 87},
        {"192.0.2.53:", 87},
        {"192.0.2.53:0", 87},
        {"[2001:db8::53", 87},
        {"192.0.2.53,192.0.2.54", 87},
    };
    for (const auto &[server, want] : cases) {
        auto *client = reinterpret_cast<platform::dns_client *>(1);
        EXPECT_EQ(platform::dns_client_open(server, &client), want) << server;
        EXPECT_EQ(client == nullptr, want != 0);
        platform::dns_client_close(client);
    }
}

TEST(dns_client, without_time_nothing_is_asked) {
    platform::dns_client *client = nullptr;
    ASSERT_EQ(platform::dns_client_open("127.0.0.1:1", &client), 0u);
    platform::dns_client_limit(client, 0);
    platform::dns_record *records = nullptr;
    platform::dns_details details;
    EXPECT_EQ(platform::dns_client_query(client, "host.example.", 1, 2, &records, &details), 1460u);
    EXPECT_EQ(details.tries, 0u);
    platform::dns_client_limit(client, -1);
    EXPECT_EQ(platform::dns_client_query(client, "host.example.", 1, 2, &records, &details), 9002u);
    platform::dns_client_close(client);
}

} // namespace
} // namespace quillfence::testing
