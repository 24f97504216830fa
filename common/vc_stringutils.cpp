#include "vc_stringutils.h"

#include <cstdlib>
#include <cstring>
#include <functional>

#include "vc_log.h"
#include "vc_text.h"
#include "vc_w32.h"

namespace quillfence {

static constexpr char module_name[] = "vc_stringutils";

// Room for a text, which is empty.
static char *new_text(size_t size) {
    char *const text = static_cast<char *>(malloc(size));
    if (text) {
        *text = '\0';
    }
    return text;
}

static void put(char **slot, char *text) {
    free(*slot);
    *slot = text;
}

// Gives the slot's string room for a text of the given length; a string that is longer loses its
// end. False without memory: the slot stays as it is.
static bool resize(char **slot, size_t length) {
    char *const resized = static_cast<char *>(realloc(*slot, length + 1));
    if (resized) {
        *slot = resized;
    }
    return resized;
}

// Whether a pointer leads into the text, its NUL included.
static bool lies_in(const char *pointer, const char *text, size_t length) {
    const std::less_equal<const char *> not_behind;
    return not_behind(text, pointer) && not_behind(pointer, text + length);
}

static const char *skip_spaces(const char *text) {
    while (is_space(*text)) {
        ++text;
    }
    return text;
}

// Just behind the last character of first..end that is not white space; first when there is none.
static const char *last_kept(const char *first, const char *end) {
    while (end != first && is_space(end[-1])) {
        --end;
    }
    return end;
}

template <char convert(char)>
static void convert_in_place(const char *operation, char *text) {
    if (!text) {
        QF_ERRNO_AS(operation, EINVAL);
        return;
    }
    QF_DEBUG_AS(operation, "converting from [%s]", text);
    for (char *c = text; *c; ++c) {
        *c = convert(*c);
    }
    QF_DEBUG_AS(operation, "converted to [%s]", text);
}

int vc_strcat(char **slot, const char *source) {
    if (!slot || !source) {
        QF_EINVAL();
        return 0;
    }
    const bool fresh = !*slot;
    QF_DEBUG("%s",
             fresh ? "destination is NULL - new string" : "destination set - reallocating length");
    const size_t length = fresh ? 0 : strlen(*slot);
    const size_t added = strlen(source);
    // A source inside the slot's own text moves with it.
    const bool own = !fresh && lies_in(source, *slot, length);
    const size_t offset = own ? static_cast<size_t>(source - *slot) : 0;
    if (!resize(slot, length + added)) {
        QF_ENOMEM();
        return 0;
    }
    QF_DEBUG("%s", fresh ? "allocated" : "destination length reallocated");
    memcpy(*slot + length, own ? *slot + offset : source, added);
    (*slot)[length + added] = '\0';
    QF_DEBUG("string appended [%s]", *slot);
    return 1;
}

int vc_ccat(char **slot, char character) {
    if (!slot || !character) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("original string [%s] character to append [%c]", text_or_null(*slot), character);
    const size_t length = *slot ? strlen(*slot) : 0;
    if (!resize(slot, length + 1)) {
        QF_ENOMEM();
        return 0;
    }
    (*slot)[length] = character;
    (*slot)[length + 1] = '\0';
    QF_DEBUG("character appended [%s] [%c]", *slot, character);
    return 1;
}

// The bytes that vc_ltoa allocates. The most negative value can't be negated: its magnitude stays
// negative and counts as one digit.
static int decimal_size(int32_t value) {
    int size = value < 0 ? 3 : 2;
    int32_t magnitude = value < 0 ? static_cast<int32_t>(0u - static_cast<uint32_t>(value)) : value;
    for (; magnitude > 9; magnitude /= 10) {
        ++size;
    }
    return size;
}

int vc_ltoa(char **slot, int32_t value) {
    if (!slot) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("converting [%ld]", static_cast<long>(value));
    if (value < 0) {
        QF_DEBUG("added room for '-' sign");
    }
    const int size = decimal_size(value);
    QF_DEBUG("determined buffer size of %d", size);
    char *const text = new_text(static_cast<size_t>(size));
    if (!text) {
        QF_ENOMEM();
        return 0;
    }
    QF_DEBUG("buffer allocated");
    // Kept on purpose: the most negative value is cut to "-2".
    platform::format_text(text, static_cast<size_t>(size), "%ld", static_cast<long>(value));
    QF_DEBUG("converted to %s", text);
    if (*slot) {
        QF_DEBUG("destination buffer already set - calling free to replace");
    }
    put(slot, text);
    return 1;
}

int vc_icat(char **slot, int32_t value) {
    if (!slot) {
        QF_EINVAL();
        return 0;
    }
    char *number = nullptr;
    const int appended = vc_ltoa(&number, value) && vc_strcat(slot, number);
    free(number);
    return appended;
}

void vc_lower(char *text) {
    convert_in_place<to_lower>(__func__, text);
}

void vc_upper(char *text) {
    convert_in_place<to_upper>(__func__, text);
}

int vc_trim_right(char *text) {
    if (!text) {
        QF_EINVAL();
        return 0;
    }
    for (char *end = text + strlen(text); end != text && is_space(end[-1]);) {
        *--end = '\0';
    }
    return 1;
}

int vc_trim_left(char *text) {
    if (!text) {
        QF_EINVAL();
        return 0;
    }
    const char *const first = skip_spaces(text);
    if (first != text) {
        memmove(text, first, strlen(first) + 1);
    }
    return 1;
}

int vc_trim_ex(char *text, int flags) {
    if (!text || !(flags & (vc_trim_flag_left | vc_trim_flag_right))) {
        QF_EINVAL();
        return 0;
    }
    if (*text && (flags & vc_trim_flag_right)) {
        vc_trim_right(text);
    }
    if (*text && (flags & vc_trim_flag_left)) {
        vc_trim_left(text);
    }
    return 1;
}

int vc_trim(char **slot) {
    if (!slot || !*slot) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("parameter [%s]", *slot);
    if (!**slot) {
        return 1;
    }
    // The three checks can't fail while the text holds still; they tell of one that changes
    // meanwhile.
    const char *const first = skip_spaces(*slot);
    if (!first) {
        QF_ERROR("ended up with NULL pointer while walking through [%s]", *slot);
        return 0;
    }
    const char *const terminator = first + strlen(first);
    if (*terminator) {
        QF_ERROR("ended up with unexpected end pointer while walking through [%s]", *slot);
        return 0;
    }
    const char *const end = last_kept(first, terminator);
    if (!end) {
        QF_ERROR("ended up with NULL pointer while walking backward through [%s]", *slot);
        return 0;
    }
    // On purpose before the copy: without memory for it the text has lost its right end already.
    (*slot)[end - *slot] = '\0';
    char *const kept = strdup(first);
    if (!kept) {
        QF_ENOMEM();
        return 0;
    }
    put(slot, kept);
    if (*kept) {
        QF_DEBUG("trimmed is [%s]", kept);
    }
    return 1;
}

int vc_chomp(char **slot) {
    if (!slot || !*slot) {
        QF_EINVAL();
        return 0;
    }
    QF_DEBUG("parameter [%s]", *slot);
    const size_t length = strcspn(*slot, "\r\n");
    if (!resize(slot, length)) {
        QF_ENOMEM();
        return 0;
    }
    (*slot)[length] = '\0';
    QF_DEBUG("converted to [%s]", *slot);
    return 1;
}

int vc_simplify_whitespace(char **slot) {
    if (!slot || !*slot) {
        QF_EINVAL();
        return 0;
    }
    if (!vc_trim(slot)) {
        return 0;
    }
    if (!**slot) {
        QF_DEBUG("empty string: nothing to simplify");
        return 1;
    }
    char *out = *slot;
    for (const char *in = *slot; *in;) {
        if (is_space(in[0]) && is_space(in[1])) {
            *out++ = ' ';
            in = skip_spaces(in);
        } else {
            *out++ = *in++;
        }
    }
    *out = '\0';
    QF_DEBUG("simplified is [%s]", *slot);
    return 1;
}

int vc_strip_whitespace(char **slot) {
    if (!slot || !*slot) {
        QF_EINVAL();
        return 0;
    }
    if (!**slot) {
        QF_DEBUG("no length to string... no point in going on");
        return 1;
    }
    size_t kept = 0;
    size_t length = 0;
    for (; (*slot)[length]; ++length) {
        kept += !is_space((*slot)[length]);
    }
    if (kept != length) {
        char *const stripped = new_text(kept + 1);
        if (!stripped) {
            QF_ENOMEM();
            return 0;
        }
        char *out = stripped;
        for (const char *in = *slot; *in; ++in) {
            if (!is_space(*in)) {
                *out++ = *in;
            }
        }
        *out = '\0';
        put(slot, stripped);
    }
    QF_DEBUG("stripped is [%s]", *slot);
    return 1;
}

namespace {

// A replacement at work: what is searched and what comes in its place.
struct replace_pair {
    const char *pattern;
    size_t pattern_length;
    const char *replacement;
    size_t replacement_length;
};

} // namespace

static const char *find_ignoring_case(const char *text, const char *pattern,
                                      size_t pattern_length) {
    for (; *text; ++text) {
        if (same_letters(text, pattern, pattern_length)) {
            return text;
        }
    }
    return nullptr;
}

// How often the pattern occurs, counted without overlaps.
static size_t count_occurrences(const char *text, const replace_pair &pair) {
    size_t count = 0;
    for (; (text = strstr(text, pair.pattern)); text += pair.pattern_length) {
        ++count;
    }
    return count;
}

// The size of a text whose occurrences all grow, NUL included; false when no size can hold it.
static bool grown_size(size_t length, const replace_pair &pair, size_t count, size_t *size) {
    const size_t growth = pair.replacement_length - pair.pattern_length;
    return !__builtin_mul_overflow(growth, count, size) &&
           !__builtin_add_overflow(*size, length, size) && !__builtin_add_overflow(*size, 1, size);
}

// Appends so many of the characters as there is room for before end; returns where they end.
static char *append(char *out, const char *end, const char *from, size_t count) {
    const size_t room = static_cast<size_t>(end - out);
    const size_t kept = count < room ? count : room;
    memcpy(out, from, kept);
    return out + kept;
}

// A copy of the text with every occurrence replaced, cut to the given size, NUL included; null
// without memory.
static char *copy_replacing(const char *text, const replace_pair &pair, size_t size) {
    char *const copy = new_text(size);
    if (!copy) {
        return nullptr;
    }
    char *out = copy;
    const char *const end = copy + size - 1;
    for (const char *match; out < end && (match = strstr(text, pair.pattern));) {
        out = append(out, end, text, static_cast<size_t>(match - text));
        out = append(out, end, pair.replacement, pair.replacement_length);
        text = match + pair.pattern_length;
    }
    out = append(out, end, text, strlen(text));
    *out = '\0';
    return copy;
}

static constexpr char replace_operation[] = "vc_str_replace";

static void cut(char *text, size_t limit) {
    if (strnlen(text, limit) == limit) {
        text[limit] = '\0';
    }
}

// Replaces by something longer, in a copy that is cut at limit characters.
static int replace_larger(char **slot, const replace_pair &pair, size_t limit) {
    const size_t count = count_occurrences(*slot, pair);
    QF_DEBUG_AS(replace_operation, "Detected %zu patterns to replace", count);
    if (!count) {
        cut(*slot, limit);
        return 1;
    }
    size_t size;
    if (!grown_size(strlen(*slot), pair, count, &size)) {
        size = SIZE_MAX; // more than there is
    }
    char *const replaced = copy_replacing(*slot, pair, size > limit ? limit + 1 : size);
    if (!replaced) {
        QF_ERRNO_AS(replace_operation, ENOMEM);
        return 0;
    }
    put(slot, replaced);
    return 1;
}

int vc_str_replace_within(char **slot, const char *pattern, const char *replacement, size_t limit) {
    if (!slot || !*slot || is_empty(pattern) || !replacement) {
        QF_ERRNO_AS(replace_operation, EINVAL);
        return 0;
    }
    const replace_pair pair = {pattern, strlen(pattern), replacement, strlen(replacement)};
    if (pair.pattern_length < pair.replacement_length) {
        return replace_larger(slot, pair, limit);
    }
    int replaced = 1;
    if (!strcmp(pattern, replacement)) {
        QF_DEBUG_AS(replace_operation,
                    "search and replace patterns are the same: nothing to do [%s]", *slot);
    } else {
        QF_DEBUG_AS(replace_operation, "calling vc_str_replace_smaller for improved performance");
        replaced = vc_str_replace_smaller_ex(*slot, pattern, replacement, 1);
    }
    cut(*slot, limit);
    return replaced;
}

int vc_str_replace(char **slot, const char *pattern, const char *replacement) {
    return vc_str_replace_within(slot, pattern, replacement, SIZE_MAX - 1);
}

// Between the finished part of the text and the part that is still to be searched lies a gap, into
// which nothing ever has to be moved twice:
//
//     finished part | gap ........ | replacement just written | rest of the text
//     text          ^ out                 ^ unsearched
//
// A replacement is written to the end of its match, and the search goes on at its first character.
int vc_str_replace_smaller_ex(char *text, const char *pattern, const char *replacement,
                              int case_sensitive) {
    if (!text || is_empty(pattern) || !replacement) {
        QF_EINVAL();
        return 0;
    }
    if (!*text) {
        return 1;
    }
    const size_t pattern_length = strlen(pattern);
    const size_t replacement_length = strlen(replacement);
    if (pattern_length < replacement_length) {
        QF_ERROR("Pattern [%s] is shorter than it's replacement [%s]. Use vc_str_replace() "
                 "instead!",
                 pattern, replacement);
        return 0;
    }
    QF_DEBUG("replacing [%s] with [%s] in [%s]", pattern, replacement, text);
    const auto find = [=](const char *from) {
        return case_sensitive ? strstr(from, pattern)
                              : find_ignoring_case(from, pattern, pattern_length);
    };
    const char *const end = text + strlen(text);
    const size_t shrink = pattern_length - replacement_length;
    char *out = text;
    char *unsearched = text;
    const bool endless = !shrink && find(replacement); // the replacement is the pattern again
    for (const char *match; (match = find(unsearched));) {
        if (match > end) {
            QF_ERROR("critical error detected indicative of memory issues");
            return 0;
        }
        if (endless) {
            QF_ERROR("Replacement [%s] matches pattern [%s]: replacing it would never end",
                     replacement, pattern);
            return 0;
        }
        const size_t between = static_cast<size_t>(match - unsearched);
        memmove(out, unsearched, between);
        out += between;
        unsearched += between + shrink;
        memcpy(unsearched, replacement, replacement_length);
    }
    memmove(out, unsearched, static_cast<size_t>(end - unsearched) + 1);
    QF_DEBUG("pattern %s not found - nothing to replace", pattern);
    return 1;
}

// The work of both formatting operations, reported under their names.
static int format_into_slot(const char *operation, char **slot, const char *format,
                            va_list arguments) {
    if (!slot || !format) {
        QF_ERRNO_AS(operation, EINVAL);
        return -1;
    }
    va_list measured;
    va_copy(measured, arguments);
    const int length = platform::measure_text(format, measured);
    va_end(measured);
    if (length < 0) {
        QF_ERROR_AS(operation, "Failed to determine the necessary buffer size");
        return -1;
    }
    const size_t size = static_cast<size_t>(length) + 1;
    heap_string text(new_text(size));
    if (!text) {
        QF_ERRNO_AS(operation, ENOMEM);
        return -1;
    }
    if (platform::vformat_text(text.get(), size, format, arguments) != length) {
        QF_ERROR_AS(operation, "Failed to completely write formatted string to buffer");
        return -1;
    }
    *slot = text.release();
    return length;
}

int vc_asprintf(char **slot, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = format_into_slot(__func__, slot, format, arguments);
    va_end(arguments);
    return length;
}

int vc_vasprintf(char **slot, const char *format, va_list arguments) {
    return format_into_slot(__func__, slot, format, arguments);
}

char *vc_concatenate(const char *first, const char *second, const char *third) {
    const size_t lengths[] = {strlen(first), strlen(second), strlen(third)};
    char *const text = new_text(lengths[0] + lengths[1] + lengths[2] + 1);
    if (!text) {
        QF_ENOMEM();
        return nullptr;
    }
    memcpy(text, first, lengths[0]);
    memcpy(text + lengths[0], second, lengths[1]);
    memcpy(text + lengths[0] + lengths[1], third, lengths[2] + 1);
    return text;
}

char *vc_strdup_till(const char *text, const char **end, char stop) {
    if (!text || !stop) {
        QF_EINVAL();
        return nullptr;
    }
    const char *const found = strchr(text, stop);
    const char *const stopped_at = found ? found : text + strlen(text);
    char *const copy = vc_strndup(text, static_cast<size_t>(stopped_at - text));
    if (!copy) {
        QF_ENOMEM();
        return nullptr;
    }
    if (end) {
        *end = stopped_at;
    }
    return copy;
}

} // namespace quillfence
