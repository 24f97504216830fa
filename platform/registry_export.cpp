// An open scans the export once. Only lines that begin with "[" are looked at until the wanted key
// comes; the lines of its sections are read as values, in order, and at the end those of the same
// name are sorted out: the last one counts.
//
//   scan ── "[...]" ──> section: the key itself / below it / above it / another one
//     └── in the key itself: name, "=", data ──> note_value (a deletion has no data)
//
// A text between quotes may run over several lines. So that an unclosed quote costs no more than
// its own value, a line that names a key of a known root always begins a section, and a quote that
// is not followed by the line's end closes nothing.
#include "platform/registry_export.h"

#include <initializer_list>

#include "platform/error_numbers.h"
#include "registry_export_text.h"

namespace quillfence::platform {

// --- the text ---

static bool starts_with_bytes(const unsigned char *bytes, size_t size, const char *mark) {
    const size_t length = strlen(mark);
    return size >= length && memcmp(bytes, mark, length) == 0;
}

static bool is_blank(unsigned unit) {
    return unit == ' ' || unit == '\t';
}

static size_t skip_blanks(const export_text &text, size_t at) {
    while (is_blank(unit_at(text, at))) {
        ++at;
    }
    return at;
}

// Whether a line ends here: at LF, CR LF or the text's end.
static bool is_line_end(const export_text &text, size_t at) {
    const unsigned unit = unit_at(text, unit_at(text, at) == '\r' ? at + 1 : at);
    return unit == '\n' || unit == end_of_text;
}

// The place of the next LF, or the text's end.
static size_t find_line_feed(const export_text &text, size_t at) {
    const size_t width = text.wide ? 2 : 1;
    while (at < text.count) {
        const unsigned char *const from = text.bytes + width * at;
        const auto *const found =
            static_cast<const unsigned char *>(memchr(from, '\n', width * (text.count - at)));
        if (!found) {
            break;
        }
        const auto offset = static_cast<size_t>(found - text.bytes);
        at = offset / width;
        if (unit_at(text, at) == '\n') {
            return at;
        }
        ++at; // the byte of another unit
    }
    return text.count;
}

static size_t next_line(const export_text &text, size_t at) {
    const size_t line_feed = find_line_feed(text, at);
    return line_feed < text.count ? line_feed + 1 : text.count;
}

// The place behind a word, which ignores case; 0 when something else stands there.
static size_t skip_word(const export_text &text, size_t at, const char *word) {
    for (; *word; ++word, ++at) {
        if (fold_unit(unit_at(text, at)) != fold_unit(static_cast<unsigned char>(*word))) {
            return 0;
        }
    }
    return at;
}

static bool has_header(export_text *text) {
    for (const char *const header : {export_header_5, export_header_4}) {
        const size_t behind = skip_word(*text, 0, header);
        if (behind && is_line_end(*text, skip_blanks(*text, behind))) {
            text->version_5 = header == export_header_5;
            return true;
        }
    }
    return false;
}

bool begin_export_text(const void *bytes, size_t size, export_text *text) {
    const auto *const from = static_cast<const unsigned char *>(bytes);
    if (starts_with_bytes(from, size, "\xFF\xFE")) {
        *text = {from + 2, (size - 2) / 2, true, true};
    } else {
        const size_t mark = starts_with_bytes(from, size, "\xEF\xBB\xBF") ? 3 : 0;
        *text = {from + mark, size - mark, false, true};
    }
    return has_header(text);
}

// --- sections ---

// A section line: "[" or "[-", a path, "]". The root's name is left out of begin and end.
struct section_line {
    const root_names *root;
    size_t begin, end; // of the path below the root, without the backslash before it
    bool deletes;
};

// Reads a section line of a known root; false for any other line.
static bool read_section_line(const export_text &text, size_t at, section_line *section) {
    at = skip_blanks(text, at);
    if (unit_at(text, at) != '[') {
        return false;
    }
    section->deletes = unit_at(text, ++at) == '-';
    at += section->deletes;
    size_t behind = 0;
    for (const root_names &names : export_roots) {
        for (const char *const name : {names.long_name, names.short_name}) {
            const size_t found = skip_word(text, at, name);
            if (found && (unit_at(text, found) == '\\' || unit_at(text, found) == ']')) {
                section->root = &names;
                behind = found;
            }
        }
    }
    if (!behind) {
        return false;
    }
    // A key's name may hold a bracket: the line's last one closes.
    size_t closing = find_line_feed(text, behind);
    while (closing >= behind && unit_at(text, closing) != ']') {
        --closing;
    }
    if (closing < behind) {
        return false;
    }
    section->begin = unit_at(text, behind) == '\\' ? behind + 1 : behind;
    section->end = closing;
    while (section->end > section->begin && unit_at(text, section->end - 1) == '\\') {
        --section->end;
    }
    return true;
}

enum class relation : uint8_t { other, same, below, above };

// The wanted key: its root, and the units of its path as they stand in this export, folded.
struct wanted_key {
    const char *root;
    growing_bytes units; // two bytes each
    size_t count;
};

static unsigned wanted_unit(const wanted_key &wanted, size_t at) {
    const unsigned char *const unit = wanted.units.bytes + 2 * at;
    return static_cast<unsigned>(unit[0] | unit[1] << 8);
}

// How the section's key stands to the wanted one.
static relation relation_of(const export_text &text, const section_line &section,
                            const wanted_key &wanted) {
    if (strcmp(section.root->long_name, wanted.root) != 0) {
        return relation::other;
    }
    const size_t length = section.end - section.begin;
    const size_t common = length < wanted.count ? length : wanted.count;
    for (size_t i = 0; i < common; ++i) {
        if (fold_unit(unit_at(text, section.begin + i)) != wanted_unit(wanted, i)) {
            return relation::other;
        }
    }
    if (length == wanted.count) {
        return relation::same;
    }
    if (length > common) {
        const bool parted = common == 0 || unit_at(text, section.begin + common) == '\\';
        return parted ? relation::below : relation::other;
    }
    return common > 0 && wanted_unit(wanted, common) == '\\' ? relation::above : relation::other;
}

// A root can't be deleted.
static bool deletes_wanted(const section_line &section, relation to_wanted) {
    return section.deletes && section.end > section.begin &&
           (to_wanted == relation::same || to_wanted == relation::above);
}

// --- values ---

// The parts of a value line while it is read.
struct value_line {
    growing_bytes name;
    growing_bytes data;
    uint32_t type;
    bool deletes;
};

// Units of the export on their way to a byte string.
static void append_text_unit(const export_text &text, utf16_decoder *decoder, unsigned unit) {
    if (text.wide) {
        decode_utf16(decoder, unit);
    } else {
        append_byte(decoder->to, unit);
    }
}

static unsigned unescaped(unsigned unit) {
    switch (unit) {
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case '0':
        return '\0';
    default:
        return unit;
    }
}

// Reads a text from behind its opening quote to behind its closing one; 0 when it is not closed.
static size_t read_quoted(const export_text &text, size_t at, growing_bytes *to) {
    utf16_decoder decoder = {to, 0};
    section_line section;
    for (;;) {
        unsigned unit = unit_at(text, at++);
        if (unit == '"') {
            end_utf16(&decoder);
            return at;
        }
        if (unit == end_of_text || (unit == '\\' && is_line_end(text, at))) {
            return 0;
        }
        if (unit == '\n' && read_section_line(text, at, &section)) {
            return 0;
        }
        append_text_unit(text, &decoder, unit == '\\' ? unescaped(unit_at(text, at++)) : unit);
    }
}

static int hex_digit(unsigned unit) {
    if (unit >= '0' && unit <= '9') {
        return static_cast<int>(unit - '0');
    }
    const unsigned folded = fold_unit(unit);
    return folded >= 'A' && folded <= 'F' ? static_cast<int>(folded - 'A' + 10) : -1;
}

// Reads up to `most` hexadecimal digits; 0 when there is none.
static size_t read_hex(const export_text &text, size_t at, int most, uint32_t *number) {
    *number = 0;
    int digits = 0;
    for (int digit; digits < most && (digit = hex_digit(unit_at(text, at))) >= 0; ++at, ++digits) {
        *number = *number << 4 | static_cast<uint32_t>(digit);
    }
    return digits ? at : 0;
}

static size_t read_dword(const export_text &text, size_t at, value_line *value) {
    uint32_t number;
    at = read_hex(text, at, 8, &number);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        append_byte(&value->data, number >> shift & 0xFF);
    }
    return at;
}

