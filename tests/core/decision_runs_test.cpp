// The engine as a mail server uses it: its own rules and hooks, real files, and a DNS that answers
// from a script. Each rule is enabled alone (next to the two that always are), and the session is
// one that it hits; name and notice are what the client gets to see.
#include <memory>
#include <string>
#include <vector>

#include "check_lists.h"
#include "dns_script.h"
#include "drive_c.h"
#include "heap_text.h"
#include "hook_table.h"
#include "platform/file.h"
#include "quillfence-checks.h"
#include "running_engine.h"
#include "test_registry.h"
#include "tiny_rex_storage.h"
#include "vc_nulltermlist.h"

#define HELP(page) " See " QUILLFENCE_HELP_SITE "best-practices/" page " for more information."

namespace quillfence::testing {
namespace {

constexpr char reverse_name[] = "1.2.0.192.in-addr.arpa.";
constexpr uint16_t type_a = 1, type_ptr = 12;

struct transaction {
    const char *ip = "192.0.2.1";
    const char *helo = "mx.example.org";
    const char *from = "a@example.org";
    const char *to = "b@example.net";
    const char *country = nullptr;
    bool ipv6 = false;
    std::vector<std::string> ptr_names = {"mx.example.org"}; // none: the address has no name
};

uint8_t lists_everything(smtp_state *) {
    return 1;
}

class decision_runs : public drive_test {
  protected:
    decision_runs() {
        for (const char *name : {"example.org.", "mx.example.org."}) {
            dns.answer(name, type_a, 0, {{type_a, ""}});
        }
    }
    // The lists that an embedding server may install beside the engine's own.
    static void install_host_lists() {
        hook_table table = hooks();
        table.helo_whitelist = lists_everything;
        table.helo_blacklist = lists_everything;
        table.country_blacklist = lists_everything;
        set_hooks(table);
    }
    void write_patterns(const char *path, const char *pattern) {
        drive.write(path, "");
        FILE *stream = platform::stream_open(path, "r+b");
        ASSERT_NE(stream, nullptr);
        TRex *expression = trex_compile_ex(pattern, trex_fold_case);
        EXPECT_EQ(trs_set_header(stream), 1);
        EXPECT_EQ(trs_store(stream, expression), 1);
        trex_free(expression);
        fclose(stream);
    }
    void fill(session &state, const transaction &t) {
        session::put(&state->helo, t.helo);
        session::put(&state->mail_from, t.from);
        session::put(&state->rcpt_to, t.to);
        session::put(&state->ip_country, t.country);
        session::put(&state->base_dir, "c:/quillfence/");
        state->routable = 1;
        state->ipv6 = t.ipv6;
        if (!t.ptr_names.empty()) {
            dns.ptr(reverse_name, t.ptr_names);
        } else {
            dns.answer(reverse_name, type_ptr, 9003);
        }
    }
    dns_script dns;

