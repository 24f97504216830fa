// The rules that the engine knows, and the notices that their hits send to the client.
#pragma once

#include <cstdint>
#include <span>

#include "hook_table.h"
#include "smtp_state.h"
#include "vc_list.h"

namespace quillfence {

// 1 when the session hits the rule, else 0.
using rule_check = uint8_t (*)(smtp_state *state);

// The four switches say whether the rule runs for a special kind of session; 0 skips it there.
struct spam_rule {
    char *name;       // owned; the word by which configuration files switch the rule on
    rule_check check; // null for rules that other drivers evaluate: they never hit by themselves
    char *rejection;  // owned; may hold the macros of build_rejection_notice
    uint8_t mua;
    uint8_t ndr;
    uint8_t localhost;
    uint8_t ipv6;
};

// What a rule says to the client: the body and, when there is a page, " See ", the help site's
// base URL, "best-practices/", the page and " for more information."
struct rule_message {
    const char *body;
    const char *page; // null for none
};

// One row of the built-in table, from which build_rule_table makes a rule.
struct rule_row {
    const char *name;
    rule_check check;
    uint8_t mua;
    uint8_t ndr;
    uint8_t localhost;
    uint8_t ipv6;
    uint8_t reported; // 1 when the report may name the rule
    const rule_message *message;
};

// The built-in table in running order.
std::span<const rule_row> rule_rows();

// The base URL of the help site; ends in "/". Set at configure time (QUILLFENCE_HELP_SITE).
const char *help_site();

// A new rule with its own copies of name and rejection; release it with free_rule. Null on
// failure. ERROR lines: EINVAL for a null or empty name or rejection, ENOMEM.
spam_rule *new_rule(const char *name, rule_check check, uint8_t mua, uint8_t ndr, uint8_t localhost,
                    uint8_t ipv6, const char *rejection);

// Null is accepted.
void free_rule(spam_rule *rule);

// The same as a list's release function.
void free_rule_data(void *rule);

// strcmp of the rule's name and name; -1 when the rule, its name or name is null.
int rule_name_compare(const spam_rule *rule, const char *name);

// The first rule of that name in a rule table, borrowed; null when there is none.
spam_rule *find_rule(vc_list_entry *rules, const char *name);

// A new list of all rules, in the order of rule_rows; release it with vc_destroy_list and
// free_rule_data. A rule that can't be made for lack of memory is missing from it.
// ERROR line: ENOMEM.
vc_list_entry *build_rule_table();

// Writes one rule, or every rule of a list, to standard output. Null is ignored.
void dump_rule(const spam_rule *rule);
void dump_rules(const vc_list_entry *rules);

// The text that the client gets when the rule has hit, a new heap string of at most 1023
// characters; null on failure. The template is message_hook's answer (a heap string, taken over)
// or, without a hook or when it answers null, the rule's own rejection. Macros are replaced in
// this order, each in the whole text: %IP%, %RDNS% (the first PTR name when rdns is absent),
// %HELO%, %FROM%, %RCPT%, %TO% (the recipient too). An absent value reads "unknown", but an
// absent ip is a failure.
// ERROR lines: EINVAL for a null rule, name, rejection or session, and (from vc_str_replace) for
// a session without ip; ENOMEM.
// Kept on purpose: a value that holds a later macro has it replaced in turn. The template, and the
// text after each macro, are cut at 65,536 characters, so that a notice takes less than 1 MiB of
// memory and a few milliseconds, whatever the client has sent.
char *build_rejection_notice(const spam_rule *rule, smtp_state *state, message_hook message);

} // namespace quillfence
