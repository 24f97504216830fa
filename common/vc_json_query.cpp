// Finds JSON nodes by path, walks over children, reads and changes what is there.

#include <charconv>
#include <system_error>

#include "vc_json_internal.h"
#include "vc_log.h"
#include "vc_nulltermlist.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_json";

static void **list_of(const vc_json *array) {
    return static_cast<void **>(array->value);
}

// --- Paths ---

static constexpr char path_walk[] = "vc_json_get_node_ex";

static void report_bad_character(char c) {
    QF_ERROR_AS(path_walk, "Bad character encountered: [%c]", __vc_json_shown(c));
}

static vc_json *element_at(const vc_json *array, uint32_t index) {
    vc_json **elements = __vc_json_elements(array);
    if (!elements) {
        return nullptr;
    }
    for (; *elements && index > 0; --index) {
        ++elements;
    }
    return *elements;
}

// Reads the "[n]" at *path and moves *path behind it.
static int take_index(const char **path, uint32_t *index) {
    const char *digit = *path + 1;
    uint64_t number = 0;
    for (; is_digit(*digit); ++digit) {
        number = 10 * number + static_cast<uint64_t>(*digit - '0');
        if (number > UINT32_MAX) {
            number = UINT32_MAX; // no array is that long
        }
    }
    if (*digit != ']' || digit == *path + 1) {
        report_bad_character(*digit);
        return 0;
    }
    *index = static_cast<uint32_t>(number);
    *path = digit + 1;
    return 1;
}

static vc_json *element_named(const vc_json *array, const char *name) {
    for (vc_json **element = __vc_json_elements(array); element && *element; ++element) {
        if ((*element)->name && !strcmp((*element)->name, name)) {
            return *element;
        }
    }
    return nullptr;
}

static vc_json *child_named(const vc_json *node, const char *name) {
    if (node->type == vc_json_type_array) {
        return element_named(node, name);
    }
    void *member = nullptr;
    if (node->type == vc_json_type_object && node->value) {
        vc_map_fetch(__vc_json_members(node), name, &member);
    }
    return static_cast<vc_json *>(member);
}

// The child of node that the first step of *path names; moves *path behind that step. Sets
// *no_memory when that is the reason for a null.
static vc_json *take_step(const vc_json *node, const char **path, bool *no_memory) {
    if (**path == '[') {
        uint32_t index;
        if (node->type != vc_json_type_array || !take_index(path, &index)) {
            return nullptr;
        }
        return element_at(node, index);
    }
    const size_t length = strcspn(*path, "[/");
    const heap_string name(vc_strndup(*path, length));
    if (!name) {
        QF_ERRNO_AS(path_walk, ENOMEM);
        *no_memory = true;
        return nullptr;
    }
    *path += length;
    return child_named(node, name.get());
}

// The work of vc_json_get_node_ex, whose arguments are right.
static vc_json *walk(vc_json *node, const char *path, vc_json **parent, bool *no_memory) {
    for (vc_json *holder = node;;) {
        vc_json *found = take_step(holder, &path, no_memory);
        if (!found) {
            return nullptr;
        }
        if (!*path) {
            *parent = holder;
            return found;
        }
        if (*path == '/') {
            ++path;
        } else if (*path != '[') {
            report_bad_character(*path);
            return nullptr;
        }
        holder = found;
    }
}

// The node itself, or the one that an optional path names below it.
static vc_json *node_at(vc_json *node, const char *path) {
    return path ? vc_json_get_node_ex(node, path, nullptr) : node;
}

namespace {

// --- Getters and setters ---

struct wanted_type {
    uint32_t types; // bits
    const char *otherwise;
};

} // namespace

static constexpr wanted_type wanted_number = {vc_json_type_number,
                                              "Error retrieved node is not of type number"};
// "number" is kept on purpose.
static constexpr wanted_type wanted_bool = {vc_json_type_bool,
                                            "Error retrieved node is not of type number"};
static constexpr wanted_type wanted_string = {vc_json_mask_scalar,
                                              "Error retrieved node cannot be treated as a string"};
static constexpr wanted_type wanted_array = {vc_json_type_array,
                                             "Error retrieved node is not of type array"};
static constexpr wanted_type wanted_object = {vc_json_type_object,
                                              "Error retrieved node is not of type object"};

