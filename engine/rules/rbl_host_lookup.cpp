#include "rbl_host_lookup.h"

#include "evidence.h"
#include "hook_table.h"
#include "platform/format.h"
#include "vc_dns.h"
#include "vc_list.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rbl_host_lookup";

static constexpr char host_operation[] = "quillfence_rbl_host";
static constexpr int octet_count = 4;

namespace {

struct octets {
    char text[octet_count][4];
};

} // namespace

// Cuts the address into its four parts; each keeps at most three characters.
static bool split_octets(const char *ip, octets *parts) {
    const heap_string copy(vc_strndup(ip, strlen(ip)));
    if (!copy) {
        QF_ERROR_AS(host_operation, "Failed to copy IP Address string");
        tell_no_memory(host_operation);
        return false;
    }
    vc_list_entry *pieces = vc_list_split(copy.get(), ".");
    if (vc_list_count(pieces) != octet_count) {
        QF_ERROR_AS(host_operation, "Failed to parse ip address for octets");
        vc_destroy_list(&pieces, free);
        return false;
    }
    bool complete = true;
    const vc_list_entry *piece = pieces;
    for (auto &octet : parts->text) {
        platform::format_text(octet, sizeof octet, "%s", static_cast<const char *>(piece->data));
        complete = complete && *octet;
        piece = piece->next;
    }
    vc_destroy_list(&pieces, free);
    if (!complete) {
        QF_ERROR_AS(host_operation, "Failed to parse ip address into octets");
    }
    return complete;
}

static bool append(char **slot, const char *text, const char *failure) {
    if (vc_strcat(slot, text)) {
        return true;
    }
    QF_ERROR_AS(host_operation, "%s", failure);
    tell_no_memory(host_operation);
    free(*slot);
    *slot = nullptr;
    return false;
}

char *quillfence_rbl_host(const smtp_state *state, const char *zone) {
    if (!state || is_empty(state->ip)) {
        QF_ERROR("Provided state does not have a valid IP address");
        return nullptr;
    }
    if (is_empty(zone)) {
        QF_ERROR("Provided RBL list is not valid");
        return nullptr;
    }
    octets parts;
    if (!split_octets(state->ip, &parts)) {
        return nullptr;
    }
    char *host = nullptr;
    for (int i = octet_count; i-- > 0;) {
        if (!append(&host, parts.text[i], "Failed reversing IP address") ||
            !append(&host, ".", "Failed reversing IP address")) {
            return nullptr;
        }
    }
    if (!append(&host, zone, "Failed generating rbl lookup string") ||
        !append(&host, ".", "Failed generating rbl lookup string")) {
        return nullptr;
    }
    return host;
}

int is_rbl_hit(const smtp_state *state, const char *zone) {
    if (!state || !state->ip || !zone) {
        QF_ERROR("Provided state does not have a valid IP address");
        return 0;
    }
    const heap_string host(quillfence_rbl_host(state, zone));
    if (is_empty(host.get())) {
        QF_ERROR("Failure generating RBL host string");
        return 0;
    }
    const int code = vc_resolv_A(host.get(), hooks().dns_option);
    tell(&evidence_sink::asked_zone, {.zone = zone, .name = host.get(), .code = code});
    if (code != vc_dns_found) {
        return 0;
    }
    QF_DEBUG("IP address [%s] hit on rbl list [%s]", state->ip, zone);
    return 1;
}

} // namespace quillfence
