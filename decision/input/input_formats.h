// One reader a format. A problem's line counts from 1, from the unit's beginning.
#pragma once

#include "input.h"

namespace quillfence::decision {

input_result read_json_input(std::string_view unit);
input_result read_policy_input(std::string_view unit);
input_result read_tsv_input(std::string_view unit);
input_result read_qflog_input(std::string_view unit);
input_result read_postfix_input(std::string_view unit);
input_result read_exim_input(std::string_view unit);

// Whether a line looks like one of these logs.
bool is_postfix_line(std::string_view text);
bool is_exim_line(std::string_view text);

// --- what they share ---

input_result refused(std::string text, uint32_t line = 1);
// Of a line of a log.
input_result several_ways();

// A member of the input that is not ours, as JSON text.
void add_extra(std::vector<extra_member> *extra, std::string_view name, std::string_view value);

// An IPv4 or IPv6 address that the engine takes for one.
bool is_address(std::string_view text);
bool is_number(std::string_view text); // decimal digits only, at least one
// "2026-11-22 04:51:13", by its form alone.
bool is_log_moment(std::string_view text);
inline constexpr size_t log_moment_size = 19;

} // namespace quillfence::decision
