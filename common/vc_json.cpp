#include "vc_json.h"

#include <charconv>
#include <cinttypes>
#include <system_error>

#include "vc_json_internal.h"
#include "vc_log.h"
#include "vc_nulltermlist.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_json";

static bool is_type_code(uint32_t type) {
    return type != 0 && type <= vc_json_type_object && (type & (type - 1)) == 0;
}

// The text that a node of a scalar type gets for the text it is made from; null with an ERROR line.
static char *scalar_text(const char *operation, const char *text, uint32_t type) {
    switch (type) {
    case vc_json_type_null:
        text = "null";
        break;
    case vc_json_type_bool:
        text = !_stricmp(text, "true") ? "true" : "false";
        break;
    case vc_json_type_number:
        if (!__vc_json_valid_number(operation, text)) {
            return nullptr;
        }
        break;
    default:
        break;
    }
    return __vc_json_copy_text(operation, text);
}

static int add_to_array(vc_json *array, vc_json *child) {
    static constexpr char operation[] = "vc_json_add_node";
    if (child->name) {
        QF_ERROR_AS(operation, "Cannot add named node [%s] to array node", child->name);
        return 0;
    }
    auto *list = static_cast<void **>(array->value);
    const int added = vc_lstcat(&list, child) != nullptr;
    array->value = list;
    return added;
}

static int add_to_object(vc_json *object, vc_json *child) {
    static constexpr char operation[] = "vc_json_add_node";
    if (!child->name) {
        QF_ERROR_AS(operation, "Cannot add nameless node to object node");
        return 0;
    }
    if (!object->value) {
        object->value = vc_map_create(0, 0);
        if (!object->value) {
            QF_ERROR_AS(operation, "Failed to create new map for parent object");
            return 0;
        }
    }
    if (!vc_map_store_ex(__vc_json_members(object), child->name, child, 8, 0, vc_json_free)) {
        QF_ERROR_AS(operation, "Failed to store node in parent object map");
        return 0;
    }
    return 1;
}

// A number node from a text that it takes over; null is the failure of whoever made the text.
static vc_json *create_number(vc_json *parent, const char *name, char *text) {
    const heap_string owned(text);
    return text ? vc_json_create_node(parent, name, text, vc_json_type_number) : nullptr;
}

// --- Shared with the other files of the module ---

vc_json *__vc_json_new_node(const char *operation, uint32_t type) {
    auto *node = static_cast<vc_json *>(malloc(sizeof(vc_json)));
    if (!node) {
        QF_ERRNO_AS(operation, ENOMEM);
        return nullptr;
    }
    *node = {.type = type, .name = nullptr, .value = nullptr};
    return node;
}

void __vc_json_free_value(uint32_t type, void *value) {
    if (!value) {
        return;
    }
    if (type == vc_json_type_object) {
        vc_map_destroy(static_cast<vc_hashmap *>(value));
    } else if (type == vc_json_type_array) {
        auto *list = static_cast<void **>(value);
        vc_lstfree(&list, vc_json_free);
    } else {
        free(value);
    }
}

int __vc_json_valid_number(const char *operation, const char *text) {
    if (!*text) {
        QF_ERROR_AS(operation, "Detected empty string when number expected");
        return 0;
    }
    const size_t length = strlen(text);
    if (strspn(text, "0123456789-.") != length) {
        QF_ERROR_AS(operation, "Error input number contained invalid character");
        return 0;
    }
    double value;
    const std::from_chars_result result = std::from_chars(text, text + length, value);
    if (result.ec == std::errc::result_out_of_range) {
        QF_ERROR_AS(operation, "Error input number causues float overflow/underflow");
        return 0;
    }
    if (result.ec != std::errc() || *result.ptr) {
        QF_ERROR_AS(operation,
                    "Error input number contains non-numeric information after the last digit");
        return 0;
    }
    return 1;
}

char *__vc_json_copy_text(const char *operation, const char *text) {
    char *copy = vc_strndup(text, strlen(text));
    if (!copy) {
        QF_ERRNO_AS(operation, ENOMEM);
    }
    return copy;
}

