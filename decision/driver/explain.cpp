#include "explain.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "collector.h"
#include "frozen_files.h"
#include "kept_answers.h"
#include "quillfence-checks.h"
#include "quillfence.h"
#include "report.h"
#include "session.h"
#include "used_record.h"
#include "vc_json.h"
#include "vc_list.h"
#include "vcspamrule.h"

namespace quillfence::decision {

engine_build this_build() {
#ifdef QUILLFENCE_BUILD_NAME
    return {.version = QUILLFENCE_VERSION, .build = QUILLFENCE_BUILD_NAME};
#else
    return {};
#endif
}

namespace {

constexpr char no_memory[] = "out of memory";

// The steps that the engine has behind its rules.
constexpr char maps_rule[] = "block_lists";
constexpr char zones_rule[] = "block_rbl_lists";

const known_rule &rule_of(const char *step) {
    return known_rules()[rule_number(step)];
}

// A list of the engine with what it owns.
template <void (*release)(void *)>
class owned_list {
  public:
    explicit owned_list(vc_list_entry *list = nullptr) : head(list) {}
    ~owned_list() {
        if (head) {
            vc_destroy_list(&head, release);
        }
    }
    owned_list(const owned_list &) = delete;
    owned_list &operator=(const owned_list &) = delete;
    vc_list_entry *head;
};
using name_list = owned_list<std::free>;

// The engine's table again, in which rules may lose their checks. Texts are the table's.
class rule_copies {
  public:
    // Null before any was made.
    vc_list_entry *head() {
        return entries_.empty() ? nullptr : entries_.data();
    }
    void make() {
        for (const vc_list_entry *entry = quillfence_rules(); entry; entry = entry->next) {
            rules_.push_back(*static_cast<const spam_rule *>(entry->data));
        }
        entries_.resize(rules_.size());
        for (size_t i = 0; i < rules_.size(); ++i) {
            entries_[i] = {&rules_[i], sizeof rules_[i],
                           i + 1 < rules_.size() ? &entries_[i + 1] : nullptr};
        }
    }
    void take_check(const char *name) {
        if (spam_rule *const rule = find_rule(head(), name)) {
            rule->check = nullptr;
        }
    }
    void take_all_checks() {
        for (spam_rule &rule : rules_) {
            rule.check = nullptr;
        }
    }

  private:
    std::vector<spam_rule> rules_;
    std::vector<vc_list_entry> entries_;
};

struct json_deleter {
    void operator()(vc_json *node) const {
        vc_json_free(node);
    }
};
using json = std::unique_ptr<vc_json, json_deleter>;

class driver {
  public:
    driver(const transaction &what, const explain_options &with, explain_result &to)
        : options(with), record(to.record), judged(to.judged), told(to.record, &to.server, with),
          missing(missing_facts(what)), context{.evidence = told.sink(),
                                                .dns = with.dns,
                                                .configuration = with.configuration,
                                                .substitutes = with.substitutes,
                                                .left_out = with.left_out} {
        if (with.server) {
            context.server = given.emplace(*with.server).rows();
        }
        record.id = with.id;
        record.time = with.time;
        record.engine = this_build();
        record.config.base = quillfence_base_dir;
        record.config.user_dir = with.user_dir;
        record.config.revision = with.configuration ? with.configuration->revision : "";
        record.transaction = what;
    }

    // Null, or why there is no record.
    const char *run() {
        const call_scope scope(&context);
        decide();
        if (options.all) {
            run_what_is_behind();
        }
        if (options.report) {
            make_report();
        }
        told.enter(phase::nothing, nullptr);
        told.finish(options.report && record.report && record.report->failed.empty());
        note_opposite_lists();
        return told.out_of_memory() ? no_memory : nullptr;
    }

  private:
    // --- sessions ---

    // A completed session; null when there is none, and *why then tells the reason.
    session complete(phase next, const char **why) {
        told.enter(next, nullptr);
        session made = session_of(record.transaction);
        *why = made ? nullptr : "the transaction is refused";
        if (made && !complete_session(made.get(), missing)) {
            *why = "the session can't be completed";
            made.reset();
        }
        told.judge(made.get());
        return made;
    }

