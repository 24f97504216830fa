// Processes under a tracer: it stops at each of their system calls.
#include "crash.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillfence::testing {

namespace fs = std::filesystem;

namespace {

constexpr int syscall_stop = SIGTRAP | 0x80;

// What a killed program says on its way is nobody's business.
void be_quiet() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

pid_t start(const std::function<void()> &operation, bool traced) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    be_quiet();
    if (traced) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
    }
    operation();
    fflush(nullptr);
    _exit(0);
}

// A traced process, from its first system call on.
class traced_process {
  public:
    explicit traced_process(const std::function<void()> &operation)
        : id_(start(operation, true)), status_(0) {
        waitpid(id_, &status_, 0);
        const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
        EXPECT_EQ(ptrace(PTRACE_SETOPTIONS, id_, nullptr, options), 0) << "tracing is not allowed";
    }
    ~traced_process() {
        if (runs()) {
            ::kill(id_, SIGKILL);
            waitpid(id_, &status_, 0);
        }
    }
    traced_process(const traced_process &) = delete;
    traced_process &operator=(const traced_process &) = delete;

    bool runs() const {
        return WIFSTOPPED(status_);
    }
    bool ended_well() const {
        return WIFEXITED(status_) && WEXITSTATUS(status_) == 0;
    }
    pid_t id() const {
        return id_;
    }
    // Goes on to the next entry into or return from a system call; false when the process ends.
    bool next(__ptrace_syscall_info *info) {
        int signal = 0;
        do {
            if (ptrace(PTRACE_SYSCALL, id_, nullptr, signal) != 0 ||
                waitpid(id_, &status_, 0) != id_ || !runs()) {
                return false;
            }
            const int stop = WSTOPSIG(status_);
            signal = stop == syscall_stop || stop == SIGSTOP ? 0 : stop;
        } while (WSTOPSIG(status_) != syscall_stop);
        return ptrace(PTRACE_GET_SYSCALL_INFO, id_, sizeof *info, info) > 0;
    }

  private:
    pid_t id_;
    int status_;
};

} // namespace

const unsigned calls_between_kills = 1;

// Lets a process run up to its n-th system call, but for the one that ends it.
static bool run_to_call(traced_process *process, unsigned n) {
    __ptrace_syscall_info info = {};
    while (process->next(&info)) {
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY && info.entry.nr != SYS_exit_group && --n == 0) {
            return true;
        }
    }
    return false;
}

bool killed_at(unsigned n, const std::string &name, const std::function<void()> &operation) {
    traced_process process(operation);
    if (run_to_call(&process, n)) {
        return true; // dies with the object
    }
    EXPECT_TRUE(process.ended_well()) << name;
    return false;
}

bool paused_at(unsigned n, const std::function<void()> &operation,
               const std::function<void()> &meanwhile) {
    traced_process process(operation);
    const bool paused = run_to_call(&process, n);
    if (paused) {
        meanwhile();
    }
    __ptrace_syscall_info info = {};
    while (process.next(&info)) {
    }
    EXPECT_TRUE(process.ended_well());
    return paused;
}

std::string doomed_operation() {
    return {};
}

child_process::child_process(const std::function<void()> &operation)
    : id_(start(operation, false)) {}

child_process::~child_process() {
    kill();
}

void child_process::kill() {
    if (id_ > 0) {
        ::kill(id_, SIGKILL);
        wait();
    }
}

void child_process::wait() {
    if (id_ > 0) {
        waitpid(id_, nullptr, 0);
        id_ = 0;
    }
}

// --- the watcher ---

namespace {

std::string bytes_of(const fs::path &path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

uint64_t number_of(const std::string &path) {
    struct stat facts = {};
    return stat(path.c_str(), &facts) == 0 ? facts.st_ino : 0;
}

folder_state state_of(const std::string &folder) {
    folder_state state;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            const uint64_t file = number_of(entry.path());
            state.names[entry.path().filename()] = file;
            state.files[file] = bytes_of(entry.path());
        }
    }
    return state;
}

class watcher {
  public:
    watcher(const std::string &folder, const folder_state &before, pid_t process)
        : folder_(folder), process_(process) {
        for (const auto &[name, file] : before.names) {
            names_[name] = file;
            known_[file] = file;
        }
    }
    std::vector<file_change> changes;

    // What the call is about to do is only known before it.
    void enter(const __ptrace_syscall_info &info) {
        number_ = info.entry.nr;
        std::copy(std::begin(info.entry.args), std::end(info.entry.args), arguments_.begin());
        pending_ = {};
        wanted_ = false;
        switch (number_) {
        case SYS_write:
            about_file(file_change::kind::write);
            pending_.at = position();
            pending_.bytes = memory(arguments_[1], arguments_[2]);
            break;
        case SYS_pwrite64:
            about_file(file_change::kind::write);
            pending_.at = arguments_[3];
            pending_.bytes = memory(arguments_[1], arguments_[2]);
            break;
        case SYS_ftruncate:
            about_file(file_change::kind::truncate);
            pending_.at = arguments_[1];
            break;
        case SYS_fsync:
        case SYS_fdatasync:
            about_file(file_change::kind::sync);
            break;
#ifdef SYS_rename
        case SYS_rename:
            about_names(file_change::kind::rename, arguments_[0], arguments_[1]);
            break;
        case SYS_link:
            about_names(file_change::kind::link, arguments_[0], arguments_[1]);
            break;
        case SYS_unlink:
            about_names(file_change::kind::unlink, arguments_[0], 0);
            break;
#endif
        case SYS_renameat:
        case SYS_renameat2:
            about_names(file_change::kind::rename, arguments_[1], arguments_[3]);
            break;
        case SYS_linkat:
            about_names(file_change::kind::link, arguments_[1], arguments_[3]);
            break;
        case SYS_unlinkat:
            about_names(file_change::kind::unlink, arguments_[1], 0);
            break;
        default:
            break;
        }
    }

