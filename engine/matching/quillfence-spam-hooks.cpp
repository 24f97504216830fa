#include "quillfence-spam-hooks.h"

#include "configuration.h"
#include "evidence.h"
#include "quillfence-file.h"
#include "quillfence-iprange.h"
#include "step_budget.h"
#include "tiny_rex_storage.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-spam-hooks";

// --- list hooks ---

static uint8_t look_up(const char *operation, const configuration_file &list,
                       char *smtp_state::*field, const smtp_state *state) {
    const char *const value = state ? state->*field : nullptr;
    if (is_empty(value)) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    if (__file_contains_line(state->base_dir, path_in_base(list), value, list.matcher)) {
        return 1;
    }
    return list.range_file && file_contains_ip_range_match(list.range_file, value, state->base_dir);
}

uint8_t fromwhitelist_hook(smtp_state *state) {
    return look_up(__func__, configured("from_whitelist"), &smtp_state::mail_from, state);
}

uint8_t towhitelist_hook(smtp_state *state) {
    return look_up(__func__, configured("exempt_users"), &smtp_state::rcpt_to, state);
}

uint8_t fromblacklist_hook(smtp_state *state) {
    return look_up(__func__, configured("from_blacklist"), &smtp_state::mail_from, state);
}

uint8_t ipwhitelist_hook(smtp_state *state) {
    return look_up(__func__, configured("exempt_ips"), &smtp_state::ip, state);
}

uint8_t ipblacklist_hook(smtp_state *state) {
    return look_up(__func__, configured("blocked_ips"), &smtp_state::ip, state);
}

// --- pattern-file hooks ---

bool is_exempt_ptr_name(const char *name) {
    return vc_file_exists_ex(exempt_regex_file, vc_type_file) &&
           compiled_regex_match(exempt_regex_file, name);
}

bool has_too_many_ptr_names(const smtp_state *state) {
    int count = 0;
    for (char **name = state->ptr_results; name && *name && count <= most_ptr_names; ++name) {
        ++count;
    }
    return count > most_ptr_names;
}

// 1 when all names match the file and none is exempt; else the first that breaks this is recorded.
static uint8_t all_names_match(const char *hook, const char *file, smtp_state *state) {
    if (!state || !state->ptr_results) {
        return 0;
    }
    if (!vc_file_exists_ex(file, vc_type_file)) {
        tell(&evidence_sink::searched_patterns, {.path = file});
        return 0;
    }
    if (has_too_many_ptr_names(state)) {
        QF_REASON_AS(hook, "%s", too_many_ptr_names_line);
        return 0;
    }
    for (char **name = state->ptr_results; *name; ++name) {
        const bool listed = compiled_regex_match(file, *name) && !is_exempt_ptr_name(*name);
        if (steps_are_spent()) {
            QF_ERROR_AS(hook, "%s", ptr_steps_spent_line);
            tell_failure(file, 0, ptr_steps_spent_line);
            return 0;
        }
        if (!listed) {
            state->rdns = *name;
            return 0;
        }
    }
    return 1;
}

uint8_t dyna_regex_hook(smtp_state *state) {
    return all_names_match(__func__, dyna_regex_file, state);
}

uint8_t spam_regex_hook(smtp_state *state) {
    return all_names_match(__func__, spam_regex_file, state);
}

uint8_t confirmed_regex_hook(smtp_state *state) {
    return all_names_match(__func__, confirmed_regex_file, state);
}

} // namespace quillfence
