#include "report.h"

#include <cstdlib>
#include <memory>

#include "quillfence-checks.h"
#include "vc_log.h"
#include "vc_nulltermlist.h"
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

static void free_texts(vc_json ***texts) {
    vc_lstfree(reinterpret_cast<void ***>(texts), vc_json_free);
}

// A string node for each text of a list, as a null-terminated array; null without memory. All at
// once, because appending one to a node goes over those before it.
static vc_json **texts_of(const vc_list_entry *hits) {
    const auto count = static_cast<size_t>(vc_list_count(hits));
    auto **texts = static_cast<vc_json **>(calloc(count + 1, sizeof(vc_json *)));
    if (!texts) {
        QF_ERRNO_AS("add_hits", ENOMEM);
        return nullptr;
    }
    vc_json **place = texts;
    for (; hits; hits = hits->next) {
        *place =
            vc_json_create_node_string_ex(nullptr, nullptr, static_cast<const char *>(hits->data));
        if (!*place++) {
            free_texts(&texts);
            return nullptr;
        }
    }
    return texts;
}

int add_hits(vc_json *root, const char *name, const vc_list_entry *hits) {
    if (!root || is_empty(name)) {
        QF_EINVAL();
        return 0;
    }
    vc_json **texts = nullptr;
    if (hits && !(texts = texts_of(hits))) {
        return 0;
    }
    if (!vc_json_create_node_array_ex(root, name, texts)) {
        free_texts(&texts);
        return 0;
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