// The node that a getter reads; null with an ERROR line.
static vc_json *readable_node(const char *operation, vc_json *node, const char *path,
                              const void *out, const wanted_type &wanted) {
    if (!node || !out) {
        QF_ERRNO_AS(operation, EINVAL);
        return nullptr;
    }
    vc_json *found = node_at(node, path);
    if (!found || !found->value) {
        QF_ERROR_AS(operation, "Unable to retrieve node [%s]", text_or_null(path));
        return nullptr;
    }
    if (!(found->type & wanted.types)) {
        QF_ERROR_AS(operation, "%s", wanted.otherwise);
        return nullptr;
    }
    return found;
}

// The text of the scalar node that a getter reads; null with an ERROR line.
static const char *readable_text(const char *operation, vc_json *node, const char *path,
                                 const void *out, const wanted_type &wanted) {
    const vc_json *found = readable_node(operation, node, path, out, wanted);
    return found ? static_cast<const char *>(found->value) : nullptr;
}

static int get_complex(const char *operation, vc_json *node, const char *path, vc_json **value,
                       const wanted_type &wanted) {
    vc_json *found = readable_node(operation, node, path, value, wanted);
    if (!found) {
        return 0;
    }
    *value = found;
    return 1;
}

// The node that a setter changes, of exactly this type; null with an ERROR line.
static vc_json *changeable_node(const char *operation, vc_json *node, const char *path,
                                uint32_t type, const char *type_name) {
    if (!node) {
        QF_ERRNO_AS(operation, EINVAL);
        return nullptr;
    }
    vc_json *found = node_at(node, path);
    if (!found) {
        QF_ERROR_AS(operation, "Unable to retrieve node [%s]", text_or_null(path));
        return nullptr;
    }
    if (found->type != type) {
        QF_ERROR_AS(operation, "Error retrieved node is not of type %s: %d", type_name,
                    static_cast<int>(found->type));
        return nullptr;
    }
    return found;
}

static void replace_value(vc_json *node, void *value) {
    if (node->value != value) {
        __vc_json_free_value(node->type, node->value);
        node->value = value;
    }
}

static int set_complex(const char *operation, vc_json *node, const char *path, uint32_t type,
                       const char *type_name, void *value) {
    vc_json *changed = changeable_node(operation, node, path, type, type_name);
    if (!changed) {
        return 0;
    }
    replace_value(changed, value);
    return 1;
}

// Takes text over; null is the failure of whoever made it.
static int set_text(vc_json *node, char *text) {
    if (!text) {
        return 0;
    }
    replace_value(node, text);
    return 1;
}

// --- Removing ---

static int remove_element(vc_json *array, const vc_json *element) {
    vc_json **elements = __vc_json_elements(array);
    uint32_t position = 0;
    while (elements[position] && elements[position] != element) {
        ++position;
    }
    return elements[position] ? vc_lstremove(list_of(array), position, vc_json_free) : 1;
}

static int remove_member(vc_json *object, const vc_json *member) {
    if (!member->name) {
        QF_ERROR_AS("vc_json_remove_node", "Retrieved node does not have a name");
        return 0;
    }
    return vc_map_remove(__vc_json_members(object), member->name);
}

// --- Walks ---

// On an object the map's iterator does the work.
struct vc_json_iterator {
    vc_map_iterator *members;
    vc_json **elements; // null for an object, or an array without a list
    uint32_t count;
    uint32_t position; // of the current element
    bool started;
};

vc_json_iterator *vc_json_iterator_start(vc_json *node) {
    if (!node || !__vc_json_is_complex(node)) {
        QF_EINVAL();
        return nullptr;
    }
    auto *iterator = static_cast<vc_json_iterator *>(calloc(1, sizeof(vc_json_iterator)));
    if (!iterator) {
        QF_ENOMEM();
    } else if (node->type == vc_json_type_array) {
        iterator->elements = __vc_json_elements(node);
        iterator->count = vc_lstcount(list_of(node));
    } else if (node->value) {
        iterator->members = vc_map_iterator_start_ex(__vc_json_members(node), 0);
        if (!iterator->members) {
            free(iterator);
            iterator = nullptr;
        }
    }
    if (!iterator) {
        QF_ERROR("Failed to create iterator");
    }
    return iterator;
}