    void keep_facts(const smtp_state *state) {
        record.facts.localhost = state->localhost;
        record.facts.ipv6 = state->ipv6;
        record.facts.routable = state->routable;
        record.facts.bounce = state->ndr;
        uint32_t left_out = 0;
        for (char **name = state->ptr_results; name && *name; ++name) {
            if (options.all_names || record.facts.ptr.size() < most_names_told) {
                record.facts.ptr.emplace_back(*name);
            } else {
                ++left_out;
            }
        }
        if (left_out) {
            record.facts.ptr_left_out = left_out;
        }
    }

    // --- rule tables ---

    // The engine's table, or a copy in which the rules that lack a fact have no check.
    vc_list_entry *usable_rules() {
        if (!missing) {
            return quillfence_rules();
        }
        if (!own_rules.head()) {
            own_rules.make();
            for (size_t i = 0; i < known_rules().size(); ++i) {
                const known_rule &known = known_rules()[i];
                const auto lacks = static_cast<fact_set>(needed_facts(known) & missing);
                if (!lacks) {
                    continue;
                }
                told.withhold(i, lacks);
                own_rules.take_check(known.row->name);
            }
        }
        return own_rules.head();
    }

    bool lacks_facts(const known_rule &rule) const {
        return needed_facts(rule) & missing;
    }

    // Which rules are enabled, when the decision did not get so far: the engine walks a table
    // without checks.
    void survey(smtp_state *state) {
        rule_copies empty;
        empty.make();
        empty.take_all_checks();
        told.enter(phase::survey, state);
        global_spam_hit_r(state, empty.head());
    }

    // --- the decision ---

    void decide() {
        const char *why = nullptr;
        session state = complete(phase::completion, &why);
        if (!state) {
            undecided(decided_by::error, why);
            return;
        }
        keep_facts(state.get());
        if (!phase_failed()) {
            take_steps(state.get());
        }
        if (options.keep_session) {
            judged = std::move(state);
        }
        if (!told.knows_enabled_rules()) {
            const session other = complete_again();
            if (other) {
                survey(other.get());
            }
        }
    }

    // A session that nothing is looked up for.
    session complete_again() {
        session made = session_of(record.transaction);
        if (made) {
            made->rdns_resolves = resolves_tempfail;
            if (!complete_session(made.get(), missing)) {
                made.reset();
            }
        }
        return made;
    }

    void take_steps(smtp_state *state) {
        const bool on = quillfence_enabled();
        if (!on) {
            if (told.failure_of_phase().empty()) {
                decided(verdict::accept, decided_by::engine_off);
            } else {
                undecided(decided_by::error, told.failure_of_phase());
            }
            return;
        }
        if (is_exempted(state) || hits_rule(state) || hits_map(state) || hits_zone(state)) {
            return;
        }
        settle(verdict::accept, decided_by::nothing);
    }

    // Each step: true when the decision has been made.

    bool is_exempted(smtp_state *state) {
        told.enter(phase::exemption, state);
        const char *const user_dir = options.user_dir.empty() ? nullptr : options.user_dir.c_str();
        if (is_exempt_r(state, user_dir, usable_rules())) {
            decided(verdict::accept, decided_by::exempt);
            record.decision.rule = state->hit_name;
            record.decision.hit_name = state->hit_name;
            record.decision.where =
                std::strcmp(state->base_dir, quillfence_base_dir) == 0 ? "base" : "user";
            note_doubts(record.decision.rule);
            return true;
        }
        return phase_failed();
    }

    bool hits_rule(smtp_state *state) {
        told.enter(phase::rules, state);
        if (!global_spam_hit_r(state, usable_rules())) {
            undecided(decided_by::error, failure_or("a rule's hit could not be recorded"));
            return true;
        }
        return phase_failed() || takes_hit(state, decided_by::rule, "");
    }

