// What each rule of the engine's table judges: the facts and the DNS questions that it needs, and
// what its two answers mean in words.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "decision_record.h"
#include "hook_table.h"
#include "vcspamrule.h"

namespace quillfence::decision {

// Facts of a transaction, as bits of a set.
using fact_set = uint8_t;
inline constexpr fact_set fact_ip = 1;
inline constexpr fact_set fact_helo = 2;
inline constexpr fact_set fact_sender = 4;
inline constexpr fact_set fact_recipient = 8;
inline constexpr fact_set fact_authuser = 16;
inline constexpr fact_set fact_mua = 32;

// What a rule's answer is about.
enum class judged : uint8_t { nothing, ip, helo, sender, recipient, country, ptr };

struct rule_facts {
    const char *rule;
    fact_set needs; // to run at all, its table switches left out
    judged about;
    session_hook hook_table::*hook; // without it the rule never hits, whatever is known; null: none
    const char *questions;          // types of the DNS questions that it rests on; "" for none
    const char *hit;                // what its hit means; where the engine has no better words
    const char *no_hit;
};

// A row of the engine's table, and what is known of it here. Rules are numbered as in that table,
// from 0.
struct known_rule {
    const rule_row *row;
    const rule_facts *facts; // null for a rule that nothing is known of
    bool whitelist;          // it exempts
    bool step;               // no check function, but a step of its own behind the rules
};

// All of the table's rules, in its order.
std::span<const known_rule> known_rules();

// The number of the rule of that name; how many rules there are for a name that the table has not.
// The search begins at `likely`: most is asked in the table's order.
size_t rule_number(const char *name, size_t likely = 0);

// Everything that the rule's answer depends on: its own needs, and what decides whether it is
// skipped for this kind of session.
fact_set needed_facts(const known_rule &rule);

// The facts that a transaction has not, and their names as the transaction has them.
fact_set missing_facts(const transaction &of);
std::vector<std::string> fact_names(fact_set facts);

} // namespace quillfence::decision
