// Libraries that are found at run time: DLLs, or shared objects of the same name on Linux.
#pragma once

namespace quillfence::platform {

struct dynamic_library; // opaque

// A library by name, already loaded or loaded now; null when there is none. It stays loaded. On
// Linux a name without a slash is looked for in the folders of LD_LIBRARY_PATH only.
dynamic_library *library_open(const char *name);
// The address of an exported function, null when the library has none of that name.
void *library_symbol(dynamic_library *library, const char *name);

} // namespace quillfence::platform
