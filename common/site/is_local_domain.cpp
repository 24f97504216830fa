#include "is_local_domain.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "evidence.h"
#include "me_settings.h"
#include "read_ahead.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "common/is_local_domain";

static constexpr uint32_t line_size = 1023; // bytes of a line, without a terminator

// The file in pieces that hold many lines, because vc_readline asks the system three times a line.
struct tab_reader {
    vc_handle file;
    char bytes[16384];
    size_t begin;
    size_t end; // what has been read and not yet taken is [begin, end)
    bool at_end;
};

// Sees to it that a whole line is there, unless the file ends before.
static bool fill(tab_reader *in) {
    if (in->at_end || in->end - in->begin >= line_size) {
        return true;
    }
    move_rest_to_front(in->bytes, &in->begin, &in->end);
    uint32_t delivered = 0;
    const size_t room = sizeof in->bytes - in->end;
    if (!vc_read_nonblock(in->file, in->bytes + in->end, static_cast<int64_t>(room), 1, 0,
                          &delivered)) {
        return false;
    }
    in->end += delivered;
    in->at_end = delivered < room;
    return true;
}

// Takes the next line, which is not terminated; null at the end of the file.
static const char *take_line(tab_reader *in, size_t *length) {
    if (!fill(in)) {
        return nullptr;
    }
    const char *const line = in->bytes + in->begin;
    const size_t left = in->end - in->begin;
    const size_t window = left < line_size ? left : line_size;
    if (!window || !*line) {
        return nullptr;
    }
    const auto *const newline = static_cast<const char *>(memchr(line, '\n', window));
    const size_t reach = newline ? static_cast<size_t>(newline - line) : window;
    *length = strnlen(line, reach);
    const bool ended = newline && *length == reach;
    in->begin += ended ? reach + 1 : window; // also what stands behind a NUL, as in vc_readline
    return line;
}

// Whether the line's text before its first TAB is the domain.
static bool names_domain(const char *line, size_t length, const char *domain,
                         size_t domain_length) {
    return length > domain_length && line[domain_length] == '\t' &&
           !memchr(line, '\t', domain_length) && same_letters(line, domain, domain_length);
}

static bool table_holds(const char *path, const char *domain) {
    const heap_ptr<tab_reader> in(static_cast<tab_reader *>(calloc(1, sizeof(tab_reader))));
    if (!in) {
        QF_ERRNO_AS("is_local_domain", ENOMEM);
        return false;
    }
    in->file = vc_open_existing(path);
    if (in->file == vc_invalid_handle) {
        return false;
    }
    const size_t domain_length = strlen(domain);
    bool held = false;
    size_t length;
    uint32_t lines = 0;
    while (const char *const line = held ? nullptr : take_line(in.get(), &length)) {
        ++lines;
        held = names_domain(line, length, domain, domain_length);
    }
    vc_close(in->file);
    tell(&evidence_sink::searched_domain_table,
         {.path = path, .domain = domain, .lines = lines, .line = held ? lines : 0});
    return held;
}

// The path of the table of domains, null without Mail Enable.
static char *path_of_table() {
    heap_string directory(me_configuration_directory(me_key));
    if (!directory) {
        directory.reset(me_configuration_directory(me_key_32));
    }
    char *path = nullptr;
    if (directory && vc_asprintf(&path, "%s\\DOMAIN.TAB", directory.get()) < 0) {
        QF_ERRNO_AS("is_local_domain", ENOMEM);
        return nullptr;
    }
    return path;
}

int is_local_domain(const char *address) {
    if (is_empty(address)) {
        QF_EINVAL();
        return 0;
    }
    const char *const at = strchr(address, '@');
    if (!at || !at[1]) {
        return 0;
    }
    const heap_string path(path_of_table());
    return path && vc_file_exists_ex(path.get(), vc_type_file) && table_holds(path.get(), at + 1);
}

} // namespace quillfence
