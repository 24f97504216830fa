// What files look like that nobody meant: cut short, with other line ends, with bytes changed or
// missing, lines at the edge of what a line may hold, wildcards with operators, a folder in a
// file's place.
#pragma once

#include "random_world.h"

namespace quillfence::testing {

// Makes some of the files of a world that was written odd.
void make_odd(random_numbers &random, const drive_c &drive, const world &of);

} // namespace quillfence::testing
