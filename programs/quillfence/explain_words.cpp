#include "explain_words.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "answer.h"
#include "json_writer.h"
#include "platform/dns.h"
#include "platform/error_numbers.h"
#include "program.h"
#include "record_words.h"
#include "text.h"

namespace quillfence::programs {

using namespace decision;
using data_files::printable;

// A value of the transaction, where "" has to be seen.
static std::string shown(std::string_view value) {
    return value.empty() ? "(empty)" : printable(value);
}

static std::string joined_with(const std::vector<std::string> &texts, const char *separator) {
    std::string all;
    for (const std::string &text : texts) {
        all += (all.empty() ? "" : separator) + printable(text);
    }
    return all;
}

static std::string milliseconds(double ms) {
    char text[32];
    std::snprintf(text, sizeof text, ms < 10 ? "%.1f ms" : "%.0f ms", ms);
    return text;
}

// --- sources ---

static std::string with_line(const std::string &file, uint32_t line) {
    return printable(file) + (line ? ':' + std::to_string(line) : "");
}

static std::string in_brackets(const std::string &text) {
    return text.empty() ? "" : " (" + text + ')';
}

namespace {

struct source_wording {
    std::string operator()(const std::monostate &) const {
        return "";
    }
    std::string operator()(const list_source &s) const {
        return with_line(s.file, s.line) + ": " + printable(s.entry) +
               in_brackets(printable(s.how));
    }
    std::string operator()(const range_source &s) const {
        return printable(s.file) + " record " + std::to_string(s.record) + ": " + printable(s.low) +
               " - " + printable(s.high) + in_brackets(printable(s.comment));
    }
    std::string operator()(const expression_source &s) const {
        return printable(s.file) + " expression " + std::to_string(s.expression) +
               (s.pattern.empty() ? "" : ": " + printable(s.pattern)) +
               in_brackets(s.list.empty() ? "" : with_line(s.list, s.list_line));
    }
    std::string operator()(const block_map_source &s) const {
        return printable(s.map) + ": " + printable(s.network) + " (level " +
               std::to_string(s.level) + ')';
    }
    std::string operator()(const sender_network_source &s) const {
        return with_line(s.file, s.line) + ": the networks of " + printable(s.domain);
    }
    std::string operator()(const registry_source &s) const {
        return "registry " + printable(s.key) + in_brackets(printable(s.value));
    }
    std::string operator()(const folder_source &s) const {
        return printable(s.name) + " in the folder " + printable(s.folder);
    }
    std::string operator()(const address_map_source &s) const {
        return "the address map of " + printable(s.library);
    }
    std::string operator()(const built_in_source &s) const {
        const std::string what =
            !s.pattern.empty() ? "pattern " + printable(s.pattern) : printable(s.selection);
        return "built in" + (what.empty() ? "" : ": " + what);
    }
    std::string operator()(const file_source &s) const {
        return with_line(s.file, s.line);
    }
};

} // namespace

std::string source_text(const source &of) {
    return std::visit(source_wording(), of);
}

static bool is_there(const source &of) {
    return !std::holds_alternative<std::monostate>(of);
}

// --- rules ---

static bool is_hit(outcome of) {
    return of == outcome::hit || of == outcome::hit_unreported || of == outcome::exempt;
}

static bool hits_in(const std::optional<outcome> &of) {
    return of && is_hit(*of);
}

static bool did_not_run(const rule_record &rule) {
    return rule.decision == outcome::not_reached || rule.decision == outcome::not_enabled ||
           rule.decision == outcome::never || rule.decision == outcome::skipped;
}

// What a rule that the decision did not run lacks in the replayer's run says nothing about mail.
static bool lacks_something(const rule_record &rule) {
    return rule.decision == outcome::undecided || rule.would == outcome::undecided ||
           (rule.report == outcome::undecided && !did_not_run(rule));
}

bool is_remarkable(const rule_record &rule) {
    return is_hit(rule.decision) || hits_in(rule.would) || hits_in(rule.report) ||
           lacks_something(rule);
}

bool is_aside(const rule_record &rule) {
    return did_not_run(rule) && !is_remarkable(rule) && rule.near_misses.empty();
}

static std::string kind_text(const std::string &kind) {
    static constexpr struct {
        std::string_view kind;
        const char *text;
    } kinds[] = {
        {"localhost", "clients on the local host"},
        {"ipv6", "IPv6 clients"},
        {"mua", "submissions of a mail program"},
        {"bounce", "bounces"},
    };
    for (const auto &one : kinds) {
        if (one.kind == kind) {
            return one.text;
        }
    }
    return "sessions of the kind " + printable(kind);
}

static std::string not_enabled_text(const rule_record &rule) {
    std::string where = source_text(rule.from);
    if (const auto *file = std::get_if<file_source>(&rule.from)) {
        where = printable(file->file) + " has no such line";
    } else if (std::holds_alternative<built_in_source>(rule.from)) {
        where = "the built-in selection does not have it";
    }
    return "not enabled" + in_brackets(where);
}

// How many entries were tried; "" when there were none.
static std::string looked_at_text(const rule_record &rule) {
    const uint32_t count = rule.looked_at.value_or(0);
    return count ? counted(count, "entry", "entries") + " looked at" : "";
}

static std::string with_reason(const std::string &begin, const rule_record &rule) {
    const std::string reason = printable(rule.reason);
    return begin + (reason.empty() ? "" : ": " + reason);
}

// A reason says how much was looked at where that matters.
static std::string no_hit_text(const rule_record &rule) {
    const std::string looked_at = rule.reason.empty() ? looked_at_text(rule) : "";
    return looked_at.empty() ? with_reason("no", rule) : "no: " + looked_at;
}

static std::string decision_text(const rule_record &rule) {
    switch (rule.decision) {
    case outcome::hit:
    case outcome::hit_unreported:
        return with_reason("HIT", rule);
    case outcome::exempt:
        return with_reason("EXEMPTS", rule);
    case outcome::no_hit:
        return no_hit_text(rule);
    case outcome::skipped:
        return "skipped: it is not for " + kind_text(rule.kind);
    case outcome::not_enabled:
        return not_enabled_text(rule);
    case outcome::not_reached:
        return "not reached";
    case outcome::never:
        return with_reason("never", rule);
    case outcome::undecided:
        break;
    }
    return with_reason("UNDECIDED", rule);
}

static std::string would_text(const rule_record &rule) {
    if (!rule.would) {
        return "";
    }
    if (is_hit(*rule.would)) {
        return with_reason("would hit", rule) + "; ";
    }
    if (*rule.would == outcome::no_hit) {
        return "would not hit; ";
    }
    return *rule.would == outcome::undecided ? with_reason("would be undecided", rule) + "; " : "";
}

// What the report says where that is not what the decision says.
static std::string report_text(const rule_record &rule) {
    if (rule.report == outcome::hit) {
        return rule.decision == outcome::hit ? "" : "; the replayer reports it";
    }
    if (rule.report == outcome::hit_unreported) {
        return is_hit(rule.decision) ? "; the replayer's line never names it"
                                     : "; hits in the replayer's run, whose line never names it";
    }
    return rule.report == outcome::undecided && rule.decision != outcome::undecided &&
                   !did_not_run(rule)
               ? "; undecided in the replayer's run"
               : "";
}

std::string rule_sentence(const rule_record &rule) {
    return would_text(rule) + decision_text(rule) + report_text(rule);
}

static std::string name_text(const name_match &one) {
    std::string text = shown(one.name);
    if (!is_there(one.matched)) {
        return text + " matches nothing" +
               (is_there(one.exempted_by) ? "; exempt by " + source_text(one.exempted_by) : "");
    }
    text += " matches " + source_text(one.matched);
    return is_there(one.exempted_by) ? text + ", but is exempt by " + source_text(one.exempted_by)
                                     : text;
}

static std::string near_miss_text(const near_miss &near) {
    return "near: " + printable(near.text) +
           (is_there(near.from) ? ": " + source_text(near.from) : "");
}

// The value that was judged and the entry that it met.
static std::string match_text(const rule_record &rule) {
    const bool no_names = rule.fact == "ptr" && rule.value.empty();
    const std::string value =
        no_names || (rule.fact.empty() && rule.value.empty())
            ? ""
            : printable(rule.fact) + (rule.fact.empty() ? "" : " ") + shown(rule.value);
    const bool matched = is_there(rule.from) && rule.decision != outcome::not_enabled;
    if (value.empty()) {
        return matched ? "by " + source_text(rule.from) : "";
    }
    if (matched) {
        return value + " matches " + source_text(rule.from);
    }
    return is_hit(rule.decision) || hits_in(rule.would) || hits_in(rule.report) ? value : "";
}

std::vector<std::string> rule_details(const rule_record &rule) {
    std::vector<std::string> details;
    if (is_remarkable(rule)) {
        const std::string match = rule.names.empty() ? match_text(rule) : "";
        if (!match.empty()) {
            details.push_back(match);
        }
        for (const name_match &one : rule.names) {
            details.push_back(name_text(one));
        }
        if (is_there(rule.exempted_by)) {
            details.push_back("exempt by " + source_text(rule.exempted_by));
        }
    }
    for (const near_miss &near : rule.near_misses) {
        details.push_back(near_miss_text(near));
    }
    return details;
}

static const dns_record *question_of(const decision_record &record, uint32_t n) {
    const auto found = std::find_if(record.dns.begin(), record.dns.end(),
                                    [n](const dns_record &dns) { return dns.n == n; });
    return found == record.dns.end() ? nullptr : &*found;
}

std::vector<named_text> rule_in_depth(const decision_record &record, const rule_record &rule) {
    std::vector<named_text> rows;
    const auto row = [&](const char *name, const std::string &text) {
        if (!text.empty()) {
            rows.emplace_back(name, text);
        }
    };
    row("decision", std::string(word(rule.decision)) +
                        (rule.kind.empty() ? "" : " (" + printable(rule.kind) + ')'));
    row("report", rule.report ? std::string(word(*rule.report)) : "");
    row("would be", rule.would ? std::string(word(*rule.would)) : "");
    row("reason", printable(rule.reason));
    row(rule.fact.empty() ? "value" : rule.fact.c_str(),
        rule.fact.empty() && rule.value.empty() ? "" : shown(rule.value));
    row("source", source_text(rule.from));
    row("looked at", rule.looked_at ? counted(*rule.looked_at, "entry", "entries") : "");
    row("exempted by", source_text(rule.exempted_by));
    for (const name_match &one : rule.names) {
        row("name", name_text(one));
    }
    for (const near_miss &near : rule.near_misses) {
        row("near miss", near_miss_text(near).substr(std::string_view("near: ").size()));
    }
    for (const uint32_t n : rule.dns) {
        const dns_record *const dns = question_of(record, n);
        const std::string effort = dns ? dns_effort(*dns) : "";
        row("DNS", dns ? dns_question(*dns) + ": " + dns_answer(*dns) + in_brackets(effort)
                       : "question " + std::to_string(n));
    }
    row("time", rule.us ? std::to_string(*rule.us) + " us" : "");
    return rows;
}

// --- block maps and DNS block lists ---

std::string block_map_sentence(const block_map_record &map) {
    if (map.missing) {
        return "there is no such file";
    }
    if (is_hit(map.is)) {
        return "HIT: lists " + printable(map.network) + " (level " + std::to_string(map.level) +
               ')';
    }
    return map.is == outcome::no_hit ? "no" : std::string(word(map.is));
}

static std::string truth_text(block_list_answer answer) {
    static constexpr std::array<const char *, 5> texts = {
        "the client is listed", "the client is not listed",
        "the list refuses to answer this resolver", "the answer is no listing",
        "the question failed"};
    return texts[static_cast<size_t>(answer)];
}

std::string block_list_sentence(const dns_block_list_record &list) {
    std::string text = is_hit(list.is)              ? "HIT"
                       : list.is == outcome::no_hit ? "no"
                                                    : std::string(word(list.is));
    if (list.answer) {
        text += ": " + truth_text(*list.answer);
    }
    return text + in_brackets(joined_with(list.records, ", "));
}

// --- DNS ---

// The one text that all have who have any; "" when they differ.
static std::string common_text(const std::vector<dns_record> &all, std::string dns_record::*text) {
    std::string common;
    for (const dns_record &dns : all) {
        const std::string &own = dns.*text;
        if (!own.empty() && !common.empty() && own != common) {
            return "";
        }
        common = own.empty() ? common : own;
    }
    return printable(common);
}

static std::string upper(std::string text) {
    for (char &c : text) {
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return text;
}

namespace {

// What can be wrong with a question, in a word.
struct trouble {
    const char *word;
    bool (*has)(const dns_record &dns);
};

constexpr trouble troubles[] = {
    {"silent", [](const dns_record &dns) { return dns.status == platform::dns_status_timeout; }},
    {"refused", [](const dns_record &dns) { return dns.rcode == "REFUSED"; }},
    {"unreachable",
     [](const dns_record &dns) {
         return dns.rcode.empty() && dns.status == platform::dns_status_servfail;
     }},
    {"failed at the server", [](const dns_record &dns) { return dns.rcode == "SERVFAIL"; }},
    {"not asked",
     [](const dns_record &dns) {
         return dns.is == answer_class::missing && dns.status != platform::dns_status_timeout;
     }},
};

} // namespace

// Whether no server said anything that can be used.
static bool got_nothing(const dns_record &dns) {
    return dns.is == answer_class::failure && (dns.status == platform::dns_status_timeout ||
                                               dns.status == platform::dns_status_servfail);
}

// "; 3 silent, 11 not asked"; "" when all is well.
static std::string trouble_text(const std::vector<dns_record> &all) {
    std::string text;
    for (const trouble &one : troubles) {
        if (const auto count = std::count_if(all.begin(), all.end(), one.has)) {
            text += (text.empty() ? "; " : ", ") + std::to_string(count) + ' ' + one.word;
        }
    }
    return text;
}

std::string dns_summary(const decision_record &record) {
    if (record.dns.empty()) {
        return "";
    }
    const std::string server = common_text(record.dns, &dns_record::server);
    const std::string transport = upper(common_text(record.dns, &dns_record::transport));
    std::optional<double> ms;
    for (const dns_record &dns : record.dns) {
        ms = dns.ms ? ms.value_or(0) + *dns.ms : ms;
    }
    return counted(record.dns.size(), "question") + (server.empty() ? "" : " to " + server) +
           (transport.empty() ? "" : " over " + transport) + (ms ? ", " + milliseconds(*ms) : "") +
           trouble_text(record.dns);
}

std::string dns_question(const dns_record &dns) {
    return printable(dns.type) + ' ' + printable(dns.name);
}

// What the engine makes of an answer, where that is not what the server said.
static std::string taken_for(answer_class is) {
    return is == answer_class::no_name ? ", which the engine takes for \"does not exist\""
           : is == answer_class::found ? ", which the engine takes for an answer"
                                       : ", a failed lookup for the engine";
}

static std::string status_text(const dns_record &dns) {
    static constexpr struct {
        uint32_t status;
        const char *text;
    } statuses[] = {
        {0, "an answer that the guards do not count"},
        {platform::dns_status_timeout, "silent: no answer came in time"},
        {platform::dns_status_servfail, "unreachable: no server could be reached"},
        {platform::dns_status_no_records, "no records of this type"},
        {platform::dns_status_bad_packet, "an answer that cannot be read"},
        {platform::error_invalid_name, "a name that cannot be asked"},
        {platform::error_invalid_parameter, "the server's address cannot be read"},
    };
    for (const auto &one : statuses) {
        if (one.status == dns.status) {
            return one.text;
        }
    }
    return "status " + std::to_string(dns.status);
}

// Of a question whose answer is not known.
static std::string missing_text(uint32_t status) {
    switch (status) {
    case platform::dns_status_timeout:
        return "silent until the time for DNS questions was used up";
    case dns_sources::status_deadline:
        return "not asked: the time for DNS questions was used up";
    default:
        return "no answer is at hand, and none was asked for";
    }
}

bool was_asked(const dns_record &dns) {
    return dns.is != answer_class::missing || dns.status == platform::dns_status_timeout ||
           dns.status == dns_sources::status_deadline;
}

std::string dns_answer(const dns_record &dns) {
    const std::string records = joined_with(dns.records, ", ");
    if (dns.is == answer_class::missing) {
        return missing_text(dns.status);
    }
    if (!dns.rcode.empty() && dns.rcode != "NOERROR") {
        const bool plain = dns.rcode == "NXDOMAIN" && dns.is == answer_class::no_name;
        return (plain ? "does not exist (NXDOMAIN)" : printable(dns.rcode) + taken_for(dns.is)) +
               (records.empty() ? "" : "; " + records);
    }
    if (dns.status == 0 && dns.is == answer_class::found) {
        return records.empty() ? "found" : records;
    }
    return status_text(dns) + taken_for(dns.is) + (records.empty() ? "" : "; " + records);
}

std::string dns_effort(const dns_record &dns) {
    std::string text = dns.ms ? milliseconds(*dns.ms) : "";
    const auto add = [&](const std::string &more) { text += (text.empty() ? "" : ", ") + more; };
    if (dns.attempt > 1) {
        add("attempt " + std::to_string(dns.attempt));
    }
    if (dns.tries.value_or(1) > 1) {
        add("sent " + std::to_string(*dns.tries) + " times");
    }
    return text;
}

std::string dns_effort_of_all(const decision_record &record, const dns_record &dns) {
    uint64_t times = 0;
    std::optional<double> ms;
    for (const dns_record &one : record.dns) {
        if (dns_question(one) == dns_question(dns) && dns_answer(one) == dns_answer(dns)) {
            ++times;
            ms = one.ms ? ms.value_or(0) + *one.ms : ms;
        }
    }
    return times == 1
               ? dns_effort(dns)
               : "asked " + std::to_string(times) + " times" + (ms ? ", " + milliseconds(*ms) : "");
}

// --- the decision ---

static std::string with_rule(const std::string &begin, const std::string &rule) {
    return begin + (rule.empty() ? "a rule" : printable(rule));
}

std::string headline(const decision_record &record) {
    const auto &d = record.decision;
    const std::string verdict = upper(std::string(word(d.is)));
    switch (d.by) {
    case decided_by::engine_off:
        return verdict + ": the engine is switched off";
    case decided_by::exempt:
        return with_rule(verdict + ": exempt by ", d.rule);
    case decided_by::rule:
        return with_rule(verdict + " by ", d.rule);
    case decided_by::block_map:
        return verdict + " by " + (d.maps.size() == 1 ? "the block map " : "the block maps ") +
               joined_with(d.maps, ", ");
    case decided_by::rbl:
        return verdict + " by the DNS block list " + printable(d.zone);
    case decided_by::nothing:
        return verdict + ": nothing objected";
    case decided_by::missing:
        return verdict + ": something that decides is not known";
    case decided_by::error:
        break;
    }
    return verdict + ": something failed";
}

static void add_rule(const decision_record &record, std::vector<std::string> *sentences) {
    for (const rule_record &rule : record.rules) {
        if (!rule.rule.empty() && rule.rule == record.decision.rule) {
            if (!is_there(rule.from) && rule.names.empty() && !rule.reason.empty()) {
                sentences->push_back(printable(rule.reason));
            }
            const std::vector<std::string> details = rule_details(rule);
            sentences->insert(sentences->end(), details.begin(), details.end());
        }
    }
}

std::vector<std::string> missing_sentences(const decision_record &record) {
    std::vector<std::string> sentences;
    std::string questions;
    uint64_t count = 0;
    for (const missing_item &item : record.missing) {
        if (item.what == "fact") {
            sentences.push_back("not known: " + printable(item.fact));
        } else {
            questions += (count++ ? ", " : "") + printable(item.type) + ' ' + printable(item.name);
        }
    }
    if (count) {
        sentences.push_back(
            (count == 1 ? "not known: the answer to " : "not known: the answers to ") + questions);
    }
    return sentences;
}

std::vector<std::string> what_decided(const decision_record &record) {
    const auto &d = record.decision;
    std::vector<std::string> sentences;
    if (d.by == decided_by::rule || d.by == decided_by::exempt) {
        add_rule(record, &sentences);
    }
    if (d.by == decided_by::exempt && !d.where.empty()) {
        sentences.push_back(d.where == "user" ? "in the recipient's own folder"
                                              : "in the server's lists");
    }
    for (const block_map_record &map : record.block_maps) {
        if (d.by == decided_by::block_map && is_hit(map.is)) {
            sentences.push_back(printable(map.map) + " lists " + printable(map.network));
        }
    }
    for (const dns_block_list_record &list : record.dns_block_lists) {
        if (d.by == decided_by::rbl && is_hit(list.is)) {
            sentences.push_back(printable(list.zone) + ": " + block_list_sentence(list));
        }
    }
    const auto failed = std::count_if(record.dns.begin(), record.dns.end(), got_nothing);
    if (d.by == decided_by::nothing && failed) {
        sentences.push_back(counted(static_cast<uint64_t>(failed), "DNS question") + " of " +
                            std::to_string(record.dns.size()) +
                            " failed; rules that need the answer do not hit then");
    }
    if (d.is == verdict::undecided) {
        const std::vector<std::string> missing = missing_sentences(record);
        sentences.insert(sentences.end(), missing.begin(), missing.end());
    }
    if (!d.notice.empty()) {
        sentences.push_back("the client is told: " + printable(d.notice));
    }
    return sentences;
}

// --- the transaction and its surroundings ---

static std::string text_or_unknown(const std::optional<std::string> &text) {
    return text ? shown(*text) : "(unknown)";
}

static std::string names_text(const decision_record &record) {
    if (!record.facts.ptr.empty()) {
        const std::optional<uint32_t> more = record.facts.ptr_left_out;
        return joined_with(record.facts.ptr, ", ") +
               (more ? ", and " + std::to_string(*more) + " more" : "");
    }
    const bool unknown = std::any_of(record.missing.begin(), record.missing.end(),
                                     [](const missing_item &item) { return item.type == "PTR"; });
    const bool failed =
        std::any_of(record.dns.begin(), record.dns.end(),
                    [](const dns_record &dns) { return dns.type == "PTR" && got_nothing(dns); });
    return unknown ? "(unknown)" : failed ? "(unknown: the look-up failed)" : "(none)";
}

static std::string flag_text(const std::optional<bool> &flag) {
    return flag ? *flag ? "yes" : "no" : "(unknown)";
}

std::vector<named_text> transaction_facts(const decision_record &record) {
    const transaction &t = record.transaction;
    std::vector<named_text> rows = {
        {"client", text_or_unknown(t.ip) + ", port " + text_or_unknown(t.port)},
        {"PTR", names_text(record)},
        {"HELO", text_or_unknown(t.helo)},
        {"sender", text_or_unknown(t.sender)},
        {"recipient", text_or_unknown(t.recipient)},
        {"TLS", flag_text(t.tls)},
        {"user", text_or_unknown(t.authuser)},
        {"submission", flag_text(t.mua)},
    };
    const struct {
        bool is;
        const char *kind;
    } kinds[] = {{record.facts.localhost, "from the local host"},
                 {record.facts.ipv6, "from an IPv6 client"},
                 {record.facts.bounce, "a bounce"},
                 {!record.facts.routable, "from an address that is not routable"}};
    std::string kind;
    for (const auto &one : kinds) {
        kind += one.is ? (kind.empty() ? "" : ", ") + std::string(one.kind) : "";
    }
    if (!kind.empty()) {
        rows.emplace_back("kind", kind);
    }
    return rows;
}

std::vector<named_text> circumstances(const decision_record &record) {
    std::vector<named_text> rows;
    const auto row = [&](const char *name, const std::string &text) {
        if (!text.empty()) {
            rows.emplace_back(name, printable(text));
        }
    };
    row("id", record.id);
    row("time", record.time);
    row("engine", record.engine.version + in_brackets(record.engine.build));
    row("configuration", record.config.base);
    row("user folder", record.config.user_dir);
    row("revision", record.config.revision);
    return rows;
}

std::string replayer_line(const decision_record &record) {
    if (!record.report) {
        return "";
    }
    if (!record.report->failed.empty()) {
        return "none: " + printable(record.report->failed);
    }
    std::string line;
    json_writer json(line, json_layout::one_line);
    const auto list = [&](std::string_view name, const std::vector<std::string> &hits) {
        json.name(name);
        json.begin_array();
        for (const std::string &hit : hits) {
            json.text(printable(hit));
        }
        json.end_array();
    };
    json.begin_object();
    list("spam_hits", record.report->spam_hits);
    list("bms_hits", record.report->bms_hits);
    json.end_object();
    json.finish();
    return line;
}

} // namespace quillfence::programs
