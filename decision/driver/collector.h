// Makes the rules, sources, answers and files of a record out of what the engine tells.
#pragma once

#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "decision_record.h"
#include "evidence.h"
#include "explain.h"
#include "kept_answers.h"
#include "rule_facts.h"
#include "smtp_state.h"

namespace quillfence::decision {

// What the driver is doing with the engine. What a rule did is taken from the first of them that
// ran it; the driver goes through them in this order.
enum class phase : uint8_t {
    completion, // of the decision's session
    survey,     // which rules are enabled; no rule is run
    exemption,
    rules,
    maps,
    zones,
    all,     // what is behind the decision
    report,  // with its session's completion
    nothing, // between them
};

class collector {
  public:
    // Fills record's rules (all of the table), block_maps, dns_block_lists, dns, missing, errors
    // and config.files; server with what options.capture asks for. All are borrowed.
    collector(decision_record &record, server_answers *server, const explain_options &options);
    collector(const collector &) = delete;
    collector &operator=(const collector &) = delete;

    evidence_sink *sink() {
        return &slots;
    }

    // session is borrowed until the next phase; its facts are what the rules judge.
    void enter(phase next, const smtp_state *session);
    void judge(const smtp_state *of) { // the session that a phase has just made
        session = of;
    }
    // A rule, by its number, that the driver does not run because these facts are missing.
    void withhold(size_t rule, fact_set missing);
    // Around the steps that are no check functions: the block maps and the DNS block lists.
    void begin_step(const char *rule);
    void end_step(bool hit);
    // A step that is not taken since a fact is missing.
    void pass_over(const char *rule);

    // What the driver asks afterwards.
    bool
    out_of_memory() const { // the engine's, or our own: nothing that was told is to be believed
        return broken;
    }
    bool knows_enabled_rules() const {
        return selection_known;
    }
    // Rules that could not be decided, of those that could have made a difference.
    struct doubt {
        std::string rule;
        bool exemption;
        bool by_failure; // else something is missing
    };
    const std::vector<doubt> &doubts() const {
        return decision_doubts;
    }
    // Whether something could not be looked at outside of a rule, and why.
    const std::string &failure_of_phase() const {
        return phase_failure;
    }
    bool answer_missing_in_phase() const {
        return phase_missing;
    }
    rule_record *find(const char *rule);
    // The rules behind the decision, and what nobody has set.
    void finish(bool with_report);

  private:
    // What one run of a rule looked at.
    struct run {
        rule_record *rule = nullptr;
        const rule_facts *facts = nullptr;
        source from;
        source exempted_by;
        bool searched = false; // lists or patterns
        bool counted = false;
        uint32_t looked_at = 0;
        bool any_there = false; // one of the files that were searched exists
        std::vector<name_match> names;
        std::vector<std::string> lists;   // that were searched without a match
        std::vector<list_source> blurred; // names of what to ask that end in white space
        std::string reason;               // the engine's words
        std::string sender_networks;      // what they say
        std::vector<uint32_t> dns;
        size_t zone_begin = 0;      // of dns: the questions of the current zone
        std::string failure;        // the first one
        std::string latest_failure; // since the last block map
        bool answer_missing = false;
        uint32_t ptr_cache = resolves_unknown;
        bool empty_hook = false;
        std::chrono::steady_clock::time_point begin;

        void clear(); // as if it were new
    };

    // What is known of a rule besides its record.
    struct rule_state {
        bool described = false; // its details are there
        fact_set withheld = 0;  // what is missing for it to be run
        // Of a whitelist's runs so far.
        bool any_there = false;
        uint32_t looked_at = 0;
        std::string failure;
    };

    template <class Fact>
    static void slot(void *context, const Fact *fact) noexcept;

    void on(const path_look &fact);
    void on(const list_search &fact);
    void on(const range_lookup &fact);
    void on(const pattern_search &fact);
    void on(const map_lookup &fact);
    void on(const sender_network_search &fact);
    void on(const selection_load &fact);
    void on(const domain_table_search &fact);
    void on(const registry_look &fact);
    void on(const folder_search &fact);
    void on(const folder_entry &fact);
    void on(const address_map_look &fact);
    void on(const dns_question &fact);
    void on(const zone_look &fact);
    void on(const cache_answer &fact);
    void on(const rule_fact &fact);
    void on(const empty_hook &fact);
    void on(const reason_fact &fact);
    void on(const look_failure &fact);
    void on(const error_line_fact &fact);

    void begin_run(rule_record *rule);
    void end_run(bool hit);
    outcome outcome_of_run(bool hit) const;
    void note_outcome(rule_record &rule, outcome is);
    bool is_to_be_described(const rule_record &rule) const;
    void describe(rule_record &rule, outcome is, bool hit);
    void join_runs(rule_state &state);
    void describe_at_length(rule_record &rule, bool hit);
    void describe_absence(rule_record &rule) const;
    std::string reason_of_run(outcome is, bool hit) const;
    std::string value_of_run() const;
    void add_near_misses(rule_record &rule);
    void keep_blurred_names(const selection_load &fact, std::vector<list_source> *names) const;
    void use_answer(uint32_t number);
    uint32_t keep_answer(const dns_question &fact);
    void note_answers();
    void note_skip(const rule_fact &fact, rule_record &rule);
    void note_never(rule_record &rule);
    void pass_over(rule_record &rule);
    const known_rule &known(const rule_record &rule) const;
    rule_state &state_of(const rule_record &rule);
    void note_not_enabled(rule_record &rule);
    void keep_doubt(const rule_record &rule, bool by_failure);

    decision_record &record;
    answer_keeper server;
    const explain_options &options;
    evidence_sink slots{};
    phase at = phase::nothing;
    const smtp_state *session = nullptr;
    run current;
    bool broken = false;

    bool maps_known = false; // by the decision
    const std::span<const known_rule> all_rules = known_rules();
    std::vector<rule_state> states; // of all rules, by their numbers
    size_t likely_rule = 0;         // that the next fact is about
    bool selection_known = false;
    bool built_in_rules = false;
    std::string selection_path;
    std::string selection_names;
    std::vector<list_source> blurred_rules; // of the enabled rules' names
    std::vector<doubt> decision_doubts;
    std::string phase_failure;
    bool phase_missing = false;
    std::string last_path;
    std::vector<uint32_t> ptr_answers; // numbers of the session's own look-up
    bool ptr_missing = false;
    std::set<std::string> seen_files;
};

// "10.1.2.3" of an address in network byte order.
std::string address_text_of(uint32_t network_order);

} // namespace quillfence::decision
