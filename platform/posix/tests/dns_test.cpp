// The Linux side of the DNS client, as far as it needs no server to answer.
#include "platform/dns.h"

#include <string>

#include <gtest/gtest.h>

#include "failing_memory.h"
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

} // namespace
} // namespace quillfence::testing
