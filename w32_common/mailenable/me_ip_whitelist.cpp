#include "me_ip_whitelist.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "byte_cursor.h"
#include "evidence.h"
#include "me_settings.h"
#include "quillfence-iprange.h"
#include "registry.h"
#include "vc_dns.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "w32_common/me_ip_whitelist";
static constexpr size_t longest_name = 64;

static void tell_status(uint32_t status) {
    unsigned char stored[4];
    store_le32(stored, status);
    tell(&evidence_sink::looked_at_registry, {.key = me_connector_key,
                                              .value = me_white_list_status,
                                              .found = true,
                                              .type = platform::registry_dword,
                                              .data = stored,
                                              .size = sizeof stored});
}

static bool whitelist_is_on() {
    vc_regkey *const connector =
        vc_regkey_open_ex(vc_regroot::local_machine, me_connector_key, vc_regkey_read_32);
    uint32_t status = 0;
    if (connector && vc_regkey_get_dword(connector, me_white_list_status, &status)) {
        tell_status(status);
    } else {
        vc_regkey_tell(connector, me_connector_key, me_white_list_status);
    }
    vc_regkey_close(connector);
    return status != 0;
}

// The address that a pattern becomes with a number in place of every star.
static bool end_of_pattern(const char *pattern, const char *number, uint32_t *address) {
    char *slot = strdup(pattern);
    if (!slot) {
        QF_ERRNO_AS("is_mailenable_ip_whitelist", ENOMEM);
        return false;
    }
    const bool is_address =
        vc_str_replace(&slot, "*", number) && !is_empty(slot) && vc_is_ip(slot) == vc_family_ipv4;
    if (is_address) {
        *address = vc_inet_addr(slot);
    }
    free(slot);
    return is_address;
}

static bool in_pattern(uint32_t address, const char *name) {
    if (strchr(name, ':') || !strchr(name, '*')) {
        return false;
    }
    qf_ip_range range;
    return end_of_pattern(name, "0", &range.low) && end_of_pattern(name, "255", &range.high) &&
           qf_ip_in_range(address, &range);
}

static bool stands_there(vc_regkey *white_list, const char *ip) {
    const bool stands = white_list && vc_regkey_has_value(white_list, ip);
    tell(&evidence_sink::looked_at_registry, {.key = me_white_list_key,
                                              .value = white_list ? ip : nullptr,
                                              .found = stands,
                                              .decided = stands});
    return stands;
}

// Whether the name is a pattern that holds the address. What stands under it is not looked at.
static bool look_at_name(const char *name, uint32_t address) {
    const bool holds = in_pattern(address, name);
    tell(&evidence_sink::looked_at_registry,
         {.key = me_white_list_key, .value = name, .found = true, .decided = holds});
    return holds;
}

static bool in_some_pattern(vc_regkey *white_list, const char *ip) {
    if (vc_is_ip(ip) != vc_family_ipv4) {
        return false; // there are no patterns of IPv6 addresses
    }
    const uint32_t address = vc_inet_addr(ip);
    char name[longest_name + 1];
    for (uint32_t i = 0;; ++i) {
        const int found = vc_regkey_value_name(white_list, i, name, sizeof name);
        if (!found) {
            return false;
        }
        if (found > 0 && look_at_name(name, address)) {
            return true;
        }
    }
}

int is_mailenable_ip_whitelist(const char *ip) {
    if (is_empty(ip)) {
        QF_EINVAL();
        return 0;
    }
    if (!whitelist_is_on()) {
        return 0;
    }
    vc_regkey *const white_list =
        vc_regkey_open_ex(vc_regroot::local_machine, me_white_list_key, vc_regkey_read_32);
    const bool listed =
        stands_there(white_list, ip) || (white_list && in_some_pattern(white_list, ip));
    vc_regkey_close(white_list);
    return listed;
}

} // namespace quillfence
