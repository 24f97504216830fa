#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/registry_export.h"
#include "registry_export_text.h"

namespace quillfence::platform {

static constexpr char redirected[] = "Wow6432Node";
static constexpr int bytes_per_line = 24;

// --- paths ---

// Whether a path begins with this component, without regard to case.
static bool begins_with_key(const char *path, const char *name) {
    for (; *name; ++name, ++path) {
        if (fold_unit(static_cast<unsigned char>(*path)) !=
            fold_unit(static_cast<unsigned char>(*name))) {
            return false;
        }
    }
    return !*path || *path == '\\';
}

static void append_text(growing_bytes *to, const char *text) {
    append_bytes(to, text, strlen(text));
}

static const char *name_of_root(registry_root root) {
    for (const root_names &names : export_roots) {
        if (names.root == root) {
            return names.long_name;
        }
    }
    return "";
}

char *registry_export_path(registry_root root, const char *path, uint32_t access) {
    static constexpr char software[] = "SOFTWARE";
    growing_bytes made = {};
    append_text(&made, name_of_root(root));
    const char *rest = path ? path : "";
    if (root == registry_root::local_machine && access & registry_view_32 &&
        begins_with_key(rest, software)) {
        append_byte(&made, '\\');
        append_bytes(&made, rest, sizeof software - 1);
        rest += sizeof software - 1;
        rest += *rest == '\\';
        if (!begins_with_key(rest, redirected)) {
            append_byte(&made, '\\');
            append_text(&made, redirected);
        }
    }
    if (*rest) {
        append_byte(&made, '\\');
        append_text(&made, rest);
    }
    while (made.size && made.bytes[made.size - 1] == '\\') {
        --made.size;
    }
    append_byte(&made, '\0');
    if (made.no_memory) {
        free(made.bytes);
        return nullptr;
    }
    return reinterpret_cast<char *>(made.bytes);
}

// --- text in the export's encoding ---

struct export_writer {
    growing_bytes out;
    bool wide;
    bool version_5;
};

static void write_bytes(export_writer *writer, const unsigned char *bytes, size_t size) {
    if (!writer->wide) {
        append_bytes(&writer->out, bytes, size);
        return;
    }
    for (size_t at = 0; at < size;) {
        append_utf16(&writer->out, take_utf8(bytes, size, &at));
    }
}

static void write_text(export_writer *writer, const char *text) {
    write_bytes(writer, reinterpret_cast<const unsigned char *>(text), strlen(text));
}

static void write_quoted(export_writer *writer, const char *text) {
    write_text(writer, "\"");
    while (*text) {
        const size_t plain = strcspn(text, "\\\"\n\r");
        write_bytes(writer, reinterpret_cast<const unsigned char *>(text), plain);
        text += plain;
        if (*text) {
            const char escape[] = {'\\', *text == '\n' ? 'n' : *text == '\r' ? 'r' : *text, '\0'};
            write_text(writer, escape);
            ++text;
        }
    }
    write_text(writer, "\"");
}

// --- data ---

static bool has_control_character(const char *text) {
    for (; *text; ++text) {
        if (static_cast<unsigned char>(*text) < ' ') {
            return true;
        }
    }
    return false;
}

// A text with one NUL, at its end, and nothing that would break the line.
static bool is_plain_text(const exported_value &value) {
    return value.type == registry_text && value.size &&
           memchr(value.data, 0, value.size) == value.data + value.size - 1 &&
           !has_control_character(reinterpret_cast<const char *>(value.data));
}

static void write_byte_list(export_writer *writer, const unsigned char *bytes, size_t size) {
    char text[8];
    for (size_t i = 0; i < size; ++i) {
        const bool turns = i > 0 && i % bytes_per_line == 0;
        format_text(text, sizeof text, "%s%02x", i == 0 ? "" : ",", unsigned{bytes[i]});
        if (turns) {
            write_text(writer, ",\\\r\n  ");
            write_text(writer, text + 1);
        } else {
            write_text(writer, text);
        }
    }
}

static void write_hex(export_writer *writer, const exported_value &value) {
    char prefix[24];
    if (value.type == registry_binary) {
        format_text(prefix, sizeof prefix, "hex:");
    } else {
        format_text(prefix, sizeof prefix, "hex(%x):", unsigned{value.type});
    }
    write_text(writer, prefix);
    const bool is_text = value.type == registry_text || value.type == registry_expandable_text ||
                         value.type == registry_texts;
    if (!is_text || !writer->version_5) {
        write_byte_list(writer, value.data, value.size);
        return;
    }
    growing_bytes units = {};
    for (size_t at = 0; at < value.size;) {
        append_utf16(&units, take_utf8(value.data, value.size, &at));
    }
    write_byte_list(writer, units.bytes, units.size);
    writer->out.no_memory = writer->out.no_memory || units.no_memory;
    free(units.bytes);
}

static void write_data(export_writer *writer, const exported_value &value) {
    if (is_plain_text(value)) {
        write_quoted(writer, reinterpret_cast<const char *>(value.data));
    } else if (value.type == registry_dword && value.size == 4) {
        char number[24];
        const unsigned char *const b = value.data;
        format_text(number, sizeof number, "dword:%02x%02x%02x%02x", unsigned{b[3]}, unsigned{b[2]},
                    unsigned{b[1]}, unsigned{b[0]});
        write_text(writer, number);
    } else {
        write_hex(writer, value);
    }
}

static void write_value(export_writer *writer, const exported_value &value) {
    if (*value.name) {
        write_quoted(writer, value.name);
    } else {
        write_text(writer, "@");
    }
    write_text(writer, "=");
    write_data(writer, value);
    write_text(writer, "\r\n");
}

// --- the addition ---

// Begins behind what is there, so that a section can follow on a line of its own. Half a unit at
// the end is refused: whatever completed it would become a part of the last line.
static bool begin_addition(export_writer *writer, const void *bytes, size_t size) {
    if (!size) {
        *writer = {{}, true, true};
        append_bytes(&writer->out, "\xFF\xFE", 2);
        write_text(writer, export_header_5);
        write_text(writer, "\r\n");
        return true;
    }
    export_text text;
    if (!begin_export_text(bytes, size, &text) || (text.wide && size % 2)) {
        return false;
    }
    *writer = {{}, text.wide, text.version_5};
    const unsigned last = unit_at(text, text.count - 1);
    if (last != '\n') {
        write_text(writer, last == '\r' ? "\n" : "\r\n");
    }
    return true;
}

uint32_t registry_export_addition(const void *bytes, size_t size, const char *path,
                                  export_change change, const exported_value *value,
                                  unsigned char **addition, size_t *addition_size) {
    *addition = nullptr;
    *addition_size = 0;
    if (has_control_character(path)) {
        return error_invalid_parameter;
    }
    export_writer writer;
    if (!begin_addition(&writer, bytes, size)) {
        return error_not_registry_file;
    }
    write_text(&writer, change == export_change::delete_key ? "\r\n[-" : "\r\n[");
    write_text(&writer, path);
    write_text(&writer, "]\r\n");
    if (change == export_change::set_value) {
        write_value(&writer, *value);
    }
    if (writer.out.no_memory) {
        free(writer.out.bytes);
        return error_not_enough_memory;
    }
    *addition = writer.out.bytes;
    *addition_size = writer.out.size;
    return error_none;
}

} // namespace quillfence::platform
