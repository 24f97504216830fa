#include "quillfence-checks.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "configuration.h"
#include "evidence.h"
#include "hook_table.h"
#include "lookup.h"
#include "quillfence-file.h"
#include "quillfence.h"
#include "rbl_host_lookup.h"
#include "step_budget.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"
#include "vcspamrule.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-checks";

static constexpr char block_maps_rule[] = "block_lists";
static constexpr char rbl_rule[] = "block_rbl_lists";

namespace {

// A list of heap strings that goes away with its scope.
struct text_list {
    vc_list_entry *head = nullptr;

    text_list() = default;
    explicit text_list(vc_list_entry *list) : head(list) {}
    text_list(const text_list &) = delete;
    text_list &operator=(const text_list &) = delete;
    ~text_list() {
        if (head) {
            vc_destroy_list(&head, free);
        }
    }
    vc_list_entry *release() {
        vc_list_entry *list = head;
        head = nullptr;
        return list;
    }
};

// The session kinds for which a rule may be switched off.
struct session_kind {
    uint8_t smtp_state::*flag;
    uint8_t spam_rule::*may_run;
    const char *word; // to whoever asks
    const char *debug_line;
};

} // namespace

// The first kind, in the order given, that is the session's and for which the rule may not run;
// null when the rule runs.
template <size_t count>
static const session_kind *first_skipped(const session_kind (&kinds)[count],
                                         const smtp_state *state, const spam_rule *rule) {
    for (const session_kind &kind : kinds) {
        if (state->*kind.flag && !(rule->*kind.may_run)) {
            tell(&evidence_sink::rule_went,
                 {.rule = rule->name, .step = rule_step::skipped, .kind = kind.word});
            return &kind;
        }
    }
    return nullptr;
}

// Runs the rule's check, if it has one.
static bool run_check(smtp_state *state, const spam_rule *rule) {
    if (!rule->check) {
        tell(&evidence_sink::rule_went, {.rule = rule->name, .step = rule_step::never});
        return false;
    }
    tell(&evidence_sink::rule_went, {.rule = rule->name, .step = rule_step::began});
    const uint8_t hit = rule->check(state);
    tell(&evidence_sink::rule_went, {.rule = rule->name, .step = rule_step::ended, .result = hit});
    return hit;
}

static bool append_copy(vc_list_entry **list, const char *text) {
    return vc_append_list_entry(list, text, strlen(text) + 1, 1) > 0;
}

// A new heap string; null and an ERROR line without memory.
static char *copy_text(const char *function, const char *text) {
    char *copy = strdup(text);
    if (!copy) {
        QF_ERRNO_AS(function, ENOMEM);
    }
    return copy;
}

static bool set_base_dir(const char *function, smtp_state *state, const char *directory) {
    char *copy = copy_text(function, directory);
    if (!copy) {
        return false;
    }
    set_owned_text(&state->base_dir, copy);
    return true;
}

// Records a hit: takes name over (null when there was no memory for it) and builds the rule's
// notice. False when either is missing.
static bool record_hit(smtp_state *state, const spam_rule *rule, char *name) {
    set_owned_text(&state->hit_name, name);
    set_owned_text(&state->rejection_notice, nullptr);
    state->notice_flag = 0;
    state->rejection_notice = build_rejection_notice(rule, state, hooks().message);
    tell(&evidence_sink::recorded_hit,
         {.rule = rule->name, .hit_name = state->hit_name, .notice = state->rejection_notice});
    return state->hit_name && state->rejection_notice;
}

// Asks the block maps for the session's ip and collects the names of those that list it. False
// when the lookup and the list disagree for lack of memory: a walk that broke off behind a hit, or
// hits of which none could be kept. A walk that breaks off before any hit has found none.
static bool ask_block_maps(const smtp_state *state, vc_list_entry *maps, vc_list_entry **hits) {
    const bool listed = lookupMaps(quillfence_block_maps_dir, maps, state->ip, hits);
    return listed == (*hits != nullptr);
}

// --- Report flavour ---