    void leave(int64_t result) {
        if (number_ == SYS_openat && result >= 0) {
            note_creation(result);
        } else if (wanted_ && result >= 0) {
            if (pending_.what == file_change::kind::write) {
                pending_.bytes.resize(static_cast<size_t>(result));
            }
            keep(pending_);
        }
    }

  private:
    // The path behind a descriptor of the process.
    std::string path_of(uint64_t descriptor) const {
        const std::string link =
            "/proc/" + std::to_string(process_) + "/fd/" + std::to_string(descriptor);
        char path[PATH_MAX];
        const ssize_t length = readlink(link.c_str(), path, sizeof path);
        return {path, length < 0 ? 0 : static_cast<size_t>(length)};
    }
    uint64_t file_behind(uint64_t descriptor) const {
        return number_of("/proc/" + std::to_string(process_) + "/fd/" + std::to_string(descriptor));
    }
    // The offset at which a write lands.
    uint64_t position() const {
        std::ifstream facts("/proc/" + std::to_string(process_) + "/fdinfo/" +
                            std::to_string(arguments_[0]));
        std::string word;
        uint64_t offset = 0;
        unsigned flags = 0;
        facts >> word >> offset >> word >> std::oct >> flags;
        if (flags & O_APPEND) {
            struct stat found = {};
            const std::string link =
                "/proc/" + std::to_string(process_) + "/fd/" + std::to_string(arguments_[0]);
            stat(link.c_str(), &found);
            return static_cast<uint64_t>(found.st_size);
        }
        return offset;
    }
    std::string memory(uint64_t address, uint64_t size) const {
        std::string bytes(size, '\0');
        iovec local = {bytes.data(), bytes.size()};
        iovec remote = {reinterpret_cast<void *>(address), bytes.size()};
        const ssize_t got = process_vm_readv(process_, &local, 1, &remote, 1, 0);
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return bytes;
    }
    std::string text(uint64_t address) const {
        std::string whole;
        while (whole.size() < PATH_MAX) { // not over the end of a page
            const std::string piece = memory(address + whole.size(), 1);
            if (piece.empty() || piece[0] == '\0') {
                break;
            }
            whole += piece;
        }
        return whole;
    }
    // The name in the watched folder; empty for any other path.
    std::string watched(const std::string &path) const {
        const bool inside = path.starts_with(folder_ + "/");
        const std::string name = inside ? path.substr(folder_.size() + 1) : "";
        return name.find('/') == std::string::npos ? name : "";
    }
    void about_file(file_change::kind what) {
        const std::string path = path_of(arguments_[0]);
        pending_.file = known_[file_behind(arguments_[0])];
        if (path == folder_) {
            pending_.what = file_change::kind::sync_folder;
            wanted_ = what == file_change::kind::sync;
            return;
        }
        pending_.what = what;
        wanted_ = !watched(path).empty();
    }
    void about_names(file_change::kind what, uint64_t first, uint64_t second) {
        pending_.what = what;
        pending_.name = watched(text(first));
        pending_.to = second ? watched(text(second)) : "";
        wanted_ = !pending_.name.empty();
        EXPECT_TRUE(!wanted_ || !second || !pending_.to.empty()) << "leaves the folder";
    }
    void note_creation(int64_t descriptor) {
        const std::string name = watched(path_of(static_cast<uint64_t>(descriptor)));
        if (name.empty()) {
            return;
        }
        const uint64_t number = file_behind(static_cast<uint64_t>(descriptor));
        if (!names_.contains(name)) {
            known_[number] = (++created_ << 48) + number; // numbers of deleted files come again
            keep({.what = file_change::kind::create, .file = known_[number], .name = name});
        } else if (arguments_[2] & O_TRUNC) {
            keep({.what = file_change::kind::truncate, .file = known_[number]});
        }
    }
    void keep(const file_change &change) {
        switch (change.what) {
        case file_change::kind::create:
            names_[change.name] = change.file;
            break;
        case file_change::kind::rename:
            names_[change.to] = names_[change.name];
            names_.erase(change.name);
            break;
        case file_change::kind::link:
            names_[change.to] = names_[change.name];
            break;
        case file_change::kind::unlink:
            names_.erase(change.name);
            break;
        default:
            break;
        }
        changes.push_back(change);
    }

    std::string folder_;
    pid_t process_;
    std::map<std::string, uint64_t> names_; // as they are now
    std::map<uint64_t, uint64_t> known_;    // files by the system's numbers
    uint64_t created_ = 0;
    uint64_t number_ = 0; // of the system call
    std::array<uint64_t, 6> arguments_ = {};
    file_change pending_ = {};
    bool wanted_ = false;
};

} // namespace

std::vector<file_change> changes_of(const std::string &folder,
                                    const std::function<void()> &operation, folder_state *before) {
    *before = state_of(folder);
    traced_process process(operation);
    watcher watch(fs::canonical(folder), *before, process.id());
    __ptrace_syscall_info info = {};
    while (process.next(&info)) {
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            watch.enter(info);
        } else if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
            watch.leave(info.exit.rval);
        }
    }
    EXPECT_TRUE(process.ended_well());
    return watch.changes;
}

} // namespace quillfence::testing
