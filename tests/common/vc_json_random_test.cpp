// Any document, any change, any text, against plain models.
#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vc_json_document.h"

namespace quillfence::testing {
namespace {

// --- Any document ---

// A random document beside its two forms, written by hand.
struct model {
    std::mt19937_64 random;

    size_t below(size_t limit) {
        return static_cast<size_t>(random() % limit);
    }
    std::string text() {
        static const char *const pieces[] = {"a",    "B",    "9", "{",  "]",        ",",       ":",
                                             "\\\"", "\\\\", " ", "\t", "\xC3\xA9", "\\u0000", "/"};
        std::string result;
        for (size_t i = below(6); i > 0; --i) {
            result += pieces[below(std::size(pieces))];
        }
        return result;
    }
    // Makes a value under parent (or the root) and gives its forms.
    vc_json *value(vc_json *parent, const char *name, int depth, std::string *compact,
                   std::string *pretty) {
        switch (below(depth > 4 ? 4 : 6)) {
        case 0:
            *compact = *pretty = std::to_string(static_cast<int>(below(2001)) - 1000);
            return vc_json_create_node(parent, name, compact->c_str(), vc_json_type_number);
        case 1: {
            const std::string string = text();
            *compact = *pretty = "\"" + string + "\"";
            return vc_json_create_node_string_ex(parent, name, string.c_str());
        }
        case 2:
            *compact = *pretty = "true";
            return vc_json_create_node_bool_ex(parent, name, 1);
        case 3:
            *compact = *pretty = "null";
            return vc_json_create_node_null_ex(parent, name);
        default:
            return complex(parent, name, depth, compact, pretty);
        }
    }
    vc_json *complex(vc_json *parent, const char *name, int depth, std::string *compact,
                     std::string *pretty) {
        const bool object = below(2) != 0;
        vc_json *node = object ? vc_json_create_node_object_ex(parent, name)
                               : vc_json_create_node_array_ex(parent, name);
        const size_t count = below(5);
        *compact = object ? "{" : "[";
        *pretty = *compact + (count ? "\n" : "");
        for (size_t i = 0; i < count; ++i) {
            const std::string member = "m" + std::to_string(i) + text();
            std::string inner, inner_pretty;
            value(node, object ? member.c_str() : nullptr, depth + 1, &inner, &inner_pretty);
            const std::string comma = i + 1 < count ? "," : "";
            *compact += (object ? "\"" + member + "\":" : "") + inner + comma;
            *pretty += std::string(4 * (static_cast<size_t>(depth) + 1), ' ') +
                       (object ? "\"" + member + "\": " : "") + inner_pretty + comma + "\n";
        }
        *compact += object ? "}" : "]";
        *pretty +=
            (count ? std::string(4 * static_cast<size_t>(depth), ' ') : "") + (object ? "}" : "]");
        return node;
    }
};

// The same types, names and values all the way down.
void expect_same_tree(vc_json *a, vc_json *b) {
    ASSERT_EQ(a->type, b->type);
    ASSERT_STREQ(a->name, b->name);
    if (a->type & vc_json_mask_scalar) {
        ASSERT_EQ(value_of(a), value_of(b));
    }
    const uint32_t count = vc_json_num_children(a);
    ASSERT_EQ(vc_json_num_children(b), count);
    for (uint32_t i = 0; i < count; ++i) {
        expect_same_tree(vc_json_node_index(a, i), vc_json_node_index(b, i));
    }
}

TEST_F(vc_json_test, random_trees_are_written_and_read_again) {
    model documents{std::mt19937_64(7)};
    for (int i = 0; i < 300; ++i) {
        std::string compact, indented;
        const json root(documents.complex(nullptr, nullptr, 0, &compact, &indented));
        ASSERT_TRUE(root);
        ASSERT_EQ(written(root.get()), compact);
        ASSERT_EQ(pretty(root.get()), indented + "\n");
        const json from_compact = parsed(compact);
        expect_same_tree(root.get(), from_compact.get());
        ASSERT_EQ(written(from_compact.get()), compact);
        const json from_pretty = parsed(indented);
        expect_same_tree(root.get(), from_pretty.get());
        ASSERT_EQ(written(from_pretty.get()), compact);
        ASSERT_EQ(pretty(from_pretty.get()), indented + "\n");
    }
}

// --- Any change ---

// A document in the plainest form, and what its text must be.
struct plain_node {
    uint32_t type;
    std::string name; // of a member
    std::string text; // of a scalar, as a document has it
    std::vector<plain_node> children;