static constexpr session_kind report_order[] = {
    {&smtp_state::localhost, &spam_rule::localhost, "localhost", nullptr},
    {&smtp_state::ipv6, &spam_rule::ipv6, "ipv6", nullptr},
    {&smtp_state::mua, &spam_rule::mua, "mua", nullptr},
    {&smtp_state::ndr, &spam_rule::ndr, "bounce", nullptr},
};

bool is_reportable_rule(const char *name) {
    for (const rule_row &row : rule_rows()) {
        if (strcmp(row.name, name) == 0) {
            return row.reported;
        }
    }
    return false;
}

int run_all_spam_checks(smtp_state *state, vc_list_entry *rules, vc_list_entry **hits) {
    if (!state || !rules || !hits) {
        QF_EINVAL();
        return 0;
    }
    const step_scope steps(run_steps);
    text_list found;
    for (const vc_list_entry *entry = rules; entry; entry = entry->next) {
        const auto *rule = static_cast<const spam_rule *>(entry->data);
        if (!rule || is_empty(rule->name) || strcmp(rule->name, "block_all_mail") == 0 ||
            first_skipped(report_order, state, rule)) {
            continue;
        }
        // Rules that are not reported run all the same: they fill the session's caches.
        if (run_check(state, rule) && is_reportable_rule(rule->name) &&
            !append_copy(&found.head, rule->name)) {
            QF_ERROR("Failed to append [%s] to list of spam hits", rule->name);
            return 0;
        }
    }
    *hits = found.release();
    return 1;
}

int run_all_bms_checks(smtp_state *state, vc_list_entry *rules, vc_list_entry **hits) {
    if (!state || !rules || !hits || !state->ip) {
        QF_EINVAL();
        return 0;
    }
    const spam_rule *rule = find_rule(rules, block_maps_rule);
    if (!rule) {
        QF_ERROR("Missing block lists rule");
        return 0;
    }
    if (first_skipped(report_order, state, rule)) {
        *hits = nullptr;
        return 1;
    }
    text_list maps(
        vc_file_to_list(quillfence_base_dir, path_in_base(configured("bms/lists_to_update"))));
    if (!maps.head) {
        maps.head = vc_file_to_list(quillfence_base_dir,
                                    path_in_base(configured("bms/control/lists_to_update")));
    }
    if (!maps.head) {
        QF_ERROR("Failed to load list of BMS");
        return 0;
    }
    text_list found;
    if (!ask_block_maps(state, maps.head, &found.head)) {
        return 0;
    }
    *hits = found.release();
    return 1;
}

// --- Decision flavour: spam rules ---

static constexpr session_kind spam_order[] = {
    {&smtp_state::ndr, &spam_rule::ndr, "bounce",
     "state is NDR and rule [%s] should not run for that state... skipping"},
    {&smtp_state::mua, &spam_rule::mua, "mua",
     "state is MUA and rule [%s] should not run for that state... skipping"},
    {&smtp_state::localhost, &spam_rule::localhost, "localhost",
     "address is LOCALHOST and rule [%s] should not run for that state... skipping"},
    {&smtp_state::ipv6, &spam_rule::ipv6, "ipv6",
     "source address is IPv6 and rule [%s] should not run for that state... skipping"},
};

// Whether the rule is enabled, may run for this session, and hits.
static bool runs_and_hits(smtp_state *state, vc_list_entry *enabled, const spam_rule *rule) {
    static constexpr char function[] = "run_spam_checks_r";
    QF_DEBUG_AS(function, "Checking rule [%s]", rule->name);
    if (!vc_list_contains_string(enabled, rule->name, 0)) {
        QF_DEBUG_AS(function, "failed to find rule [%s] on list", rule->name);
        tell(&evidence_sink::rule_went, {.rule = rule->name, .step = rule_step::not_enabled});
        return false;
    }
    if (const session_kind *kind = first_skipped(spam_order, state, rule)) {
        QF_DEBUG_AS(function, kind->debug_line, rule->name);
        return false;
    }
    QF_DEBUG_AS(function, "running rule [%s]", rule->name);
    return run_check(state, rule);
}

