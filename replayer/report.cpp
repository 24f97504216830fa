#include "report.h"

#include <cstdlib>
#include <memory>

#include "quillfence-checks.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-replayer";

namespace {

struct json_deleter {
    void operator()(vc_json *node) const {
        vc_json_free(node);
    }
};

} // namespace

int add_hits(vc_json *root, const char *name, const vc_list_entry *hits) {
    if (!root || is_empty(name)) {
        QF_EINVAL();
        return 0;
    }
    vc_json *array = vc_json_create_node_array_ex(root, name);
    if (!array) {
        return 0;
    }
    for (const vc_list_entry *hit = hits; hit; hit = hit->next) {
        if (!vc_json_create_node_string_ex(array, nullptr, static_cast<const char *>(hit->data))) {
            vc_json_remove_node(root, name);
            return 0;
        }
    }
    return 1;
}

// Runs one of the two checks and adds what it hits under name; false on failure.
static bool add_checked_hits(vc_json *root, const char *name,
                             int (*check)(smtp_state *, vc_list_entry *, vc_list_entry **),
                             smtp_state *state, vc_list_entry *rules) {
    vc_list_entry *hits = nullptr;
    const bool added = check(state, rules, &hits) && add_hits(root, name, hits);
    if (hits) {
        vc_destroy_list(&hits, free);
    }
    return added;
}

vc_json *build_report(smtp_state *state, vc_list_entry *rules) {
    std::unique_ptr<vc_json, json_deleter> root(vc_json_create_node_object_ex(nullptr, nullptr));
    if (!root || !add_checked_hits(root.get(), "spam_hits", run_all_spam_checks, state, rules) ||
        !add_checked_hits(root.get(), "bms_hits", run_all_bms_checks, state, rules)) {
        return nullptr;
    }
    return root.release();
}

} // namespace quillfence
