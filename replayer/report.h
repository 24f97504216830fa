// The report of a run: which rules and block maps the session hits.
#pragma once

#include "smtp_state.h"
#include "vc_json.h"
#include "vc_list.h"

namespace quillfence {

// Runs all rules and the block maps over a completed session and makes the document
// {"spam_hits":[...],"bms_hits":[...]}; both members are always there, in this order. The caller
// frees it with vc_json_free; null on failure.
// ERROR lines: those of the checks and of vc_json.
vc_json *build_report(smtp_state *state, vc_list_entry *rules);

// Adds an array member that holds the texts of a list as strings. On failure the member is not
// there. 1 or 0. ERROR lines: EINVAL for a null root or a null or empty name, those of vc_json.
int add_hits(vc_json *root, const char *name, const vc_list_entry *hits);

} // namespace quillfence
