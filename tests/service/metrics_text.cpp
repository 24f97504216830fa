// Prints the metrics of a service that has done something of everything, for whoever judges texts.
#include <cstdio>

#include "service_metrics.h"

int main() {
    using namespace quillfence;
    service::service_metrics metrics({.version = "1.0.0", .build = "linux-x86_64"});
    decision::decision_record record;
    record.decision.is = decision::verdict::reject;
    record.decision.by = decision::decided_by::rule;
    record.decision.rule = "from_blacklist";
    record.rules.emplace_back().rule = "from_blacklist";
    record.dns.emplace_back().type = "PTR";
    auto &list = record.dns_block_lists.emplace_back();
    list.zone = "odd\"zone\\.example";
    list.answer = decision::block_list_answer::refused;
    metrics.decided(record, std::chrono::milliseconds(3));
    metrics.answered(service::policy_answer::reject);
    metrics.in_doubt(service::doubt::deadline);
    metrics.connection(service::connection_event::opened);
    metrics.configuration_loaded(true);
    metrics.log_written(true);
    return std::fputs(metrics.text().c_str(), stdout) < 0 ? 1 : 0;
}
