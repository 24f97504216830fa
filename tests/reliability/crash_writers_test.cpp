// Several processes at one file, killed at random moments: what was reported as done is there, and
// no lookup sees what never was.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "crash.h"
#include "crash_writers.h"

namespace quillfence::testing {
namespace {

constexpr int rounds = 12;                       // of two writers each
constexpr int longest_life = 60;                 // milliseconds
constexpr unsigned seed = 20240229;              // every run kills at the same moments
constexpr char diary[] = "c:/quillfence/diary."; // what a writer is about to do, and has done

class crash_writers_test : public drive_test {
  protected:
    // A line of a writer's diary; one write, so that a kill leaves it whole or not there.
    void note(int writer, const std::string &line) {
        const std::string path = diary + std::to_string(writer);
        const vc_handle file = vc_open_append(path.c_str());
        vc_append(file, (line + "\n").data(), static_cast<uint32_t>(line.size() + 1));
        vc_close(file);
    }
    std::vector<std::string> diary_of(int writer) {
        std::ifstream stream(drive.native(diary + std::to_string(writer)));
        std::vector<std::string> notes;
        for (std::string line; std::getline(stream, line);) {
            notes.push_back(line);
        }
        return notes;
    }
    // Two writers at a time, each until it is killed; look() goes on meanwhile.
    void run(const std::function<void(int writer, int round)> &write,
             const std::function<void()> &look) {
        std::mt19937 random(seed);
        for (int round = 0; round < rounds; ++round) {
            child_process one([&] { write(0, round); });
            child_process other([&] { write(1, round); });
            const auto end = std::chrono::steady_clock::now() +
                             std::chrono::milliseconds(20 + random() % longest_life);
            while (std::chrono::steady_clock::now() < end) {
                look();
            }
            (random() % 2 ? one : other).kill();
            look();
        }
    }
    // What has to be there and what has to be gone, by the diaries: "+x" is about to be added,
    // "=+x" has been. What was under way at a kill may be either.
    void check(const std::function<bool(const std::string &)> &is_there) {
        size_t reported = 0;
        for (const int writer : {0, 1}) {
            std::set<std::string> there;
            std::set<std::string> unknown;
            for (const std::string &line : diary_of(writer)) {
                const bool done = line[0] == '=';
                const std::string entry = line.substr(done ? 2 : 1);
                const bool add = line[done ? 1 : 0] == '+';
                reported += done;
                if (!done) {
                    unknown.insert(entry);
                    continue;
                }
                unknown.erase(entry);
                if (add) {
                    there.insert(entry);
                } else {
                    there.erase(entry);
                    gone_.insert(entry);
                }
            }
            for (const std::string &entry : there) {
                EXPECT_TRUE(unknown.contains(entry) || is_there(entry)) << entry << " was lost";
            }
            for (const std::string &entry : gone_) {
                EXPECT_TRUE(unknown.contains(entry) || !is_there(entry)) << entry << " came back";
            }
        }
        EXPECT_GT(reported, 20u);
        EXPECT_FALSE(gone_.empty());
    }
    std::set<std::string> gone_;
};

// Adds entries, and removes every third again.
void edit_all(int writer, int round, const std::function<void(const std::string &)> &note,
              const std::function<bool(const std::string &)> &add,
              const std::function<bool(const std::string &)> &del) {
    for (int i = 0; i < 250; ++i) {
        const std::string entry =
            "10." + std::to_string(100 * writer + round) + "." + std::to_string(i) + ".7";
        note("+" + entry);
        if (!add(entry)) {
            continue; // refused, since the other one was too busy
        }
        note("=+" + entry);
        if (i % 3 == 0) {
            note("-" + entry);
            if (del(entry)) {
                note("=-" + entry);
            }
        }
    }
}

TEST_F(crash_writers_test, of_a_range_file) {
    ASSERT_EQ(ipr_add(crash_dir, "ranges", "192.0.2.0", "192.0.2.9", "always", nullptr), 1);
    unsigned looks = 0;
    run(
        [&](int writer, int round) {
            edit_all(
                writer, round, [&](const std::string &line) { note(writer, line); },
                [](const std::string &entry) {
                    return ipr_add(crash_dir, "ranges", entry.c_str(), entry.c_str(), "x",
                                   nullptr) == 1;
                },
                [](const std::string &entry) {
                    return ipr_del_range_from_file(crash_dir, "ranges", entry.c_str(),
                                                   entry.c_str(), nullptr) == 1;
                });
        },
        [&] {
            ++looks;
            EXPECT_EQ(file_contains_ip_range_match("ranges", "192.0.2.5", crash_dir), 1);
            EXPECT_EQ(file_contains_ip_range_match("ranges", "203.0.113.5", crash_dir), 0);
        });
    EXPECT_EQ(log.errors(), lines{}) << "of the lookups";
    EXPECT_GT(looks, 100u);
    check([](const std::string &entry) {
        return file_contains_ip_range_match("ranges", entry.c_str(), crash_dir) == 1;
    });
    EXPECT_EQ(ipr_add(crash_dir, "ranges", "192.0.2.20", "192.0.2.20", nullptr, nullptr), 1);
    EXPECT_FALSE(drive.exists("c:/quillfence/ranges.new"));
    EXPECT_FALSE(drive.exists("c:/quillfence/ranges.bak"));
}

TEST_F(crash_writers_test, of_a_list) {
    drive.write("c:/quillfence/list", "*@always.example\n");
    unsigned looks = 0;
    run(
        [&](int writer, int round) {
            edit_all(
                writer, round, [&](const std::string &line) { note(writer, line); },
                [](const std::string &entry) {
                    return !vc_add_entry(crash_dir, "list", entry.c_str(), nullptr, _stricmp);
                },
                [](const std::string &entry) {
                    return !vc_del_entry(crash_dir, "list", entry.c_str(), 0, _stricmp);
                });
        },
        [&] {
            ++looks;
            EXPECT_EQ(__file_contains_line(crash_dir, "list", "a@always.example", __wildcardmatch),
                      1);
            EXPECT_EQ(__file_contains_line(crash_dir, "list", "a@never.example", __wildcardmatch),
                      0);
        });
    EXPECT_EQ(log.errors(), lines{}) << "of the lookups";
    EXPECT_GT(looks, 100u);
    check([](const std::string &entry) {
        return __file_contains_line(crash_dir, "list", entry.c_str(), _stricmp) == 1;
    });
    EXPECT_EQ(vc_add_entry(crash_dir, "list", "last", nullptr, _stricmp), nullptr);
    EXPECT_FALSE(drive.exists("c:/quillfence/list.tmp"));
}

// One edit stands still before each of its system calls while another one is made whole, until it
// has the lock and the other one is refused. Both are there afterwards: a lock on a file that has
// lost its name meanwhile is none.
TEST_F(crash_writers_test, one_edit_between_two_calls_of_another) {
    const auto add_to_list = [](const char *entry) {
        return !vc_add_entry(crash_dir, "list", entry, nullptr, _stricmp);
    };
    const auto add_to_ranges = [](const char *entry) {
        return ipr_add(crash_dir, "ranges", entry, entry, "x", nullptr) == 1;
    };
    const auto remove_and_add = [](const char *entry) { // replaces the file
        return ipr_del_range_from_file(crash_dir, "ranges", "10.1.0.0", "10.1.0.9", nullptr) == 1 &&
               ipr_add(crash_dir, "ranges", entry, entry, "x", nullptr) == 1;
    };
    const auto add_many_to_list = [](const char *entry) {
        list_addition all[] = {{entry, {}}, {"b", {}}};
        return !vc_add_entries(crash_dir, "list", all, 2);
    };
    const auto add_many_to_ranges = [](const char *entry) {
        const auto last = static_cast<unsigned char>(entry[strlen(entry) - 1] - '0');
        const uint32_t one = address({192, 0, 2, last});
        range_addition all[] = {{{one, one}, {}},
                                {{address({10, 8, 0, 0}), address({10, 8, 0, 1})}, {}}};
        return ipr_add_all(crash_dir, "ranges", all, 2, "x", nullptr) == 1;
    };
    const auto in_list = [](const char *entry) {
        return __file_contains_line(crash_dir, "list", entry, _stricmp) == 1;
    };
    const auto in_ranges = [](const char *entry) {
        return file_contains_ip_range_match("ranges", entry, crash_dir) == 1;
    };
    const struct {
        const char *name;
        std::function<bool(const char *)> edit, other_edit, is_there;
    } cases[] = {
        {"list", add_to_list, add_to_list, in_list},
        {"ranges", add_to_ranges, remove_and_add, in_ranges},
        {"many to the list", add_many_to_list, add_to_list, in_list},
        {"many to the ranges", add_many_to_ranges, remove_and_add, in_ranges},
    };
    for (const auto &c : cases) {
        bool refused = false;
        unsigned n = 0;
        while (!refused && ++n < 200) {
            SCOPED_TRACE(std::string(c.name) + ", call " + std::to_string(n));
            drive.write("c:/quillfence/list", "a\n");
            have_ranges(drive);
            paused_at(
                n, [&] { c.edit("192.0.2.1"); }, [&] { refused = !c.other_edit("192.0.2.2"); });
            EXPECT_TRUE(c.is_there("192.0.2.1")) << "was lost";
            EXPECT_TRUE(refused || c.is_there("192.0.2.2")) << "was lost";
        }
        EXPECT_TRUE(refused) << c.name;
        EXPECT_GT(n, 2u) << c.name;
        EXPECT_FALSE(log.errors().empty()) << "the refusal";
    }
}

// Lines of two sizes, one of them larger than what a file is written in.
TEST_F(crash_writers_test, of_the_mail_log) {
    drive.make_folder("c:/quillfence/log");
    const auto write = [&](int writer, int round) {
        std::string helo(writer ? 6000 : 100, static_cast<char>('a' + writer));
        smtp_state state = {};
        state.helo = helo.data();
        for (int i = 0; i < 250; ++i) {
            const std::string entry = std::to_string(round) + "-" + std::to_string(i);
            std::string from = std::to_string(writer) + "-" + entry;
            state.mail_from = from.data();
            log_message(&state, nullptr, log_type_ham);
            note(writer, from);
        }
    };
    run(write, [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
    const std::string bytes = drive.read("c:/quillfence/log/qflog");
    std::set<std::string> senders;
    int cut = 0; // by a kill in the middle of its write; the next line stands behind it
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = bytes.find("\r\n", at);
        if (end == std::string::npos) {
            ++cut;
            break;
        }
        const std::string line = bytes.substr(at, end - at);
        const size_t from = line.rfind(",from=<");
        ASSERT_NE(from, std::string::npos) << line;
        const std::string sender = line.substr(from + 7, line.find('>', from) - from - 7);
        const bool long_one = sender[0] == '1';
        const std::string rest = "helo=<" +
                                 std::string(long_one ? 6000 : 100, long_one ? 'b' : 'a') +
                                 ">,from=<" + sender + ">,rcpt=<(null)>";
        EXPECT_TRUE(line.ends_with(rest)) << sender << " is torn";
        EXPECT_TRUE(senders.insert(sender).second) << sender;
        cut += line.find(" quillfence[") != line.rfind(" quillfence[");
        at = end + 2;
    }
    EXPECT_LE(cut, rounds);
    for (const int writer : {0, 1}) {
        for (const std::string &sender : diary_of(writer)) {
            EXPECT_TRUE(senders.contains(sender)) << sender << " was lost";
        }
    }
    EXPECT_GT(senders.size(), 100u);
    EXPECT_EQ(log.errors(), lines{});
}

} // namespace
} // namespace quillfence::testing
