#include "evidence.h"
#include "quillfence-spam-hooks.h"
#include "reverse_dns.h"
#include "rules.h"
#include "step_budget.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_check_dynamic_reverse_dns_default";

// Four groups of digits: a name that spells the client's address out. As with any pattern they may
// stand anywhere in the name. Whoever asks is told this; the engine would have to compile it for
// every question, so that spells_address_out looks for the same by itself.
static constexpr char embedded_address[] =
    R"([0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3})";
static constexpr int group_count = 4;
static constexpr ptrdiff_t longest_group = 3; // of digits

static bool is_separator(char c) {
    return c == '-' || c == '_' || c == '.';
}

static const char *skip_digits(const char *text) {
    while (is_digit(*text)) {
        ++text;
    }
    return text;
}

// Of the first group the last digits count, and of the last one the first, so that these two may
// have more.
static bool spells_address_out(const char *name) {
    int groups = 0; // that stand in front of here, one separator behind each
    for (const char *at = name; *at;) {
        const char *const digits = at;
        at = skip_digits(digits);
        if (at == digits) {
            groups = 0;
        } else if (++groups == group_count) {
            return true;
        } else if (at - digits > longest_group) {
            groups = 1;
        }
        if (!is_separator(*at)) {
            groups = 0;
        }
        at += *at != '\0';
    }
    return false;
}

static bool matches(const char *name) {
    const bool matched = spells_address_out(name);
    tell(&evidence_sink::searched_patterns, {.subject = name,
                                             .existed = true,
                                             .expressions = 1,
                                             .expression = matched,
                                             .pattern = embedded_address});
    return matched;
}

// Fires when every name matches and none is exempt; otherwise the name that broke this is shown.
// The bounds are those of the pattern-file hooks (quillfence-spam-hooks.h).
uint8_t rule_check_dynamic_reverse_dns_default(smtp_state *state) {
    if (!reach_ptr_names(QF_HERE, state)) {
        return 0;
    }
    if (has_too_many_ptr_names(state)) {
        QF_REASON("%s", too_many_ptr_names_line);
        return 0;
    }
    for (char **name = state->ptr_results; *name; ++name) {
        const bool listed = matches(*name) && !is_exempt_ptr_name(*name);
        if (steps_are_spent()) {
            QF_ERROR("%s", ptr_steps_spent_line);
            tell_failure(exempt_regex_file, 0, ptr_steps_spent_line);
            return 0;
        }
        if (!listed) {
            state->rdns = *name;
            return 0;
        }
    }
    return 1;
}

} // namespace quillfence
