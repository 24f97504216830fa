// The foundation library when memory runs out.
#include <cstdio>
#include <cstdlib>

#include "dns_script.h"
#include "drive_c.h"
#include "heap_text.h"
#include "memory_sweep.h"
#include "platform/dns.h"
#include "vc_compat.h"
#include "vc_dns.h"
#include "vc_file.h"
#include "vc_hashmap.h"
#include "vc_json.h"
#include "vc_list.h"
#include "vc_nulltermlist.h"
#include "vc_rfc.h"
#include "vc_stringutils.h"
#include "vc_w32.h"

namespace quillfence::testing {
namespace {

using enum without_memory;

// What the operations work on; given back after every run.
struct {
    char *text;
    vc_list_entry *list;
    char **array;
    char **second;
    vc_hashmap *map;
    vc_hashmap *other_map;
    vc_map_iterator *walk;
    vc_json *node;
    vc_json **nodes;
    void *block;
} it;

void release() {
    dns_script::asked(); // what the script has noted
    free(it.text);
    if (it.list) {
        vc_destroy_list(&it.list, free);
    }
    vc_lstfree(&it.array, free);
    vc_lstfree(&it.second, nullptr);
    if (it.map) {
        vc_map_destroy(it.map);
    }
    if (it.other_map) {
        vc_map_destroy(it.other_map);
    }
    vc_map_iterator_free(it.walk);
    vc_json_free(it.node);
    vc_lstfree(reinterpret_cast<void ***>(&it.nodes), vc_json_free);
    free(it.block);
    it = {};
}

void have_abc() {
    it.text = heap_text("abc");
}
void still_abc() {
    EXPECT_EQ(shown(it.text), "abc");
}
void have_blanks() {
    it.text = heap_text("  a  b \r\n");
}
void nothing_made() {
    EXPECT_EQ(it.text, nullptr);
    EXPECT_EQ(it.list, nullptr);
    EXPECT_EQ(it.array, nullptr);
    EXPECT_EQ(it.map, nullptr);
    EXPECT_EQ(it.node, nullptr);
    EXPECT_EQ(it.nodes, nullptr);
    EXPECT_EQ(it.block, nullptr);
}

class memory_common : public drive_test {};

TEST_F(memory_common, strings) {
    static const memory_case cases[] = {
        {"vc_strcat, new", nullptr, [] { return vc_strcat(&it.text, "x") == 1; }, nothing_made},
        {"vc_strcat, longer", have_abc, [] { return vc_strcat(&it.text, "x") == 1; }, still_abc},
        {"vc_ccat, new", nullptr, [] { return vc_ccat(&it.text, 'x') == 1; }, nothing_made},
        {"vc_ccat, longer", have_abc, [] { return vc_ccat(&it.text, 'x') == 1; }, still_abc},
        {"vc_ltoa", have_abc, [] { return vc_ltoa(&it.text, -12) == 1; }, still_abc},
        {"vc_icat", have_abc, [] { return vc_icat(&it.text, -12) == 1; }, still_abc},
        {"vc_trim", have_blanks, [] { return vc_trim(&it.text) == 1; },
         [] { EXPECT_EQ(shown(it.text), "  a  b") << "cut at its new end"; }},
        {"vc_simplify_whitespace", have_blanks,
         [] { return vc_simplify_whitespace(&it.text) == 1; }, [] { EXPECT_NE(it.text, nullptr); }},
        {"vc_strip_whitespace", have_blanks, [] { return vc_strip_whitespace(&it.text) == 1; },
         [] { EXPECT_EQ(shown(it.text), "  a  b \r\n"); }},
        {"vc_chomp", have_blanks, [] { return vc_chomp(&it.text) == 1; },
         [] { EXPECT_NE(it.text, nullptr); }},
        {"vc_str_replace", have_abc, [] { return vc_str_replace(&it.text, "b", "xyz") == 1; },
         still_abc},
        {"vc_asprintf", nullptr, [] { return vc_asprintf(&it.text, "%d", 5) == 1; }, nothing_made},
        {"vc_concatenate", nullptr,
         [] { return (it.text = vc_concatenate("a", "/", "b")) != nullptr; }, nothing_made},
        {"vc_strdup_till", nullptr,
         [] { return (it.text = vc_strdup_till("a,b", nullptr, ',')) != nullptr; }, nothing_made},
        {"asprintf", have_abc, [] { return asprintf(&it.text, "%d", 5) == 1; }, still_abc},
        {"vc_strndup", nullptr, [] { return (it.text = vc_strndup("abc", 2)) != nullptr; },
         [] { EXPECT_EQ(errno, ENOMEM); }, fails_silently},
        {"vc_calloc", nullptr, [] { return (it.block = vc_calloc("f", "m", 1, 2, 3)) != nullptr; },
         nothing_made},
        {"vc_tmp_file", nullptr, [] { return (it.text = vc_tmp_file("x")) != nullptr; }, nullptr,
         goes_on}, // under C:/TEMP when only TEMP could not be had
        {"__getenv", have_abc, [] { return __getenv("PATH", &it.text) == 1; }, still_abc},
    };
    sweep(log, cases, release);
}

int line_count(vc_list_entry *list) {
    return vc_list_count(list);
}

void have_list() {
    vc_append_list_entry(&it.list, "one", 4, 1);
    vc_append_list_entry(&it.list, "two", 4, 1);
}
void still_two() {
    EXPECT_EQ(line_count(it.list), 2);
}
void have_array() {
    vc_lstcat(&it.array, heap_text("one"));
    vc_lstcat(&it.second, it.array[0]);
}
void still_one() {
    EXPECT_EQ(vc_lstcount(it.array), 1u);
}

TEST_F(memory_common, lists) {
    static char two[] = "two";
    static const memory_case cases[] = {
        {"vc_append_list_entry, copy", have_list,
         [] { return vc_append_list_entry(&it.list, two, 4, 1) == 3; }, still_two},
        {"vc_prepend_list_entry, copy", have_list,
         [] { return vc_prepend_list_entry(&it.list, two, 4, 1) == 1; }, still_two},
        {"vc_append_list_entry, taken over",
         [] {
             have_list();
             it.block = heap_text("three");
         },
         [] {
             const bool added = vc_append_list_entry(&it.list, it.block, 6, 0) == 3;
             it.block = added ? nullptr : it.block; // on failure it stays the caller's
             return added;
         },
         still_two},
        {"vc_list_join", have_list,
         [] { return (it.text = vc_list_join(it.list, ",")) != nullptr; }, still_two},
        {"vc_list_split", nullptr, [] { return (it.list = vc_list_split("a,b", ",")) != nullptr; },
         nothing_made},
        {"vc_list_from_string_by_char", nullptr,
         [] { return vc_list_from_string_by_char(&it.list, "a,b", 3, ',') == 1; },
         [] { EXPECT_LE(line_count(it.list), 1) << "the pieces before"; }},
        {"vc_lstcat", have_array, [] { return vc_lstcat(&it.second, it.array[0]) != nullptr; },
         [] { EXPECT_EQ(vc_lstcount(it.second), 1u); }},
        {"vc_lstappend", have_array,
         [] {
             return vc_lstappend(reinterpret_cast<void ***>(&it.second),
                                 reinterpret_cast<void **>(it.array)) != nullptr;
         },
         still_one},
        {"vc_lstsplode_ex", nullptr,
         [] { return vc_lstsplode_ex(reinterpret_cast<void ***>(&it.array), "a,b", ',', 1) == 1; },
         [] { EXPECT_LE(vc_lstcount(it.array), 1u) << "the pieces before"; }},
    };
    sweep(log, cases, release);
}

void have_map() {
    it.map = vc_map_create(2, 2);
    vc_map_store_ex(it.map, "a", heap_text("1"), 2, 0, free);
    vc_map_store_ex(it.map, "b", heap_text("2"), 2, 0, free);
}
// The map has its two entries and can be used.
void still_the_map() {
    void *value = nullptr;
    EXPECT_EQ(vc_map_count(it.map), 2u);
    EXPECT_EQ(vc_map_fetch(it.map, "a", &value), 1);
    EXPECT_STREQ(static_cast<char *>(value), "1");
    EXPECT_EQ(vc_map_fetch(it.map, "b", &value), 1);
    EXPECT_EQ(vc_map_store_int32(it.map, "later", 5), 1);
}

constexpr char map_file[] = "c:/quillfence/map";
constexpr char control_file[] = "c:/quillfence/control_file";

TEST_F(memory_common, maps) {
    have_map();
    ASSERT_EQ(vc_map_save(it.map, map_file, 1), 1);
    release();
    drive.write(control_file, "a = 1\nb = 2 # comment\n");
    static const memory_case cases[] = {
        {"vc_map_create", nullptr, [] { return (it.map = vc_map_create(2, 2)) != nullptr; },
         nothing_made},
        {"vc_map_store_ex, copy", have_map,
         [] { return vc_map_store_ex(it.map, "c", it.map, 3, 1, nullptr) == 1; }, still_the_map},
        {"vc_map_store_ex, taken over",
         [] {
             have_map();
             it.block = heap_text("3");
         },
         [] {
             const bool stored = vc_map_store_ex(it.map, "c", it.block, 2, 0, free) == 1;
             it.block = stored ? nullptr : it.block;
             return stored;
         },
         still_the_map},
        {"vc_map_store_ex, first", [] { it.map = vc_map_create(0, 0); },
         [] { return vc_map_store_int32(it.map, "c", 3) == 1; },
         [] { EXPECT_EQ(vc_map_count(it.map), 0u); }},
        {"a store that makes the map grow",
         [] {
             it.map = vc_map_create(1, 2);
             vc_map_store_ex(it.map, "a", heap_text("1"), 2, 0, free);
             vc_map_store_ex(it.map, "b", heap_text("2"), 2, 0, free);
         },
         [] { return vc_map_store_int64(it.map, "c", 3) == 1; }, still_the_map},
        {"vc_map_update_ex, copy", have_map,
         [] { return vc_map_update_ex(it.map, "a", it.map, 3, 1, nullptr) == 1; }, still_the_map},
        {"vc_map_rename", have_map, [] { return vc_map_rename(it.map, "a", "z") == 1; },
         still_the_map},
        {"vc_map_rehash", have_map, [] { return vc_map_rehash(it.map) == 1; }, still_the_map},
        {"vc_map_copy_ex", have_map,
         [] { return (it.other_map = vc_map_copy_ex(it.map, 0, 0)) != nullptr; }, still_the_map},
        {"vc_map_shrink", have_map,
         [] { return (it.other_map = vc_map_shrink(it.map)) != nullptr; }, still_the_map},
        {"vc_map_index", have_map, [] { return vc_map_index(it.map, 1, nullptr, nullptr) == 1; },
         still_the_map},
        {"vc_map_iterator_start_ex", have_map,
         [] { return (it.walk = vc_map_iterator_start_ex(it.map, 0)) != nullptr; }, still_the_map},
        {"vc_map_save", have_map, [] { return vc_map_save(it.map, map_file, 1) == 1; },
         still_the_map},
        {"vc_map_load", nullptr, [] { return (it.map = vc_map_load(map_file)) != nullptr; },
         nothing_made},
        {"vc_map_load_control_file", nullptr,
         [] { return vc_map_load_control_file(control_file, 0, '=', &it.map) == 1; }, nothing_made},
    };
    sweep(log, cases, release);
}

void have_node() {
    it.node = vc_json_parse_string(R"({"list":["a","b"],"map":{"n":1}})");
}
vc_json *inner; // a node of the tree

// The tree is whole and can be changed.
void still_the_tree() {
    EXPECT_EQ(vc_json_num_children(it.node), 2u);
    EXPECT_NE(vc_json_get_node_ex(it.node, "list[1]", nullptr), nullptr);
    EXPECT_NE(vc_json_get_node_ex(it.node, "map/n", nullptr), nullptr);
    EXPECT_NE(vc_json_create_node_int_ex(it.node, "later", 1), nullptr);
}

TEST_F(memory_common, json) {
    drive.write("c:/quillfence/a.json", R"({"list":["a",[1,true,null]],"map":{"n":1}})");
    static const memory_case cases[] = {
        {"object", nullptr,
         [] { return (it.node = vc_json_create_node_object_ex(nullptr, "n")) != nullptr; },
         nothing_made},
        {"member of an object", have_node,
         [] { return vc_json_create_node_string_ex(it.node, "x", "y") != nullptr; },
         still_the_tree},
        {"element of an array",
         [] {
             have_node();
             inner = vc_json_get_node_ex(it.node, "list", nullptr);
         },
         [] { return vc_json_create_node_bool_ex(inner, nullptr, 1) != nullptr; }, still_the_tree},
        {"first member", [] { it.node = vc_json_create_node_object_ex(nullptr, nullptr); },
         [] { return vc_json_create_node_float_ex(it.node, "x", 1.5) != nullptr; },
         [] { EXPECT_EQ(vc_json_num_children(it.node), 0u); }},
        {"int64", nullptr,
         [] { return (it.node = vc_json_create_node_int64_ex(nullptr, "n", 1)) != nullptr; },
         nothing_made},
        {"vc_json_get_node_ex", have_node,
         [] { return vc_json_get_node_ex(it.node, "map/n", nullptr) != nullptr; }, still_the_tree},
        {"vc_json_find_node", have_node, [] { return vc_json_find_node(it.node, "n") != nullptr; },
         still_the_tree, goes_on},
        {"vc_json_node_index", have_node, [] { return vc_json_node_index(it.node, 1) != nullptr; },
         still_the_tree},
        {"vc_json_rename_node", have_node,
         [] { return vc_json_rename_node(it.node, "map", "other") == 1; }, still_the_tree},
        {"vc_json_remove_node", have_node,
         [] { return vc_json_remove_node(it.node, "map/n") == 1; }, still_the_tree},
        {"vc_json_get_value_string", have_node,
         [] { return vc_json_get_value_string(it.node, "map/n", &it.text) == 1; }, still_the_tree},
        {"vc_json_parse_string", nullptr,
         [] {
             return (it.node = vc_json_parse_string(R"({"a":["b",1,true,null,{"c":""}]})")) !=
                    nullptr;
         },
         nothing_made},
        {"vc_json_parse_file", nullptr,
         [] { return (it.node = vc_json_parse_file("c:/quillfence/a.json")) != nullptr; },
         nothing_made},
        {"vc_json_parse_full_file", nullptr,
         [] { return (it.nodes = vc_json_parse_full_file("c:/quillfence/a.json")) != nullptr; },
         nothing_made, fails, "Error appending node to list"},
    };
    sweep(log, cases, release);
}

TEST_F(memory_common, files) {
    drive.write("c:/quillfence/a", "abc");
    static const memory_case cases[] = {
        {"vc_file_get_contents_ex", nullptr,
         [] { return (it.text = vc_file_get_contents_ex("c:/quillfence/a", nullptr)) != nullptr; },
         nothing_made},
    };
    sweep(log, cases, release);
    EXPECT_EQ(drive.read("c:/quillfence/a"), "abc");
}

void have_old_names() {
    vc_lstcat(&it.array, heap_text("old"));
}
void still_old_names() {
    ASSERT_EQ(vc_lstcount(it.array), 1u);
    EXPECT_STREQ(it.array[0], "old");
}

TEST_F(memory_common, addresses_and_dns) {
    dns_script dns;
    dns.ptr("4.3.2.1.in-addr.arpa.", {"a.example", "b.example"});
    dns.answer("a.example.", platform::dns_type_a, 0, {{platform::dns_type_a, ""}});
    static constexpr char header[] = "A <a@x.example>, \"B\" <b@y.example> (c)";
    static const memory_case cases[] = {
        {"vc_rfc822_email_address", nullptr,
         [] { return vc_rfc822_email_address("<a@x.example>", nullptr) == 1; }, nullptr, goes_on},
        {"vc_split_addresses", nullptr,
         [] { return (it.list = vc_split_addresses(header)) != nullptr; }, nothing_made},
        {"vc_extract_address_from_mailbox", nullptr,
         [] { return (it.text = vc_extract_address_from_mailbox(" A <a@x.example>")) != nullptr; },
         nothing_made},
        {"vc_parse_addresses_from_header", nullptr,
         [] { return (it.list = vc_parse_addresses_from_header(header)) != nullptr; },
         nothing_made},
        {"vc_arpa", have_abc, [] { return vc_arpa(&it.text, "1.2.3.4") == 1; }, still_abc},
        {"vc_lookup_reverse_dns", have_old_names,
         [] { return vc_lookup_reverse_dns(&it.array, "1.2.3.4", 1, 0) == vc_dns_found; },
         still_old_names},
        {"vc_has_a_or_mx", nullptr, [] { return vc_has_a_or_mx("a.example", 1) == vc_dns_found; },
         nullptr, fails, "out of memory error resolving A/MX for a.example"},
    };
    sweep(log, cases, release);
}

// A lookup without memory is a failed lookup, never a missing name.
TEST_F(memory_common, no_memory_is_no_missing_name) {
    dns_script dns;
    dns.answer("a.example.", platform::dns_type_a, 0, {{platform::dns_type_a, ""}});
    dns.ptr("4.3.2.1.in-addr.arpa.", {"a.example"});
    int domain = 0;
    sweep_allocations([&] { domain = vc_has_a_or_mx("a.example", 1); },
                      [&](unsigned n) { EXPECT_EQ(domain, vc_dns_failed) << n; });
    char **names = nullptr;
    int address = 0;
    sweep_allocations([&] { address = vc_lookup_reverse_dns(&names, "1.2.3.4", 1, 0); },
                      [&](unsigned n) { EXPECT_EQ(address, vc_dns_failed) << n; });
    vc_lstfree(&names, free);
    EXPECT_FALSE(log.errors().empty());
}

} // namespace
} // namespace quillfence::testing