char *__vc_json_text_of_float(const char *operation, double value) {
    char digits[512]; // the longest are the smallest: "-0.", 307 zeros and 17 digits
    const std::to_chars_result result =
        std::to_chars(digits, digits + sizeof digits - 1, value, std::chars_format::fixed);
    *result.ptr = '\0';
    return __vc_json_copy_text(operation, digits);
}

char *__vc_json_text_of_int(int32_t value) {
    char *text = nullptr;
    return vc_ltoa(&text, value) ? text : nullptr;
}

char *__vc_json_text_of_int64(int64_t value) {
    char *text = nullptr;
    return vc_asprintf(&text, "%" PRId64, value) < 0 ? nullptr : text;
}

// --- Building ---

void vc_json_free(void *node) {
    auto *freed = static_cast<vc_json *>(node);
    if (!freed) {
        return;
    }
    free(freed->name);
    __vc_json_free_value(freed->type, freed->value);
    free(freed);
}

vc_json *vc_json_create_node(vc_json *parent, const char *name, const char *value, uint32_t type) {
    if (!is_type_code(type)) {
        QF_EINVAL();
        return nullptr;
    }
    vc_json *node = __vc_json_new_node(__func__, type);
    if (!node) {
        return nullptr;
    }
    if (name && !(node->name = __vc_json_copy_text(__func__, name))) {
        vc_json_free(node);
        return nullptr;
    }
    const bool as_it_is = !value || __vc_json_is_complex(node);
    node->value = as_it_is ? const_cast<char *>(value) : scalar_text(__func__, value, type);
    if (!as_it_is && !node->value) {
        vc_json_free(node);
        return nullptr;
    }
    if (parent && !vc_json_add_node(parent, node)) {
        QF_ERROR("Error appending new node to parent node");
        if (as_it_is) {
            node->value = nullptr; // stays with the caller
        }
        vc_json_free(node);
        return nullptr;
    }
    return node;
}

vc_json *vc_json_create_node_object_ex(vc_json *parent, const char *name, vc_hashmap *members) {
    return vc_json_create_node(parent, name, reinterpret_cast<const char *>(members),
                               vc_json_type_object);
}

vc_json *vc_json_create_node_array_ex(vc_json *parent, const char *name, vc_json **elements) {
    return vc_json_create_node(parent, name, reinterpret_cast<const char *>(elements),
                               vc_json_type_array);
}

vc_json *vc_json_create_node_null_ex(vc_json *parent, const char *name) {
    return vc_json_create_node(parent, name, "null", vc_json_type_null);
}

vc_json *vc_json_create_node_bool_ex(vc_json *parent, const char *name, int value) {
    return vc_json_create_node(parent, name, value ? "true" : "false", vc_json_type_bool);
}

vc_json *vc_json_create_node_string_ex(vc_json *parent, const char *name, const char *value) {
    if (!value) {
        QF_EINVAL();
        return nullptr;
    }
    return vc_json_create_node(parent, name, value, vc_json_type_string);
}

vc_json *vc_json_create_node_float_ex(vc_json *parent, const char *name, double value) {
    return create_number(parent, name, __vc_json_text_of_float(__func__, value));
}

vc_json *vc_json_create_node_int_ex(vc_json *parent, const char *name, int32_t value) {
    return create_number(parent, name, __vc_json_text_of_int(value));
}

vc_json *vc_json_create_node_int64_ex(vc_json *parent, const char *name, int64_t value) {
    return create_number(parent, name, __vc_json_text_of_int64(value));
}

int vc_json_add_node(vc_json *parent, vc_json *child) {
    if (!parent || !child || parent == child) {
        QF_EINVAL();
        return 0;
    }
    switch (parent->type) {
    case vc_json_type_array:
        return add_to_array(parent, child);
    case vc_json_type_object:
        return add_to_object(parent, child);
    default:
        QF_ERROR("Error attemping to add a node to a parent that is not an array or object");
        return 0;
    }
}

} // namespace quillfence
