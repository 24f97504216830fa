// The DNS that a case carries, as a source of answers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "case_file.h"
#include "recorded_source.h"
#include "zone_source.h"

namespace quillfence::decision {

// Words and types may be written in any letter case; a case that was read has them in capitals.
std::string in_capitals(std::string_view word); // ASCII
// Whether a type stands in the data of test suites for other programs only: TXT, SPF.
bool is_never_asked(std::string_view type);

// Adds one line of a name. Returns why not: "gone.example has records and is NXDOMAIN".
std::optional<std::string> add_zone_entry(dns_sources::zone_source &zone, std::string_view name,
                                          const zone_entry &entry);

// Adds all. Returns why not, and where: "zonedata.gone.example[1]: TXTT is not one of ...". Data
// that read_case() gave are always taken.
std::optional<std::string> add_zone_data(dns_sources::zone_source &zone,
                                         const std::vector<zone_name> &data);

// Adds the next answer to a question. One that was missing then is missing again, for the same
// reason; one that a guard had read as a failure stays a failure. Returns why not: "the type "XY"
// is not known".
std::optional<std::string> add_answer(dns_sources::recorded_source &recorded,
                                      const dns_record &given);

// Adds the answers of a record, in the order in which they came, so that each question gets them
// attempt by attempt. Returns why not, and where: "dns[3]: ...". Those that read_case() gave are
// always taken.
std::optional<std::string> add_answers(dns_sources::recorded_source &recorded,
                                       const std::vector<dns_record> &answers);

} // namespace quillfence::decision
