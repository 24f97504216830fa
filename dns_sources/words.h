// The words in which people and records write DNS data.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "answer.h"

namespace quillfence::dns_sources {

// "A", "aaaa", "TYPE99". None for another word.
std::optional<uint16_t> type_of_word(std::string_view word);
std::string type_word(uint16_t type);

// "NOERROR", "NXDOMAIN"; "RCODE11" for a code without a name.
std::string response_code_word(uint32_t code);
std::optional<uint32_t> response_code_of_word(std::string_view word);

// What stands for a whole answer in data written by hand, in any letter case: NXDOMAIN, SERVFAIL,
// REFUSED, TIMEOUT, and NODATA for a name that exists without such a record. None for another word.
std::optional<answer> answer_of_word(std::string_view word);

// A domain name as text: labels of 1 to 63 bytes, 255 in all with their length bytes, "." for the
// root, a final dot or not; of a byte that is no letter, digit or sign the zone file's form.
bool is_domain_name(std::string_view name);

// A record of a type and its data as people write them: "192.0.2.1", "mail.example.org" with or
// without final dot, "10 mail.example.org" (of an exchanger also the name alone, with preference
// 10). Types are A, AAAA, CNAME, NS, MX and PTR. complaint receives why there is none.
std::optional<record> record_of_words(std::string_view type, std::string_view data,
                                      std::string *complaint);

} // namespace quillfence::dns_sources
