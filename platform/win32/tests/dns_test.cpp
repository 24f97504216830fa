// What the Windows side makes of the answers of DnsQuery_A, also of those that Wine never gives.
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_memory.h"
#include "platform/dns.h"
#include "win32/dns_calls.h"

namespace quillfence::testing {
namespace {

DNS_STATUS next_status;
std::vector<DNS_RECORDA> next_records;
struct {
    std::string name;
    WORD type;
    DWORD options;
    bool with_servers;
} asked;
int releases;

DNS_STATUS WINAPI stand_in_query(PCSTR name, WORD type, DWORD options, PIP4_ARRAY servers,
                                 PDNS_RECORD *records, PVOID *) {
    const allocation_pause pause;
    asked = {name, type, options, servers != nullptr};
    for (size_t i = 0; i + 1 < next_records.size(); ++i) {
        next_records[i].pNext = &next_records[i + 1];
    }
    *records = next_records.empty() ? nullptr : reinterpret_cast<PDNS_RECORD>(next_records.data());
    return next_status;
}

void WINAPI stand_in_release(PVOID records, DNS_FREE_TYPE type) {
    EXPECT_EQ(records, next_records.data());
    EXPECT_EQ(type, DnsFreeRecordList);
    ++releases;
}

constexpr platform::dns_calls stand_ins = {stand_in_query, stand_in_release};

class dns_client : public ::testing::Test {
  protected:
    dns_client() {
        platform::set_dns_calls(&stand_ins);
        releases = 0;
    }
    ~dns_client() override {
        platform::set_dns_calls(nullptr);
        platform::dns_release(records);
    }
    static DNS_RECORDA record(WORD type, const char *target = nullptr) {
        DNS_RECORDA made{};
        made.wType = type;
        made.Data.PTR.pNameHost = const_cast<char *>(target);
        return made;
    }
    uint32_t ask(DNS_STATUS status, std::initializer_list<DNS_RECORDA> answer) {
        next_status = status;
        next_records = answer;
        platform::dns_release(records);
        return platform::dns_query("1.2.0.192.in-addr.arpa.", 12, 2, &records);
    }
    std::vector<std::string> targets() const {
        std::vector<std::string> texts;
        for (const platform::dns_record *one = records; one; one = one->next) {
            texts.push_back(std::to_string(one->type) + " " + (one->target ? one->target : "-"));
        }
        return texts;
    }
    platform::dns_record *records = nullptr;
};

using texts = std::vector<std::string>;

TEST_F(dns_client, question_is_handed_on) {
    ask(0, {record(12, "a")});
    EXPECT_EQ(asked.name, "1.2.0.192.in-addr.arpa.");
    EXPECT_EQ(asked.type, 12);
    EXPECT_EQ(asked.options, 2u);
    EXPECT_FALSE(asked.with_servers) << "the system's own";
}

TEST_F(dns_client, records_are_copied_and_released_once) {
    EXPECT_EQ(ask(0, {record(5, "alias.example"), record(12, "Host.Example"),
                      record(12, "with-dot.example."), record(12, "."), record(12, ""), record(12),
                      record(1)}),
              0u);
    EXPECT_EQ(targets(), (texts{"5 -", "12 Host.Example", "12 with-dot.example", "12 ", "12 ",
                                "12 -", "1 -"}));
    EXPECT_EQ(releases, 1);
}

TEST_F(dns_client, names_are_safe_to_show) {
    const std::string endless(5000, '\xFF');
    ask(0, {record(12, "a b.example"), record(12, "new\nline.\x7F\xC3\xA9."),
            record(12, "a\\.b.example"), record(12, endless.c_str())});
    std::string longest;
    for (int i = 0; i < 1024; ++i) {
        longest += "\\255";
    }
    EXPECT_EQ(targets(), (texts{"12 a\\032b.example", "12 new\\010line.\\127\\195\\169",
                                "12 a\\.b.example", "12 " + longest}));
}

TEST_F(dns_client, statuses_are_handed_on) {
    // Among them the missing name behind an alias, which comes with the alias' record.
    for (const DNS_STATUS status : {9002, 9003, 9005, 9501, 9502, 1460, 123}) {
        releases = 0;
        EXPECT_EQ(ask(status, {}), static_cast<uint32_t>(status));
        EXPECT_EQ(records, nullptr);
        EXPECT_EQ(releases, 0) << "there was nothing to release";
        EXPECT_EQ(ask(status, {record(6)}), static_cast<uint32_t>(status));
        EXPECT_EQ(records, nullptr);
        EXPECT_EQ(releases, 1) << "records next to a failure are released";
    }
    EXPECT_EQ(ask(0, {}), 0u);
    EXPECT_EQ(records, nullptr);
}

TEST_F(dns_client, details) {
    DNS_RECORDA address = record(1);
    address.Data.A.IpAddress = 0x0200007F; // network order: 127.0.0.2
    DNS_RECORDA address6 = record(28);
    memset(&address6.Data, 0, sizeof address6.Data);
    reinterpret_cast<unsigned char *>(&address6.Data)[15] = 1;
    DNS_RECORDA exchanger = record(15);
    exchanger.Data.MX.pNameExchange = const_cast<char *>("mx.example");
    exchanger.Data.MX.wPreference = 10;
    DNS_RECORDA glue = record(1);
    glue.Flags.S.Section = DnsSectionAddtional;
    next_status = 0;
    next_records = {record(5, "alias.example"),       address,    address6,   exchanger,
                    record(12, "new\nline.example."), record(12), record(16), glue};
    platform::dns_details known;
    EXPECT_EQ(platform::dns_query_detailed("a.example.", 1, 0, &records, &known), 0u);
    texts lines;
    for (const auto *one = known.records; one; one = one->next) {
        lines.push_back(one->text);
    }
    EXPECT_EQ(lines, (texts{"CNAME alias.example.", "A 127.0.0.2", "AAAA ::1", "MX 10 mx.example.",
                            "PTR new\\010line.example.", "PTR .", "TYPE16"}));
    EXPECT_STREQ(known.server, "") << "the system does not tell";
    EXPECT_EQ(known.transport, platform::dns_transport::unknown);
    EXPECT_EQ(known.tries, 0u);
    EXPECT_GE(known.microseconds, 0);
    EXPECT_EQ(known.response_code, 0);
    platform::dns_details_clear(&known);
}

TEST_F(dns_client, details_of_a_failure) {
    const struct {
        DNS_STATUS status;
        int32_t response_code;
    } cases[] = {{9002, 2},  {9003, 3},  {9005, 5},  {9010, 10}, {9501, 0},
                 {9011, -1}, {9000, -1}, {9502, -1}, {1460, -1}, {123, -1}};
    for (const auto &[status, response_code] : cases) {
        next_status = status;
        next_records = {record(5, "gone.example")};
        platform::dns_details known;
        EXPECT_EQ(platform::dns_query_detailed("a.example.", 1, 0, &records, &known),
                  static_cast<uint32_t>(status));
        EXPECT_EQ(known.status, static_cast<uint32_t>(status));
        EXPECT_EQ(known.response_code, response_code) << status;
        ASSERT_NE(known.records, nullptr);
        EXPECT_STREQ(known.records->text, "CNAME gone.example.");
        platform::dns_details_clear(&known);
    }
}

TEST_F(dns_client, no_other_server_can_be_named) {
    auto *client = reinterpret_cast<platform::dns_client *>(1);
    EXPECT_EQ(platform::dns_client_open("192.0.2.53", &client), 50u);
    EXPECT_EQ(client, nullptr);
}

TEST_F(dns_client, without_memory) {
    next_status = 0;
    next_records = {record(1), record(12, "host.example")};
    uint32_t status = 0;
    const unsigned failed =
        sweep_allocations([&] { status = platform::dns_query("a.example.", 12, 0, &records); },
                          [&](unsigned n) {
                              EXPECT_EQ(status, 8u) << n;
                              EXPECT_EQ(records, nullptr) << n;
                              EXPECT_EQ(releases, static_cast<int>(n))
                                  << "the system's records are released";
                          });
    EXPECT_EQ(failed, 3u) << "two records, one name";
    EXPECT_EQ(status, 0u);
}

} // namespace
} // namespace quillfence::testing
