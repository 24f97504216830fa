// quillfence collect: what is in the file, what is told of it, and what happens when the server
// changes or fails meanwhile.
#include "collection.h"

#include <filesystem>
#include <functional>
#include <map>

#include <gtest/gtest.h>

#include "../reliability/tool_drive.h"
#include "call_watch.h"
#include "file_digest.h"
#include "json_reader.h"
#include "open_file.h"
#include "open_handles.h"
#include "platform/error_numbers.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/registry_export.h"
#include "quillfence_program.h"
#include "tar_reader.h"
#include "tar_unpack.h"
#include "test_registry.h"
#include "vc_file.h"

namespace quillfence::programs {
namespace {

using namespace testing;

constexpr char out[] = "c:/collected.tar";
constexpr char hosts[] = "c:/hosts";

using contents = std::map<std::string, std::string>;

contents contents_of_tar(const std::string &path) {
    data_files::open_file file;
    EXPECT_EQ(file.open(path), 0u);
    decision::tar_reader reader(
        [&](void *bytes, size_t size, size_t *got) { return file.read(bytes, size, got); });
    contents found;
    for (decision::tar_entry entry; reader.next(&entry);) {
        std::string bytes(entry.size, '\0');
        size_t got = 0;
        EXPECT_TRUE(reader.read(bytes.data(), bytes.size(), &got));
        found[entry.name + (entry.folder ? "/" : "")] = bytes;
    }
    EXPECT_EQ(reader.problem(), "");
    return found;
}

// What the server does while it is collected: called before each call of the seam.
std::function<void(const std::string &call, const std::string &subject)> meanwhile;

uint32_t observed(const char *call, const char *subject) {
    meanwhile(call, subject);
    return 0;
}

class collect_test : public tool_test {
  protected:
    collect_test() {
        platform::set_hosts_file_stand_in(hosts);
        drive.write(hosts, "127.0.0.1 localhost\n");
    }
    ~collect_test() override {
        platform::set_hosts_file_stand_in(nullptr);
        platform::set_call_observer(nullptr);
        meanwhile = nullptr;
        drive.remove(out);
        drive.remove(hosts);
        drive.remove("c:/Mail");
        drive.remove("c:/there");
    }

    static ending collect(words arguments = {}) {
        arguments.insert(arguments.begin(), {"collect", out});
        return testing::run_program(arguments, run_quillfence);
    }
    static std::string manifest() {
        return contents_of_tar(out)["manifest.json"];
    }
    static bool manifest_has(const std::string &text) {
        const std::string all = manifest();
        const bool has = all.find(text) != std::string::npos;
        EXPECT_TRUE(has) << text << "\n" << all;
        return has;
    }

