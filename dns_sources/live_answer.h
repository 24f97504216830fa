// Answers and limits between the seam's form and this one.
#pragma once

#include "answer.h"

namespace quillfence::dns_sources {

// Throws when there is no memory, or was none for the details.
answer live_answer(uint32_t status, const platform::dns_details &details,
                   const platform::dns_record *records);
// A question's limit in milliseconds; negative for none.
int64_t live_limit(const question &asked);

} // namespace quillfence::dns_sources
