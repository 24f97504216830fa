// Heap strings: building, converting, trimming and rewriting NUL-terminated byte strings.
//
// A "slot" is the address of a string pointer. The operation may replace the string in it, and
// whatever the slot holds afterwards is the caller's to free. White space and letters are ASCII;
// bytes from 0x80 up are neither.
//
// Unless a comment says otherwise, an operation returns 1, or 0 with one ERROR line: EINVAL for a
// null argument (for a slot that must hold a string also when it holds null), ENOMEM. After a
// failure the slot still holds its string.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "platform/format.h"

namespace quillfence {

// Appends source to the slot's string; a slot that holds null gets a new string. The source may be
// (part of) the slot's own string.
// DEBUG: "destination is NULL - new string" and "allocated", or "destination set - reallocating
// length" and "destination length reallocated"; then "string appended [%s]".
int vc_strcat(char **slot, const char *source);

// Appends one character; a slot that holds null gets a new string. The character 0 is refused like
// a null argument. DEBUG: "original string [%s] character to append [%c]", "character appended
// [%s] [%c]".
int vc_ccat(char **slot, char character);

// Puts the decimal text of value into the slot and frees what it held.
// DEBUG: "converting [%ld]", "added room for '-' sign" (negative values), "determined buffer size
// of %d", "buffer allocated", "converted to %s", and "destination buffer already set - calling
// free to replace" when the slot held a string.
// Kept on purpose: -2147483648 gives "-2", the length that its sign and one digit get.
int vc_ltoa(char **slot, int32_t value);

// Appends the decimal text of value: vc_ltoa, then vc_strcat, with their lines.
int vc_icat(char **slot, int32_t value);

// Convert A-Z to a-z, or the other way round, in place. ERROR line: EINVAL for null.
// DEBUG: "converting from [%s]", "converted to [%s]".
void vc_lower(char *text);
void vc_upper(char *text);

// Trim white space in place: trailing white space is overwritten with NULs, leading white space is
// closed up.
int vc_trim_right(char *text);
int vc_trim_left(char *text);

// Trims the ends that flags names, the right one first. Flags with neither bit are refused
// (EINVAL).
inline constexpr int vc_trim_flag_left = 1;
inline constexpr int vc_trim_flag_right = 2;
int vc_trim_ex(char *text, int flags);

// Replaces the slot's string by a trimmed copy; an empty string is left as it is.
// Without memory for the copy the slot keeps its string, which is already cut at its new end.
// ERROR lines: also three for pointers that went astray, "ended up with ... while walking ...".
// DEBUG: "parameter [%s]"; "trimmed is [%s]" when anything is left.
int vc_trim(char **slot);

// Cuts the string at the first CR or LF anywhere in it and shrinks the allocation to fit.
// DEBUG: "parameter [%s]", "converted to [%s]".
int vc_chomp(char **slot);

// Trims, then turns every run of two or more white-space characters into one space. A single one
// stays what it is: a lone tab stays a tab. The lines of vc_trim come first.
// DEBUG: "simplified is [%s]", or "empty string: nothing to simplify" when nothing is left.
int vc_simplify_whitespace(char **slot);

// Removes all white space; the string is replaced only when it has any. DEBUG: "stripped is [%s]",
// or "no length to string... no point in going on" for an empty string.
int vc_strip_whitespace(char **slot);

// Replaces every occurrence of pattern, with regard to case.
//   pattern      not empty (EINVAL)
//   replacement  may be empty. One that is no longer than the pattern is done in place by
//                vc_str_replace_smaller_ex, with that operation's lines and its way of searching
//                again; a longer one goes left to right over the original text, without overlaps
// The two must not lie inside the slot's string.
// DEBUG: "Detected %zu patterns to replace" for a longer replacement, "search and replace patterns
// are the same: nothing to do [%s]" (the string) for an equal one, else "calling
// vc_str_replace_smaller for improved performance".
int vc_str_replace(char **slot, const char *pattern, const char *replacement);
// The same with a result of at most limit characters (below SIZE_MAX), cut there: no more memory
// than that is asked for, whatever the text and the replacement. The lines are vc_str_replace's, in
// its name.
int vc_str_replace_within(char **slot, const char *pattern, const char *replacement, size_t limit);

// Replaces every occurrence of pattern in place by a replacement that is no longer.
//   case_sensitive  0 searches without regard to ASCII case
// Kept on purpose: after a replacement the search goes on at the replacement's first character, so
// what it forms with the text behind it is replaced too: "aa" by "a" turns "aaaa" into "a".
// pattern and replacement must not lie inside the text.
// ERROR lines: EINVAL, also for an empty pattern; "Pattern [%s] is shorter than it's replacement
// [%s]. Use vc_str_replace() instead!"; "Replacement [%s] matches pattern [%s]: replacing it would
// never end" when the text holds a pattern that equals its replacement in the chosen case sense
// (the text stays as it was); "critical error detected indicative of memory issues" for a match
// behind the text's end.
// DEBUG: "replacing [%s] with [%s] in [%s]"; at the end of every successful run, also after
// replacements, "pattern %s not found - nothing to replace".
int vc_str_replace_smaller_ex(char *text, const char *pattern, const char *replacement,
                              int case_sensitive);

// Format into a new heap string of exactly the right size and put it into the slot. What the slot
// held before is not freed, so it may be an argument. Return the length, or -1 with the slot
// untouched.
//   arguments  are used up
// ERROR lines: EINVAL, ENOMEM, "Failed to determine the necessary buffer size", "Failed to
// completely write formatted string to buffer".
int vc_asprintf(char **slot, const char *format, ...) QF_PRINTF_LIKE(2, 3);
int vc_vasprintf(char **slot, const char *format, va_list arguments) QF_PRINTF_LIKE(2, 0);

// A new heap string, which the caller frees, of three texts one behind the other; null without
// memory. For paths, which every look at a file makes: several times as fast as vc_asprintf.
// ERROR line: ENOMEM.
char *vc_concatenate(const char *first, const char *second, const char *third);

// A new heap string, which the caller frees, of the text before the first stop character; of the
// whole text when there is none.
//   end   receives the place of that stop character, or of the final NUL; may be null
//   stop  not 0 (EINVAL)
// Returns null on failure and leaves *end alone.
char *vc_strdup_till(const char *text, const char **end, char stop);

} // namespace quillfence
