#include "quillfence-spam-hooks.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "owned_session.h"
#include "range_bytes.h"
#include "step_budget.h"
#include "tiny_rex_storage.h"
#include "vc_w32.h"

namespace quillfence::testing {
namespace {

template <class Base>
class hooks_fixture : public Base {
  protected:
    hooks_fixture() {
        session::put(&state->base_dir, "c:/quillfence/");
    }
    void put(const std::string &name, const std::string &bytes) {
        this->drive.write("c:/quillfence/" + name, bytes);
    }
    void set_names(const lines &names) {
        state.put_ptr_names(names);
        if (names.empty()) {
            state->ptr_results = static_cast<char **>(std::calloc(1, sizeof(char *)));
        }
    }
    session state;
};
using hooks_test = hooks_fixture<drive_test>;
using traced_hooks_test = hooks_fixture<traced_drive_test>;

// --- list hooks ---

struct address_hook {
    const char *name;
    uint8_t (*hook)(smtp_state *state);
    char *smtp_state::*value;
    const char *list;
};
constexpr address_hook address_hooks[] = {
    {"fromwhitelist_hook", fromwhitelist_hook, &smtp_state::mail_from, "from_whitelist"},
    {"towhitelist_hook", towhitelist_hook, &smtp_state::rcpt_to, "exempt_users"},
    {"fromblacklist_hook", fromblacklist_hook, &smtp_state::mail_from, "from_blacklist"},
};
constexpr address_hook ip_hooks[] = {
    {"ipwhitelist_hook", ipwhitelist_hook, &smtp_state::ip, "exempt_ips"},
    {"ipblacklist_hook", ipblacklist_hook, &smtp_state::ip, "blocked_ips"},
};

std::vector<address_hook> list_hooks() {
    std::vector<address_hook> all(std::begin(address_hooks), std::end(address_hooks));
    all.insert(all.end(), std::begin(ip_hooks), std::end(ip_hooks));
    return all;
}

TEST_F(hooks_test, address_hooks_look_their_value_up_in_their_list) {
    for (const auto &hook : address_hooks) {
        session::put(&(state->*hook.value), "u@b.example");
        EXPECT_EQ(hook.hook(state), 0) << hook.name << ": no list";
        put(hook.list, "# c\nU@B.example\n");
        EXPECT_EQ(hook.hook(state), 1) << hook.name;
        put(hook.list, "*@b.example\n");
        EXPECT_EQ(hook.hook(state), 1) << hook.name << ": wildcards";
        put(hook.list, "*@example\n");
        EXPECT_EQ(hook.hook(state), 0) << hook.name;
        drive.remove(std::string("c:/quillfence/") + hook.list);
        session::put(&(state->*hook.value), nullptr);
    }
}

TEST_F(hooks_test, ip_hooks_compare_whole_addresses) {
    for (const auto &hook : ip_hooks) {
        session::put(&(state->*hook.value), "10.0.0.10");
        EXPECT_EQ(hook.hook(state), 0) << hook.name << ": no list";
        put(hook.list, "10.0.0.1\n10.*\n");
        EXPECT_EQ(hook.hook(state), 0) << hook.name << ": neither parts nor wildcards";
        put(hook.list, "10.0.0.1\n10.0.0.10\n");
        EXPECT_EQ(hook.hook(state), 1) << hook.name;
        session::put(&(state->*hook.value), nullptr);
    }
}

TEST_F(hooks_test, ip_hooks_go_on_to_the_range_file) {
    for (const auto &hook : ip_hooks) {
        session::put(&(state->*hook.value), "10.0.0.10");
        const std::string ranges = std::string(hook.list) + ".range";
        put(ranges, header(2, 1) + record({10, 0, 0, 0}, {10, 0, 0, 255}));
        EXPECT_EQ(hook.hook(state), 1) << hook.name << ": no plain list";
        put(hook.list, "10.0.0.1\n");
        EXPECT_EQ(hook.hook(state), 1) << hook.name << ": not in the plain list";
        put(ranges, header(2, 1) + record({10, 0, 1, 0}, {10, 0, 1, 255}));
        EXPECT_EQ(hook.hook(state), 0) << hook.name << ": in neither";
        put(hook.list, "10.0.0.10\n");
        put(ranges, "no range file at all");
        EXPECT_EQ(hook.hook(state), 1) << hook.name << ": the plain list decides first";
        session::put(&(state->*hook.value), nullptr);
    }
}

TEST_F(hooks_test, an_ipv6_client_is_in_no_range) {
    session::put(&state->ip, "2001:db8::1");
    put("exempt_ips", "2001:DB8::1\n");
    EXPECT_EQ(ipwhitelist_hook(state), 1);
    EXPECT_EQ(ipblacklist_hook(state), 0);
    EXPECT_EQ(log.errors(),
              lines{"__sane_ip: Sorry but this system does not yet support IPv6 range "
                    "checks for address [2001:db8::1]"});
}

TEST_F(hooks_test, list_hooks_refuse_a_missing_session_and_an_empty_value) {
    for (const auto &hook : list_hooks()) {
        const lines want{std::string(hook.name) + ": Invalid argument"};
        EXPECT_EQ(hook.hook(nullptr), 0);
        EXPECT_EQ(log.errors(), want);
        EXPECT_EQ(hook.hook(state), 0);
        EXPECT_EQ(log.errors(), want);
        session::put(&(state->*hook.value), "");
        EXPECT_EQ(hook.hook(state), 0);
        EXPECT_EQ(log.errors(), want);
        session::put(&(state->*hook.value), nullptr);
    }
}

TEST_F(hooks_test, lists_lie_in_the_session_s_base_directory) {
    session::put(&state->base_dir, "c:/quillfence/user");
    for (const auto &hook : list_hooks()) {
        session::put(&(state->*hook.value), "10.0.0.1");
        put(hook.list, "10.0.0.1\n");
        EXPECT_EQ(hook.hook(state), 0) << hook.name;
        put(std::string("user/") + hook.list, "10.0.0.1\n");
        EXPECT_EQ(hook.hook(state), 1) << hook.name;
        session::put(&(state->*hook.value), nullptr);
    }
    const std::string ranges = header(2, 1) + record({10, 0, 0, 0}, {10, 0, 0, 255});
    for (const auto &hook : ip_hooks) {
        session::put(&(state->*hook.value), "10.0.0.2");
        put(std::string(hook.list) + ".range", ranges);
        EXPECT_EQ(hook.hook(state), 0) << hook.name;
        put(std::string("user/") + hook.list + ".range", ranges);
        EXPECT_EQ(hook.hook(state), 1) << hook.name;
        session::put(&(state->*hook.value), nullptr);
    }
}

TEST_F(hooks_test, lines_name_the_module) {
    EXPECT_EQ(ipblacklist_hook(nullptr), 0);
    const auto taken = log.take();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].source, "quillfence-spam-hooks");
}

