// Files that somebody deletes between a lookup's test for them and its opening: they count as
// missing, and no lookup makes them anew.
#include <filesystem>
#include <set>

#include "engine_test.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "platform/observer.h"
#include "quillfence-file.h"
#include "quillfence-iprange.h"
#include "run.h"
#include "vc_hashmap.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

const drive_c *drive_of_test;
std::set<std::string> deleted;

// Deletes each file at the last moment before it is opened.
uint32_t delete_at_opening(const char *call, const char *subject) {
    const std::string name = call;
    if (name == "file_open" || name == "stream_open") {
        drive_of_test->remove(subject);
        deleted.insert(subject);
    }
    return 0;
}

class vanishing_files : public engine_test {
  protected:
    vanishing_files() {
        drive_of_test = &drive;
        deleted.clear();
    }
    // Runs it while files vanish, and expects that none of them comes back.
    template <class operation_type>
    void run(operation_type operation) {
        deleted.clear();
        platform::set_call_observer(delete_at_opening);
        operation();
        platform::set_call_observer(nullptr);
        log.take(); // what can't be read may be said
        for (const std::string &path : deleted) {
            EXPECT_FALSE(drive.exists(path)) << path;
        }
    }
};

TEST_F(vanishing_files, whole_checks_make_none) {
    size_t files = 0;
    for (const client &who : clients) {
        for (const bool decides : {false, true}) {
            write_configuration(drive);
            run([&] { decides ? void(decide(who)) : vc_json_free(replay(who)); });
            files += deleted.size();
        }
    }
    EXPECT_GE(files, 50u);
}

TEST_F(vanishing_files, single_lookups_find_nothing_and_make_nothing) {
    static constexpr char file[] = "c:/quillfence/a";
    static const struct {
        const char *name;
        bool (*finds)();
    } lookups[] = {
        {"block map", [] { return lookupMapFile(file, 0x0100007F) != 0; }},
        {"list", [] { return __file_contains_line(nullptr, file, "x", _stricmp) != 0; }},
        {"range file",
         [] { return file_contains_ip_range_match("a", "10.0.0.1", "c:/quillfence") != 0; }},
        {"range of a file",
         [] { return ipr_file_contains_range(file, "10.0.0.1", "10.0.0.2", nullptr) != 0; }},
        {"number", [] { return vc_file_to_int("c:/quillfence", "a") != 0; }},
        {"control file", [] { return vc_file_to_list("c:/quillfence", "a") != nullptr; }},
        {"forgery list", [] { return ksf_load_list(file) != nullptr; }},
        {"saved map", [] { return vc_map_load(file) != nullptr; }},
        {"map of a control file",
         [] {
             vc_hashmap *map = nullptr;
             return vc_map_load_control_file(file, 0, '=', &map) > 0;
         }},
        {"JSON", [] { return vc_json_parse_file(file) != nullptr; }},
    };
    for (const auto &lookup : lookups) {
        drive.write(file, "1");
        bool found = true;
        run([&] { found = lookup.finds(); });
        EXPECT_FALSE(found) << lookup.name;
        EXPECT_EQ(deleted, std::set<std::string>{file}) << lookup.name;
    }
}

} // namespace
} // namespace quillfence::testing
