// Records and sums of a log for a terminal: lines of at most 80 columns, printable ASCII.
#pragma once

#include <string>
#include <string_view>

#include "log_record.h"
#include "log_tally.h"
#include "summary_text.h"
#include "text_page.h"

namespace quillfence::programs {

// When, what, by what, who; then from whom to whom, with the id and the service's answer:
//
//   2026-11-22 04:51:13  reject     from_blacklist                192.0.2.9
//     x@spammer.example -> bob@example.net  (id 3f2a.7, answered DUNNO)
std::string log_row(const decision::log_record &record, const text_options &options);

run_summary summarise_log(const decision::log_tally &tally);

} // namespace quillfence::programs
