// What a rule says to a session: its result and its own lines.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "hook_table.h"
#include "log_capture.h"
#include "owned_session.h"

namespace quillfence::testing {

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
