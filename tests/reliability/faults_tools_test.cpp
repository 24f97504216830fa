// quillfence-data on a system that fails. What only reads changes nothing; what writes leaves the
// old file or the new one; no temporary file of the tool's own and no open file is left behind. A
// failure is told, by the exit status and with the name of the file, and never taken for an answer.
#include <algorithm>
#include <functional>
#include <sstream>

#include "fault_sweep.h"
#include "open_handles.h"
#include "tool_drive.h"

namespace quillfence::testing {
namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::istringstream in(text);
    std::vector<std::string> found;
    for (std::string line; std::getline(in, line);) {
        found.push_back(line);
    }
    return found;
}

// The file that was to be found is not there, and so it says.
bool is_gone(const fault &what) {
    return what.answer == platform::error_file_not_found ||
           what.answer == platform::error_path_not_found;
}

constexpr int every_call = 1; // of what writes, however long that takes

class faults_tools : public tool_test {
  protected:
    // A run that had a fault is told as one: its status is that of a failure, and a complaint names
    // a file.
    static void expect_told(const ending &run) {
        EXPECT_TRUE(run.status == exit_status::failed || run.status == exit_status::partly)
            << static_cast<int>(run.status) << "\n"
            << run.out << run.err;
        EXPECT_NE(run.err.find(root), std::string::npos) << "no file is named: " << run.err;
    }

    // A finding says what could not be looked at. A counter file whose header does not come is one
    // without a header for the engine, too.
    static bool tells_of(const std::string &findings) {
        return findings.find("can't be ") != std::string::npos ||
               findings.find("has no header of a counter file") != std::string::npos;
    }

    unsigned sweep(const words &arguments, const std::function<void()> &prepare,
                   const std::function<void(const ending &, const fault &)> &judge,
                   int step = QF_SWEEP_STEP) {
        const int handles = open_handles();
        prepare();
        before = contents_of(drive);
        ending run = {};
        const unsigned runs = sweep_faults(
            prepare, [&] { run = run_program(arguments); },
            [&](const fault &what) {
                EXPECT_EQ(open_handles(), handles);
                judge(run, what);
            },
            step);
        EXPECT_EQ(open_handles(), handles);
        return runs;
    }

    drive_contents before;
};

// --- what only reads ---

TEST_F(faults_tools, questions) {
    for (const question &asked : questions()) {
        SCOPED_TRACE(asked.name);
        const ending right = run_program(asked.arguments);
        EXPECT_EQ(right.status, asked.answer) << right.err;
        EXPECT_EQ(right.err, "");
        const unsigned runs = sweep(
            asked.arguments, [] {},
            [&](const ending &run, const fault &what) {
                EXPECT_EQ(changed_files(before, contents_of(drive)), "");
                const bool is_right = run.status == right.status && run.out == right.out;
                if (!is_right && !(asked.may_be_missing && is_gone(what))) {
                    expect_told(run);
                    EXPECT_TRUE(right.out.starts_with(run.out)) << run.out;
                }
            });
        EXPECT_GT(runs, 6u / QF_SWEEP_STEP);
    }
}

// The answer is right, or it is said what could not be looked at: a file, an address that the
// system did not convert. A list of which half is read is another list, to the engine as well.
TEST_F(faults_tools, who_lists) {
    const words arguments = {"who-lists", "10.1.2.5"};
    const ending right = run_program(arguments);
    EXPECT_EQ(right.status, exit_status::done) << right.err;
    EXPECT_EQ(right.err, "");
    const unsigned runs = sweep(
        arguments, [] {},
        [&](const ending &run, const fault &what) {
            EXPECT_EQ(changed_files(before, contents_of(drive)), "");
            if ((run.status != right.status || run.out != right.out) && !is_gone(what) &&
                what.answer != platform::observed_half) {
                EXPECT_EQ(run.status, exit_status::failed) << run.out;
                EXPECT_NE(run.err, "");
            }
        });
    EXPECT_GT(runs, 100u / QF_SWEEP_STEP);
}

