// The country of an address, from a MaxMind DB file (libmaxminddb, mapped into memory).
//
// The file is opened and closed for every question; nothing is kept.
#pragma once

namespace quillfence {

// The answer for an address that can't be placed; the country rule passes it over.
inline constexpr char vc_country_catch_all[] = "**";

// The two-letter ISO country code of an address (IPv4 or IPv6 text) as a new heap string, or a
// new "**" when the address is private, reserved, malformed or not in the database, or when the
// database can't be read. Null only for a missing or empty argument (ERROR: EINVAL) or without
// memory (ERROR: ENOMEM). For a private or reserved address the database is not opened.
// Other ERROR lines come from vc_is_unroutable_ip and __vc_get_country_code.
char *vc_get_country_code(const char *database, const char *ip);

// The same for any address, with null in place of "**". ERROR lines: EINVAL, ENOMEM,
// "Failed to open MMDB [%s]", "Failed to lookup ip string in MMDB" (not an address, a damaged
// database, or no entry), "Failed to retrieve value from lookup in MMDB" (an entry without a
// country code, or with one that is not a text).
char *__vc_get_country_code(const char *database, const char *ip);

} // namespace quillfence
