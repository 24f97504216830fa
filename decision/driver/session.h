// A session of the engine made of a transaction, as the replayer makes it.
#pragma once

#include <memory>
#include <string>

#include "decision_record.h"
#include "rule_facts.h"
#include "session_deleter.h"

namespace quillfence::decision {

using session = std::unique_ptr<smtp_state, session_deleter>;

// The session, not completed yet. A fact that is missing is absent in it, or "unknown". Null when
// the engine refuses the transaction (an empty ip, say) or has no memory. ERROR lines: those of
// qfd-packet.
session session_of(const transaction &from);

// A client's address as that session has it, which is what its names and maps are looked up by: of
// an IPv4 address in IPv6's form ("::ffff:192.0.2.9") the IPv4 one, of other IPv6 addresses the
// short form. "" when the engine refuses it.
std::string session_address(const std::string &ip);

// Completes it (process_state.h): kinds, PTR names, base directory. What rests on a missing fact
// stays as it is: without an ip nothing is looked up, without a sender it is no bounce. False when
// the run can't go on.
bool complete_session(smtp_state *state, fact_set missing);

} // namespace quillfence::decision
