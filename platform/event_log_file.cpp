#include "event_log_file.h"

#include <cstdlib>
#include <cstring>

#include "errno_of_error.h"
#include "platform/error_numbers.h"
#include "platform/format.h"

namespace quillfence::platform {

static constexpr size_t longest_line = 4096;
static constexpr file_options appending = {.append = true, .when = disposition::open_always};

static const char *word_of(event_type type) {
    switch (type) {
    case event_type::error:
        return "error";
    case event_type::warning:
        return "warning";
    default:
        return "success";
    }
}

static bool write_line(file_handle file, event_type type, const char *ident, const char *message) {
    char line[longest_line];
    if (format_text(line, sizeof line - 1, "%s %s: %s", word_of(type), ident, message) < 0) {
        line[sizeof line - 2] = '\0'; // cut
    }
    for (char *c = line; *c; ++c) {
        if (*c == '\n' || *c == '\r') {
            *c = ' ';
        }
    }
    const size_t length = strlen(line);
    line[length] = '\n';
    uint32_t written = 0;
    return file_write(file, line, static_cast<uint32_t>(length + 1), &written) == error_none &&
           written == length + 1;
}

static void say_not_opened(const char *path, uint32_t error, const char *source) {
    char message[longest_line];
    format_text(message, sizeof message, "QUILLFENCE_EVENT_LOG can't be opened (%s): %s",
                strerror(errno_of_error(error)), path);
    write_line(file_standard_error(), event_type::error, source, message);
}

file_handle event_file_open(const char *source) {
    const char *const path = getenv("QUILLFENCE_EVENT_LOG");
    if (!path || !*path) {
        return invalid_file;
    }
    if (strcmp(path, "-") == 0) {
        return file_standard_error();
    }
    file_handle file = invalid_file;
    if (const uint32_t error = file_open(path, appending, &file)) {
        say_not_opened(path, error, source);
        return file_standard_error();
    }
    return file;
}

void event_file_close(file_handle file) {
    if (file != file_standard_error()) {
        file_close(file);
    }
}

void event_file_report(file_handle file, event_type type, const char *ident, const char *message) {
    const file_handle shown = file_standard_error();
    if (!write_line(file, type, ident, message) && file != shown) {
        write_line(shown, type, ident, message);
    }
}

} // namespace quillfence::platform
