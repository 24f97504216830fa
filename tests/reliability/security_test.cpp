// What docs/security.md says: which rules hit when nothing can be asked, and what a hostile text
// does to the logs.
#include <cstdio>

#include "engine_test.h"
#include "fault_sweep.h"
#include "quillfence-log.h"
#include "run.h"
#include "vc_w32.h"
#include "vcspamrule.h"

namespace quillfence::testing {
namespace {

class security : public engine_test {
  protected:
};

// Files, registry and libraries refuse, and the DNS is silent.
uint32_t nothing_answers(const char *call, const char *) {
    const std::string name = call;
    if (name == "dns_query") {
        return 1460;
    }
    for (const char *kind : {"file_", "path_", "stream_", "registry_", "library_", "directory_"}) {
        if (name.starts_with(kind)) {
            return platform::error_access_denied;
        }
    }
    return 0;
}

std::string rules_that_hit(const client &who) {
    const owned_session state = session_of(who);
    std::string names;
    platform::set_call_observer(nothing_answers);
    __process_state(state.get());
    for (const vc_list_entry *entry = quillfence_rules(); entry; entry = entry->next) {
        const auto *rule = static_cast<const spam_rule *>(entry->data);
        if (rule->check && rule->check(state.get())) {
            names += std::string(rule->name) + " ";
        }
    }
    platform::set_call_observer(nullptr);
    return names;
}

TEST_F(security, only_rules_over_the_session_hit_when_nothing_answers) {
    static const struct {
        client who;
        const char *hits;
    } cases[] = {
        {clients[0], "block_all_mail "},
        {clients[1], "block_all_mail "},
        {clients[2], "block_all_mail require_full_addr "},
        {clients[3], "block_all_mail "},
        {clients[4], "block_all_mail require_helo valid_helo_domain resolve_helo_domain "},
        {clients[5], "block_all_mail valid_helo_domain resolve_helo_domain "},
        {{"v6", "2001:db8::1", "a.example", "a@a.example", "b@b.example"},
         "block_all_mail block_nonauth_ipv6 "},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(rules_that_hit(c.who), c.hits) << c.who.name;
    }
    log.take();
}

constexpr char hostile[] = "a\r\nforged line <x>\x1b[2J\x80";

TEST_F(security, the_mail_log_shows_texts_as_they_came) {
    const owned_session state = session_of(clients[0]);
    session::put(&state->helo, hostile);
    log_message(state.get(), "rule", log_type_spam);
    EXPECT_NE(drive.read("c:/quillfence/log/qflog").find("helo=<" + std::string(hostile) + ">"),
              std::string::npos);
}

TEST_F(security, an_event_shows_printable_characters_alone) {
    vc_log_error("f", "m", 1, "%s", hostile);
    EXPECT_EQ(log.errors(), lines{"f: a??forged line <x>?[2J?"});
    vc_log_error("f", "m", 1, "%s", std::string(2000, 'x').c_str());
    EXPECT_EQ(log.errors(), lines{"f: " + std::string(255, 'x')});
}

} // namespace
} // namespace quillfence::testing
