// A case that can be handed on: people's names are replaced by pseudonyms, and the decision is what
// it was.
//
// What is replaced. The local parts of all mail addresses, wherever they stand in the case, and as
// bare words of at least three bytes: in the transaction, its other members, the DNS, the answers
// of the mail server, the sources and values of rules, near misses, notices, notes, errors, paths,
// the description and the expectation. On request domains, too, but for the last label, for zones
// of DNS block lists, and for the names of addresses. personal_names.h tells how names are found,
// and pseudonym.h what becomes of them.
//
// What stays. IP addresses, times, sizes and digests (a digest tells nothing of a file, unless
// somebody guesses all of it); local parts of one or two bytes where no "@" is behind them; what is
// not written like the name, an abbreviation of it, say, or a host named "bobs-laptop".
//
// Why it can be trusted. The redacted case and the original are both decided again, with the same
// answers and the same files, and the redacted one is refused when anything comes out otherwise;
// and the document, as it would be written, is searched for each name of the original.
//
// The cost is in proportion to the document, and two decisions.
#pragma once

#include <cstddef>
#include <string>

#include "case_file.h"
#include "replay.h"

namespace quillfence::decision {

struct redaction {
    std::string key;      // read_key_file() of keyed_digest.h reads one
    bool domains = false; // these, too
};

struct redact_result {
    // Why there is no redacted case, and what to do; "" when there is one. It may name what is to
    // be hidden, and is for whoever has the original case.
    //   "the outcome of from_blacklist changes: hit -> no_hit; ..."
    //   "transaction.helo still holds a name of the original case; ..."
    //   "the case can't be decided: out of memory"
    std::string refused{};
    test_case made{};
    size_t pseudonyms = 0; // how many different words were replaced
};

// The engine must have been started, and its files be those that the case is decided with.
//
// The same case gives the same redacted case under one key. Redacting that once more gives every
// pseudonym a pseudonym of its own.
redact_result redact(const test_case &which, const redaction &how, const replay_options &options);

// What is different between two decisions of a case, the first thing of it, in words: "the verdict
// changes: reject -> accept"; "" when nothing is. Compared are verdict, by, rule, where, zone and
// maps, the outcomes of all rules, block maps and DNS block lists, and the report.
std::string first_change(const decision_record &before, const decision_record &after);

} // namespace quillfence::decision