    test_registry registry;
};

// --- what is in it ------------------------------------------------------------------------------

TEST_F(collect_test, everything_that_the_engine_knows_by_its_place) {
    const ending run = collect();
    EXPECT_EQ(run.status, exit_status::done) << run.err;
    EXPECT_EQ(run.err, "");
    const contents found = contents_of_tar(out);
    for (const char *const file :
         {"control/enabled", "control/rules.enabled", "control/bms.enabled",
          "control/valid_domain_ips", "rbl.enabled", "bms/lists_to_update", "bms/a.bms",
          "from_whitelist", "from_blacklist", "blocked_ips", "exempt_ips.range",
          "blocked_ips.range", "dynaregex/dyna.cregexes", "dynaregex/dyna.cregexes.lines"}) {
        const auto entry = found.find(std::string("c/quillfence/") + file);
        ASSERT_NE(entry, found.end()) << file;
        EXPECT_EQ(entry->second, drive.read(below(file))) << file;
        manifest_has("{\"name\": \"" + entry->first + "\",");
        manifest_has("\"sha256\": \"" + data_files::digest_of(entry->second) + "\"");
    }
    EXPECT_EQ(found.at("c/hosts"), "127.0.0.1 localhost\n");
    for (const char *const folder : {"", "control/", "bms/", "dynaregex/", "log/"}) {
        EXPECT_TRUE(found.contains(std::string("c/quillfence/") + folder)) << folder;
    }
    decision::json_problem problem;
    const decision::json_document document(found.at("manifest.json"), &problem);
    EXPECT_EQ(problem.text, "");
    EXPECT_FALSE(document.empty());
}

TEST_F(collect_test, the_manifest_comes_first) {
    collect();
    data_files::open_file file;
    ASSERT_EQ(file.open(out), 0u);
    decision::tar_reader reader(
        [&](void *bytes, size_t size, size_t *got) { return file.read(bytes, size, got); });
    decision::tar_entry entry;
    ASSERT_TRUE(reader.next(&entry));
    EXPECT_EQ(entry.name, "manifest.json");
}

TEST_F(collect_test, says_what_it_leaves_out) {
    drive.write(below("log/qflog"), "a line\n");
    for (int i = 10; i < 70; ++i) {
        drive.write(below("notes/" + std::to_string(i)), "");
    }
    const ending run = collect();
    EXPECT_EQ(run.status, exit_status::done);
    const contents found = contents_of_tar(out);
    for (const auto &[name, bytes] : found) {
        EXPECT_EQ(name.find("qflog"), std::string::npos);
        EXPECT_EQ(name.find(".counterv2"), std::string::npos);
        EXPECT_EQ(name.find("notes"), std::string::npos);
    }
    for (const char *const line :
         {"left out: c/quillfence/log/qflog: the mail log, which --with-log takes along\n",
          "left out: c/quillfence/log/.counterv2.dat.11: counters decide nothing\n",
          "left out: c/quillfence/log/.counterv2.dat.hourly: counters decide nothing\n",
          "left out: 60 files that the engine does not know: c/quillfence/notes/10, "
          "c/quillfence/notes/11, "}) {
        EXPECT_NE(run.out.find(line), std::string::npos) << line << run.out;
    }
    manifest_has("\"files\": 60,");
    manifest_has("\"c/quillfence/notes/59\"");
    EXPECT_EQ(manifest().find("\"c/quillfence/notes/60\""), std::string::npos) << "the first 50";
    manifest_has("\"c/quillfence/exempt_users\""); // missing
}

TEST_F(collect_test, the_mail_log_when_it_is_asked_for) {
    drive.write(below("log/qflog"), "a line\n");
    EXPECT_EQ(collect({"--with-log"}).status, exit_status::done);
    EXPECT_EQ(contents_of_tar(out).at("c/quillfence/log/qflog"), "a line\n");
}

TEST_F(collect_test, letter_case_as_it_is_on_the_disk) {
    drive.rename(below("control"), below("CONTROL"));
    drive.rename(below("from_blacklist"), below("From_Blacklist"));
    EXPECT_EQ(collect().status, exit_status::done);
    const contents found = contents_of_tar(out);
    EXPECT_TRUE(found.contains("c/quillfence/CONTROL/enabled"));
    EXPECT_TRUE(found.contains("c/quillfence/From_Blacklist"));
    manifest_has("{\"name\": \"c/quillfence/From_Blacklist\", \"asked_as\": "
                 "\"c/quillfence/from_blacklist\", \"kind\": \"list\"");
}

TEST_F(collect_test, links_are_followed_and_named) {
    std::error_code refused;
    drive.write("c:/there/list", "*@linked.example\n");
    drive.remove(below("from_blacklist"));
    std::filesystem::create_symlink(drive.native("c:/there/list"),
                                    drive.native(below("from_blacklist")), refused);
    if (refused) {
        return; // a system without links for everybody
    }
    std::filesystem::rename(drive.native(below("bms")), drive.native("c:/there/maps"));
    std::filesystem::create_directory_symlink(drive.native("c:/there/maps"),
                                              drive.native(below("bms")), refused);
    const ending run = collect();
    EXPECT_EQ(run.status, exit_status::done);
    const contents found = contents_of_tar(out);
    EXPECT_EQ(found.at("c/quillfence/from_blacklist"), "*@linked.example\n");
    EXPECT_TRUE(found.contains("c/quillfence/bms/a.bms"));
    const std::string link = drive.native("c:/there/list");
    EXPECT_NE(run.out.find("a link: c/quillfence/from_blacklist -> " + link), std::string::npos);
    manifest_has("\"link\": \"" + link + "\"}");
    manifest_has("{\"name\": \"c/quillfence/bms\", \"link\": \"" + drive.native("c:/there/maps") +
                 "\"}");
}

TEST_F(collect_test, a_users_lists) {
    drive.write(below("users/bob/from_whitelist"), "*@friend.example\n");
    drive.write(below("users/bob/diary"), "");
    EXPECT_EQ(collect({"--user-dir", below("users/bob")}).status, exit_status::done);
    const contents found = contents_of_tar(out);
    EXPECT_EQ(found.at("c/quillfence/users/bob/from_whitelist"), "*@friend.example\n");
    EXPECT_FALSE(found.contains("c/quillfence/users/bob/diary"));
}

TEST_F(collect_test, the_findings_of_verify) {
    drive.write(below("control/rules.enabled"), "no_such_rule\n");
    const ending run = collect();
    EXPECT_EQ(run.status, exit_status::done) << "its findings are no failure";
    EXPECT_NE(run.out.find("verify: 1 error, 0 warnings\n"), std::string::npos) << run.out;
    const std::string findings = contents_of_tar(out).at("verify.json");
    EXPECT_NE(findings.find("there is no rule \\\"no_such_rule\\\""), std::string::npos)
        << findings;
    EXPECT_EQ(findings, testing::run_program({"verify", "--json", root}).out);
}

// The export that is in it is one that the engine reads, and holds nothing else.
TEST_F(collect_test, the_registry_that_the_engine_asks) {
    using platform::registry_root;
    const std::string key = "SOFTWARE\\Mail Enable\\Mail Enable";
    const auto set = [&](const std::string &path, const char *name, uint32_t type,
                         const std::string &data, uint32_t view) {
        platform::registry_key *opened = nullptr;
        ASSERT_EQ(platform::registry_create(registry_root::local_machine, path.c_str(),
                                            platform::registry_write | view, &opened),
                  0u);
        EXPECT_EQ(platform::registry_set(opened, name, type, data.data(),
                                         static_cast<uint32_t>(data.size())),
                  0u);
        platform::registry_close(opened);
    };
    const uint32_t view = platform::registry_view_32;
    set(key, "Configuration Directory", 1, std::string("C:\\Mail\\Config\0", 15), 0);
    set(key, "Password", 1, std::string("secret\0", 7), 0);
    set(key + "\\Connectors\\SMTP", "IP White Listing Status", 4, std::string("\1\0\0\0", 4), view);
    set(key + "\\Connectors\\SMTP", "Host", 1, std::string("mx\0", 3), view);
    set(key + "\\Connectors\\SMTP\\White List", "192.0.2.*", 1, std::string("\0", 1), view);
    set(key + "\\Connectors\\SMTP\\White List", "198.51.100.7", 1, std::string("\0", 1), view);
    drive.write("c:/Mail/Config/Domain.tab", "here.example\t1\n");

    const ending run = collect();
    platform::registry_delete(registry_root::local_machine, "SOFTWARE\\Mail Enable",
                              platform::registry_write);
    platform::registry_delete(registry_root::local_machine, "SOFTWARE\\Mail Enable",
                              platform::registry_write | view);
    EXPECT_EQ(run.status, exit_status::done) << run.err;
    EXPECT_NE(run.out.find(", 4 registry values\n"), std::string::npos) << run.out;
    const contents found = contents_of_tar(out);
    EXPECT_EQ(found.at("c/Mail/Config/Domain.tab"), "here.example\t1\n");
    const std::string exported = found.at("registry.reg");
    const auto value_of = [&](const std::string &path, const char *name) {
        platform::exported_key read = {};
        EXPECT_EQ(
            platform::registry_export_read(exported.data(), exported.size(), path.c_str(), &read),
            0u);
        const platform::exported_value *const value = platform::registry_export_find(&read, name);
        const std::string data =
            value ? std::string(reinterpret_cast<const char *>(value->data), value->size) : "none";
        platform::registry_export_release(&read);
        return data;
    };
    const std::string machine = "HKEY_LOCAL_MACHINE\\";
    const std::string connector =
        machine + "SOFTWARE\\Wow6432Node\\Mail Enable\\Mail Enable\\Connectors\\SMTP";
    EXPECT_EQ(value_of(machine + key, "Configuration Directory"),
              std::string("C:\\Mail\\Config\0", 15));
    EXPECT_EQ(value_of(machine + key, "Password"), "none");
    EXPECT_EQ(value_of(connector, "IP White Listing Status"), std::string("\1\0\0\0", 4));
    EXPECT_EQ(value_of(connector, "Host"), "none");
    EXPECT_EQ(value_of(connector + "\\White List", "192.0.2.*"), std::string(1, '\0'));
    EXPECT_EQ(value_of(connector + "\\White List", "198.51.100.7"), std::string(1, '\0'));
}

// The way to a desk and what is decided there.
TEST_F(collect_test, unpacked_it_is_a_drive_c) {
    EXPECT_EQ(collect().status, exit_status::done);
    ASSERT_EQ(decision::unpack_tar(out, "c:/there").problem, "");
    const words question = {
        "explain",           "--ip",        "11.1.2.3",       "--helo", "x.example", "--sender",
        "b@foe.example.org", "--recipient", "a@here.example", "--dns",  "off",       "--json"};
    words elsewhere = question;
    elsewhere.insert(elsewhere.end(), {"--drive-c", drive.native("c:/there/c")});
    const auto decided = [](const ending &run) {
        const size_t at = run.out.find("\"decision\"");
        EXPECT_NE(at, std::string::npos) << run.err;
        return run.out.substr(at, run.out.find('}', at) - at);
    };
    EXPECT_EQ(decided(testing::run_program(elsewhere, run_quillfence)),
              decided(testing::run_program(question, run_quillfence)));
}

// --- a copy -------------------------------------------------------------------------------------

TEST_F(collect_test, a_copy_of_another_server) {
    std::filesystem::create_directories(drive.native("c:/there"));
    std::filesystem::copy(drive.native(root), drive.native("c:/there/quillfence"),
                          std::filesystem::copy_options::recursive);
    std::filesystem::copy(drive.native(root), drive.native("c:/there/other"),
                          std::filesystem::copy_options::recursive);
    for (const char *const name : {"quillfence", "other"}) {
        const std::string base = drive.native("c:/there/") + name;
        const ending run = collect({base});
        EXPECT_EQ(run.status, exit_status::done) << run.err;
        const contents found = contents_of_tar(out);
        if (base.starts_with('/')) { // a copy by its place: what is this machine's own stays here
            EXPECT_FALSE(found.contains("c/hosts")) << name;
            manifest_has("{\"name\": \"hosts file\", \"why\":");
            manifest_has("{\"name\": \"registry\", \"why\":");
            EXPECT_EQ(found.at("c/quillfence/rbl.enabled"), "rbl.example.org\n");
        }
        manifest_has("\"base\": \"" + base + "\"");
    }
    const ending none = collect({"c:/none/quillfence"});
    EXPECT_EQ(none.status, exit_status::failed);
    EXPECT_NE(none.err.find("is no folder"), std::string::npos) << none.err;
}

// --- what goes wrong ----------------------------------------------------------------------------

TEST_F(collect_test, what_can_not_be_read_is_named) {
    const std::string list = below("from_blacklist");
    platform::set_call_observer([](const char *call, const char *subject) -> uint32_t {
        const bool is_list = std::string(subject).ends_with("from_blacklist");
        return std::string(call) == "file_open" && is_list ? uint32_t{platform::error_access_denied}
                                                           : 0;
    });
    const ending run = collect();
    platform::set_call_observer(nullptr);
    EXPECT_EQ(run.status, exit_status::partly);
    EXPECT_EQ(run.err, "quillfence: c/quillfence/from_blacklist: could not be collected: "
                       "Permission denied\n");
    EXPECT_FALSE(contents_of_tar(out).contains("c/quillfence/from_blacklist"));
    manifest_has("{\"name\": \"c/quillfence/from_blacklist\", \"error\": \"Permission denied\"}");
}

// Does something once, before the n-th opening of a list's file.
void before_opening(int n, const std::function<void()> &what) {
    meanwhile = [n, what](const std::string &call, const std::string &subject) mutable {
        if (call == "file_open" && subject.ends_with("from_blacklist") && n > 0 && --n == 0) {
            what();
        }
    };
    platform::set_call_observer(observed);
}

TEST_F(collect_test, a_file_that_changes_meanwhile) {
    const std::string list = below("from_blacklist");
    const std::string old = drive.read(list);
    const struct {
        const char *name;
        std::function<void()> change;
    } cases[] = {
        {"another of the same size", [&] { drive.write(list, std::string(old.size(), 'x')); }},
        {"longer", [&] { drive.write(list, old + "x\n"); }},
        {"shorter", [&] { drive.write(list, "x"); }},
        {"removed", [&] { drive.remove(list); }},
    };
    for (const auto &c : cases) {
        for (int n = 1; n <= 6; ++n) {
            SCOPED_TRACE(std::string(c.name) + " before opening " + std::to_string(n));
            drive.write(list, old);
            bool changed = false;
            before_opening(n, [&] {
                c.change();
                changed = true;
            });
            const ending run = collect();
            platform::set_call_observer(nullptr);
            meanwhile = nullptr;
            EXPECT_EQ(run.status, exit_status::done) << run.err;
            contents found = contents_of_tar(out);
            const auto entry = found.find("c/quillfence/from_blacklist");
            if (entry == found.end()) {
                EXPECT_EQ(std::string(c.name), "removed");
                manifest_has("\"c/quillfence/from_blacklist\"");
            } else {
                EXPECT_TRUE(entry->second == old || entry->second == drive.read(list));
                manifest_has("\"sha256\": \"" + data_files::digest_of(entry->second) + "\"");
            }
        }
    }
}

TEST_F(collect_test, a_file_that_never_stands_still) {
    drive.write(out, "old");
    unsigned count = 0;
    meanwhile = [&](const std::string &call, const std::string &subject) {
        if (call == "file_open" && subject.ends_with("from_blacklist")) {
            drive.write(below("from_blacklist"), std::to_string(++count) + "@x.example\n");
        }
    };
    platform::set_call_observer(observed);
    const ending run = collect();
    platform::set_call_observer(nullptr);
    EXPECT_EQ(run.status, exit_status::failed);
    EXPECT_EQ(run.err,
              "quillfence: c/quillfence/from_blacklist: changes again and again while it is "
              "collected; try once more when nobody edits it\n");
    EXPECT_EQ(drive.read(out), "old");
    EXPECT_FALSE(drive.exists(std::string(out) + ".tmp"));
}

TEST_F(collect_test, the_output_is_not_one_of_the_files) {
    const std::string list = below("from_blacklist");
    const std::string old = drive.read(list);
    const ending run = testing::run_program({"collect", list}, run_quillfence);
    EXPECT_EQ(run.status, exit_status::failed);
    EXPECT_NE(run.err.find("is the input itself"), std::string::npos) << run.err;
    EXPECT_EQ(drive.read(list), old);
}

// Whatever fails: the old file or the new one, whole; a failure is told.
TEST_F(collect_test, a_system_that_fails) {
    const int handles = open_handles();
    const ending right = collect();
    ASSERT_EQ(right.status, exit_status::done);
    contents wanted = contents_of_tar(out);
    wanted.erase("manifest.json");
    int n = 0;
    constexpr int step = 7;
    for (bool failed = true; failed; n += step) {
        drive.write(out, "old");
        ending run = {};
        {
            call_watch watch;
            watch.fail_any(n + 1, platform::error_disk_full);
            run = collect();
            failed = watch.failed() > 0;
        }
        EXPECT_EQ(open_handles(), handles);
        const bool written = drive.read(out) != "old";
        if (run.status == exit_status::failed) {
            EXPECT_NE(run.err, "");
        } else if (run.status == exit_status::partly) {
            EXPECT_TRUE(written);
            EXPECT_NE(run.err.find("could not be collected"), std::string::npos) << run.err;
        } else {
            EXPECT_TRUE(written);
        }
        if (written) {
            contents found = contents_of_tar(out);
            found.erase("manifest.json");
            for (const auto &[name, bytes] : found) {
                if (name != "verify.json") {
                    EXPECT_EQ(bytes, wanted.at(name)) << name;
                }
            }
        }
        drive.remove(std::string(out) + ".tmp");
    }
    EXPECT_GT(n, 200);
}

} // namespace
} // namespace quillfence::programs
