#include "live_asker.h"

#include <algorithm>
#include <atomic>
#include <list>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "live_answer.h"
#include "live_source.h"
#include "platform/dns_channel.h"
#include "platform/error_numbers.h"
#include "pool_asker.h"
#include "time_left.h"

namespace quillfence::dns_sources {

// Threads for what needs one each.
static constexpr unsigned most_threads = 64;

// --- the channel --------------------------------------------------------------------------------

namespace {

struct channel_closer {
    void operator()(platform::dns_channel *channel) const {
        platform::dns_channel_close(channel);
    }
};

// A channel for one thread, its own or another, that asks what all threads put in its box.
class asking_channel {
  public:
    explicit asking_channel(unsigned most) : most_(most) {}
    ~asking_channel() {
        stop();
    }
    asking_channel(const asking_channel &) = delete;
    asking_channel &operator=(const asking_channel &) = delete;

    // 0, 8, or what dns_channel_open() says.
    uint32_t open(const char *server);
    uint32_t start_thread();
    bool is_there() const {
        return channel_ != nullptr;
    }
    void ask(const question &asked, asker::listener then) noexcept;
    void stop();

    // For the thread that works, as dns_channel_send() and so on.
    int send();
    void take() {
        platform::dns_channel_take(channel_.get(), 0);
    }
    intptr_t descriptor() const {
        return platform::dns_channel_descriptor(channel_.get());
    }

  private:
    struct entry {
        question asked;
        std::optional<time_left> left{}; // of its limit
        asker::listener then{};
        asking_channel *of = nullptr;
        std::list<entry>::iterator place{};
    };
    using entries = std::list<entry>;

    static void tell(void *context, void *tag, uint32_t status, const platform::dns_record *records,
                     const platform::dns_details *details) noexcept;
    static void finish(entries &from, entries::iterator one, answer got);
    bool put(entries &one);
    void work();
    void take_new();
    void send_waiting();
    void end_waiting();
    void miss(entries &all);

