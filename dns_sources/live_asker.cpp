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

// --- the thread with the channel ----------------------------------------------------------------

namespace {

struct channel_closer {
    void operator()(platform::dns_channel *channel) const {
        platform::dns_channel_close(channel);
    }
};

// Asks what others put in its box.
class channel_thread {
  public:
    explicit channel_thread(unsigned most) : most_(most) {}
    ~channel_thread() {
        stop();
    }
    channel_thread(const channel_thread &) = delete;
    channel_thread &operator=(const channel_thread &) = delete;

    // 0, 8, or what dns_channel_open() says.
    uint32_t start(const char *server);
    bool is_there() const {
        return channel_ != nullptr;
    }
    void ask(const question &asked, asker::listener then) noexcept;
    void stop();

  private:
    struct entry {
        question asked;
        std::optional<time_left> left{}; // of its limit
        asker::listener then{};
        channel_thread *of = nullptr;
        std::list<entry>::iterator place{};
    };
    using entries = std::list<entry>;

    static void tell(void *context, void *tag, uint32_t status, const platform::dns_record *records,
                     const platform::dns_details *details) noexcept;
    static void finish(entries &from, entries::iterator one, answer got);
    bool put(entries &one);
    void work();
    void take_new();
    void send();
    void end_waiting();
    void miss(entries &all);

    const unsigned most_;
    std::unique_ptr<platform::dns_channel, channel_closer> channel_;
    std::thread thread_;
    entries waiting_;      // the thread's own
    entries on_their_way_; // the same
    time_left::clock::time_point last_look_{};
    std::mutex lock_; // of what follows
    entries box_;
    bool stopped_ = false;
};

uint32_t channel_thread::start(const char *server) {
    platform::dns_channel *opened = nullptr;
    const uint32_t error = platform::dns_channel_open(server, tell, this, &opened);
    if (error) {
        return error;
    }
    channel_.reset(opened);
    try {
        thread_ = std::thread([this] { work(); });
    } catch (const std::system_error &) {
        channel_.reset();
        return platform::error_not_enough_memory;
    }
    return platform::error_none;
}

// False when it is stopped.
bool channel_thread::put(entries &one) {
    bool first = false;
    {
        const std::lock_guard guard(lock_);
        if (stopped_) {
            return false;
        }
        first = box_.empty();
        box_.splice(box_.end(), one);
    }
    if (first) {
        platform::dns_channel_wake(channel_.get());
    }
    return true;
}

void channel_thread::ask(const question &asked, asker::listener then) noexcept {
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

void channel_thread::finish(entries &from, entries::iterator one, answer got) {
    entries told;
    told.splice(told.end(), from, one);
    told.front().then(std::move(got));
}

void channel_thread::tell(void *context, void *tag, uint32_t status,
                          const platform::dns_record *records,
                          const platform::dns_details *details) noexcept {
    auto *const self = static_cast<channel_thread *>(context);
    const auto one = static_cast<entry *>(tag)->place;
    answer got;
    try {
        got = live_answer(status, *details, records);
    } catch (const std::bad_alloc &) {
        got = answer_of_status(platform::error_not_enough_memory);
    }
    finish(self->on_their_way_, one, std::move(got));
}

void channel_thread::take_new() {
    const std::lock_guard guard(lock_);
    waiting_.splice(waiting_.end(), box_);
}

void channel_thread::send() {
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
void channel_thread::end_waiting() {
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

void channel_thread::work() {
    constexpr int64_t usual_wait = 1000;
    constexpr int64_t wait_of_others = 20; // while some have to wait for room
    for (;;) {
        take_new();
        send();
        end_waiting();
        platform::dns_channel_work(channel_.get(), waiting_.empty() ? usual_wait : wait_of_others);
        const std::lock_guard guard(lock_);
        if (stopped_) {
            return;
        }
    }
}

void channel_thread::miss(entries &all) {
    for (entry &one : all) {
        one.then(answer_of_status(status_missing));
    }
    all.clear();
}

void channel_thread::stop() {
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
    channel_thread channel;
    bool started = false;
};

live_asker::live_asker(std::string server, unsigned most)
    : parts_(std::make_unique<parts>(std::move(server), std::clamp(most, 1u, most_at_once))) {}

live_asker::~live_asker() {
    stop();
}

// Without a channel all goes to the pool.
uint32_t live_asker::start() {
    const std::optional<std::string> &server = parts_->server;
    uint32_t error = parts_->channel.start(server ? server->c_str() : nullptr);
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
