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

static void install_hooks() {
    static constexpr uint8_t dns_option = 1;
    set_hooks(dns_option, dyna_regex_hook, spam_regex_hook, confirmed_regex_hook,
              fromwhitelist_hook, fromblacklist_hook,
              nullptr, // spare
              nullptr, // spare
              nullptr, // HELO whitelist: for a host that has one
              nullptr, // HELO blacklist: likewise
              ipwhitelist_hook, ipblacklist_hook,
              nullptr, // country blacklist: likewise
              towhitelist_hook, log_message,
              nullptr); // messages: the rules' own are used
}

int quillfence_init() {
    ql_set_program_name("quillfence");
    install_hooks();
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
    const heap_string contents(vc_file_get_contents_ex(path.get(), nullptr));
    return contents && text_to_int(contents.get()) == 1;
}

} // namespace quillfence