int run_spam_checks_r(smtp_state *state, vc_list_entry *enabled, vc_list_entry *rules) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (!enabled || !rules) {
        QF_DEBUG("either rules was empty / NULL or rule definition structure empty");
        return 1;
    }
    const step_scope steps(run_steps);
    for (const vc_list_entry *entry = rules; entry; entry = entry->next) {
        const auto *rule = static_cast<const spam_rule *>(entry->data);
        if (!rule || !rule->name) {
            QF_DEBUG("NULL data on rule list");
            continue;
        }
        if (runs_and_hits(state, enabled, rule)) {
            return record_hit(state, rule, copy_text(__func__, rule->name));
        }
    }
    QF_DEBUG("end of checks, returning true");
    return 1;
}

static constexpr char default_rules[] =
    "block_ip_in_addr,check_dynamic_reverse_dns,check_reverse_dns_list,check_ip_reverse_dns,"
    "require_full_addr,require_helo,valid_helo_domain,valid_ptr";

// Loads the enabled rules' names; false without memory.
static bool load_enabled_rules(vc_list_entry **enabled) {
    static constexpr const char *file = name_in_folder(configured("control/rules.enabled"));
    const heap_string path(__build_path(quillfence_control_dir, file));
    if (!path) {
        return false;
    }
    const bool chosen = vc_file_exists_ex(path.get(), vc_type_file);
    if (chosen) {
        *enabled = vc_file_to_list(quillfence_control_dir, file);
    } else if (!vc_list_from_string_by_char(enabled, default_rules, strlen(default_rules), ',')) {
        return false;
    }
    tell(&evidence_sink::loaded_selection,
         {.what = "rules", .path = path.get(), .built_in = !chosen, .names = *enabled});
    for (const char *always : {"ip_blacklist", "from_blacklist"}) {
        if (!append_copy(enabled, always)) {
            return false;
        }
    }
    return true;
}

int global_spam_hit_r(smtp_state *state, vc_list_entry *rules) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (state->base_dir && strcmp(state->base_dir, quillfence_base_dir) != 0 &&
        !set_base_dir(__func__, state, quillfence_base_dir)) {
        return 0;
    }
    text_list enabled;
    return load_enabled_rules(&enabled.head) && run_spam_checks_r(state, enabled.head, rules);
}

// --- Decision flavour: block maps ---

static constexpr session_kind block_maps_order[] = {
    {&smtp_state::localhost, &spam_rule::localhost, "localhost",
     "connection detected as LOCALHOST: returning"},
    {&smtp_state::ipv6, &spam_rule::ipv6, "ipv6", "connection detected as IPv6: returning"},
    {&smtp_state::ndr, &spam_rule::ndr, "bounce", "connection detected as NDR: returning"},
    {&smtp_state::mua, &spam_rule::mua, "mua", "connection detected as MUA: returning"},
};

int run_bms_checks_r(smtp_state *state, vc_list_entry *lists, vc_list_entry *rules) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (!lists) {
        QF_DEBUG("nothing to check. returning");
        return 1;
    }
    const spam_rule *rule = find_rule(rules, block_maps_rule);
    if (!rule) {
        QF_DEBUG("block_lists not enabled, returning");
        return 1;
    }
    if (const session_kind *kind = first_skipped(block_maps_order, state, rule)) {
        QF_DEBUG("%s", kind->debug_line);
        return 1;
    }
    text_list hits;
    if (!ask_block_maps(state, lists, &hits.head)) {
        return 0;
    }
    if (!hits.head) {
        return 1;
    }
    const heap_string names(vc_list_join(hits.head, ","));
    char *hit_name = nullptr;
    if (names) {
        vc_asprintf(&hit_name, "block_list (%s)", names.get());
    }
    return record_hit(state, rule, hit_name);
}

int global_bms_r(smtp_state *state, vc_list_entry *rules) {
    if (!state || !state->ip) {
        QF_EINVAL();
        return 0;
    }
    if (!rules) {
        return 1;
    }
    if (!set_base_dir(__func__, state, quillfence_base_dir) || !find_rule(rules, block_maps_rule)) {
        return 0;
    }
    static constexpr const configuration_file &file = configured("control/bms.enabled");
    const text_list lists(vc_file_to_list(quillfence_control_dir, name_in_folder(file)));
    tell(&evidence_sink::loaded_selection,
         {.what = "block maps", .path = file.path, .names = lists.head});
    return run_bms_checks_r(state, lists.head, rules);
}

