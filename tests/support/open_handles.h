// The files and sockets that the process has open.
#pragma once

namespace quillfence::testing {

// How many; on Windows always 0, so there a comparison says nothing.
int open_handles();

} // namespace quillfence::testing
