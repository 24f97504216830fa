// One transaction judged by the engine, and everything that it did told in a record.
//
// The decision is made as a mail server makes it: switched off, exempt, rules, block maps, DNS
// block lists; the first that decides ends it. The report is the replayer's, on a session of its
// own. Both are the engine's own functions; nothing here judges a second time.
//
// The engine must have been started (quillfence_init). Several threads may explain at once.
#pragma once

#include <memory>
#include <string>

#include "call_context.h"
#include "decision_record.h"
#include "server_answers.h"
#include "session_deleter.h"

namespace quillfence::decision {

class pattern_line_files; // pattern_line_files.h

// Which engine this is: "1.0.0", "linux-x86_64".
engine_build this_build();

struct explain_options {
    std::string user_dir{};  // the recipient's own lists; "" for none
    bool report = true;      // the replayer's two lists as well
    bool all = false;        // what rules behind the decision would have done
    bool near_misses = true; // entries that might have been meant
    bool files = true;       // config.files
    bool times = true;       // microseconds of each rule
    // What there is to say of rules that the brief form leaves out (is_told_briefly); without it
    // they have their names and outcomes, and what tells that costs is saved.
    bool quiet_rules = true;
    bool all_names = true;                       // facts.ptr whole; else as many as most_names_told
    dns_source *dns = nullptr;                   // null: the system's DNS
    const frozen_files *configuration = nullptr; // null: the files, read for every question
    // What is known of the configuration's patterns, read with it; null: read when needed.
    const pattern_line_files *pattern_lines = nullptr;
    const file_substitute *substitutes = nullptr; // what if: see call_context.h
    const left_out_entry *left_out = nullptr;     // likewise; borrowed
    const server_answers *server = nullptr;       // another mail server's; null: this system's
    bool capture = false; // for a case: what the server answered, and the digests of large files
    bool keep_session = false; // for the engine's journal
    std::string id{};          // handed through
    std::string time{};
};

struct explain_result {
    // Null when the record is whole; else why there is none, in words: "out of memory".
    const char *failed = nullptr;
    decision_record record;
    // With capture: what was asked of the registry, the address map and the mailboxes' folders.
    // What could not be looked at is not among it.
    server_answers server{};
    // With keep_session: the session as the decision left it; null when there was none.
    std::unique_ptr<smtp_state, session_deleter> judged{};
};

// Throws nothing. ERROR lines of the engine go into the record, and to the process's log function
// where one is set.
explain_result explain(const transaction &what, const explain_options &options) noexcept;

// The same for whoever judges many: what the result holds of an earlier transaction is dropped, and
// its memory is used again.
void explain(const transaction &what, const explain_options &options,
             explain_result *result) noexcept;

} // namespace quillfence::decision
