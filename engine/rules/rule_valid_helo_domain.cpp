#include <algorithm>
#include <cstring>

#include "evidence.h"
#include "rule_support.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_rfc.h"

namespace quillfence {

static constexpr char module_name[] = "rule_valid_helo_domain";

// Whether the HELO is as many first characters of "localhost.localdomain" as it is long. A prefix
// test, in exact case, on purpose: "localhost.local" is one, "localhost.localdomain.org" is not.
static bool begins_local_name(const char *helo) {
    static constexpr char local_name[] = "localhost.localdomain";
    return strncmp(helo, local_name, std::min(strlen(helo), sizeof local_name)) == 0;
}

uint8_t rule_valid_helo_domain(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (!state->helo) {
        QF_REASON("HELO is NULL - skipping check");
        return 0;
    }
    trim_session_text(&state->helo);
    if (!vc_valid_domain(state->helo)) {
        QF_REASON("HELO [%s] is not a valid domain", state->helo);
        return 1;
    }
    if (begins_local_name(state->helo)) {
        QF_REASON("HELO is \"localhost.localdomain\"");
        return 1;
    }
    return 0;
}

} // namespace quillfence
