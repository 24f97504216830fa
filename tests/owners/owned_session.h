// Sessions that go away with their scope.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "smtp_state.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {

struct session_releaser {
    void operator()(smtp_state *state) const {
        free_smtp_state(state);
    }
};
// What the product has made, or null.
using owned_session = std::unique_ptr<smtp_state, session_releaser>;

// A session that a test fills by hand.
class session {
  public:
    session() : state_(new_smtp_state()) {}
    // With this ip; null for none.
    explicit session(const char *ip) : session() {
        put(&state_->ip, ip);
    }

    smtp_state *operator->() const {
        return state_.get();
    }
    operator smtp_state *() const {
        return state_.get();
    }

    // Gives a text field another value; null for none.
    static void put(char **field, const char *text) {
        free(*field);
        *field = text ? strdup(text) : nullptr;
    }
    // Gives the session these PTR names; rdns forgets the old ones.
    void put_ptr_names(const std::vector<std::string> &names) {
        state_->rdns = nullptr;
        vc_lstfree(&state_->ptr_results, free);
        for (const std::string &name : names) {
            vc_lstcat(&state_->ptr_results, strdup(name.c_str()));
        }
    }
    std::vector<std::string> ptr_names() const {
        std::vector<std::string> names;
        for (char **name = state_->ptr_results; name && *name; ++name) {
            names.push_back(*name);
        }
        return names;
    }
    std::string rdns() const {
        return state_->rdns ? state_->rdns : "(none)";
    }

  private:
    owned_session state_;
};

} // namespace quillfence::testing
