// The directory that holds a copy of c:, and the export that stands for the registry, lie in the
// folder c:/quillfence/copy.
#include "platform/surroundings.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/complaint.h"
#include "platform/directory.h"
#include "platform/edit.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "test_registry.h"

namespace quillfence::platform {
namespace {

std::string contents(const std::string &path) {
    file_handle file = invalid_file;
    if (const uint32_t error = file_open(path.c_str(), {}, &file)) {
        return "error " + std::to_string(error);
    }
    char bytes[64];
    uint32_t moved = 0;
    EXPECT_EQ(file_read(file, bytes, sizeof bytes, &moved), error_none) << path;
    EXPECT_EQ(file_close(file), error_none);
    return {bytes, moved};
}

class drive_root : public ::testing::Test {
  protected:
    drive_root() {
        drive.write("c:/quillfence/list", "own");
        drive.write("c:/quillfence/copy/quillfence/list", "copied");
        drive.write("c:/quillfence/copy/quillfence/Control/Enabled", "1");
        drive.write("c:/quillfence/copy/elsewhere", "beside");
    }
    ~drive_root() override {
        set_drive_root(nullptr);
    }
    drive_root(const drive_root &) = delete;
    drive_root &operator=(const drive_root &) = delete;

    testing::drive_c drive;
    const std::string root = drive.native("c:/quillfence/copy");
};

TEST_F(drive_root, names_below_c_are_looked_up_there) {
    ASSERT_EQ(set_drive_root(root.c_str()), error_none);
    static constexpr struct {
        const char *path, *want;
    } cases[] = {
        {"c:/quillfence/list", "copied"},  {"C:\\quillfence\\list", "copied"},
        {"c:/quillfence//list", "copied"}, {"c:quillfence/list", "copied"},
        {"c:/Quillfence/LIST", "copied"},  {"c:/quillfence/control/enabled", "1"},
        {"c:/elsewhere", "beside"},        {"c:/quillfence/none", "error 2"},
        {"c:/none/list", "error 3"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(contents(c.path), c.want) << c.path;
    }
}

TEST_F(drive_root, null_is_the_systems_own_drive) {
    EXPECT_EQ(contents("c:/quillfence/list"), "own");
    ASSERT_EQ(set_drive_root(root.c_str()), error_none);
    EXPECT_EQ(contents("c:/quillfence/list"), "copied");
    ASSERT_EQ(set_drive_root(nullptr), error_none);
    EXPECT_EQ(contents("c:/quillfence/list"), "own");
}

TEST_F(drive_root, a_thread_may_have_its_own) {
    drive.write("c:/quillfence/other/quillfence/list", "other");
    const std::string other = drive.native("c:/quillfence/other");
    ASSERT_EQ(set_drive_root(root.c_str()), error_none);
    EXPECT_EQ(exchange_drive_root(other.c_str()), nullptr);
    EXPECT_EQ(contents("c:/quillfence/list"), "other");
    std::thread([] { EXPECT_EQ(contents("c:/quillfence/list"), "copied"); }).join();
    EXPECT_EQ(exchange_drive_root(nullptr), other.c_str());
    EXPECT_EQ(contents("c:/quillfence/list"), "copied");
}

TEST_F(drive_root, a_slash_at_its_end_changes_nothing) {
    ASSERT_EQ(set_drive_root((root + "/").c_str()), error_none);
    EXPECT_EQ(contents("c:/quillfence/list"), "copied");
    EXPECT_EQ(contents(root + "/quillfence/list"), "copied");
}

TEST_F(drive_root, is_copied) {
    std::string text = root;
    ASSERT_EQ(set_drive_root(text.c_str()), error_none);
    text.assign(text.size(), 'x');
    EXPECT_EQ(contents("c:/quillfence/list"), "copied");
}

TEST_F(drive_root, what_can_not_be_one_changes_nothing) {
    ASSERT_EQ(set_drive_root(root.c_str()), error_none);
    EXPECT_EQ(set_drive_root(""), error_path_not_found);
    EXPECT_EQ(set_drive_root(std::string(4096, 'x').c_str()), error_filename_too_long);
    EXPECT_EQ(contents("c:/quillfence/list"), "copied");
    EXPECT_EQ(contents("c:/" + std::string(4095, 'x')), "error 206");
}

TEST_F(drive_root, names_below_the_directory_and_temporary_files_stay_where_they_are) {
    ASSERT_EQ(set_drive_root(root.c_str()), error_none);
    EXPECT_EQ(contents(root + "/quillfence/list"), "copied");
    char temporary[1024];
    ASSERT_EQ(temp_directory(temporary, sizeof temporary), error_none);
    std::string name = std::string(temporary) + "/quillfence-" + std::to_string(process_id());
    file_handle file = invalid_file;
    ASSERT_EQ(file_open(name.c_str(), {.write = true, .when = disposition::create_always}, &file),
              error_none);
    EXPECT_EQ(file_close(file), error_none);
    set_drive_root(nullptr);
    EXPECT_EQ(contents(name), "");
    EXPECT_EQ(path_delete(name.c_str()), error_none);
}

TEST_F(drive_root, the_hosts_file_is_this_systems) {
    char hosts[1024];
    ASSERT_EQ(hosts_file_path(hosts, sizeof hosts), error_none);
    uint32_t attributes = 0;
    const uint32_t before = path_attributes(hosts, &attributes);
    ASSERT_EQ(set_drive_root(root.c_str()), error_none);
    EXPECT_EQ(path_attributes(hosts, &attributes), before);
    EXPECT_EQ(before, error_none) << "without the file nothing was shown";
}

TEST_F(drive_root, every_call_goes_there) {
    ASSERT_EQ(set_drive_root(root.c_str()), error_none);
    uint32_t attributes = 0;
    EXPECT_EQ(path_attributes("c:/quillfence/control", &attributes), error_none);
    EXPECT_EQ(attributes, attribute_directory);
    EXPECT_EQ(path_copy("c:/quillfence/list", "c:/quillfence/a"), error_none);
    EXPECT_EQ(path_rename("c:/quillfence/a", "c:/quillfence/b"), error_none);
    EXPECT_EQ(path_link("c:/quillfence/b", "c:/quillfence/c"), error_none);
    EXPECT_EQ(path_replace("c:/quillfence/c", "c:/quillfence/d"), error_none);
    EXPECT_EQ(directory_create("c:/quillfence/folder"), error_none);
    EXPECT_EQ(path_sync_folder("c:/quillfence/folder/x"), error_none);

    FILE *const stream = stream_open("c:/quillfence/folder/stream", "w");
    ASSERT_NE(stream, nullptr);
    fputs("stream", stream);
    fclose(stream);

    edit_lock lock;
    ASSERT_EQ(edit_lock_take("c:/quillfence/locked", disposition::open_always, &lock), error_none);
    edit_lock_release(&lock);
    replacement fresh;
    uint32_t moved = 0;
    ASSERT_EQ(replacement_begin("c:/quillfence/list", ".new", &fresh), error_none);
    EXPECT_EQ(file_write(fresh.lock.file, "new", 3, &moved), error_none);
    EXPECT_EQ(replacement_commit(&fresh, nullptr), error_none);
    EXPECT_EQ(replacement_end(&fresh), error_none);

    char native[4096];
    ASSERT_EQ(path_native("c:/quillfence/list", native, sizeof native), error_none);
    directory_listing *listing = nullptr;
    ASSERT_EQ(directory_open("c:/quillfence", &listing), error_none);
    std::string names;
    directory_entry entry = {};
    while (directory_next(listing, &entry) == error_none) {
        names += entry.name[0] == '.' ? "" : entry.name + std::string(" ");
    }
    directory_close(listing);
    EXPECT_EQ(names, "b Control d folder list locked ");
    EXPECT_EQ(path_delete("c:/quillfence/b"), error_none);
    EXPECT_EQ(path_delete("c:/quillfence/folder/stream"), error_none);
    EXPECT_EQ(directory_remove("c:/quillfence/folder"), error_none);

    set_drive_root(nullptr);
    EXPECT_EQ(contents("c:/quillfence/list"), "own");
    EXPECT_EQ(contents("c:/quillfence/d"), "error 2");
    EXPECT_EQ(contents("c:/quillfence/copy/quillfence/list"), "new");
    EXPECT_EQ(contents("c:/quillfence/copy/quillfence/d"), "copied");
    EXPECT_EQ(contents("c:/quillfence/copy/quillfence/b"), "error 2");
    EXPECT_EQ(contents(native), "new");
}

// --- the registry ---

constexpr char one_key[] = "REGEDIT4\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillfence-test]\r\n"
                           "\"x\"=\"exported\"\r\n";

class registry_export_named : public ::testing::Test {
  protected:
    registry_export_named() {
        drive.write("c:/quillfence/copy/server.reg", one_key);
        store.set_text(testing::test_key, "x", "own");
    }
    ~registry_export_named() override {
        set_registry_export(nullptr);
    }
    registry_export_named(const registry_export_named &) = delete;
    registry_export_named &operator=(const registry_export_named &) = delete;

    static std::string value(const char *key = testing::test_key) {
        registry_key *opened = nullptr;
        if (const uint32_t error =
                registry_open(registry_root::local_machine, key, registry_read, &opened)) {
            return "error " + std::to_string(error);
        }
        char text[64] = "";
        uint32_t size = sizeof text;
        const uint32_t error = registry_query(opened, "x", nullptr, text, &size);
        registry_close(opened);
        return error ? "error " + std::to_string(error) : text;
    }
    testing::drive_c drive;
    testing::test_registry store;
    const std::string file = drive.native("c:/quillfence/copy/server.reg");
};

TEST_F(registry_export_named, stands_for_the_registry) {
    EXPECT_EQ(value(), "own");
    ASSERT_EQ(set_registry_export(file.c_str()), error_none);
    EXPECT_EQ(value(), "exported");
    EXPECT_EQ(value("SOFTWARE\\QUILLFENCE-TEST"), "exported");
    EXPECT_EQ(value("SOFTWARE\\Microsoft"), "error 2") << "this system's";
    ASSERT_EQ(set_registry_export(nullptr), error_none);
    EXPECT_EQ(value(), "own");
    EXPECT_EQ(set_registry_export(""), error_path_not_found);
    EXPECT_EQ(set_registry_export(std::string(4096, 'x').c_str()), error_filename_too_long);
    EXPECT_EQ(value(), "own");
}

TEST_F(registry_export_named, is_not_looked_for_on_the_copied_drive) {
    ASSERT_EQ(set_registry_export(file.c_str()), error_none);
    ASSERT_EQ(set_drive_root(drive.native("c:/quillfence").c_str()), error_none);
    EXPECT_EQ(value(), "exported");
    set_drive_root(nullptr);
}

TEST_F(registry_export_named, takes_the_changes) {
    ASSERT_EQ(set_registry_export(file.c_str()), error_none);
    store.set_text(testing::test_key, "x", "changed");
    EXPECT_EQ(value(), "changed");
    set_registry_export(nullptr);
    EXPECT_EQ(value(), "own");
    EXPECT_EQ(drive.read("c:/quillfence/copy/server.reg"),
              one_key + std::string("\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillfence-test]\r\n"
                                    "\"x\"=\"changed\"\r\n"));
}

TEST_F(registry_export_named, is_made_for_the_first_change) {
    drive.remove("c:/quillfence/copy/server.reg");
    ASSERT_EQ(set_registry_export(file.c_str()), error_none);
    EXPECT_EQ(value(), "error 2");
    EXPECT_FALSE(drive.exists("c:/quillfence/copy/server.reg"));
    store.set_text(testing::test_key, "x", "new");
    EXPECT_EQ(value(), "new");
    store.remove(testing::test_key);
    EXPECT_EQ(value(), "error 2");
}

TEST_F(registry_export_named, a_key_stays_what_it_was_opened_in) {
    registry_key *own = nullptr;
    registry_key *exported = nullptr;
    ASSERT_EQ(registry_open(registry_root::local_machine, testing::test_key, registry_read, &own),
              error_none);
    ASSERT_EQ(set_registry_export(file.c_str()), error_none);
    ASSERT_EQ(
        registry_open(registry_root::local_machine, testing::test_key, registry_read, &exported),
        error_none);
    set_registry_export(nullptr);
    for (const auto &[key, want] : {std::pair{own, "own"}, {exported, "exported"}}) {
        char text[64] = "";
        char name[64] = "";
        uint32_t size = sizeof text;
        uint32_t length = sizeof name;
        uint32_t count = 0;
        EXPECT_EQ(registry_query(key, "X", nullptr, text, &size), error_none);
        EXPECT_STREQ(text, want);
        EXPECT_EQ(registry_enumerate(key, 0, name, &length), error_none);
        EXPECT_STREQ(name, "x");
        EXPECT_EQ(registry_count(key, &count, nullptr), error_none);
        EXPECT_EQ(count, 1u);
        registry_close(key);
    }
}

std::vector<std::string> told;

void tell(event_type type, const char *function, const char *message) {
    EXPECT_EQ(type, event_type::error);
    told.push_back(std::string(function) + ": " + message);
}

TEST_F(registry_export_named, what_is_none_is_told_once) {
    drive.write("c:/quillfence/copy/server.reg", "an error page\n");
    ASSERT_EQ(set_registry_export(file.c_str()), error_none);
    told.clear();
    set_complaint_listener(tell);
    EXPECT_EQ(value(), "error 1017");
    EXPECT_EQ(value(), "error 1017");
    const std::string missing = drive.native("c:/quillfence/none.reg");
    ASSERT_EQ(set_registry_export(missing.c_str()), error_none);
    EXPECT_EQ(value(), "error 2");
    set_complaint_listener(nullptr);
    const std::string begin = "read_registry: the registry's export can't be read (";
    EXPECT_EQ(told, (std::vector<std::string>{begin + "not a registry export): " + file,
                                              begin + "No such file or directory): " + missing}));
}

#ifdef QF_TEST_REAL_DRIVES
// The replayer on a server reads the server's own files, whatever its environment.
TEST_F(registry_export_named, variables_change_nothing_here) {
    drive.write("c:/quillfence/list", "own");
    drive.write("c:/quillfence/copy/quillfence/list", "copied");
    environment_set("QUILLFENCE_DRIVE_C", "c:/quillfence/copy");
    environment_set("QUILLFENCE_REGISTRY", file.c_str());
    EXPECT_EQ(contents("c:/quillfence/list"), "own");
    EXPECT_EQ(value(), "own");
    environment_set("QUILLFENCE_DRIVE_C", nullptr);
    environment_set("QUILLFENCE_REGISTRY", nullptr);
}
#else
TEST_F(registry_export_named, goes_before_the_variables) {
    drive.write("c:/quillfence/list", "variable's");
    const testing::drive_c other;
    other.write("c:/quillfence/list", "other");
    EXPECT_EQ(contents("c:/quillfence/list"), "other");
    ASSERT_EQ(set_drive_root(drive.native("c:/").c_str()), error_none);
    ASSERT_EQ(set_registry_export(file.c_str()), error_none);
    EXPECT_EQ(contents("c:/quillfence/list"), "variable's");
    EXPECT_EQ(contents("d:/quillfence/list"), "error 3") << "another drive";
    EXPECT_EQ(value(), "exported");
    set_drive_root(nullptr);
    EXPECT_EQ(contents("c:/quillfence/list"), "other");
}
#endif

} // namespace
} // namespace quillfence::platform
