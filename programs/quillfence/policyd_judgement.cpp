#include "policyd_judgement.h"

#include <algorithm>
#include <cmath>
#include <system_error>
#include <thread>

#include "answers.h"
#include "event.h"
#include "text.h"

namespace quillfence::programs {

using service::event_severity;
using service::tell;

// --- what is enforced ---------------------------------------------------------------------------

static void take_names(const char *option, const std::string &text,
                       std::vector<std::string> *names) {
    if (const auto why = service::read_rule_names(text, names)) {
        throw failure(std::string(option) + ": " + *why);
    }
}

static service::enforcement enforcement_of(const policyd_arguments &arguments) {
    service::enforcement how;
    how.all = arguments.enforce == "all";
    if (arguments.enforce && !how.all) {
        take_names("--enforce", *arguments.enforce, &how.reject);
    }
    if (!arguments.warn.empty()) {
        take_names("--warn", arguments.warn, &how.warn);
    }
    if (const auto why = service::contradiction(how)) {
        throw failure("--enforce and --warn: " + *why);
    }
    how.exempt_passes = arguments.exempt_action == "OK";
    return how;
}

// --- the configuration --------------------------------------------------------------------------

static service::live_configuration::options configuration_of(const policyd_arguments &arguments,
                                                             service::service_metrics *metrics) {
    service::live_configuration::options options;
    options.user_dir = arguments.configuration.user_dir;
    options.guards = {.block_lists = !arguments.any_answer_lists,
                      .refusals = !arguments.refused_is_missing};
    options.told = [metrics](const service::loaded_tree *tree, std::string_view text) {
        metrics->configuration_loaded(tree);
        if (tree) {
            metrics->zones(tree->zones);
        }
        tell(tree ? event_severity::notice : event_severity::error, text);
    };
    return options;
}

// --- the log and the DNS ------------------------------------------------------------------------

static void tell_of_cut(const decision::decision_log &log) {
    if (log.cut() > 0) {
        tell(event_severity::warning,
             log.path() + ": the last record was cut short and has been cut off, " +
                 counted(log.cut(), "byte") + "; its writer was killed, or the disk was full");
    }
}

void policyd_judgement::open_log(const policyd_arguments &arguments) {
    if (arguments.no_log) {
        return;
    }
    if (arguments.log.empty()) {
        throw failure("say where decisions are logged with --log FILE, or that they are not with "
                      "--no-log");
    }
    if (const uint32_t error = log_.emplace().open(arguments.log)) {
        throw failure("--log " + file_error(arguments.log, error));
    }
    tell_of_cut(*log_);
}

void policyd_judgement::ask_dns(const policyd_arguments &arguments) {
    if (arguments.dns == dns_is_off) {
        return;
    }
    live_dns(arguments.server); // a server that is none is told of
    dns_.emplace(arguments.server);
    if (const uint32_t error = arguments.on_standard_streams ? dns_->start() : dns_->start_here()) {
        throw failure("the DNS can't be asked: " + data_files::system_text(error));
    }
    shared_dns_.emplace(*dns_);
}

// --- the judge ----------------------------------------------------------------------------------

service::policy_judge_options policyd_judgement::options_of(const policyd_arguments &arguments) {
    service::policy_judge_options options;
    options.configuration = &configuration_;
    options.how = how_;
    options.user_dir = arguments.configuration.user_dir;
    options.dns = shared_dns_ ? &*shared_dns_ : nullptr;
    options.log = log_ ? &*log_ : nullptr;
    options.counters = arguments.counters;
    options.metrics = &metrics_;
    options.jobs = arguments.jobs ? static_cast<unsigned>(arguments.jobs)
                                  : std::max(std::thread::hardware_concurrency(), 1u);
    options.deadline = std::chrono::milliseconds(std::llround(arguments.deadline * 1000));
    // Each connection has one request.
    options.most_outstanding = std::max(options.most_outstanding, 2 * arguments.connections);
    return options;
}

policyd_judgement::policyd_judgement(const policyd_arguments &arguments,
                                     service::service_metrics *metrics)
    : how_(enforcement_of(arguments)), metrics_(*metrics), engine_(arguments.configuration),
      configuration_(configuration_of(arguments, metrics)) {
    open_log(arguments);
    configuration_.load();
    try {
        ask_dns(arguments);
        judge_.emplace(options_of(arguments));
        configuration_.start();
    } catch (const std::system_error &error) {
        throw failure(std::string("the threads can't be started: ") + error.what());
    }
}

service::companion policyd_judgement::dns() {
    if (!dns_) {
        return {};
    }
    return {.descriptor = dns_->descriptor(),
            .send = [this] { return dns_->send(); },
            .take = [this] { judge_->gather([this] { dns_->take(); }); }};
}

void policyd_judgement::begin_anew() {
    if (log_) {
        if (const uint32_t error = log_->reopen()) {
            tell(event_severity::error,
                 "the log stays as it was: " + file_error(log_->path(), error));
        }
        tell_of_cut(*log_);
    }
    configuration_.load();
}

} // namespace quillfence::programs