// --- pattern-file hooks ---

std::string node(uint32_t type, uint32_t left, uint32_t right, uint32_t next) {
    return little_endian(type) + little_endian(left) + little_endian(right) + little_endian(next);
}

// A compiled pattern file with one expression, ".*word.*$", as bytes.
std::string pattern_file(const std::string &word) {
    constexpr uint32_t none = 0xFFFFFFFF;
    constexpr uint32_t group = 258;
    constexpr uint32_t any_text = 269;
    constexpr uint32_t end = 266;
    std::string nodes = node(group, 1, 0, none) + node(any_text, none, none, 2);
    uint32_t next = 3;
    for (const char c : word) {
        nodes += node(static_cast<unsigned char>(c), none, none, next++);
    }
    nodes += node(any_text, none, none, next) + node(end, none, none, none);
    return std::string("\xB9\xEB\x00\x00", 4) +
           little_endian(static_cast<uint32_t>(nodes.size() / 16)) + nodes;
}

constexpr struct {
    const char *name;
    uint8_t (*hook)(smtp_state *state);
    const char *file;
} pattern_hooks[] = {
    {"dyna_regex_hook", dyna_regex_hook, "dynaregex/dyna.cregexes"},
    {"spam_regex_hook", spam_regex_hook, "dynaregex/spam.cregexes"},
    {"confirmed_regex_hook", confirmed_regex_hook, "dynaregex/confirmed.cregexes"},
};

TEST_F(hooks_test, every_name_must_match) {
    static const struct {
        const char *name;
        lines names;
        const char *exempt; // word of the exempt file; null for no file
        int want;
        const char *want_rdns;
    } cases[] = {
        {"one name, matching", {"dyn1.example"}, nullptr, 1, nullptr},
        {"one name, other case", {"DYN1.example"}, nullptr, 1, nullptr},
        {"one name, not matching", {"mail.example"}, nullptr, 0, "mail.example"},
        {"both match", {"dyn1.example", "dyn2.example"}, nullptr, 1, nullptr},
        {"only the first matches", {"dyn1.example", "mail.example"}, nullptr, 0, "mail.example"},
        {"only the second matches", {"mail.example", "dyn1.example"}, nullptr, 0, "mail.example"},
        {"the first that breaks the rule", {"dyn1", "a", "b"}, nullptr, 0, "a"},
        {"an exempt file of other names", {"dyn1.example"}, "zzz", 1, nullptr},
        {"an exempt name", {"dyn1.example", "dyn2.example"}, "dyn2", 0, "dyn2.example"},
        {"exempt counts only where it matches", {"dyn1", "mail2"}, "mail", 0, "mail2"},
        {"no names", {}, nullptr, 1, nullptr},
    };
    for (const auto &hook : pattern_hooks) {
        drive.remove("c:/quillfence/dynaregex");
        put(hook.file, pattern_file("dyn"));
        for (const auto &c : cases) {
            drive.remove(exempt_regex_file);
            if (c.exempt) {
                drive.write(exempt_regex_file, pattern_file(c.exempt));
            }
            set_names(c.names);
            EXPECT_EQ(hook.hook(state), c.want) << hook.name << ": " << c.name;
            EXPECT_STREQ(state->rdns, c.want_rdns) << hook.name << ": " << c.name;
        }
    }
}

