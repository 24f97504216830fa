// The C library's number for an error of the seam. Internal to platform/.
#pragma once

#include <cstdint>

namespace quillfence::platform {

// The errno value for a Win32 number, for functions that report through errno and for strerror.
// Either side has its own table.
int errno_of_error(uint32_t error);

} // namespace quillfence::platform
