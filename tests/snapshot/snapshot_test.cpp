#include "snapshot.h"

#include "../reliability/engine_drive.h"
#include "call_context.h"
#include "call_watch.h"
#include "configuration.h"
#include "evidence_watch.h"
#include "failing_memory.h"
#include "file_digest.h"
#include "lookup.h"
#include "open_handles.h"
#include "owned_snapshot.h"
#include "platform/error_numbers.h"
#include "quillfence-file.h"
#include "quillfence.h"
#include "vc_file.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

using platform::error_access_denied;

class snapshot : public drive_test {
  protected:
    snapshot() {
        write_configuration(drive);
    }
    ~snapshot() override {
        snapshot_report_release(&report);
    }
    owned_snapshot load(const char *user_dir = nullptr) {
        snapshot_report_release(&report);
        return owned_snapshot(snapshot_load(user_dir, &report));
    }
    const frozen_file *row(const owned_snapshot &of, const char *path) {
        return find_frozen_file(of.get(), path);
    }
    // What a control file is found to hold by the engine, with nothing read but what is frozen.
    std::string contents(const char *path) {
        char *const text = vc_existing_contents(path, nullptr);
        const std::string copy = text ? text : "<none>";
        free(text);
        return copy;
    }
    snapshot_report report = {};
};

TEST_F(snapshot, holds_every_file_that_decides_and_the_named_maps) {
    const owned_snapshot frozen = load();
    ASSERT_NE(frozen, nullptr);
    EXPECT_EQ(report.unread_count, 0u);
    EXPECT_EQ(report.changed, nullptr);
    for (const char *path :
         {"c:/quillfence/from_whitelist", "c:/quillfence/blocked_ips.range",
          "c:/quillfence/dynaregex/spam.cregexes", "c:/quillfence/control/enabled",
          "c:/quillfence/control/valid_domain_ips", "c:/quillfence/rbl.enabled",
          "c:/quillfence/bms//one", "c:/quillfence/bms//two"}) {
        const frozen_file *const file = row(frozen, path);
        ASSERT_NE(file, nullptr) << path;
        EXPECT_EQ(std::string(file->bytes, file->size), drive.read(path)) << path;
        EXPECT_EQ(file->bytes[file->size], '\0');
        EXPECT_EQ(file->sha256, data_files::digest_of(drive.read(path))) << path;
        EXPECT_EQ(file->error, 0u);
    }
    EXPECT_EQ(row(frozen, "c:/quillfence/log/qflog"), nullptr);
    EXPECT_EQ(row(frozen, "c:/quillfence/rl_whitelist.lst"), nullptr);
    EXPECT_EQ(row(frozen, "c:/quillfence/other"), nullptr);
}

TEST_F(snapshot, knows_what_is_missing_and_what_is_a_folder) {
    drive.remove("c:/quillfence/from_whitelist");
    drive.remove("c:/quillfence/exempt_users");
    drive.make_folder("c:/quillfence/exempt_users");
    drive.remove("c:/quillfence/dynaregex");
    const owned_snapshot frozen = load();
    ASSERT_NE(frozen, nullptr);
    EXPECT_EQ(row(frozen, "c:/quillfence/from_whitelist")->error, platform::error_file_not_found);
    EXPECT_EQ(row(frozen, "c:/quillfence/dynaregex/dyna.cregexes")->error,
              platform::error_path_not_found);
    EXPECT_EQ(row(frozen, "c:/quillfence/exempt_users")->bytes, nullptr);
    drive.write("c:/quillfence/from_whitelist", "late"); // and was not there when it was loaded
    call_context context = {.configuration = frozen.get()};
    const call_scope scope(&context);
    EXPECT_FALSE(vc_file_exists_ex("c:/quillfence/from_whitelist", vc_type_file));
    EXPECT_FALSE(vc_file_exists_ex("c:/quillfence/exempt_users", vc_type_file));
    EXPECT_TRUE(vc_file_exists_ex("c:/quillfence/exempt_users", vc_type_directory));
}