    bool hits_map(smtp_state *state) {
        static const known_rule &known = rule_of(maps_rule);
        told.enter(phase::maps, state);
        if (lacks_facts(known)) {
            told.pass_over(maps_rule);
            return false;
        }
        told.begin_step(maps_rule);
        const int done = global_bms_r(state, quillfence_rules());
        if (!done) {
            undecided(decided_by::error, failure_or("the block maps could not be asked"));
            return true;
        }
        told.end_step(state->hit_name);
        if (!takes_hit(state, decided_by::block_map, maps_rule)) {
            return phase_failed();
        }
        if (record.decision.is == verdict::undecided) {
            return true;
        }
        for (const block_map_record &map : record.block_maps) {
            if (map.is == outcome::hit) {
                record.decision.maps.push_back(map.map);
            }
        }
        return true;
    }

    bool hits_zone(smtp_state *state) {
        static const known_rule &known = rule_of(zones_rule);
        told.enter(phase::zones, state);
        if (lacks_facts(known)) {
            told.pass_over(zones_rule);
            return false;
        }
        told.begin_step(zones_rule);
        const int done = global_rbl_r(state, quillfence_rules());
        if (!done) {
            undecided(decided_by::error, failure_or("the DNS block lists could not be asked"));
            return true;
        }
        told.end_step(state->hit_name);
        if (!takes_hit(state, decided_by::rbl, zones_rule)) {
            return phase_failed();
        }
        if (record.decision.is == verdict::undecided) {
            return true;
        }
        for (const dns_block_list_record &list : record.dns_block_lists) {
            if (list.is == outcome::hit) {
                record.decision.zone = list.zone;
            }
        }
        return true;
    }

    std::string failure_or(const char *text) const {
        return told.failure_of_phase().empty() ? text : told.failure_of_phase();
    }

    // Something that no rule is to blame for could not be looked at.
    bool phase_failed() {
        if (!told.failure_of_phase().empty()) {
            undecided(decided_by::error, told.failure_of_phase());
            return true;
        }
        return false;
    }

    bool takes_hit(const smtp_state *state, decided_by by, const std::string &rule) {
        if (!state->hit_name) {
            return false;
        }
        decided(verdict::reject, by);
        record.decision.rule = rule.empty() ? state->hit_name : rule;
        record.decision.hit_name = state->hit_name;
        record.decision.notice = state->rejection_notice ? state->rejection_notice : "";
        settle(verdict::reject, by);
        return true;
    }

    // --- verdicts ---

    void decided(verdict is, decided_by by) {
        record.decision.is = is;
        record.decision.by = by;
    }

    void undecided(decided_by by, const std::string &why) {
        record.decision = {};
        decided(verdict::undecided, by);
        if (!why.empty()) {
            record.notes.push_back({"warning", why});
        }
    }

    // Weighs a verdict against what could not be decided on the way to it.
    void settle(verdict is, decided_by by) {
        bool decisive_open = false; // an exemption, or the very rule that hit
        bool failed = false;
        for (const collector::doubt &doubt : told.doubts()) {
            decisive_open |= doubt.exemption || doubt.rule == record.decision.rule;
            failed |= doubt.by_failure;
        }
        const bool any = !told.doubts().empty();
        if (decisive_open || (any && is == verdict::accept)) {
            undecided(failed ? decided_by::error : decided_by::missing, doubt_text());
            return;
        }
        decided(is, by);
        if (any) {
            note_doubts(record.decision.rule);
        }
    }

    std::string doubt_text() const {
        std::string rules;
        for (const collector::doubt &doubt : told.doubts()) {
            rules += (rules.empty() ? "" : ", ") + doubt.rule;
        }
        return rules.empty() ? "" : "not known whether these hit: " + rules;
    }

    void note_doubts(const std::string &decisive) {
        if (!told.doubts().empty()) {
            record.notes.push_back({"warning", "an earlier rule could have decided in place of " +
                                                   decisive + "; " + doubt_text()});
        }
    }

    // --- behind the decision ---