// A line that ends in a backslash goes on in the next one, which must not be empty: the place
// there, else 0.
static size_t behind_continuation(const export_text &text, size_t at) {
    if (unit_at(text, at) != '\\') {
        return 0;
    }
    at = skip_blanks(text, at + 1);
    if (!is_line_end(text, at)) {
        return 0;
    }
    at = skip_blanks(text, next_line(text, at));
    return is_line_end(text, at) ? 0 : at;
}

static bool ends_data(const export_text &text, size_t at) {
    return is_line_end(text, at) || unit_at(text, at) == ';';
}

// Reads bytes with commas between, over several lines where need be.
static size_t read_byte_list(const export_text &text, size_t at, growing_bytes *to) {
    for (;;) {
        at = skip_blanks(text, at);
        if (const size_t continued = behind_continuation(text, at)) {
            at = continued;
        }
        if (ends_data(text, at)) {
            return at;
        }
        uint32_t byte;
        at = read_hex(text, at, 2, &byte);
        if (!at) {
            return 0;
        }
        append_byte(to, byte);
        at = skip_blanks(text, at);
        if (unit_at(text, at) == ',') {
            ++at;
        } else if (!ends_data(text, at) && !behind_continuation(text, at)) {
            return 0;
        }
    }
}

static bool is_text_type(uint32_t type) {
    return type == registry_text || type == registry_expandable_text || type == registry_texts;
}