    bool is_complex() const {
        return (type & vc_json_mask_complex) != 0;
    }
    bool has_member(const std::string &wanted) const {
        return std::any_of(children.begin(), children.end(),
                           [&](const plain_node &child) { return child.name == wanted; });
    }
    std::string compact() const {
        if (!is_complex()) {
            return text;
        }
        const bool object = type == vc_json_type_object;
        std::string result = object ? "{" : "[";
        for (const plain_node &child : children) {
            result += (&child == &children.front() ? "" : ",") +
                      (object ? "\"" + child.name + "\":" : "") + child.compact();
        }
        return result + (object ? "}" : "]");
    }
};

// Where a random walk down a document has ended.
struct place {
    plain_node *node;
    plain_node *parent; // null for the root
    size_t index;       // of the node in its parent
    std::string path, parent_path;
};

// Changes a document and its plain form alike.
class edited_document {
  public:
    explicit edited_document(uint32_t seed) : random_(seed) {}
    vc_json *root() const {
        return root_.get();
    }
    const plain_node &plain() const {
        return plain_;
    }
    void change() {
        static void (edited_document::*const changes[])(const place &) = {
            &edited_document::add,    &edited_document::add, &edited_document::add,
            &edited_document::remove, &edited_document::set, &edited_document::rename};
        (this->*changes[below(std::size(changes))])(random_place());
    }
    // Asks for a random node in every way that leads to it.
    void look() {
        const place at = random_place();
        if (!at.parent) {
            return;
        }
        vc_json *holder = nullptr;
        vc_json *found = vc_json_get_node_ex(root(), at.path.c_str(), &holder);
        ASSERT_TRUE(found) << at.path;
        ASSERT_EQ(vc_json_find_node(root(), at.path.c_str()), found) << at.path;
        ASSERT_EQ(holder, node_at(at.parent_path)) << at.path;
        ASSERT_EQ(vc_json_node_index(holder, static_cast<uint32_t>(at.index)), found) << at.path;
        ASSERT_EQ(vc_json_num_children(holder), at.parent->children.size()) << at.path;
        ASSERT_EQ(vc_json_get_node_type(found), at.node->type) << at.path;
        if (!at.node->is_complex()) {
            const std::string quote = at.node->type == vc_json_type_string ? "\"" : "";
            ASSERT_EQ(quote + value_of(found) + quote, at.node->text) << at.path;
        }
    }

