// Whether the mail server hosts a domain.
#pragma once

namespace quillfence {

int is_local_domain(const char *address);

} // namespace quillfence
