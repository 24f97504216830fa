// What policyd judges with: the engine on its configuration, the DNS, the log, and the judge in
// front of them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "configured_engine.h"
#include "decision_log.h"
#include "live_asker.h"
#include "live_configuration.h"
#include "policy_judge.h"
#include "policy_server.h"
#include "policyd_command.h"
#include "service_metrics.h"
#include "shared_asker.h"

namespace quillfence::programs {

class policyd_judgement {
  public:
    // Borrows the metrics. Throws a failure for rules that are none, without a word about the log,
    // and when the log can't be written or the DNS not be asked. A configuration that can't be read
    // is told as an event and waited for.
    policyd_judgement(const policyd_arguments &arguments, service::service_metrics *metrics);
    policyd_judgement(const policyd_judgement &) = delete;
    policyd_judgement &operator=(const policyd_judgement &) = delete;

    // As service::policy_judge::judge.
    void judge(std::string request, std::function<void(std::string_view)> answer) noexcept {
        judge_->judge(std::move(request), std::move(answer));
    }
    // As its take_on, begin_all and stop.
    void take_on(std::string request, std::function<void(std::string_view)> answer) noexcept {
        judge_->take_on(std::move(request), std::move(answer));
    }
    void begin_all(bool here, const std::function<bool()> &waits) noexcept {
        judge_->begin_all(here, waits);
    }
    void stop() noexcept {
        judge_->stop();
    }
    // The DNS, for whoever begins all, and must see to it when sockets are served.
    service::companion dns();

    // The log's path once more, and the configuration, changed or not. What goes wrong is told.
    void begin_anew();

  private:
    void open_log(const policyd_arguments &arguments);
    void ask_dns(const policyd_arguments &arguments);
    service::policy_judge_options options_of(const policyd_arguments &arguments);

    const service::enforcement how_;
    service::service_metrics &metrics_;
    const configured_engine engine_;
    service::live_configuration configuration_;
    std::optional<decision::decision_log> log_;
    std::optional<dns_sources::live_asker> dns_;
    std::optional<dns_sources::shared_asker> shared_dns_;
    std::optional<service::policy_judge> judge_; // ends before all that it uses
};

} // namespace quillfence::programs
