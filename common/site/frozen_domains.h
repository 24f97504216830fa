// The table of hosted domains that was read beforehand, by domain.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence {

struct frozen_domains;

// The index of a table's bytes, which are borrowed as long as it lives and less than 4 GiB. Null
// without memory. Released by frozen_domains_free.
frozen_domains *frozen_domains_make(const char *bytes, uint64_t size);
void frozen_domains_free(frozen_domains *domains); // null is accepted

size_t frozen_domains_size(const frozen_domains *domains); // in bytes of memory

// Looks for the first line of a domain, letters in either case.
//   lines  receives how many lines a walk looks at: up to the one that is found, or all
//   line   receives its number; 0 when the domain is not hosted
void frozen_domains_find(const frozen_domains *domains, const char *domain, uint32_t *lines,
                         uint32_t *line);

} // namespace quillfence
