// What the tests of explain() have in common: a started engine and a drive c: with a file of every
// kind.
#pragma once

#include "../reliability/engine_test.h"
#include "explain.h"
#include "test_registry.h"

namespace quillfence::testing {

using namespace decision;

inline transaction transaction_of(const client &who) {
    transaction made;
    made.ip = who.ip;
    made.port = "25";
    made.tls = false;
    made.authuser = "";
    made.mua = false;
    made.helo = who.helo;
    made.sender = who.sender;
    made.recipient = who.recipient;
    return made;
}

class explain_test : public engine_test {
  protected:
    decision_record explained(const transaction &what) {
        explain_result result = explain(what, options);
        EXPECT_EQ(result.failed, nullptr);
        return std::move(result.record);
    }
    decision_record explained(const char *name) {
        for (const client &who : clients) {
            if (std::string(who.name) == name) {
                return explained(transaction_of(who));
            }
        }
        ADD_FAILURE() << "no client " << name;
        return {};
    }

    test_registry registry;
    explain_options options{.times = false};
};

inline const rule_record &rule_of(const decision_record &record, const std::string &name) {
    for (const rule_record &rule : record.rules) {
        if (rule.rule == name) {
            return rule;
        }
    }
    ADD_FAILURE() << "no rule " << name;
    static const rule_record none;
    return none;
}

} // namespace quillfence::testing
