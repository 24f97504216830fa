#include "used_record.h"

namespace quillfence::decision {

// Most sources are none.
static void forget(source *of) {
    if (of->index()) {
        *of = {};
    }
}

static void empty_rule(rule_record *rule) {
    rule->n = 0; // it keeps its name, which the next record's is as a rule
    rule->decision = outcome::not_reached;
    rule->report.reset();
    rule->would.reset();
    rule->kind.clear();
    rule->reason.clear();
    rule->fact.clear();
    rule->value.clear();
    forget(&rule->from);
    rule->looked_at.reset();
    forget(&rule->exempted_by);
    rule->names.clear();
    rule->near_misses.clear();
    rule->dns.clear();
    rule->us.reset();
}

static void empty_decision(decision *of) {
    of->is = verdict::undecided;
    of->by = decided_by::error;
    of->rule.clear();
    of->where.clear();
    of->maps.clear();
    of->zone.clear();
    of->hit_name.clear();
    of->notice.clear();
}

static void empty_facts(session_facts *facts) {
    facts->localhost = facts->ipv6 = facts->routable = facts->bounce = false;
    facts->ptr.clear();
    facts->ptr_left_out.reset();
}

void empty_record(decision_record *record) {
    record->id.clear();
    record->time.clear();
    record->engine.version.clear();
    record->engine.build.clear();
    record->config.base.clear();
    record->config.user_dir.clear();
    record->config.revision.clear();
    record->config.files.clear();
    record->extra.clear();
    empty_facts(&record->facts);
    empty_decision(&record->decision);
    record->report.reset();
    for (rule_record &rule : record->rules) {
        empty_rule(&rule);
    }
    record->block_maps.clear();
    record->dns_block_lists.clear();
    record->dns.clear();
    record->missing.clear();
    record->notes.clear();
    record->errors.clear();
}

} // namespace quillfence::decision
