// A step of the file functions that not every file system needs. Internal to the Linux side.
#pragma once

namespace quillfence::platform {

// rename() that refuses an existing name (EEXIST), for file systems that can't do it in one call.
// A file is linked to its new name first, so that nobody's file is lost in between. 0, or -1 with
// errno set.
int rename_in_steps(const char *from, const char *to);

} // namespace quillfence::platform
