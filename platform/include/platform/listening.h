// Sockets by which other programs of this machine reach a service: Unix sockets, and TCP on
// loopback addresses. Linux only. Functions return 0 or a Win32 error number. What is received is
// set on success; on failure a count is 0 and a socket invalid. No socket makes its caller wait,
// none is inherited by programs started from here, and no write raises a signal.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/error_numbers.h"

namespace quillfence::platform {

using socket_handle = intptr_t; // a POSIX descriptor
inline constexpr socket_handle invalid_socket = -1;

// There is nothing to accept or receive, or no room to send: again once a watcher says so.
inline constexpr uint32_t error_would_wait = error_no_more_items;

// --- listening ---

// A listening socket at a path, which is taken as it is, with these rights from its first moment
// on. To that end the process's file mode mask is another one for a moment: to be called before
// there are threads that create files. A socket that is left over, on which nobody listens any
// more, is replaced; that two programs do so at once is kept out by a lock on the folder. Errors:
// 206 for a path that does not fit into a socket's address (107 bytes), 183 when somebody listens
// there, 80 when what is there is no socket, 32 when the folder's lock could not be had for two
// seconds.
uint32_t listen_local(const char *path, uint32_t mode, socket_handle *listener);
// Removes the socket at a path when nobody listens on it. For whoever has closed it.
uint32_t remove_local(const char *path);

// Whether the text is an address in 127.0.0.0/8, or ::1.
bool is_loopback(const char *address);
// A listening socket on a loopback address; port 0 is any that is free. Errors: 87 for another
// address, 183 when somebody listens there.
uint32_t listen_loopback(const char *address, uint16_t port, socket_handle *listener);
// The port that a TCP socket listens on; 0 when it is none.
uint16_t listening_port(socket_handle listener);

// The listening sockets that the service manager has opened for this process, as LISTEN_PID and
// LISTEN_FDS tell; both are removed from the environment. Without them, or when they are another
// process's, there are none. Errors: 87 for a number that is none, 122 when there are more than
// there is room for, 6 for a descriptor that is no listening stream socket, 5 for a TCP socket on
// an address that is no loopback one.
uint32_t inherited_listeners(socket_handle *listeners, size_t room, size_t *count);

// --- connections ---

// The next connection that waits. Errors: error_would_wait; 4 and 8 when the process or the system
// can't have more descriptors or memory: then it goes on waiting. One that has gone meanwhile is
// passed over.
uint32_t socket_accept(socket_handle listener, socket_handle *accepted);
// 0 bytes and success: the other side will send no more.
uint32_t socket_receive(socket_handle socket, void *bytes, uint32_t size, uint32_t *got);
// As much as there is room for. Error 109 or 232 when the other side has gone.
uint32_t socket_send(socket_handle socket, const void *bytes, uint32_t size, uint32_t *put);
void socket_close(socket_handle socket); // the invalid one is accepted
// The other side of a connection, for tests and measurements.
uint32_t connect_local(const char *path, socket_handle *connected);
uint32_t connect_loopback(const char *address, uint16_t port, socket_handle *connected);

// --- what the process may have ---

// Raises the process's own limit on descriptors to this number, or as near to it as the system
// lets it. Returns what the limit is then.
size_t allow_descriptors(size_t wanted);

} // namespace quillfence::platform
