// What holds for every configuration and transaction: many at random, always the same ones.
#include <algorithm>
#include <set>

#include "engine_door.h"
#include "off_source.h"
#include "owned_session.h"
#include "process_state.h"
#include "qfd-packet.h"
#include "quillfence-checks.h"
#include "recorded_source.h"
#include "report.h"
#include "vc_json.h"
#include "words.h"
#include "world_test.h"

namespace quillfence::testing {
namespace {

// Wine takes minutes to write as many configurations as Linux writes in seconds: there it is a
// quarter of them.
constexpr unsigned share = QF_SHARE;

// A session as the replayer makes it of its arguments, completed; null when that fails.
owned_session replayed_session(const transaction &what) {
    std::string arguments[] = {"replayer",
                               "R",
                               *what.ip,
                               *what.port,
                               *what.tls ? "1" : "0",
                               *what.authuser,
                               *what.mua ? "1" : "0",
                               *what.helo,
                               *what.sender,
                               *what.recipient};
    char *vector[10];
    std::transform(std::begin(arguments), std::end(arguments), vector,
                   [](std::string &text) { return text.data(); });
    qfd_request_packet *const packet = qfd_request_packet_from_args(10, vector);
    owned_session state(packet ? qfd_request_packet_to_smtp_state(packet) : nullptr);
    qfd_request_packet_free(packet);
    if (state && !__process_state(state.get())) {
        state.reset();
    }
    return state;
}

lines texts_of(vc_json *root, const char *name) {
    lines texts;
    vc_json *const list = vc_json_get_node_ex(root, name, nullptr);
    for (uint32_t i = 0; i < vc_json_num_children(list); ++i) {
        texts.emplace_back(static_cast<const char *>(vc_json_node_index(list, i)->value));
    }
    return texts;
}

// The report that the replayer would print.
report replayed(const transaction &what) {
    report made;
    const owned_session state = replayed_session(what);
    vc_json *const root = state ? build_report(state.get(), quillfence_rules()) : nullptr;
    if (!root) {
        made.failed = "it fails";
        return made;
    }
    made.spam_hits = texts_of(root, "spam_hits");
    made.bms_hits = texts_of(root, "bms_hits");
    vc_json_free(root);
    return made;
}

// What a mail server makes of the session, asking the engine step by step.
decision::decision served(const transaction &what) {
    decision::decision made;
    const owned_session state = replayed_session(what);
    made.is = verdict::accept;
    if (!quillfence_enabled()) {
        made.by = decided_by::engine_off;
        return made;
    }
    if (is_exempt(state.get(), nullptr)) {
        made.by = decided_by::exempt;
    } else if (global_spam_hit_r(state.get(), quillfence_rules()), state->hit_name) {
        made.is = verdict::reject;
        made.by = decided_by::rule;
    } else if (global_bms_r(state.get(), quillfence_rules()), state->hit_name) {
        made.is = verdict::reject;
        made.by = decided_by::block_map;
    } else if (global_rbl_r(state.get(), quillfence_rules()), state->hit_name) {
        made.is = verdict::reject;
        made.by = decided_by::rbl;
    } else {
        made.by = decided_by::nothing;
    }
    made.hit_name = state->hit_name ? state->hit_name : "";
    made.notice = made.is == verdict::reject ? state->rejection_notice : "";
    return made;
}

class decision_properties : public world_test {
  protected:
    decision_properties() : world_test(20240229) {
        options.near_misses = false;
        options.files = false;
        options.times = false;
        options.all = true;
    }
    decision_record explained(const transaction &what) {
        explain_result result = explain(what, options);
        EXPECT_EQ(result.failed, nullptr);
        log.take();
        return std::move(result.record);
    }
};

bool hits(outcome is) {
    return is == outcome::hit || is == outcome::exempt || is == outcome::hit_unreported;
}
bool hits(const std::optional<outcome> &is) {
    return is && hits(*is);
}
bool hits_anywhere(const rule_record &rule) {
    return hits(rule.decision) || hits(rule.report) || hits(rule.would);
}

// --- the report, and the decision ---

TEST_F(decision_properties, the_report_is_the_replayers_and_the_decision_the_servers) {
    std::map<decided_by, unsigned> ways;
    unsigned reported = 0;
    for (unsigned worlds = 0; worlds < 500 / share; ++worlds) {
        next_world();
        for (int i = 0; i < 10; ++i) {
            const transaction what = random_transaction(random);
            const report expected = replayed(what);
            const decision::decision server = served(what);
            const decision_record record = explained(what);
            SCOPED_TRACE(*what.ip + ' ' + *what.sender);
            ASSERT_TRUE(record.report);
            EXPECT_EQ(record.report->failed.empty(), expected.failed.empty());
            EXPECT_EQ(record.report->spam_hits, expected.spam_hits);
            EXPECT_EQ(record.report->bms_hits, expected.bms_hits);
            EXPECT_EQ(record.decision.is, server.is);
            EXPECT_EQ(record.decision.by, server.by);
            EXPECT_EQ(record.decision.hit_name, server.hit_name);
            EXPECT_EQ(record.decision.notice, server.notice);
            ++ways[record.decision.by];
            reported += !expected.spam_hits.empty();
            if (HasFailure()) {
                return;
            }
        }
    }
    EXPECT_EQ(ways.size(), 6u) << "each way to decide";
    EXPECT_GT(reported, 1000u / share);
}

TEST_F(decision_properties, the_rules_say_what_the_lists_say) {
    for (unsigned worlds = 0; worlds < 100 / share; ++worlds) {
        next_world();
        const transaction what = random_transaction(random);
        const decision_record record = explained(what);
        lines shown;
        unsigned decisive = 0;
        for (const rule_record &rule : record.rules) {
            if (rule.report == outcome::hit && rule.rule != "block_lists") {
                shown.push_back(rule.rule);
            }
            decisive += hits(rule.decision);
            EXPECT_FALSE(rule.reason.empty() && rule.decision == outcome::no_hit) << rule.rule;
        }
        if (record.report->failed.empty()) {
            EXPECT_EQ(shown, record.report->spam_hits);
        }
        const bool by_rule = record.decision.by != decided_by::engine_off &&
                             record.decision.by != decided_by::nothing;
        EXPECT_EQ(decisive, by_rule ? 1u : 0u);
        if (by_rule) {
            EXPECT_TRUE(hits(rule_of(record, record.decision.rule).decision));
        }
    }
}

// --- cause ---

// Takes the one entry away that a source names. False for a source of another kind.
class removal {
  public:
    explicit removal(world *from) : world_(from) {}
    const char *kind = "";