TEST_F(snapshot, answers_without_asking_the_system) {
    const owned_snapshot frozen = load();
    drive.write("c:/quillfence/control/enabled", "0"); // counts when it is loaded again
    call_context context = {.configuration = frozen.get()};
    const call_scope scope(&context);
    call_watch watch;
    EXPECT_TRUE(vc_file_exists_ex("c:/quillfence/control/enabled", vc_type_file));
    EXPECT_FALSE(vc_file_exists_ex("c:/quillfence/control/enabled", vc_type_directory));
    EXPECT_EQ(contents("c:/quillfence/control/enabled"), "1\n");
    EXPECT_TRUE(quillfence_enabled());
    EXPECT_EQ(vc_file_to_int("c:/quillfence/control", "enabled"), 1);
    vc_list_entry *names = vc_file_to_list("c:/quillfence/", "bms/lists_to_update");
    ASSERT_NE(names, nullptr);
    EXPECT_STREQ(static_cast<const char *>(names->data), "one");
    vc_destroy_list(&names, free);
    EXPECT_EQ(watch.take(), lines{});
}

TEST_F(snapshot, leaves_other_paths_to_the_system) {
    const owned_snapshot frozen = load();
    drive.write("c:/quillfence/other", "found");
    const file_substitute rows[] = {{"C:/Quillfence/control/ENABLED", "c:/quillfence/other"}, {}};
    call_context context = {.configuration = frozen.get(), .substitutes = rows};
    const call_scope scope(&context);
    EXPECT_EQ(contents("c:/quillfence/other"), "found");
    EXPECT_EQ(contents("c:/quillfence/control/enabled"), "found"); // its substitute
}

TEST_F(snapshot, takes_a_users_own_lists) {
    drive.write("c:/users/x/from_whitelist", "*@mine.example\n");
    const owned_snapshot frozen = load("c:/users/x");
    ASSERT_NE(row(frozen, "c:/users/x/from_whitelist"), nullptr);
    EXPECT_EQ(row(frozen, "c:/users/x/exempt_users")->error, platform::error_file_not_found);
    EXPECT_EQ(row(frozen, "c:/users/x/control/enabled"), nullptr);
}

TEST_F(snapshot, reads_map_names_as_the_checks_do) {
    drive.write("c:/quillfence/control/bms.enabled", "one\r\n\nthree");
    drive.write("c:/quillfence/bms/three", "x");
    drive.remove("c:/quillfence/bms/lists_to_update");
    drive.write("c:/quillfence/bms/control/lists_to_update", "four\n");
    const owned_snapshot frozen = load();
    ASSERT_NE(frozen, nullptr);
    EXPECT_EQ(row(frozen, "c:/quillfence/bms//one"), nullptr);     // a CR is part of a name
    EXPECT_EQ(row(frozen, "c:/quillfence/bms//")->bytes, nullptr); // a folder
    EXPECT_NE(row(frozen, "c:/quillfence/bms//three")->bytes, nullptr);
    EXPECT_EQ(row(frozen, "c:/quillfence/bms//four")->error, platform::error_file_not_found);
}

TEST_F(snapshot, revision_is_the_digest_of_the_sorted_list_of_files) {
    drive.remove("c:/quillfence");
    drive.write("c:/quillfence/rbl.enabled", "b");
    drive.write("c:/quillfence/control/enabled", "1\n");
    drive.write("c:/quillfence/not_ours", "1\n");
    const owned_snapshot frozen = load();
    ASSERT_NE(frozen, nullptr);
    const std::string listed = // as sha256sum prints it
        "4355a46b19d348dc2f57c046f8ef63d4538ebb936000f3c9ee954a27460dd865  "
        "c:/quillfence/control/enabled\n"
        "3e23e8160039594a33894f6564e1b1348bbd7a0088d42c4acb73eeaed59c009d  "
        "c:/quillfence/rbl.enabled\n";
    EXPECT_EQ(frozen->revision, "sha256:" + data_files::digest_of(listed));
    drive.write("c:/quillfence/rbl.enabled", "c");
    EXPECT_STRNE(load()->revision, frozen->revision);
}

