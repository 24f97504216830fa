#include "engine_messages.h"

#include <cstdarg>
#include <cstdio>

#include "data_program.h"
#include "vc_w32.h"

namespace quillfence::data_tool {

engine_messages *engine_messages::current = nullptr;

engine_messages::engine_messages() : outer_(current) {
    current = this;
    vc_set_log_function(log);
}

engine_messages::~engine_messages() {
    current = outer_;
    vc_set_log_function(outer_ ? log : log_to_standard_error);
}

// A line is "module:line ERROR function(): text".
int engine_messages::log(int priority, const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (priority != priority_error) {
        complain(line);
        return 0;
    }
    const std::string text = line;
    const size_t place = text.find("(): ");
    current->texts_.push_back(place == std::string::npos ? text : text.substr(place + 4));
    return 0;
}

std::string engine_messages::take() {
    std::string joined;
    for (const std::string &text : texts_) {
        joined += joined.empty() ? text : "; " + text;
    }
    texts_.clear();
    return joined;
}

} // namespace quillfence::data_tool
