// Lookups and whole checks on a system that fails: no file changes, no handle stays open, and a
// failure is not taken for an answer, but where a rule says so.
#include "engine_test.h"
#include "fault_sweep.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "open_handles.h"
#include "quillfence-file.h"
#include "run.h"
#include "vc_text.h"
#include "vcspamrule.h"

namespace quillfence::testing {
namespace {

class faults_checks : public engine_test {
  protected:
    faults_checks() {
        before = contents_of(drive);
    }
    void expect_nothing_changed() {
        EXPECT_EQ(changed_files(before, contents_of(drive)), "");
    }
    drive_contents before;
};

constexpr char root[] = "c:/quillfence/";

vc_list_entry *map_names() {
    static char one[] = "one";
    static char two[] = "two";
    static vc_list_entry second = {two, sizeof two, nullptr};
    static vc_list_entry first = {one, sizeof one, &second};
    return &first;
}

// A lookup that fails finds nothing.
TEST_F(faults_checks, lookups) {
    static const struct {
        const char *name;
        int (*look_up)();
    } lookups[] = {
        {"list", [] { return __file_contains_line(root, "blocked_ips", "192.0.2.66", _stricmp); }},
        {"wildcard list",
         [] {
             return __file_contains_line(root, "from_blacklist", "a@foe.example", __wildcardmatch);
         }},
        {"range file",
         [] { return file_contains_ip_range_match("blocked_ips.range", "192.0.2.75", root); }},
        {"range",
         [] {
             return ipr_file_contains_range("c:/quillfence/blocked_ips.range", "192.0.2.70",
                                            "192.0.2.79", nullptr);
         }},
        {"pattern file", [] { return compiled_regex_match(dyna_regex_file, "dyn1.x"); }},
        {"block maps",
         [] { return lookupMaps("c:/quillfence/bms", map_names(), "192.0.2.1", nullptr); }},
    };
    for (const auto &lookup : lookups) {
        SCOPED_TRACE(lookup.name);
        const int handles = open_handles();
        int found = 0;
        const unsigned runs = sweep_faults([] {}, [&] { found = lookup.look_up(); },
                                           [&](const fault &) {
                                               EXPECT_TRUE(found == 0 || found == 1);
                                               expect_nothing_changed();
                                               EXPECT_EQ(open_handles(), handles);
                                               log.take();
                                           });
        EXPECT_EQ(found, 1);
        EXPECT_GT(runs, 5u);
    }
}

// What a failure can add to a report, and why. Everything else only goes missing.
bool may_appear(const std::string &hit, const fault &what, const client &who) {
    // An exemption that can't be read exempts nobody.
    if (std::string(who.name) == "dynamic, exempt" &&
        (hit == "check_dynamic_reverse_dns" || hit == "check_dynamic_reverse_dns_default" ||
         hit == "check_reverse_dns_list" || hit == "check_confirmed_dyna")) {
        return true;
    }
    // A list of declarations that ends early restricts its last domain the more.
    return what.answer == platform::observed_half && hit == "known_sender_forgery";
}

constexpr client exempt_client = {"dynamic, exempt", "192.0.2.3", "mail.good.example",
                                  "a@good.example", "b@here.example"};

void expect_report(vc_json *report, const std::set<std::string> &all, const fault &what,
                   const client &who) {
    for (const std::string &hit : report ? hits_of(report) : std::set<std::string>()) {
        EXPECT_TRUE(all.contains(hit) || may_appear(hit, what, who)) << hit;
    }
}

TEST_F(faults_checks, whole_report) {
    for (const client &who : {clients[0], clients[1], clients[2], clients[3], exempt_client}) {
        SCOPED_TRACE(who.name);
        vc_json *report = replay(who);
        const std::set<std::string> all = hits_of(report);
        vc_json_free(report);
        report = nullptr;
        const int handles = open_handles();
        const auto run_again = [&] {
            vc_json_free(report); // of a run without a fault, which nobody judges
            report = replay(who);
        };
        const unsigned runs = sweep_faults([] {}, run_again,
                                           [&](const fault &what) {
                                               expect_report(report, all, what, who);
                                               vc_json_free(report);
                                               report = nullptr;
                                               expect_nothing_changed();
                                               EXPECT_EQ(open_handles(), handles);
                                               log.take();
                                           });
        EXPECT_EQ(hits_of(report), all);
        vc_json_free(report);
        EXPECT_GT(runs, 500u);
    }
}

// Every rule, reportable or not, and every map that a client hits, by the names of decisions.
std::set<std::string> everything_that_hits(const client &who) {
    std::set<std::string> names;
    vc_json *report = replay(who);
    for (const std::string &hit : hits_of(report)) {
        names.insert("block_list (" + hit + ")"); // as a decision names a map
    }
    vc_json_free(report);
    for (const rule_row &rule : rule_rows()) {
        const owned_session state = session_of(who);
        if (rule.check && __process_state(state.get()) && rule.check(state.get())) {
            names.insert(rule.name);
        }
    }
    return names;
}

// A failure may let a client pass, or let another of its hits decide; it never makes an exemption,
// or a hit that the client does not have.
TEST_F(faults_checks, whole_decision) {
    for (const client &who : clients) {
        SCOPED_TRACE(who.name);
        const std::set<std::string> all = everything_that_hits(who);
        const int handles = open_handles();
        const std::string right = decide(who);
        std::string verdict;
        const unsigned runs =
            sweep_faults([] {}, [&] { verdict = decide(who); },
                         [&](const fault &what) {
                             EXPECT_TRUE(verdict == right || verdict == "pass" ||
                                         all.contains(verdict) || may_appear(verdict, what, who))
                                 << verdict << " instead of " << right;
                             expect_nothing_changed();
                             EXPECT_EQ(open_handles(), handles);
                             log.take();
                         });
        EXPECT_EQ(verdict, right);
        EXPECT_GT(runs, 100u);
    }
}

// --- the DNS ---

// Answers that get lost never add a hit; answers that are refused count as "no such name".
TEST_F(faults_checks, dns_answers) {
    static constexpr uint32_t refused = 9005;
    static constexpr uint32_t lost = 1460;
    static constexpr uint32_t server_failure = 9002;
    static const std::set<std::string> by_refusal = {"check_ip_reverse_dns", "valid_from_domain",
                                                     "resolve_helo_domain", "valid_ptr"};
    for (const client &who : clients) {
        vc_json *report = replay(who);
        const std::set<std::string> all = hits_of(report);
        vc_json_free(report);
        for (const uint32_t status : {refused, lost, server_failure}) {
            for (const bool all_after : {false, true}) {
                bool failed = true;
                for (int n = 1; failed && n < 100; ++n) {
                    SCOPED_TRACE(std::string(who.name) + ", status " + std::to_string(status) +
                                 ", question " + std::to_string(n));
                    {
                        call_watch watch;
                        watch.fail("dns_query", n, status, all_after);
                        report = replay(who);
                        failed = watch.failed() > 0;
                    }
                    ASSERT_NE(report, nullptr);
                    for (const std::string &hit : hits_of(report)) {
                        EXPECT_TRUE(all.contains(hit) ||
                                    (status == refused && by_refusal.contains(hit)))
                            << hit;
                    }
                    vc_json_free(report);
                }
            }
        }
    }
    expect_nothing_changed();
    log.take();
}

// --- broken files, as docs/security.md tells of them ---

TEST_F(faults_checks, broken_files) {
    static const struct {
        const char *path;
        client who;
        const char *hit;
        bool whole;  // whether the hit is there with the whole file
        bool broken; // and with a broken or empty one
    } cases[] = {
        {"dynaregex/dyna.cregexes", clients[1], "check_dynamic_reverse_dns", true, false},
        {"dynaregex/spam.cregexes", clients[1], "check_reverse_dns_list", true, false},
        {"dynaregex/confirmed.cregexes", clients[1], "check_confirmed_dyna", true, false},
        {"dynaregex/exempt.cregexes", exempt_client, "check_dynamic_reverse_dns", false, true},
        {"control/valid_domain_ips", clients[3], "known_sender_forgery", true, false},
        {"bms/one", clients[0], "one", true, false},
    };
    for (const auto &c : cases) {
        const std::string path = std::string(root) + c.path;
        const std::string bytes = drive.read(path);
        for (const std::string &now : {bytes, std::string(), std::string("broken")}) {
            SCOPED_TRACE(std::string(c.path) + ", " + std::to_string(now.size()) + " bytes");
            drive.write(path, now);
            vc_json *report = replay(c.who);
            EXPECT_EQ(hits_of(report).contains(c.hit), now == bytes ? c.whole : c.broken);
            vc_json_free(report);
        }
        drive.write(path, bytes);
    }
    log.take();
    // Without a list of maps there is no report at all.
    drive.write("c:/quillfence/bms/lists_to_update", "");
    EXPECT_EQ(replay(clients[0]), nullptr);
    EXPECT_FALSE(log.errors().empty());
}

// Whitelists and blacklists show in decisions only.
TEST_F(faults_checks, broken_lists) {
    EXPECT_EQ(decide(clients[5]), "exempt");
    drive.write("c:/quillfence/exempt_ips.range", "broken");
    drive.write("c:/quillfence/exempt_users", "");
    drive.write("c:/quillfence/from_whitelist", "");
    EXPECT_NE(decide(clients[5]), "exempt");

    drive.write("c:/quillfence/control/rules.enabled", "none\n");
    drive.write("c:/quillfence/control/bms.enabled", "");
    EXPECT_EQ(decide(clients[4]), "ip_blacklist");
    drive.write("c:/quillfence/blocked_ips.range", "broken");
    EXPECT_EQ(decide(clients[4]), "from_blacklist");
    drive.write("c:/quillfence/from_blacklist", "");
    EXPECT_EQ(decide(clients[4]), "pass");

    drive.write("c:/quillfence/control/enabled", "");
    EXPECT_EQ(decide(clients[5]), "pass") << "an engine that is not enabled judges nobody";
    log.take();
}

} // namespace
} // namespace quillfence::testing
