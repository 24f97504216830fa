// Rule tables of a test's own, and sessions for them.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "heap_text.h"
#include "smtp_state.h"
#include "vc_list.h"
#include "vcspamrule.h"

namespace quillfence::testing {

// A rule table that is filled by hand.
class rule_list {
  public:
    rule_list() = default;
    ~rule_list() {
        vc_destroy_list(&head, free_rule_data);
    }
    rule_list(const rule_list &) = delete;
    rule_list &operator=(const rule_list &) = delete;

    spam_rule *add(const char *name, rule_check check, uint8_t mua = 1, uint8_t ndr = 1,
                   uint8_t localhost = 1, uint8_t ipv6 = 1, const char *rejection = "rejected") {
        spam_rule *rule = new_rule(name, check, mua, ndr, localhost, ipv6, rejection);
        vc_append_list_entry(&head, rule, sizeof *rule, 0);
        return rule;
    }
    // The last rule of the list becomes an element without data.
    void drop_last_data() {
        vc_list_entry *last = head;
        while (last->next) {
            last = last->next;
        }
        free_rule_data(last->data);
        last->data = nullptr;
    }

    vc_list_entry *head = nullptr;
};

// A list of names, as the loaders make it.
class name_list {
  public:
    name_list(std::initializer_list<const char *> names) {
        for (const char *name : names) {
            vc_append_list_entry(&head, name, strlen(name) + 1, 1);
        }
    }
    explicit name_list(const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            vc_append_list_entry(&head, name.c_str(), name.size() + 1, 1);
        }
    }
    ~name_list() {
        vc_destroy_list(&head, free);
    }
    name_list(const name_list &) = delete;
    name_list &operator=(const name_list &) = delete;

    vc_list_entry *head = nullptr;
};

// The texts of a list of hits, which is released.
inline std::vector<std::string> taken(vc_list_entry **hits) {
    std::vector<std::string> texts;
    for (const vc_list_entry *hit = *hits; hit; hit = hit->next) {
        texts.emplace_back(static_cast<const char *>(hit->data));
    }
    vc_destroy_list(hits, free);
    return texts;
}

// A session with an ip, released with its scope.
class test_session {
  public:
    explicit test_session(const char *ip = "10.1.2.3") {
        set(&smtp_state::ip, ip);
    }
    ~test_session() {
        free_smtp_state(state);
    }
    test_session(const test_session &) = delete;
    test_session &operator=(const test_session &) = delete;

    void set(char *smtp_state::*field, const char *text) {
        free(state->*field);
        state->*field = text ? strdup(text) : nullptr;
    }
    smtp_state *operator->() {
        return state;
    }
    operator smtp_state *() {
        return state;
    }

  private:
    smtp_state *state = new_smtp_state();
};

inline uint8_t always_hits(smtp_state *) {
    return 1;
}
inline uint8_t never_hits(smtp_state *) {
    return 0;
}

} // namespace quillfence::testing
