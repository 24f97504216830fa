// A case: a decision kept in a file, to be made once more anywhere, and to be compared with what it
// ought to be. docs/cases.md describes the document, "quillfence.case/1".
//
// A captured case is a whole decision record with the answers that the machine gave it. A short one
// is written by hand:
//
//     {"schema": "quillfence.case/1", "description": "a friend of the sales department",
//      "transaction": {"ip": "198.51.100.7", "sender": "bob@friend.example"},
//      "zonedata": {"7.100.51.198.in-addr.arpa": [{"PTR": "mail.friend.example"}],
//                   "gone.example": "NXDOMAIN"},
//      "expect": {"verdict": "accept", "rule": ["from_whitelist", "to_whitelist"]}}
//
// Members have the record's names and order; "description" stands behind "schema", "zonedata"
// behind "transaction" and "extra", and "registry", "address_map", "folders" and "expect" at the
// end.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "decision_record.h"
#include "json_reader.h"
#include "json_writer.h"
#include "server_answers.h"

namespace quillfence::decision {

inline constexpr std::string_view case_schema = "quillfence.case/1";

// What ought to come. Of a list of texts any one will do; an empty list expects nothing.
struct expectation {
    std::vector<std::string> verdict; // words of the decision: "reject"
    std::vector<std::string> by;
    std::vector<std::string> rule;
    std::vector<std::string> where;
    std::vector<std::string> zone;
    std::vector<std::string> notice;
    std::vector<std::string> file;  // of the deciding rule's source
    std::vector<std::string> entry; // likewise, in the form of its kind
    // What the decision says of single rules, by the rule's name: outcomes, any of which will do.
    std::vector<std::pair<std::string, std::vector<std::string>>> rules;
    // Exact sets, in any order.
    std::optional<std::vector<std::string>> maps;
    std::optional<std::vector<std::string>> spam_hits;
    std::optional<std::vector<std::string>> bms_hits;

    bool empty() const {
        return *this == expectation();
    }
    bool operator==(const expectation &) const = default;
};

// One line of a name: a record by its type and its data as people write it, "10 mail.example.org";
// or, with type "", a word that stands for an answer: "NXDOMAIN", "TIMEOUT" (dns_sources/words.h).
// Types and words are in capitals, however they were written.
// The texts of types that the engine never asks for, TXT and SPF, are kept and answer nothing.
struct zone_entry {
    std::string type;
    std::string data;
    bool operator==(const zone_entry &) const = default;
};

struct zone_name {
    std::string name; // as it was written, mostly without final dot
    std::vector<zone_entry> entries;
    bool operator==(const zone_name &) const = default;
};

struct test_case {
    std::string description{}; // "" for none
    // Of a short case only id, time, config (which may be no more than the user_dir), transaction,
    // extra and dns are meant; the rest is empty.
    decision_record record{};
    bool captured = false; // the record is whole: it has its decision
    // The DNS by hand; then record.dns is empty.
    std::optional<std::vector<zone_name>> zonedata{};
    server_answers server{};
    expectation expect{};
    bool operator==(const test_case &) const = default;
};

// Nothing when the text is no such case; *problem then says where and why: "expect.rules.from_blak:
// is no rule". What the reader of a record refuses is refused (record_reader.h), and also
// - a version that is not known, members that exclude each other (zonedata and dns, missing and
//   what is then not there), a case that has a decision and is not whole;
// - in zonedata bad names, unknown types and words, data that is none of its type, a name that
//   stands twice (letter case and the final dot do not count);
// - in expect every member, word or rule that is not known, and a list without a text: an
//   expectation that checks nothing is worse than none.
// Elsewhere unknown members are passed over, as a later program may add some; those of the
// transaction that are not ours are no facts.
//
// A decision record, as a log or a batch run has it, is a short case as well: its transaction, its
// DNS answers and its user_dir. What was decided is not expected.
std::optional<test_case> read_case(std::string_view text, json_problem *problem,
                                   const json_limits &limits = {});

// Appends the case; no line end behind it. What is read again is the same case.
void write_case(std::string &out, const test_case &which,
                json_layout layout = json_layout::indented);

} // namespace quillfence::decision
