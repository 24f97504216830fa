// Processes that end in the middle of their work, and what a loss of power may leave of it. The
// implementations know the system, so they live below the seam: platform/posix/tests/crash.cpp and
// platform/win32/tests/crash.cpp.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace quillfence::testing {

// Runs the operation in a process of its own, and kills that as it is about to make its n-th system
// call, counted from 1. Whether it was killed; else it has come to its end. On Windows the calls
// are those of the platform's seam, and the process is the test program once more, whose main()
// asks doomed_operation() first.
//   name  of the operation
bool killed_at(unsigned n, const std::string &name, const std::function<void()> &operation);
// How many calls lie between two kills of a test that tries them in turn: 1 where processes are
// cheap.
extern const unsigned calls_between_kills;
// The name of the operation that this process was started for; empty when it is the test itself.
// Windows only; from this call on the process's calls are counted.
std::string doomed_operation();

// --- Linux alone: several processes, and the power ---

// Runs the operation in a process of its own, which stands still before its n-th system call while
// meanwhile() is run here. Returns at its end: whether there were so many calls.
bool paused_at(unsigned n, const std::function<void()> &operation,
               const std::function<void()> &meanwhile);

// A process that runs the operation; killed, when still running, with the object.
class child_process {
  public:
    explicit child_process(const std::function<void()> &operation);
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;
    void kill();
    void wait();

  private:
    int id_;
};

// One change of a folder's files, or one step to stable storage. Files are known by a number, since
// their names change.
struct file_change {
    enum class kind : uint8_t { create, write, truncate, rename, link, unlink, sync, sync_folder };
    kind what;
    uint64_t file = 0;     // created, written, cut or synced
    std::string name = {}; // created, renamed, linked or unlinked
    std::string to = {};   // its new name
    uint64_t at = 0;       // offset of a write, size of a cut
    std::string bytes = {};
};

// A folder's files: names, and the contents by number.
struct folder_state {
    std::map<std::string, uint64_t> names;
    std::map<uint64_t, std::string> files;
};

// Runs the operation in a process of its own and watches its system calls. What it changed among
// the files of that folder, in order; *before receives what was there.
std::vector<file_change> changes_of(const std::string &folder,
                                    const std::function<void()> &operation, folder_state *before);

} // namespace quillfence::testing
