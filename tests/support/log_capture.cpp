#include "log_capture.h"

#include <cstdarg>
#include <cstring>

#include "failing_memory.h"
#include "platform/process.h"
#include "vc_w32.h"

namespace quillfence::testing {

namespace {

std::vector<log_line> captured;

std::string text_argument(const char *text) {
    return text ? text : "(null)";
}

int capture_line(int priority, const char *format, ...) {
    const allocation_pause pause;
    log_line line;
    line.priority = priority;
    va_list arguments;
    va_start(arguments, format);
    if (!std::strcmp(format, "%s")) {
        line.message = text_argument(va_arg(arguments, const char *));
    } else {
        const char *const expected = priority == priority_error     ? "%s:%d ERROR %s(): %s"
                                     : priority == priority_warning ? "%s:%d WARNING %s(): %s"
                                                                    : "%s:%d DEBUG %s(): %s";
        EXPECT_STREQ(format, expected) << "a log line of an unknown form";
        line.source = text_argument(va_arg(arguments, const char *));
        line.line = va_arg(arguments, int);
        line.function = text_argument(va_arg(arguments, const char *));
        line.message = text_argument(va_arg(arguments, const char *));
    }
    va_end(arguments);
    captured.push_back(line);
    return 0;
}

std::string shown(const log_line &line) {
    return line.function + ": " + line.message;
}

} // namespace

log_capture::log_capture(bool verbose) {
    captured.clear();
    platform::environment_set("VERBOSEDEBUG", verbose ? "1" : nullptr);
    __vc_forget_verbosedebug();
    vc_set_log_function(capture_line);
}

log_capture::~log_capture() {
    vc_set_log_function(nullptr);
    for (const std::string &error : errors()) {
        ADD_FAILURE() << "unexpected ERROR line: " << error;
    }
}

std::vector<log_line> log_capture::take() {
    std::vector<log_line> taken;
    taken.swap(captured);
    return taken;
}

std::vector<std::string> log_capture::errors() {
    std::vector<std::string> texts;
    for (const log_line &line : take()) {
        if (line.priority == priority_error) {
            texts.push_back(shown(line));
        }
    }
    return texts;
}

std::vector<std::string> log_capture::debugs() {
    std::vector<std::string> texts;
    for (const log_line &line : take()) {
        if (line.priority == priority_debug) {
            texts.push_back(shown(line));
        } else if (line.priority == priority_error) {
            captured.push_back(line);
        }
    }
    return texts;
}

std::vector<std::string> log_capture::transcript() {
    std::vector<std::string> texts;
    for (const log_line &line : take()) {
        if (line.priority == priority_error) {
            texts.push_back("E " + shown(line));
        } else if (line.priority == priority_warning) {
            texts.push_back("W " + shown(line));
        } else if (line.priority == priority_debug) {
            texts.push_back("D " + shown(line));
        } else {
            texts.push_back("I " + line.message);
        }
    }
    return texts;
}

} // namespace quillfence::testing
