// Rules, and tables of them, that go away with their scope.
#pragma once

#include <memory>

#include "vc_list.h"
#include "vcspamrule.h"

namespace quillfence::testing {

struct rule_releaser {
    void operator()(spam_rule *rule) const {
        free_rule(rule);
    }
};
using owned_rule = std::unique_ptr<spam_rule, rule_releaser>;

// A rule without a check, which all kinds of session meet.
inline owned_rule plain_rule(const char *name, const char *rejection) {
    return owned_rule(new_rule(name, nullptr, 1, 1, 1, 1, rejection));
}

// A rule table: empty, to be filled by hand, or one that the product has built.
class rule_list {
  public:
    explicit rule_list(vc_list_entry *built = nullptr) : head(built) {}
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

} // namespace quillfence::testing
