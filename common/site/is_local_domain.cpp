#include "is_local_domain.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "domain_lines.h"
#include "evidence.h"
#include "frozen_domains.h"
#include "frozen_files.h"
#include "me_settings.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "common/is_local_domain";

// Whether the line's text before its first TAB is the domain.
static bool names_domain(const char *line, size_t length, const char *domain,
                         size_t domain_length) {
    return length > domain_length && line[domain_length] == '\t' &&
           !memchr(line, '\t', domain_length) && same_letters(line, domain, domain_length);
}

// Walks over the lines to the first that names the domain.
static void walk_lines(domain_lines *in, domain_table_search *search) {
    const size_t domain_length = strlen(search->domain);
    size_t length;
    while (const char *const line = take_domain_line(in, &length)) {
        ++search->lines;
        if (names_domain(line, length, search->domain, domain_length)) {
            search->line = search->lines;
            return;
        }
    }
}

// False when the file does not open.
static bool search_file(domain_lines *in, domain_table_search *search) {
    in->file = vc_open_existing(search->path);
    if (in->file == vc_invalid_handle) {
        return false;
    }
    walk_lines(in, search);
    vc_close(in->file);
    return true;
}

// The lines of a frozen table, or of the file.
static bool search_lines(const frozen_file *frozen, domain_table_search *search) {
    const heap_ptr<domain_lines> in(static_cast<domain_lines *>(calloc(1, sizeof(domain_lines))));
    if (!in) {
        QF_ERRNO_AS("is_local_domain", ENOMEM);
        return false;
    }
    if (!frozen) {
        return search_file(in.get(), search);
    }
    in->rest = frozen->bytes;
    in->rest_size = frozen->size;
    walk_lines(in.get(), search);
    return true;
}

static bool table_holds(const char *path, const char *domain) {
    domain_table_search search = {.path = path, .domain = domain};
    const frozen_file *const frozen = frozen_file_of(path_to_read(path));
    if (frozen && frozen->domains) {
        frozen_domains_find(frozen->domains, domain, &search.lines, &search.line);
    } else if (!search_lines(frozen && frozen->bytes ? frozen : nullptr, &search)) {
        return false;
    }
    tell(&evidence_sink::searched_domain_table, search);
    return search.line != 0;
}

char *__domain_table_path() {
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
    const heap_string path(__domain_table_path());
    return path && vc_file_exists_ex(path.get(), vc_type_file) && table_holds(path.get(), at + 1);
}

} // namespace quillfence
