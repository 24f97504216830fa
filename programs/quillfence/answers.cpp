#include "answers.h"

#include <cmath>

#include "platform/error_numbers.h"
#include "program.h"
#include "quillfence.h"
#include "text.h"

namespace quillfence::programs {

using dns_sources::source;

std::vector<std::string> block_list_zones() {
    std::string bytes;
    std::vector<std::string> zones;
    if (!data_files::read_file(std::string(quillfence_base_dir) + "rbl.enabled", &bytes)) {
        for (const data_files::text_line &line : data_files::lines_of(bytes)) {
            zones.emplace_back(line.text);
        }
    }
    return zones;
}

std::unique_ptr<dns_sources::live_source> live_dns(const std::string &server) {
    if (server.empty()) {
        return std::make_unique<dns_sources::live_source>();
    }
    auto live = std::make_unique<dns_sources::live_source>(server);
    if (const uint32_t error = live->usable()) {
        throw failure(error == platform::error_not_supported
                          ? "--server: the system's own DNS client asks the system's servers only"
                          : "--server: " + data_files::quoted(server) +
                                " is no server; write an address, as in 192.0.2.53, "
                                "192.0.2.53:5353 or [2001:db8::53]:5353");
    }
    return live;
}

source &answer_stack::system_of(const answer_options &options) {
    if (options.dns == "off") {
        system_ = std::make_unique<dns_sources::off_source>();
        return *system_;
    }
    system_ = live_dns(options.server);
    const auto total = std::chrono::milliseconds(std::llround(options.deadline * 1000));
    deadline_ = std::make_unique<dns_sources::deadline_source>(*system_, total);
    return *deadline_;
}

source &answer_stack::guarded(const answer_options &options, source &next) {
    if (!options.guards) {
        return next;
    }
    guard_ = std::make_unique<dns_sources::guard_source>(next, block_list_zones());
    return *guard_;
}

void answer_stack::give(const answer_options &options, const std::string &client) {
    for (const std::string &name : options.ptr) {
        if (client.empty()) {
            throw failure("--ptr: names the client, and there is no --ip");
        }
        if (const auto problem = given_->add_ptr(client, name)) {
            throw failure("--ptr: " + *problem);
        }
    }
    for (size_t i = 0; i + 2 < options.answers.size(); i += 3) {
        if (const auto problem =
                given_->add(options.answers[i], options.answers[i + 1], options.answers[i + 2])) {
            throw failure("--answer: " + *problem);
        }
    }
}

answer_stack::answer_stack(const answer_options &options, const std::string &client) {
    source &asked = guarded(options, system_of(options));
    given_ = std::make_unique<dns_sources::given_source>(asked);
    give(options, client);
    memo_ = std::make_unique<dns_sources::memo_source>(*given_);
    door_ = std::make_unique<dns_sources::engine_door>(*memo_);
}

std::vector<std::string> answer_stack::remarks() const {
    std::vector<std::string> remarks;
    if (guard_ && guard_->no_listings()) {
        remarks.push_back("the guards took " + counted(guard_->no_listings(), "answer") +
                          " of DNS block lists, which list nobody, for failures");
    }
    if (guard_ && guard_->refusals()) {
        remarks.push_back("the guards took " + counted(guard_->refusals(), "refused question") +
                          " for failures");
    }
    return remarks;
}

} // namespace quillfence::programs
