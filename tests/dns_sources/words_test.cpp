#include "words.h"

#include <gtest/gtest.h>

#include "scripted_source.h"

namespace quillfence::testing {
namespace {

using namespace dns_sources;

TEST(dns_words, types) {
    const struct {
        const char *word;
        std::optional<uint16_t> want;
    } cases[] = {{"A", 1},          {"aaaa", 28}, {"Cname", 5},
                 {"NS", 2},         {"PTR", 12},  {"mx", 15},
                 {"TYPE99", 99},    {"type1", 1}, {"TYPE65535", 65535},
                 {"TYPE65536", {}}, {"TYPE", {}}, {"TYPE-1", {}},
                 {"TYPE1x", {}},    {"", {}},     {"AA", {}},
                 {"A ", {}},        {"TXT", {}}};
    for (const auto &[word, want] : cases) {
        EXPECT_EQ(type_of_word(word), want) << word;
    }
    EXPECT_EQ(type_word(15), "MX");
    EXPECT_EQ(type_word(16), "TYPE16");
}

TEST(dns_words, every_type_comes_back) {
    for (uint32_t type = 0; type < 65536; ++type) {
        EXPECT_EQ(type_of_word(type_word(static_cast<uint16_t>(type))), type);
    }
}

TEST(dns_words, response_codes) {
    EXPECT_EQ(response_code_word(0), "NOERROR");
    EXPECT_EQ(response_code_word(2), "SERVFAIL");
    EXPECT_EQ(response_code_word(3), "NXDOMAIN");
    EXPECT_EQ(response_code_word(5), "REFUSED");
    EXPECT_EQ(response_code_word(15), "RCODE15");
    for (uint32_t code = 0; code < 16; ++code) {
        EXPECT_EQ(response_code_of_word(response_code_word(code)), code);
    }
    EXPECT_EQ(response_code_of_word("nxdomain"), 3u);
    EXPECT_EQ(response_code_of_word("RCODE"), std::nullopt);
    EXPECT_EQ(response_code_of_word("never"), std::nullopt);
}

TEST(dns_words, whole_answers) {
    const struct {
        const char *word;
        uint32_t status;
        std::optional<uint32_t> code;
    } cases[] = {{"NXDOMAIN", nxdomain, 3},
                 {"ServFail", servfail, 2},
                 {"REFUSED", refused, 5},
                 {"NODATA", no_records, 0},
                 {"timeout", timed_out, {}}};
    for (const auto &[word, status, code] : cases) {
        const auto got = answer_of_word(word);
        ASSERT_TRUE(got) << word;
        EXPECT_EQ(got->status, status) << word;
        EXPECT_EQ(got->said, status) << word;
        EXPECT_EQ(got->response_code, code) << word;
        EXPECT_TRUE(got->records.empty());
    }
    EXPECT_FALSE(answer_of_word("NOERROR"));
    EXPECT_FALSE(answer_of_word("mail.example"));
    EXPECT_FALSE(answer_of_word(""));
}

TEST(dns_words, answers_of_a_server) {
    EXPECT_EQ(answer_of_server(0, {}).status, no_records);
    EXPECT_EQ(answer_of_server(0, {{1, "A 192.0.2.1"}}).status, 0u);
    EXPECT_EQ(answer_of_server(3, {{5, "CNAME x."}}).status, nxdomain) << "the code wins";
    EXPECT_EQ(answer_of_server(3, {{5, "CNAME x."}}).records.size(), 1u);
}

TEST(dns_words, domain_names) {
    const std::string label(63, 'x');
    const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'y');
    const struct {
        std::string name;
        bool want;
    } cases[] = {
        {"a", true},
        {"a.", true},
        {".", true},
        {"Mail.Example", true},
        {"_x-1.example", true},
        {"a\\.b.example", true},
        {"a\\032b", true},
        {"\\255", true},
        {label, true},
        {label + "x", false},
        {longest, true},
        {longest + ".", true},
        {longest + "y", false},
        {"", false},
        {"..", false},
        {".a", false},
        {"a..b", false},
        {"a b", false},
        {"a\tb", false},
        {"a\x7F", false},
        {"\xC3\xA9", false},
        {"a\\", false},
        {"\\256", false},
        {"\\25", false},
        {std::string("a\0b", 3), false},
    };
    for (const auto &[name, want] : cases) {
        EXPECT_EQ(is_domain_name(name), want) << name;
    }
    std::string escaped;
    for (int i = 0; i < 63; ++i) {
        escaped += "\\255";
    }
    EXPECT_TRUE(is_domain_name(escaped)) << "63 bytes";
    EXPECT_FALSE(is_domain_name(escaped + "\\255"));
}

TEST(dns_words, records) {
    const struct {
        const char *type;
        const char *data;
        const char *want; // a complaint has no "TYPE " in front
    } cases[] = {
        {"A", "192.0.2.1", "A 192.0.2.1"},
        {"a", "127.0.0.2", "A 127.0.0.2"},
        {"A", "192.0.2", "192.0.2 is no IPv4 address"},
        {"A", "192.0.2.001", "192.0.2.001 is no IPv4 address"},
        {"A", "2001:db8::1", "2001:db8::1 is no IPv4 address"},
        {"AAAA", "2001:DB8:0::1", "AAAA 2001:db8::1"},
        {"AAAA", "192.0.2.1", "192.0.2.1 is no IPv6 address"},
        {"PTR", "Mail.Example", "PTR Mail.Example."},
        {"PTR", "mail.example.", "PTR mail.example."},
        {"PTR", ".", "PTR ."},
        {"PTR", "a\\.", "PTR a\\.."},
        {"PTR", "a\\\\.", "PTR a\\\\."},
        {"PTR", "a b", "a b is no domain name"},
        {"CNAME", "x.example", "CNAME x.example."},
        {"NS", "ns.example", "NS ns.example."},
        {"MX", "10 mail.example", "MX 10 mail.example."},
        {"MX", "0 .", "MX 0 ."},
        {"MX", "65535 mail.example.", "MX 65535 mail.example."},
        {"MX", "mail.example", "MX 10 mail.example."},
        {"MX", "65536 mail.example",
         "65536 mail.example is no mail exchanger (\"10 mail.example.org\")"},
        {"MX", "10", "MX 10 10."},
        {"MX", "10 ", "10  is no mail exchanger (\"10 mail.example.org\")"},
        {"TXT", "v=spf1", "TXT is not one of A, AAAA, CNAME, MX, NS and PTR"},
        {"TYPE16", "x", "TYPE16 is not one of A, AAAA, CNAME, MX, NS and PTR"},
    };
    for (const auto &[type, data, want] : cases) {
        std::string complaint;
        const auto made = record_of_words(type, data, &complaint);
        EXPECT_EQ(made ? made->text : complaint, want);
        if (made) {
            EXPECT_EQ(made->type, type_of_word(type));
        }
    }
}

TEST(dns_words, names_that_ask_the_same) {
    EXPECT_EQ(name_key("Mail.EXAMPLE."), "mail.example");
    EXPECT_EQ(name_key("mail.example"), "mail.example");
    EXPECT_EQ(name_key("."), "");
    EXPECT_EQ(name_key(""), "");
    EXPECT_EQ(name_key("\xC3\x89."), "\xC3\x89") << "ASCII alone is folded";
}

} // namespace
} // namespace quillfence::testing
