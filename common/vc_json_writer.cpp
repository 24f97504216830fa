// Writes trees of JSON nodes.

#include "vc_json_internal.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "vc_json";
static constexpr char writer[] = "__vc_json_dump";

namespace {

struct output {
    FILE *stream;
    int pretty;
    bool complete; // nothing was left out
    bool stopped;  // nothing more is written
};

} // namespace

static void indent(const output *to, int depth) {
    for (int level = 0; to->pretty && level < depth; ++level) {
        fputs("    ", to->stream);
    }
}

static void end_line(const output *to) {
    if (to->pretty) {
        fputc('\n', to->stream);
    }
}

static void write_node(output *to, const vc_json *node, bool has_next, int depth);

static void write_elements(output *to, vc_json **elements, int depth) {
    for (vc_json **element = elements; *element && !to->stopped; ++element) {
        write_node(to, *element, element[1] != nullptr, depth);
    }
}

static void write_members(output *to, const vc_hashmap *members, int depth) {
    vc_map_iterator *iterator = vc_map_iterator_start_ex(members, 0);
    if (!iterator) {
        QF_ERROR_AS(writer, "Failed to create map iterator");
        to->complete = false;
        to->stopped = true;
        return;
    }
    void *member;
    while (!to->stopped && vc_map_iterator_next(iterator, nullptr, &member)) {
        void *next = nullptr;
        vc_map_iterator_peek_next(iterator, nullptr, &next);
        if (member) {
            write_node(to, static_cast<const vc_json *>(member), next != nullptr, depth);
        }
    }
    vc_map_iterator_free(iterator);
}

static void write_complex(output *to, const vc_json *node, int depth) {
    const bool is_array = node->type == vc_json_type_array;
    fputc(is_array ? '[' : '{', to->stream);
    if (node->value) {
        end_line(to);
        if (is_array) {
            write_elements(to, __vc_json_elements(node), depth + 1);
        } else {
            write_members(to, __vc_json_members(node), depth + 1);
        }
        if (to->stopped) {
            return;
        }
        indent(to, depth);
    }
    fputc(is_array ? ']' : '}', to->stream);
}

static void write_scalar(const output *to, const vc_json *node) {
    const char *const quote = node->type == vc_json_type_string ? "\"" : "";
    fputs(quote, to->stream);
    fputs(static_cast<const char *>(node->value), to->stream);
    fputs(quote, to->stream);
}

static void write_node(output *to, const vc_json *node, bool has_next, int depth) {
    const bool is_complex = __vc_json_is_complex(node);
    if (!is_complex && !node->value) {
        QF_ERROR_AS(writer, "Error encountered null data in non-array/object");
        to->complete = false;
        return;
    }
    indent(to, depth);
    if (depth != 0 && node->name) {
        fprintf(to->stream, "\"%s\":%s", node->name, to->pretty ? " " : "");
    }
    if (is_complex) {
        write_complex(to, node, depth);
    } else {
        write_scalar(to, node);
    }
    if (to->stopped) {
        return;
    }
    if (has_next) {
        fputc(',', to->stream);
    }
    end_line(to);
}

static int dump(const char *operation, FILE *stream, const vc_json *node, int pretty) {
    if (!stream) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    errno = 0;
    const int complete = __vc_json_dump(stream, node, 0, 0, pretty);
    if (ferror(stream)) {
        QF_ERRNO_AS(operation, errno);
        return 0;
    }
    return complete;
}

int __vc_json_dump(FILE *stream, const vc_json *node, int has_next, int depth, int pretty) {
    if (!node) {
        QF_EINVAL();
        return 0;
    }
    output to = {stream, pretty, true, false};
    write_node(&to, node, has_next != 0, depth);
    return to.complete;
}

int vc_json_dump(FILE *stream, const vc_json *node) {
    return dump(__func__, stream, node, 0);
}

int vc_json_dump_pretty(FILE *stream, const vc_json *node) {
    return dump(__func__, stream, node, 1);
}

} // namespace quillfence
