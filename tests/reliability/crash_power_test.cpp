// Every writer loses the power behind each of its changes: whatever of them has reached the disk,
// in whatever order, the file is the old or the new one, and the new one once that was reported.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "crash.h"
#include "crash_writers.h"
#include "power_model.h"

namespace quillfence::testing {
namespace {

namespace fs = std::filesystem;

class crash_power : public drive_test {
  protected:
    void prepare(const crash_writer &writer) {
        quietly([&] {
            writer.prepare(drive);
            return true;
        });
    }
    // Puts a state into the folder.
    void put(const named_files &files) {
        for (const auto &entry : fs::directory_iterator(drive.native(crash_dir))) {
            fs::remove_all(entry.path());
        }
        for (const auto &[name, bytes] : files) {
            drive.write(std::string(crash_dir) + "/" + name, bytes);
        }
    }
    // Checks all states that a loss of power behind so many changes can leave; returns how many.
    size_t check_states(const crash_writer &writer, const std::set<named_files> &states,
                        const std::set<std::string> &allowed) {
        for (const named_files &state : states) {
            put(state);
            const std::string seen = writer.seen(drive);
            EXPECT_TRUE(allowed.contains(seen)) << seen;
            EXPECT_EQ(log.errors(), lines{}) << "of the reader";
        }
        return states.size();
    }
    size_t lose_power_at_each_change(const crash_writer &writer) {
        SCOPED_TRACE(writer.name);
        prepare(writer);
        const std::string old_view = writer.seen(drive);
        folder_state before;
        const std::vector<file_change> changes = changes_of(
            drive.native(crash_dir), [&] { writer.write(); }, &before);
        const std::string new_view = writer.seen(drive);
        EXPECT_NE(old_view, new_view);
        size_t states = 0;
        std::set<named_files> seen;
        for (size_t done = 0; done < changes.size(); ++done) {
            SCOPED_TRACE("behind change " + std::to_string(done));
            std::set<named_files> fresh;
            for (const named_files &state : after_power_loss(before, changes, done)) {
                if (seen.insert(state).second) {
                    fresh.insert(state);
                }
            }
            states += check_states(writer, fresh, {old_view, new_view});
        }
        SCOPED_TRACE("after the report");
        return states +
               check_states(writer, after_power_loss(before, changes, changes.size()), {new_view});
    }
};

TEST_F(crash_power, every_writer_at_every_change) {
    for (const crash_writer &writer : crash_writers()) {
        if (writer.lasts) {
            const size_t states = lose_power_at_each_change(writer);
            EXPECT_GT(states, 4u) << writer.name;
            RecordProperty(writer.name, static_cast<int>(states));
        }
    }
}

// --- the model finds what is wrong ---

void write_bytes(const std::string &path, const std::string &bytes, bool sync) {
    const vc_handle file = vc_open_ex(path.c_str(), 0, 1, 0);
    vc_write(file, bytes.data(), static_cast<uint32_t>(bytes.size()));
    if (sync) {
        platform::file_sync(file);
    }
    vc_close(file);
}

class power_model : public crash_power {
  protected:
    // Contents of "list" that a loss of power can leave during or after the operation, with none
    // for a missing file.
    std::set<std::string> contents(const std::function<void()> &operation, bool after_the_end) {
        put({{"list", "old"}});
        folder_state before;
        const std::vector<file_change> changes =
            changes_of(drive.native(crash_dir), operation, &before);
        std::set<std::string> found;
        for (size_t done = after_the_end ? changes.size() : 0; done <= changes.size(); ++done) {
            for (const named_files &state : after_power_loss(before, changes, done)) {
                found.insert(state.contains("list") ? state.at("list") : "none");
            }
        }
        return found;
    }
    const std::string list = std::string(crash_dir) + "/list";
    const std::string fresh = std::string(crash_dir) + "/fresh";
};

TEST_F(power_model, a_file_that_is_not_synced_before_it_is_renamed) {
    const auto operation = [&] {
        write_bytes(fresh, "new", false);
        platform::path_replace(fresh.c_str(), list.c_str());
        platform::path_sync_folder(list.c_str());
    };
    EXPECT_EQ(contents(operation, false),
              (std::set<std::string>{"old", "", "new", std::string(3, '\0')}));
}

TEST_F(power_model, a_folder_that_is_not_synced) {
    const auto operation = [&] {
        write_bytes(fresh, "new", true);
        platform::path_replace(fresh.c_str(), list.c_str());
    };
    EXPECT_EQ(contents(operation, true), (std::set<std::string>{"old", "new"}));
}

TEST_F(power_model, a_file_that_is_moved_away_first) {
    const auto operation = [&] {
        write_bytes(fresh, "new", true);
        platform::path_rename(list.c_str(), "c:/quillfence/away");
        platform::path_rename(fresh.c_str(), list.c_str());
        platform::path_sync_folder(list.c_str());
    };
    EXPECT_EQ(contents(operation, false), (std::set<std::string>{"old", "none", "new"}));
    EXPECT_EQ(contents(operation, true), std::set<std::string>{"new"});
}

TEST_F(power_model, a_file_that_is_written_over) {
    const auto operation = [&] { write_bytes(list, std::string(600, 'n'), true); };
    const std::set<std::string> found = contents(operation, false);
    EXPECT_TRUE(found.contains("old"));
    EXPECT_TRUE(found.contains(std::string(512, 'n'))) << "one sector of two";
    EXPECT_TRUE(found.contains("old" + std::string(597, '\0'))) << "a length without its bytes";
    EXPECT_EQ(contents(operation, true), std::set<std::string>{std::string(600, 'n')});
}

TEST_F(power_model, a_file_that_is_replaced_as_it_should_be) {
    const auto operation = [&] {
        write_bytes(fresh, "new", true);
        platform::path_replace(fresh.c_str(), list.c_str());
        platform::path_sync_folder(list.c_str());
    };
    EXPECT_EQ(contents(operation, false), (std::set<std::string>{"old", "new"}));
    EXPECT_EQ(contents(operation, true), std::set<std::string>{"new"});
}

} // namespace
} // namespace quillfence::testing
