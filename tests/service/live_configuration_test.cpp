// A configuration that is read anew when it was edited, and not before it is still.
#include "live_configuration.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../reliability/engine_test.h"
#include "call_watch.h"
#include "frozen_files.h"
#include "platform/error_numbers.h"
#include "platform/file.h"

namespace quillfence::testing {
namespace {

using namespace service;
using namespace std::chrono_literals;

using test_clock = std::chrono::steady_clock;
test_clock::time_point moment;

class live_configuration_test : public engine_test {
  protected:
    live_configuration_test() {
        moment = test_clock::time_point(1h);
        EXPECT_TRUE(live.load());
        told.clear();
    }
    // A look after so much time.
    void look_after(std::chrono::milliseconds pause) {
        moment += pause;
        live.look();
    }
    // What is in force of a list.
    std::string bytes_of(const char *path) const {
        const auto tree = live.now();
        const frozen_file *const row = tree ? find_frozen_file(tree->files.get(), path) : nullptr;
        return row && row->bytes ? std::string(row->bytes, row->size) : "none";
    }

    std::vector<std::string> told;
    live_configuration live{{.told =
                                 [this](const loaded_tree *tree, std::string_view text) {
                                     told.push_back((tree ? "loaded: " : "failed: ") +
                                                    std::string(text));
                                 },
                             .now = [] { return moment; }}};
    static constexpr char list[] = "c:/quillfence/from_blacklist";
};

TEST_F(live_configuration_test, nothing_is_read_while_nothing_changes) {
    const auto before = live.now();
    call_watch calls;
    for (int i = 0; i < 100; ++i) {
        look_after(500ms);
    }
    EXPECT_EQ(live.now(), before);
    EXPECT_EQ(calls.count("file_open"), 0);
    EXPECT_EQ(told, lines{});
}

TEST_F(live_configuration_test, an_edit_counts_after_at_most_two_seconds) {
    const auto before = live.now();
    drive.write(list, "*@edited.example\n");
    look_after(live_configuration::between_looks); // the longest until it is seen
    look_after(500ms);
    EXPECT_EQ(live.now(), before) << "half a second is not still enough";
    look_after(500ms);
    EXPECT_EQ(bytes_of(list), "*@edited.example\n") << "a second and a half after the edit";
    EXPECT_EQ(told.size(), 1u);
    EXPECT_EQ(before->files.get() == live.now()->files.get(), false);
    // What began with the old one still has it.
    const frozen_file *const old = find_frozen_file(before->files.get(), list);
    EXPECT_EQ(std::string(old->bytes, old->size), "*@foe.example\n");
}

TEST_F(live_configuration_test, what_keeps_changing_is_waited_for) {
    for (int i = 0; i < 20; ++i) {
        drive.write(list, std::string(static_cast<size_t>(i + 1), 'x') + "\n");
        look_after(500ms);
        EXPECT_EQ(bytes_of(list), "*@foe.example\n");
    }
    look_after(500ms);
    look_after(500ms);
    EXPECT_EQ(bytes_of(list), std::string(20, 'x') + "\n");
    EXPECT_EQ(told.size(), 1u);
}

// Every way in which a file can become another one.
TEST_F(live_configuration_test, appearing_vanishing_replaced_and_same_size) {
    const auto settle = [this] {
        for (int i = 0; i < 3; ++i) {
            look_after(500ms);
        }
    };
    drive.remove(list);
    settle();
    EXPECT_EQ(bytes_of(list), "none");
    drive.write(list, "a@b.example\n");
    settle();
    EXPECT_EQ(bytes_of(list), "a@b.example\n");
    drive.write("c:/quillfence/new", "c@d.example\n");
    EXPECT_EQ(platform::path_replace("c:/quillfence/new", list), 0u);
    settle();
    EXPECT_EQ(bytes_of(list), "c@d.example\n") << "another file of the same size";
    drive.write(list, "e@f.example\n");
    settle();
    EXPECT_EQ(bytes_of(list), "e@f.example\n") << "the same file with as many bytes";
}

TEST_F(live_configuration_test, files_that_an_edit_names_are_watched_from_then_on) {
    const auto settle = [this] {
        for (int i = 0; i < 3; ++i) {
            look_after(500ms);
        }
    };
    drive.write("c:/quillfence/control/bms.enabled", "one\nthree\n");
    settle();
    EXPECT_EQ(bytes_of("c:/quillfence/bms//three"), "none");
    const auto before = live.now();
    drive.write("c:/quillfence/bms/three", std::string(1024, '\0'));
    settle();
    EXPECT_NE(live.now(), before);
}

TEST_F(live_configuration_test, the_zones_are_those_of_the_loaded_lists) {
    EXPECT_EQ(live.now()->zones, (std::vector<std::string>{"rbl.example"}));
    drive.write("c:/quillfence/rbl.enabled", "a.example\nb.example\n");
    EXPECT_TRUE(live.load()) << "at once, on request";
    EXPECT_EQ(live.now()->zones, (std::vector<std::string>{"a.example", "b.example"}));
}

TEST_F(live_configuration_test, unreadable_keeps_the_old_one_and_says_so) {
    const auto before = live.now();
    drive.write(list, "*@edited.example\n");
    {
        call_watch calls;
        calls.fail("file_read", 1, platform::error_io_device, true);
        for (int i = 0; i < 3; ++i) {
            look_after(500ms);
        }
    }
    EXPECT_EQ(live.now(), before);
    ASSERT_EQ(told.size(), 1u);
    EXPECT_TRUE(told[0].starts_with("failed: the configuration can't be loaded: c:/quillfence/"))
        << told[0];
    EXPECT_TRUE(told[0].ends_with("; the one before stays in force")) << told[0];
    // It is not tried all the time, but after a while.
    for (int i = 0; i < 10; ++i) {
        look_after(500ms);
    }
    EXPECT_EQ(told.size(), 1u);
    look_after(live_configuration::until_tried_again);
    EXPECT_EQ(bytes_of(list), "*@edited.example\n");
    EXPECT_EQ(told.size(), 2u);
    log.take();
}

TEST_F(live_configuration_test, a_change_while_it_is_read_is_tried_again) {
    drive.write(list, "*@edited.example\n");
    look_after(500ms);
    look_after(500ms);
    {
        // What was read is not what stands there when it is compared.
        call_watch calls;
        calls.fail("path_attributes", 40, platform::error_file_not_found);
        look_after(500ms);
        ASSERT_EQ(calls.failed(), 1);
    }
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NE(told[0].find("changes while it is read"), std::string::npos) << told[0];
    EXPECT_EQ(bytes_of(list), "*@foe.example\n");
    look_after(500ms);
    look_after(500ms);
    EXPECT_EQ(bytes_of(list), "*@edited.example\n");
}

TEST_F(live_configuration_test, none_at_all_is_waited_for) {
    std::vector<std::string> said;
    live_configuration late(
        {.told = [&said](const loaded_tree *, std::string_view text) { said.emplace_back(text); },
         .now = [] { return moment; }});
    EXPECT_EQ(late.now(), nullptr);
    {
        call_watch calls;
        calls.fail("file_read", 1, platform::error_io_device, true);
        EXPECT_FALSE(late.load());
    }
    EXPECT_EQ(late.now(), nullptr);
    ASSERT_EQ(said.size(), 1u);
    EXPECT_TRUE(said[0].ends_with("; nothing is judged until it can")) << said[0];
    moment += live_configuration::until_tried_again;
    late.look();
    EXPECT_NE(late.now(), nullptr);
    log.take();
}

// With the thread and the system's clock.
TEST(live_configuration_thread, takes_an_edit_by_itself) {
    log_capture log;
    drive_c drive;
    write_configuration(drive);
    running_engine engine;
    live_configuration live({});
    ASSERT_TRUE(live.load());
    live.start();
    const auto before = live.now();
    drive.write("c:/quillfence/from_blacklist", "*@edited.example\n");
    const auto edited = test_clock::now();
    while (live.now() == before && test_clock::now() - edited < 10s) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_NE(live.now(), before);
    live.stop();
}

} // namespace
} // namespace quillfence::testing
