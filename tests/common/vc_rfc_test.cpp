#include "vc_rfc.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_memory.h"
#include "log_capture.h"
#include "platform/net.h"

using namespace quillfence;
using quillfence::testing::failing_allocation;
using quillfence::testing::lines;
using quillfence::testing::log_line;

namespace {

constexpr char domain_minimum[] =
    "] does not meet minimum criteria for length, number of dots, first character, or last "
    "character";

std::string repeated(const std::string &text, size_t times) {
    std::string result;
    for (size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

// A test that sees the module's own lines, "E function: message" and "D function: message", and
// leaves out those of the modules below.
class vc_rfc : public quillfence::testing::traced_test {
  protected:
    lines own_lines() {
        lines own;
        for (const log_line &line : log.take()) {
            if (line.source == "vc_rfc") {
                own.push_back((line.priority == 3 ? "E " : "D ") + line.function + ": " +
                              line.message);
            }
        }
        return own;
    }
    // The last line, without its letter: what refused a text.
    std::string last_line() {
        const lines own = own_lines();
        return own.empty() ? "" : own.back().substr(2);
    }
};

// The strings of a list, which is released.
std::vector<std::string> strings_of(vc_list_entry *list) {
    std::vector<std::string> strings;
    for (const vc_list_entry *entry = list; entry; entry = entry->next) {
        strings.emplace_back(static_cast<const char *>(entry->data));
        EXPECT_EQ(entry->size, strings.back().size() + 1) << strings.back();
    }
    vc_destroy_list(&list, free);
    EXPECT_EQ(list, nullptr);
    return strings;
}

std::string string_of(char *text) {
    const std::string result = text ? text : "(none)";
    free(text);
    return result;
}

// --- Addresses ---

TEST_F(vc_rfc, is_ip_tells_the_family) {
    const struct {
        const char *text;
        int family;
        const char *line;
    } cases[] = {
        {"192.0.2.1", 2, "D vc_is_ip: [192.0.2.1] is an IPv4 address"},
        {"255.255.255.255", 2, "D vc_is_ip: [255.255.255.255] is an IPv4 address"},
        {"0.0.0.0", 2, "D vc_is_ip: [0.0.0.0] is an IPv4 address"},
        {"2001:db8::1", 23, "D vc_is_ip: [2001:db8::1] is an IPv6 address"},
        {"::", 23, "D vc_is_ip: [::] is an IPv6 address"},
        {"::ffff:192.0.2.1", 23, "D vc_is_ip: [::ffff:192.0.2.1] is an IPv6 address"},
        {"192.0.2", 0, "D vc_is_ip: [192.0.2] is not an ip address"},
        {"192.0.2.256", 0, "D vc_is_ip: [192.0.2.256] is not an ip address"},
        {"192.0.2.01", 0, "D vc_is_ip: [192.0.2.01] is not an ip address"},
        {"192.0.2.1.", 0, "D vc_is_ip: [192.0.2.1.] is not an ip address"},
        {" 192.0.2.1", 0, "D vc_is_ip: [ 192.0.2.1] is not an ip address"},
        {"0xc0000201", 0, "D vc_is_ip: [0xc0000201] is not an ip address"},
        {"2001:db8::1::2", 0, "D vc_is_ip: [2001:db8::1::2] is not an ip address"},
        {"mail.example.com", 0, "D vc_is_ip: [mail.example.com] is not an ip address"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_is_ip(c.text), c.family) << c.text;
        EXPECT_EQ(own_lines(), lines{c.line});
    }
}

TEST_F(vc_rfc, is_ip_refuses_an_empty_text) {
    EXPECT_EQ(vc_is_ip(nullptr), 0);
    EXPECT_EQ(own_lines(), lines{"E vc_is_ip: Invalid argument"});
    EXPECT_EQ(vc_is_ip(""), 0);
    EXPECT_EQ(own_lines(), lines{"E vc_is_ip: Invalid argument"});
}

TEST_F(vc_rfc, is_ipv6) {
    EXPECT_EQ(vc_is_ipv6("2001:db8::1"), 1);
    EXPECT_EQ(vc_is_ipv6("::1"), 1);
    EXPECT_EQ(vc_is_ipv6("192.0.2.1"), 0);
    EXPECT_EQ(vc_is_ipv6("mail.example.com"), 0);
    EXPECT_EQ(own_lines(), lines{});
    EXPECT_EQ(vc_is_ipv6(nullptr), 0);
    EXPECT_EQ(vc_is_ipv6(""), 0);
    EXPECT_EQ(own_lines(),
              (lines{"E vc_is_ipv6: Invalid argument", "E vc_is_ipv6: Invalid argument"}));
}

TEST_F(vc_rfc, unroutable_addresses) {
    for (const char *text : {"0.0.0.0",     "0.255.255.255",   "10.1.2.3",        "10.255.255.255",
                             "127.0.0.1",   "127.255.255.255", "240.0.0.1",       "255.255.255.255",
                             "247.1.1.1",   "169.254.0.0",     "169.254.255.255", "172.16.0.0",
                             "172.31.0.1",  "172.31.255.255",  "192.168.0.0",     "192.168.255.255",
                             "fc00::",      "fc00::1",         "fdff:ffff::1",    "::",
                             "::1",         "::ffff:8.8.8.8",  "::ffff:0:0",      "fe80::1",
                             "febf:ffff::1"}) {
        EXPECT_EQ(vc_is_unroutable_ip(text), 1) << text;
        for (const std::string &line : own_lines()) {
            EXPECT_TRUE(line.starts_with("D vc_is_ip: ")) << line;
        }
    }
}

TEST_F(vc_rfc, routable_addresses) {
    for (const std::string text : {"1.0.0.0",
                                   "9.255.255.255",
                                   "11.0.0.0",
                                   "126.255.255.255",
                                   "128.0.0.0",
                                   "239.255.255.255",
                                   "224.0.0.1",
                                   "169.253.255.255",
                                   "169.255.0.0",
                                   "172.15.255.255",
                                   "172.32.0.1",
                                   "192.167.255.255",
                                   "192.169.0.0",
                                   "100.64.0.1",
                                   "192.0.2.1",
                                   "198.18.0.1",
                                   "8.8.8.8",
                                   "2001:db8::1",
                                   "fbff::1",
                                   "fe00::1",
                                   "fe7f:ffff::1",
                                   "fec0::1",
                                   "ff02::1",
                                   "::2",
                                   "::101",
                                   "::1:ffff:808:808",
                                   "::fffe:808:808",
                                   "0:0:0:0:1:ffff:808:808",
                                   "1::",
                                   "1::1"}) {
        EXPECT_EQ(vc_is_unroutable_ip(text.c_str()), 0) << text;
        EXPECT_EQ(last_line(), "vc_is_unroutable_ip: Address [" + text +
                                   "] is not a private or reserved address");
    }
}

TEST_F(vc_rfc, unroutable_needs_an_address) {
    EXPECT_EQ(vc_is_unroutable_ip("mail.example.com"), 0);
    EXPECT_EQ(own_lines(), (lines{"D vc_is_ip: [mail.example.com] is not an ip address",
                                  "E vc_is_unroutable_ip: Address [mail.example.com] is not a "
                                  "valid ipv4 or ipv6 address"}));
    EXPECT_EQ(vc_is_unroutable_ip(""), 0);
    EXPECT_EQ(own_lines(),
              (lines{"E vc_is_ip: Invalid argument",
                     "E vc_is_unroutable_ip: Address [] is not a valid ipv4 or ipv6 address"}));
    EXPECT_EQ(vc_is_unroutable_ip(nullptr), 0);
    EXPECT_EQ(
        own_lines(),
        (lines{"E vc_is_ip: Invalid argument",
               "E vc_is_unroutable_ip: Address [(null)] is not a valid ipv4 or ipv6 address"}));
}

int conversions_left;
platform::net_status ready_for_a_while(const char *, int *) {
    return conversions_left-- > 0 ? platform::net_status::ok : platform::net_status::no_entry;
}

TEST_F(vc_rfc, unroutable_needs_the_conversion) {
    conversions_left = 1; // for vc_is_ip
    platform::set_net_prepare_stand_in(ready_for_a_while);
    EXPECT_EQ(vc_is_unroutable_ip("10.1.2.3"), 0);
    platform::set_net_prepare_stand_in(nullptr);
    EXPECT_EQ(own_lines(), (lines{"D vc_is_ip: [10.1.2.3] is an IPv4 address",
                                  "E vc_is_unroutable_ip: Failed to convert address [10.1.2.3] to "
                                  "binary buffer"}));
}

TEST_F(vc_rfc, localhost_is_two_texts) {
    EXPECT_EQ(is_localhost("127.0.0.1"), 1);
    EXPECT_EQ(is_localhost("::1"), 1);
    for (const char *text : {"127.0.0.2", "127.0.0.10", "0:0:0:0:0:0:0:1", "localhost", "", "::"}) {
        EXPECT_EQ(is_localhost(text), 0) << text;
    }
    EXPECT_EQ(is_localhost(nullptr), 0);
    EXPECT_EQ(own_lines(), lines{});
}

// --- Domains ---

TEST_F(vc_rfc, valid_domains) {
    const std::string long_label(300, 'a');
    for (const std::string &text : std::vector<std::string>{
             "a.b", "-a.b", "a-.b-", "Mail.Example.COM", "xn--nxasmq6b.example", "a.b.c.d.e",
             long_label + ".example", "a.1", "mail.4", "-.-"}) {
        EXPECT_EQ(vc_valid_domain(text.c_str()), 1) << text;
        EXPECT_EQ(own_lines(), lines{}) << text;
    }
    EXPECT_EQ(vc_valid_domain("1and1.example"), 1);
    EXPECT_EQ(own_lines(), lines{"D vc_is_ip: [1and1.example] is not an ip address"});
}

TEST_F(vc_rfc, domains_below_the_minimum) {
    for (const std::string text :
         {"", "a", "ab", "a.", ".b", "abc", "localhost", ".ab", "ab.", "...", ".a.b", "a.b."}) {
        EXPECT_EQ(vc_valid_domain(text.c_str()), 0) << text;
        EXPECT_EQ(own_lines(), lines{"D vc_valid_domain: domain [" + text + domain_minimum});
    }
    EXPECT_EQ(vc_valid_domain(nullptr), 0);
    EXPECT_EQ(own_lines(),
              lines{std::string("D vc_valid_domain: domain [(null)") + domain_minimum});
}

TEST_F(vc_rfc, an_address_is_no_domain) {
    EXPECT_EQ(vc_valid_domain("1.2.3.4"), 0);
    EXPECT_EQ(own_lines(), (lines{"D vc_is_ip: [1.2.3.4] is an IPv4 address",
                                  "D vc_valid_domain: [1.2.3.4] is an IP address"}));
    // Only a first digit asks; this one fails for its colons.
    EXPECT_EQ(vc_valid_domain("::ffff:1.2.3.4"), 0);
    EXPECT_EQ(own_lines(),
              lines{"D vc_valid_domain: domain [::ffff:1.2.3.4] contains invalid characters"});
}

TEST_F(vc_rfc, domains_with_wrong_characters) {
    EXPECT_EQ(vc_valid_domain("a..b"), 0);
    EXPECT_EQ(own_lines(),
              lines{"D vc_valid_domain: domain [a..b] contains consecutive '.' characters"});
    for (const std::string text :
         {"a_b.example", "a b.example", "a.example ", "a@b.example", "a.b/c", "a.b\"", "(a).b"}) {
        EXPECT_EQ(vc_valid_domain(text.c_str()), 0) << text;
        EXPECT_EQ(own_lines(),
                  lines{"D vc_valid_domain: domain [" + text + "] contains invalid characters"});
    }
    EXPECT_EQ(vc_valid_domain("m\xC3\xBCller.example"), 0);
    EXPECT_EQ(own_lines(),
              lines{"D vc_valid_domain: domain [m??ller.example] contains invalid characters"});
}

// --- Every character in its place ---

// The bytes for which accepts() is true, as a text.
template <class Accepts>
std::string accepted_bytes(Accepts accepts) {
    std::string accepted;
    for (int c = 1; c < 256; ++c) {
        if (accepts(static_cast<char>(c))) {
            accepted += static_cast<char>(c);
        }
    }
    return accepted;
}

constexpr char digits[] = "0123456789";
constexpr char capitals[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr char small_letters[] = "abcdefghijklmnopqrstuvwxyz";

// The characters in the order of their codes.
std::string sorted(std::string text) {
    std::sort(text.begin(), text.end());
    return text;
}

TEST_F(vc_rfc, characters_of_a_domain) {
    EXPECT_EQ(accepted_bytes(
                  [](char c) { return vc_valid_domain((std::string("a.b") + c + "d").c_str()); }),
              sorted(std::string("-.") + digits + capitals + small_letters));
}

TEST_F(vc_rfc, characters_of_a_user) {
    EXPECT_EQ(accepted_bytes([](char c) {
                  return vc_valid_email_address((std::string("a") + c + "b@example.com").c_str());
              }),
              sorted(std::string("!#$%&'*+-/=?^_`{|}~.") + digits + capitals + small_letters));
}

TEST_F(vc_rfc, characters_beside_a_bracketed_address) {
    EXPECT_EQ(accepted_bytes([](char c) {
                  return vc_rfc822_email_address((c + std::string(" <u@example.com>")).c_str(),
                                                 nullptr);
              }),
              sorted(std::string(" !#$%&')*+-./=>?^_`{|}~") + digits + capitals + small_letters));
}

// --- Mail addresses ---

TEST_F(vc_rfc, valid_email_addresses) {
    const std::string long_user(500, 'u');
    const std::string longest_domain = std::string(250, 'd') + ".com"; // 254 characters
    for (const std::string &text : std::vector<std::string>{
             "u@a.b", "first.last@example.com", "!#$%&'*+-/=?^_`{|}~.x@example.com",
             "U1@Example.COM", long_user + "@example.com", "u@" + longest_domain}) {
        EXPECT_EQ(vc_valid_email_address(text.c_str()), 1) << text;
        const lines own = own_lines();
        ASSERT_EQ(own.size(), 1u) << text;
        EXPECT_TRUE(own[0].starts_with("D vc_valid_email_address: parameter [")) << own[0];
    }
}

TEST_F(vc_rfc, refused_email_addresses) {
    const struct {
        const char *text;
        const char *reason; // with @ for the address
    } cases[] = {
        {"user", "address [user] missing '@' character"},
        {"@example.com", "address [@example.com] missing user portion"},
        {"@", "address [@] missing user portion"},
        {"user@", "invalid domain part for address [user@]"},
        {"user@localhost", "invalid domain part for address [user@localhost]"},
        {"user@192.0.2.1", "invalid domain part for address [user@192.0.2.1]"},
        {"user@[192.0.2.1]", "invalid domain part for address [user@[192.0.2.1]]"},
        {"a@b@example.com", "invalid domain part for address [a@b@example.com]"},
        {"user@example..com", "invalid domain part for address [user@example..com]"},
        {"user@example.com ", "invalid domain part for address [user@example.com ]"},
        {".user@example.com", "address [.user@example.com] violates RFC pattern specifications"},
        {"user.@example.com", "address [user.@example.com] violates RFC pattern specifications"},
        {"us..er@example.com", "address [us..er@example.com] violates RFC pattern specifications"},
        {"us er@example.com", "address [us er@example.com] contains invalid characters"},
        {" user@example.com", "address [ user@example.com] contains invalid characters"},
        {"us\"er@example.com", "address [us\"er@example.com] contains invalid characters"},
        {"us,er@example.com", "address [us,er@example.com] contains invalid characters"},
        {"(user)@example.com", "address [(user)@example.com] contains invalid characters"},
        {"us\\er@example.com", "address [us\\er@example.com] contains invalid characters"},
        {"\xFC@example.com", "address [?@example.com] contains invalid characters"},
        {"us\x7F@example.com", "address [us?@example.com] contains invalid characters"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_valid_email_address(c.text), 0) << c.text;
        EXPECT_EQ(last_line(), std::string("vc_valid_email_address: ") + c.reason);
    }
}

TEST_F(vc_rfc, email_address_lines_in_order) {
    EXPECT_EQ(vc_valid_email_address("u@1.2.3.4"), 0);
    EXPECT_EQ(own_lines(), (lines{"D vc_valid_email_address: parameter [u@1.2.3.4]",
                                  "D vc_is_ip: [1.2.3.4] is an IPv4 address",
                                  "D vc_valid_domain: [1.2.3.4] is an IP address",
                                  "D vc_valid_email_address: invalid domain part for address "
                                  "[u@1.2.3.4]"}));
    // An empty domain is not asked about.
    EXPECT_EQ(vc_valid_email_address("u@"), 0);
    EXPECT_EQ(own_lines(),
              (lines{"D vc_valid_email_address: parameter [u@]",
                     "D vc_valid_email_address: invalid domain part for address [u@]"}));
}

TEST_F(vc_rfc, email_address_with_a_long_domain) {
    const std::string text = "u@" + std::string(251, 'd') + ".com"; // 255 characters
    EXPECT_EQ(vc_valid_email_address(text.c_str()), 0);
    EXPECT_EQ(last_line(), "vc_valid_email_address: domain portion is greater than RFC "
                           "specifications permit");
}

TEST_F(vc_rfc, email_address_refuses_an_empty_text) {
    EXPECT_EQ(vc_valid_email_address(nullptr), 0);
    EXPECT_EQ(vc_valid_email_address(""), 0);
    EXPECT_EQ(own_lines(), (lines{"E vc_valid_email_address: Invalid argument",
                                  "E vc_valid_email_address: Invalid argument"}));
}

// --- Quotes ---

// Where __vc_parse_quotes goes on in a text, or -1 for null.
int after_quotes(std::string text) {
    const char *const behind = __vc_parse_quotes(text.data());
    return behind ? static_cast<int>(behind - text.data()) : -1;
}

TEST_F(vc_rfc, quotes_are_skipped) {
    const struct {
        const char *text;
        int behind;
    } cases[] = {
        {"\"\"x", 2},         {"\"ab\" <u@example.com>", 4}, {"\"a\\\"b\" x", 6},
        {"\"a\\\\\"x", 5},    {"\"a\\\\\\\"b\"x", 8},        {"\"a,(b<c@d\" ", 10},
        {"\"a\" \"b\" c", 3},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(after_quotes(c.text), c.behind) << c.text;
        EXPECT_EQ(own_lines(), lines{"D __vc_parse_quotes: found end of quote marker: "
                                     "incrementing"});
    }
}

TEST_F(vc_rfc, quotes_that_end_the_text_are_illegal) {
    EXPECT_EQ(after_quotes("\"abc\""), -1);
    EXPECT_EQ(own_lines(),
              (lines{"D __vc_parse_quotes: found end of quote marker: incrementing",
                     "D __vc_parse_quotes: found illegal quotation at end of address"}));
}

TEST_F(vc_rfc, quotes_that_are_not_closed_are_illegal) {
    for (const char *text : {"\"", "\"abc", "\"abc\\\"", "\"abc\\", "\"\\", "\"abc\\\\\\\""}) {
        EXPECT_EQ(after_quotes(text), -1) << text;
        EXPECT_EQ(own_lines(),
                  lines{"D __vc_parse_quotes: found illegal quotation at end of address"})
            << text;
    }
}

TEST_F(vc_rfc, quotes_hold_printable_characters) {
    for (const char *text : {"\"a\tb\"x", "\"\x80\"x", "\"a\\\x01\"x", "\"\x7F\"x", "\"a\n"}) {
        EXPECT_EQ(after_quotes(text), -1) << text;
        EXPECT_EQ(own_lines(), lines{"D __vc_parse_quotes: Found non printable character"});
    }
}

TEST_F(vc_rfc, quotes_begin_at_a_quote) {
    EXPECT_EQ(__vc_parse_quotes(nullptr), nullptr);
    EXPECT_EQ(after_quotes("abc\"x"), -1);
    EXPECT_EQ(after_quotes(""), -1);
    EXPECT_EQ(own_lines(), (lines(3, "E __vc_parse_quotes: Invalid argument")));
}

// --- Comments ---

// The text after __vc_parse_comment; "(none)" when it gives 0.
std::string without_comment(std::string text) {
    char *out = nullptr;
    if (!__vc_parse_comment(text.data(), &out)) {
        EXPECT_EQ(out, nullptr);
        return "(none)";
    }
    EXPECT_EQ(out, text.data()) << text;
    return text.c_str();
}

TEST_F(vc_rfc, a_comment_is_removed) {
    EXPECT_EQ(without_comment("(note) u@example.com"), " u@example.com");
    EXPECT_EQ(own_lines(),
              (lines{"D __vc_parse_comment: parsing [(note) u@example.com]",
                     "D __vc_parse_comment: found end of comment marker. Removing comment",
                     "D __vc_parse_comment: content of string where ptr is: [ u@example.com]",
                     "D __vc_parse_comment: after shift: [ u@example.com]"}));
    EXPECT_EQ(without_comment("()"), "");
    EXPECT_EQ(own_lines(),
              (lines{"D __vc_parse_comment: parsing [()]",
                     "D __vc_parse_comment: found end of comment marker. Removing comment",
                     "D __vc_parse_comment: content of string where ptr is: []",
                     "D __vc_parse_comment: after shift: []"}));
}

TEST_F(vc_rfc, nested_comments_go_from_the_inside) {
    EXPECT_EQ(without_comment("(a(b)c)d"), "d");
    EXPECT_EQ(own_lines(),
              (lines{"D __vc_parse_comment: parsing [(a(b)c)d]",
                     "D __vc_parse_comment: Found nested comment.. re looping",
                     "D __vc_parse_comment: parsing [(b)c)d]",
                     "D __vc_parse_comment: found end of comment marker. Removing comment",
                     "D __vc_parse_comment: content of string where ptr is: [c)d]",
                     "D __vc_parse_comment: after shift: [c)d]",
                     "D __vc_parse_comment: found end of comment marker. Removing comment",
                     "D __vc_parse_comment: content of string where ptr is: [d]",
                     "D __vc_parse_comment: after shift: [d]"}));
}

TEST_F(vc_rfc, a_backslash_in_a_comment_escapes) {
    EXPECT_EQ(without_comment("(a\\)b)c"), "c");
    EXPECT_EQ(own_lines(),
              (lines{"D __vc_parse_comment: parsing [(a\\)b)c]",
                     "D __vc_parse_comment: found escape character, next character is exempt",
                     "D __vc_parse_comment: found end of comment marker. Removing comment",
                     "D __vc_parse_comment: content of string where ptr is: [c]",
                     "D __vc_parse_comment: after shift: [c]"}));
    EXPECT_EQ(without_comment("(\\(a)c"), "c");
    EXPECT_EQ(without_comment("(\\\\)c"), "c");
    EXPECT_EQ(without_comment("(\"a)\")c"), "\")c"); // quotes mean nothing in a comment
    EXPECT_EQ(without_comment("(\x80\t)c"), "c");
}

TEST_F(vc_rfc, a_comment_must_be_closed) {
    for (const char *text : {"(", "(abc", "(a(b)", "(abc\\)", "(abc\\", "(a(b", "(\\"}) {
        EXPECT_EQ(without_comment(text), "(none)") << text;
    }
    own_lines();
    EXPECT_EQ(without_comment("(a(b)"), "(none)");
    EXPECT_EQ(own_lines(),
              (lines{"D __vc_parse_comment: parsing [(a(b)]",
                     "D __vc_parse_comment: Found nested comment.. re looping",
                     "D __vc_parse_comment: parsing [(b)]",
                     "D __vc_parse_comment: found end of comment marker. Removing comment",
                     "D __vc_parse_comment: content of string where ptr is: []",
                     "D __vc_parse_comment: after shift: []"}));
}

TEST_F(vc_rfc, comments_nest_a_thousand_deep) {
    EXPECT_EQ(without_comment(repeated("(", 1000) + repeated(")", 1000) + "x"), "x");
    EXPECT_EQ(without_comment(repeated("(", 1001) + repeated(")", 1001) + "x"), "(none)");
    EXPECT_EQ(without_comment(repeated("(", 200000)), "(none)");
    EXPECT_EQ(without_comment("(" + repeated("(a)", 2000) + ")x"), "x"); // wide is not deep
}

TEST_F(vc_rfc, comments_begin_at_a_parenthesis) {
    std::string text = "abc)";
    char *out = nullptr;
    EXPECT_EQ(__vc_parse_comment(nullptr, &out), 0);
    EXPECT_EQ(__vc_parse_comment(text.data(), &out), 0);
    text = "(abc)";
    EXPECT_EQ(__vc_parse_comment(text.data(), nullptr), 0);
    EXPECT_EQ(own_lines(), (lines(3, "E __vc_parse_comment: Invalid argument")));
    EXPECT_EQ(text, "(abc)");
}

// --- Bracketed addresses ---

TEST_F(vc_rfc, bracketed_addresses) {
    const struct {
        const char *name, *text;
        int behind;       // -1 when refused
        const char *line; // the last one
    } cases[] = {
        {"address", "<u@example.com> x", 15, "vc_valid_email_address: parameter [u@example.com]"},
        {"white space inside", "< \tu@example.com\r\n >", 20,
         "vc_valid_email_address: parameter [u@example.com]"},
        {"not closed", "<u@example.com", -1,
         "__vc_parse_rfc_address: missing closing '>' for rfc address"},
        {"one letter", "<a>x", 3,
         "__vc_parse_rfc_address: RFC address portion detected as empty. Passing as bounce"},
        {"one blank", "< >", 3,
         "__vc_parse_rfc_address: RFC address portion detected as empty. Passing as bounce"},
        {"one opening bracket", "<<>", 3,
         "__vc_parse_rfc_address: RFC address portion detected as empty. Passing as bounce"},
        {"nothing", "<>x", 2,
         "__vc_parse_rfc_address: RFC address portion detected as empty. Passing as bounce (2)"},
        {"two blanks", "<  >", 4,
         "__vc_parse_rfc_address: RFC address portion detected as empty. Passing as bounce (2)"},
        {"no address", "<ab>", -1, "vc_valid_email_address: address [ab] missing '@' character"},
        {"comment inside", "<u@example.com(c)>", -1,
         "vc_valid_email_address: invalid domain part for address [u@example.com(c)]"},
    };
    for (const auto &c : cases) {
        std::string text = c.text;
        char *out = nullptr;
        const int result = __vc_parse_rfc_address(text.data(), &out);
        EXPECT_EQ(result, c.behind < 0 ? 0 : 1) << c.name;
        EXPECT_EQ(out, c.behind < 0 ? nullptr : text.data() + c.behind) << c.name;
        EXPECT_EQ(text, c.text) << c.name;
        EXPECT_EQ(last_line(), c.line) << c.name;
    }
}

TEST_F(vc_rfc, bracketed_addresses_begin_at_a_bracket) {
    std::string text = "u@example.com>";
    char *out = nullptr;
    EXPECT_EQ(__vc_parse_rfc_address(nullptr, &out), 0);
    EXPECT_EQ(__vc_parse_rfc_address(text.data(), &out), 0);
    text = "<>";
    EXPECT_EQ(__vc_parse_rfc_address(text.data(), nullptr), 0);
    EXPECT_EQ(own_lines(), (lines(3, "E __vc_parse_rfc_address: Invalid argument")));
}

// --- MAIL FROM ---

TEST_F(vc_rfc, mail_from_of_a_bounce) {
    uint8_t bracketed = 0;
    EXPECT_EQ(vc_rfc822_email_address(nullptr, &bracketed), 1);
    EXPECT_EQ(vc_rfc822_email_address("", &bracketed), 1);
    EXPECT_EQ(bracketed, 0);
    EXPECT_EQ(own_lines(), (lines(2, "D vc_rfc822_email_address: argument is empty or NULL, "
                                     "returning true in the event this is a Mailer-Daemon "
                                     "bounce")));
}

TEST_F(vc_rfc, accepted_mail_from) {
    const struct {
        const char *text;
        int bracketed;
    } cases[] = {
        {"u@example.com", 0},
        {"  u@example.com  ", 0},
        {"u@example.com (comment)", 0},
        {"(comment)u@example.com", 0},
        {"u(a(b)c)@(d)example.com", 0},
        {"u@example.com (un\"closed quote, in: a comment)", 0},
        {"<u@example.com>", 1},
        {"  <u@example.com>  ", 1},
        {"< u@example.com >", 1},
        {"<>", 1},
        {"<a>", 1},
        {"<  >", 1},
        {"Some Name <u@example.com>", 1},
        {"<u@example.com> Some Name", 1},
        {"<u@example.com> SIZE=1000", 1},
        {"\"Name, Some\" <u@example.com>", 1},
        {"\"u@example.com\" <u@example.com>", 1},
        {"\"(not a comment\" <u@example.com>", 1},
        {"\"a \\\"b\\\" c\" \"d\" <u@example.com>", 1},
        {"(comment) <u@example.com> (comment with @ and <>)", 1},
        {"\"Some\" (comment) Name <>", 1},
    };
    for (const auto &c : cases) {
        uint8_t bracketed = 0;
        EXPECT_EQ(vc_rfc822_email_address(c.text, &bracketed), 1) << c.text;
        EXPECT_EQ(bracketed, c.bracketed) << c.text;
        EXPECT_EQ(vc_rfc822_email_address(c.text, nullptr), 1) << c.text;
    }
}

TEST_F(vc_rfc, refused_mail_from) {
    const struct {
        const char *text;
        const char *reason;
    } cases[] = {
        {"u\t@example.com", "non-printable character found in address"},
        {"\xFC@example.com", "non-printable character found in address"},
        {"<u@example.com>\r\n", "non-printable character found in address"},
        {"a,u@example.com", "Invalid character , found in raw address"},
        {"a:u@example.com", "Invalid character : found in raw address"},
        {"u@example.com;", "Invalid character ; found in raw address"},
        {"u@[192.0.2.1]", "Invalid character [ found in raw address"},
        {"u\\@example.com", "Invalid character \\ found in raw address"},
        {"u]@example.com", "Invalid character ] found in raw address"},
        {"<u@example.com>, <v@example.com>", "Invalid character , found in raw address"},
        {"<u@example.com> \"name\"", "found quotes after RFC address"},
        {"\"name\"", "invalid quoted phrase"},
        {"\"name <u@example.com>", "invalid quoted phrase"},
        {"\"na\tme\" <u@example.com>", "invalid quoted phrase"},
        {"\"name\\", "invalid quoted phrase"},
        {"(comment <u@example.com>", "comment parse failed"},
        {"u@example.com (a\\)", "comment parse failed"},
        {"<u@example.com> <v@example.com>",
         "RFC address already found once.. we won't accept another"},
        {"<><>", "RFC address already found once.. we won't accept another"},
        {"<u@example.com", "RFC address parse failed"},
        {"<user>", "RFC address parse failed"},
        {"\"name\" u@example.com", "Quotes require RFC braces"},
        {"\"name\" ", "Quotes require RFC braces"},
        {"   ", "Empty string after parsing and trimming"},
        {"(comment)", "Empty string after parsing and trimming"},
        {" (a) (b) ", "Empty string after parsing and trimming"},
        {"<u@example.com> v@example.com", "Found unquoted '@' symbol outside of email address"},
        {"v@example.com <u@example.com>", "Found unquoted '@' symbol outside of email address"},
        {"@ <>", "Found unquoted '@' symbol outside of email address"},
    };
    for (const auto &c : cases) {
        uint8_t bracketed = 0;
        EXPECT_EQ(vc_rfc822_email_address(c.text, &bracketed), 0) << c.text;
        EXPECT_EQ(bracketed, 0) << c.text;
        EXPECT_EQ(last_line(), std::string("vc_rfc822_email_address: ") + c.reason) << c.text;
    }
    EXPECT_EQ(vc_rfc822_email_address("user", nullptr), 0);
    EXPECT_EQ(last_line(), "vc_valid_email_address: address [user] missing '@' character");
    EXPECT_EQ(vc_rfc822_email_address("u@example.com x", nullptr), 0);
    EXPECT_EQ(last_line(),
              "vc_valid_email_address: invalid domain part for address [u@example.com x]");
}

TEST_F(vc_rfc, mail_from_lines_in_order) {
    EXPECT_EQ(vc_rfc822_email_address("\"N\" (c) <u@a.b> v@w", nullptr), 0);
    EXPECT_EQ(own_lines(),
              (lines{"D __vc_parse_quotes: found end of quote marker: incrementing",
                     "D __vc_parse_comment: parsing [(c) <u@a.b> v@w]",
                     "D __vc_parse_comment: found end of comment marker. Removing comment",
                     "D __vc_parse_comment: content of string where ptr is: [ <u@a.b> v@w]",
                     "D __vc_parse_comment: after shift: [ <u@a.b> v@w]",
                     "D vc_valid_email_address: parameter [u@a.b]",
                     "D vc_rfc822_email_address: Found unquoted '@' symbol outside of email "
                     "address"}));
}

TEST_F(vc_rfc, a_bare_mail_from_is_judged_without_its_comments) {
    EXPECT_EQ(vc_rfc822_email_address(" u(x)@a.b (y) ", nullptr), 1);
    EXPECT_EQ(last_line(), "vc_valid_email_address: parameter [u@a.b]");
}

// Kept on purpose: a check that can't be run accepts what it would refuse with memory.
TEST_F(vc_rfc, mail_from_is_accepted_without_memory) {
    const std::string enomem = std::strerror(ENOMEM);
    const struct {
        const char *name;
        unsigned failing; // allocation
        int want, bracketed;
        lines want_lines;
    } cases[] = {
        {"the working copy",
         1,
         1,
         0,
         {"E vc_rfc822_email_address: " + enomem,
          "D vc_rfc822_email_address: out of memory allocating address copy - returning true as "
          "this check can't be run"}},
        {"the copy of the address",
         2,
         1,
         1,
         {"E __vc_parse_rfc_address: " + enomem,
          "D __vc_parse_rfc_address: out of memory allocating copy of address. Passing back true "
          "for now."}},
        {"none",
         3,
         0,
         0,
         {"D vc_valid_email_address: parameter [no address]",
          "D vc_valid_email_address: address [no address] missing '@' character",
          "D vc_rfc822_email_address: RFC address parse failed"}},
    };
    for (const auto &c : cases) {
        uint8_t bracketed = 0;
        int accepted;
        {
            const failing_allocation failing(c.failing);
            accepted = vc_rfc822_email_address("<no address>", &bracketed);
        }
        EXPECT_EQ(accepted, c.want) << c.name;
        EXPECT_EQ(bracketed, c.bracketed) << c.name;
        EXPECT_EQ(own_lines(), c.want_lines) << c.name;
    }
}

// --- Address lists ---

TEST_F(vc_rfc, address_lists_split_at_commas) {
    const struct {
        const char *name, *text;
        std::vector<std::string> parts;
    } cases[] = {
        {"one", "u@example.com", {"u@example.com"}},
        {"two", "a@example.com, b@example.com", {"a@example.com", "b@example.com"}},
        {"comma in quotes",
         "a@example.com,\"Name, Some\" <b@example.com>",
         {"a@example.com", "\"Name, Some\" <b@example.com>"}},
        {"comma in a comment", "a (x, y), b", {"a (x, y)", "b"}},
        {"nested comment", "a (x (y, z), w), b", {"a (x (y, z), w)", "b"}},
        {"escaped quote", "\"a\\\", b\", c", {"\"a\\\", b\"", "c"}},
        {"escaped backslash", "\"a\\\\\", c", {"\"a\\\\\"", "c"}},
        {"escaped parenthesis", "(a\\), b), c", {"(a\\), b)", "c"}},
        {"escaped opening parenthesis", "(a\\(), c", {"(a\\()", "c"}},
        {"quote in a comment", "(a \" b), c, \"d\"", {"(a \" b)", "c", "\"d\""}},
        {"parenthesis in quotes", "\"a (\", b", {"\"a (\"", "b"}},
        {"backslash outside", "a\\, b", {"a\\", "b"}},
        {"lone closing parenthesis", "a), b", {"a)", "b"}},
        {"white space simplified", "  a   b \t, \t c\td ", {"a b", "c\td"}},
        {"empty parts", ",a,,b", {"", "a", "", "b"}},
        {"blank part inside", "a,  ,b", {"a", "", "b"}},
        {"empty last part", "a,", {"a"}},
        {"blank last part", "a,  ", {"a"}},
        {"comma alone", ",", {""}},
        {"blanks alone", "   ", {}},
        {"quote not closed", "a, \"b, c", {"a", "\"b, c"}},
        {"comment not closed", "a, (b, c), (d, e", {"a", "(b, c)", "(d, e"}},
        {"backslash last in quotes", "a, \"b\\", {"a", "\"b\\"}},
        {"backslash last in a comment", "a, (b\\", {"a", "(b\\"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(strings_of(vc_split_addresses(c.text)), c.parts) << c.name;
        EXPECT_EQ(own_lines(), lines{}) << c.name;
    }
}

TEST_F(vc_rfc, a_comment_in_a_list_nests_a_thousand_deep) {
    const std::string deep = repeated("(", 1000) + "a,b" + repeated(")", 1000);
    EXPECT_EQ(strings_of(vc_split_addresses((deep + ",c").c_str())),
              (std::vector<std::string>{deep, "c"}));
    const std::string deeper = "(" + deep + ")";
    EXPECT_EQ(strings_of(vc_split_addresses((deeper + ",c").c_str())),
              (std::vector<std::string>{deeper + ",c"}));
}

TEST_F(vc_rfc, splitting_nothing_is_an_error) {
    EXPECT_EQ(vc_split_addresses(nullptr), nullptr);
    EXPECT_EQ(vc_split_addresses(""), nullptr);
    EXPECT_EQ(own_lines(), (lines(2, "E vc_split_addresses: Invalid argument")));
}

TEST_F(vc_rfc, addresses_of_mailboxes) {
    const struct {
        const char *name, *text, *address;
    } cases[] = {
        {"bare", "u@example.com", "u@example.com"},
        {"capitals and blanks", "  User@Example.COM ", "user@example.com"},
        {"bracketed", "Some Name <User@Example.com>", "user@example.com"},
        {"blanks inside", "< u@example.com >", "u@example.com"},
        {"text behind", "<u@example.com> \x80 <v@example.com>", "u@example.com"},
        {"quoted name", "\"A <b@c> (d\" <u@example.com>", "u@example.com"},
        {"comment with a bracket", "(a <b@c>) <u@example.com>", "u@example.com"},
        {"bare with comments", "(a)u@example.com(b(c))", "u@example.com"},
        {"quotes and no bracket", "\"A\" u@example.com", "\"a\" u@example.com"},
        {"no address at all", "Some Name", "some name"},
        {"first closing bracket", "<a>b>", "a"},
        {"comment unopened", "a) <u@example.com>", "u@example.com"},
        {"unprintable in a comment", "(\xC3\xBC) <u@example.com>", "u@example.com"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(string_of(vc_extract_address_from_mailbox(c.text)), c.address) << c.name;
    }
}

TEST_F(vc_rfc, mailboxes_without_an_address) {
    const struct {
        const char *name, *text;
    } cases[] = {
        {"not closed", "Name <u@example.com"},
        {"empty brackets", "Name <>"},
        {"quotes last", "u@example.com \"A\""},
        {"quotes broken", "\"A <u@example.com>"},
        {"quotes end in a backslash", "\"A\\"},
        {"unprintable in quotes", "\"A\tB\" <u@example.com>"},
        {"comment not closed", "(A <u@example.com>"},
        {"comment ends in a backslash", "u@example.com (A\\"},
        {"unprintable before the bracket", "A\tB <u@example.com>"},
        {"unprintable in a bare address", "u\x80@example.com"},
        {"unprintable in the address", "<u\x01@example.com>"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_extract_address_from_mailbox(c.text), nullptr) << c.name;
    }
}

TEST_F(vc_rfc, zero_length_addresses) {
    for (const char *text : {"<  >", "   ", "(comment)", "A < >"}) {
        EXPECT_EQ(vc_extract_address_from_mailbox(text), nullptr) << text;
        EXPECT_EQ(last_line(), "vc_extract_address_from_mailbox: zero length address") << text;
    }
    EXPECT_EQ(vc_extract_address_from_mailbox(nullptr), nullptr);
    EXPECT_EQ(vc_extract_address_from_mailbox(""), nullptr);
    EXPECT_EQ(own_lines(), (lines(2, "E vc_extract_address_from_mailbox: Invalid argument")));
}

TEST_F(vc_rfc, addresses_of_a_header) {
    EXPECT_EQ(strings_of(vc_parse_addresses_from_header(
                  "A@Example.com,\"Name, Some\" <b@example.com>, (c) d@example.com")),
              (std::vector<std::string>{"a@example.com", "b@example.com", "d@example.com"}));
    EXPECT_EQ(strings_of(vc_parse_addresses_from_header("<>, a@example.com, \"broken")),
              (std::vector<std::string>{"a@example.com"}));
    EXPECT_EQ(strings_of(vc_parse_addresses_from_header("<>")), std::vector<std::string>{});
    own_lines();
    // An empty part has its line, and the others are kept.
    EXPECT_EQ(strings_of(vc_parse_addresses_from_header("a@b.c,,d@e.f")),
              (std::vector<std::string>{"a@b.c", "d@e.f"}));
    EXPECT_EQ(own_lines(), (lines{"E vc_extract_address_from_mailbox: Invalid argument"}));
}

TEST_F(vc_rfc, a_header_that_cannot_be_split) {
    EXPECT_EQ(vc_parse_addresses_from_header(nullptr), nullptr);
    EXPECT_EQ(own_lines(),
              (lines{"E vc_split_addresses: Invalid argument",
                     "E vc_parse_addresses_from_header: Unable to split address list"}));
    EXPECT_EQ(vc_parse_addresses_from_header("  "), nullptr);
    EXPECT_EQ(own_lines(),
              (lines{"E vc_parse_addresses_from_header: Unable to split address list"}));
}

// --- Any text ---

// Every short text over the characters that mean something, in a buffer of exactly its size.
TEST(vc_rfc_any, every_short_text_comes_back) {
    const std::string letters = "a@<>(\"\\).";
    const size_t length = 6;
    size_t count = 1;
    for (size_t i = 0; i < length; ++i) {
        count *= letters.size();
    }
    size_t accepted = 0;
    for (size_t number = 0; number < count; ++number) {
        const auto text = std::make_unique<char[]>(length + 1);
        size_t rest = number;
        for (size_t i = 0; i < length; ++i) {
            text[i] = letters[rest % letters.size()];
            rest /= letters.size();
        }
        // A bare address that the strict check accepts is acceptable in MAIL FROM.
        const int strict = vc_valid_email_address(text.get());
        const int lenient = vc_rfc822_email_address(text.get(), nullptr);
        ASSERT_TRUE(!strict || lenient) << text.get();
        accepted += static_cast<size_t>(lenient);
        vc_list_entry *list = vc_parse_addresses_from_header(text.get());
        vc_destroy_list(&list, free);
    }
    EXPECT_GT(accepted, 0u);
    EXPECT_LT(accepted, count);
}

} // namespace
