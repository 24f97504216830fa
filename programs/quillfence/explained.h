// What "quillfence explain" finds out: the record of one transaction, or of a case.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "answers.h"
#include "configured_engine.h"
#include "explain_facts.h"
#include "replay.h"

namespace quillfence::programs {

struct explain_arguments : configuration_arguments {
    named_facts facts;
    std::vector<std::string> values; // the replayer's
    std::string input;               // a file with transactions; "-" for standard input
    std::string from;                // its format; "" for what it looks like
    uint64_t number = 0;             // which of them
    std::string case_file;           // a case or bundle in place of all of these
    answer_options answers;
    bool all = false;
    std::string rule;
    bool json = false;
    std::string html;
    bool verdict_exit = false;
    std::string capture;      // a file to write the case to; "" for none
    bool with_config = false; // a bundle
    bool cut_maps = false;
    std::string redact; // a file with a key; "" for none
    bool redact_domains = false;
};

struct explained {
    decision::decision_record record;
    // Of a case: what is not as it was captured, and what was asked now and has no answer in it.
    std::vector<decision::file_difference> differences{};
    std::vector<decision::missing_item> unanswered{};
};

// Explains, and captures on the way where that was asked for: then the file is written and told on
// standard error. Throws a failure that says what is wrong with the arguments, or what failed.
explained explain_what_was_asked(const explain_arguments &arguments);

} // namespace quillfence::programs
