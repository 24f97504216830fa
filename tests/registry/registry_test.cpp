#include "registry.h"

#include <cstdlib>
#include <set>
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

constexpr vc_regroot machine = vc_regroot::local_machine;
constexpr char missing_key[] = "SOFTWARE\\Quillfence-test\\missing";

class registry : public logged_test {
  protected:
    test_registry store;

    static std::string get(const char *value, uint32_t limit = 512, const char *key = test_key) {
        char untouched[] = "untouched";
        char *text = untouched;
        const int result = vc_regkey_get_ex(machine, key, value, limit, &text);
        EXPECT_EQ(result == 0, text == untouched);
        const std::string got = result ? text : "(none)";
        if (result) {
            free(text);
        }
        return got;
    }
    // The errors of one operation, which all lines must come from.
    lines errors_of(const std::string &function) {
        lines found;
        for (const log_line &line : log.take()) {
            EXPECT_EQ(line.source, "w32_common/registry");
            EXPECT_EQ(line.function, function);
            EXPECT_EQ(line.priority, 3);
            found.push_back(line.message);
        }
        return found;
    }
};

TEST_F(registry, a_text_value_is_read) {
    store.set_text(test_key, "Configuration Directory", "C:\\Mail Enable\\Config");
    store.set_text(test_key, "", "the default");
    store.set_text(test_key, "empty", "");
    EXPECT_EQ(get("Configuration Directory"), "C:\\Mail Enable\\Config");
    EXPECT_EQ(get("CONFIGURATION directory"), "C:\\Mail Enable\\Config");
    EXPECT_EQ(get("empty"), "");
    EXPECT_EQ(get(""), "the default");
    EXPECT_EQ(get(nullptr), "the default");
}

TEST_F(registry, the_data_need_not_be_a_clean_text) {
    store.set(test_key, "embedded", platform::registry_text, "ab\0cd\0"s);
    store.set(test_key, "only a NUL", platform::registry_text, "\0"s);
    EXPECT_EQ(get("embedded"), "ab");
    EXPECT_EQ(get("only a NUL"), "");
}

TEST_F(registry, the_limit_is_in_characters) {
    store.set_text(test_key, "x", std::string(512, 'a'));
    store.set_text(test_key, "y", std::string(513, 'b'));
    EXPECT_EQ(get("x"), std::string(512, 'a'));
    EXPECT_EQ(get("x", 600), std::string(512, 'a'));
    EXPECT_EQ(get("y"), "(none)");
    EXPECT_EQ(errors_of("vc_regkey_get_ex"),
              lines{"error: unable to query key SOFTWARE\\Quillfence-test y"});
    store.set_text(test_key, "z", "");
    EXPECT_EQ(get("z", 0), "");
    EXPECT_EQ(get("x", 0), "(none)");
    EXPECT_EQ(errors_of("vc_regkey_get_ex"),
              lines{"error: unable to query key SOFTWARE\\Quillfence-test x"});
}

TEST_F(registry, a_missing_key_or_value_is_an_error_of_reading) {
    EXPECT_EQ(get("x", 512, missing_key), "(none)");
    EXPECT_EQ(errors_of("vc_regkey_get_ex"),
              lines{"error opening registry key for read SOFTWARE\\Quillfence-test\\missing x"});
    store.create(test_key);
    EXPECT_EQ(get("x"), "(none)");
    EXPECT_EQ(get(nullptr), "(none)");
    EXPECT_EQ(errors_of("vc_regkey_get_ex"),
              (lines{"error: unable to query key SOFTWARE\\Quillfence-test x",
                     "error: unable to query key SOFTWARE\\Quillfence-test "}));
}

TEST_F(registry, a_value_of_another_type_is_not_read) {
    store.set_dword(test_key, "dword", 1);
    store.set(test_key, "expand", platform::registry_expandable_text, "%A%\0"s);
    store.set(test_key, "long", platform::registry_binary, std::string(2000, 'x'));
    for (const char *value : {"dword", "expand", "long"}) {
        EXPECT_EQ(get(value), "(none)") << value;
        EXPECT_EQ(errors_of("vc_regkey_get_ex"),
                  lines{"error: expected key SOFTWARE\\Quillfence-test value "s + value +
                        " to be type REG_SZ"});
    }
}

