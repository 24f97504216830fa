// The system's event log: the Windows event log, or syslog(3) on Linux (facility mail; success is
// its level info). On both, QUILLFENCE_EVENT_LOG names a file ("-" is standard error) to which each
// event is appended as one line "<type> <ident>: <message>" instead, with the type "error",
// "warning" or "success". A line has at most 4094 characters and ends in LF; line ends in it become
// blanks. What syslog or the file does not take (no daemon listens, as in a container; a full disk)
// goes to standard error in the same form. So do all events when the file can't be opened, behind
// one line that says so.
#pragma once

#include <cstdint>

namespace quillfence::platform {

enum class event_type : uint16_t { success = 0, error = 1, warning = 2 };

struct event_log; // opaque

// Opens the log under a source name; null when that is not possible.
event_log *event_log_open(const char *source);
void event_log_close(event_log *log); // null is accepted

// Reports one event of category 1 with the two strings, in that order. Dropped without a word when
// nothing takes it, or when a pointer is null.
void event_log_report(event_log *log, event_type type, uint32_t event_id, const char *ident,
                      const char *message);

} // namespace quillfence::platform
