// The eight hooks over list files and compiled pattern files.
#pragma once

#include <cstdint>

#include "smtp_state.h"

namespace quillfence {

uint8_t fromwhitelist_hook(smtp_state *state);
uint8_t towhitelist_hook(smtp_state *state);
uint8_t fromblacklist_hook(smtp_state *state);
uint8_t ipwhitelist_hook(smtp_state *state);
uint8_t ipblacklist_hook(smtp_state *state);
uint8_t dyna_regex_hook(smtp_state *state);
uint8_t spam_regex_hook(smtp_state *state);
uint8_t confirmed_regex_hook(smtp_state *state);

// Compiled pattern files, at fixed places.
inline constexpr char dyna_regex_file[] = "c:/quillfence/dynaregex/dyna.cregexes";
inline constexpr char spam_regex_file[] = "c:/quillfence/dynaregex/spam.cregexes";
inline constexpr char confirmed_regex_file[] = "c:/quillfence/dynaregex/confirmed.cregexes";
inline constexpr char exempt_regex_file[] = "c:/quillfence/dynaregex/exempt.cregexes";

} // namespace quillfence
