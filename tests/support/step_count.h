// Counts what the product does, so that a bound is a number that is the same on every machine: the
// basic blocks that it goes through, and the bytes that the C library goes over on its behalf. For
// test programs that are linked with the product's counted objects (tests/reliability).
#pragma once

#include <cstdint>

namespace quillfence::testing {

// Basic blocks of the product and bytes moved, compared or searched by the C library, so far.
uint64_t steps_taken();

// Bytes that were read from buffered streams so far.
uint64_t stream_bytes_read();

} // namespace quillfence::testing
