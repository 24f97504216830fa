#include "engine_messages.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

namespace quillfence::data_files {

std::atomic<bool> engine_messages::memory_ran_out = false;
vc_log_function engine_messages::otherwise = nullptr;

engine_messages::engine_messages() : vc_log_listener{log}, outer_(vc_thread_log_listener()) {
    vc_set_thread_log_listener(this);
}

engine_messages::~engine_messages() {
    vc_set_thread_log_listener(outer_);
}

// A line is "module:line ERROR function(): text".
static const char *text_of(const char *line) {
    const char *const place = std::strstr(line, "(): ");
    return place ? place + 4 : line;
}

int engine_messages::log(int priority, const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (priority != priority_error) {
        return otherwise ? otherwise(priority, "%s", line) : 0;
    }
    try {
        auto *const listening = static_cast<engine_messages *>(vc_thread_log_listener());
        listening->texts_.emplace_back(text_of(line));
    } catch (const std::bad_alloc &) { // no exception passes through the engine
        memory_ran_out = true;
    }
    return 0;
}

void engine_messages::begin(vc_log_function function) {
    memory_ran_out = false;
    otherwise = function;
    vc_set_log_function(function);
    vc_set_oom_function(note_no_memory);
}

int engine_messages::note_no_memory() {
    memory_ran_out = true;
    return 0;
}

void engine_messages::require_memory() {
    if (memory_ran_out) {
        throw std::bad_alloc();
    }
}

std::string engine_messages::take() {
    require_memory();
    std::string joined;
    for (const std::string &text : texts_) {
        joined += joined.empty() ? text : "; " + text;
    }
    texts_.clear();
    return joined;
}

} // namespace quillfence::data_files
