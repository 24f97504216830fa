// Where Mail Enable keeps its settings: keys below HKEY_LOCAL_MACHINE, and the root of its
// configuration files. The names are Mail Enable's own.
#pragma once

namespace quillfence {

inline constexpr char me_key[] = "SOFTWARE\\Mail Enable\\Mail Enable";
inline constexpr char me_key_32[] = "SOFTWARE\\Wow6432Node\\Mail Enable\\Mail Enable";
inline constexpr char me_connector_key[] = "SOFTWARE\\Mail Enable\\Mail Enable\\Connectors\\SMTP";
inline constexpr char me_white_list_key[] =
    "SOFTWARE\\Mail Enable\\Mail Enable\\Connectors\\SMTP\\White List";

inline constexpr char me_configuration_value[] = "Configuration Directory"; // a text of me_key
inline constexpr char me_white_list_status[] = "IP White Listing Status";   // a DWORD

// The configuration directory that a key names, at most 512 characters, as it stands there; a new
// string that the caller frees, or null.
// ERROR lines: none where the key or the value is missing, as on every machine without Mail Enable;
// those of vc_regkey_get_ex for a value that is no text or too long.
char *me_configuration_directory(const char *key);

} // namespace quillfence
