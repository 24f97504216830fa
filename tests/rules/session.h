// A session record for the tests of rules, with its fields as strings.
#pragma once

#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "hook_table.h"
#include "log_capture.h"
#include "smtp_state.h"
#include "vc_nulltermlist.h"
#include "vc_text.h"

namespace quillfence::testing {

class session {
  public:
    session() : state_(new_smtp_state()) {}
    ~session() {
        free_smtp_state(state_);
    }
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    smtp_state *operator->() const {
        return state_;
    }
    operator smtp_state *() const {
        return state_;
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
    smtp_state *state_;
};

// A hook table without hooks, with this DNS option.
inline void put_dns_option(uint8_t option) {
    set_hooks({.dns_option = option});
}

// The lines of one function, without its name, as "D text" and "E text". The function must stand
// as the source, too: rules have a file of their own.
inline lines rule_lines(log_capture &log, const std::string &rule) {
    lines kept;
    for (const log_line &line : log.take()) {
        if (line.function == rule) {
            EXPECT_EQ(line.source, rule) << line.message;
            kept.push_back((line.priority == 3 ? "E " : "D ") + line.message);
        }
    }
    return kept;
}

// What a rule says to a session, as its result and its own lines.
struct verdict {
    int result;
    lines said;
    bool operator==(const verdict &) const = default;
    friend void PrintTo(const verdict &v, std::ostream *out) {
        *out << v.result << " " << ::testing::PrintToString(v.said);
    }
};

inline verdict judged(log_capture &log, const char *name, uint8_t (*rule)(smtp_state *),
                      smtp_state *state) {
    log.take();
    const int result = rule(state);
    return {result, rule_lines(log, name)};
}

// The verdict of a rule in a test with a log.
#define JUDGED(rule, state) judged(log, #rule, rule, state)

} // namespace quillfence::testing
