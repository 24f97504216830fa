// A decision record in sentences: what the pages for people have in common, whatever they are made
// of. Nothing is judged here: the record is only put into words.
//
// Everything that is returned is printable ASCII; bytes of others stand as \xNN.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "decision_record.h"

namespace quillfence::programs {

// "REJECT by from_blacklist", "ACCEPT: nothing objected".
std::string headline(const decision::decision_record &record);

// What decided, and what the client is told; one sentence an element.
std::vector<std::string> what_decided(const decision::decision_record &record);

// The facts of the transaction: name and text, also of those that are unknown.
using named_text = std::pair<std::string, std::string>;
std::vector<named_text> transaction_facts(const decision::decision_record &record);

// Where the decision was made: version, configuration, revision, id and time.
std::vector<named_text> circumstances(const decision::decision_record &record);

// "c:/quillfence/from_blacklist:2: *@spammer.example (wildcard)"; "" for no source.
std::string source_text(const decision::source &of);

// What a rule did, in a few words: "no: 302 entries looked at".
std::string rule_sentence(const decision::rule_record &rule);
// Whether a rule is worth a reader's first look: it hit, would hit, or could not be judged.
bool is_remarkable(const decision::rule_record &rule);
// Whether the decision did not run it, and nothing else is to be said about it than that.
bool is_aside(const decision::rule_record &rule);
// What it rests on: the value and the entry that matched, the names, the near misses. Of a rule
// that is not remarkable only the near misses.
std::vector<std::string> rule_details(const decision::rule_record &rule);
// The same with everything that the record has about the rule.
std::vector<named_text> rule_in_depth(const decision::decision_record &record,
                                      const decision::rule_record &rule);

std::string block_map_sentence(const decision::block_map_record &map);
std::string block_list_sentence(const decision::dns_block_list_record &list);

// "2 questions to 192.0.2.53:53 over TCP, 4.2 ms"; "" when nothing was asked.
std::string dns_summary(const decision::decision_record &record);
// "PTR 58.2.0.192.in-addr.arpa."
std::string dns_question(const decision::dns_record &dns);
// "dhcp.cust.example.", "silent: no answer came in time".
std::string dns_answer(const decision::dns_record &dns);
// Whether it got as far as a server or a deadline. What was not is only told as missing.
bool was_asked(const decision::dns_record &dns);
// How long it took, and where it differs from the others: "1.1 ms, attempt 2". May be "".
std::string dns_effort(const decision::dns_record &dns);
// The same for all that are the same question with the same answer: "asked 6 times, 0.7 ms".
std::string dns_effort_of_all(const decision::decision_record &record,
                              const decision::dns_record &dns);

// The facts and the DNS answers that were not known.
std::vector<std::string> missing_sentences(const decision::decision_record &record);

// The line that the replayer prints, or why it prints none; "" when no report was asked for.
std::string replayer_line(const decision::decision_record &record);

} // namespace quillfence::programs
