// What a comparison of two configurations has come to, put into words and tables (summary_text.h).
#pragma once

#include <string>
#include <vector>

#include "batch.h"
#include "change_tally.h"
#include "diff_entries.h"
#include "summary_text.h"

namespace quillfence::programs {

struct compared_names {
    std::string before; // "old", or "the configuration"
    std::string after;
    std::vector<std::string> changes; // of a what-if, as sentences
};

run_summary summarise_diff(const compared_names &names, const decision::change_tally &tally,
                           const decision::batch_result &result, const unhit_entries &unhit);

// As a page for a browser, see html_page.h.
std::string diff_html(const run_summary &summary);

} // namespace quillfence::programs
