// What a line of a decision log tells, as far as searching and summing need it. The whole of it is
// read by record_reader.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "decision_record.h"

namespace quillfence::decision {

// What the service told the mail server (the member "answered" of "extra").
enum class log_answer : uint8_t {
    none, // nothing: no service made the record
    dunno,
    reject, // a reply code
    warn,
    ok,
    other,
};
std::string_view word_of(log_answer answer); // "dunno"
log_answer answer_of_text(std::string_view answered);

struct log_record {
    std::string id;
    std::string time;          // as it stands there; "" for none
    std::optional<int64_t> at; // the same, in milliseconds since 1970 UTC
    struct transaction transaction;
    struct decision decision;
    std::string answered; // "DUNNO", "550 5.7.1 ..."; "" for none
    // For sums only, and of each no more than they need: zone, answer and dns; n, type, rcode,
    // class and ms.
    std::vector<dns_block_list_record> dns_block_lists;
    std::vector<dns_record> dns;
};

enum class log_depth : uint8_t { for_searching, for_sums };

// Reads a line. Returns "" or what is wrong with it: "transaction.ip: is not a text". Of a line
// that is refused *record may hold parts.
std::string read_log_record(std::string_view line, log_depth depth, log_record *record);

// Whether a line begins and ends as a record on one line does, which costs nothing.
bool looks_like_record(std::string_view line);

} // namespace quillfence::decision
