#include "service_metrics.h"

#include <algorithm>
#include <cstdio>

#include "answer.h"
#include "record_words.h"
#include "vcspamrule.h"

namespace quillfence::service {

// --- what is counted ----------------------------------------------------------------------------

namespace {

enum metric : size_t {
    decisions,
    outcomes,
    dns_answers,
    list_answers,
    answers,
    unjudged,
    connections,
    log_records,
    loads,
    durations, // a bucket each, the last one for what is longer than all
    duration_sum,
};

using values = std::vector<std::string>;

struct label {
    const char *name;
    values of;
};

} // namespace

// All numbers of one metric: a cell for each combination of its labels' values.
struct service_metrics::family {
    const char *name;
    const char *help;
    std::vector<label> labels;
    bool whole = true; // else cells that are 0 are left out: too many can never be otherwise
    size_t first = 0;
    size_t size = 1;
};

// The counters of the threads that share it. So threads seldom wait for each other's memory.
struct alignas(64) service_metrics::shard {
    explicit shard(size_t size) : cells(size) {}
    std::vector<std::atomic<uint64_t>> cells;
};

static constexpr char other[] = "other";

static constexpr double bucket_ends[] = {0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025,
                                         0.05,   0.1,     0.25,   0.5,   1,      2.5,   5,    10};

static constexpr std::array<std::string_view, 5> question_types = {"A", "AAAA", "MX", "PTR",
                                                                   "CNAME"};

template <class Enumeration>
static values words_of() {
    const std::span<const std::string_view> all = decision::words<Enumeration>();
    return {all.begin(), all.end()};
}

// The rules of the table, and what stands for any other name, for none as well.
static values rule_words(const char *rest) {
    values names;
    for (const rule_row &row : rule_rows()) {
        names.emplace_back(row.name);
    }
    names.emplace_back(rest);
    return names;
}

static values type_words() {
    values words(question_types.begin(), question_types.end());
    words.emplace_back(other);
    return words;
}

static std::vector<service_metrics::family> all_families(size_t zone_values) {
    using namespace decision;
    const values cells_alone(std::size(bucket_ends) + 1);
    return {
        {"quillfence_decisions_total",
         "Decisions, by verdict, by what made them and by the rule that did.",
         {{"verdict", words_of<verdict>()},
          {"by", words_of<decided_by>()},
          {"rule", rule_words("")}},
         false},
        {"quillfence_rule_outcomes_total",
         "What each rule did.",
         {{"rule", rule_words(other)}, {"outcome", words_of<outcome>()}},
         false},
        {"quillfence_dns_answers_total",
         "DNS answers that decisions used, by the type that was asked for and what they came to.",
         {{"type", type_words()}, {"class", words_of<answer_class>()}}},
        {"quillfence_block_list_answers_total",
         "What DNS block lists said about clients.",
         {{"zone", values(zone_values)}, {"answer", words_of<block_list_answer>()}}},
        {"quillfence_answers_total",
         "Replies to the mail server.",
         {{"answer", {"dunno", "reject", "warn", "ok"}}}},
        {"quillfence_unjudged_total",
         "Requests that were answered DUNNO without a judgement, by the reason.",
         {{"reason",
           {"bad_request", "other_state", "no_configuration", "no_memory", "deadline", "overload",
            "failure", "stopping"}}}},
        {"quillfence_connections_total",
         "Connections of mail servers, by what happened to them.",
         {{"event", {"opened", "closed", "refused", "idle", "too_long", "bad_end"}}}},
        {"quillfence_log_records_total",
         "Records for the decision log, written or lost.",
         {{"result", {"written", "lost"}}}},
        {"quillfence_configuration_loads_total",
         "Attempts to load the configuration.",
         {{"result", {"loaded", "failed"}}}},
        {"quillfence_decision_duration_seconds",
         "From the whole request to its answer.",
         {{"le", cells_alone}}},
        {"", "microseconds", {}},
    };
}

// --- counting -----------------------------------------------------------------------------------

// A label's value as the format writes it, without what ends the text.
static std::string escaped(std::string_view value) {
    std::string text;
    for (const char c : value) {
        text += c == '\n' ? "\\n" : c == '"' ? "\\\"" : c == '\\' ? "\\\\" : std::string(1, c);
    }
    return text;
}

service_metrics::service_metrics(const decision::engine_build &build)
    : families_(all_families(most_zones + 1)),
      build_labels_("version=\"" + escaped(build.version) + "\",build=\"" + escaped(build.build) +
                    '"'),
      started_(std::chrono::system_clock::now()) {
    for (family &one : families_) {
        one.first = cells_;
        for (const label &by : one.labels) {
            one.size *= by.of.size();
        }
        cells_ += one.size;
    }
    for (auto &one : shards_) {
        one = std::make_unique<shard>(cells_);
    }
}

service_metrics::~service_metrics() = default;

static size_t number_of_thread() {
    static std::atomic<size_t> next = 0;
    thread_local const size_t mine = next++;
    return mine;
}

// The n-th cell of a metric.
void service_metrics::add(size_t which, size_t cell) noexcept {
    shard &mine = *shards_[number_of_thread() % shard_count];
    mine.cells[families_[which].first + cell].fetch_add(1, std::memory_order_relaxed);
}

uint64_t service_metrics::sum(size_t cell) const {
    uint64_t all = 0;
    for (const auto &one : shards_) {
        all += one->cells[cell].load(std::memory_order_relaxed);
    }
    return all;
}

// A rule's place in the table, the table's size for none. Records have the rules in the table's
// order, so that the hint is mostly right.
static size_t place_of_rule(std::string_view name, size_t hint) {
    const std::span<const rule_row> rows = rule_rows();
    if (hint < rows.size() && rows[hint].name == name) {
        return hint;
    }
    return static_cast<size_t>(
        std::ranges::find_if(rows, [name](const rule_row &row) { return row.name == name; }) -
        rows.begin());
}

static size_t place_of_type(std::string_view word) {
    return static_cast<size_t>(std::ranges::find(question_types, word) - question_types.begin());
}

static size_t place_of_duration(std::chrono::microseconds took) {
    const double seconds = std::chrono::duration<double>(took).count();
    return static_cast<size_t>(std::ranges::lower_bound(bucket_ends, seconds) - bucket_ends);
}

// A cell's place among those of its metric: of the last label neighbours stand side by side.
template <class Last>
static size_t cell_at(size_t row, Last last) {
    return row * decision::words<Last>().size() + static_cast<size_t>(last);
}

void service_metrics::decided(const decision::decision_record &record,
                              std::chrono::microseconds took) noexcept {
    const size_t rules = rule_rows().size();
    add(decisions,
        cell_at(static_cast<size_t>(record.decision.is), record.decision.by) * (rules + 1) +
            place_of_rule(record.decision.rule, rules));
    for (const decision::rule_record &one : record.rules) {
        add(outcomes, cell_at(place_of_rule(one.rule, one.n - 1), one.decision));
    }
    for (const decision::dns_record &one : record.dns) {
        add(dns_answers, cell_at(place_of_type(one.type), one.is));
    }
    for (const decision::dns_block_list_record &one : record.dns_block_lists) {
        if (one.answer) {
            add(list_answers, cell_at(zone_place(one.zone), *one.answer));
        }
    }
    add(durations, place_of_duration(took));
    shards_[number_of_thread() % shard_count]->cells[families_[duration_sum].first].fetch_add(
        static_cast<uint64_t>(std::max<int64_t>(took.count(), 0)), std::memory_order_relaxed);
}

void service_metrics::answered(policy_answer said) noexcept {
    add(answers, static_cast<size_t>(said));
}

void service_metrics::in_doubt(doubt why) noexcept {
    add(unjudged, static_cast<size_t>(why));
}

void service_metrics::connection(connection_event what) noexcept {
    add(connections, static_cast<size_t>(what));
}

void service_metrics::log_written(bool it_was) noexcept {
    add(log_records, it_was ? 0 : 1);
}

void service_metrics::configuration_loaded(bool it_did) noexcept {
    add(loads, it_did ? 0 : 1);
    if (it_did) {
        loaded_ms_ = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    }
}

// --- zones --------------------------------------------------------------------------------------

static bool is_plain(std::string_view zone) {
    return std::ranges::all_of(zone, [](char c) { return c > ' ' && c < '\x7f'; });
}

// Whether two names are one, whatever their letter case and with the final dot or without.
static bool is_same_zone(std::string_view known, std::string_view zone) {
    zone.remove_suffix(zone.ends_with('.') ? 1 : 0);
    return std::ranges::equal(known, zone, [](char a, char b) {
        return a == (b >= 'A' && b <= 'Z' ? static_cast<char>(b - 'A' + 'a') : b);
    });
}

// The place of a zone, which gets one if there is room; most_zones for all others.
size_t service_metrics::zone_place(std::string_view zone) noexcept {
    const auto find = [this, zone] {
        const size_t count = zone_count_.load(std::memory_order_acquire);
        size_t place = 0;
        while (place < count && !is_same_zone(zones_[place], zone)) {
            ++place;
        }
        return place < count ? place : most_zones;
    };
    const size_t known = find();
    if (known < most_zones || zone.empty() || zone.size() > longest_zone || !is_plain(zone)) {
        return known;
    }
    const std::lock_guard held(zone_lock_);
    const size_t added_meanwhile = find();
    const size_t place = zone_count_;
    if (added_meanwhile < most_zones || place == most_zones) {
        return added_meanwhile;
    }
    try {
        zones_[place] = dns_sources::name_key(zone);
    } catch (const std::bad_alloc &) {
        return most_zones;
    }
    zone_count_.store(place + 1, std::memory_order_release);
    return place;
}

void service_metrics::zones(std::span<const std::string> names) {
    for (const std::string &name : names) {
        zone_place(name);
    }
}

// --- the text -----------------------------------------------------------------------------------

static std::string number_text(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", number);
    return text;
}

// With milliseconds.
static std::string seconds_text(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

static void write_head(const char *name, const char *type, const char *help, std::string *text) {
    *text += std::string("# HELP ") + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
}

// A gauge of one number.
static void write_gauge(const char *name, const char *help, const std::string &labels,
                        const std::string &number, std::string *text) {
    write_head(name, "gauge", help, text);
    *text += name + (labels.empty() ? "" : '{' + labels + '}') + ' ' + number + '\n';
}

// The values of a cell's labels, the last one running fastest.
static std::string labels_of(const std::vector<label> &labels, size_t cell) {
    std::string text;
    for (size_t i = labels.size(); i-- > 0;) {
        const values &of = labels[i].of;
        text.insert(0, (i > 0 ? "," : "") + std::string(labels[i].name) + "=\"" +
                           escaped(of[cell % of.size()]) + '"');
        cell /= of.size();
    }
    return text;
}

void service_metrics::write_cells(const family &one, std::string *text) const {
    for (size_t i = 0; i < one.size; ++i) {
        const uint64_t count = sum(one.first + i);
        if (one.whole || count > 0) {
            *text +=
                one.name + ('{' + labels_of(one.labels, i) + "} ") + std::to_string(count) + '\n';
        }
    }
}

// Zones in the order in which they came; behind them what has no name of its own, if it was met.
void service_metrics::write_zones(const family &one, std::string *text) const {
    const size_t named = zone_count_.load(std::memory_order_acquire);
    const values &states = one.labels.back().of;
    for (size_t place = 0; place <= most_zones; ++place) {
        for (size_t i = 0; i < states.size(); ++i) {
            const uint64_t count = sum(one.first + place * states.size() + i);
            if (place < named || count > 0) {
                *text += std::string(one.name) + "{zone=\"" +
                         (place < most_zones ? escaped(zones_[place]) : other) + "\",answer=\"" +
                         states[i] + "\"} " + std::to_string(count) + '\n';
            }
        }
    }
}

void service_metrics::write_durations(const family &one, std::string *text) const {
    const std::string name = one.name;
    uint64_t count = 0;
    for (size_t i = 0; i < one.size; ++i) {
        count += sum(one.first + i);
        *text += name + "_bucket{le=\"" +
                 (i < std::size(bucket_ends) ? number_text(bucket_ends[i]) : "+Inf") + "\"} " +
                 std::to_string(count) + '\n';
    }
    const uint64_t microseconds = sum(families_[duration_sum].first);
    *text += name + "_sum " + number_text(static_cast<double>(microseconds) / 1e6) + '\n' + name +
             "_count " + std::to_string(count) + '\n';
}

void service_metrics::write_gauges(std::string *text) const {
    const size_t first = families_[connections].first;
    // Closed first: what closes between the two has been opened before.
    const uint64_t closed = sum(first + static_cast<size_t>(connection_event::closed));
    const uint64_t opened = sum(first + static_cast<size_t>(connection_event::opened));
    const double started = std::chrono::duration<double>(started_.time_since_epoch()).count();
    write_gauge("quillfence_connections_open", "Connections of mail servers that are open now.", "",
                std::to_string(opened - std::min(opened, closed)), text);
    write_gauge("quillfence_configuration_last_success_timestamp_seconds",
                "When the configuration in force was loaded, in seconds since 1970; 0 for never.",
                "", seconds_text(static_cast<double>(loaded_ms_) / 1000), text);
    write_gauge("quillfence_start_timestamp_seconds",
                "When the service was started, in seconds since 1970.", "", seconds_text(started),
                text);
    write_gauge("quillfence_build_info", "Which program this is; always 1.", build_labels_, "1",
                text);
}

std::string service_metrics::text() const {
    std::string text;
    for (size_t i = 0; i < duration_sum; ++i) {
        const family &one = families_[i];
        write_head(one.name, i == durations ? "histogram" : "counter", one.help, &text);
        if (i == durations) {
            write_durations(one, &text);
        } else if (i == list_answers) {
            write_zones(one, &text);
        } else {
            write_cells(one, &text);
        }
    }
    write_gauges(&text);
    return text;
}

} // namespace quillfence::service