    void run_what_is_behind() {
        const char *why = nullptr;
        const session state = complete(phase::all, &why);
        if (!state) {
            return;
        }
        for (const known_rule &known : known_rules()) {
            const rule_record *const rule = told.find(known.row->name);
            if (rule->decision != outcome::not_reached && rule->decision != outcome::not_enabled) {
                continue;
            }
            run_alone(state.get(), known);
        }
    }

    void run_alone(smtp_state *state, const known_rule &rule) {
        const char *const rule_name = rule.row->name;
        if (lacks_facts(rule)) {
            usable_rules();
            told.pass_over(rule_name);
        } else if (rule.step) {
            const bool maps = std::strcmp(rule_name, maps_rule) == 0;
            forget_hit(state);
            told.begin_step(rule_name);
            (maps ? global_bms_r : global_rbl_r)(state, quillfence_rules());
            told.end_step(state->hit_name);
        } else {
            name_list name;
            if (vc_append_list_entry(&name.head, rule_name, std::strlen(rule_name) + 1, 1) > 0) {
                run_spam_checks_r(state, name.head, quillfence_rules());
            }
        }
    }

    static void forget_hit(smtp_state *state) {
        std::free(state->hit_name);
        state->hit_name = nullptr;
    }

    // --- the report ---

    void make_report() {
        report made;
        if (missing) {
            for (const std::string &fact : fact_names(missing)) {
                made.failed += (made.failed.empty() ? "not known: " : ", ") + fact;
            }
            record.report = std::move(made);
            return;
        }
        const char *why = nullptr;
        const session state = complete(phase::report, &why);
        if (!state) {
            made.failed = why;
        } else if (const json built{build_report(state.get(), quillfence_rules())}) {
            take_lists(built.get(), &made);
        } else {
            made.failed = failure_or("the report could not be made");
        }
        if (told.answer_missing_in_phase()) {
            made = {};
            made.failed = "DNS answers are missing";
        }
        record.report = std::move(made);
    }

    static void take_texts(vc_json *root, const char *name, std::vector<std::string> *texts) {
        vc_json *const list = vc_json_get_node_ex(root, name, nullptr);
        const uint32_t count = vc_json_num_children(list);
        for (uint32_t i = 0; i < count; ++i) {
            const vc_json *const text = vc_json_node_index(list, i);
            texts->emplace_back(static_cast<const char *>(text->value));
        }
    }

    void take_lists(vc_json *root, report *made) {
        take_texts(root, "spam_hits", &made->spam_hits);
        take_texts(root, "bms_hits", &made->bms_hits);
        if (rule_record *const maps = told.find(maps_rule)) {
            if (!maps->report) {
                maps->report = made->bms_hits.empty() ? outcome::no_hit : outcome::hit;
            }
        }
    }

    // --- notes on rules ---

    // A blacklist that a whitelist came before.
    void note_opposite_lists() {
        if (record.decision.by != decided_by::exempt) {
            return;
        }
        const rule_record *const exemption = told.find(record.decision.rule.c_str());
        for (const char *name : {"ip_blacklist", "from_blacklist"}) {
            rule_record *const rule = told.find(name);
            if (rule->from.index() && options.near_misses &&
                rule->decision != outcome::not_enabled) {
                rule->near_misses.push_back({"opposite_list",
                                             record.decision.rule + " comes first and exempts",
                                             exemption->from});
            }
        }
    }

    const explain_options &options;
    decision_record &record;
    session &judged;
    collector told;
    fact_set missing;
    std::optional<answer_rows> given;
    call_context context;
    rule_copies own_rules;
};

} // namespace

void explain(const transaction &what, const explain_options &options,
             explain_result *result) noexcept {
    empty_record(&result->record);
    result->server = {};
    result->judged.reset();
    try {
        result->failed = driver(what, options, *result).run();
    } catch (const std::bad_alloc &) {
        result->failed = no_memory;
    } catch (...) {
        result->failed = "the record could not be made";
    }
}

explain_result explain(const transaction &what, const explain_options &options) noexcept {
    explain_result result;
    explain(what, options, &result);
    return result;
}

} // namespace quillfence::decision
