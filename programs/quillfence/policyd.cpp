// A run of policyd: its sockets, and what it tells the system around it.
#include <charconv>
#include <chrono>
#include <cmath>
#include <iostream>
#include <optional>

#include "event.h"
#include "explain.h"
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

static void judge(const std::string &, const std::function<void(std::string_view)> &answer) {
    answer("action=DUNNO\n\n");
}

static void reopen() {
    tell_manager(reloading());
    tell_manager("READY=1");
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
    options.ready = [] { tell_manager("READY=1"); };
    options.stopping = [] { tell_manager("STOPPING=1"); };
    options.reopen = reopen;
    return options;
}

// Descriptors for the connections, and for everything else.
static void allow_descriptors(uint64_t connections) {
    constexpr size_t besides = 200;
    const size_t allowed = platform::allow_descriptors(connections + besides);
    if (allowed < connections + besides) {
        throw failure("--connections " + std::to_string(connections) +
                      ": the system allows this process only " + std::to_string(allowed) +
                      " open files (ulimit -n, LimitNOFILE=)");
    }
}

// None when no file is asked for.
static std::optional<service::metrics_file> kept_metrics(const policyd_arguments &arguments,
                                                         const service::service_metrics &metrics) {
    if (arguments.metrics.empty()) {
        return std::nullopt;
    }
    return std::optional<service::metrics_file>(
        std::in_place, arguments.metrics, metrics, [](bool is_trouble, std::string_view text) {
            tell(is_trouble ? event_severity::error : event_severity::notice, text);
        });
}

static exit_status serve_sockets(const policyd_arguments &arguments) {
    allow_descriptors(arguments.connections);
    service::listeners all;
    open_all(arguments, &all);
    service::service_metrics metrics(decision::this_build());
    const auto metrics_file = kept_metrics(arguments, metrics);
    service::policy_server_options options = options_of(arguments);
    options.count = [&metrics](service::connection_event what) { metrics.connection(what); };
    service::policy_server server(options, judge);
    if (const uint32_t error = server.run(all)) {
        throw failure("connections can't be waited for: " + data_files::system_text(error));
    }
    return exit_status::done;
}

static exit_status serve_standard_streams() {
    using service::stream_end;
    uint32_t error = 0;
    const stream_end end = service::serve_stream(
        platform::file_standard_input(), platform::file_standard_output(), judge, reopen, &error);
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
    if (arguments.check) {
        return check_policyd(arguments, mode_of(arguments.socket_mode), std::cout);
    }
    const opened_log log;
    const listening_to_signals signals;
    return arguments.on_standard_streams ? serve_standard_streams() : serve_sockets(arguments);
}

} // namespace quillfence::programs
