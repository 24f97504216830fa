// What the tests of the check runner give it beside rules and a session, and take from it.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "owned_rule.h"
#include "owned_session.h"
#include "vc_list.h"

namespace quillfence::testing {

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

// Where the sessions of these tests come from.
inline constexpr char client_ip[] = "10.1.2.3";

inline uint8_t always_hits(smtp_state *) {
    return 1;
}
inline uint8_t never_hits(smtp_state *) {
    return 0;
}

} // namespace quillfence::testing
