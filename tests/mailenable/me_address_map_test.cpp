#include "me_address_map.h"

#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "failing_memory.h"
#include "log_capture.h"
#include "platform/error_numbers.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

class me_address_map : public logged_test {
  protected:
    ~me_address_map() override {
        forget_address_map();
    }
    static std::string load(const std::string &address, int mode = me_whole_destination) {
        const heap_string found(load_me_destination_address_ex(address.c_str(), mode));
        return found ? found.get() : "(null)";
    }
    static std::string split(const char *destination) {
        char *postoffice = nullptr;
        char *mailbox = nullptr;
        const int result = split_full_destination_address(destination, &postoffice, &mailbox);
        const heap_string office(postoffice);
        const heap_string box(mailbox);
        EXPECT_EQ(result != 0, office && box);
        EXPECT_EQ(office == nullptr, box == nullptr);
        return result ? std::string(postoffice) + " | " + mailbox : "(none)";
    }
};

TEST_F(me_address_map, an_address_has_a_destination) {
    EXPECT_EQ(load("alice@example.com"), "[SF:example.com/alice]");
    EXPECT_EQ(load("alice@example.com", me_postoffice), "example.com");
    EXPECT_EQ(load("alice@example.com", me_mailbox), "alice");
}

TEST_F(me_address_map, an_address_that_is_not_known_has_none) {
    for (const int mode : {0, 1, 2}) {
        EXPECT_EQ(load("unknown@example.com", mode), "(null)") << mode;
        EXPECT_EQ(load("nobody", mode), "(null)") << mode;
    }
}

TEST_F(me_address_map, parts_need_their_separators) {
    const struct {
        const char *address, *whole, *postoffice, *mailbox;
    } cases[] = {
        {"no-colon@x", "[SFexample.com/alice]", "(null)", "alice"},
        {"no-slash@x", "[SF:example.com]", "(null)", "(null)"},
        {"no-bracket@x", "[SF:example.com/alice", "example.com", "(null)"},
        {"no-separator@x", "example.com", "(null)", "(null)"},
        {"nothing@x", "", "(null)", "(null)"},
        {"more@x", "[SF:a:b/c/d]e]f", "a:b", "c/d"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(load(c.address, me_whole_destination), c.whole) << c.address;
        EXPECT_EQ(load(c.address, me_postoffice), c.postoffice) << c.address;
        EXPECT_EQ(load(c.address, me_mailbox), c.mailbox) << c.address;
    }
}

TEST_F(me_address_map, a_destination_that_fills_its_place_is_terminated) {
    EXPECT_EQ(load("full@example.com"), std::string(1023, 'x'));
}

TEST_F(me_address_map, the_source_takes_1023_characters) {
    const std::string fits = std::string(1023 - 7 - 2, 'a') + "@b"; // "[SMTP:" and "]" are 7
    EXPECT_EQ(load(fits, me_postoffice), "b");
    EXPECT_EQ(load("a" + fits, me_postoffice), "(null)");
    EXPECT_EQ(load(std::string(5000, 'a') + "@b", me_postoffice), "(null)");
}

TEST_F(me_address_map, the_library_is_looked_for_once) {
    call_watch watch;
    EXPECT_EQ(load("alice@example.com", me_mailbox), "alice");
    EXPECT_EQ(load("bob@example.com", me_mailbox), "bob");
    EXPECT_EQ(watch.count("library_open"), 1);
    EXPECT_EQ(watch.count("library_symbol"), 1);
}

TEST_F(me_address_map, a_failure_is_remembered) {
    for (const char *call : {"library_open", "library_symbol"}) {
        forget_address_map();
        call_watch watch;
        watch.fail(call, 1, platform::error_mod_not_found);
        EXPECT_EQ(load("alice@example.com"), "(null)") << call;
        EXPECT_EQ(load("alice@example.com"), "(null)") << call;
        EXPECT_EQ(watch.count("library_open"), 1) << call;
        forget_address_map();
        EXPECT_EQ(load("alice@example.com", me_mailbox), "alice") << call;
    }
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(me_address_map, destinations_are_split) {
    const struct {
        const char *destination, *want;
    } cases[] = {
        {"[SF:example.com/alice]", "example.com | alice"},
        {"SF:a/b]", "a | b"},
        {":/]", " | "},
        {"[SF:a:b/c/d]e]f", "a:b | c/d"},
        {"[SF:a/b", "(none)"},
        {"[SF:ab]", "(none)"},
        {"[SFa/b]", "(none)"},
        {"[SFa/b:c]", "(none)"},
        {"[SF:a]/b]", "(none)"},
        {"x", "(none)"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(split(c.destination), c.want) << c.destination;
    }
}

TEST_F(me_address_map, bad_arguments) {
    char *one = nullptr;
    EXPECT_EQ(load_me_destination_address_ex(nullptr, 0), nullptr);
    EXPECT_EQ(load(""), "(null)");
    EXPECT_EQ(load("a@b", -1), "(null)");
    EXPECT_EQ(load("a@b", 3), "(null)");
    EXPECT_EQ(log.errors(), lines(4, "load_me_destination_address_ex: Invalid argument"));
    EXPECT_EQ(split(nullptr), "(none)");
    EXPECT_EQ(split(""), "(none)");
    EXPECT_EQ(split_full_destination_address("[SF:a/b]", nullptr, &one), 0);
    EXPECT_EQ(split_full_destination_address("[SF:a/b]", &one, nullptr), 0);
    EXPECT_EQ(one, nullptr);
    EXPECT_EQ(log.errors(), lines(4, "split_full_destination_address: Invalid argument"));
}

TEST_F(me_address_map, without_memory) {
    load("alice@example.com"); // the library's own start is not counted
    char *found = nullptr;
    EXPECT_EQ(
        sweep_allocations([&] { found = load_me_destination_address_ex("no-separator@x", 0); },
                          [&](unsigned n) {
                              EXPECT_EQ(found, nullptr) << n;
                              EXPECT_EQ(log.errors().size(), 1U) << n;
                          }),
        1U);
    free(found);
    char *postoffice = nullptr;
    char *mailbox = nullptr;
    EXPECT_EQ(sweep_allocations(
                  [&] { split_full_destination_address("[SF:a/b]", &postoffice, &mailbox); },
                  [&](unsigned n) {
                      EXPECT_EQ(postoffice, nullptr) << n;
                      EXPECT_EQ(mailbox, nullptr) << n;
                      EXPECT_EQ(log.errors(),
                                lines{"split_full_destination_address: Cannot allocate memory"})
                          << n;
                  }),
              3U);
    free(postoffice);
    free(mailbox);
}

} // namespace
} // namespace quillfence::testing
