// Lists, ranges and patterns when memory runs out.
#include "drive_c.h"
#include "heap_text.h"
#include "memory_sweep.h"
#include "owned_session.h"
#include "platform/file.h"
#include "quillfence-file.h"
#include "quillfence-iprange.h"
#include "quillfence-spam-hooks.h"
#include "tiny_rex.h"
#include "tiny_rex_storage.h"
#include "vc_nulltermlist.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

using enum without_memory;

struct {
    char *text;
    vc_list_entry *list;
    TRex *expression;
    owned_session state;
    FILE *stream;
    const char *error;
} it;

void release() {
    free(it.text);
    if (it.list) {
        vc_destroy_list(&it.list, free);
    }
    trex_free(it.expression);
    if (it.stream) {
        fclose(it.stream);
    }
    it = {};
}

void nothing_made() {
    EXPECT_EQ(it.text, nullptr);
    EXPECT_EQ(it.list, nullptr);
    EXPECT_EQ(it.expression, nullptr);
}

constexpr char dir[] = "c:/quillfence";
constexpr char list_path[] = "c:/quillfence/list";
constexpr char range_path[] = "c:/quillfence/ranges";
constexpr char old_list[] = "# comment\n*@a.example\nb@b.example\n";

const drive_c *disk; // of the running test
std::string old_ranges;

void have_files() {
    disk->write(list_path, old_list);
    disk->write(range_path, old_ranges);
}
void files_as_before() {
    EXPECT_EQ(disk->read(list_path), old_list);
    EXPECT_EQ(disk->read(range_path), old_ranges);
    for (const char *rest : {"list.tmp", "ranges.new", "ranges.bak"}) {
        EXPECT_FALSE(disk->exists(std::string("c:/quillfence/") + rest)) << rest;
    }
}

void have_session() {
    it.state.reset(new_smtp_state());
    it.state->ip = heap_text("10.1.2.3");
    it.state->base_dir = heap_text("c:/quillfence/");
    it.state->mail_from = heap_text("u@a.example");
    it.state->rcpt_to = heap_text("u@a.example");
    vc_lstcat(&it.state->ptr_results, heap_text("a.example"));
}

class memory_matching : public drive_test {
  protected:
    void SetUp() override {
        disk = &drive;
        ASSERT_EQ(ipr_add(dir, "ranges", "10.1.2.0", "10.1.2.255", "x", nullptr), 1);
        ASSERT_EQ(ipr_add(dir, "ranges", "10.2.0.0", "10.2.0.9", "y", nullptr), 1);
        old_ranges = drive.read(range_path);
        have_files();
        drive.write("c:/quillfence/exempt_ips.range", old_ranges);
        drive.write("c:/quillfence/blocked_ips", "10.1.2.3\n");
        for (const char *name : {"from_whitelist", "from_blacklist", "exempt_users"}) {
            drive.write(std::string("c:/quillfence/") + name, "*@a.example\n");
        }
        drive.make_folder("c:/quillfence/dynaregex");
        for (const char *path : {dyna_regex_file, spam_regex_file, confirmed_regex_file}) {
            TRex *expression = trex_compile_ex("a.*", trex_fold_case);
            FILE *stream = platform::stream_open(path, "w+b");
            trs_set_header(stream);
            trs_store(stream, expression);
            fclose(stream);
            trex_free(expression);
        }
    }
};

TEST_F(memory_matching, lists) {
    static const memory_case cases[] = {
        {"__build_path", nullptr, [] { return (it.text = __build_path("a", "b")) != nullptr; },
         nothing_made},
        {"__file_contains_line", nullptr,
         [] { return __file_contains_line(dir, "list", "u@a.example", __wildcardmatch) == 1; },
         files_as_before},
        {"__regexmatch", nullptr, [] { return __regexmatch("a.*", "abc") == 0; }, nullptr},
        {"__wildcardmatch", nullptr, [] { return __wildcardmatch("a*", "abc") == 0; }, nullptr},
        {"vc_file_to_int", [] { disk->write("c:/quillfence/n", "5\n"); },
         [] { return vc_file_to_int(dir, "n") == 5; }, nullptr},
        {"vc_file_to_list", nullptr,
         [] { return (it.list = vc_file_to_list(dir, "list")) != nullptr; }, nothing_made},
        {"vc_iterate_file", nullptr,
         [] { return vc_iterate_file(dir, "list", [](const char *, uint32_t) {}) == 1; },
         files_as_before},
        {"vc_add_entry", have_files,
         [] { return !vc_add_entry(dir, "list", "c@c.example", nullptr, _stricmp); },
         files_as_before},
        {"vc_add_entries", have_files,
         [] {
             list_addition all[] = {{"c@c.example", {}}, {"d@d.example", {}}};
             return !vc_add_entries(dir, "list", all, 2);
         },
         files_as_before},
        // An opposite list that there is no memory to read counts as one without the entry.
        {"vc_add_entry, opposite",
         [] {
             have_files();
             disk->write("c:/quillfence/blocked_ips", "10.9.9.9\n");
             disk->remove("c:/quillfence/exempt_ips");
         },
         [] { return !vc_add_entry(dir, "exempt_ips", "10.1.2.3", nullptr, _stricmp); },
         [] { EXPECT_FALSE(disk->exists("c:/quillfence/exempt_ips.tmp")); }, goes_on},
        {"vc_add_entry, comment", have_files,
         [] { return !vc_add_entry(dir, "list", "b@b.example", "new", _stricmp); },
         files_as_before},
        {"vc_del_entry", have_files,
         [] { return !vc_del_entry(dir, "list", "b@b.example", 0, _stricmp); }, files_as_before},
    };
    sweep(log, cases, release);
}

