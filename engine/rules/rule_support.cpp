#include "rule_support.h"

#include <cstring>

#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

void trim_session_text(char **slot) {
    const char *const text = *slot;
    if (is_empty(text)) {
        return;
    }
    if (*text == ' ' || text[strlen(text) - 1] == ' ') {
        vc_trim(slot);
    }
}

} // namespace quillfence
