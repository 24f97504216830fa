// A case judged once more: the same transaction, the answers that the case has, the files that are
// there now.
//
// The network is off unless it is asked for: a DNS answer that the case has not is missing, and the
// record names it. The mail server's registry, address map and folders are those of the case when
// it was captured or has any; this system's are not looked at then.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "call_context.h"
#include "case_file.h"
#include "source.h"

namespace quillfence::decision {

enum class case_dns : uint8_t {
    recorded,       // what the case does not know is missing
    record_missing, // what the case does not know is asked
    live,           // everything is asked anew
};

struct replay_options {
    case_dns dns = case_dns::recorded;
    // Who is asked; borrowed, never called for case_dns::recorded. Null: nobody, all is missing.
    dns_sources::source *live = nullptr;
    // Puts something in front of the answers, which it is handed to borrow; may be empty.
    std::function<dns_sources::source &(dns_sources::source &)> in_front = nullptr;
    bool all = false;        // also for a case that was captured without
    bool report = true;      // for a short case; a captured one has the report that it had
    bool near_misses = true; // see explain.h, for these too
    bool times = true;
    const file_substitute *substitutes = nullptr;
};

// A consulted file is not what it was when the case was captured.
struct file_difference {
    std::string path;
    std::string what; // "differs", "is missing", "is there now", "can't be read"
    bool operator==(const file_difference &) const = default;
};

struct replay_result {
    // Null when the record is whole; else why there is none, in words.
    const char *failed = nullptr;
    std::string detail{}; // of what can't be used: "dns[3].type: ..."; mostly ""
    // Has the case's id, time and extra members. Its notes name the differences, and what of the
    // mail server a captured case does not hold.
    decision_record record{};
    server_answers server{}; // what was asked of it this time
    std::vector<file_difference> differences{};
};

// The engine must have been started. Throws nothing.
//
// Refused is a case whose paths lead to another machine (two separators in front): of the
// recipient's folder, and of a folder that its registry names.
replay_result replay(const test_case &which, const replay_options &options) noexcept;

// The case of what explain() said with explain_options.capture: a whole one, which expects what was
// decided.
test_case captured_case(decision_record record, server_answers server);

} // namespace quillfence::decision
