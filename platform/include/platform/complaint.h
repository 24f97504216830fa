// What the seam itself has to tell an administrator, each thing once a process: that a variable of
// the environment names nothing that can be read, that several names differ in letter case alone.
// Such things do not change the result of a call beyond what its header says.
#pragma once

#include <cstdint>

#include "platform/event_log.h"
#include "platform/format.h"

namespace quillfence::platform {

// Receives a complaint: an error or a warning, the name of the seam's function that found it, and a
// text without a line end. Called on the thread that found it; it must not call the seam's file
// functions.
using complaint_listener = void (*)(event_type type, const char *function, const char *message);

// Installs the listener; null removes it. While there is none, nothing counts as told.
void set_complaint_listener(complaint_listener listener);

// Tells the listener the text, formatted and cut at 1023 characters, unless it was told that text
// before. A process tells 64 different ones at most.
void complain(event_type type, const char *function, const char *format, ...) QF_PRINTF_LIKE(3, 4);

} // namespace quillfence::platform
