// An entry that is left out counts as if it were not there: what stands behind it is found.
#include "../reliability/engine_drive.h"
#include "call_context.h"
#include "evidence_watch.h"
#include "known_sender_forgery_funcs.h"
#include "owned_snapshot.h"
#include "quillfence-file.h"

namespace quillfence::testing {
namespace {

constexpr char base[] = "c:/quillfence/";
constexpr char patterns[] = "c:/quillfence/dynaregex/spam.cregexes";
constexpr char declarations[] = "c:/quillfence/control/valid_domain_ips";

// Each kind of file, in which the second and the fourth entry match, and a question to it.
struct asked_file {
    const char *path;
    const char *place; // how the evidence calls it
    int (*ask)();
    int without; // the answer when nothing matches
};

constexpr const frozen_files *no_files = nullptr;

constexpr asked_file files[] = {
    {"c:/quillfence/from_blacklist", " line=",
     [] { return __file_contains_line(base, "from_blacklist", "a@b.example", __wildcardmatch); },
     0},
    {"c:/quillfence/blocked_ips",
     " line=", [] { return __file_contains_line(base, "blocked_ips", "192.0.2.7", _stricmp); }, 0},
    {"c:/quillfence/blocked_ips.range", " record=",
     [] { return file_contains_ip_range_match("blocked_ips.range", "192.0.2.7", base); }, 0},
    {patterns, " expression=", [] { return compiled_regex_match(patterns, "dyn7.example"); }, 0},
    {declarations, " line=",
     [] { return ksf_check_domain_to_ip_restriction("192.0.2.1", "b.example", declarations); }, 1},
};

class left_out : public drive_test {
  protected:
    left_out() {
        drive.write("c:/quillfence/from_blacklist", "x@y\n*@b.example\n# three\na@b.example\n");
        drive.write("c:/quillfence/blocked_ips", "192.0.2.1\n192.0.2.7\n\n192.0.2.7");
        ipr_add(base, "blocked_ips.range", "10.0.0.0", "10.0.0.9", "", nullptr);
        ipr_add(base, "blocked_ips.range", "192.0.2.0", "192.0.2.9", "", nullptr);
        ipr_add(base, "blocked_ips.range", "10.0.1.0", "10.0.1.9", "", nullptr);
        ipr_add(base, "blocked_ips.range", "192.0.2.7", "192.0.2.20", "", nullptr);
        drive.write("c:/quillfence/control/valid_domain_ips",
                    "a.example : 10.0.0.0/8\nb.example : 10.0.0.0/8\n# three\n"
                    "B.example : 10.1.0.0/16\n");
        drive.make_folder("c:/quillfence/dynaregex");
        store({"^x", "^dyn", "^y", "[0-9]"});
        for (const char *name : {"one", "two"}) {
            drive.write(std::string("c:/quillfence/control/") + name, "first\nsecond\r\n\nlast");
        }
    }

    static void store(const std::vector<const char *> &texts) {
        const platform::stream_ptr stream(platform::stream_open(patterns, "w+b"));
        trs_set_header(stream.get());
        for (const char *text : texts) {
            TRex *const expression = trex_compile_ex(text, trex_fold_case);
            trs_store(stream.get(), expression);
            trex_free(expression);
        }
    }

    // The place that answered, 0 for none; -1 when the answer is not the place's.
    static int place_of(const asked_file &file, const left_out_entry &entry,
                        const frozen_files *configuration) {
        evidence_watch watch;
        current_call_context()->configuration = configuration;
        current_call_context()->left_out = &entry;
        const int answer = file.ask();
        int place = 0;
        for (const std::string &line : watch.take()) {
            const size_t at = line.find(file.place);
            place = at == std::string::npos ? place : std::atoi(&line[at + strlen(file.place)]);
        }
        return (answer == file.without) == (place == 0) ? place : -1;
    }

    static std::string lines_of(const char *name, const left_out_entry *entry) {
        call_context context = {.left_out = entry};
        const call_scope scope(&context);
        vc_list_entry *list = vc_file_to_list("c:/quillfence/control", name);
        std::string all;
        for (const vc_list_entry *line = list; line; line = line->next) {
            all += std::string("[") + static_cast<const char *>(line->data) + "]";
        }
        vc_destroy_list(&list, free);
        return all;
    }
};

TEST_F(left_out, finds_what_stands_behind_it) {
    snapshot_report report = {};
    const owned_snapshot frozen(snapshot_load(nullptr, &report));
    snapshot_report_release(&report);
    ASSERT_NE(frozen, nullptr);
    for (const asked_file &file : files) {
        for (const frozen_files *const from :
             {no_files, static_cast<const frozen_files *>(frozen.get())}) {
            SCOPED_TRACE(std::string(file.path) + (from ? ", frozen" : ""));
            EXPECT_EQ(place_of(file, {file.path, 0}, from), 2);
            EXPECT_EQ(place_of(file, {file.path, 1}, from), 2);
            EXPECT_EQ(place_of(file, {file.path, 2}, from), 4);
            EXPECT_EQ(place_of(file, {file.path, 4}, from), 2);
            EXPECT_EQ(place_of(file, {"c:/quillfence/other", 2}, from), 2);
        }
    }
}

TEST_F(left_out, nothing_matches_without_the_only_one) {
    drive.write("c:/quillfence/from_blacklist", "x@y\n*@b.example\n");
    drive.write("c:/quillfence/blocked_ips", "\n192.0.2.7\n");
    ipr_del_range_from_file(base, "blocked_ips.range", "192.0.2.7", "192.0.2.20", nullptr);
    drive.write(declarations, "\nb.example : 10.0.0.0/8\n");
    store({"^x", "^dyn"});
    snapshot_report report = {};
    const owned_snapshot frozen(snapshot_load(nullptr, &report));
    snapshot_report_release(&report);
    for (const asked_file &file : files) {
        for (const frozen_files *const from :
             {no_files, static_cast<const frozen_files *>(frozen.get())}) {
            SCOPED_TRACE(std::string(file.path) + (from ? ", frozen" : ""));
            EXPECT_EQ(place_of(file, {file.path, 1}, from), 2);
            EXPECT_EQ(place_of(file, {file.path, 2}, from), 0);
        }
    }
}

TEST_F(left_out, a_control_file_has_one_line_less) {
    const auto without = [](uint32_t line) {
        const left_out_entry entry = {"c:/quillfence/control/one", line};
        return lines_of("one", &entry);
    };
    EXPECT_EQ(lines_of("one", nullptr), "[first][second\r][][last]");
    EXPECT_EQ(without(1), "[second\r][][last]");
    EXPECT_EQ(without(2), "[first][][last]");
    EXPECT_EQ(without(3), "[first][second\r][last]");
    EXPECT_EQ(without(4), "[first][second\r][][]");
    EXPECT_EQ(without(5), "[first][second\r][][last]");
    const left_out_entry other = {"c:/quillfence/control/two", 1};
    EXPECT_EQ(lines_of("one", &other), "[first][second\r][][last]");
}

} // namespace
} // namespace quillfence::testing
