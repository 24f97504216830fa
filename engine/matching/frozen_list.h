// A list file that was read beforehand, with an index of its entries, so that a look costs a few
// probes instead of a walk over all lines:
//
//     whole      entries without a star           by the whole text
//     tail       plain wildcards, "*@x.example"   by what stands behind the last star
//     head       those that end in a star         by what stands before the first
//     the rest   all others                       looked at one by one
//
// The rest is what begins and ends with a star, and what has operators: the matcher itself is asked
// about each, so that it writes the lines that it would have written. The entry that is found is
// the first that matches in the file's order, whatever its kind.
#pragma once

#include <cstddef>
#include <cstdint>

#include "list_line.h"
#include "quillfence-file.h"

namespace quillfence {

struct frozen_list;

// The index of a list's bytes, which are borrowed as long as it lives and less than 4 GiB.
//   matcher  __wildcardmatch or _stricmp: the list is asked with this one alone
// Null without memory, or for another matcher. Released by frozen_list_free.
frozen_list *frozen_list_make(const char *bytes, uint64_t size, list_matcher matcher);
void frozen_list_free(frozen_list *list); // null is accepted

// The matcher that it was made for, and how much memory it takes.
list_matcher frozen_list_matcher(const frozen_list *list);
size_t frozen_list_size(const frozen_list *list);

// An entry that was found.
struct frozen_line {
    uint32_t entries;                 // looked at up to it, itself included; all when none was
    uint32_t line;                    // its number; 0 for none
    const char *pattern;              // in text, without leading white space; null for none
    char text[longest_list_line + 1]; // the whole line
};

// Looks for the first entry that matches the value, which is not empty. ERROR lines: those of the
// matcher, as a walk over the lines would have written them.
bool frozen_list_find(const frozen_list *list, const char *value, frozen_line *found);

} // namespace quillfence