vc_json *vc_json_iterator_next(vc_json_iterator *iterator) {
    if (!iterator) {
        QF_EINVAL();
        return nullptr;
    }
    if (iterator->members) {
        void *member = nullptr;
        vc_map_iterator_next(iterator->members, nullptr, &member);
        return static_cast<vc_json *>(member);
    }
    const uint32_t next = iterator->started ? iterator->position + 1 : 0;
    if (next >= iterator->count) {
        return nullptr;
    }
    iterator->started = true;
    iterator->position = next;
    return iterator->elements[next];
}

vc_json *vc_json_iterator_prev(vc_json_iterator *iterator) {
    if (!iterator) {
        QF_EINVAL();
        return nullptr;
    }
    if (iterator->members) {
        void *member = nullptr;
        vc_map_iterator_prev(iterator->members, nullptr, &member);
        return static_cast<vc_json *>(member);
    }
    const uint32_t behind = iterator->started ? iterator->position : iterator->count;
    if (behind == 0) {
        return nullptr;
    }
    iterator->started = true;
    iterator->position = behind - 1;
    return iterator->elements[behind - 1];
}

void vc_json_iterator_end(vc_json_iterator *iterator) {
    if (iterator) {
        vc_map_iterator_free(iterator->members);
        free(iterator);
    }
}

// --- Finding ---

vc_json *vc_json_get_node_ex(vc_json *node, const char *path, vc_json **parent) {
    if (parent) {
        *parent = nullptr;
    }
    if (!node || is_empty(path)) {
        QF_EINVAL();
        return nullptr;
    }
    vc_json *holder = nullptr;
    bool no_memory = false;
    vc_json *const found = walk(node, path, &holder, &no_memory);
    if (parent) {
        *parent = holder;
    }
    return found;
}

vc_json *vc_json_node_index(vc_json *node, uint32_t index) {
    if (!node || !__vc_json_is_complex(node)) {
        QF_EINVAL();
        return nullptr;
    }
    if (node->type == vc_json_type_array) {
        return element_at(node, index);
    }
    void *member = nullptr;
    if (!vc_map_index(__vc_json_members(node), index, nullptr, &member)) {
        QF_ERROR("Failed to get node at index [%u] from object node", index);
        return nullptr;
    }
    return static_cast<vc_json *>(member);
}

vc_json *vc_json_find_node(vc_json *node, const char *path) {
    if (!node || is_empty(path)) {
        QF_EINVAL();
        return nullptr;
    }
    vc_json *found = vc_json_get_node_ex(node, path, nullptr);
    if (found || vc_json_num_children(node) == 0) {
        return found;
    }
    vc_json_iterator *iterator = vc_json_iterator_start(node);
    if (!iterator) {
        QF_ERROR("Failed to create json iterator for node: [%s]", text_or_null(node->name));
        return nullptr;
    }
    while (vc_json *child = found ? nullptr : vc_json_iterator_next(iterator)) {
        if (__vc_json_is_complex(child)) {
            found = vc_json_find_node(child, path);
        }
    }
    vc_json_iterator_end(iterator);
    return found;
}

uint32_t vc_json_num_children(const vc_json *node) {
    if (!node) {
        QF_EINVAL();
        return 0;
    }
    switch (node->type) {
    case vc_json_type_array:
        return vc_lstcount(list_of(node));
    case vc_json_type_object:
        return node->value ? vc_map_count(__vc_json_members(node)) : 0;
    default:
        return 0;
    }
}

uint32_t vc_json_get_node_type(const vc_json *node) {
    if (!node) {
        QF_EINVAL();
        return 0;
    }
    return node->type;
}

// --- Changing ---

int vc_json_remove_node(vc_json *node, const char *path) {
    if (!node || is_empty(path)) {
        QF_EINVAL();
        return 0;
    }
    vc_json *parent = nullptr;
    bool no_memory = false;
    const vc_json *removed = walk(node, path, &parent, &no_memory);
    if (!removed) {
        return no_memory ? 0 : 1;
    }
    if (!parent) {
        QF_ERROR("Could not retrieve parent node for node [%s]", path);
        return 0;
    }
    return parent->type == vc_json_type_object ? remove_member(parent, removed)
                                               : remove_element(parent, removed);
}