// --- Decision flavour: DNS block lists ---

static constexpr session_kind rbl_order[] = {
    {&smtp_state::ndr, &spam_rule::ndr, "bounce", "connection detected as NDR"},
    {&smtp_state::mua, &spam_rule::mua, "mua", "connection detected as MUA"},
    {&smtp_state::localhost, &spam_rule::localhost, "localhost",
     "connection detected as LOCALHOST"},
    {&smtp_state::ipv6, &spam_rule::ipv6, "ipv6", "connection detected as IPV6"},
};

int run_rbl_checks_r(smtp_state *state, vc_list_entry *lists, vc_list_entry *rules) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    const spam_rule *rule = find_rule(rules, rbl_rule);
    if (!rule) {
        QF_DEBUG("block_rbl_lists not enabled");
        return 1;
    }
    if (const session_kind *kind = first_skipped(rbl_order, state, rule)) {
        QF_DEBUG("%s", kind->debug_line);
        return 1;
    }
    if (!lists) {
        QF_DEBUG("no lists to check");
        return 1;
    }
    for (const vc_list_entry *entry = lists; entry; entry = entry->next) {
        const auto *host = static_cast<const char *>(entry->data);
        if (!is_empty(host) && is_rbl_hit(state, host)) {
            char *hit_name = nullptr;
            vc_asprintf(&hit_name, "block_rbl_lists (%s)", host);
            return record_hit(state, rule, hit_name);
        }
    }
    return 1;
}

int global_rbl_r(smtp_state *state, vc_list_entry *rules) {
    if (!state || is_empty(state->ip)) {
        QF_EINVAL();
        return 0;
    }
    if (!rules) {
        return 1;
    }
    if (!find_rule(rules, rbl_rule)) {
        return 0;
    }
    static constexpr const configuration_file &file = configured("rbl.enabled");
    const text_list hosts(vc_file_to_list(quillfence_base_dir, path_in_base(file)));
    tell(&evidence_sink::loaded_selection,
         {.what = "dns block lists", .path = file.path, .names = hosts.head});
    return run_rbl_checks_r(state, hosts.head, rules);
}

// --- Exemptions ---

static constexpr char exempting_rules[] = "ip_whitelist,from_whitelist,to_whitelist";

int is_exempt(smtp_state *state, const char *user_dir) {
    QF_DEBUG("function is_exempt - passing on to is_exempt_r");
    return is_exempt_r(state, user_dir, quillfence_rules());
}

static bool has_hit(const smtp_state *state) {
    return state->hit_name && state->rejection_notice;
}

int is_exempt_r(smtp_state *state, const char *user_dir, vc_list_entry *rules) {
    QF_DEBUG("function is_exempt_r");
    if (!state || !rules) {
        QF_DEBUG("%s", strerror(EINVAL));
        return 0;
    }
    text_list enabled;
    if (!vc_list_from_string_by_char(&enabled.head, exempting_rules, strlen(exempting_rules),
                                     ',')) {
        QF_DEBUG("failed list_from_string_by_char");
        return 0;
    }
    if (!enabled.head) {
        QF_DEBUG("rules is null");
        return 0;
    }
    if (!set_base_dir(__func__, state, quillfence_base_dir)) {
        return 0;
    }
    QF_DEBUG("calling run_spam_check_r");
    if (!run_spam_checks_r(state, enabled.head, rules)) {
        return 0;
    }
    if (has_hit(state)) {
        set_owned_text(&state->rejection_notice, nullptr);
        state->notice_flag = 0;
        return 1;
    }
    if (is_empty(user_dir)) {
        return 0;
    }
    QF_DEBUG("checking for exemptions in user dir [%s]", user_dir);
    return set_base_dir(__func__, state, user_dir) &&
           run_spam_checks_r(state, enabled.head, rules) && has_hit(state);
}

} // namespace quillfence