TEST_F(registry, existence_is_asked_without_a_line) {
    store.set_dword(test_key, "x", 0);
    store.set(test_key, "long", platform::registry_binary, std::string(2000, 'x'));
    EXPECT_EQ(vc_regkey_exists_ex(machine, test_key, "x"), 1);
    EXPECT_EQ(vc_regkey_exists_ex(machine, test_key, "X"), 1);
    EXPECT_EQ(vc_regkey_exists_ex(machine, test_key, "long"), 1);
    EXPECT_EQ(vc_regkey_exists_ex(machine, test_key, "y"), 0);
    EXPECT_EQ(vc_regkey_exists_ex(machine, test_key, nullptr), 0);
    EXPECT_EQ(vc_regkey_exists_ex(machine, missing_key, "x"), 0);
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(registry, types_are_read) {
    store.set_dword(test_key, "dword", 1);
    store.set_text(test_key, "text", "a");
    uint32_t type = 0;
    EXPECT_EQ(vc_regkey_get_type_ex(machine, test_key, "dword", &type), 1);
    EXPECT_EQ(type, platform::registry_dword);
    EXPECT_EQ(vc_regkey_get_type_ex(machine, test_key, "text", &type), 1);
    EXPECT_EQ(type, platform::registry_text);
    EXPECT_EQ(vc_regkey_get_type_ex(machine, test_key, "none", &type), 0);
    EXPECT_EQ(vc_regkey_get_type_ex(machine, missing_key, "none", &type), 0);
    EXPECT_EQ(
        errors_of("vc_regkey_get_type_ex"),
        (lines{"error: unable to query key SOFTWARE\\Quillfence-test none",
               "error opening registry key for read SOFTWARE\\Quillfence-test\\missing none"}));
}

TEST_F(registry, keys_are_made_and_values_set) {
    const std::string deep = test_key + "\\a\\b"s;
    EXPECT_EQ(vc_regkey_create_ex(machine, deep.c_str()), 1);
    EXPECT_EQ(vc_regkey_create_ex(machine, deep.c_str()), 1) << "once more";
    EXPECT_EQ(vc_regkey_set_ex(machine, deep.c_str(), "x", platform::registry_text, "one", 4), 1);
    EXPECT_EQ(get("x", 512, deep.c_str()), "one");
    EXPECT_EQ(vc_regkey_set_ex(machine, (deep + "\\c").c_str(), nullptr, platform::registry_text,
                               "two", 4),
              1)
        << "in a key that is made";
    EXPECT_EQ(get(nullptr, 512, (deep + "\\c").c_str()), "two");
    EXPECT_EQ(vc_regkey_set_ex(machine, deep.c_str(), "e", platform::registry_binary, nullptr, 0),
              1);
    EXPECT_EQ(vc_regkey_exists_ex(machine, deep.c_str(), "e"), 1);
}

TEST_F(registry, what_can_not_be_made_or_set) {
    call_watch watch;
    watch.fail("registry_create", 1, platform::error_access_denied, true);
    EXPECT_EQ(vc_regkey_create_ex(machine, test_key), 0);
    EXPECT_EQ(errors_of("vc_regkey_create_ex"),
              lines{"Error creating subkey SOFTWARE\\Quillfence-test"});
    EXPECT_EQ(vc_regkey_set_ex(machine, test_key, "x", platform::registry_binary, "a", 1), 0);
    EXPECT_EQ(errors_of("vc_regkey_set_ex"),
              lines{"Error creating subkey SOFTWARE\\Quillfence-test"});
    watch.fail("registry_set", 1, platform::error_access_denied);
    EXPECT_EQ(vc_regkey_set_ex(machine, test_key, "x", platform::registry_binary, "a", 1), 0);
    EXPECT_EQ(errors_of("vc_regkey_set_ex"),
              lines{"error: unable to set key SOFTWARE\\Quillfence-test x"});
}

TEST_F(registry, bad_arguments) {
    char *text = nullptr;
    uint32_t number = 0;
    char name[4];
    for (const char *key : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(vc_regkey_get_ex(machine, key, "x", 10, &text), 0);
        EXPECT_EQ(vc_regkey_exists_ex(machine, key, "x"), 0);
        EXPECT_EQ(vc_regkey_get_type_ex(machine, key, "x", &number), 0);
        EXPECT_EQ(vc_regkey_create_ex(machine, key), 0);
        EXPECT_EQ(vc_regkey_set_ex(machine, key, "x", 1, "", 1), 0);
        EXPECT_EQ(vc_regkey_open_ex(machine, key, vc_regkey_read_32), nullptr);
        EXPECT_EQ(
            log.errors(),
            (lines{"vc_regkey_get_ex: Invalid argument", "vc_regkey_exists_ex: Invalid argument",
                   "vc_regkey_get_type_ex: Invalid argument",
                   "vc_regkey_create_ex: Invalid argument", "vc_regkey_set_ex: Invalid argument",
                   "vc_regkey_open_ex: Invalid argument"}));
    }
    EXPECT_EQ(vc_regkey_get_ex(machine, test_key, "x", 10, nullptr), 0);
    EXPECT_EQ(vc_regkey_get_ex(machine, test_key, "x", 0x80000000U, &text), 0);
    EXPECT_EQ(vc_regkey_get_type_ex(machine, test_key, "x", nullptr), 0);
    EXPECT_EQ(vc_regkey_set_ex(machine, test_key, "x", 1, nullptr, 1), 0);
    EXPECT_EQ(vc_regkey_has_value(nullptr, "x"), 0);
    EXPECT_EQ(vc_regkey_get_dword(nullptr, "x", &number), 0);
    EXPECT_EQ(vc_regkey_value_name(nullptr, 0, name, sizeof name), 0);
    EXPECT_EQ(
        log.errors(),
        (lines{"vc_regkey_get_ex: Invalid argument", "vc_regkey_get_ex: Invalid argument",
               "vc_regkey_get_type_ex: Invalid argument", "vc_regkey_set_ex: Invalid argument",
               "vc_regkey_has_value: Invalid argument", "vc_regkey_get_dword: Invalid argument",
               "vc_regkey_value_name: Invalid argument"}));
}

TEST_F(registry, an_open_key_is_asked) {
    store.set_dword(test_key, "on", 0x80000001, platform::registry_view_32);
    store.set(test_key, "short", platform::registry_dword, "\1\0"s, platform::registry_view_32);
    store.set(test_key, "long", platform::registry_dword, "\1\0\0\0\0"s,
              platform::registry_view_32);
    store.set_text(test_key, "text", "abc", platform::registry_view_32);
    EXPECT_EQ(vc_regkey_open_ex(machine, missing_key, vc_regkey_read_32), nullptr);
    vc_regkey *const key = vc_regkey_open_ex(machine, test_key, vc_regkey_read_32);
    ASSERT_NE(key, nullptr);
    uint32_t number = 0;
    EXPECT_EQ(vc_regkey_get_dword(key, "ON", &number), 1);
    EXPECT_EQ(number, 0x80000001U);
    number = 7;
    for (const char *value : {"short", "long", "text", "none"}) {
        EXPECT_EQ(vc_regkey_get_dword(key, value, &number), 0) << value;
    }
    EXPECT_EQ(number, 7U);
    EXPECT_EQ(vc_regkey_has_value(key, "Text"), 1);
    EXPECT_EQ(vc_regkey_has_value(key, "none"), 0);
    EXPECT_EQ(vc_regkey_get_dword(key, "on", nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"vc_regkey_get_dword: Invalid argument"});

    char name[5];
    int too_long = 0;
    std::set<std::string> names;
    int found;
    for (uint32_t i = 0; (found = vc_regkey_value_name(key, i, name, sizeof name)) != 0; ++i) {
        if (found > 0) {
            names.insert(name);
        } else {
            ++too_long;
        }
    }
    EXPECT_EQ(names, (std::set<std::string>{"on", "long", "text"}));
    EXPECT_EQ(too_long, 1);
    vc_regkey_close(key);
    vc_regkey_close(nullptr);
}

TEST_F(registry, the_mask_of_mail_enable_s_keys) {
    EXPECT_EQ(vc_regkey_read_32, platform::registry_read | platform::registry_view_32);
}

TEST_F(registry, reading_without_memory) {
    store.set_text(test_key, "x", "one");
    char *text = nullptr;
    int result = 1;
    sweep_allocations([&] { result = vc_regkey_get_ex(machine, test_key, "x", 512, &text); },
                      [&](unsigned n) {
                          EXPECT_EQ(result, 0) << n;
                          EXPECT_EQ(text, nullptr) << n;
                          EXPECT_EQ(log.errors().size(), 1U) << n;
                      });
    EXPECT_EQ(result, 1);
    free(text);
}

TEST_F(registry, no_memory_for_the_text_is_told) {
    store.set_text(test_key, "x", "one");
    // The text's block is the last one that is asked for.
    lines last;
    char *text = nullptr;
    sweep_allocations([&] { vc_regkey_get_ex(machine, test_key, "x", 512, &text); },
                      [&](unsigned) { last = errors_of("vc_regkey_get_ex"); });
    EXPECT_EQ(last, lines{"Out of memory error"});
    free(text);
}

TEST_F(registry, asking_without_memory_is_told_and_finds_nothing) {
    store.set_text(test_key, "x", "one");
    int found = 0;
    sweep_allocations([&] { found = vc_regkey_exists_ex(machine, test_key, "x"); },
                      [&](unsigned n) {
                          EXPECT_EQ(found, 0) << n;
                          EXPECT_EQ(errors_of("vc_regkey_open_ex").size(), 1U) << n;
                      });
    EXPECT_EQ(found, 1);
    uint32_t type = 77;
    sweep_allocations([&] { found = vc_regkey_get_type_ex(machine, test_key, "x", &type); },
                      [&](unsigned n) {
                          EXPECT_EQ(found, 0) << n;
                          EXPECT_EQ(type, 77U) << n;
                          EXPECT_EQ(errors_of("vc_regkey_get_type_ex").size(), 1U) << n;
                      });
    EXPECT_EQ(found, 1);
    EXPECT_EQ(type, platform::registry_text);
}

// A registry of its own for each run: on Linux every change makes the export longer.
template <class Operation, class Check>
void sweep_writes(Operation operation, Check check) {
    bool fired = true;
    for (unsigned n = 1; fired; ++n) {
        const test_registry store;
        store.set_text(test_key, "x", "old");
        store.set_text(test_key, "other", "kept");
        int done;
        {
            failing_allocation failing(n);
            done = operation();
            fired = failing.fired();
        }
        EXPECT_EQ(done, !fired) << n;
        check(fired);
        char *other = nullptr;
        EXPECT_EQ(vc_regkey_get_ex(machine, test_key, "other", 512, &other), 1) << n;
        EXPECT_STREQ(other, "kept") << n;
        free(other);
    }
}

class registry_writes : public logged_test {};

TEST_F(registry_writes, a_set_without_memory_leaves_the_old_value_or_the_new_one) {
    sweep_writes(
        [] { return vc_regkey_set_ex(machine, test_key, "x", platform::registry_text, "new", 4); },
        [this](bool failed) {
            EXPECT_EQ(log.errors().size(), failed ? 1U : 0U);
            char *text = nullptr;
            ASSERT_EQ(vc_regkey_get_ex(machine, test_key, "x", 512, &text), 1);
            const std::string value = text;
            free(text);
            EXPECT_TRUE(value == "new" || (failed && value == "old")) << value;
        });
}

TEST_F(registry_writes, a_create_without_memory_is_told) {
    sweep_writes([] { return vc_regkey_create_ex(machine, "SOFTWARE\\Quillfence-test\\a\\b"); },
                 [this](bool failed) { EXPECT_EQ(log.errors().size(), failed ? 1U : 0U); });
}

} // namespace
} // namespace quillfence::testing
