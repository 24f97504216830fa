// What the engine's modules tell to whoever asks, and that asking changes nothing.
#include <cstdlib>

#include "../reliability/engine_test.h"
#include "evidence_watch.h"
#include "failing_memory.h"
#include "is_local_domain.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "me_ip_whitelist.h"
#include "me_settings.h"
#include "owned_session.h"
#include "process_state.h"
#include "quillfence-checks.h"
#include "quillfence-file.h"
#include "quillfence.h"
#include "test_registry.h"

namespace quillfence::testing {
namespace {

constexpr char root[] = "c:/quillfence/";

class told : public engine_test {
  protected:
    static owned_session completed(const client &who) {
        owned_session state = session_of(who);
        __process_state(state.get());
        return state;
    }
    test_registry registry;
};

// --- files ---

TEST_F(told, a_list_with_the_entry_that_matched) {
    drive.write("c:/quillfence/list", "# mine\n\n  a@x.example\n*@Y.example\n");
    evidence_watch watch;
    EXPECT_EQ(__file_contains_line(root, "list", "b@y.example", __wildcardmatch), 1);
    EXPECT_EQ(__file_contains_line(root, "list", "A@x.example", __wildcardmatch), 1);
    EXPECT_EQ(__file_contains_line(root, "list", "a@z.example", _stricmp), 0);
    EXPECT_EQ(__file_contains_line(root, "none", "a@z.example", _stricmp), 0);
    EXPECT_EQ(watch.take("list"),
              (lines{"list path=c:/quillfence/list value=b@y.example wildcards entries=2 line=4 "
                     "entry=*@Y.example by_wildcard",
                     "list path=c:/quillfence/list value=A@x.example wildcards entries=1 line=3 "
                     "entry=a@x.example",
                     "list path=c:/quillfence/list value=a@z.example entries=2",
                     "list path=c:/quillfence/none value=a@z.example missing"}));
}

TEST_F(told, a_range_with_its_record_and_comment) {
    drive.write("c:/quillfence/r", "");
    evidence_watch watch;
    EXPECT_EQ(file_contains_ip_range_match("blocked_ips.range", "192.0.2.75", root), 1);
    EXPECT_EQ(file_contains_ip_range_match("blocked_ips.range", "192.0.2.1", root), 0);
    EXPECT_EQ(file_contains_ip_range_match("none", "192.0.2.1", root), 0);
    EXPECT_EQ(watch.take("ranges"),
              (lines{"ranges path=c:/quillfence/blocked_ips.range value=192.0.2.75 records=1 "
                     "record=1 low=192.0.2.70 high=192.0.2.79 comment=",
                     "ranges path=c:/quillfence/blocked_ips.range value=192.0.2.1 records=1",
                     "ranges path=c:/quillfence/none missing"}));
}

TEST_F(told, an_expression_with_its_nodes) {
    evidence_watch watch;
    EXPECT_EQ(compiled_regex_match(dyna_regex_file, "dyn7.example"), 1);
    EXPECT_EQ(compiled_regex_match(dyna_regex_file, "mail.example"), 0);
    const std::string path = dyna_regex_file;
    EXPECT_EQ(watch.take("patterns"),
              (lines{"patterns path=" + path +
                         " subject=dyn7.example expressions=1 expression=1 with_nodes",
                     "patterns path=" + path + " subject=mail.example expressions=1"}));
    drive.write(path, "nothing of the kind");
    EXPECT_EQ(compiled_regex_match(dyna_regex_file, "mail.example"), 0);
    EXPECT_EQ(watch.take("failure"),
              (lines{"failure what=" + path + " reason=not a file of compiled patterns"}));
    log.take();
}

TEST_F(told, a_block_map_with_the_level_that_decided) {
    std::string map(1024 + 1024 + 8192, '\0');
    map.replace(10 * 4, 4, std::string("\x00\x04\x00\x00", 4));       // level 2 at 1024
    map.replace(1024 + 5 * 4, 4, std::string("\x00\x08\x00\x00", 4)); // bitmap at 2048
    map[2048] = '\x40';                                               // 10.5.0.1
    drive.write("c:/quillfence/bms/deep", map);
    evidence_watch watch;
    vc_list_entry *maps = nullptr;
    for (const char *name : {"deep", "none"}) {
        vc_append_list_entry(&maps, name, strlen(name) + 1, 1);
    }
    EXPECT_EQ(lookupMaps("c:/quillfence/bms", maps, "10.5.0.1", nullptr), 1);
    EXPECT_EQ(lookupMaps("c:/quillfence/bms", maps, "10.6.0.1", nullptr), 0);
    vc_destroy_list(&maps, free);
    EXPECT_EQ(watch.take("map"),
              (lines{"map path=c:/quillfence/bms/deep listed address=10.5.0.1 level=3",
                     "map path=c:/quillfence/bms/none missing address=10.5.0.1",
                     "map path=c:/quillfence/bms/deep address=10.6.0.1 level=2",
                     "map path=c:/quillfence/bms/none missing address=10.6.0.1"}));
}

TEST_F(told, sender_networks_with_the_line_of_the_domain) {
    const char *const path = "c:/quillfence/control/valid_domain_ips";
    drive.write(path, "# tied\nbroken\ntied.example : 192.0.2.0/24\n");
    evidence_watch watch;
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("192.0.2.1", "Tied.example", path), 1);
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("198.51.100.1", "tied.example", path), 0);
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("198.51.100.1", "free.example", path), 1);
    const std::string front = std::string("sender_networks path=") + path;
    EXPECT_EQ(watch.take("sender_networks"),
              (lines{front + " domain=tied.example domains=1 line=3 inside",
                     front + " domain=tied.example domains=1 line=3",
                     front + " domain=free.example domains=1"}));
}

