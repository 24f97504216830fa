// Events as lines of a file instead of the system's log, the same on both systems. Internal to the
// seam; platform/event_log.h tells what the variable does and how a line looks.
#pragma once

#include "platform/event_log.h"
#include "platform/file.h"

namespace quillfence::platform {

// What QUILLFENCE_EVENT_LOG names, opened for appending: a file, or standard error for "-" and for
// a file that can't be opened, which is said there under the source's name. invalid_file where the
// variable is missing or empty, and events go to the system's log.
file_handle event_file_open(const char *source);
void event_file_close(file_handle file); // not standard error

// Appends one event with one write, so that the lines of several processes do not mix. What the
// file does not take goes to standard error.
void event_file_report(file_handle file, event_type type, const char *ident, const char *message);

} // namespace quillfence::platform
