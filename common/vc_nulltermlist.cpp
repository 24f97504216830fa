#include "vc_nulltermlist.h"

#include <cstdlib>
#include <cstring>

#include "evidence.h"
#include "vc_log.h"
#include "vc_text.h"
#include "vc_w32.h"

namespace quillfence {

static constexpr char module_name[] = "vc_nulltermlist";

// Gives the array room for count elements and the terminator. False without memory: the array
// stays as it is.
static bool make_room(void ***list, size_t count) {
    void **grown = static_cast<void **>(realloc(*list, (count + 1) * sizeof **list));
    if (!grown) {
        return false;
    }
    *list = grown;
    return true;
}

// Appends behind the count elements that the caller has counted, and reports as vc_lstcat.
static void **append_at(void ***list, size_t count, void *element) {
    if (!make_room(list, count + 1)) {
        QF_ERRNO_AS("vc_lstcat", ENOMEM);
        return nullptr;
    }
    (*list)[count] = element;
    (*list)[count + 1] = nullptr;
    return *list;
}

static bool same_element(const void *element, const void *value, vc_element_compare compare) {
    return compare ? compare(element, value) == 0 : element == value;
}

void **vc_lstcat(void ***list, void *element) {
    if (!list || !element) {
        QF_EINVAL();
        return nullptr;
    }
    return append_at(list, vc_lstcount(*list), element);
}

void **vc_lstappend(void ***list, void **second) {
    if (!list) {
        QF_EINVAL();
        return nullptr;
    }
    const bool own = second == *list;
    const size_t count = vc_lstcount(*list);
    const size_t added = vc_lstcount(second);
    if (!make_room(list, count + added)) {
        QF_ENOMEM();
        return nullptr;
    }
    if (added) {
        memcpy(*list + count, own ? *list : second, added * sizeof **list);
    }
    (*list)[count + added] = nullptr;
    return *list;
}

void **vc_lstfind(void **list, const void *value, vc_element_compare compare) {
    if (!list || !value) {
        QF_EINVAL();
        return nullptr;
    }
    for (; *list; ++list) {
        if (same_element(*list, value, compare)) {
            return list;
        }
    }
    return nullptr;
}

int vc_lstequal(void **a, void **b, vc_element_compare compare) {
    if (!a || !b) {
        QF_EINVAL();
        return -1;
    }
    for (; *a && *b; ++a, ++b) {
        if (!same_element(*a, *b, compare)) {
            return 0;
        }
    }
    return !*a && !*b;
}

int vc_lstsplode_ex(void ***list, const char *text, char separator, int keep_empty) {
    if (!list || !text || !separator) {
        QF_EINVAL();
        return 0;
    }
    if (!*text) {
        return 1;
    }
    const char *const end = text + strlen(text);
    size_t count = vc_lstcount(*list);
    while (text <= end) {
        const void *found = memchr(text, separator, static_cast<size_t>(end - text));
        const char *const stop = found ? static_cast<const char *>(found) : end;
        if (stop != text || keep_empty) {
            heap_string piece(vc_strndup(text, static_cast<size_t>(stop - text)));
            if (!piece) {
                QF_ENOMEM();
                return 0;
            }
            if (!append_at(list, count, piece.get())) {
                QF_ERROR("Failed to append entry to list");
                tell_no_memory(__func__);
                return 0;
            }
            piece.release();
            ++count;
        }
        text = stop + 1;
    }
    return 1;
}

int vc_lstremove(void **list, uint32_t index, vc_element_release release) {
    const uint32_t count = vc_lstcount(list);
    if (index >= count) {
        QF_EINVAL();
        return 0;
    }
    if (release) {
        release(list[index]);
    }
    memmove(list + index, list + index + 1, (count - index) * sizeof *list);
    return 1;
}

uint32_t vc_lstcount(void **list) {
    uint32_t count = 0;
    while (list && list[count]) {
        ++count;
    }
    return count;
}

void vc_lstfree(void ***list, vc_element_release release) {
    if (!list) {
        QF_EINVAL();
        return;
    }
    for (void **element = *list; release && element && *element; ++element) {
        release(*element);
    }
    free(*list);
    *list = nullptr;
}

} // namespace quillfence
