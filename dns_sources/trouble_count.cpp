#include "trouble_count.h"

#include "memo_source.h"
#include "platform/error_numbers.h"
#include "vc_dns.h"

namespace quillfence::dns_sources {

// The count that an answer belongs to; null for one that is no trouble.
static uint64_t zone_trouble::*count_of(const answer &got) {
    switch (got.said) {
    case platform::dns_status_refused:
        return &zone_trouble::refused;
    case platform::dns_status_timeout:
        return &zone_trouble::silent;
    case platform::dns_status_no_records:
    case platform::error_invalid_name:
        return nullptr;
    default:
        return vc_dns_code(got.said) == vc_dns_failed ? &zone_trouble::failed : nullptr;
    }
}

void trouble_count::note(const question &asked, const answer &got) {
    if (uint64_t zone_trouble::*const count = count_of(got)) {
        const std::string zone = zone_of(asked.name);
        const std::lock_guard guard(lock_);
        const bool known = troubles_.size() < most_zones || troubles_.contains(zone);
        ++(troubles_[known ? zone : ""].*count);
    }
}

std::map<std::string, zone_trouble> trouble_count::troubles() const {
    const std::lock_guard guard(lock_);
    return troubles_;
}

} // namespace quillfence::dns_sources
