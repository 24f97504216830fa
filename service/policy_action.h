// What a mail server is told to do with a transaction, in the words of Postfix's access tables:
//
//   DUNNO                 nothing against it here: its other restrictions decide
//   550 5.7.1 <notice>    refused, with this reply to the client
//   WARN <text>           passed, and noted in the mail server's own log
//   OK                    passed, whatever its other restrictions say
//
// By default every answer is DUNNO: the service observes. What is accepted, and what could not be
// decided, is DUNNO always, but for exempted transactions where that was asked for.
//
// The engine stops at the first rule that hits. A rule that is not enforced can so stand in front
// of one that is: such a transaction passes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "decision_record.h"
#include "service_metrics.h"

namespace quillfence::service {

// Rules by the names of the rule table; the block maps are "block_lists", the DNS block lists
// "block_rbl_lists".
struct enforcement {
    bool all = false;                  // but those in `warn`
    std::vector<std::string> reject{}; // these rules refuse
    std::vector<std::string> warn{};   // these rules warn
    bool exempt_passes = false;        // OK for what a whitelist exempts
};

// The names of a list with commas. Nothing when all of them are rules that can refuse somebody;
// else what is wrong, with the names that might have been meant.
std::optional<std::string> read_rule_names(std::string_view text, std::vector<std::string> *names);
// What is wrong with the whole: a rule that shall both refuse and warn.
std::optional<std::string> contradiction(const enforcement &how);

struct policy_action {
    policy_answer is = policy_answer::dunno;
    std::string text = "DUNNO"; // one line of printable ASCII, without its end
};

policy_action action_of(const decision::decision &made, const enforcement &how);

// An SMTP reply line has 512 octets at most, its end included (RFC 5321, 4.5.3.1.5).
inline constexpr size_t longest_action = 510;

} // namespace quillfence::service