// --- what goes wrong ---

TEST_F(snapshot, what_can_not_be_read_is_told_and_left_to_the_files) {
    for (const char *call :
         {"path_attributes", "file_open", "file_size", "file_changed", "file_read"}) {
        call_watch watch;
        watch.fail(call, 1, error_access_denied);
        const owned_snapshot frozen = load();
        EXPECT_NE(frozen, nullptr) << call;
        ASSERT_EQ(report.unread_count, 1u) << call;
        EXPECT_STREQ(report.unread[0].path, "c:/quillfence/control/enabled");
        EXPECT_EQ(report.unread[0].error, error_access_denied);
        EXPECT_EQ(row(frozen, "c:/quillfence/control/enabled"), nullptr);
    }
    const owned_snapshot frozen = load();
    EXPECT_EQ(report.unread_count, 0u);
}

const drive_c *changing_drive;
std::string changing_path;
int calls_before_change;

// Writes a file when so many files have been opened.
uint32_t change_at_opening(const char *call, const char *) {
    if (std::string(call) == "file_open" && calls_before_change-- == 0) {
        changing_drive->write(changing_path, "0\n");
    }
    return 0;
}

TEST_F(snapshot, a_change_meanwhile_does_not_load) {
    changing_drive = &drive;
    changing_path = "c:/quillfence/control/enabled"; // the first that is read; its size stays
    unsigned refused = 0;
    unsigned opened = 0;
    for (;; ++opened) {
        drive.write(changing_path, "1\n");
        calls_before_change = static_cast<int>(opened);
        platform::set_call_observer(change_at_opening);
        const owned_snapshot frozen = load();
        platform::set_call_observer(nullptr);
        if (calls_before_change >= 0) {
            break;
        }
        if (frozen) { // it was changed before it was first opened, or after it was compared
            EXPECT_EQ(report.changed, nullptr);
            EXPECT_STREQ(row(frozen, changing_path.c_str())->bytes, refused ? "1\n" : "0\n");
        } else {
            EXPECT_EQ(report.changed, changing_path);
            ++refused;
        }
    }
    EXPECT_GT(refused, opened / 2 - 2); // the whole first reading, but for its first file
    EXPECT_GT(refused, 10u);
}

TEST_F(snapshot, without_memory_nothing_is_loaded_and_nothing_lost) {
    owned_snapshot loaded;
    unsigned left_to_files = 0; // the mail server's table, where its place is not found out
    const long before = live_allocations();
    const unsigned failed = sweep_allocations([&] { loaded = load(); },
                                              [&](unsigned n) {
                                                  left_to_files += loaded != nullptr;
                                                  loaded.reset();
                                                  snapshot_report_release(&report);
                                                  // Taken first: under Windows the lines are
                                                  // counted, too.
                                                  EXPECT_FALSE(log.errors().empty()) << n;
                                                  EXPECT_EQ(live_allocations() - before, 0) << n;
                                              });
    EXPECT_NE(loaded, nullptr);
    EXPECT_LT(left_to_files, failed / 5);
    EXPECT_GT(failed, 50u);
}

// --- memory ---

std::string repeated(const std::string &text, size_t times) {
    std::string made;
    for (size_t i = 0; i < times; ++i) {
        made += text;
    }
    return made;
}

