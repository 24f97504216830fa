#include "collector.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "consulted_files.h"
#include "near_misses.h"
#include "pattern_line_files.h"
#include "pattern_text.h"
#include "platform/dns.h"
#include "platform/error_numbers.h"
#include "quillfence-checks.h"
#include "quillfence-spam-hooks.h"
#include "record_writer.h"
#include "text.h"
#include "tiny_rex.h"
#include "vc_dns.h"
#include "vc_list.h"

namespace quillfence::decision {

static std::string text_of(const char *text) {
    return text ? text : "";
}

std::string address_text_of(uint32_t network_order) {
    unsigned char octet[4];
    std::memcpy(octet, &network_order, sizeof octet);
    return std::to_string(octet[0]) + '.' + std::to_string(octet[1]) + '.' +
           std::to_string(octet[2]) + '.' + std::to_string(octet[3]);
}

// --- the slots ---

template <class Fact>
void collector::slot(void *context, const Fact *fact) noexcept {
    auto *const self = static_cast<collector *>(context);
    if (self->broken) {
        return;
    }
    try {
        self->on(*fact);
    } catch (...) {
        self->broken = true;
    }
}

collector::collector(decision_record &to, server_answers *asked, const explain_options &with)
    : record(to), server(asked),
      options(with), slots{.context = this,
                           .looked_at_path = slot,
                           .searched_list = slot,
                           .searched_ranges = slot,
                           .searched_patterns = slot,
                           .asked_map = slot,
                           .searched_sender_networks = slot,
                           .loaded_selection = slot,
                           .searched_domain_table = slot,
                           .looked_at_registry = slot,
                           .saw_folder_entry = with.capture ? slot<folder_entry> : nullptr,
                           .searched_folder = slot,
                           .asked_address_map = with.capture ? slot<address_map_look> : nullptr,
                           .dns_answered = slot,
                           .asked_zone = slot,
                           .looked_up_country = nullptr,
                           .cache_answered = slot,
                           .rule_went = slot,
                           .found_empty_hook = slot,
                           .gave_reason = slot,
                           .recorded_hit = nullptr,
                           .could_not_look = slot,
                           .wrote_error = slot} {
    states.resize(all_rules.size());
    record.rules.resize(all_rules.size());
    for (size_t i = 0; i < all_rules.size(); ++i) {
        rule_record &rule = record.rules[i];
        rule.n = static_cast<uint32_t>(i + 1);
        if (rule.rule != all_rules[i].row->name) { // a record that is used again has it
            rule.rule = all_rules[i].row->name;
        }
    }
}

const known_rule &collector::known(const rule_record &rule) const {
    return all_rules[rule.n - 1];
}

collector::rule_state &collector::state_of(const rule_record &rule) {
    return states[rule.n - 1];
}

// --- phases ---

void collector::enter(phase next, const smtp_state *of) {
    at = next;
    session = of;
    current.clear();
    phase_failure.clear();
    phase_missing = false;
    if (next == phase::report || next == phase::all || next == phase::completion) {
        ptr_answers.clear();
        ptr_missing = false;
    }
}

rule_record *collector::find(const char *rule) {
    const size_t number = rule_number(rule, likely_rule);
    if (number == record.rules.size()) {
        return nullptr;
    }
    likely_rule = number;
    return &record.rules[number];
}

void collector::withhold(size_t rule, fact_set missing) {
    states[rule].withheld = missing;
}

// --- a rule's run ---

// Most sources are none.
static void forget(source *of) {
    if (of->index()) {
        *of = {};
    }
}

void collector::run::clear() {
    rule = nullptr;
    facts = nullptr;
    forget(&from);
    forget(&exempted_by);
    searched = counted = any_there = false;
    looked_at = 0;
    names.clear();
    lists.clear();
    blurred.clear();
    reason.clear();
    sender_networks.clear();
    dns.clear();
    zone_begin = 0;
    failure.clear();
    latest_failure.clear();
    answer_missing = false;
    ptr_cache = resolves_unknown;
    empty_hook = false;
    begin = {};
}

void collector::begin_run(rule_record *rule) {
    current.clear();
    current.rule = rule;
    current.facts = rule ? known(*rule).facts : nullptr;
    if (options.times) {
        current.begin = std::chrono::steady_clock::now();
    }
}

void collector::begin_step(const char *rule) {
    begin_run(find(rule));
}

void collector::end_step(bool hit) {
    if (current.rule) {
        end_run(hit);
    }
}

static bool rests_on_names(const rule_facts *facts) {
    return facts && facts->about == judged::ptr;
}

outcome collector::outcome_of_run(bool hit) const {
    if (current.empty_hook) {
        return outcome::never;
    }
    const bool certain = hit && !rests_on_names(current.facts);
    if (!certain && (!current.failure.empty() || (!hit && current.answer_missing))) {
        return outcome::undecided;
    }
    if (!hit) {
        return outcome::no_hit;
    }
    return known(*current.rule).whitelist ? outcome::exempt : outcome::hit;
}

void collector::keep_doubt(const rule_record &rule, bool by_failure) {
    decision_doubts.push_back({rule.rule, known(rule).whitelist, by_failure});
}

// Where the outcome of a run belongs, by phase.
void collector::note_outcome(rule_record &rule, outcome is) {
    switch (at) {
    case phase::exemption:
    case phase::rules:
    case phase::maps:
    case phase::zones:
        // A whitelist is asked twice, the second time for the recipient's own.
        if (is == outcome::undecided && rule.decision != outcome::undecided) {
            keep_doubt(rule, !current.failure.empty());
        }
        if (rule.decision != outcome::undecided || is == outcome::exempt) {
            rule.decision = is;
        }
        return;
    case phase::all:
        rule.would = is;
        return;
    case phase::report: {
        const bool shown = known(rule).row->reported;
        const bool hits = is == outcome::hit || is == outcome::exempt;
        rule.report = !hits ? is : shown ? outcome::hit : outcome::hit_unreported;
        return;
    }
    default:
        return;
    }
}

void collector::end_run(bool hit) {
    rule_record &rule = *current.rule;
    const outcome is = outcome_of_run(hit);
    if (rule.decision == outcome::not_enabled && at == phase::rules) {
        rule.decision = outcome::not_reached;
    }
    note_outcome(rule, is);
    rule_state &state = state_of(rule);
    if (at == phase::exemption) {
        join_runs(state);
    }
    if (at == phase::exemption || !state.described) {
        describe(rule, is, hit);
        state.described = true;
    }
    current.rule = nullptr; // all else is forgotten when the next one begins
}

// A whitelist is asked once more where the recipient has a folder of lists; what is said of it
// then speaks of both times.
void collector::join_runs(rule_state &state) {
    state.any_there = current.any_there |= state.any_there;
    state.looked_at = current.looked_at += state.looked_at;
    if (state.failure.empty()) {
        state.failure = current.failure;
    } else {
        current.failure = state.failure;
    }
}

static std::optional<std::string> judged_text(const smtp_state *session, judged about) {
    const char *text = nullptr;
    switch (about) {
    case judged::ip:
        text = session->ip;
        break;
    case judged::helo:
        text = session->helo;
        break;
    case judged::sender:
        text = session->mail_from;
        break;
    case judged::recipient:
        text = session->rcpt_to;
        break;
    case judged::country:
        text = session->ip_country;
        break;
    default:
        break;
    }
    return text ? std::optional<std::string>(text) : std::nullopt;
}

static const char *fact_name(judged about) {
    static constexpr const char *names[] = {"",          "ip",         "helo", "sender",
                                            "recipient", "ip_country", "ptr"};
    return names[static_cast<size_t>(about)];
}

std::string collector::value_of_run() const {
    if (!current.facts || !session) {
        return {};
    }
    if (current.facts->about != judged::ptr) {
        return judged_text(session, current.facts->about).value_or("");
    }
    if (!current.names.empty()) {
        return current.names.back().name;
    }
    return session->ptr_results && session->ptr_results[0] ? session->ptr_results[0] : "";
}

static const char *words_for(judged about) {
    static constexpr const char *words[] = {"it",
                                            "the client's address",
                                            "the HELO",
                                            "the sender",
                                            "the recipient",
                                            "the client's country",
                                            "every PTR name"};
    return words[static_cast<size_t>(about)];
}

static std::string entries(uint32_t count, const char *one, const char *many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

static bool is_of_patterns(const source &from) {
    return std::holds_alternative<expression_source>(from) ||
           std::holds_alternative<built_in_source>(from);
}

// Why a rule that searched lists or patterns did not hit.
static std::string nothing_found(bool by_names, const std::vector<name_match> &names,
                                 uint32_t looked_at, bool any_there) {
    if (!any_there) {
        return by_names ? "no pattern file is installed" : "no list is installed";
    }
    if (by_names && !names.empty()) {
        const name_match &last = names.back();
        return last.exempted_by.index() ? last.name + " matches, but is exempt"
                                        : last.name + " matches no pattern";
    }
    if (looked_at < 2) {
        return looked_at ? "the one entry does not match" : "the list has no entries";
    }
    return "none of " + std::to_string(looked_at) + " entries matches";
}

std::string collector::reason_of_run(outcome is, bool hit) const {
    if (is == outcome::never) {
        return "the engine has no such list";
    }
    if (is == outcome::undecided) {
        return !current.failure.empty() ? current.failure : "a DNS answer is missing";
    }
    const judged about = current.facts ? current.facts->about : judged::nothing;
    if (hit && current.from.index()) {
        if (std::holds_alternative<list_source>(current.from)) {
            return std::string(words_for(about)) + " matches an entry";
        }
        if (std::holds_alternative<range_source>(current.from)) {
            return std::string(words_for(about)) + " lies in a range";
        }
        if (is_of_patterns(current.from)) {
            return std::string(words_for(about)) + " matches a pattern";
        }
    }
    if (!hit && current.searched) {
        return nothing_found(about == judged::ptr, current.names, current.looked_at,
                             current.any_there);
    }
    if (!hit && !current.sender_networks.empty()) {
        return current.sender_networks;
    }
    if (current.ptr_cache == resolves_no) {
        return "the client's address has no PTR name";
    }
    if (current.ptr_cache == resolves_tempfail) {
        return "the look-up of the client's PTR names failed";
    }
    if (!current.reason.empty() && current.ptr_cache == resolves_unknown) {
        return current.reason;
    }
    return !current.facts ? std::string() : hit ? current.facts->hit : current.facts->no_hit;
}

// Whether anybody will read what there is to say of the rule. That is not known while something
// may still run it: the recipient's own whitelist, what is behind the decision, the report.
bool collector::is_to_be_described(const rule_record &rule) const {
    const bool is_last = at == phase::report || !(options.report || options.all);
    return options.quiet_rules || known(rule).whitelist || !is_last || is_told_briefly(rule);
}

static std::string without_white_space_behind(const std::string &name) {
    return name.substr(0, name.find_last_not_of(" \t\r\v\f") + 1);
}

static near_miss miss_of(const list_source &blurred) {
    return {"trailing_blank", "ends in white space, which belongs to the name", blurred};
}

// is: of this run alone.
void collector::describe(rule_record &rule, outcome is, bool hit) {
    if (is_to_be_described(rule)) {
        describe_at_length(rule, hit);
        if (options.near_misses && is == outcome::no_hit) {
            add_near_misses(rule);
        }
    }
    // Notes and other rules go by these.
    rule.exempted_by = std::move(current.exempted_by);
    rule.names = std::move(current.names);
    rule.dns = current.dns;
}

void collector::describe_at_length(rule_record &rule, bool hit) {
    rule.reason = reason_of_run(outcome_of_run(hit), hit);
    rule.fact = current.facts ? fact_name(current.facts->about) : "";
    rule.value = value_of_run();
    rule.from = hit ? current.from : source();
    if (current.counted) {
        rule.looked_at = current.looked_at;
    }
    if (options.times) {
        const auto passed = std::chrono::steady_clock::now() - current.begin;
        rule.us = rule.us.value_or(0) +
                  static_cast<uint32_t>(
                      std::chrono::duration_cast<std::chrono::microseconds>(passed).count());
    }
}

void collector::add_near_misses(rule_record &rule) {
    call_context unheard{.substitutes = options.substitutes};
    const call_scope quiet(&unheard);
    for (const std::string &path : current.lists) {
        for (const data_files::near_entry &near : data_files::near_entries(path, rule.value)) {
            rule.near_misses.push_back(
                {near.what, near.text, list_source{near.file, near.line, near.entry, ""}});
        }
    }
    const size_t most = std::min(current.blurred.size(), data_files::most_near_entries);
    for (size_t i = 0; i < most; ++i) {
        rule.near_misses.push_back(miss_of(current.blurred[i]));
    }
}

// --- how rules went ---

void collector::note_skip(const rule_fact &fact, rule_record &rule) {
    if (at == phase::report) {
        rule.report = outcome::skipped;
    } else if (at == phase::all) {
        rule.would = outcome::skipped;
    } else if (at != phase::survey && (at == phase::exemption || !known(rule).whitelist)) {
        rule.decision = outcome::skipped;
    }
    if (rule.kind.empty() && at != phase::survey) {
        rule.kind = text_of(fact.kind);
    }
    if (current.rule == &rule) {
        current.clear();
    }
}

void collector::note_not_enabled(rule_record &rule) {
    if (!known(rule).whitelist && !known(rule).step) {
        rule.decision = outcome::not_enabled;
    }
}

// A rule without a check function, or one that the driver has taken it from.
void collector::note_never(rule_record &rule) {
    if (state_of(rule).withheld && at != phase::report) {
        pass_over(rule);
    } else {
        note_outcome(rule, outcome::never);
    }
}

void collector::on(const rule_fact &fact) {
    const bool selecting = at == phase::rules || at == phase::survey;
    if (fact.step == rule_step::not_enabled && !selecting) {
        ++likely_rule;
        return;
    }
    rule_record *const rule = find(fact.rule);
    if (!rule) {
        return;
    }
    // The walks for exemptions pass all other rules by.
    const bool foreign = (at == phase::exemption) != known(*rule).whitelist && at != phase::all &&
                         at != phase::report;
    switch (fact.step) {
    case rule_step::began:
        begin_run(rule);
        if (foreign) {
            current.rule = nullptr;
        }
        return;
    case rule_step::ended:
        if (current.rule) {
            end_run(fact.result);
        }
        ++likely_rule;
        return;
    case rule_step::not_enabled:
        note_not_enabled(*rule);
        ++likely_rule;
        return;
    case rule_step::skipped:
        note_skip(fact, *rule);
        ++likely_rule;
        return;
    case rule_step::never:
        if (!foreign && !known(*rule).step && at != phase::survey) {
            note_never(*rule);
        }
        return;
    }
}

void collector::pass_over(const char *name) {
    if (rule_record *const rule = find(name)) {
        pass_over(*rule);
    }
}

void collector::pass_over(rule_record &rule) {
    std::string names;
    for (const std::string &fact : fact_names(state_of(rule).withheld)) {
        names += (names.empty() ? "" : ", ") + fact;
        const missing_item item{"fact", "", "", fact};
        if (std::find(record.missing.begin(), record.missing.end(), item) == record.missing.end()) {
            record.missing.push_back(item);
        }
    }
    if (at == phase::all) {
        rule.would = outcome::undecided;
    } else if (rule.decision != outcome::undecided) {
        rule.decision = outcome::undecided;
        keep_doubt(rule, false);
    }
    if (rule.reason.empty()) {
        rule.reason = "not known: " + names;
    }
    state_of(rule).described = true;
}

void collector::on(const empty_hook &) {
    current.empty_hook = true;
}

void collector::on(const reason_fact &fact) {
    current.reason.assign(fact.text ? fact.text : "");
}

// --- what was looked at ---

void collector::on(const path_look &fact) {
    last_path.assign(fact.path ? fact.path : "");
    const bool nameless = last_path.empty() || last_path.back() == '/'; // of an empty list line
    if (!options.files || fact.directory || nameless || !seen_files.insert(last_path).second) {
        return;
    }
    config_file file;
    file.path = last_path;
    file.missing = !fact.existed;
    record.config.files.push_back(std::move(file));
}

void collector::on(const list_search &fact) {
    current.searched = current.counted = true;
    current.any_there |= fact.existed;
    current.looked_at += fact.entries;
    if (fact.line) {
        current.from = list_source{text_of(fact.path), fact.line, text_of(fact.entry),
                                   fact.by_wildcard ? "wildcard" : "whole text"};
    } else if (options.near_misses) {
        current.lists.push_back(text_of(fact.path));
    }
}

void collector::on(const range_lookup &fact) {
    current.searched = current.counted = true;
    current.any_there |= fact.existed;
    current.looked_at += fact.records;
    if (fact.record) {
        current.from = range_source{text_of(fact.path), fact.record, address_text_of(fact.low),
                                    address_text_of(fact.high), text_of(fact.comment)};
    }
}

static std::string text_of_nodes(const pattern_search &fact) {
    if (!fact.nodes || fact.node_count <= 0) {
        return "";
    }
    const call_scope quiet(nullptr); // what the collector itself looks at is nobody's business
    TRex expression{};
    expression.nodes = const_cast<TRexNode *>(fact.nodes); // only read
    expression.nallocated = fact.node_count;
    std::string why;
    return data_files::pattern_of_nodes(expression, &why);
}

// The expression that matched, as a source; nothing when none did.
static source source_of(const pattern_search &fact, const pattern_line_files *known) {
    if (!fact.expression) {
        return {};
    }
    if (!fact.path) {
        return built_in_source{text_of(fact.pattern), ""};
    }
    const std::string *const text = known ? known->text_of(fact.path, fact.expression) : nullptr;
    return expression_source{text_of(fact.path), fact.expression,
                             text ? *text : text_of_nodes(fact), "", 0};
}

void collector::on(const pattern_search &fact) {
    current.searched = current.counted = true;
    if (fact.path && std::strcmp(fact.path, exempt_regex_file) == 0) {
        current.exempted_by = source_of(fact, options.pattern_lines);
        if (!current.names.empty()) {
            current.names.back().exempted_by = current.exempted_by;
        }
        return;
    }
    current.any_there |= fact.existed;
    current.looked_at += fact.expressions;
    if (!fact.subject) {
        return;
    }
    name_match match;
    match.name = fact.subject;
    match.matched = source_of(fact, options.pattern_lines);
    if (!current.from.index()) {
        current.from = match.matched;
    }
    current.names.push_back(std::move(match));
}

static std::string covering_network(uint32_t network_order, uint32_t level) {
    unsigned char octet[4];
    std::memcpy(octet, &network_order, sizeof octet);
    for (uint32_t i = level == 3 ? 4 : level; i < sizeof octet; ++i) {
        octet[i] = 0;
    }
    std::memcpy(&network_order, octet, sizeof octet);
    const uint32_t prefix = level == 3 ? 32 : level * 8;
    return address_text_of(network_order) + '/' + std::to_string(prefix);
}

// A map's name as the lists of maps have it.
static std::string map_name(const std::string &path) {
    const std::string folder = std::string(quillfence_block_maps_dir) + '/';
    return path.compare(0, folder.size(), folder) == 0 ? path.substr(folder.size()) : path;
}

void collector::on(const map_lookup &fact) {
    block_map_record map;
    map.map = map_name(text_of(fact.path));
    if (map.map.empty()) {
        return; // behind the last line end of the list of maps
    }
    const std::string failure = std::exchange(current.latest_failure, {});
    map.missing = !fact.existed && failure.empty();
    if (fact.listed) {
        map.is = outcome::hit;
        map.level = fact.level;
        map.network = covering_network(fact.address, fact.level);
        if (!current.from.index()) {
            current.from = block_map_source{map.map, map.level, map.network};
        }
    } else if (!failure.empty() || (fact.existed && !fact.level)) {
        map.is = outcome::undecided;
    }
    current.counted = true;
    ++current.looked_at;
    // The report's maps are others; they stand here only when the decision has asked none.
    if (at == phase::report ? maps_known : at != phase::maps && at != phase::all) {
        return;
    }
    maps_known |= at != phase::report;
    const auto same = [&](const block_map_record &other) { return other.map == map.map; };
    if (std::none_of(record.block_maps.begin(), record.block_maps.end(), same)) {
        if (!failure.empty()) { // the rule's reason names one at most
            record.notes.push_back({"warning", failure});
        }
        record.block_maps.push_back(std::move(map));
    }
}

void collector::on(const sender_network_search &fact) {
    current.counted = true;
    current.looked_at += fact.domains;
    const std::string domain = text_of(fact.domain);
    if (!fact.line) {
        current.sender_networks = domain + " is not among the " +
                                  entries(fact.domains, "domain", "domains") + " declared";
        return;
    }
    current.from = sender_network_source{text_of(fact.path), fact.line, domain};
    current.sender_networks = "the client is in the networks declared for " + domain;
}

// Of a file with CR LF at its ends of lines these are all names.
void collector::keep_blurred_names(const selection_load &fact,
                                   std::vector<list_source> *names) const {
    uint32_t line = 0;
    for (const vc_list_entry *entry = fact.names; entry && options.near_misses;
         entry = entry->next) {
        ++line;
        const std::string name = text_of(static_cast<const char *>(entry->data));
        const std::string meant = without_white_space_behind(name);
        if (!meant.empty() && meant != name) {
            names->push_back({text_of(fact.path), line, name, ""});
        }
    }
}

void collector::on(const selection_load &fact) {
    if (std::strcmp(fact.what, "rules") != 0) {
        keep_blurred_names(fact, &current.blurred);
        if (!fact.names) {
            current.reason = text_of(fact.path) + " names no list to ask";
        }
        return;
    }
    if (selection_known) {
        return;
    }
    selection_known = true;
    built_in_rules = fact.built_in;
    selection_path = text_of(fact.path);
    if (!built_in_rules) {
        keep_blurred_names(fact, &blurred_rules);
        return;
    }
    for (const vc_list_entry *entry = fact.names; entry; entry = entry->next) {
        selection_names +=
            (selection_names.empty() ? "" : ",") + text_of(static_cast<const char *>(entry->data));
    }
}

void collector::on(const domain_table_search &fact) {
    current.counted = true;
    current.looked_at += fact.lines;
    if (fact.line) {
        current.from = file_source{text_of(fact.path), fact.line};
    }
}

void collector::on(const registry_look &fact) {
    if (options.capture) {
        server.on(fact);
    }
    if (fact.decided) {
        current.from = registry_source{text_of(fact.key), text_of(fact.value)};
    }
}

void collector::on(const folder_entry &fact) {
    server.on(fact);
}

void collector::on(const address_map_look &fact) {
    server.on(fact);
}

void collector::on(const folder_search &fact) {
    if (options.capture) {
        server.on(fact);
    }
    current.looked_at += fact.entries;
    current.any_there |= fact.existed;
    if (fact.name) {
        current.from = folder_source{text_of(fact.folder), text_of(fact.name)};
    }
}

void collector::on(const look_failure &fact) {
    if (fact.error == platform::error_not_enough_memory) {
        throw std::bad_alloc();
    }
    const std::string what = fact.what ? fact.what : last_path;
    const std::string why = fact.reason ? fact.reason : data_files::system_text(fact.error);
    const std::string text = what + " could not be looked at: " + why;
    std::string &kept = current.rule ? current.failure : phase_failure;
    if (kept.empty()) {
        kept = text;
    }
    current.latest_failure = text;
}

void collector::on(const error_line_fact &fact) {
    record.errors.push_back({text_of(fact.module), text_of(fact.function), text_of(fact.text)});
}

// --- the end ---

// Whatever the session: the rule has no check function, or its hook is empty.
static bool never_hits(const known_rule &rule) {
    return (!rule.row->check && !rule.step) ||
           (rule.facts && rule.facts->hook && !(hooks().*rule.facts->hook));
}

void collector::finish(bool with_report) {
    const call_scope quiet(nullptr);
    if (options.files) {
        weigh_files(&record.config.files, options);
    }
    name_pattern_lists(&record, options);
    note_answers();
    for (rule_record &rule : record.rules) {
        if (never_hits(known(rule))) {
            rule.from = source();
            rule.decision = outcome::never;
            rule.would.reset();
        }
        if (with_report && !rule.report) {
            rule.report = outcome::never; // the report does not run it
        }
        if (options.quiet_rules || is_told_briefly(rule)) {
            describe_absence(rule);
        }
    }
}

// Why a rule takes no part.
void collector::describe_absence(rule_record &rule) const {
    if (rule.decision == outcome::not_enabled) {
        if (built_in_rules) {
            rule.from = built_in_source{"", selection_names};
        } else {
            rule.from = file_source{selection_path, 0};
        }
        for (const list_source &blurred : blurred_rules) {
            if (without_white_space_behind(blurred.entry) == rule.rule) {
                rule.near_misses.push_back(miss_of(blurred));
            }
        }
    } else if (rule.decision == outcome::never) {
        rule.reason = known(rule).row->check ? "the engine has no such list"
                                             : "the engine has no check for it";
    }
}

} // namespace quillfence::decision
