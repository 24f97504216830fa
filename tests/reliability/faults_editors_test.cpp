// The editors of lists and range files on a system that fails: afterwards there is the old file or
// the new one.
#include <functional>

#include "../matching/range_bytes.h"
#include "fault_sweep.h"
#include "platform/file.h"
#include "quillfence-file.h"
#include "quillfence-iprange.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char dir[] = "c:/quillfence";
constexpr char list[] = "c:/quillfence/list";
constexpr char tmp[] = "c:/quillfence/list.tmp";
constexpr char ranges[] = "c:/quillfence/ranges";

class faults_editors : public drive_test {
  protected:
    // No lock is left behind.
    void expect_unlocked(const char *path) {
        platform::file_handle file;
        if (drive.exists(path)) {
            ASSERT_EQ(platform::file_open(path, {.write = true, .lock = true}, &file), 0u) << path;
            platform::file_close(file);
        }
    }

    // A list is the old or the new one, and what was reported is so. The one failure that comes
    // after the new list is in its place is that of bringing the folder to stable storage.
    void expect_old_or_new_list(const std::string &before, const std::string &after,
                                const char *message, bool seems_missing) {
        const lines errors = log.errors();
        ASSERT_TRUE(drive.exists(list));
        const std::string now = drive.read(list);
        const bool not_looked_at =
            !errors.empty() && errors[0].find("Failed to get file attributes") != std::string::npos;
        if (message) {
            EXPECT_TRUE(now == after || now == before) << now.substr(0, 50);
            EXPECT_TRUE(message == list_open_failed || message == list_no_memory ||
                        message == list_not_found)
                << message;
        } else {
            EXPECT_TRUE(now == after || ((seems_missing || not_looked_at) && now == before))
                << now.substr(0, 50);
        }
    }

    unsigned sweep_list(const std::string &before, const std::string &after,
                        const std::function<const char *()> &edit) {
        const char *message = nullptr;
        const unsigned runs = sweep_faults(
            [&] {
                drive.remove(tmp);
                drive.write(list, before);
                log.take();
            },
            [&] { message = edit(); },
            [&](const fault &what) {
                // Deleting from a list that is not there, or can't be looked at, is a success.
                const bool seems_missing = what.answer == platform::error_file_not_found ||
                                           what.answer == platform::error_path_not_found;
                expect_old_or_new_list(before, after, message, seems_missing);
                expect_unlocked(list);
                expect_unlocked(tmp);
            });
        EXPECT_EQ(message, nullptr);
        EXPECT_EQ(drive.read(list), after);
        return runs;
    }
};

TEST_F(faults_editors, adding_an_entry) {
    EXPECT_GT(sweep_list("a\nb\n", "a\nb\nc\n",
                         [] { return vc_add_entry(dir, "list", "c", nullptr, _stricmp); }),
              100u);
}

TEST_F(faults_editors, adding_many) {
    EXPECT_GT(sweep_list("a\nb\n", "a\nb\nd\nc\n",
                         [] {
                             list_addition all[] = {{"d", {}}, {"b", {}}, {"c", {}}};
                             return vc_add_entries(dir, "list", all, 3);
                         }),
              100u);
}

TEST_F(faults_editors, adding_a_comment) {
    EXPECT_GT(sweep_list("a\nb\n", "a\n\tnew\nb\n",
                         [] { return vc_add_entry(dir, "list", "a", "new", _stricmp); }),
              100u);
}

TEST_F(faults_editors, deleting_an_entry) {
    std::string before = "a\n";
    for (char c = 'b'; c < 'm'; ++c) { // more than one piece of the copy
        before += std::string(900, c) + "\n";
    }
    EXPECT_GT(sweep_list(before, before.substr(2),
                         [] { return vc_del_entry(dir, "list", "a", 0, _stricmp); }),
              100u);
}

// --- range files ---

