#include "policyd_service.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "answers.h"
#include "event.h"
#include "explain.h"
#include "platform/service_signals.h"
#include "text.h"

namespace quillfence::programs {

using service::event_severity;
using service::tell;

// --- what the command line asks for -------------------------------------------------------------

static std::vector<std::string> rules_of(const char *option, const std::string &names) {
    std::vector<std::string> rules;
    if (const auto wrong = service::read_rule_names(names, &rules)) {
        throw failure(std::string(option) + ": " + *wrong);
    }
    return rules;
}

service::enforcement enforcement_of(const policyd_arguments &arguments) {
    service::enforcement how;
    how.all = arguments.enforce.empty();
    if (!how.all && arguments.enforce != nothing_is_enforced) {
        how.reject = rules_of("--enforce", arguments.enforce);
    }
    if (!arguments.warn.empty()) {
        how.warn = rules_of("--warn", arguments.warn);
    }
    how.exempt_passes = arguments.exempt_action == "OK";
    if (const auto wrong = service::contradiction(how)) {
        throw failure(*wrong);
    }
    return how;
}

static std::chrono::milliseconds milliseconds_of(double seconds) {
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

static unsigned jobs_of(const policyd_arguments &arguments) {
    return arguments.jobs > 0 ? static_cast<unsigned>(arguments.jobs)
                              : std::max(std::thread::hardware_concurrency(), 1u);
}

// --- the service manager ------------------------------------------------------------------------

void tell_manager(const std::string &state) {
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

// --- the start ----------------------------------------------------------------------------------

policyd_service::policyd_service(const policyd_arguments &arguments)
    : metrics_(decision::this_build()), engine_(arguments.configuration), log_path_(arguments.log) {
    open_log();
    start_configuration(arguments);
    start_asking(arguments);
    start_judging(arguments);
    if (!arguments.metrics.empty()) {
        metrics_file_.emplace(
            arguments.metrics, metrics_, [](bool is_trouble, std::string_view text) {
                tell(is_trouble ? event_severity::error : event_severity::notice, text);
            });
    }
    reloader_ = std::thread([this] { reload_when_asked(); });
}

void policyd_service::open_log() {
    if (log_path_.empty()) {
        return;
    }
    if (const uint32_t error = log_.open(log_path_)) {
        throw failure("--log " + log_path_ + ": " + data_files::system_text(error));
    }
}

void policyd_service::start_configuration(const policyd_arguments &arguments) {
    service::live_configuration::options with;
    with.user_dir = arguments.configuration.user_dir;
    with.guards = {.block_lists = !arguments.rbl_any_answer,
                   .refusals = !arguments.refused_is_missing};
    with.told = [this](const service::loaded_tree *tree, std::string_view text) {
        note_configuration(tree, text);
    };
    configuration_.emplace(std::move(with));
    configuration_->load();
    configuration_->start();
}

void policyd_service::note_configuration(const service::loaded_tree *tree, std::string_view text) {
    metrics_.configuration_loaded(tree);
    if (tree) {
        metrics_.zones(tree->zones);
    }
    tell(tree ? event_severity::notice : event_severity::error, text);
}

void policyd_service::start_asking(const policyd_arguments &arguments) {
    if (arguments.dns == dns_is_off) {
        return;
    }
    dns_.emplace(arguments.server);
    check_dns(dns_->start(), arguments.server);
    shared_dns_.emplace(*dns_);
}

void policyd_service::start_judging(const policyd_arguments &arguments) {
    constexpr size_t besides_connections = 100; // whose clients have gone
    judge_.emplace(service::policy_judge_options{
        .configuration = &*configuration_,
        .how = enforcement_of(arguments),
        .user_dir = arguments.configuration.user_dir,
        .dns = shared_dns_ ? &*shared_dns_ : nullptr,
        .log = log_path_.empty() ? nullptr : &log_,
        .counters = arguments.counters,
        .metrics = &metrics_,
        .jobs = jobs_of(arguments),
        .deadline = milliseconds_of(arguments.deadline),
        .most_outstanding = arguments.connections + besides_connections,
    });
}

// --- reloading ----------------------------------------------------------------------------------

void policyd_service::reload() {
    const std::lock_guard guard(lock_);
    reload_is_wanted_ = true;
    wanted_.notify_one();
}

void policyd_service::reload_when_asked() {
    for (std::unique_lock guard(lock_);;) {
        wanted_.wait(guard, [this] { return reload_is_wanted_ || ends_; });
        if (ends_) {
            return;
        }
        reload_is_wanted_ = false;
        guard.unlock();
        try {
            reload_now();
        } catch (const std::bad_alloc &) {
            tell(event_severity::error, "there is not enough memory to reload");
        }
        guard.lock();
    }
}

void policyd_service::reload_now() {
    tell_manager(reloading());
    const uint32_t error = log_path_.empty() ? 0 : log_.reopen();
    if (error) {
        tell(event_severity::error,
             log_path_ + ": can't be opened anew: " + data_files::system_text(error));
    }
    configuration_->load();
    tell_manager("READY=1");
}

// --- the end ------------------------------------------------------------------------------------

policyd_service::~policyd_service() {
    {
        const std::lock_guard guard(lock_);
        ends_ = true;
        wanted_.notify_one();
    }
    if (reloader_.joinable()) {
        reloader_.join();
    }
    if (judge_) {
        judge_->stop();
    }
}

} // namespace quillfence::programs