int vc_json_rename_node(vc_json *node, const char *path, const char *new_name) {
    if (!node || is_empty(path) || !new_name) {
        QF_EINVAL();
        return 0;
    }
    vc_json *parent = nullptr;
    vc_json *renamed = vc_json_get_node_ex(node, path, &parent);
    if (!renamed) {
        QF_ERROR("Unable to retrieve node [%s]", path);
        return 0;
    }
    if (!parent || !__vc_json_is_complex(parent)) {
        QF_ERROR("Programmer Error! Parent node is not complex!");
        return 0;
    }
    heap_string name(__vc_json_copy_text(__func__, new_name));
    if (!name) {
        return 0;
    }
    if (parent->type == vc_json_type_object &&
        !vc_map_rename(__vc_json_members(parent), renamed->name, new_name)) {
        QF_ERROR("Failed to rename node [%s] to [%s] in parent map", text_or_null(renamed->name),
                 new_name);
        return 0;
    }
    free(renamed->name);
    renamed->name = name.release();
    return 1;
}

// --- Getters ---

int vc_json_get_value_float(vc_json *node, const char *path, double *value) {
    const char *text = readable_text(__func__, node, path, value, wanted_number);
    if (!text) {
        return 0;
    }
    double number = 0;
    std::from_chars(text, text + strlen(text), number);
    *value = number;
    return 1;
}

int vc_json_get_value_int(vc_json *node, const char *path, int32_t *value) {
    const char *text = readable_text(__func__, node, path, value, wanted_number);
    if (!text) {
        return 0;
    }
    *value = text_to_int(text);
    return 1;
}

int vc_json_get_value_int64(vc_json *node, const char *path, int64_t *value) {
    const char *text = readable_text(__func__, node, path, value, wanted_number);
    if (!text) {
        return 0;
    }
    *value = strtoll(text, nullptr, 10);
    return 1;
}

int vc_json_get_value_bool(vc_json *node, const char *path, int *value) {
    const char *text = readable_text(__func__, node, path, value, wanted_bool);
    if (!text) {
        return 0;
    }
    const bool is_true = !strcmp(text, "true");
    if (!is_true && strcmp(text, "false") != 0) {
        QF_ERROR("Error boolean node did not contain true or false");
        return 0;
    }
    *value = is_true;
    return 1;
}

int vc_json_get_value_string(vc_json *node, const char *path, char **value) {
    const char *text = readable_text(__func__, node, path, value, wanted_string);
    char *copy = text ? __vc_json_copy_text(__func__, text) : nullptr;
    if (!copy) {
        return 0;
    }
    *value = copy;
    return 1;
}

int vc_json_get_value_list(vc_json *node, const char *path, vc_json **value) {
    return get_complex(__func__, node, path, value, wanted_array);
}

int vc_json_get_value_object(vc_json *node, const char *path, vc_json **value) {
    return get_complex(__func__, node, path, value, wanted_object);
}

// --- Setters ---

int vc_json_set_value_float(vc_json *node, const char *path, double value) {
    vc_json *changed = changeable_node(__func__, node, path, vc_json_type_number, "number");
    heap_string text(changed ? __vc_json_text_of_float(__func__, value) : nullptr);
    if (!text || !__vc_json_valid_number(__func__, text.get())) {
        return 0;
    }
    return set_text(changed, text.release());
}

int vc_json_set_value_int(vc_json *node, const char *path, int32_t value) {
    vc_json *changed = changeable_node(__func__, node, path, vc_json_type_number, "number");
    return changed ? set_text(changed, __vc_json_text_of_int(value)) : 0;
}

int vc_json_set_value_int64(vc_json *node, const char *path, int64_t value) {
    vc_json *changed = changeable_node(__func__, node, path, vc_json_type_number, "number");
    return changed ? set_text(changed, __vc_json_text_of_int64(value)) : 0;
}

int vc_json_set_value_bool(vc_json *node, const char *path, int value) {
    vc_json *changed = changeable_node(__func__, node, path, vc_json_type_bool, "boolean");
    return changed ? set_text(changed, __vc_json_copy_text(__func__, value ? "true" : "false")) : 0;
}

int vc_json_set_value_string(vc_json *node, const char *path, const char *value) {
    if (!value) {
        QF_EINVAL();
        return 0;
    }
    vc_json *changed = changeable_node(__func__, node, path, vc_json_type_string, "string");
    return changed ? set_text(changed, __vc_json_copy_text(__func__, value)) : 0;
}

int vc_json_set_value_list(vc_json *node, const char *path, vc_json **elements) {
    return set_complex(__func__, node, path, vc_json_type_array, "array", elements);
}

int vc_json_set_value_object(vc_json *node, const char *path, vc_hashmap *members) {
    return set_complex(__func__, node, path, vc_json_type_object, "object", members);
}

} // namespace quillfence
