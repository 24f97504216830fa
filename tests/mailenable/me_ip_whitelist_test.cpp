#include "me_ip_whitelist.h"

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "failing_memory.h"
#include "log_capture.h"
#include "platform/error_numbers.h"
#include "test_registry.h"

namespace quillfence::testing {
namespace {

using namespace std::string_literals;
using platform::registry_view_32;

constexpr char connector[] = "SOFTWARE\\Mail Enable\\Mail Enable\\Connectors\\SMTP";
constexpr char white_list[] = "SOFTWARE\\Mail Enable\\Mail Enable\\Connectors\\SMTP\\White List";

class me_ip_whitelist : public logged_test {
  protected:
    test_registry store;

    void switch_on() const {
        store.set_dword(connector, "IP White Listing Status", 1, registry_view_32);
    }
    void list(const std::string &name) const {
        store.set_text(white_list, name, "", registry_view_32);
    }
};

TEST_F(me_ip_whitelist, without_mail_enable_nobody_is_listed) {
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.1"), 0);
    store.create(connector, registry_view_32);
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.1"), 0);
    switch_on();
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.1"), 0) << "there is no list";
    store.create(white_list, registry_view_32);
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.1"), 0) << "the list is empty";
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(me_ip_whitelist, an_address_is_listed_by_its_name) {
    switch_on();
    list("192.0.2.7");
    list("2001:db8::1");
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 1);
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.8"), 0);
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2"), 0);
    EXPECT_EQ(is_mailenable_ip_whitelist("2001:db8::1"), 1);
    EXPECT_EQ(is_mailenable_ip_whitelist("2001:DB8::1"), 1) << "names ignore case";
    EXPECT_EQ(is_mailenable_ip_whitelist("2001:db8::2"), 0);
}

TEST_F(me_ip_whitelist, a_pattern_lists_a_range) {
    switch_on();
    list("192.0.2.*");
    list("10.20.*.*");
    list("172.16.*.9");
    const struct {
        const char *ip;
        int want;
    } cases[] = {
        {"192.0.2.0", 1},
        {"192.0.2.255", 1},
        {"192.0.3.0", 0},
        {"192.0.1.255", 0},
        {"10.20.0.0", 1},
        {"10.20.255.255", 1},
        {"10.21.0.0", 0},
        // The ends count, not each octet: 172.16.0.9 to 172.16.255.9.
        {"172.16.0.9", 1},
        {"172.16.7.200", 1},
        {"172.16.0.8", 0},
        {"172.16.255.10", 0},
        {"2001:db8::1", 0},
        {"garbage", 0},
        {"192.0.2.01", 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(is_mailenable_ip_whitelist(c.ip), c.want) << c.ip;
    }
}

TEST_F(me_ip_whitelist, patterns_that_never_match) {
    switch_on();
    for (const char *name :
         {"*.*.*.*", "*", "192.*.*.*", "192.*", "192.0.*", "192.0.2.7*", "*.0.2.7", "192.0.2.*x",
          "", "192.0.2.*:25", "::*", "192.0.2.0-192.0.2.255", "192.0.2.0/24", "192.0.2.**"}) {
        list(name);
    }
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 0);
    EXPECT_EQ(is_mailenable_ip_whitelist("0.0.0.0"), 0);
    EXPECT_EQ(is_mailenable_ip_whitelist("255.255.255.255"), 0);
    EXPECT_EQ(log.errors(), lines{});
    list("192.0.2.*");
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 1) << "they do not hide others";
}

TEST_F(me_ip_whitelist, long_names_are_passed_over) {
    switch_on();
    list(std::string(300, '*'));
    list("1.2.3.4" + std::string(57, ' ')); // 64 characters
    list("1.2.3.*" + std::string(58, ' ')); // 65
    EXPECT_EQ(is_mailenable_ip_whitelist("1.2.3.4"), 0);
    list("1.2.3.*");
    EXPECT_EQ(is_mailenable_ip_whitelist("1.2.3.4"), 1);
}

TEST_F(me_ip_whitelist, switched_off_the_list_is_not_opened) {
    list("192.0.2.7");
    const struct {
        const char *name;
        uint32_t type;
        std::string data;
    } cases[] = {
        {"0", platform::registry_dword, "\0\0\0\0"s},
        {"two bytes", platform::registry_dword, "\1\0"s},
        {"eight bytes", platform::registry_dword, "\1\0\0\0\0\0\0\0"s},
        {"a text", platform::registry_text, "1\0"s},
        {"a text of four bytes", platform::registry_text, "111\0"s},
        {"a quad word", 11, "\1\0\0\0\0\0\0\0"s},
    };
    for (const auto &c : cases) {
        store.set(connector, "IP White Listing Status", c.type, c.data, registry_view_32);
        call_watch watch;
        EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 0) << c.name;
        EXPECT_EQ(watch.count("registry_open"), 1) << c.name;
    }
    store.set_dword(connector, "IP White Listing Status", 0x100, registry_view_32);
    call_watch watch;
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 1) << "any number but 0";
    EXPECT_EQ(watch.count("registry_open"), 2);
}

TEST_F(me_ip_whitelist, the_keys_are_those_of_the_32_bit_view) {
    store.set_dword(connector, "IP White Listing Status", 1);
    store.set_text(white_list, "192.0.2.7", "");
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 0);
    const std::string redirected =
        "SOFTWARE\\Wow6432Node\\Mail Enable\\Mail Enable\\Connectors\\SMTP";
    store.set_dword(redirected, "IP White Listing Status", 1);
    store.set_text(redirected + "\\White List", "192.0.2.7", "");
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 1);
}

TEST_F(me_ip_whitelist, a_registry_that_fails_lists_nobody) {
    switch_on();
    list("192.0.2.*");
    for (const char *call : {"registry_open", "registry_query", "registry_enumerate"}) {
        call_watch watch;
        watch.fail(call, 1, platform::error_access_denied, true);
        EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.7"), 0) << call;
        EXPECT_GT(watch.failed(), 0) << call;
    }
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(me_ip_whitelist, no_address) {
    EXPECT_EQ(is_mailenable_ip_whitelist(nullptr), 0);
    EXPECT_EQ(is_mailenable_ip_whitelist(""), 0);
    EXPECT_EQ(log.errors(), lines(2, "is_mailenable_ip_whitelist: Invalid argument"));
}

TEST_F(me_ip_whitelist, without_memory_nobody_is_listed) {
    switch_on();
    list("192.0.2.*");
    int listed = 1;
    sweep_allocations([&] { listed = is_mailenable_ip_whitelist("192.0.2.7"); },
                      [&](unsigned n) {
                          EXPECT_EQ(listed, 0) << n;
                          log.take();
                      });
    EXPECT_EQ(listed, 1);
}

} // namespace
} // namespace quillfence::testing
