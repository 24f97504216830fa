// Writes trees of JSON nodes.

#include "vc_json_internal.h"
#include "vc_log.h"

namespace quillfence {

namespace {

constexpr char module_name[] = "vc_json";

void indent(FILE *stream, int depth) {
    for (int level = 0; level < depth; ++level) {
        fputs("    ", stream);
    }
}

int write_elements(FILE *stream, vc_json **elements, int depth, int pretty) {
    int complete = 1;
    if (pretty) {
        fputc('\n', stream);
    }
    for (vc_json **element = elements; *element; ++element) {
        complete &= __vc_json_dump(stream, *element, element[1] != nullptr, depth + 1, pretty);
    }
    if (pretty) {
        indent(stream, depth);
    }
    return complete;
}

int write_members(FILE *stream, const vc_hashmap *members, int depth, int pretty) {
    if (pretty) {
        fputc('\n', stream);
    }
    vc_map_iterator *iterator = vc_map_iterator_start_ex(members, 0);
    if (!iterator) {
        QF_ERROR_AS("__vc_json_dump", "Failed to create map iterator");
        return 0;
    }
    int complete = 1;
    void *member;
    while (vc_map_iterator_next(iterator, nullptr, &member)) {
        void *next = nullptr;
        vc_map_iterator_peek_next(iterator, nullptr, &next);
        if (member) {
            complete &= __vc_json_dump(stream, static_cast<const vc_json *>(member),
                                       next != nullptr, depth + 1, pretty);
        }
    }
    vc_map_iterator_free(iterator);
    if (pretty) {
        indent(stream, depth);
    }
    return complete;
}

int write_value(FILE *stream, const vc_json *node, int depth, int pretty) {
    int complete = 1;
    if (node->type == vc_json_type_array) {
        fputc('[', stream);
        if (node->value) {
            complete = write_elements(stream, __vc_json_elements(node), depth, pretty);
        }
        fputc(']', stream);
    } else if (node->type == vc_json_type_object) {
        fputc('{', stream);
        if (node->value) {
            complete = write_members(stream, __vc_json_members(node), depth, pretty);
        }
        fputc('}', stream);
    } else {
        const char *const quote = node->type == vc_json_type_string ? "\"" : "";
        fputs(quote, stream);
        fputs(static_cast<const char *>(node->value), stream);
        fputs(quote, stream);
    }
    return complete;
}

int dump(const char *operation, FILE *stream, const vc_json *node, int pretty) {
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

} // namespace

int __vc_json_dump(FILE *stream, const vc_json *node, int has_next, int depth, int pretty) {
    if (!node) {
        QF_EINVAL();
        return 0;
    }
    if (!__vc_json_is_complex(node) && !node->value) {
        QF_ERROR("Error encountered null data in non-array/object");
        return 0;
    }
    if (pretty) {
        indent(stream, depth);
    }
    if (depth != 0 && node->name) {
        fprintf(stream, "\"%s\":%s", node->name, pretty ? " " : "");
    }
    const int complete = write_value(stream, node, depth, pretty);
    if (has_next) {
        fputc(',', stream);
    }
    if (pretty) {
        fputc('\n', stream);
    }
    return complete;
}

int vc_json_dump(FILE *stream, const vc_json *node) {
    return dump(__func__, stream, node, 0);
}

int vc_json_dump_pretty(FILE *stream, const vc_json *node) {
    return dump(__func__, stream, node, 1);
}

} // namespace quillfence
