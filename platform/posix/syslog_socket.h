// Lines for the system's log daemon, by its socket: unlike syslog(3) the call says whether the
// daemon took the line. Internal to the Linux side.
#pragma once

namespace quillfence::platform {

// Sends one line as syslog(3) does: "<priority>time ident[process]: message", over the datagram or
// stream socket at /dev/log, which is opened with the first line and opened again when the daemon
// was started anew. Safe from several threads. False when nobody takes the line. A daemon that is
// there and takes nothing is waited for once, for a tenth of a second, until it takes a line again:
// who logs shall not stand still with it.
//   priority  facility and level together
bool syslog_send(int priority, const char *ident, const char *message);
// Closes the socket; the next line opens it again.
void syslog_close();

// Another socket in place of /dev/log, for tests; borrowed. Null restores it.
void set_syslog_stand_in(const char *path);

} // namespace quillfence::platform
