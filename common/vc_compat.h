// Environment variables as heap strings.
#pragma once

namespace quillfence {

// Puts the value of a variable into *value (freeing what it held) and returns 1; 0 when the
// variable is not set, leaving *value alone. ERROR lines: EINVAL for null arguments or an empty
// name, ENOMEM.
// Kept on purpose: a value of exactly 203 characters reads as not set, and one of more than 253
// characters comes back as an empty string.
int __getenv(const char *name, char **value);

} // namespace quillfence
