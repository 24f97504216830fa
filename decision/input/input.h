// Transactions as others write them down: one function understands what is pasted into `explain`
// and streamed into `batch`.
//
//   json      a decision record, or its "transaction" object alone; one on a line, or indented with
//             its brackets on lines of their own
//   policy    a request of Postfix's policy delegation: lines "name=value" up to an empty one
//   tsv       the replayer's values with tabs between them: R, ip, port, tls, user, mua, helo,
//             sender, recipient (or M, A, C with as many as the replayer takes for them)
//   qflog     a line of the engine's own mail log
//   postfix   a line of Postfix's log: a command that was rejected, a message's client, its sender,
//             a recipient. One line tells a part; its id is the queue's
//   exim      a line of Exim's log: a message's arrival, a recipient that was rejected
//
// What is not told is absent: nothing is guessed. What a log tells of a client is the client's own
// text, which may look like the log's next member; a line that can be read in two ways is refused.
// Text is borrowed during the call only. Safe from several threads.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "decision_record.h"
#include "json_reader.h"

namespace quillfence::decision {

enum class input_format : uint8_t { json, policy, tsv, qflog, postfix, exim };

// By its name as above; nothing for another name.
std::optional<input_format> input_format_of_name(std::string_view name);
// By the look of the first line that is not empty; nothing when it looks like none of them.
std::optional<input_format> input_format_of_content(std::string_view text);
std::string_view input_format_name(input_format format);

// What is longer is refused: a JSON document, a line of a log or of values, a line, a request and
// its number of lines in the policy protocol.
inline constexpr size_t longest_json = size_t{16} << 20;
inline constexpr size_t longest_line = size_t{16} << 10;
inline constexpr size_t longest_policy_line = size_t{4} << 10;
inline constexpr size_t longest_policy_request = size_t{64} << 10;
inline constexpr size_t most_policy_lines = 200;

struct input_transaction {
    struct transaction transaction;
    std::string id;   // "" when the input has none
    std::string time; // RFC 3339 in UTC; likewise
    std::vector<extra_member> extra;
    std::vector<dns_record> dns; // the answers that a decision record brings with it
    bool operator==(const input_transaction &) const = default;
};

struct input_result {
    std::optional<input_transaction> read; // nothing for an empty text, or when there is a problem
    json_problem problem;                  // its line is counted from the beginning of the unit
};

// Takes the next unit off the text: a line, or the lines of an indented document or of a request.
// Empty lines in front of it are dropped. *line (may be null) receives how many lines were taken
// before the unit began. "" when nothing is left.
std::string_view take_input(input_format format, std::string_view *text, uint32_t *line);

input_result read_input(input_format format, std::string_view unit);

} // namespace quillfence::decision
