// JSON: parsed, asked, changed, written in both forms and parsed again.
//
//     a path
//     a name
//     the document

#include "fuzz_support.h"
#include "owned_json.h"
#include "platform/file.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {

namespace {

constexpr char document_path[] = "c:/quillfence/document.json";
constexpr char written_path[] = "c:/quillfence/written.json";

std::string written(const vc_json *node, int (*write)(FILE *, const vc_json *)) {
    FILE *stream = platform::stream_open(written_path, "wb");
    QF_PROMISE(stream);
    write(stream, node);
    fclose(stream);
    return file_bytes(written_path);
}

void walk(vc_json *node) {
    const uint32_t type = vc_json_get_node_type(node);
    if (type != vc_json_type_array && type != vc_json_type_object) {
        QF_PROMISE(vc_json_num_children(node) == 0);
        return;
    }
    vc_json_iterator *iterator = vc_json_iterator_start(node);
    QF_PROMISE(iterator);
    uint32_t seen = 0;
    while (vc_json *child = vc_json_iterator_next(iterator)) {
        QF_PROMISE(seen > 50 || vc_json_node_index(node, seen) == child);
        ++seen;
        walk(child);
    }
    QF_PROMISE(seen == vc_json_num_children(node));
    while (vc_json_iterator_prev(iterator)) {
        --seen;
    }
    QF_PROMISE(seen <= 1);
    vc_json_iterator_end(iterator);
}

void get_values(vc_json *root, const char *path) {
    double number;
    int32_t small;
    int64_t large;
    int flag;
    char *text = nullptr;
    vc_json *below;
    vc_json_get_value_float(root, path, &number);
    vc_json_get_value_int(root, path, &small);
    vc_json_get_value_int64(root, path, &large);
    vc_json_get_value_bool(root, path, &flag);
    vc_json_get_value_string(root, path, &text);
    vc_json_get_value_list(root, path, &below);
    vc_json_get_value_object(root, path, &below);
    free(text);
}

// Each setter that succeeds is seen by its getter.
void set_values(vc_json *root, const char *path, const char *text) {
    int32_t small = 0;
    int64_t large = 0;
    double number = 0;
    int flag = 0;
    char *copy = nullptr;
    QF_PROMISE(!vc_json_set_value_float(root, path, -0.5) ||
               (vc_json_get_value_float(root, path, &number) && number == -0.5));
    QF_PROMISE(!vc_json_set_value_int(root, path, 1234567) ||
               (vc_json_get_value_int(root, path, &small) && small == 1234567));
    QF_PROMISE(!vc_json_set_value_int64(root, path, INT64_MIN) ||
               (vc_json_get_value_int64(root, path, &large) && large == INT64_MIN));
    QF_PROMISE(!vc_json_set_value_bool(root, path, 1) ||
               (vc_json_get_value_bool(root, path, &flag) && flag == 1));
    QF_PROMISE(!vc_json_set_value_string(root, path, text) ||
               (vc_json_get_value_string(root, path, &copy) && !strcmp(copy, text)));
    free(copy);
}

void change(vc_json *root, const char *path, const char *name) {
    set_values(root, path, name);
    if (*path && vc_json_get_node_ex(root, path, nullptr)) {
        vc_json_rename_node(root, path, name);
    }
    vc_json_create_node_int_ex(root, *name ? name : nullptr, 7);
    vc_json_set_value_list(root, path, nullptr);
    vc_json_set_value_object(root, path, nullptr);
    vc_json_remove_node(root, path);
    walk(root);
    written(root, vc_json_dump);
    written(root, vc_json_dump_pretty);
}

// What is written reads as the same document.
void write_and_read(const vc_json *root) {
    const std::string compact = written(root, vc_json_dump);
    const std::string pretty = written(root, vc_json_dump_pretty);
    const json from_compact(vc_json_parse_string(compact.c_str()));
    const json from_pretty(vc_json_parse_string(pretty.c_str()));
    QF_PROMISE(from_compact && written(from_compact.get(), vc_json_dump) == compact);
    QF_PROMISE(from_pretty && written(from_pretty.get(), vc_json_dump) == compact);
}

void parse_files(const std::string &document) {
    fuzz_drive().write(document_path, document);
    vc_json_free(vc_json_parse_file(document_path));
    auto **roots = vc_json_parse_full_file(document_path);
    if (roots) {
        void **list = reinterpret_cast<void **>(roots);
        vc_lstfree(&list, vc_json_free);
    }
    QF_PROMISE(file_bytes(document_path) == document);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string path = input.line();
    const std::string name = input.line();
    const std::string document = input.rest();
    parse_files(document);
    const json root(vc_json_parse_string(document.c_str()));
    if (!root) {
        return;
    }
    walk(root.get());
    write_and_read(root.get());
    get_values(root.get(), path.c_str());
    vc_json_find_node(root.get(), path.c_str());
    change(root.get(), path.c_str(), name.c_str());
}

} // namespace quillfence::testing
