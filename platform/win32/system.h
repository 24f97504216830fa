// The Windows headers, without the parts and macros that nobody here wants. Internal to the
// Windows side.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>

#include <windows.h>

#include <cstdint>

#include "platform/error_numbers.h"

namespace quillfence::platform {

// 0 for a call that went well, else the number that it left behind.
inline uint32_t error_unless(BOOL success) {
    if (success) {
        return error_none;
    }
    const DWORD error = GetLastError();
    return error ? error : static_cast<uint32_t>(error_gen_failure);
}

// File times count 100 ns from 1601-01-01.
inline constexpr int64_t ticks_per_second = 10000000;
inline int64_t ticks_of(const FILETIME &moment) {
    return static_cast<int64_t>(static_cast<uint64_t>(moment.dwHighDateTime) << 32 |
                                moment.dwLowDateTime);
}
// Such a time in seconds since 1970-01-01.
inline int64_t seconds_of(const FILETIME &moment) {
    constexpr int64_t seconds_from_1601_to_1970 = 11644473600;
    return ticks_of(moment) / ticks_per_second - seconds_from_1601_to_1970;
}

} // namespace quillfence::platform
