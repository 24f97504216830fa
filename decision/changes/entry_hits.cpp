#include "entry_hits.h"

#include <algorithm>
#include <utility>

#include "change.h"

namespace quillfence::decision {

// --- what matched -------------------------------------------------------------------------------

static bool hits(outcome is) {
    return is == outcome::hit || is == outcome::exempt;
}

static bool hits_now_or_would(const rule_record &rule) {
    return hits(rule.decision) || (rule.would && hits(*rule.would));
}

namespace {

// Goes over a record, and adds what matched.
class hit_search {
  public:
    hit_search(const decision_record &record, const control_lines &control)
        : record_(record), control_(control) {}

    std::vector<entry_hit> take() {
        for (const rule_record &rule : record_.rules) {
            add_rule(rule);
        }
        add_maps();
        add_zones();
        return std::move(found_);
    }

  private:
    // What an entry has to do with the verdict.
    struct part {
        bool decided = false;
        bool may_matter = false;
    };

    void add_rule(const rule_record &rule) {
        const bool decides = !rule.rule.empty() && record_.decision.rule == rule.rule;
        if (hits_now_or_would(rule)) {
            add_control(rules_file, rule.rule, decides);
        }
        add_listed(rule.from, {decides, decides});
        for (const name_match &name : rule.names) {
            add_listed(name.matched, {false, decides}); // every name has to match
        }
        add_saving(rule.exempted_by);
        for (const name_match &name : rule.names) {
            add_saving(name.exempted_by);
        }
    }

    // Where a mail passes with no rule in its favour, the entries that saved it may be why.
    void add_saving(const source &from) {
        add_listed(from, {false, record_.decision.is == verdict::accept &&
                                     record_.decision.by == decided_by::nothing});
    }

    void add_maps() {
        bool first = record_.decision.by == decided_by::block_map;
        for (const block_map_record &map : record_.block_maps) {
            if (map.is == outcome::hit) {
                add_control(maps_file, map.map, first);
                first = false;
            }
        }
    }

    void add_zones() {
        for (const dns_block_list_record &list : record_.dns_block_lists) {
            if (list.is == outcome::hit) {
                const bool decided =
                    record_.decision.by == decided_by::rbl && record_.decision.zone == list.zone;
                add_control(zones_file, list.zone, decided);
            }
        }
    }

    void add_control(const char *file, const std::string &name, bool decides) {
        if (const uint32_t line = control_.line_of(file, name)) {
            add({file, line, name}, {decides, decides});
        }
    }

    void add_listed(const source &from, part is) {
        if (is_listed(from)) {
            add(entry_of_source(from), is);
        }
    }

    void add(config_entry entry, part is) {
        auto known = std::find_if(found_.begin(), found_.end(), [&](const entry_hit &one) {
            return one.entry.place == entry.place && one.entry.file == entry.file;
        });
        if (known == found_.end()) {
            known = found_.insert(known, {.entry = std::move(entry)});
        }
        known->decided |= is.decided;
        known->may_matter |= is.may_matter;
    }

    const decision_record &record_;
    const control_lines &control_;
    std::vector<entry_hit> found_;
};

} // namespace

std::vector<entry_hit> hits_of(const decision_record &with_all, const control_lines &control) {
    return hit_search(with_all, control).take();
}

} // namespace quillfence::decision
