#include "frozen_domains.h"

#include <cstdlib>
#include <cstring>

#include "domain_lines.h"
#include "vc_text.h"

namespace quillfence {

namespace {

// A line that names a domain: its text before the first TAB.
struct hosted {
    uint32_t begin; // in the bytes
    uint32_t length;
    uint32_t line;
};

} // namespace

// In one block: this, the domains, the slots.
struct frozen_domains {
    const char *bytes;
    size_t size; // of the block
    uint32_t line_count;
    uint32_t count;
    uint32_t slot_mask;
    hosted *rows;
    uint32_t *slots; // row numbers from 1; 0 is an empty slot
};

static size_t hash_of(const char *text, size_t length) {
    uint64_t hash = 14695981039346656037u; // FNV-1a
    for (size_t i = 0; i < length; ++i) {
        hash = (hash ^ static_cast<unsigned char>(to_lower(text[i]))) * 1099511628211u;
    }
    return static_cast<size_t>(hash ^ hash >> 32);
}

// The slot of a domain, or the empty one in which it would stand.
static uint32_t *slot_of(const frozen_domains *of, const char *domain, size_t length) {
    for (size_t slot = hash_of(domain, length);; ++slot) {
        uint32_t *const number = &of->slots[slot & of->slot_mask];
        if (!*number) {
            return number;
        }
        const hosted &row = of->rows[*number - 1];
        if (row.length == length && same_letters(of->bytes + row.begin, domain, length)) {
            return number;
        }
    }
}

// Calls back for every line that names a domain; returns how many lines there are.
template <class Callback>
static uint32_t for_domains(domain_lines *in, const char *bytes, uint64_t size, Callback callback) {
    memset(in, 0, sizeof *in);
    in->rest = bytes;
    in->rest_size = size;
    uint32_t count = 0;
    size_t length = 0;
    while (const char *const line = take_domain_line(in, &length)) {
        ++count;
        const auto *const tab = static_cast<const char *>(memchr(line, '\t', length));
        if (tab && tab != line) {
            const uint64_t behind = in->rest_size + in->end - static_cast<size_t>(line - in->bytes);
            callback(hosted{.begin = static_cast<uint32_t>(size - behind),
                            .length = static_cast<uint32_t>(tab - line),
                            .line = count});
        }
    }
    return count;
}

static frozen_domains *new_domains(uint32_t count) {
    size_t slots = 4;
    while (slots < 2 * size_t{count}) {
        slots *= 2;
    }
    const size_t size = sizeof(frozen_domains) + count * sizeof(hosted) + slots * sizeof(uint32_t);
    auto *const made = static_cast<frozen_domains *>(calloc(1, size));
    if (made) {
        made->size = size;
        made->slot_mask = static_cast<uint32_t>(slots - 1);
        made->rows = reinterpret_cast<hosted *>(made + 1);
        made->slots = reinterpret_cast<uint32_t *>(made->rows + count);
    }
    return made;
}

frozen_domains *frozen_domains_make(const char *bytes, uint64_t size) {
    const heap_ptr<domain_lines> in(static_cast<domain_lines *>(malloc(sizeof(domain_lines))));
    if (!in) {
        return nullptr;
    }
    uint32_t count = 0;
    const uint32_t lines =
        for_domains(in.get(), bytes, size, [&count](const hosted &) { ++count; });
    frozen_domains *const made = new_domains(count);
    if (!made) {
        return nullptr;
    }
    made->bytes = bytes;
    made->line_count = lines;
    for_domains(in.get(), bytes, size, [made](const hosted &row) {
        uint32_t *const slot = slot_of(made, made->bytes + row.begin, row.length);
        if (!*slot) { // the first line of a domain counts
            made->rows[made->count++] = row;
            *slot = made->count;
        }
    });
    return made;
}

void frozen_domains_free(frozen_domains *domains) {
    free(domains);
}

size_t frozen_domains_size(const frozen_domains *domains) {
    return domains->size;
}

void frozen_domains_find(const frozen_domains *domains, const char *domain, uint32_t *lines,
                         uint32_t *line) {
    const uint32_t number = *slot_of(domains, domain, strlen(domain));
    *line = number ? domains->rows[number - 1].line : 0;
    *lines = number ? *line : domains->line_count;
}

} // namespace quillfence