    bool operator()(const list_source &of) {
        kind = "list";
        world_->lists.at(name_of(of.file)).at(of.line - 1) = "#";
        return true;
    }
    bool operator()(const range_source &of) {
        kind = "range";
        auto &ranges = world_->ranges.at(name_of(of.file));
        ranges.erase(ranges.begin() + of.record - 1);
        return true;
    }
    bool operator()(const expression_source &of) {
        kind = "expression";
        auto &patterns = world_->patterns.at(name_of(of.file));
        patterns.erase(patterns.begin() + of.expression - 1);
        return true;
    }
    bool operator()(const block_map_source &of) {
        kind = of.level == 1 ? "map, level 1" : of.level == 2 ? "map, level 2" : "map, level 3";
        world_map &map = world_->maps.at(of.map);
        unsigned a = 0;
        unsigned b = 0;
        unsigned c = 0;
        unsigned d = 0;
        sscanf(of.network.c_str(), "%u.%u.%u.%u", &a, &b, &c, &d);
        if (of.level == 1) {
            std::erase(map.networks8, static_cast<uint8_t>(a));
        } else if (of.level == 2) {
            std::erase(map.networks16, static_cast<uint16_t>(a << 8 | b));
        } else {
            std::erase(map.addresses, a << 24 | b << 16 | c << 8 | d);
        }
        return true;
    }
    bool operator()(const sender_network_source &of) {
        kind = "sender network";
        world_->sender_networks.at(of.line - 1) = "#";
        return true;
    }
    bool operator()(const registry_source &of) {
        kind = "registry";
        std::erase(world_->white_list, of.value);
        return true;
    }
    bool operator()(const file_source &of) {
        if (of.file.find("DOMAIN.TAB") == std::string::npos) {
            return false; // control/rules.enabled
        }
        kind = "hosted domain";
        world_->hosted_domains.at(of.line - 1) = "#";
        return true;
    }
    template <class Other>
    bool operator()(const Other &) {
        return false;
    }