TEST_F(snapshot, has_a_form_of_every_kind_of_file) {
    std::string list;
    std::string declared;
    for (int i = 0; i < 20000; ++i) {
        list += (i % 10 ? "user" : "*@") + std::to_string(i) + "@mail.example.org\n";
        declared += "d" + std::to_string(i) + ".example : 192.0.2.1, 198.51.100.0/24\n";
    }
    drive.write("c:/quillfence/from_blacklist", list);
    drive.write("c:/quillfence/control/valid_domain_ips", declared);
    const unsigned long long before = bytes_asked_for();
    const owned_snapshot frozen = load();
    EXPECT_LT(snapshot_size(frozen.get()), bytes_asked_for() - before); // it counts what there is
    EXPECT_NE(row(frozen, "c:/quillfence/from_blacklist")->list, nullptr);
    EXPECT_NE(row(frozen, "c:/quillfence/from_whitelist")->list, nullptr);
    EXPECT_NE(row(frozen, "c:/quillfence/blocked_ips.range")->ranges, nullptr);
    EXPECT_NE(row(frozen, "c:/quillfence/dynaregex/spam.cregexes")->patterns, nullptr);
    EXPECT_NE(row(frozen, "c:/quillfence/control/valid_domain_ips")->declarations, nullptr);
}

TEST_F(snapshot, has_no_form_that_would_take_too_much) {
    const std::string file = repeated("a\n", 4 << 20); // the index is twelve times as large
    drive.write("c:/quillfence/from_blacklist", file);
    drive.write("c:/quillfence/exempt_users", "a@b.example\n");
    const owned_snapshot frozen = load();
    ASSERT_NE(frozen, nullptr);
    EXPECT_EQ(row(frozen, "c:/quillfence/from_blacklist")->list, nullptr);
    EXPECT_NE(row(frozen, "c:/quillfence/exempt_users")->list, nullptr);
    EXPECT_LE(snapshot_size(frozen.get()), 3 * file.size() + (50u << 20));
    call_context context = {.configuration = frozen.get()};
    const call_scope scope(&context);
    call_watch watch;
    EXPECT_TRUE(__file_contains_line("c:/quillfence", "from_blacklist", "A", __wildcardmatch));
    EXPECT_FALSE(__file_contains_line("c:/quillfence", "from_blacklist", "b", __wildcardmatch));
    EXPECT_EQ(watch.take(), lines{});
}

// --- large files ---

TEST_F(snapshot, leaves_a_file_above_its_limit_to_the_files) {
    drive.write("c:/quillfence/from_blacklist", std::string(largest_frozen_file + 1, '\n'));
    const owned_snapshot frozen = load();
    ASSERT_NE(frozen, nullptr);
    EXPECT_EQ(row(frozen, "c:/quillfence/from_blacklist"), nullptr);
    EXPECT_EQ(report.unread_count, 0u);
}

class large_map : public snapshot {
  protected:
    static constexpr char path[] = "c:/quillfence/bms//one";
    static constexpr uint64_t limit = 4096;

    owned_snapshot load_with(uint64_t largest) {
        snapshot_report_release(&report);
        return owned_snapshot(__load_snapshot(nullptr, &report, largest));
    }
    // A map of 10.1.0.0 alone, and of all of 11.0.0.0/8.
    static std::string map() {
        std::string bytes(1024 + 1024 + 8192, '\0');
        bytes[10 * 4 + 1] = 4; // 1024
        bytes.replace(11 * 4, 4, "\xFF\xFF\xFF\xFF");
        bytes[1024 + 1 * 4 + 1] = 8; // 2048
        bytes[2048] = '\x80';
        return bytes;
    }
    void SetUp() override {
        drive.write("c:/quillfence/bms/one", map());
    }
    // What is answered of 10.1.0.0, and told of it.
    std::pair<int, lines> ask(const owned_snapshot &frozen) {
        evidence_watch watch;
        current_call_context()->configuration = frozen.get();
        const int listed = lookupMapFile(path, 0x0000010A);
        return {listed, watch.take()};
    }
};

