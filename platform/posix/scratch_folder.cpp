// A signal's handler removes the folders, so everything here is what a handler may call. It walks
// down from the top again and again, since it has no memory for a way back up.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../scratch_steps.h"
#include "errors.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

// --- the signals --------------------------------------------------------------------------------

static constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

static sigset_t all_signals() {
    sigset_t all;
    sigemptyset(&all);
    for (const int signal : signals) {
        sigaddset(&all, signal);
    }
    return all;
}

// The process ends by the signal, as it would without the handler. The first process of a container
// has no such end, and gets a shell's status for it.
static void end_by(int signal) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    struct sigaction ending {};
    ending.sa_handler = SIG_DFL;
    sigaction(signal, &ending, nullptr);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    raise(signal);
    _exit(128 + signal);
}

static void on_signal(int signal) {
    scratch_remove_all();
    end_by(signal);
}

void scratch_listen() {
    static bool listens;
    if (listens) {
        return;
    }
    listens = true;
    for (const int signal : signals) {
        struct sigaction stood {};
        sigaction(signal, nullptr, &stood);
        if (stood.sa_handler != SIG_DFL) {
            continue; // ignored, or somebody's own
        }
        struct sigaction wanted {};
        wanted.sa_handler = on_signal;
        wanted.sa_mask = all_signals();
        sigaction(signal, &wanted, nullptr);
    }
}

static sigset_t before;

void scratch_hold_requests() {
    const sigset_t all = all_signals();
    pthread_sigmask(SIG_BLOCK, &all, &before);
}

void scratch_take_requests() {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// --- the folders --------------------------------------------------------------------------------

uint32_t scratch_create(const char *path) {
    if (mkdir(path, 0700) == 0) {
        return error_none;
    }
    return errno == EEXIST   ? uint32_t{error_already_exists}
           : errno == ENOENT ? uint32_t{error_path_not_found}
                             : error_of_errno(errno);
}

static bool is_dots(const char *name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// Removes what is in an open folder, up to the first folder that is not empty: that is opened. -1
// when there is none.
static int remove_entries(int folder, bool *removed) {
    alignas(dirent64) char entries[2048];
    ssize_t size = 0;
    while ((size = getdents64(folder, entries, sizeof entries)) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto *const entry = reinterpret_cast<const dirent64 *>(entries + at);
            at += entry->d_reclen;
            if (is_dots(entry->d_name)) {
                continue;
            }
            if (unlinkat(folder, entry->d_name, 0) == 0 ||
                unlinkat(folder, entry->d_name, AT_REMOVEDIR) == 0) {
                *removed = true;
                continue;
            }
            const int below =
                openat(folder, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (below >= 0) {
                return below;
            }
        }
    }
    return -1;
}

// One way down; whether anything was removed on it.
static bool thin_out(const char *path) {
    bool removed = false;
    int folder = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    while (folder >= 0) {
        const int below = remove_entries(folder, &removed);
        close(folder);
        folder = below;
    }
    return removed;
}

uint32_t scratch_remove_tree(const char *path) {
    for (;;) {
        if (rmdir(path) == 0 || errno == ENOENT) {
            return error_none;
        }
        const int reason = errno;
        if ((reason != ENOTEMPTY && reason != EEXIST) || !thin_out(path)) {
            return error_of_errno(reason);
        }
    }
}

} // namespace quillfence::platform
