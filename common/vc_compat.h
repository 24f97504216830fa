// Environment variables as heap strings.
#pragma once

namespace quillfence {

// Looks a variable of the environment up.
//   value  holds null or a heap string; receives a new heap string, which the caller frees
// Returns 1 and replaces *value (the old string is freed); 0, leaving *value alone, when the
// variable is not set or set to nothing, or on failure.
// ERROR lines: EINVAL for a null argument or an empty name, ENOMEM.
// DEBUG: "Seeking variable %s", then "variable [%s] not found" or "variable [%s] found [%s]".
// Kept on purpose: a value of exactly 203 characters reads as not set, and one of more than 253
// characters comes back as an empty string.
int __getenv(const char *name, char **value);

} // namespace quillfence
