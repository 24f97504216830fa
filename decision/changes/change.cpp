#include "change.h"

#include <algorithm>
#include <utility>

#include "expectation.h"

namespace quillfence::decision {

static constexpr char zones_rule[] = "block_rbl_lists";

std::string_view word_of(config_side side) {
    return side == config_side::before ? "before" : "after";
}

// --- entries ------------------------------------------------------------------------------------

namespace {

// Where the file has its entries, as far as a source tells.
struct place_of {
    uint32_t operator()(const auto &) const {
        return 0;
    }
    uint32_t operator()(const list_source &s) const {
        return s.line;
    }
    uint32_t operator()(const range_source &s) const {
        return s.record;
    }
    uint32_t operator()(const expression_source &s) const {
        return s.expression;
    }
    uint32_t operator()(const block_map_source &s) const {
        return s.level;
    }
    uint32_t operator()(const sender_network_source &s) const {
        return s.line;
    }
    uint32_t operator()(const file_source &s) const {
        return s.line;
    }
};

} // namespace

config_entry entry_of_source(const source &of) {
    deciding_entry named = entry_in(of);
    return {std::move(named.file), std::visit(place_of(), of), std::move(named.entry)};
}

static bool is_same_entry(const config_entry &one, const config_entry &other) {
    return one.file == other.file && one.text == other.text;
}

static bool is_there(const source &of) {
    return of.index() != 0;
}

// --- what decided -------------------------------------------------------------------------------

static const rule_record *find_rule(const decision_record &record, const std::string &name) {
    const auto found = std::find_if(record.rules.begin(), record.rules.end(),
                                    [&](const rule_record &one) { return one.rule == name; });
    return found == record.rules.end() ? nullptr : &*found;
}

static const block_map_record *map_that_hit(const decision_record &record) {
    const auto found =
        std::find_if(record.block_maps.begin(), record.block_maps.end(),
                     [](const block_map_record &one) { return one.is == outcome::hit; });
    return found == record.block_maps.end() ? nullptr : &*found;
}

static source source_of_decision(const decision_record &record) {
    if (record.decision.by == decided_by::block_map) {
        if (const block_map_record *const map = map_that_hit(record)) {
            return block_map_source{map->map, map->level, map->network};
        }
    }
    const source *const from = source_that_decided(record);
    return from ? *from : source();
}

static config_entry entry_of_decision(const decision_record &record) {
    switch (record.decision.by) {
    case decided_by::engine_off:
        return {"c:/quillfence/control/enabled", 0, ""};
    case decided_by::rbl:
        return {zones_file, 0, record.decision.zone};
    default:
        return entry_of_source(source_of_decision(record));
    }
}

// The rule that decided; where none could the first one that is undecided.
static const rule_record *rule_of_decision(const decision_record &record) {
    if (record.decision.by != decided_by::missing && record.decision.by != decided_by::error) {
        return find_rule(record, record.decision.rule);
    }
    const auto found =
        std::find_if(record.rules.begin(), record.rules.end(),
                     [](const rule_record &one) { return one.decision == outcome::undecided; });
    return found == record.rules.end() ? nullptr : &*found;
}

// How early a decision is made: the step, and the rule's place in it.
static std::pair<int, uint32_t> step_of_decision(const decision_record &record) {
    static constexpr decided_by steps[] = {
        decided_by::engine_off, decided_by::exempt,  decided_by::rule,  decided_by::block_map,
        decided_by::rbl,        decided_by::missing, decided_by::error, decided_by::nothing};
    const auto step = std::find(std::begin(steps), std::end(steps), record.decision.by);
    const rule_record *const rule = rule_of_decision(record);
    return {static_cast<int>(step - std::begin(steps)), rule ? rule->n : 0};
}

// --- the cause ----------------------------------------------------------------------------------

// What saved a value that had matched.
static const source *exempting(const rule_record &rule) {
    if (is_there(rule.exempted_by)) {
        return &rule.exempted_by;
    }
    for (const name_match &name : rule.names) {
        if (is_there(name.exempted_by)) {
            return &name.exempted_by;
        }
    }
    return nullptr;
}

static bool consults_map(const decision_record &record, const std::string &map) {
    return std::any_of(record.block_maps.begin(), record.block_maps.end(),
                       [&](const block_map_record &one) { return one.map == map; });
}

static bool lacks_answer(const decision_record &record, const std::string &zone) {
    return std::any_of(record.dns_block_lists.begin(), record.dns_block_lists.end(),
                       [&](const dns_block_list_record &one) {
                           return one.zone == zone && one.is == outcome::undecided;
                       });
}

// The one DNS block list that is not answered for here, and is answered for or not asked there;
// null when there are more, or none.
static const std::string *zone_in_doubt(const decision_record &here, const decision_record &there) {
    const std::string *found = nullptr;
    for (const dns_block_list_record &one : here.dns_block_lists) {
        if (one.is == outcome::undecided && !lacks_answer(there, one.zone)) {
            if (found) {
                return nullptr;
            }
            found = &one.zone;
        }
    }
    return found;
}

static config_side opposite(config_side side) {
    return side == config_side::before ? config_side::after : config_side::before;
}

// What the deciding side has and the other one lacks; nothing where the rule needs no entry.
static config_entry entry_behind(const decision_record &first, const decision_record &other,
                                 const std::string &rule) {
    const rule_record *const there = find_rule(other, rule);
    if (there && there->decision == outcome::not_enabled) {
        return {rules_file, 0, rule};
    }
    if (first.decision.by == decided_by::block_map) {
        const block_map_record *const map = map_that_hit(first);
        if (map && !consults_map(other, map->map)) {
            return {maps_file, 0, map->map};
        }
    }
    if (first.decision.by == decided_by::missing && rule == zones_rule) {
        const std::string *const zone = zone_in_doubt(first, other);
        return zone ? config_entry{zones_file, 0, *zone} : config_entry();
    }
    return entry_of_decision(first);
}

static bool is_control_file(const std::string &file) {
    return file == rules_file || file == maps_file || file == zones_file;
}

// Of a name in a control file the record has not told the place.
static void add_place(config_entry *to, const control_lines *lines) {
    if (lines && is_control_file(to->file)) {
        to->place = lines->line_of(to->file, to->text);
    }
}

static change_cause cause_of(const decision_record &before, const decision_record &after,
                             const control_of_sides &control) {
    const config_side side = step_of_decision(after) <= step_of_decision(before)
                                 ? config_side::after
                                 : config_side::before;
    const bool came = side == config_side::after;
    const decision_record &first = came ? after : before;
    const decision_record &other = came ? before : after;
    const rule_record *const rule = rule_of_decision(first);
    const std::string name = rule ? rule->rule : first.decision.rule;
    const rule_record *const there = find_rule(other, name);
    const bool ran = there && there->decision != outcome::not_enabled;
    if (const source *const saved = ran ? exempting(*there) : nullptr) {
        return {opposite(side), name, entry_of_source(*saved)};
    }
    change_cause cause = {side, name, entry_behind(first, other, name)};
    add_place(&cause.entry, came ? control.after : control.before);
    return cause;
}

// --- all of it ----------------------------------------------------------------------------------

bool is_listed(const source &of) {
    return std::holds_alternative<list_source>(of) || std::holds_alternative<range_source>(of) ||
           std::holds_alternative<expression_source>(of) ||
           std::holds_alternative<sender_network_source>(of);
}

static void add_hit(std::vector<config_entry> &to, const source &from) {
    if (is_listed(from)) {
        to.push_back(entry_of_source(from));
    }
}

static std::vector<config_entry> hit_entries(const decision_record &record) {
    std::vector<config_entry> all;
    for (const rule_record &rule : record.rules) {
        add_hit(all, rule.from);
        add_hit(all, rule.exempted_by);
        for (const name_match &name : rule.names) {
            add_hit(all, name.matched);
            add_hit(all, name.exempted_by);
        }
    }
    return all;
}

static std::vector<missing_item> missing_of_both(const decision_record &before,
                                                 const decision_record &after) {
    std::vector<missing_item> all = before.missing;
    for (const missing_item &one : after.missing) {
        if (std::find(all.begin(), all.end(), one) == all.end()) {
            all.push_back(one);
        }
    }
    return all;
}

static decided_side side_of(const decision_record &record) {
    return {record.decision, source_of_decision(record)};
}

decision_change compare_decisions(const decision_record &before, const decision_record &after,
                                  const control_of_sides &control) {
    const decision &was = before.decision;
    const decision &is = after.decision;
    decision_change made;
    made.is_change = was.is != is.is || was.by != is.by || was.rule != is.rule;
    made.is_other_entry =
        !made.is_change && !is_same_entry(entry_of_decision(before), entry_of_decision(after));
    made.is_before = was.is;
    made.is_after = is.is;
    made.missing = missing_of_both(before, after);
    made.hit_after = hit_entries(after);
    if (made.is_change || made.is_other_entry) {
        made.id = before.id;
        made.time = before.time;
        made.transaction = before.transaction;
        made.extra = before.extra;
        made.before = side_of(before);
        made.after = side_of(after);
        made.cause = cause_of(before, after, control);
    }
    return made;
}

} // namespace quillfence::decision
