#include "platform/watcher.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "errors.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {

struct watcher {
    int events;   // an epoll instance
    int wakening; // readable once somebody has woken it
};

static constexpr size_t most_at_once = 64;

static uint32_t add_to(int events, int call, int descriptor, void *tag, uint32_t wanted) {
    epoll_event event = {};
    event.events = wanted;
    event.data.ptr = tag;
    return epoll_ctl(events, call, descriptor, &event) == 0 ? error_none : error_of_errno(errno);
}

watcher *watcher_create() {
    auto *const of = static_cast<watcher *>(malloc(sizeof(watcher)));
    if (!of || observe_call("watcher_create", "")) {
        free(of);
        return nullptr;
    }
    of->events = epoll_create1(EPOLL_CLOEXEC);
    of->wakening = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    // The tag null is the wakening's own.
    if (of->events < 0 || of->wakening < 0 ||
        add_to(of->events, EPOLL_CTL_ADD, of->wakening, nullptr, EPOLLIN)) {
        watcher_release(of);
        return nullptr;
    }
    return of;
}

void watcher_release(watcher *of) {
    if (!of) {
        return;
    }
    for (const int descriptor : {of->events, of->wakening}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    free(of);
}

static uint32_t wanted_events(bool readable, bool writable) {
    return (readable ? uint32_t{EPOLLIN} : 0u) | (writable ? uint32_t{EPOLLOUT} : 0u);
}

uint32_t watcher_add(watcher *of, intptr_t descriptor, void *tag, bool readable, bool writable) {
    if (const uint32_t failure = observe_call("watcher_add", "")) {
        return failure;
    }
    return add_to(of->events, EPOLL_CTL_ADD, static_cast<int>(descriptor), tag,
                  wanted_events(readable, writable));
}

uint32_t watcher_change(watcher *of, intptr_t descriptor, void *tag, bool readable, bool writable) {
    if (const uint32_t failure = observe_call("watcher_change", "")) {
        return failure;
    }
    return add_to(of->events, EPOLL_CTL_MOD, static_cast<int>(descriptor), tag,
                  wanted_events(readable, writable));
}

void watcher_remove(watcher *of, intptr_t descriptor) {
    epoll_event unused = {};
    epoll_ctl(of->events, EPOLL_CTL_DEL, static_cast<int>(descriptor), &unused);
}

static void fall_asleep_again(const watcher &of) {
    uint64_t count = 0;
    const ssize_t got = read(of.wakening, &count, sizeof count);
    static_cast<void>(got); // nothing there is asleep as well
}

size_t watcher_wait(watcher *of, watched_event *events, size_t room, int milliseconds,
                    bool *woken) {
    epoll_event found[most_at_once];
    const auto most = static_cast<int>(std::min(room, most_at_once));
    const int count = epoll_wait(of->events, found, most, milliseconds);
    size_t stored = 0;
    bool was_woken = false;
    for (int i = 0; i < count; ++i) {
        const uint32_t what = found[i].events;
        if (!found[i].data.ptr) {
            fall_asleep_again(*of);
            was_woken = true;
            continue;
        }
        const bool over = what & (EPOLLERR | EPOLLHUP);
        events[stored++] = {found[i].data.ptr, over || (what & EPOLLIN), over || (what & EPOLLOUT)};
    }
    if (woken) {
        *woken = was_woken;
    }
    return stored;
}

void watcher_wake(watcher *of) {
    const int number = errno;
    const uint64_t one = 1;
    const ssize_t put = write(of->wakening, &one, sizeof one);
    static_cast<void>(put); // no room: it is awake
    errno = number;
}

} // namespace quillfence::platform