  private:
    static std::string name_of(const std::string &path) {
        return path.substr(std::string("c:/quillfence/").size());
    }
    world *world_;
};

TEST_F(decision_properties, without_its_entry_a_hit_has_another_source_or_is_none) {
    std::map<std::string, unsigned> kinds;
    unsigned cases = 0;
    for (unsigned worlds = 0; worlds < 1000 / share && cases < 1400 / share; ++worlds) {
        next_world();
        const world whole = drive_now;
        const transaction what = random_transaction(random);
        const decision_record before = explained(what);
        for (const rule_record &rule : before.rules) {
            world rest = whole;
            removal remove(&rest);
            if (!hits_anywhere(rule) || !std::visit(remove, rule.from)) {
                continue;
            }
            write_world(rest, drive, registry);
            const decision_record after = explained(what);
            const rule_record &now = rule_of(after, rule.rule);
            EXPECT_TRUE(!hits_anywhere(now) || now.from != rule.from)
                << rule.rule << " by " << remove.kind;
            ++kinds[remove.kind];
            ++cases;
        }
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GE(cases, 1000u / share);
    for (const char *kind : {"list", "range", "expression", "map, level 1", "map, level 2",
                             "map, level 3", "sender network", "registry", "hosted domain"}) {
        EXPECT_GE(kinds[kind], 20u / share) << kind;
    }
}

struct list_rule_case {
    const char *rule;
    const char *list;
    std::optional<std::string> transaction::*value;
};
constexpr list_rule_case list_rules[] = {
    {"to_whitelist", "exempt_users", &transaction::recipient},
    {"from_whitelist", "from_whitelist", &transaction::sender},
    {"ip_whitelist", "exempt_ips", &transaction::ip},
    {"ip_blacklist", "blocked_ips", &transaction::ip},
    {"from_blacklist", "from_blacklist", &transaction::sender},
};

bool is_plain(const std::string &value) {
    return !value.empty() && value.find_first_of("*# \t") == std::string::npos;
}

TEST_F(decision_properties, with_the_value_itself_added_a_list_rule_hits_by_that_line) {
    unsigned cases = 0;
    for (unsigned worlds = 0; worlds < 1500 / share && cases < 1200 / share; ++worlds) {
        next_world();
        const world whole = drive_now;
        const transaction what = random_transaction(random);
        const decision_record before = explained(what);
        for (const list_rule_case &of : list_rules) {
            const rule_record &rule = rule_of(before, of.rule);
            const std::string value = *(what.*of.value);
            if (rule.report != outcome::no_hit || !is_plain(value)) {
                continue;
            }
            world more = whole;
            auto &list = more.lists[of.list];
            const size_t place = std::uniform_int_distribution<size_t>(0, list.size())(random);
            list.insert(list.begin() + static_cast<std::ptrdiff_t>(place), value);
            write_world(more, drive, registry);
            const decision_record after = explained(what);
            const rule_record &now = rule_of(after, of.rule);
            EXPECT_TRUE(hits_anywhere(now)) << of.rule << ' ' << value;
            EXPECT_EQ(now.from,
                      source(list_source{std::string("c:/quillfence/") + of.list,
                                         static_cast<uint32_t>(place + 1), value, "whole text"}));
            ++cases;
        }
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GE(cases, 1000u / share);
}

// --- its own answers ---

dns_sources::answer answer_of(const dns_record &from) {
    dns_sources::answer made;
    made.status = made.said = from.status;
    for (const std::string &text : from.records) {
        const std::string type = text.substr(0, text.find(' '));
        made.records.push_back({*dns_sources::type_of_word(type), text});
    }
    return made;
}

// Without what a moment and a server bring along.
decision_record timeless(decision_record record) {
    for (dns_record &answer : record.dns) {
        answer.ms.reset();
    }
    return record;
}

TEST_F(decision_properties, a_record_replayed_from_its_own_answers_is_the_same) {
    unsigned answers = 0;
    for (unsigned worlds = 0; worlds < 300 / share; ++worlds) {
        next_world();
        const transaction what = random_transaction(random);
        const decision_record first = explained(what);
        dns.emplace(); // knows nothing, and is not asked
        dns_sources::recorded_source recorded;
        for (const dns_record &answer : first.dns) {
            recorded.add(answer.name, *dns_sources::type_of_word(answer.type), answer_of(answer));
        }
        dns_sources::engine_door door(recorded);
        options.dns = door.slots();
        const decision_record second = explained(what);
        options.dns = nullptr;
        EXPECT_EQ(timeless(second), timeless(first));
        EXPECT_TRUE(dns_script::asked().empty());
        EXPECT_TRUE(door.missing().empty());
        answers += static_cast<unsigned>(first.dns.size());
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(answers, 500u / share);
}

// --- what is missing ---

// Whether a verdict may stand for one that a fact more would have given.
bool may_stand_for(const decision_record &known, const decision_record &all) {
    return known.decision.is == verdict::undecided || known.decision.is == all.decision.is;
}

TEST_F(decision_properties, a_missing_fact_makes_a_verdict_undecided_but_never_another) {
    unsigned undecided = 0;
    unsigned decided = 0;
    options.report = false;
    options.all = false;
    for (unsigned worlds = 0; worlds < 300 / share; ++worlds) {
        next_world();
        for (int i = 0; i < 4; ++i) {
            const transaction what = random_transaction(random);
            const decision_record all = explained(what);
            transaction less = what;
            const size_t which = std::uniform_int_distribution<size_t>(0, 5)(random);
            switch (which) {
            case 0:
                less.ip.reset();
                break;
            case 1:
                less.helo.reset();
                break;
            case 2:
                less.sender.reset();
                break;
            case 3:
                less.recipient.reset();
                break;
            case 4:
                less.authuser.reset();
                break;
            default:
                less.mua.reset();
            }
            const decision_record known = explained(less);
            EXPECT_TRUE(may_stand_for(known, all))
                << "without fact " << which << ": "
                << (all.decision.rule.empty() ? "none" : all.decision.rule) << ", now "
                << known.decision.rule;
            known.decision.is == verdict::undecided ? ++undecided : ++decided;
        }
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(undecided, 100u / share);
    EXPECT_GT(decided, 100u / share);
}

TEST_F(decision_properties, without_dns_a_verdict_is_undecided_but_never_another) {
    unsigned undecided = 0;
    unsigned decided = 0;
    options.all = false;
    for (unsigned worlds = 0; worlds < 500 / share; ++worlds) {
        next_world();
        const transaction what = random_transaction(random);
        const decision_record all = explained(what);
        dns_sources::off_source off;
        dns_sources::engine_door door(off);
        options.dns = door.slots();
        const decision_record known = explained(what);
        options.dns = nullptr;
        EXPECT_TRUE(may_stand_for(known, all))
            << all.decision.rule << ", now " << known.decision.rule;
        EXPECT_EQ(known.missing.empty(), door.missing().empty());
        known.decision.is == verdict::undecided ? ++undecided : ++decided;
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(undecided, 25u / share);
    EXPECT_GT(decided, 25u / share);
}

} // namespace
} // namespace quillfence::testing