// The UTF-16 bytes of a text become UTF-8; half a unit at the end is dropped.
static void convert_to_utf8(growing_bytes *data) {
    growing_bytes converted = {};
    utf16_decoder decoder = {&converted, 0};
    for (size_t i = 0; i + 1 < data->size; i += 2) {
        decode_utf16(&decoder, static_cast<unsigned>(data->bytes[i] | data->bytes[i + 1] << 8));
    }
    end_utf16(&decoder);
    converted.no_memory = converted.no_memory || data->no_memory;
    free(data->bytes);
    *data = converted;
}

static size_t read_hex_data(const export_text &text, size_t at, value_line *value) {
    value->type = registry_binary;
    if (unit_at(text, at) == '(') {
        at = read_hex(text, at + 1, 8, &value->type);
        if (!at || unit_at(text, at) != ')') {
            return 0;
        }
        ++at;
    }
    if (unit_at(text, at) != ':') {
        return 0;
    }
    at = read_byte_list(text, at + 1, &value->data);
    if (at && text.version_5 && is_text_type(value->type)) {
        convert_to_utf8(&value->data);
    }
    return at;
}

static size_t read_data(const export_text &text, size_t at, value_line *value) {
    if (unit_at(text, at) == '-') {
        value->deletes = true;
        return at + 1;
    }
    if (unit_at(text, at) == '"') {
        value->type = registry_text;
        at = read_quoted(text, at + 1, &value->data);
        append_byte(&value->data, 0);
        return at;
    }
    if (const size_t number = skip_word(text, at, "dword:")) {
        value->type = registry_dword;
        return read_dword(text, number, value);
    }
    const size_t list = skip_word(text, at, "hex");
    return list ? read_hex_data(text, list, value) : 0;
}

static size_t read_name(const export_text &text, size_t at, value_line *value) {
    return unit_at(text, at) == '@' ? at + 1 : read_quoted(text, at + 1, &value->name);
}

// Reads a value from its name on. Returns the place behind its data, or 0 when it is broken.
static size_t read_value(const export_text &text, size_t at, value_line *value) {
    at = read_name(text, at, value);
    if (!at) {
        return 0;
    }
    at = skip_blanks(text, at);
    if (unit_at(text, at) != '=') {
        return 0;
    }
    at = read_data(text, skip_blanks(text, at + 1), value);
    if (!at) {
        return 0;
    }
    at = skip_blanks(text, at);
    return ends_data(text, at) ? at : 0;
}

// --- what was read ---

static bool make_room(exported_key *key) {
    if (key->count < key->capacity) {
        return true;
    }
    const size_t capacity = key->capacity ? 2 * key->capacity : 16;
    void *const grown = realloc(key->values, capacity * sizeof *key->values);
    if (!grown) {
        return false;
    }
    key->values = static_cast<exported_value *>(grown);
    key->capacity = capacity;
    return true;
}

// A value owns one block: its data, and behind that its name. One that only deletes has no data;
// its name is a block.
static bool note_value(exported_key *key, const value_line &line) {
    if (line.name.no_memory || line.data.no_memory || !make_room(key)) {
        return false;
    }
    const size_t size = line.deletes ? 0 : line.data.size;
    if (size > UINT32_MAX) {
        return true; // no value can be that large
    }
    auto *const block = static_cast<unsigned char *>(malloc(size + line.name.size + 1));
    if (!block) {
        return false;
    }
    if (size) {
        memcpy(block, line.data.bytes, size);
    }
    if (line.name.size) {
        memcpy(block + size, line.name.bytes, line.name.size);
    }
    block[size + line.name.size] = '\0';
    key->values[key->count] = {.name = reinterpret_cast<char *>(block) + size,
                               .data = line.deletes ? nullptr : block,
                               .type = line.type,
                               .size = static_cast<uint32_t>(size),
                               .order = key->count};
    ++key->count;
    return true;
}

static void free_value(const exported_value &value) {
    free(const_cast<char *>(value.name - value.size));
}

static void forget_values(exported_key *key) {
    for (size_t i = 0; i < key->count; ++i) {
        free_value(key->values[i]);
    }
    key->count = 0;
}

