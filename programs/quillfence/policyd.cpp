// A run of policyd: its sockets, and what it tells the system around it.
#include <charconv>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <new>
#include <optional>
#include <thread>

#include "event.h"
#include "explain.h"
#include "line_input.h"
#include "listeners.h"
#include "metrics_file.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/interruption.h"
#include "platform/service_signals.h"
#include "policy_server.h"
#include "policy_stream.h"
#include "policyd_check.h"
#include "policyd_command.h"
#include "policyd_judgement.h"
#include "service_metrics.h"
#include "stream_run.h"
#include "text.h"
#include "vc_w32.h"

namespace quillfence::programs {

using service::event_severity;
using service::tell;

namespace {

// While it lives, events go to the system's log.
class opened_log {
  public:
    opened_log() {
        openlog("quillfence-policyd", 0, 0);
    }
    ~opened_log() {
        closelog();
    }
    opened_log(const opened_log &) = delete;
    opened_log &operator=(const opened_log &) = delete;
};

// While it lives, the signals of a service are noted.
class listening_to_signals {
  public:
    listening_to_signals() {
        if (const uint32_t error = platform::hang_up_listen()) {
            throw failure("SIGHUP can't be waited for: " + data_files::system_text(error));
        }
    }
    ~listening_to_signals() {
        platform::hang_up_ignore();
    }
    listening_to_signals(const listening_to_signals &) = delete;
    listening_to_signals &operator=(const listening_to_signals &) = delete;

  private:
    const interruptible interruption_;
};

} // namespace

// --- the service manager ------------------------------------------------------------------------

static void tell_manager(const std::string &state) {
    if (const uint32_t error = platform::tell_service_manager(state.c_str())) {
        tell(event_severity::warning,
             "NOTIFY_SOCKET can't be reached: " + data_files::system_text(error));
    }
}

// The manager compares this time with its own, of the same clock.
static std::string reloading() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    return "RELOADING=1\nMONOTONIC_USEC=" + std::to_string(count);
}

// --- requests -----------------------------------------------------------------------------------

namespace {

// What the service judges with, and what it tells of that. It begins anew on a thread of its own,
// since a large configuration takes a while to be read and nobody shall wait for it.
class judging {
  public:
    explicit judging(const policyd_arguments &arguments);
    ~judging();
    judging(const judging &) = delete;
    judging &operator=(const judging &) = delete;

    service::request_handler handler() {
        return [this](std::string request, std::function<void(std::string_view)> answer) {
            judgement_.judge(std::move(request), std::move(answer));
        };
    }
    // In two steps: begin_all() is the second one.
    service::request_handler taker() {
        return [this](std::string request, std::function<void(std::string_view)> answer) {
            judgement_.take_on(std::move(request), std::move(answer));
        };
    }
    void begin_all(bool here, const std::function<bool()> &waits) {
        judgement_.begin_all(here, waits);
    }
    void give_up() {
        judgement_.stop();
    }
    service::companion dns() {
        return judgement_.dns();
    }
    std::function<void(service::connection_event)> counter() {
        return [this](service::connection_event what) { metrics_.connection(what); };
    }
    void begin_anew() {
        const std::lock_guard guard(lock_);
        anew_ = true;
        wanted_.notify_one();
    }

  private:
    void keep_metrics(const std::string &path);
    void begin_anew_when_asked();

    service::service_metrics metrics_{decision::this_build()};
    policyd_judgement judgement_;
    std::optional<service::metrics_file> metrics_file_;

    std::mutex lock_; // of what follows
    std::condition_variable wanted_;
    bool anew_ = false;
    bool ends_ = false;
    std::thread thread_; // behind all that it uses
};

} // namespace

judging::judging(const policyd_arguments &arguments) : judgement_(arguments, &metrics_) {
    if (!arguments.metrics.empty()) {
        keep_metrics(arguments.metrics);
    }
    thread_ = std::thread([this] { begin_anew_when_asked(); });
}

judging::~judging() {
    {
        const std::lock_guard guard(lock_);
        ends_ = true;
        wanted_.notify_one();
    }
    thread_.join();
    give_up(); // what that answers is in the last metrics
}

void judging::keep_metrics(const std::string &path) {
    metrics_file_.emplace(path, metrics_, [](bool is_trouble, std::string_view text) {
        tell(is_trouble ? event_severity::error : event_severity::notice, text);
    });
}

