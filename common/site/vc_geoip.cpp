#include "vc_geoip.h"

#include <maxminddb.h>

#include "evidence.h"
#include "platform/file.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "common/vc_geoip";

// Longer paths can't be opened on either system.
static constexpr size_t longest_path = 4096;

// The code of the address in an open database, as a new string.
static char *country_code_in(MMDB_s *database, const char *ip) {
    static constexpr char operation[] = "__vc_get_country_code";
    int address_error = 0;
    int database_error = 0;
    MMDB_lookup_result_s found = MMDB_lookup_string(database, ip, &address_error, &database_error);
    if (address_error || database_error != MMDB_SUCCESS || !found.found_entry) {
        QF_ERROR_AS(operation, "Failed to lookup ip string in MMDB");
        return nullptr;
    }

    MMDB_entry_data_s value;
    const int status =
        MMDB_get_value(&found.entry, &value, "country", "iso_code", static_cast<char *>(nullptr));
    if (status != MMDB_SUCCESS || !value.has_data || value.type != MMDB_DATA_TYPE_UTF8_STRING) {
        QF_ERROR_AS(operation, "Failed to retrieve value from lookup in MMDB");
        return nullptr;
    }

    char *code = static_cast<char *>(calloc(value.data_size + size_t{1}, 1));
    if (!code) {
        QF_ERRNO_AS(operation, ENOMEM);
        return nullptr;
    }
    if (value.data_size) {
        memcpy(code, value.utf8_string, value.data_size);
    }
    return code;
}

char *__vc_get_country_code(const char *database, const char *ip) {
    if (is_empty(database) || is_empty(ip)) {
        QF_EINVAL();
        return nullptr;
    }
    char path[longest_path];
    MMDB_s opened;
    if (platform::path_native(database, path, sizeof path) ||
        MMDB_open(path, MMDB_MODE_MMAP, &opened) != MMDB_SUCCESS) {
        QF_ERROR("Failed to open MMDB [%s]", database);
        tell_failure(database, 0, "not a country database");
        return nullptr;
    }
    char *code = country_code_in(&opened, ip);
    MMDB_close(&opened);
    tell(&evidence_sink::looked_up_country, {.database = database, .ip = ip, .code = code});
    return code;
}

char *vc_get_country_code(const char *database, const char *ip) {
    if (is_empty(database) || is_empty(ip)) {
        QF_EINVAL();
        return nullptr;
    }
    if (!vc_is_unroutable_ip(ip)) {
        if (char *code = __vc_get_country_code(database, ip)) {
            return code;
        }
    }
    char *catch_all = strdup(vc_country_catch_all);
    if (!catch_all) {
        QF_ENOMEM();
    }
    return catch_all;
}

} // namespace quillfence
