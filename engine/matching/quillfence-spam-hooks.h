// The eight hooks that look a session up in the list files of its base directory and in the
// compiled pattern files. ERROR lines name the hook and "quillfence-spam-hooks".
#pragma once

#include <cstdint>

#include "configuration.h"
#include "smtp_state.h"

namespace quillfence {

// The five list hooks: 1 when the session's value is in the list of the hook (configuration.h tells
// how its lines are compared, and which range file is asked then), else 0. ERROR lines: EINVAL for
// a null session or an empty value.
uint8_t fromwhitelist_hook(smtp_state *state); // sender, "from_whitelist"
uint8_t towhitelist_hook(smtp_state *state);   // recipient, "exempt_users"
uint8_t fromblacklist_hook(smtp_state *state); // sender, "from_blacklist"
uint8_t ipwhitelist_hook(smtp_state *state);   // client, "exempt_ips"
uint8_t ipblacklist_hook(smtp_state *state);   // client, "blocked_ips"

// The three pattern-file hooks: 1 when every PTR name of the session matches the hook's file and
// none of them the exempt file. A session without a list of names, or a missing file, gives 0; a
// list without names gives 1.
// Kept on purpose: the first name that breaks the rule becomes the session's rdns (borrowed from
// ptr_results); on a 1 the session stays as it was.
// A session with more than 100 names gives 0 with the DEBUG line too_many_ptr_names_line; no name
// is matched then. When the run's steps were spent by a lookup, of whichever name in whichever
// file, the hook gives 0 with the ERROR line ptr_steps_spent_line and leaves rdns alone.
uint8_t dyna_regex_hook(smtp_state *state);
uint8_t spam_regex_hook(smtp_state *state);
uint8_t confirmed_regex_hook(smtp_state *state);

inline constexpr int most_ptr_names = 100;
inline constexpr char too_many_ptr_names_line[] = "more than 100 PTR names, none is matched";
inline constexpr char ptr_steps_spent_line[] =
    "the patterns took too many steps with the PTR names, rule skipped";

// Whether a session has more than most_ptr_names.
bool has_too_many_ptr_names(const smtp_state *state);

// Whether the exempt file holds a pattern for this PTR name; a missing file exempts nothing.
bool is_exempt_ptr_name(const char *name);

// Compiled pattern files, at fixed places.
inline constexpr const char *dyna_regex_file = configured("dynaregex/dyna.cregexes").path;
inline constexpr const char *spam_regex_file = configured("dynaregex/spam.cregexes").path;
inline constexpr const char *confirmed_regex_file = configured("dynaregex/confirmed.cregexes").path;
inline constexpr const char *exempt_regex_file = configured("dynaregex/exempt.cregexes").path;

} // namespace quillfence
