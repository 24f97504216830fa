#include "bundle.h"

#include <gtest/gtest.h>

#include "call_watch.h"
#include "disk_names.h"
#include "explaining.h"
#include "file_digest.h"
#include "pattern_lines.h"
#include "platform/surroundings.h"
#include "record_writer.h"

namespace quillfence::testing {
namespace {

constexpr char tar[] = "c:/quillfence/out.tar";
constexpr char unpacked[] = "c:/quillfence/unpacked";

TEST(archive_name, of_paths) {
    const struct {
        const char *path;
        const char *want;
    } cases[] = {
        {"c:/quillfence/from_blacklist", "c/quillfence/from_blacklist"},
        {"c:/quillfence/bms//bots.bms", "c/quillfence/bms/bots.bms"},
        {"c:/quillfence/bms//../lists/x", "c/quillfence/lists/x"},
        {"C:\\Program Files\\Mail Enable\\DOMAIN.TAB", "c/Program Files/Mail Enable/DOMAIN.TAB"},
        {"D:\\users/bob\\exempt_ips", "d/users/bob/exempt_ips"},
        {"/home/x/users/bob/exempt_ips", "root/home/x/users/bob/exempt_ips"},
        {"/home/a\\b", "root/home/a\\b"},
        {"c:/../x", ""},
        {"users/bob/exempt_ips", ""},
        {"c:x", ""},
        {"\\\\server\\share\\x", ""},
        {"//server/share/x", ""},
        {"", ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(decision::archive_name(c.path), c.want) << c.path;
    }
    EXPECT_EQ(decision::place_in_bundle("/tmp/b", "C:\\x\\y"), "/tmp/b/c/x/y");
    EXPECT_EQ(decision::place_in_bundle("/tmp/b", "x"), "");
}

class bundle_test : public explain_test {
  protected:
    test_case captured(const char *name) {
        test_case made{.record = explained(name), .captured = true};
        made.expect.verdict = {"reject"};
        return made;
    }
    written_bundle written(const test_case &which, const bundle_options &how = {}) {
        const platform::stream_ptr stream(platform::stream_open(tar, "wb"));
        return write_bundle(stream.get(), which, how);
    }
    static test_case unpacked_case(const drive_c &drive) {
        json_problem problem;
        const auto read = read_case(drive.read(std::string(unpacked) + "/case.json"), &problem);
        EXPECT_TRUE(read) << problem.text;
        return read.value_or(test_case());
    }
    // The decision once more, from the unpacked files alone.
    decision_record again(const char *name) {
        platform::set_drive_root(drive.native(std::string(unpacked) + "/c").c_str());
        decision_record record = explained(name);
        platform::set_drive_root(nullptr);
        return record;
    }
    // All but times, for a failure that a person can read.
    static std::string text_of(decision_record record) {
        std::string text;
        for (dns_record &question : record.dns) {
            question.ms.reset();
        }
        write_record(text, record, record_form::whole, json_layout::indented);
        return text;
    }
    static std::vector<std::string> names_of(const std::vector<tar_entry> &entries) {
        std::vector<std::string> names;
        for (const tar_entry &entry : entries) {
            names.push_back(entry.name + (entry.folder ? "/" : ""));
        }
        return names;
    }
    static bool has(const std::vector<tar_entry> &entries, const std::string &name) {
        const auto names = names_of(entries);
        return std::find(names.begin(), names.end(), name) != names.end();
    }
};

TEST_F(bundle_test, holds_what_the_decision_rests_on) {
    const test_case blacklisted = captured("blacklisted");
    const written_bundle made = written(blacklisted);
    ASSERT_EQ(made.problem, "");
    EXPECT_EQ(made.entries.front().name, "case.json");
    for (const char *const name :
         {"c/quillfence/", "c/quillfence/bms/", "c/quillfence/control/", "c/quillfence/bms/one",
          "c/quillfence/from_blacklist", "c/quillfence/control/enabled"}) {
        EXPECT_TRUE(has(made.entries, name)) << name;
    }
    const std::string bytes = drive.read(tar);
    EXPECT_TRUE(is_bundle(bytes));
    EXPECT_TRUE(is_bundle(bytes.substr(0, 512)));
    EXPECT_FALSE(is_bundle(bytes.substr(0, 511)));
    EXPECT_FALSE(is_bundle(bytes.substr(512)));
    EXPECT_FALSE(is_bundle("{\"schema\": \"quillfence.case/1\"}" + std::string(600, ' ')));

    const unpacked_tar result = unpack_bundle(tar, unpacked);
    ASSERT_EQ(result.problem, "");
    EXPECT_EQ(names_of(result.entries), names_of(made.entries));
    EXPECT_EQ(unpacked_case(drive), blacklisted);
    for (const config_file &file : blacklisted.record.config.files) {
        const std::string place = place_in_bundle(unpacked, file.path);
        EXPECT_EQ(drive.exists(place), !file.missing) << place;
        EXPECT_TRUE(file.missing || drive.read(place) == drive.read(file.path)) << place;
    }
}

TEST_F(bundle_test, decides_the_same_from_its_own_files) {
    for (const client &who : clients) {
        drive.remove(unpacked);
        test_case before = captured(who.name);
        ASSERT_EQ(written(before).problem, "");
        ASSERT_EQ(unpack_bundle(tar, unpacked).problem, "");
        EXPECT_EQ(text_of(again(who.name)), text_of(before.record)) << who.name;
    }
}

TEST_F(bundle_test, what_is_not_consulted_stays_behind) {
    drive.write("c:/quillfence/secret", "x");
    drive.write("c:/quillfence/bms/three", "x");
    const written_bundle made = written(captured("good"));
    EXPECT_EQ(made.problem, "");
    EXPECT_FALSE(has(made.entries, "c/quillfence/secret"));
    EXPECT_FALSE(has(made.entries, "c/quillfence/bms/three"));
}

TEST_F(bundle_test, a_users_folder) {
    drive.write("c:/quillfence/users/bob/from_whitelist", "*@good.example\n");
    drive.make_folder("c:/quillfence/users/eve");
    for (const char *const user : {"bob", "eve"}) {
        drive.remove(unpacked);
        options.user_dir = std::string("c:/quillfence/users/") + user;
        const test_case before = captured("good");
        const written_bundle made = written(before);
        EXPECT_EQ(made.problem, "");
        EXPECT_TRUE(has(made.entries, std::string("c/quillfence/users/") + user + "/"));
        ASSERT_EQ(unpack_bundle(tar, unpacked).problem, "");
        EXPECT_EQ(text_of(again("good")), text_of(before.record));
    }
    test_case elsewhere = captured("good");
    elsewhere.record.config.files.emplace_back().path = "here/exempt_ips";
    EXPECT_EQ(written(elsewhere).problem,
              "here/exempt_ips: has no place in a bundle, since it is not a whole path on a drive");
}

TEST_F(bundle_test, cut_maps) {
    const test_case before = captured("nothing right");
    const written_bundle made = written(before, {.cut_maps = true});
    ASSERT_EQ(made.problem, "");
    EXPECT_EQ(made.cut, (lines{"c/quillfence/bms/one", "c/quillfence/bms/two"}));
    ASSERT_EQ(unpack_bundle(tar, unpacked).problem, "");
    const test_case kept = unpacked_case(drive);
    size_t maps = 0;
    for (const config_file &file : kept.record.config.files) {
        if (!file.missing) {
            const std::string bytes = drive.read(place_in_bundle(unpacked, file.path));
            EXPECT_EQ(file.sha256, data_files::digest_of(bytes)) << file.path;
            EXPECT_EQ(file.bytes, bytes.size());
            maps += file.path.find("/bms//") != std::string::npos;
        }
    }
    EXPECT_EQ(maps, 2u);
    EXPECT_EQ(text_of(again("nothing right")), text_of(kept.record));
    EXPECT_EQ(kept.record.block_maps, before.record.block_maps);
}

// The maps were asked for the IPv4 address that the session made of it.
TEST_F(bundle_test, maps_are_cut_to_the_address_that_was_asked_for) {
    test_case before = captured("nothing right");
    before.record.transaction.ip = "::ffff:" + *before.record.transaction.ip;
    ASSERT_EQ(written(before, {.cut_maps = true}).problem, "");
    ASSERT_EQ(unpack_bundle(tar, unpacked).problem, "");
    EXPECT_EQ(again("nothing right").block_maps, before.record.block_maps);
}

TEST_F(bundle_test, a_map_that_was_asked_for_no_address) {
    test_case before = captured("nothing right");
    for (const auto &ip : {std::optional<std::string>(), std::optional<std::string>("nobody")}) {
        before.record.transaction.ip = ip;
        EXPECT_EQ(written(before).problem, "");
        EXPECT_EQ(written(before, {.cut_maps = true}).problem,
                  "c:/quillfence/bms//one: can't be cut, since the case has no address that it was "
                  "asked for");
    }
}

TEST_F(bundle_test, letter_case_is_kept) {
    drive.rename("c:/quillfence/from_blacklist", "c:/quillfence/From_BLACKLIST");
    drive.rename("c:/quillfence/control", "c:/quillfence/Control");
    const test_case before = captured("blacklisted");
    const written_bundle made = written(before);
    ASSERT_EQ(made.problem, "");
    EXPECT_TRUE(has(made.entries, "c/quillfence/From_BLACKLIST"));
    EXPECT_TRUE(has(made.entries, "c/quillfence/Control/enabled"));
    ASSERT_EQ(unpack_bundle(tar, unpacked).problem, "");
    EXPECT_EQ(text_of(again("blacklisted")), text_of(before.record));
}

TEST_F(bundle_test, the_lines_of_compiled_patterns) {
    const std::string patterns = "c:/quillfence/dynaregex/dyna.cregexes";
    drive.write(patterns + data_files::pattern_lines_suffix,
                data_files::pattern_lines_text(data_files::digest_of(drive.read(patterns)),
                                               {{7, "mine.pcre"}}));
    const test_case before = captured("dynamic");
    const written_bundle made = written(before);
    ASSERT_EQ(made.problem, "");
    EXPECT_TRUE(has(made.entries, "c/quillfence/dynaregex/dyna.cregexes.lines"));
    ASSERT_EQ(unpack_bundle(tar, unpacked).problem, "");
    EXPECT_EQ(text_of(again("dynamic")), text_of(before.record));
}

// --- what changes meanwhile ---------------------------------------------------------------------

TEST_F(bundle_test, a_file_that_is_another_now) {
    const std::string list = "c:/quillfence/from_blacklist";
    const std::string old = drive.read(list);
    const struct {
        const char *want;
        std::function<void()> change;
    } cases[] = {
        {"has changed since it was consulted",
         [&] { drive.write(list, "*@fOe.example\n"); }}, // of the same size
        {"has changed since it was consulted", [&] { drive.write(list, old + "x\n"); }},
        {"has changed since it was consulted", [&] { drive.write(list, ""); }},
        {"No such file or directory", [&] { drive.remove(list); }},
    };
    for (const auto &c : cases) {
        drive.write(list, old);
        const test_case before = captured("blacklisted");
        c.change();
        EXPECT_EQ(written(before).problem, list + ": " + c.want);
    }
    drive.write(list, old);
    drive.remove("c:/quillfence/exempt_ips");
    const test_case before = captured("blacklisted");
    drive.write("c:/quillfence/exempt_ips", "");
    EXPECT_EQ(written(before).problem,
              "c:/quillfence/exempt_ips: was missing when it was consulted, and is there now");
}

TEST_F(bundle_test, a_map_that_is_another_now) {
    const test_case before = captured("nothing right");
    std::string map = drive.read("c:/quillfence/bms/one");
    map[0] = '\1';
    drive.write("c:/quillfence/bms/one", map);
    for (const bool cut : {false, true}) {
        EXPECT_EQ(written(before, {.cut_maps = cut}).problem,
                  "c:/quillfence/bms//one: has changed since it was consulted");
    }
}

TEST_F(bundle_test, a_digest_that_was_not_made) {
    test_case before = captured("blacklisted");
    const test_case whole = before;
    for (config_file &file : before.record.config.files) {
        file.sha256.clear();
    }
    EXPECT_EQ(written(before).problem, "");
    ASSERT_EQ(unpack_bundle(tar, unpacked).problem, "");
    EXPECT_EQ(unpacked_case(drive), whole);
    before.record.config.files.front().time = "2001-01-01T00:00:00.000Z";
    EXPECT_NE(written(before).problem.find(": has changed since it was consulted"),
              std::string::npos);
}

// A failing system is told, and never taken for an empty file.
TEST_F(bundle_test, a_system_that_fails) {
    const test_case before = captured("blacklisted");
    ASSERT_EQ(written(before).problem, "");
    const std::string want = drive.read(tar);
    int n = 0;
    for (bool failed = true; failed;) {
        call_watch watch;
        watch.fail_any(++n, 1117);
        const platform::stream_ptr stream(platform::stream_open(tar, "wb"));
        std::string problem = stream ? write_bundle(stream.get(), before).problem : "";
        failed = watch.failed() > 0;
        if (!stream) {
            continue;
        }
        fflush(stream.get());
        const auto calls = watch.take();
        if (failed && problem.empty()) {
            const std::string &call = calls[static_cast<size_t>(n) - 1];
            EXPECT_TRUE(call == "file_close" || call.starts_with("directory_")) << call;
        } else if (!failed) {
            EXPECT_EQ(problem, "");
            EXPECT_EQ(drive.read(tar), want);
        }
    }
    EXPECT_GT(n, 50);
}

TEST_F(bundle_test, other_archives) {
    drive.write(tar, "no tar");
    EXPECT_EQ(unpack_bundle(tar, unpacked).problem,
              "c:/quillfence/out.tar: is no bundle: a tar file that begins with case.json");
    EXPECT_EQ(unpack_bundle("c:/quillfence/none", unpacked).problem,
              "c:/quillfence/none: No such file or directory");
    EXPECT_FALSE(drive.exists(unpacked));
}

} // namespace
} // namespace quillfence::testing