void judging::begin_anew_when_asked() {
    for (std::unique_lock guard(lock_);;) {
        wanted_.wait(guard, [this] { return anew_ || ends_; });
        if (ends_) {
            return;
        }
        anew_ = false;
        guard.unlock();
        tell_manager(reloading());
        try {
            judgement_.begin_anew();
        } catch (const std::bad_alloc &) {
            tell(event_severity::error, "There is no memory to begin anew");
        }
        tell_manager("READY=1");
        guard.lock();
    }
}

// --- the run ------------------------------------------------------------------------------------

static uint32_t mode_of(const std::string &text) {
    uint32_t mode = 0;
    const char *const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, mode, 8);
    if (error != std::errc() || stopped != end || mode > 0777) {
        throw failure("--socket-mode: " + data_files::quoted(text) +
                      " is no octal number up to 0777");
    }
    return mode;
}

static void open_all(const policyd_arguments &arguments, service::listeners *all) {
    const uint32_t mode = mode_of(arguments.socket_mode);
    if (const auto wrong = all->inherit()) {
        throw failure(*wrong);
    }
    for (const std::string &place : arguments.listen) {
        if (const auto wrong = all->open(place, mode)) {
            throw failure("--listen " + *wrong);
        }
    }
    if (all->all().empty()) {
        throw failure("there is nowhere to listen; name a place with --listen, or --stdio");
    }
}

static service::policy_server_options options_of(const policyd_arguments &arguments) {
    service::policy_server_options options;
    options.connections = arguments.connections;
    options.idle = std::chrono::milliseconds(std::llround(arguments.idle * 1000));
    // What is being judged is answered by its deadline.
    options.ending = std::chrono::milliseconds(std::llround(arguments.deadline * 1000)) +
                     std::chrono::seconds(2);
    options.ready = [] { tell_manager("READY=1"); };
    options.stopping = [] { tell_manager("STOPPING=1"); };
    return options;
}

// Descriptors for the connections, and for everything else: at least some, better many.
static void allow_descriptors(uint64_t connections) {
    constexpr size_t needed = 200;
    constexpr size_t better = 1000;
    const size_t allowed = platform::allow_descriptors(connections + better);
    if (allowed < connections + needed) {
        throw failure("--connections " + std::to_string(connections) +
                      ": the system allows this process only " + std::to_string(allowed) +
                      " open files (ulimit -n, LimitNOFILE=)");
    }
}

// The sockets are opened first: what is wrong with them is told at once, and whoever connects waits
// until the configuration has been read.
static exit_status serve_sockets(const policyd_arguments &arguments) {
    allow_descriptors(arguments.connections);
    service::listeners all;
    open_all(arguments, &all);
    judging with(arguments);
    service::policy_server_options options = options_of(arguments);
    options.reopen = [&with] { with.begin_anew(); };
    options.count = with.counter();
    std::optional<service::policy_server> server;
    const std::function<bool()> waits = [&server] { return server->await_companion(); };
    options.judge_here = [&with, &waits](bool here) { with.begin_all(here, waits); };
    options.also = with.dns();
    options.give_up = [&with] { with.give_up(); };
    server.emplace(options, with.taker());
    if (const uint32_t error = server->run(all)) {
        throw failure("connections can't be waited for: " + data_files::system_text(error));
    }
    return exit_status::done;
}

static exit_status serve_standard_streams(const policyd_arguments &arguments) {
    using service::stream_end;
    judging with(arguments);
    tell_manager("READY=1");
    uint32_t error = 0;
    const stream_end end = service::serve_stream(
        platform::file_standard_input(), platform::file_standard_output(), with.handler(),
        [&with] { with.begin_anew(); }, &error);
    switch (end) {
    case stream_end::done:
        return exit_status::done;
    case stream_end::within:
        throw failure("standard input ended within a request");
    case stream_end::too_long:
        throw failure("standard input holds a request that is too long");
    case stream_end::read_failed:
        throw failure("standard input can't be read: " + data_files::system_text(error));
    case stream_end::write_failed:
        throw failure("standard output can't be written: " + data_files::system_text(error));
    }
    return exit_status::failed;
}

exit_status policyd(const policyd_arguments &arguments) {
    refuse_overwriting({}, {arguments.log, arguments.metrics});
    if (arguments.check) {
        return check_policyd(arguments, mode_of(arguments.socket_mode), std::cout);
    }
    const opened_log log;
    const listening_to_signals signals;
    platform::outlive_file_limit();
    return arguments.on_standard_streams ? serve_standard_streams(arguments)
                                         : serve_sockets(arguments);
}

} // namespace quillfence::programs
