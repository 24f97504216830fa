// The records of a range file that was read beforehand, so that a look costs a binary search: the
// addresses cut into stretches, and of each the first record that contains it. Only a file whose
// records are all there and sound has this form; any other is walked through, as a file is.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence {

struct frozen_ranges;

// What there is of a file's bytes.
//   made  receives the form, which frozen_ranges_free releases; null when the file is not sound
// False without memory.
bool frozen_ranges_make(const char *bytes, uint64_t size, frozen_ranges **made);
void frozen_ranges_free(frozen_ranges *ranges); // null is accepted

size_t frozen_ranges_size(const frozen_ranges *ranges); // in bytes of memory

// The index of the first record that contains the address, which is in network byte order and
// neither 0.0.0.0 nor 255.255.255.255. False when none does.
bool frozen_ranges_find(const frozen_ranges *ranges, uint32_t address, uint32_t *record);

} // namespace quillfence
