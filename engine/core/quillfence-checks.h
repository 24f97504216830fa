// The check runner: walks the rule table over one session.
//
// The report flavour (run_all_*) runs every rule that may run for this kind of session and
// collects all hits; the enabled-rules files play no part. The decision flavour runs only the
// enabled rules, stops at the first hit and leaves it in the session: hit_name and
// rejection_notice are set, owned by the session, and notice_flag is cleared. An earlier hit's
// texts are freed then, and not before.
//
// A rule is skipped for a session kind (NDR, MUA, localhost, IPv6) when its switch for that kind
// is 0. The four drivers test the kinds in different orders, on purpose: only the DEBUG line
// differs.
//
// A walk of the rule table has run_steps matcher steps for its lookups in pattern files, unless the
// thread has begun a budget of its own (step_budget.h).
//
// The checks return 1 for success, with a hit or without, and 0 for failure. ERROR lines, unless
// said otherwise: EINVAL for missing arguments, ENOMEM, and those of the file, list and block-map
// layers.
#pragma once

#include <cstdint>

#include "smtp_state.h"
#include "vc_list.h"

namespace quillfence {

// Report flavour. *hits receives a list of heap strings (null for no hits) that the caller
// releases with free; on failure it is left alone.

// Whether the report may name a rule: its row in the table says so. Names match exactly; a
// rule that is not in the table is not named.
bool is_reportable_rule(const char *name);

// The names of the reportable rules that hit, in table order. "block_all_mail" is not run.
// ERROR line: "Failed to append [%s] to list of spam hits".
int run_all_spam_checks(smtp_state *state, vc_list_entry *rules, vc_list_entry **hits);

// The names of the block maps that list the session's ip. Sessions for which the rule
// "block_lists" may not run have no hits and read nothing. The maps to ask are listed in
// "bms/lists_to_update", or else in "bms/control/lists_to_update"; neither there is a failure.
// ERROR lines: "Missing block lists rule", "Failed to load list of BMS".
int run_all_bms_checks(smtp_state *state, vc_list_entry *rules, vc_list_entry **hits);

// Decision flavour.

// Walks the table with the rules whose names are in enabled (whole text). 1 when the walk
// finished, with a hit or without; also without a list or a table.
int run_spam_checks_r(smtp_state *state, vc_list_entry *enabled, vc_list_entry *rules);

// Asks the block maps in lists; the hit is "block_list (" + the names joined by "," + ")".
int run_bms_checks_r(smtp_state *state, vc_list_entry *lists, vc_list_entry *rules);

// Asks the DNS block lists in lists, in order, until one lists the session's ip; the hit is
// "block_rbl_lists (" + its name + ")".
int run_rbl_checks_r(smtp_state *state, vc_list_entry *lists, vc_list_entry *rules);

// The drivers: each reads its list and runs the checks above.

// Enabled rules from "rules.enabled" in the control folder, or a built-in default when that file
// is missing; "ip_blacklist" and "from_blacklist" are always added. A base_dir other than
// "c:/quillfence/" is replaced by it; an absent one stays absent.
int global_spam_hit_r(smtp_state *state, vc_list_entry *rules);

// Block maps from "bms.enabled" in the control folder. base_dir becomes "c:/quillfence/". 1
// without a rule table, 0 when the table has no "block_lists".
int global_bms_r(smtp_state *state, vc_list_entry *rules);

// DNS block lists from "rbl.enabled" in the base directory. 1 without a rule table, 0 when the
// table has no "block_rbl_lists".
int global_rbl_r(smtp_state *state, vc_list_entry *rules);

// Exemptions.

// is_exempt_r with the engine's own rule table.
int is_exempt(smtp_state *state, const char *user_dir);

// 1 when a whitelist rule (ip, from, to) exempts the session, by the files of "c:/quillfence/" or
// by those of user_dir (null or empty for none); 0 when none does and on failure. hit_name names
// the rule. base_dir stays at the directory that was asked last.
// Kept on purpose: missing arguments give a DEBUG line only; a hit that the session brought along
// counts; the notice is dropped after a hit in the first directory and stays after one in the
// user's.
int is_exempt_r(smtp_state *state, const char *user_dir, vc_list_entry *rules);

} // namespace quillfence
