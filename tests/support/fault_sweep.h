// A system that fails, through the platform's observer: the n-th call of an operation fails, for
// each n, in each of the ways that systems fail.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "platform/error_numbers.h"

namespace quillfence::testing {

struct fault {
    const char *name;
    uint32_t answer;         // to the observer
    bool to_the_end = false; // all later calls fail, too
};

inline constexpr fault faults[] = {
    {"the disk is full", platform::error_disk_full},
    {"the device fails", platform::error_io_device},
    {"somebody else has it open", platform::error_sharing_violation},
    {"the file has vanished", platform::error_file_not_found},
    {"the folder has vanished", platform::error_path_not_found},
    {"access is denied", platform::error_access_denied},
    {"half of the bytes", platform::observed_half},
};

// Runs operation() with its first, second, ... call of the platform failing, once for each fault
// and again with all later calls failing too, up to the run in which no call came to fail.
// prepare() runs before and check(fault) after each run, both with a system that works. Reading
// the clock and the environment never fails. Returns how many runs had a failure.
//   step  2 and more: only every so many-th call comes to fail, where runs are slow
template <class Prepare, class Operation, class Check>
unsigned sweep_faults(Prepare prepare, Operation operation, Check check, int step = 1) {
    constexpr int limit = 10000;
    unsigned runs = 0;
    for (const fault &what : faults) {
        for (const bool all_after : {false, true}) {
            int n = 1 - step;
            bool failed = true;
            while (failed && (n += step) < limit && !::testing::Test::HasFatalFailure()) {
                SCOPED_TRACE(std::string(what.name) + ", from call " + std::to_string(n) +
                             (all_after ? " on" : " only"));
                prepare();
                {
                    call_watch watch;
                    watch.fail_any(n, what.answer, all_after);
                    operation();
                    failed = watch.failed() > 0;
                }
                if (failed) {
                    ++runs;
                    check(fault{what.name, what.answer, all_after});
                }
            }
            EXPECT_LT(n, limit);
        }
    }
    return runs;
}

// Every file of the drive with its bytes.
using drive_contents = std::map<std::string, std::string>;

inline drive_contents contents_of(const drive_c &drive) {
    namespace fs = std::filesystem;
    drive_contents contents;
    const std::string root = drive.native("c:/quillfence");
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file()) {
            const std::string path =
                "c:/quillfence" + entry.path().generic_string().substr(root.size());
            contents[path] = drive.read(path);
        }
    }
    return contents;
}

// The names whose presence or bytes differ, for a failure's text.
inline std::string changed_files(const drive_contents &before, const drive_contents &after) {
    std::string changed;
    for (const auto &[path, bytes] : before) {
        const auto found = after.find(path);
        if (found == after.end() || found->second != bytes) {
            changed += " " + path;
        }
    }
    for (const auto &[path, bytes] : after) {
        changed += before.contains(path) ? "" : " +" + path;
    }
    return changed;
}

} // namespace quillfence::testing