// Which the client's DNS server chooses.
TEST_F(hooks_test, more_than_100_names_are_not_matched) {
    for (const auto &hook : pattern_hooks) {
        put(hook.file, pattern_file("dyn"));
        set_names(lines(100, "dyn1.example"));
        EXPECT_EQ(hook.hook(state), 1) << hook.name;
        set_names(lines(101, "dyn1.example"));
        EXPECT_EQ(hook.hook(state), 0) << hook.name;
        EXPECT_EQ(state->rdns, nullptr) << hook.name;
        drive.remove("c:/quillfence/dynaregex");
    }
}

TEST_F(traced_hooks_test, a_line_tells_of_too_many_names) {
    for (const auto &hook : pattern_hooks) {
        put(hook.file, pattern_file("dyn"));
        set_names(lines(101, "dyn1.example"));
        log.take();
        EXPECT_EQ(hook.hook(state), 0) << hook.name;
        EXPECT_EQ(log.transcript().back(),
                  "D " + std::string(hook.name) + ": " + too_many_ptr_names_line);
    }
}

// As many steps as it takes to read one name of 20 characters, but not a hundred such names.
TEST_F(hooks_test, a_lookup_that_the_run_has_no_steps_for_gives_0_with_a_line) {
    const lines names(100, "a-long-name-dyn.test");
    for (const auto &hook : pattern_hooks) {
        const lines want{std::string(hook.name) + ": " + ptr_steps_spent_line};
        drive.remove("c:/quillfence/dynaregex");
        put(hook.file, pattern_file("dyn"));
        set_names(names);
        {
            const step_scope steps(500);
            EXPECT_EQ(hook.hook(state), 0) << hook.name << ": by its own file";
            EXPECT_EQ(log.errors(), want);
            EXPECT_EQ(hook.hook(state), 0) << hook.name << ": nothing is left";
            EXPECT_EQ(log.errors(), want) << "one line a rule";
        }
        EXPECT_EQ(state->rdns, nullptr) << hook.name << ": who breaks the rule is not known";
        EXPECT_EQ(hook.hook(state), 1) << hook.name << ": a run of its own";
        // Were the spent lookup taken for "not exempt", the rule would hit.
        set_names({"dyn"});
        drive.write(exempt_regex_file, pattern_file(std::string(200, '-') + "x"));
        uint64_t own = 0;
        {
            step_budget budget;
            begin_steps(&budget, 100'000);
            compiled_regex_match(("c:/quillfence/" + std::string(hook.file)).c_str(), "dyn");
            own = 100'000 - budget.left;
            end_steps(&budget);
        }
        const step_scope steps(own + 1);
        EXPECT_EQ(hook.hook(state), 0) << hook.name << ": by the exempt file";
        EXPECT_EQ(log.errors(), want);
    }
}

TEST_F(hooks_test, the_recorded_name_is_the_session_s_own) {
    put("dynaregex/dyna.cregexes", pattern_file("dyn"));
    set_names({"dyn1.example", "mail.example"});
    EXPECT_EQ(dyna_regex_hook(state), 0);
    EXPECT_EQ(state->rdns, state->ptr_results[1]);
    state->rdns = state->ptr_results[0];
    vc_lstremove(reinterpret_cast<void **>(state->ptr_results), 1, std::free);
    EXPECT_EQ(dyna_regex_hook(state), 1);
    EXPECT_EQ(state->rdns, state->ptr_results[0]) << "a hit leaves the session as it was";
}

TEST_F(hooks_test, nothing_to_judge_gives_0) {
    for (const auto &hook : pattern_hooks) {
        EXPECT_EQ(hook.hook(nullptr), 0) << hook.name;
        put(hook.file, pattern_file("dyn"));
        EXPECT_EQ(hook.hook(state), 0) << hook.name << ": no list of names";
        drive.remove("c:/quillfence/dynaregex");
        set_names({"dyn1.example"});
        EXPECT_EQ(hook.hook(state), 0) << hook.name << ": no file";
        EXPECT_EQ(state->rdns, nullptr) << hook.name << ": nothing is recorded then";
        EXPECT_FALSE(drive.exists(std::string("c:/quillfence/") + hook.file));
        vc_lstfree(&state->ptr_results, std::free);
    }
}

TEST_F(hooks_test, a_file_that_is_no_pattern_file_matches_nothing) {
    put("dynaregex/dyna.cregexes", "dyn\n");
    set_names({"dyn1.example"});
    EXPECT_EQ(dyna_regex_hook(state), 0);
    EXPECT_STREQ(state->rdns, "dyn1.example");
    EXPECT_EQ(log.errors(),
              lines{"compiled_regex_match: file [c:/quillfence/dynaregex/dyna.cregexes] is not a "
                    "valid vellumcraft generated regex file"});
}

} // namespace
} // namespace quillfence::testing
