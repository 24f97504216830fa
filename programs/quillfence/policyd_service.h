// What policyd consists of besides its sockets: the engine, the configuration that is read anew
// when it was edited, the DNS, the decision log, the metrics and the judge.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "configured_engine.h"
#include "decision_log.h"
#include "live_asker.h"
#include "live_configuration.h"
#include "metrics_file.h"
#include "policy_judge.h"
#include "policyd_command.h"
#include "service_metrics.h"
#include "shared_asker.h"
#include "stream_run.h"

namespace quillfence::programs {

// What is to be enforced, as the command line has it. Throws a failure for names that are none.
service::enforcement enforcement_of(const policyd_arguments &arguments);

class policyd_service {
  public:
    // Starts all of it, and reads the configuration once; when that can't be, requests are passed
    // until it can. Throws a failure for what is wrong with the arguments.
    explicit policyd_service(const policyd_arguments &arguments);
    ~policyd_service();
    policyd_service(const policyd_service &) = delete;
    policyd_service &operator=(const policyd_service &) = delete;

    service::policy_judge &judge() {
        return *judge_;
    }
    service::service_metrics &metrics() {
        return metrics_;
    }
    // The log is opened anew and the configuration read, by a thread of its own, and the service
    // manager told of both ends of it.
    void reload();

  private:
    void open_log();
    void start_configuration(const policyd_arguments &arguments);
    void start_asking(const policyd_arguments &arguments);
    void start_judging(const policyd_arguments &arguments);
    void note_configuration(const service::loaded_tree *tree, std::string_view text);
    void reload_when_asked();
    void reload_now();

    service::service_metrics metrics_;
    configured_engine engine_;
    const quiet_engine quiet_;
    std::string log_path_;
    decision::decision_log log_;
    std::optional<service::live_configuration> configuration_;
    std::optional<dns_sources::live_asker> dns_;
    std::optional<dns_sources::shared_asker> shared_dns_;
    std::optional<service::policy_judge> judge_;
    std::optional<service::metrics_file> metrics_file_;

    std::mutex lock_; // of what follows
    std::condition_variable wanted_;
    bool reload_is_wanted_ = false;
    bool ends_ = false;
    std::thread reloader_;
};

// Tells the service manager of a state; it is an event when that can't be.
void tell_manager(const std::string &state);

} // namespace quillfence::programs