  private:
    size_t below(size_t limit) {
        return random_() % limit;
    }
    vc_json *node_at(const std::string &path) {
        return path.empty() ? root() : vc_json_get_node_ex(root(), path.c_str(), nullptr);
    }
    std::string some_name() {
        return "m" + std::to_string(below(8));
    }
    place random_place() {
        place at = {&plain_, nullptr, 0, "", ""};
        while (!at.node->children.empty() && below(4) != 0) {
            const size_t index = below(at.node->children.size());
            plain_node *child = &at.node->children[index];
            const std::string step = at.node->type == vc_json_type_array
                                         ? "[" + std::to_string(index) + "]"
                                         : (at.path.empty() ? "" : "/") + child->name;
            at = {child, at.node, index, at.path + step, at.path};
        }
        return at;
    }
    void add(const place &at) {
        if (!at.node->is_complex()) {
            return;
        }
        const bool object = at.node->type == vc_json_type_object;
        plain_node made = {};
        made.name = object ? some_name() : "";
        const char *name = object ? made.name.c_str() : nullptr;
        vc_json *parent = node_at(at.path);
        const vc_json *node = nullptr;
        switch (below(4)) {
        case 0:
            made.type = vc_json_type_array;
            node = vc_json_create_node_array_ex(parent, name);
            break;
        case 1:
            made.type = vc_json_type_object;
            node = vc_json_create_node_object_ex(parent, name);
            break;
        case 2:
            made.type = vc_json_type_bool;
            made.text = "false";
            node = vc_json_create_node_bool_ex(parent, name, 0);
            break;
        default:
            made.type = vc_json_type_number;
            made.text = std::to_string(below(1000));
            node = vc_json_create_node(parent, name, made.text.c_str(), vc_json_type_number);
        }
        const bool taken = object && at.node->has_member(made.name);
        ASSERT_EQ(node != nullptr, !taken) << at.path << ", " << made.name;
        if (!taken) {
            at.node->children.push_back(made);
        }
    }
    void remove(const place &at) {
        if (at.parent) {
            ASSERT_EQ(vc_json_remove_node(root(), at.path.c_str()), 1);
            at.parent->children.erase(at.parent->children.begin() +
                                      static_cast<std::ptrdiff_t>(at.index));
        }
    }
    void set(const place &at) {
        const char *path = at.parent ? at.path.c_str() : nullptr;
        if (at.node->type == vc_json_type_bool) {
            ASSERT_EQ(vc_json_set_value_bool(root(), path, 1), 1);
            at.node->text = "true";
        } else if (at.node->type == vc_json_type_number) {
            const auto number = static_cast<int64_t>(random_()) - 0x80000000;
            ASSERT_EQ(vc_json_set_value_int64(root(), path, number), 1);
            at.node->text = std::to_string(number);
        } else if (below(8) == 0) {
            ASSERT_EQ(at.node->type == vc_json_type_array
                          ? vc_json_set_value_list(root(), path, nullptr)
                          : vc_json_set_value_object(root(), path, nullptr),
                      1);
            at.node->children.clear();
        }
    }
    void rename(const place &at) {
        if (at.parent && at.parent->type == vc_json_type_object) {
            const std::string name = some_name();
            const bool taken = at.parent->has_member(name);
            ASSERT_EQ(vc_json_rename_node(root(), at.path.c_str(), name.c_str()), taken ? 0 : 1);
            at.node->name = taken ? at.node->name : name;
        }
    }

    std::mt19937 random_;
    plain_node plain_ = {vc_json_type_object, "", "", {}};
    json root_{vc_json_create_node_object_ex(nullptr, nullptr)};
};

TEST_F(vc_json_test, random_changes_do_what_they_do_to_a_plain_tree) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        edited_document document(seed);
        for (int step = 0; step < 300 && !HasFatalFailure(); ++step) {
            document.change();
            log.errors(); // names that were taken
            document.look();
            ASSERT_EQ(written(document.root()), document.plain().compact()) << step;
        }
        const json again = parsed(document.plain().compact());
        expect_same_tree(document.root(), again.get());
    }
}

// --- Any text ---

constexpr char sample[] = "{\"a\":[1,-2.5,{\"b\":\"x\\\"y\\\\\"}],\"t\":TRUE,\"n\":null,"
                          "\"o\":{\"p\":{},\"q\":[[],[false]]}}";

// Parses a copy of exactly this size, so that a read behind its end is seen.
bool parses(const std::string &text) {
    const auto exact = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(exact.get(), text.c_str(), text.size() + 1);
    const json root(vc_json_parse_string(exact.get()));
    return root != nullptr;
}

TEST_F(vc_json_test, no_prefix_of_a_document_is_one) {
    const std::string text = sample;
    EXPECT_TRUE(parses(text));
    for (size_t length = 0; length < text.size(); ++length) {
        EXPECT_FALSE(parses(text.substr(0, length))) << length;
        EXPECT_GT(log.errors().size(), 0u);
    }
}

TEST_F(vc_json_test, a_damaged_document_fails_with_lines_or_parses) {
    const std::string text = sample;
    for (size_t position = 0; position < text.size(); ++position) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string damaged = text;
            damaged[position] = static_cast<char>(byte);
            const bool good = parses(damaged);
            EXPECT_NE(good, log.errors().size() > 0) << position << " " << byte;
        }
    }
}

} // namespace
} // namespace quillfence::testing
