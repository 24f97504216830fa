#include "evidence.h"
#include "list_rule.h"
#include "rules.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "rule_country_blacklist";

static constexpr list_rule row = {
    .value = &smtp_state::ip_country,
    .empty_line = "Nothing to check as the ip country is NULL or empty",
    .slot = &hook_table::country_blacklist,
};

// The country code that stands for all countries; "*" and "***" are looked up like any other.
static constexpr char catch_all[] = "**";

uint8_t rule_country_blacklist(smtp_state *state) {
    if (state && state->ip_country && strcmp(state->ip_country, catch_all) == 0) {
        QF_REASON("Nothing to check as the ip country is catch-all");
        return 0;
    }
    return run_list_rule(QF_HERE, row, state);
}

} // namespace quillfence
