// Whether the mail server hosts a domain.
#pragma once

namespace quillfence {

// Whether the part behind the first "@" of a mail address is a domain that Mail Enable hosts: 1,
// else 0. Its domains are the texts before the first TAB of the lines of "\DOMAIN.TAB" in its
// configuration directory; they are compared without regard to ASCII case. The directory is a
// setting of the key "SOFTWARE\Mail Enable\Mail Enable", or else of the same key below
// "SOFTWARE\Wow6432Node".
// The file is read as vc_readline with 1023 bytes a line would: longer lines count as several, and
// a line that begins with a NUL ends the file.
// Without Mail Enable: 0, without a line.
// ERROR lines of "common/is_local_domain": EINVAL for an empty address, ENOMEM; and those of
// reading the registry and the file.
int is_local_domain(const char *address);

// The path of Mail Enable's table as a new string; null without Mail Enable, and without memory
// (ERROR: ENOMEM).
char *__domain_table_path();

} // namespace quillfence
