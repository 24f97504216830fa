#include "revision.h"

#include <cstring>

#include "platform/digest.h"
#include "snapshot_file.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

// The lines of all files as one text; null without memory.
static char *text_of_files(const frozen_files *files) {
    size_t size = 1;
    for (size_t i = 0; i < files->row_count; ++i) {
        size += sizeof files->rows[i].sha256 + strlen(files->rows[i].path) + 2;
    }
    char *const text = static_cast<char *>(calloc(size, 1));
    char *end = text;
    for (size_t i = 0; text && i < files->row_count; ++i) {
        const frozen_file &row = files->rows[i];
        if (!row.is_file()) {
            continue;
        }
        const char *const parts[] = {row.sha256, "  ", row.path, "\n"};
        for (const char *part : parts) {
            const size_t length = strlen(part);
            memcpy(end, part, length);
            end += length;
        }
    }
    return text;
}

bool __set_revision(frozen_files *files) {
    static constexpr char kind[] = "sha256:";
    const heap_string text(text_of_files(files));
    memcpy(files->revision, kind, sizeof kind);
    return text && __sha256_text(text.get(), strlen(text.get()), files->revision + sizeof kind - 1);
}

} // namespace quillfence