// Each finding is there, or another one says what could not be looked at.
TEST_F(faults_tools, verify) {
    drive.write(below("control/rules.enabled"), "valid_prt\n");
    drive.write(below("control/valid_domain_ips"), "x\n");
    drive.write(below("rbl.enabled"), "a b\n");
    drive.write(below("control/bms.enabled"), "b.bms\n");
    drive.write(below("bms/b.bms"), "short");
    drive.write(below("bms/c.bms"), "");
    drive.write(below("from_whitelist"), "a\n");
    drive.write(below("exempt_ips"), "10.1.2.0/24\n10.9.0.1\n");
    drive.write(below("exempt_users"), "*@friend.example\n*@friend.example\n");
    drive.write(below("exempt_ips.range"), header(2, 1) + record({10, 1, 2, 0}, {10, 1, 2, 255}));
    drive.write(below("dynaregex/other.cregexes"), "none");
    drive.write(below("log/.counterv2.dat.12"), "none");
    const words arguments = {"verify", root};
    const ending right = run_program(arguments);
    EXPECT_EQ(right.status, exit_status::no);
    EXPECT_FALSE(tells_of(right.out)) << right.out;
    const std::vector<std::string> findings = lines_of(right.out);
    EXPECT_GE(findings.size(), 12u);
    const unsigned runs = sweep(
        arguments, [] {},
        [&](const ending &run, const fault &what) {
            EXPECT_EQ(changed_files(before, contents_of(drive)), "");
            if (run.status == exit_status::failed) {
                expect_told(run);
                return;
            }
            EXPECT_EQ(run.status, exit_status::no);
            const std::vector<std::string> found = lines_of(run.out);
            const bool told = tells_of(run.out);
            for (const std::string &line : findings) {
                EXPECT_TRUE(told || is_gone(what) ||
                            std::find(found.begin(), found.end(), line) != found.end())
                    << "silent about " << line;
            }
            for (const std::string &line : found) {
                EXPECT_TRUE(told || is_gone(what) ||
                            std::find(findings.begin(), findings.end(), line) != findings.end())
                    << "invented: " << line;
            }
        });
    EXPECT_GT(runs, 300u / QF_SWEEP_STEP);
}

// Where nothing is wrong, a run that could not look at everything does not say so.
TEST_F(faults_tools, verify_a_sound_tree) {
    const words arguments = {"verify", "--json", root};
    const ending right = run_program(arguments);
    EXPECT_EQ(right.status, exit_status::done) << right.out;
    const unsigned runs = sweep(
        arguments, [] {},
        [&](const ending &run, const fault &what) {
            EXPECT_EQ(changed_files(before, contents_of(drive)), "");
            if (run.status == exit_status::done) {
                EXPECT_TRUE(is_gone(what) || run.out == right.out) << run.out;
                EXPECT_TRUE(is_gone(what) || run.err == right.err) << run.err;
            } else if (run.status == exit_status::no) {
                EXPECT_TRUE(is_gone(what) || tells_of(run.out)) << run.out;
            } else {
                expect_told(run);
            }
        });
    EXPECT_GT(runs, 300u / QF_SWEEP_STEP);
}

// --- what makes a file ---

TEST_F(faults_tools, makers) {
    const std::string out = below("out");
    drive.write(below("addresses"), "10.0.0.0/8\n11.1.2.3\n");
    drive.write(below("patterns"), "^dyn[0-9]+\\.\n");
    const words makers[] = {
        {"blockmap", "build", below("addresses"), out},
        {"regex", "compile", below("patterns"), out},
        {"counter", "show", "--html", out, below("log")},
    };
    for (const words &arguments : makers) {
        SCOPED_TRACE(arguments[0]);
        drive.remove(out);
        const ending right = run_program(arguments);
        EXPECT_EQ(right.status, exit_status::done) << right.err;
        const std::string made = drive.read(out);
        for (const bool over : {false, true}) {
            const auto prepare = [&] {
                drive.remove(out);
                if (over) {
                    drive.write(out, "old");
                }
            };
            const auto judge = [&](const ending &run, const fault &what) {
                drive_contents after = contents_of(drive);
                const bool written = after.contains(out) && after[out] != "old";
                if (written && !(arguments[0] == "counter" && is_gone(what))) {
                    EXPECT_EQ(after[out], made);
                }
                // The new file may be there although its folder could not be synced, as is told.
                EXPECT_TRUE(written || run.status != exit_status::done);
                if (run.status == exit_status::done) {
                    EXPECT_EQ(written && after[out] == made, run.out == right.out) << run.out;
                } else {
                    expect_told(run);
                }
                for (const std::string &temporary : {out + ".tmp", out + ".lines.tmp"}) {
                    if (what.to_the_end) { // the system refuses to remove it
                        drive.remove(temporary);
                        after.erase(temporary);
                    }
                }
                after.erase(out);
                before.erase(out);
                EXPECT_EQ(changed_files(before, after), "");
            };
            EXPECT_GT(sweep(arguments, prepare, judge), 50u / QF_SWEEP_STEP);
        }
    }
}

// --- what edits a file ---

struct list_edit_case {
    const char *name;
    std::string file;
    words arguments;
};