// A pattern that there is no memory to compile is a line that does not match, so an edit by it
// can't tell whether the entry is there. It says so, and the list is the old one or gets the entry
// at its end; no other line is lost.
TEST_F(memory_matching, an_edit_by_wildcards_loses_no_line) {
    const char *message = nullptr;
    have_files();
    sweep_allocations(
        [&] { message = vc_add_entry(dir, "list", "u@a.example", nullptr, __wildcardmatch); },
        [&](unsigned n) {
            EXPECT_FALSE(log.errors().empty()) << n;
            EXPECT_TRUE(drive.read(list_path).starts_with(old_list)) << n;
            have_files();
        });
    EXPECT_STREQ(message, list_exists);
}

TEST_F(memory_matching, ranges) {
    static const memory_case cases[] = {
        {"file_contains_ip_range_match", nullptr,
         [] { return file_contains_ip_range_match("ranges", "10.1.2.3", dir) == 1; },
         files_as_before},
        {"ipr_add", have_files,
         [] { return ipr_add(dir, "ranges", "10.3.0.1", "10.3.0.2", "z", &it.error) == 1; },
         [] {
             EXPECT_STREQ(it.error, range_open_failed);
             files_as_before();
         }},
        {"ipr_add_all", have_files,
         [] {
             range_addition all[] = {{{0x0100030A, 0x0100030A}, {}}}; // 10.3.0.1
             return ipr_add_all(dir, "ranges", all, 1, "z", &it.error) == 1;
         },
         [] {
             EXPECT_NE(it.error, nullptr);
             files_as_before();
         }},
        {"ipr_del_range_from_file", have_files,
         [] {
             return ipr_del_range_from_file(dir, "ranges", "10.1.2.0", "10.1.2.255", &it.error) ==
                    1;
         },
         [] {
             EXPECT_NE(it.error, nullptr);
             files_as_before();
         }},
        {"ipr_convert_file",
         [] {
             have_files();
             std::string legacy = old_ranges.substr(0, 16) + old_ranges.substr(16, 8) +
                                  old_ranges.substr(16 + 264, 8);
             legacy[8] = 1;
             disk->write("c:/quillfence/legacy", legacy);
         },
         [] { return ipr_convert_file(dir, "legacy") == 1; },
         [] { EXPECT_EQ(disk->read("c:/quillfence/legacy").size(), 32u) << "still legacy"; }},
    };
    sweep(log, cases, release);
}

TEST_F(memory_matching, patterns) {
    static const memory_case cases[] = {
        {"trex_compile_ex", nullptr,
         [] { return (it.expression = trex_compile_ex("a(b|[c-e])\\d?$", 0)) != nullptr; },
         nothing_made},
        {"trex_escape", nullptr, [] { return (it.text = trex_escape("a.b")) != nullptr; },
         nothing_made},
        {"trs_next",
         [] {
             it.stream = platform::stream_open(dyna_regex_file, "rb");
             trs_valid_file(it.stream);
             it.expression = trex_compile_ex("b", 0);
         },
         [] { return trs_next(it.stream, it.expression) == 1; },
         [] { EXPECT_EQ(it.expression->nodes, nullptr); }},
    };
    sweep(log, cases, release);
}

TEST_F(memory_matching, hooks) {
    static const memory_case cases[] = {
        {"fromwhitelist_hook", have_session, [] { return fromwhitelist_hook(it.state.get()) == 1; },
         nullptr},
        {"towhitelist_hook", have_session, [] { return towhitelist_hook(it.state.get()) == 1; },
         nullptr},
        {"fromblacklist_hook", have_session, [] { return fromblacklist_hook(it.state.get()) == 1; },
         nullptr},
        {"ipwhitelist_hook", have_session, [] { return ipwhitelist_hook(it.state.get()) == 1; },
         nullptr, goes_on}, // a list that can't be read does not hide the range file
        {"ipblacklist_hook",
         [] {
             have_session();
             disk->write("c:/quillfence/blocked_ips", "10.1.2.3\n");
         },
         [] { return ipblacklist_hook(it.state.get()) == 1; }, nullptr},
    };
    sweep(log, cases, release);
}

TEST_F(memory_matching, pattern_files_are_looked_up_without_memory) {
    have_session();
    const unsigned long before = allocations_made();
    EXPECT_EQ(dyna_regex_hook(it.state.get()), 1);
    EXPECT_EQ(spam_regex_hook(it.state.get()), 1);
    EXPECT_EQ(confirmed_regex_hook(it.state.get()), 1);
    EXPECT_EQ(allocations_made() - before, 0u);
    release();
}

} // namespace
} // namespace quillfence::testing
