#include "platform/net.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {
namespace {

class net : public ::testing::Test {
  protected:
    net() {
        int error = 12345;
        EXPECT_EQ(net_prepare_pton(&error), net_status::ok);
        EXPECT_EQ(error, 0);
        EXPECT_EQ(net_prepare_ntop(&error), net_status::ok);
        EXPECT_EQ(error, 0);
    }
    ~net() override {
        set_net_prepare_stand_in(nullptr);
        set_call_observer(nullptr);
    }
};

// The address as hexadecimal digits, empty when the text does not convert.
std::string converted(int family, const char *text) {
    unsigned char binary[16] = {};
    if (!net_pton(family, text, binary)) {
        return "";
    }
    std::string digits;
    for (int i = 0; i < (family == family_ipv4 ? 4 : 16); ++i) {
        char byte[3];
        snprintf(byte, sizeof byte, "%02x", binary[i]);
        digits += byte;
    }
    return digits;
}

// The text of an IPv6 address given as eight groups.
std::string written(const std::vector<unsigned> &groups) {
    unsigned char binary[16];
    for (size_t i = 0; i < 8; ++i) {
        binary[2 * i] = static_cast<unsigned char>(groups[i] >> 8);
        binary[2 * i + 1] = static_cast<unsigned char>(groups[i]);
    }
    char text[64];
    const char *const result = net_ntop(family_ipv6, binary, text, sizeof text);
    EXPECT_EQ(result, text);
    return result ? result : "";
}

TEST_F(net, ipv4_is_a_strict_dotted_quad) {
    static constexpr struct {
        const char *text, *want;
    } cases[] = {
        {"192.0.2.1", "c0000201"},
        {"0.0.0.0", "00000000"},
        {"255.255.255.255", "ffffffff"},
        {"1.20.255.9", "0114ff09"},
        {"10.0.0.10", "0a00000a"},
        {"", ""},
        {"1", ""},
        {"1.2", ""},
        {"1.2.3", ""},
        {"1.2.3.", ""},
        {"1.2.3.4.", ""},
        {".1.2.3.4", ""},
        {"1.2.3.4.5", ""},
        {"1..2.3", ""},
        {"1.2.3.256", ""},
        {"256.1.1.1", ""},
        {"1.2.3.999", ""},
        {"1.2.3.1000", ""},
        {"01.2.3.4", ""},
        {"1.2.3.04", ""},
        {"1.2.3.00", ""},
        {"000.0.0.0", ""},
        {"0x1.2.3.4", ""},
        {"1.2.3.a", ""},
        {"-1.2.3.4", ""},
        {"+1.2.3.4", ""},
        {" 1.2.3.4", ""},
        {"1.2.3.4 ", ""},
        {"1.2.3.4\n", ""},
        {"1.2.3.4:80", ""},
        {"1.2.3.4/8", ""},
        {"::1", ""},
        {"::1.2.3.4", ""},
        {"\xd9\xa1.2.3.4", ""},
        {"99999999999999999999.1.1.1", ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(converted(family_ipv4, c.text), c.want) << "\"" << c.text << "\"";
    }
}

TEST_F(net, ipv6_text_to_bytes) {
    static constexpr char nothing[] = "";
    static constexpr struct {
        const char *text, *want;
    } cases[] = {
        {"::", "00000000000000000000000000000000"},
        {"::1", "00000000000000000000000000000001"},
        {"1::", "00010000000000000000000000000000"},
        {"2001:db8::ff00:42:8329", "20010db8000000000000ff0000428329"},
        {"2001:0DB8:0000:0000:0000:FF00:0042:8329", "20010db8000000000000ff0000428329"},
        {"1:2:3:4:5:6:7:8", "00010002000300040005000600070008"},
        {"1:2:3:4:5:6:7::", "00010002000300040005000600070000"},
        {"::2:3:4:5:6:7:8", "00000002000300040005000600070008"},
        {"1:2:3::5:6:7:8", "00010002000300000005000600070008"},
        {"::ffff:192.0.2.1", "00000000000000000000ffffc0000201"},
        {"::192.0.2.1", "000000000000000000000000c0000201"},
        {"64:ff9b::192.0.2.1", "0064ff9b0000000000000000c0000201"},
        {"1:2:3:4:5:6:192.0.2.1", "000100020003000400050006c0000201"},
        {"", nothing},
        {":", nothing},
        {"1", nothing},
        {"1:", nothing},
        {":1", nothing},
        {":::", nothing},
        {"1:::2", nothing},
        {"1::2::3", nothing},
        {"1:2:3:4:5:6:7", nothing},
        {"1:2:3:4:5:6:7:8:9", nothing},
        {"1:2:3:4:5:6:7:8:", nothing},
        {":1:2:3:4:5:6:7:8", nothing},
        {"1:2:3:4::5:6:7:8", nothing},
        {"1:2:3:4:5:6:7:8::", nothing},
        {"::1:2:3:4:5:6:7:8", nothing},
        {"12345::", nothing},
        {"00001::", nothing},
        {"::00001", nothing},
        {"::g", nothing},
        {"::0x1", nothing},
        {"::1 ", nothing},
        {" ::1", nothing},
        {"[::1]", nothing},
        {"::1%1", nothing},
        {"::1%lo", nothing},
        {"::1/64", nothing},
        {"::1.2.3", nothing},
        {"::1.2.3.256", nothing},
        {"::1.2.3.4.5", nothing},
        {"::01.2.3.4", nothing},
        {"::1.2.3.4:5", nothing},
        {"::1.2.3.4::", nothing},
        {"1:2:3:4:5:6:7:1.2.3.4", nothing},
        {"1:2:3:4:5:1.2.3.4", nothing},
        {"1.2.3.4::", nothing},
        {"1.2.3.4", nothing},
        {"::.1.2.3", nothing},
        {"::-1", nothing},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(converted(family_ipv6, c.text), c.want) << "\"" << c.text << "\"";
    }
}

TEST_F(net, other_families_do_not_convert) {
    unsigned char binary[16] = {};
    char text[64] = "#";
    for (const int family : {0, 1, 3, 10, 22, 24, -1}) {
        EXPECT_FALSE(net_pton(family, "192.0.2.1", binary)) << family;
        EXPECT_FALSE(net_pton(family, "::1", binary)) << family;
        EXPECT_EQ(net_ntop(family, binary, text, sizeof text), nullptr) << family;
    }
}

TEST_F(net, ipv4_bytes_to_text) {
    static constexpr unsigned char address[] = {192, 0, 2, 255};
    char text[16];
    EXPECT_EQ(net_ntop(family_ipv4, address, text, sizeof text), text);
    EXPECT_STREQ(text, "192.0.2.255");
    EXPECT_EQ(net_ntop(family_ipv4, address, text, 12), text) << "exactly enough";
    EXPECT_EQ(net_ntop(family_ipv4, address, text, 11), nullptr);
    EXPECT_EQ(net_ntop(family_ipv4, address, text, 0), nullptr);
}

TEST_F(net, ipv6_bytes_to_text_as_windows_writes_it) {
    static const struct {
        std::vector<unsigned> groups;
        const char *want;
    } cases[] = {
        {{0, 0, 0, 0, 0, 0, 0, 0}, "::"},
        {{0, 0, 0, 0, 0, 0, 0, 1}, "::1"},
        {{0, 0, 0, 0, 0, 0, 0, 0xabcd}, "::abcd"},
        {{1, 0, 0, 0, 0, 0, 0, 0}, "1::"},
        {{0x2001, 0xdb8, 0, 0, 0, 0xff00, 0x42, 0x8329}, "2001:db8::ff00:42:8329"},
        {{1, 2, 3, 4, 5, 6, 7, 8}, "1:2:3:4:5:6:7:8"},
        {{0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff},
         "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
        // The longest run of zero groups, the first on a tie, never a single one.
        {{0x2001, 0xdb8, 0, 0, 1, 0, 0, 1}, "2001:db8::1:0:0:1"},
        {{0x2001, 0, 0, 1, 0, 0, 0, 1}, "2001:0:0:1::1"},
        {{1, 0, 2, 0, 3, 0, 4, 0}, "1:0:2:0:3:0:4:0"},
        {{0, 2, 3, 4, 5, 6, 7, 8}, "0:2:3:4:5:6:7:8"},
        {{1, 2, 3, 4, 5, 6, 7, 0}, "1:2:3:4:5:6:7:0"},
        {{0, 0, 3, 4, 5, 6, 0, 0}, "::3:4:5:6:0:0"},
        {{0, 0, 1, 0, 0, 0, 0, 0}, "0:0:1::"},
        // IPv4-compatible, unless the last group but one is zero.
        {{0, 0, 0, 0, 0, 0, 1, 2}, "::0.1.0.2"},
        {{0, 0, 0, 0, 0, 0, 1, 0}, "::0.1.0.0"},
        {{0, 0, 0, 0, 0, 0, 0xc000, 0x0201}, "::192.0.2.1"},
        // IPv4-mapped.
        {{0, 0, 0, 0, 0, 0xffff, 0xc000, 0x0201}, "::ffff:192.0.2.1"},
        {{0, 0, 0, 0, 0, 0xffff, 0xffff, 0xffff}, "::ffff:255.255.255.255"},
        {{0, 0, 0, 0, 0, 0xffff, 0, 0x0102}, "::ffff:0:102"},
        {{0, 0, 0, 0, 0, 0xffff, 0, 0}, "::ffff:0:0"},
        // IPv4-translated.
        {{0, 0, 0, 0, 0xffff, 0, 0xc000, 0x0201}, "::ffff:0:192.0.2.1"},
        {{0, 0, 0, 0, 0xffff, 0, 0, 5}, "::ffff:0:0:5"},
        {{0, 0, 0, 0, 0xffff, 0, 0, 0}, "::ffff:0:0:0"},
        // ISATAP, whatever the quad and the prefix.
        {{0xfe80, 0, 0, 0, 0, 0x5efe, 0xc000, 0x0201}, "fe80::5efe:192.0.2.1"},
        {{0xfe80, 0, 0, 0, 0x200, 0x5efe, 0xc000, 0x0201}, "fe80::200:5efe:192.0.2.1"},
        {{0, 0, 0, 0, 0, 0x5efe, 0, 0}, "::5efe:0.0.0.0"},
        {{1, 2, 3, 4, 0, 0x5efe, 0, 0}, "1:2:3:4:0:5efe:0.0.0.0"},
        {{1, 0, 0, 2, 0x200, 0x5efe, 0x0102, 0x0304}, "1::2:200:5efe:1.2.3.4"},
        {{0xffff, 0xffff, 0xffff, 0xffff, 0x200, 0x5efe, 0xffff, 0xffff},
         "ffff:ffff:ffff:ffff:200:5efe:255.255.255.255"},
        // Nearly one of these.
        {{1, 0, 0, 0, 0x201, 0x5efe, 0x0102, 0x0304}, "1::201:5efe:102:304"},
        {{0x64, 0xff9b, 0, 0, 0, 0, 0x0102, 0x0304}, "64:ff9b::102:304"},
        {{0, 0, 0, 0, 1, 0xffff, 0x0102, 0x0304}, "::1:ffff:102:304"},
        {{0, 0, 0, 1, 0, 0xffff, 0x0102, 0x0304}, "::1:0:ffff:102:304"},
        {{0, 0, 0, 0, 0xffff, 0xffff, 0x0102, 0x0304}, "::ffff:ffff:102:304"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(written(c.groups), c.want);
    }
}

// Without compression: what the rules say, in the plainest way.
std::string plain_model(const std::vector<unsigned> &groups) {
    size_t begin = 8;
    size_t length = 1;
    for (size_t i = 0; i < 8; ++i) {
        size_t end = i;
        while (end < 8 && groups[end] == 0) {
            ++end;
        }
        if (end - i > length) {
            begin = i;
            length = end - i;
        }
    }
    std::string text;
    for (size_t i = 0; i < 8; ++i) {
        if (i == begin) {
            text += "::";
            i += length - 1;
        } else {
            char group[8];
            snprintf(group, sizeof group, "%x", groups[i]);
            text += (text.empty() || text.back() == ':' ? "" : ":") + std::string(group);
        }
    }
    return text;
}

// Every pattern of zero groups; the last groups keep the dotted forms out of it.
TEST_F(net, every_run_of_zero_groups) {
    for (unsigned pattern = 0; pattern < 256; ++pattern) {
        std::vector<unsigned> groups(8);
        for (size_t i = 0; i < 8; ++i) {
            groups[i] = pattern >> i & 1 ? 0x1000 + static_cast<unsigned>(i) : 0;
        }
        const bool compatible = (pattern & 0x3f) == 0 && groups[6] != 0;
        if (!compatible) {
            EXPECT_EQ(written(groups), plain_model(groups)) << pattern;
        }
        std::string digits;
        for (const unsigned group : groups) {
            char text[8];
            snprintf(text, sizeof text, "%04x", group);
            digits += text;
        }
        EXPECT_EQ(converted(family_ipv6, written(groups).c_str()), digits) << "there and back";
    }
}

TEST_F(net, ipv6_text_needs_its_room) {
    static constexpr unsigned char longest[] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                                                0x02, 0x00, 0x5e, 0xfe, 0xff, 0xff, 0xff, 0xff};
    static constexpr char want[] = "ffff:ffff:ffff:ffff:200:5efe:255.255.255.255";
    char text[64];
    EXPECT_EQ(net_ntop(family_ipv6, longest, text, sizeof want), text);
    EXPECT_STREQ(text, want);
    memset(text, '#', sizeof text);
    EXPECT_EQ(net_ntop(family_ipv6, longest, text, sizeof want - 1), nullptr);
    EXPECT_EQ(net_ntop(family_ipv6, longest, text, 0), nullptr);
    EXPECT_EQ(text[0], '#') << "a text that does not fit is not begun";
}

TEST_F(net, inet_addr_takes_the_classic_forms) {
    static constexpr struct {
        const char *text;
        unsigned char want[4];
    } cases[] = {
        {"192.0.2.1", {192, 0, 2, 1}},
        {"0.0.0.0", {0, 0, 0, 0}},
        {"1.2.3", {1, 2, 0, 3}},
        {"1.2", {1, 0, 0, 2}},
        {"16909060", {1, 2, 3, 4}},
        {"0x7f.0.0.1", {127, 0, 0, 1}},
        {"010.0.0.1", {8, 0, 0, 1}},
        {"255.255.255.255", {255, 255, 255, 255}},
        {"256.0.0.1", {255, 255, 255, 255}},
        {"1.2.3.4.5", {255, 255, 255, 255}},
        {"host", {255, 255, 255, 255}},
        {"::1", {255, 255, 255, 255}},
    };
    for (const auto &c : cases) {
        const uint32_t address = net_inet_addr(c.text);
        EXPECT_EQ(memcmp(&address, c.want, 4), 0) << c.text << " gives " << std::hex << address;
    }
}

TEST_F(net, stand_in_answers_for_the_preparation) {
    set_net_prepare_stand_in([](const char *entry, int *error) {
        *error = 10091;
        return strcmp(entry, "inet_pton") == 0 ? net_status::startup_failed : net_status::no_entry;
    });
    int error = 0;
    EXPECT_EQ(net_prepare_pton(&error), net_status::startup_failed);
    EXPECT_EQ(error, 10091);
    EXPECT_EQ(net_prepare_ntop(&error), net_status::no_entry);
    set_net_prepare_stand_in([](const char *, int *) { return net_status::no_library; });
    EXPECT_EQ(net_prepare_pton(&error), net_status::no_library);
    EXPECT_EQ(error, 0);
    set_net_prepare_stand_in(nullptr);
    EXPECT_EQ(net_prepare_pton(&error), net_status::ok);
    EXPECT_EQ(net_prepare_ntop(&error), net_status::ok);
}

} // namespace
} // namespace quillfence::platform