TEST_F(faults_tools, list_edits) {
    const std::string list = below("from_blacklist");
    const std::string old_list = "*@foe.example\n\tall of them\nb@foe.example.org\n";
    const list_edit_case edits[] = {
        {"an entry", list, {"list", "add", root, "from_blacklist", "c@foe.example.net"}},
        {"a comment",
         list,
         {"list", "add", root, "from_blacklist", "b@foe.example.org", "--comment", "him"}},
        {"no entry", list, {"list", "del", root, "from_blacklist", "b@foe.example.org"}},
        {"no comment",
         list,
         {"list", "del", root, "from_blacklist", "*@foe.example", "--comment-only"}},
    };
    for (const list_edit_case &one : edits) {
        SCOPED_TRACE(one.name);
        drive.write(list, old_list);
        const ending right = run_program(one.arguments);
        EXPECT_EQ(right.status, exit_status::done) << right.err;
        const std::string new_list = drive.read(list);
        const auto prepare = [&] {
            drive.write(list, old_list);
            drive.remove(list + ".tmp");
        };
        const auto judge = [&](const ending &run, const fault &what) {
            drive_contents after = contents_of(drive);
            ASSERT_TRUE(after.contains(list));
            const std::string now = after[list];
            if (run.status == exit_status::done) {
                // A list that is not there need not be edited.
                const bool nothing_to_do = one.arguments[1] == "del" && is_gone(what);
                EXPECT_TRUE(now == new_list || (nothing_to_do && now == old_list)) << now;
                EXPECT_TRUE(run.out == right.out || nothing_to_do) << run.out;
            } else {
                expect_told(run);
                EXPECT_EQ(run.out, "");
                std::string grown = old_list; // by empty lines that a full disk does not let go
                grown.resize(std::max(now.size(), old_list.size()), '\n');
                const bool beside = run.err.find("the whole new list is in") != std::string::npos &&
                                    after[list + ".tmp"] == new_list;
                EXPECT_TRUE(now == new_list || now == grown || beside) << now;
            }
            for (drive_contents *each : {&before, &after}) {
                each->erase(list);
                each->erase(list + ".tmp");
            }
            EXPECT_EQ(changed_files(before, after), "");
        };
        EXPECT_GT(sweep(one.arguments, prepare, judge, every_call), 100u);
    }
}

TEST_F(faults_tools, range_edits) {
    const std::string file = below("blocked_ips.range");
    const std::string current = drive.read(file);
    const std::string legacy = header(1, 2) + legacy_record({10, 1, 2, 4}, {10, 1, 2, 9}) +
                               legacy_record({10, 1, 3, 0}, {10, 1, 3, 255});
    const struct {
        const char *name;
        std::string old_file;
        words arguments;
    } edits[] = {
        {"add", current, {"range", "add", file, "10.2.0.0/24", "--comment", "more"}},
        {"comment", current, {"range", "add", file, "10.1.2.4", "10.1.2.9", "--comment", "x"}},
        {"del", current, {"range", "del", file, "10.1.2.4", "10.1.2.9"}},
        {"convert", legacy, {"range", "convert", file}},
    };
    const auto listed = [](const std::string &path) {
        return run_program({"range", "list", path}).out;
    };
    for (const auto &one : edits) {
        SCOPED_TRACE(one.name);
        drive.write(file, one.old_file);
        const std::string old_list = listed(file);
        const ending right = run_program(one.arguments);
        EXPECT_EQ(right.status, exit_status::done) << right.err;
        const std::string new_list = listed(file);
        const auto prepare = [&] {
            drive.write(file, one.old_file);
            drive.remove(file + ".new");
            drive.remove(file + ".bak");
        };
        const auto judge = [&](const ending &run, const fault &what) {
            drive_contents after = contents_of(drive);
            const std::string now = listed(after.contains(file) ? file : file + ".bak");
            if (run.status == exit_status::done) {
                EXPECT_EQ(now, new_list);
                // It may take a range for new whose file was gone when it looked.
                EXPECT_TRUE(run.out == right.out || is_gone(what)) << run.out;
            } else {
                expect_told(run);
                EXPECT_EQ(run.out, "");
                EXPECT_TRUE(now == old_list || now == new_list) << now;
            }
            for (const char *rest : {"", ".new", ".bak"}) {
                before.erase(file + rest);
                after.erase(file + rest);
            }
            EXPECT_EQ(changed_files(before, after), "");
        };
        EXPECT_GT(sweep(one.arguments, prepare, judge, every_call), 100u);
    }
}

} // namespace
} // namespace quillfence::testing
