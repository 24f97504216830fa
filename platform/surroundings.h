// What was put in the place of this system's own surroundings. Internal to the seam.
#pragma once

namespace quillfence::platform {

// The directory that stands for drive c:, the export that stands for the registry; null for the
// system's own.
const char *drive_root();
const char *registry_stand_in();

} // namespace quillfence::platform
