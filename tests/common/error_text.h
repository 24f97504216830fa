// The texts of error numbers, which differ between the systems' C libraries.
#pragma once

#include <cstring>
#include <string>

namespace quillfence::testing {

inline std::string text_of(int number) {
    return std::strerror(number);
}

} // namespace quillfence::testing