  private:
    running_engine engine_;
};

struct rule_case {
    const char *rule;
    transaction session;
    const char *notice;
};

const rule_case cases[] = {
    {"block_all_mail",
     {},
     "Recipient b@example.net only accepts white listed emails." HELP("empowering-your-users/")},
    {"block_ip_in_addr",
     {.from = "a@192.0.2.9"},
     "The system does not allow messages that use IP addresses instead of domain names." HELP(
         "block-ip-in-address/")},
    {"require_helo", {.helo = ""}, "Missing HELO." HELP("require-helo-identifier/")},
    {"valid_helo_domain",
     {.helo = "no_name"},
     "HELO argument [no_name] is malformed." HELP("valid-helo-identifier/")},
    {"block_mail_from_self",
     {.from = "B@Example.net"},
     "Recipient b@example.net does not allow messages that appear to come from themselves "
     "(possible forgery)." HELP("block-email-from-self/")},
    {"require_full_addr",
     {.from = "a", .to = nullptr},
     "Incomplete email address [a] [unknown]." HELP("require-full-email-address/")},
    {"mail_from_strict_addr_parse",
     {.from = "a b@example.org"},
     "Bad or malformed FROM address [a b@example.org]." HELP("strict-address-parsing/")},
    {"rfc_mail_from",
     {.from = "a@localhost.localdomain"},
     "Email address [a@localhost.localdomain] fails to meet RFC 2821 requirements." HELP(
         "rfc-mail-from/")},
    {"valid_ptr",
     {.ptr_names = {"no_name"}},
     "Server 192.0.2.1 has an invalid PTR record." HELP(
         "reverse-dns-naming-conventions-valid-ptr/")},
    {"check_ip_reverse_dns",
     {.ptr_names = {}},
     "Your server IP address [192.0.2.1] is missing a reverse DNS entry." HELP(
         "check-ip-reverse-dns/")},
    {"check_dynamic_reverse_dns_default",
     {.ptr_names = {"1-2-3-4.pool.example"}},
     "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry "
     "[1-2-3-4.pool.example]." HELP("check_dynamic_reverse_dns/")},
    {"check_dynamic_reverse_dns",
     {.ptr_names = {"dyna1.example"}},
     "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry "
     "[dyna1.example]." HELP("check_dynamic_reverse_dns/")},
    {"check_reverse_dns_list",
     {.ptr_names = {"spam1.example"}},
     "Your server hostname [spam1.example] for IP [192.0.2.1] matches a pattern which was abusive "
     "in the past." HELP("check_reverse_dns_list/")},
    {"check_confirmed_dyna",
     {.ptr_names = {"sure1.example"}},
     "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry "
     "[sure1.example]." HELP("check_dynamic_reverse_dns/")},
    {"ip_blacklist",
     {.ip = "192.0.2.66"},
     "Your email is rejected -- you are on the recipient's blacklist." HELP(
         "empowering-your-users/")},
    {"from_blacklist",
     {.from = "a@blocked.example"},
     "Your email is rejected -- you are on the recipient's blacklist." HELP(
         "empowering-your-users/")},
    {"helo_blacklist", {}, "Your server has been blacklisted." HELP("empowering-your-users/")},
    {"country_blacklist",
     {.country = "XX"},
     "Your country has been blacklisted." HELP("empowering-your-users/")},
    {"resolve_helo_domain",
     {.helo = "mx.missing.example"},
     "HELO argument [mx.missing.example] is missing a DNS entry." HELP("resolve-helo-identifier/")},
    {"valid_from_domain",
     {.from = "a@missing.example"},
     "Mail from domain [a@missing.example] is missing A or MX DNS record." HELP(
         "valid_from_address/")},
    {"known_sender_forgery",
     {.from = "a@tied.example"},
     "Mail from domain does not match with valid sender source." HELP("known_sender_forgery/")},
    {"local_require_auth",
     {.from = "a@hosted.example"},
     "Please check your email settings for SMTP Authentication or contact your email service "
     "provider for assistance."},
    {"block_nonauth_ipv6",
     {.ip = "2001:db8::1", .ipv6 = true},
     "This server only accepts deliveries from IPv6 clients when they use SMTP "
     "authentication." HELP("block-nonauth-ipv6/")},
    {"helo_whitelist", {}, "whitelisted"},
    {"ip_whitelist", {.ip = "192.0.2.25"}, "whitelisted"},
    {"from_whitelist", {.from = "a@friend.example"}, "whitelisted"},
    {"to_whitelist", {.to = "postmaster@example.net"}, "whitelist"},
};

TEST_F(decision_runs, each_rule_hits_with_its_notice_and_not_without_being_enabled) {
    install_host_lists();
    write_patterns("c:/quillfence/dynaregex/dyna.cregexes", "dyna[0-9]+\\.");
    write_patterns("c:/quillfence/dynaregex/spam.cregexes", "spam[0-9]+\\.");
    write_patterns("c:/quillfence/dynaregex/confirmed.cregexes", "sure[0-9]+\\.");
    const test_registry store;
    store.set_text("SOFTWARE\\Mail Enable\\Mail Enable", "Configuration Directory",
                   "c:\\quillfence\\Config");
    drive.write("c:/quillfence/Config/DOMAIN.TAB", "hosted.example\t1\r\n");
    drive.write("c:/quillfence/blocked_ips", "192.0.2.66\n");
    drive.write("c:/quillfence/from_blacklist", "*@blocked.example\n");
    drive.write("c:/quillfence/exempt_ips", "192.0.2.25\n");
    drive.write("c:/quillfence/from_whitelist", "*@friend.example\n");
    drive.write("c:/quillfence/exempt_users", "Postmaster@example.net\n");
    drive.write("c:/quillfence/control/valid_domain_ips", "tied.example : 198.51.100.0/24\n");
    for (const rule_case &c : cases) {
        SCOPED_TRACE(c.rule);
        const bool always_on =
            c.rule == std::string("ip_blacklist") || c.rule == std::string("from_blacklist");
        for (const bool enabled : {true, false}) {
            drive.write("c:/quillfence/control/rules.enabled",
                        enabled ? std::string(c.rule) + "\n" : "");
            session state(c.session.ip);
            fill(state, c.session);
            EXPECT_EQ(global_spam_hit_r(state, quillfence_rules()), 1);
            const bool hits = enabled || always_on;
            EXPECT_EQ(shown(state->hit_name), hits ? c.rule : "(none)");
            EXPECT_EQ(shown(state->rejection_notice), hits ? c.notice : "(none)");
        }
    }
    // The IPv6 client, with its rule enabled and without: ip_blacklist always runs.
    const std::string no_range = "__sane_ip: Sorry but this system does not yet support IPv6 range "
                                 "checks for address [2001:db8::1]";
    EXPECT_EQ(log.errors(), (lines{no_range, no_range}));
}

TEST_F(decision_runs, a_session_with_nothing_wrong_hits_nothing) {
    session state("192.0.2.1");
    fill(state, {});
    EXPECT_EQ(global_spam_hit_r(state, quillfence_rules()), 1);
    EXPECT_EQ(shown(state->hit_name), "(none)");
}

TEST_F(decision_runs, whitelists_exempt_in_table_order) {
    drive.write("c:/quillfence/exempt_ips", "192.0.2.25\n");
    drive.write("c:/quillfence/from_whitelist", "*@friend.example\n");
    drive.write("c:/quillfence/exempt_users", "postmaster@example.net\n");
    static const struct {
        transaction session;
        const char *want;
    } exemptions[] = {
        {{.ip = "192.0.2.25"}, "ip_whitelist"},
        {{.from = "a@friend.example"}, "from_whitelist"},
        {{.to = "postmaster@example.net"}, "to_whitelist"},
        {{.ip = "192.0.2.25", .from = "a@friend.example"}, "from_whitelist"},
        {{.ip = "192.0.2.25", .from = "a@friend.example", .to = "postmaster@example.net"},
         "to_whitelist"},
        {{}, "(none)"},
    };
    for (const auto &c : exemptions) {
        session state(c.session.ip);
        fill(state, c.session);
        EXPECT_EQ(is_exempt(state, nullptr), c.want != std::string("(none)"));
        EXPECT_EQ(shown(state->hit_name), c.want);
        EXPECT_EQ(shown(state->rejection_notice), "(none)");
    }
}

} // namespace
} // namespace quillfence::testing
