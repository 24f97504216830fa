// What scratch_folder.cpp needs of each system. Internal to the seam.
#pragma once

#include <cstdint>

namespace quillfence::platform {

// Removes all that scratch_folder_make made and nobody has removed. Safe in a signal's handler, as
// scratch_remove_tree has to be.
void scratch_remove_all();

// No request to end is taken between the two.
void scratch_hold_requests();
void scratch_take_requests();

// From the first folder on scratch_remove_all() is called when the process is told to end.
void scratch_listen();

// One level, for its owner alone. 0 or a Win32 error number.
uint32_t scratch_create(const char *path);
// A folder with all that is in it; a link in it goes, and what it leads to stays. A folder that is
// missing is none to remove. 0 or a Win32 error number.
uint32_t scratch_remove_tree(const char *path);

} // namespace quillfence::platform
