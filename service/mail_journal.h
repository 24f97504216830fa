// The engine's own mail log and counters (quillfence-log.h), kept by the service as by a mail
// server that the engine is built into: one line and one count for each verdict.
//
//   reject      SPAM, with the name of what hit
//   exempt      EXEMPT, likewise
//   accept      HAM; of a bounce NDR. What could not be decided passes and is counted so
#pragma once

#include <mutex>
#include <string>

#include "decision_record.h"
#include "smtp_state.h"

namespace quillfence::service {

class mail_journal {
  public:
    // user_dir has a log and counters of its own; "" for none.
    explicit mail_journal(std::string user_dir) : user_dir_(std::move(user_dir)) {}

    // Of a session as the decision left it (explain_options.keep_session). One thread at a time
    // counts, since a counter is read and written back; others wait. Returns the first ERROR line
    // of log_message, "" when all went well. Throws std::bad_alloc.
    std::string note(smtp_state *state, const decision::decision &made);

  private:
    const std::string user_dir_;
    std::mutex lock_;
};

} // namespace quillfence::service