class faults_ranges : public faults_editors {
  protected:
    void SetUp() override {
        ipr_add(dir, "ranges", "10.1.0.0", "10.1.0.9", "one", nullptr);
        ipr_add(dir, "ranges", "10.2.0.0", "10.2.0.9", "two", nullptr);
        old_bytes = drive.read(ranges);
    }

    // The ranges that the file of that name answers for, of three.
    std::string ranges_in(const std::string &name) {
        std::string found;
        for (const char *address : {"10.1.0.5", "10.2.0.5", "10.3.0.5"}) {
            found += file_contains_ip_range_match(name.c_str(), address, dir) ? address[3] : '-';
        }
        return found;
    }

    // Every run leaves a file that answers as the old or as the new one.
    unsigned sweep_ranges(const std::string &old_file, const std::string &before,
                          const std::string &after, const std::function<int()> &edit) {
        int result = 0;
        const unsigned runs = sweep_faults(
            [&] {
                for (const char *rest : {"", ".new", ".bak"}) {
                    drive.remove(ranges + std::string(rest));
                }
                drive.write(ranges, old_file);
                log.take();
            },
            [&] { result = edit(); },
            [&](const fault &) {
                log.take();
                const std::string now = ranges_in("ranges");
                EXPECT_TRUE(log.errors().empty()) << "a file that can be read without complaint";
                if (result) {
                    EXPECT_EQ(now, after);
                } else {
                    EXPECT_TRUE(now == before || now == after) << now;
                }
                expect_unlocked(ranges);
            });
        EXPECT_EQ(result, 1);
        EXPECT_EQ(ranges_in("ranges"), after);
        EXPECT_FALSE(drive.exists("c:/quillfence/ranges.new"));
        EXPECT_FALSE(drive.exists("c:/quillfence/ranges.bak"));
        return runs;
    }
    std::string old_bytes;
};

TEST_F(faults_ranges, adding) {
    EXPECT_GT(sweep_ranges(
                  old_bytes, "12-", "123",
                  [] { return ipr_add(dir, "ranges", "10.3.0.0", "10.3.0.9", "three", nullptr); }),
              50u);
}

TEST_F(faults_ranges, adding_many) {
    EXPECT_GT(sweep_ranges(old_bytes, "12-", "123",
                           [] {
                               range_addition all[] = {
                                   {{address({10, 3, 0, 0}), address({10, 3, 0, 9})}, {}},
                                   {{address({10, 4, 0, 0}), address({10, 4, 0, 9})}, {}}};
                               return ipr_add_all(dir, "ranges", all, 2, "three", nullptr);
                           }),
              50u);
}

TEST_F(faults_ranges, a_new_comment) {
    EXPECT_GT(
        sweep_ranges(old_bytes, "12-", "12-",
                     [] { return ipr_add(dir, "ranges", "10.1.0.0", "10.1.0.9", "x", nullptr); }),
        50u);
}

TEST_F(faults_ranges, deleting) {
    EXPECT_GT(sweep_ranges(old_bytes, "12-", "-2-",
                           [] {
                               return ipr_del_range_from_file(dir, "ranges", "10.1.0.0", "10.1.0.9",
                                                              nullptr);
                           }),
              100u);
}

// A legacy file answers for nothing; what counts is that its bytes stay or are converted.
TEST_F(faults_ranges, converting) {
    std::string legacy = old_bytes.substr(0, 24) + old_bytes.substr(16 + 264, 8);
    legacy[8] = 1;
    int result = 0;
    const unsigned runs = sweep_faults(
        [&] {
            for (const char *rest : {"", ".new", ".bak"}) {
                drive.remove(ranges + std::string(rest));
            }
            drive.write(ranges, legacy);
            log.take();
        },
        [&] { result = ipr_convert_file(dir, "ranges"); },
        [&](const fault &) {
            log.take();
            const std::string now = drive.read(ranges);
            EXPECT_TRUE(now == legacy || ranges_in("ranges") == "12-") << now.size();
            log.take();
        });
    EXPECT_GT(runs, 100u);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(ranges_in("ranges"), "12-");
}

} // namespace
} // namespace quillfence::testing