    const unsigned most_;
    std::unique_ptr<platform::dns_channel, channel_closer> channel_;
    std::thread thread_;                   // when it has one
    std::atomic<std::thread::id> works_{}; // the thread that was the last to send
    entries waiting_;                      // that thread's own
    entries on_their_way_;                 // the same
    time_left::clock::time_point last_look_{};
    std::mutex lock_; // of what follows
    entries box_;
    bool stopped_ = false;
};

uint32_t asking_channel::open(const char *server) {
    platform::dns_channel *opened = nullptr;
    const uint32_t error = platform::dns_channel_open(server, tell, this, &opened);
    if (error) {
        return error;
    }
    channel_.reset(opened);
    return platform::error_none;
}

uint32_t asking_channel::start_thread() {
    try {
        thread_ = std::thread([this] { work(); });
    } catch (const std::system_error &) {
        channel_.reset();
        return platform::error_not_enough_memory;
    }
    return platform::error_none;
}

// False when it is stopped. The thread that works looks into the box before it waits.
bool asking_channel::put(entries &one) {
    bool first = false;
    {
        const std::lock_guard guard(lock_);
        if (stopped_) {
            return false;
        }
        first = box_.empty();
        box_.splice(box_.end(), one);
    }
    if (first && works_ != std::this_thread::get_id()) {
        platform::dns_channel_wake(channel_.get());
    }
    return true;
}

void asking_channel::ask(const question &asked, asker::listener then) noexcept {
    entries one;
    try {
        one.push_back({asked});
    } catch (const std::bad_alloc &) {
        then(answer_of_status(platform::error_not_enough_memory));
        return;
    }
    entry &made = one.front();
    if (asked.limit) {
        made.left.emplace(*asked.limit);
    }
    made.then = std::move(then);
    made.of = this;
    made.place = one.begin();
    if (!put(one)) {
        miss(one);
    }
}

void asking_channel::finish(entries &from, entries::iterator one, answer got) {
    entries told;
    told.splice(told.end(), from, one);
    told.front().then(std::move(got));
}

void asking_channel::tell(void *context, void *tag, uint32_t status,
                          const platform::dns_record *records,
                          const platform::dns_details *details) noexcept {
    auto *const self = static_cast<asking_channel *>(context);
    const auto one = static_cast<entry *>(tag)->place;
    answer got;
    try {
        got = live_answer(status, *details, records);
    } catch (const std::bad_alloc &) {
        got = answer_of_status(platform::error_not_enough_memory);
    }
    finish(self->on_their_way_, one, std::move(got));
}

void asking_channel::take_new() {
    const std::lock_guard guard(lock_);
    waiting_.splice(waiting_.end(), box_);
}

void asking_channel::send_waiting() {
    while (!waiting_.empty() && on_their_way_.size() < most_) {
        entry &next = waiting_.front();
        if (next.left) {
            next.asked.limit =
                next.left->limit_of(next.asked).value_or(std::chrono::milliseconds::zero());
        }
        on_their_way_.splice(on_their_way_.end(), waiting_, waiting_.begin());
        platform::dns_channel_ask(channel_.get(), next.asked.name.c_str(), next.asked.type,
                                  live_limit(next.asked), &next);
    }
}

// Those that have no time left. It looks at all, so not too often.
void asking_channel::end_waiting() {
    constexpr std::chrono::milliseconds between_looks{20};
    const auto now = time_left::clock::now();
    if (waiting_.empty() || now - last_look_ < between_looks) {
        return;
    }
    last_look_ = now;
    for (auto place = waiting_.begin(); place != waiting_.end();) {
        const auto one = place++;
        if (one->left && one->left->end() <= now) {
            finish(waiting_, one, answer_of_status(platform::dns_status_timeout));
        }
    }
}

int asking_channel::send() {
    constexpr int wait_of_others = 20; // while some have to wait for room
    works_ = std::this_thread::get_id();
    take_new();
    send_waiting();
    end_waiting();
    const int longest = platform::dns_channel_send(channel_.get());
    if (waiting_.empty()) {
        return longest;
    }
    return longest < 0 ? wait_of_others : std::min(longest, wait_of_others);
}

void asking_channel::work() {
    for (;;) {
        platform::dns_channel_take(channel_.get(), send());
        const std::lock_guard guard(lock_);
        if (stopped_) {
            return;
        }
    }
}

void asking_channel::miss(entries &all) {
    for (entry &one : all) {
        one.then(answer_of_status(status_missing));
    }
    all.clear();
}

void asking_channel::stop() {
    {
        const std::lock_guard guard(lock_);
        stopped_ = true;
    }
    if (thread_.joinable()) {
        platform::dns_channel_wake(channel_.get());
        thread_.join();
    }
    miss(on_their_way_);
    miss(waiting_);
    miss(box_);
}

} // namespace

// --- the asker ----------------------------------------------------------------------------------

struct live_asker::parts {
    parts(std::string with_server, unsigned at_once)
        : server(with_server.empty() ? std::nullopt : std::optional(std::move(with_server))),
          source(server), pool(source, std::min(at_once, most_threads)), channel(at_once) {}

    const std::optional<std::string> server;
    live_source source;
    pool_asker pool;
    asking_channel channel;
    bool started = false;
};

live_asker::live_asker(std::string server, unsigned most)
    : parts_(std::make_unique<parts>(std::move(server), std::clamp(most, 1u, most_at_once))) {}

live_asker::~live_asker() {
    stop();
}

// Without a channel all goes to the pool.
uint32_t live_asker::start(bool has_thread) {
    const std::optional<std::string> &server = parts_->server;
    uint32_t error = parts_->channel.open(server ? server->c_str() : nullptr);
    if (!error && has_thread) {
        error = parts_->channel.start_thread();
    }
    if (error == platform::error_not_supported) {
        try {
            error = parts_->source.usable();
        } catch (const std::bad_alloc &) {
            error = platform::error_not_enough_memory;
        }
        if (!error && !parts_->pool.start()) {
            error = platform::error_not_enough_memory;
        }
    }
    parts_->started = !error;
    return error;
}

uint32_t live_asker::start() {
    return start(true);
}

uint32_t live_asker::start_here() {
    return start(false);
}

intptr_t live_asker::descriptor() const {
    return parts_->channel.is_there() ? parts_->channel.descriptor() : -1;
}

int live_asker::send() {
    return parts_->channel.is_there() ? parts_->channel.send() : -1;
}

void live_asker::take() {
    if (parts_->channel.is_there()) {
        parts_->channel.take();
    }
}

void live_asker::ask(const question &asked, listener then) noexcept {
    if (!parts_->started) {
        then(answer_of_status(status_missing));
    } else if (parts_->channel.is_there() && (asked.options & platform::dns_query_tcp_only)) {
        parts_->channel.ask(asked, std::move(then));
    } else {
        parts_->pool.ask(asked, std::move(then));
    }
}

void live_asker::stop() {
    parts_->channel.stop();
    parts_->pool.stop();
}

} // namespace quillfence::dns_sources