static int compare_names(const char *one, const char *other) {
    for (;; ++one, ++other) {
        const unsigned left = fold_unit(static_cast<unsigned char>(*one));
        const unsigned right = fold_unit(static_cast<unsigned char>(*other));
        if (left != right || !left) {
            return static_cast<int>(left) - static_cast<int>(right);
        }
    }
}

static int compare_values(const void *one, const void *other) {
    const auto *const left = static_cast<const exported_value *>(one);
    const auto *const right = static_cast<const exported_value *>(other);
    const int by_name = compare_names(left->name, right->name);
    return by_name ? by_name : left->order < right->order ? -1 : 1;
}

// Sorts the values and keeps the last of each name, unless that one deletes.
static void settle_values(exported_key *key) {
    if (key->count > 1) {
        qsort(key->values, key->count, sizeof *key->values, compare_values);
    }
    size_t kept = 0;
    for (size_t i = 0; i < key->count; ++i) {
        const exported_value value = key->values[i];
        const bool last = i + 1 == key->count || compare_names(value.name, key->values[i + 1].name);
        if (last && value.data) {
            key->values[kept++] = value;
        } else {
            free_value(value);
        }
    }
    key->count = kept;
}

// Reads the value line that begins at `at` into the key; *behind is where to go on.
static bool take_value(const export_text &text, size_t at, exported_key *key, size_t *behind) {
    value_line line = {};
    const size_t end = read_value(text, at, &line);
    *behind = next_line(text, end ? end : at);
    const bool noted = !end || note_value(key, line);
    free(line.name.bytes);
    free(line.data.bytes);
    return noted;
}

// Takes a section line into account. Returns whether values of the wanted key follow.
static bool enter_section(const export_text &text, size_t at, const wanted_key &wanted,
                          exported_key *key) {
    section_line section;
    if (!read_section_line(text, at, &section)) {
        return false;
    }
    const relation to_wanted = relation_of(text, section, wanted);
    if (deletes_wanted(section, to_wanted)) {
        forget_values(key);
        key->exists = false;
    }
    if (section.deletes || (to_wanted != relation::same && to_wanted != relation::below)) {
        return false;
    }
    key->exists = true;
    return to_wanted == relation::same;
}

static bool scan(const export_text &text, const wanted_key &wanted, exported_key *key) {
    bool in_key = false;
    for (size_t at = next_line(text, 0); at < text.count;) {
        const size_t start = skip_blanks(text, at);
        const unsigned first = unit_at(text, start);
        if (first == '[') {
            in_key = enter_section(text, at, wanted, key);
        } else if (in_key && (first == '"' || first == '@')) {
            if (!take_value(text, start, key, &at)) {
                return false;
            }
            continue;
        }
        at = next_line(text, start);
    }
    return true;
}

// Takes "HKEY_...\path" apart; the path's characters become units of this export.
static bool make_wanted(const export_text &text, const char *path, wanted_key *wanted) {
    *wanted = {};
    const size_t root_length = strcspn(path, "\\");
    for (const root_names &names : export_roots) {
        if (strlen(names.long_name) == root_length &&
            memcmp(names.long_name, path, root_length) == 0) {
            wanted->root = names.long_name;
        }
    }
    if (!wanted->root) {
        return true; // matches no section
    }
    const auto *const rest = reinterpret_cast<const unsigned char *>(path) + root_length;
    const size_t size = strlen(path) - root_length;
    if (!text.count) { // nothing to compare with
        wanted->count = size > 1 ? size - 1 : 0;
        return true;
    }
    for (size_t at = 1; at < size;) {
        if (text.wide) {
            append_utf16(&wanted->units, fold_unit(take_utf8(rest, size, &at)));
        } else {
            append_unit(&wanted->units, fold_unit(rest[at++]));
        }
    }
    wanted->count = wanted->units.size / 2;
    return !wanted->units.no_memory;
}

uint32_t registry_export_read(const void *bytes, size_t size, const char *path, exported_key *key) {
    *key = {};
    export_text text = {};
    if (size && !begin_export_text(bytes, size, &text)) {
        return error_not_registry_file;
    }
    wanted_key wanted;
    bool done = make_wanted(text, path, &wanted);
    if (done && wanted.root) {
        key->exists = wanted.count == 0; // a root is always there
        done = scan(text, wanted, key);
    }
    free(wanted.units.bytes);
    settle_values(key);
    return done ? error_none : error_not_enough_memory;
}

void registry_export_release(exported_key *key) {
    forget_values(key);
    free(key->values);
    *key = {};
}

const exported_value *registry_export_find(const exported_key *key, const char *name) {
    size_t low = 0;
    size_t high = key->count;
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        const int order = compare_names(name ? name : "", key->values[middle].name);
        if (order == 0) {
            return &key->values[middle];
        }
        if (order < 0) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    return nullptr;
}

} // namespace quillfence::platform