// --- the mail server ---

TEST_F(told, the_mail_servers_white_list) {
    using platform::registry_view_32;
    registry.set_dword(me_connector_key, me_white_list_status, 1, registry_view_32);
    registry.set_text(me_white_list_key, "192.0.2.*", "", registry_view_32);
    evidence_watch watch;
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.2.9"), 1);
    const std::string list = std::string("registry key=") + me_white_list_key + " value=";
    EXPECT_EQ(watch.take("registry"),
              (lines{std::string("registry key=") + me_connector_key +
                         " value=" + me_white_list_status + " type=4 data=1",
                     list + "192.0.2.9 missing", list + "192.0.2.* decided"}));
    EXPECT_EQ(is_mailenable_ip_whitelist("192.0.3.9"), 0);
    EXPECT_EQ(watch.take("registry").back(), list + "192.0.2.*") << "that it was looked at";
}

TEST_F(told, what_stands_in_the_registry_in_place_of_the_mail_server) {
    const auto asked = [] {
        evidence_watch watch;
        free(me_configuration_directory(me_key));
        return watch.take("registry");
    };
    const std::string front =
        std::string("registry key=") + me_key + " value=" + me_configuration_value;
    EXPECT_EQ(asked(), lines{front + " missing"});
    registry.set_dword(me_key, me_configuration_value, 7);
    EXPECT_EQ(asked(), lines{front + " type=4 data=7"}) << "no text, so it counts as not read";
    registry.set_text(me_key, me_configuration_value, std::string(600, 'x'));
    EXPECT_EQ(asked(), lines{front + " type=1 data=" + std::string(600, 'x')}) << "too long";
    registry.set_text(me_key, me_configuration_value, "c:\\mail");
    EXPECT_EQ(asked(), lines{front + " type=1 data=c:\\mail"});
    EXPECT_EQ(log.errors().size(), 2U) << "of the two that can't be used";
}

TEST_F(told, the_mail_servers_domains) {
    registry.set_text(me_key, me_configuration_value, "c:/quillfence/mail");
    drive.write("c:/quillfence/mail/DOMAIN.TAB", "one.example\tx\ntwo.example\tx\n");
    evidence_watch watch;
    EXPECT_EQ(is_local_domain("a@two.example"), 1);
    EXPECT_EQ(is_local_domain("a@three.example"), 0);
    const std::string front = "domain_table path=c:/quillfence/mail\\DOMAIN.TAB domain=";
    EXPECT_EQ(watch.take("domain_table"),
              (lines{front + "two.example lines=2 line=2", front + "three.example lines=2"}));
}

// --- a run ---

TEST_F(told, a_decision_step_by_step) {
    const owned_session state = completed(clients[1]); // dynamic
    evidence_watch watch;
    EXPECT_EQ(global_spam_hit_r(state.get(), quillfence_rules()), 1);
    const lines rules = watch.take("rule");
    EXPECT_EQ(rules[0], "rule rule=inbound not_enabled");
    const lines last(rules.end() - 2, rules.end());
    EXPECT_EQ(last, (lines{"rule rule=check_dynamic_reverse_dns began",
                           "rule rule=check_dynamic_reverse_dns ended result=1"}));
}

