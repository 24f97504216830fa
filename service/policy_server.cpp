#include "policy_server.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/interruption.h"
#include "platform/service_signals.h"

namespace quillfence::service {

using namespace std::chrono_literals;
using platform::watched_event;

// So that neither many new clients nor many busy ones keep the others waiting.
static constexpr int most_accepted_at_once = 64;
static constexpr size_t most_events = 64;
static constexpr auto pause_without_descriptors = 100ms;
static constexpr auto between_looks = 1s; // for connections that are too old

static constexpr char no_memory[] = "A connection was closed: there is no memory";

static char signals_tag; // what their addresses are taken for
static char companion_tag;

policy_server::policy_server(policy_server_options options, handler judge)
    : options_(std::move(options)), judge_(std::move(judge)), watcher_(platform::watcher_create()),
      attention_(std::make_shared<attention_list>(watcher_)) {}

policy_server::~policy_server() {
    forget_all();
    attention_->leave();
    platform::watcher_release(watcher_);
}

void policy_server::stop() {
    stop_ = true;
    if (watcher_) {
        platform::watcher_wake(watcher_);
    }
}

void policy_server::count(connection_event what) const {
    if (options_.count) {
        options_.count(what);
    }
}

// --- the loop -----------------------------------------------------------------------------------

uint32_t policy_server::run(listeners &from) {
    now_ = clock::now();
    if (!watcher_ || !watch_all(from)) {
        return platform::error_too_many_open_files;
    }
    if (options_.ready) {
        options_.ready();
    }
    std::thread other;
    if (options_.judge_here) {
        try {
            other = std::thread([this, &from] { stand_by(from); });
        } catch (const std::system_error &) {
            return platform::error_not_enough_memory;
        }
    }
    lead(from);
    if (other.joinable()) {
        {
            const std::lock_guard guard(by_lock_);
            is_over_ = true;
            by_.notify_one();
        }
        other.join();
    }
    give_up();
    forget_all();
    return 0;
}

void policy_server::try_turn(listeners &from) {
    try {
        take_turn(from);
    } catch (const std::bad_alloc &) {
        failed_.tell(event_severity::error, no_memory, now_);
    }
}

void policy_server::lead(listeners &from) {
    std::unique_lock turn(turns_);
    while (!is_over()) {
        try_turn(from);
        if (options_.judge_here) {
            judges_since_ = now_.time_since_epoch().count();
            turn.unlock();
            options_.judge_here(true);
            judges_since_ = 0;
            if (stands_in_) {
                platform::watcher_wake(watcher_);
            }
            turn.lock();
        }
    }
}

// --- the other thread ---------------------------------------------------------------------------

// Whether the thread that leads has judged for too long.
bool policy_server::is_kept() const {
    const clock::rep since = judges_since_;
    return since && clock::now().time_since_epoch() >= clock::duration(since) + options_.kept;
}

void policy_server::stand_by(listeners &from) {
    std::unique_lock guard(by_lock_);
    while (!by_.wait_for(guard, options_.kept, [this] { return is_over_; })) {
        if (is_kept()) {
            guard.unlock();
            stand_in(from);
            guard.lock();
        }
    }
}

// Until the other one is back, who wakes it up then.
void policy_server::stand_in(listeners &from) {
    const std::lock_guard turn(turns_);
    stands_in_ = true;
    while (judges_since_ && !is_over()) {
        try_turn(from);
        options_.judge_here(false);
    }
    stands_in_ = false;
}

// --- a turn -------------------------------------------------------------------------------------

void policy_server::take_turn(listeners &from) {
    watched_event events[most_events];
    const size_t count = platform::watcher_wait(watcher_, events, most_events, begin_wait());
    now_ = clock::now();
    is_alone_ = count <= 1;
    for (size_t i = 0; i < count; ++i) {
        look(events[i]);
    }
    end_wait();
    serve_waiting();
    ended_.clear();
    if (stop_ && !is_ending_) {
        begin_to_end(from);
    }
    resume_listening();
    end_old_ones();
}

void policy_server::forget_all() {
    for (const auto &[tag, one] : connections_) {
        one->close();
        count(connection_event::closed);
    }
    connections_.clear();
}

bool policy_server::watch_all(const listeners &from) {
    listening_ = from.all();
    for (const intptr_t signals :
         {platform::interruption_descriptor(), platform::hang_up_descriptor()}) {
        if (signals >= 0 && platform::watcher_add(watcher_, signals, &signals_tag, true, false)) {
            return false;
        }
    }
    if (options_.also.descriptor >= 0 &&
        platform::watcher_add(watcher_, options_.also.descriptor, &companion_tag, true, false)) {
        return false;
    }
    return std::all_of(listening_.begin(), listening_.end(), [this](listener &one) {
        return platform::watcher_add(watcher_, one.socket, &one, true, false) == 0;
    });
}

int policy_server::patience() const {
    if (is_paused_ || is_ending_) {
        return 100;
    }
    return connections_.empty()
               ? -1
               : static_cast<int>(std::chrono::milliseconds(between_looks).count());
}

// How long to wait.
int policy_server::begin_wait() {
    const int both = wait_for_all();
    return std::exchange(is_woken_, false) ? 0 : both;
}

int policy_server::wait_for_all() {
    const int own = patience();
    if (!options_.also.send) {
        return own;
    }
    const int other = options_.also.send();
    if (other < 0) {
        companion_due_ = clock::time_point::max();
        return own;
    }
    companion_due_ = clock::now() + std::chrono::milliseconds(other);
    return own < 0 ? other : std::min(own, other);
}

void policy_server::end_wait() {
    if (now_ >= companion_due_) {
        options_.also.take();
    }
}

// What else has come is told again by the next turn, but not that somebody has woken it.
bool policy_server::await_companion() {
    constexpr int most = 1; // milliseconds
    const std::unique_lock turn(turns_, std::try_to_lock);
    if (!turn || !is_alone_ || !options_.also.send) {
        return false;
    }
    options_.also.send();
    watched_event events[most_events];
    bool woken = false;
    const size_t count = platform::watcher_wait(watcher_, events, most_events, most, &woken);
    const bool came = std::any_of(
        events, events + count, [](const watched_event &one) { return one.tag == &companion_tag; });
    is_alone_ = !woken && count == (came ? 1 : 0);
    is_woken_ |= woken;
    if (came) {
        options_.also.take();
    }
    return came;
}

void policy_server::look(const watched_event &event) {
    if (event.tag == &companion_tag) {
        companion_due_ = now_;
        return;
    }
    if (event.tag == &signals_tag) {
        look_at_signals();
        return;
    }
    const auto found = connections_.find(event.tag);
    if (found != connections_.end()) {
        const shared one = found->second;
        serve(one, event.readable);
        return;
    }
    for (const listener &one : listening_) {
        if (&one == event.tag) {
            accept_from(one);
            return;
        }
    }
}

void policy_server::look_at_signals() {
    if (platform::interruption_noted()) {
        stop_ = true;
    }
    if (platform::hang_up_taken() && options_.reopen) {
        options_.reopen();
    }
}

// --- new connections ----------------------------------------------------------------------------

void policy_server::accept_from(const listener &from) {
    for (int i = 0; i < most_accepted_at_once && !is_paused_; ++i) {
        if (!accept_one(from)) {
            return;
        }
    }
}

bool policy_server::accept_one(const listener &from) {
    platform::socket_handle socket = platform::invalid_socket;
    if (const uint32_t error = platform::socket_accept(from.socket, &socket)) {
        if (error != platform::error_would_wait) {
            pause_listening(error);
        }
        return false;
    }
    if (connections_.size() < options_.connections) {
        add(socket);
        return true;
    }
    platform::socket_close(socket);
    count(connection_event::refused);
    refused_.tell(event_severity::warning,
                  "A connection was closed at once: there are " +
                      std::to_string(connections_.size()) + " already, as many as there may be",
                  now_);
    return true;
}

void policy_server::add(platform::socket_handle socket) {
    shared one;
    try {
        one = std::make_shared<connection>(socket, attention_);
        connections_.emplace(one.get(), one);
    } catch (const std::bad_alloc &) {
        if (!one) {
            platform::socket_close(socket);
        }
        failed_.tell(event_severity::error, no_memory, now_);
        return;
    }
    count(connection_event::opened);
    if (!watch(*one, false)) {
        end(one, connection_state::failed);
    }
}

// Whoever waits goes on waiting until something else has been closed.
void policy_server::pause_listening(uint32_t error) {
    for (const listener &one : listening_) {
        platform::watcher_remove(watcher_, one.socket);
    }
    is_paused_ = true;
    paused_until_ = now_ + pause_without_descriptors;
    no_descriptors_.tell(event_severity::error,
                         std::string("Connections can't be accepted for now: ") +
                             std::strerror(platform::errno_of(error)),
                         now_);
}

void policy_server::resume_listening() {
    if (!is_paused_ || is_ending_ || now_ < paused_until_) {
        return;
    }
    is_paused_ = false;
    for (listener &one : listening_) {
        platform::watcher_add(watcher_, one.socket, &one, true, false);
    }
}

// --- connections --------------------------------------------------------------------------------

void policy_server::serve(const shared &one, bool readable) {
    wait_for(one, one->go_on(readable, judge_));
}

// A connection is watched for bytes all the time, so that a request costs no call for that; only
// one that says more while it is judged, or takes no replies, is not.
void policy_server::wait_for(const shared &one, connection_state what) {
    switch (what) {
    case connection_state::bytes:
        watch_or_end(one, false);
        return;
    case connection_state::room:
        watch_or_end(one, true);
        return;
    case connection_state::answer:
    case connection_state::busy:
        if (what == connection_state::busy || !one->is_watched || is_ending_) {
            wait_for_answer(one);
        }
        return;
    default:
        end(one, what);
    }
}

void policy_server::watch_or_end(const shared &one, bool for_room) {
    if (is_ending_ && !for_room) {
        end(one, connection_state::ended);
    } else if (!watch(*one, for_room)) {
        end(one, connection_state::failed);
    }
}

void policy_server::wait_for_answer(const shared &one) {
    if (one->ask_for_attention()) {
        unwatch(*one);
    } else {
        serve(one, !is_ending_ || is_to_be_read(*one));
    }
}

void policy_server::serve_waiting() {
    for (const shared &one : attention_->take()) {
        if (connections_.count(one.get())) {
            serve(one, is_to_be_read(*one));
        }
    }
}

bool policy_server::watch(connection &one, bool for_room) {
    if (one.is_watched && one.for_room == for_room) {
        return true;
    }
    const auto call = one.is_watched ? platform::watcher_change : platform::watcher_add;
    one.is_watched = true;
    one.for_room = for_room;
    return call(watcher_, one.socket(), &one, !for_room, for_room) == 0;
}

void policy_server::unwatch(connection &one) {
    if (std::exchange(one.is_watched, false)) {
        platform::watcher_remove(watcher_, one.socket());
    }
}

void policy_server::end(const shared &one, connection_state why) {
    switch (why) {
    case connection_state::too_long:
        count(connection_event::too_long);
        too_long_.tell(event_severity::warning,
                       std::string("A connection was closed: ") + one->why(), now_);
        break;
    case connection_state::bad_end:
        count(connection_event::bad_end);
        break;
    case connection_state::failed:
        failed_.tell(event_severity::error, no_memory, now_);
        break;
    default:
        break;
    }
    unwatch(*one);
    one->close();
    ended_.push_back(one);
    connections_.erase(one.get());
    count(connection_event::closed);
}

// --- by the clock -------------------------------------------------------------------------------

void policy_server::end_old_ones() {
    if (now_ < looked_ + between_looks) {
        return;
    }
    looked_ = now_;
    std::vector<shared> old;
    for (const auto &[tag, one] : connections_) {
        const auto limit = one->has_unsent() ? options_.slow : options_.idle;
        if (now_ >= one->last_active() + limit) {
            old.push_back(one);
        }
    }
    for (const shared &one : old) {
        end_old(one);
    }
    for (event_limiter *kind : {&refused_, &no_descriptors_, &too_long_, &slow_, &failed_}) {
        kind->settle(now_);
    }
}

void policy_server::end_old(const shared &one) {
    if (one->has_unsent()) {
        slow_.tell(event_severity::warning,
                   "A connection was closed: its client does not take the replies", now_);
        end(one, connection_state::bad_end);
    } else {
        count(connection_event::idle);
        end(one, connection_state::ended);
    }
}

// --- the end ------------------------------------------------------------------------------------

bool policy_server::is_over() const {
    return is_ending_ && (connections_.empty() || now_ >= end_by_);
}

// Connections that wait at a socket of the service manager's are left to who comes after us.
void policy_server::begin_to_end(listeners &from) {
    if (options_.stopping) {
        options_.stopping();
    }
    for (const listener &one : listening_) {
        if (!one.is_inherited && !is_paused_) {
            accept_from(one);
        }
    }
    listening_.clear();
    from.close();
    unwatch_signals();
    is_ending_ = true;
    end_by_ = now_ + options_.ending;
    std::vector<shared> all;
    for (const auto &[tag, one] : connections_) {
        all.push_back(one);
    }
    for (const shared &one : all) {
        one->was_read = false;
        serve(one, true);
    }
}

// What has come while its last request was judged counts; but a client that goes on asking shall
// not keep the end away.
bool policy_server::is_to_be_read(const connection &one) const {
    return is_ending_ && !one.was_read;
}

// What is held of requests is handed over as well, and answered at once.
void policy_server::give_up() {
    const std::lock_guard turn(turns_);
    if (connections_.empty() || !options_.give_up) {
        return;
    }
    options_.give_up();
    try {
        serve_waiting();
    } catch (const std::bad_alloc &) {
        failed_.tell(event_severity::error, no_memory, now_);
    }
}

void policy_server::unwatch_signals() {
    for (const intptr_t signals :
         {platform::interruption_descriptor(), platform::hang_up_descriptor()}) {
        if (signals >= 0) {
            platform::watcher_remove(watcher_, signals);
        }
    }
}

} // namespace quillfence::service
