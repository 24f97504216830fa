// The one digest that names a whole configuration.
#pragma once

#include "frozen_files.h"

namespace quillfence {

// Fills files->revision: "sha256:" and the digest of the lines "<digest>  <path>\n" of all files,
// in the order of their paths, which is what sha256sum prints. Rows are sorted. False without
// memory.
bool __set_revision(frozen_files *files);

} // namespace quillfence