TEST_F(large_map, is_kept_open_and_read_by_offset) {
    const owned_snapshot frozen = load_with(limit);
    ASSERT_NE(frozen, nullptr);
    const frozen_file *const kept = row(frozen, path);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->bytes, nullptr);
    EXPECT_TRUE(kept->is_file());
    EXPECT_EQ(kept->sha256, data_files::digest_of(map()));
    EXPECT_STREQ(frozen->revision, load()->revision); // however it is held
    EXPECT_LT(snapshot_size(frozen.get()), snapshot_size(load().get()) - map().size() + 1);
    EXPECT_EQ(ask(frozen), ask(load()));
    call_watch watch;
    EXPECT_EQ(ask(frozen).first, 1);
    EXPECT_EQ(watch.take(), (lines{"file_read_at", "file_read_at", "file_read_at"}));
}

TEST_F(large_map, that_is_replaced_answers_as_it_was) {
    const owned_snapshot frozen = load_with(limit);
    drive.rename("c:/quillfence/bms/one", "c:/quillfence/bms/old");
    drive.write("c:/quillfence/bms/one", std::string(limit + 1, '\0'));
    EXPECT_EQ(ask(frozen).first, 1);
    EXPECT_EQ(ask(load_with(limit)).first, 0);
}

TEST_F(large_map, that_shrinks_answers_as_one_that_is_cut_short) {
    const owned_snapshot frozen = load_with(limit);
    for (const size_t size : {size_t{2048}, size_t{1027}, size_t{1024}, size_t{3}, size_t{0}}) {
        drive.write("c:/quillfence/bms/one", map().substr(0, size));
        const auto [listed, told] = ask(frozen);
        EXPECT_EQ(listed, 0) << size;
        EXPECT_EQ(log.errors(), lines{}) << size;
        EXPECT_NE(::testing::PrintToString(told).find("the map is cut short or can't be read"),
                  std::string::npos)
            << size;
    }
    drive.write("c:/quillfence/bms/one", map() + map()); // behind the end nobody looks
    EXPECT_EQ(ask(frozen).first, 1);
}

TEST_F(large_map, that_can_not_be_read_lists_nobody_and_says_so) {
    const owned_snapshot frozen = load_with(limit);
    for (int n = 1; n <= 3; ++n) {
        call_watch watch;
        watch.fail("file_read_at", n, error_access_denied);
        EXPECT_EQ(ask(frozen).first, 0) << n;
        EXPECT_EQ(log.errors(), lines{"__readBytes: fatal error on read (w32) got error code 5"});
    }
    call_watch watch;
    watch.fail("file_read_at", 1, platform::observed_half); // fewer bytes than were asked for
    EXPECT_EQ(ask(frozen).first, 1);
}

TEST_F(large_map, that_changes_while_it_is_loaded_does_not_load) {
    changing_drive = &drive;
    changing_path = "c:/quillfence/bms/one";
    unsigned refused = 0;
    for (int opened = 0;; ++opened) {
        drive.write(changing_path, map());
        calls_before_change = opened;
        platform::set_call_observer(change_at_opening);
        const owned_snapshot frozen = load_with(limit);
        platform::set_call_observer(nullptr);
        if (calls_before_change >= 0) {
            break;
        }
        refused += !frozen;
        if (!frozen) {
            EXPECT_EQ(std::string(report.changed), path);
        }
    }
    EXPECT_GT(refused, 3u);
}

TEST_F(large_map, is_closed_in_the_end) {
    const int before = open_handles();
    load_with(limit).reset();
    EXPECT_EQ(open_handles(), before);
    bool failed = true;
    for (int n = 1; failed; ++n) {
        call_watch watch;
        watch.fail_any(n, error_access_denied);
        load_with(limit).reset();
        failed = watch.failed();
        EXPECT_EQ(open_handles(), before) << n;
        log.take();
    }
}

TEST_F(snapshot, nothing_at_all_is_a_configuration_too) {
    drive.remove("c:/quillfence");
    const owned_snapshot frozen = load();
    ASSERT_NE(frozen, nullptr);
    EXPECT_EQ(frozen->revision, "sha256:" + data_files::digest_of(""));
    snapshot_free(nullptr);
}

} // namespace
} // namespace quillfence::testing