TEST_F(told, a_selection_a_skip_a_cache_and_a_hit) {
    drive.write("c:/quillfence/control/rules.enabled", "valid_ptr\ncheck_ip_reverse_dns");
    owned_session state = completed(clients[2]); // nothing right
    const auto told_by_run = [&](const char *word) {
        evidence_watch watch;
        global_spam_hit_r(state.get(), quillfence_rules());
        return watch.take(word);
    };
    EXPECT_EQ(told_by_run("selection"),
              (lines{"selection what=rules path=c:/quillfence/control/rules.enabled "
                     "names=valid_ptr,check_ip_reverse_dns"}));
    EXPECT_EQ(told_by_run("cache"),
              (lines{"cache cache=rdns_resolves value=2", "cache cache=rdns_resolves value=2"}));
    EXPECT_EQ(told_by_run("hit"), (lines{"hit rule=check_ip_reverse_dns "
                                         "name=check_ip_reverse_dns with_notice"}));
    state->mua = 1;
    EXPECT_EQ(told_by_run("rule")[6], "rule rule=block_rbl_lists not_enabled");
    const lines rules = told_by_run("rule");
    EXPECT_NE(std::find(rules.begin(), rules.end(), "rule rule=valid_ptr skipped kind=mua"),
              rules.end());
}

TEST_F(told, the_built_in_selection_and_pattern) {
    drive.remove("c:/quillfence/control/rules.enabled");
    const owned_session state = completed(clients[0]);
    evidence_watch watch;
    global_spam_hit_r(state.get(), quillfence_rules());
    const lines selections = watch.take("selection");
    ASSERT_EQ(selections.size(), 1u);
    EXPECT_NE(selections[0].find(" built_in names=block_ip_in_addr,"), std::string::npos);
    vc_list_entry *hits = nullptr;
    run_all_spam_checks(state.get(), quillfence_rules(), &hits);
    vc_destroy_list(&hits, free);
    const lines patterns = watch.take("patterns");
    ASSERT_FALSE(patterns.empty());
    EXPECT_EQ(patterns[0].find("patterns subject=mail.good.example expressions=1 pattern="), 0u);
}

TEST_F(told, a_zone_of_a_dns_block_list) {
    const owned_session state = completed(clients[0]);
    evidence_watch watch;
    global_rbl_r(state.get(), quillfence_rules());
    EXPECT_EQ(watch.take("zone"),
              (lines{"zone zone=rbl.example name=1.2.0.192.rbl.example. code=1"}));
}

// --- asking changes nothing ---

struct outcome_of_run {
    int results[6];
    std::string hit;
    lines log;
    bool operator==(const outcome_of_run &) const = default;
};

outcome_of_run run_everything(const client &who, log_capture *log) {
    outcome_of_run made{};
    const owned_session state = session_of(who);
    vc_list_entry *hits = nullptr;
    made.results[0] = __process_state(state.get());
    made.results[1] = is_exempt(state.get(), nullptr);
    made.results[2] = global_spam_hit_r(state.get(), quillfence_rules());
    made.results[3] = global_bms_r(state.get(), quillfence_rules());
    made.results[4] = global_rbl_r(state.get(), quillfence_rules());
    made.results[5] = run_all_spam_checks(state.get(), quillfence_rules(), &hits);
    if (hits) {
        vc_destroy_list(&hits, free);
    }
    made.hit = state->hit_name ? state->hit_name : "";
    made.log = log->transcript();
    return made;
}

class told_and_traced : public traced_drive_test {};

TEST_F(told_and_traced, results_and_log_lines_are_the_same_with_and_without) {
    quillfence_init();
    write_configuration(drive);
    dns_script dns;
    write_zones(&dns);
    const test_registry registry;
    for (const client &who : clients) {
        log.take();
        const outcome_of_run without = run_everything(who, &log);
        evidence_watch watch;
        const outcome_of_run with = run_everything(who, &log);
        EXPECT_EQ(with.hit, without.hit) << who.name;
        EXPECT_EQ(with.log, without.log) << who.name;
        EXPECT_TRUE(with == without);
        EXPECT_GT(without.log.size(), 100u);
        EXPECT_GT(watch.take().size(), 20u);
    }
    quillfence_teardown();
    log.take();
}

// The watch's own lines are not counted; what the engine allocates to tell a fact is.
TEST_F(told, telling_allocates_nothing_but_dns_details) {
    for (const client &who : clients) {
        const auto allocated = [&] {
            const owned_session state = completed(who);
            state->rdns_resolves = resolves_tempfail;
            const unsigned long before = allocations_made();
            is_exempt(state.get(), nullptr);
            global_bms_r(state.get(), quillfence_rules());
            return allocations_made() - before;
        };
        const unsigned long without = allocated();
        evidence_watch watch;
        EXPECT_EQ(allocated(), without) << who.name;
    }
}

} // namespace
} // namespace quillfence::testing
