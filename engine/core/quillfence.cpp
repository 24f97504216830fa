#include "quillfence.h"

#include "hook_table.h"
#include "quillfence-file.h"
#include "quillfence-log.h"
#include "quillfence-spam-hooks.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_text.h"
#include "vcspamrule.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence";

static vc_list_entry *engine_rules;

// The HELO lists and the country list are for a host that has some; without a message hook the
// rules' own texts are used.
static constexpr hook_table own_hooks = {
    .dns_option = 1,
    .dynamic_names = dyna_regex_hook,
    .spam_names = spam_regex_hook,
    .confirmed_names = confirmed_regex_hook,
    .sender_whitelist = fromwhitelist_hook,
    .sender_blacklist = fromblacklist_hook,
    .ip_whitelist = ipwhitelist_hook,
    .ip_blacklist = ipblacklist_hook,
    .recipient_whitelist = towhitelist_hook,
    .mail_log = log_message,
};

int quillfence_init() {
    ql_set_program_name("quillfence");
    set_hooks(own_hooks);
    quillfence_teardown();
    engine_rules = build_rule_table();
    if (!engine_rules) {
        QF_ERROR("no rules loaded.. engine cannot be initialized");
        return 0;
    }
    return 1;
}

void quillfence_teardown() {
    if (engine_rules) {
        vc_destroy_list(&engine_rules, free_rule_data);
    }
}

vc_list_entry *quillfence_rules() {
    return engine_rules;
}

int quillfence_enabled() {
    const heap_string path(
        __build_path(quillfence_control_dir, name_in_folder(configured("control/enabled"))));
    if (!path) {
        QF_ENOMEM();
        return 0;
    }
    if (!vc_file_exists_ex(path.get(), vc_type_file)) {
        return 0;
    }
    const heap_string contents(vc_existing_contents(path.get(), nullptr));
    return contents && text_to_int(contents.get()) == 1;
}

} // namespace quillfence
