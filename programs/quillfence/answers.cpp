#include "answers.h"

#include <cmath>

#include "platform/error_numbers.h"
#include "program.h"
#include "quillfence.h"
#include "session.h"
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

// --- the parts ---

void check_dns(uint32_t error, const std::string &server) {
    if (!error) {
        return;
    }
    if (error == platform::error_not_supported) {
        throw failure("--server: the system's own DNS client asks the system's servers only");
    }
    if (error == platform::error_invalid_parameter && !server.empty()) {
        throw failure("--server: " + data_files::quoted(server) +
                      " is no server; write an address, as in 192.0.2.53, 192.0.2.53:5353 or "
                      "[2001:db8::53]:5353");
    }
    throw failure("the DNS can't be asked: " + data_files::system_text(error));
}

std::unique_ptr<dns_sources::live_source> live_dns(const std::string &server) {
    if (server.empty()) {
        return std::make_unique<dns_sources::live_source>();
    }
    auto live = std::make_unique<dns_sources::live_source>(server);
    check_dns(live->usable(), server);
    return live;
}

static std::unique_ptr<dns_sources::deadline_source> deadline_of(const answer_options &options,
                                                                 source &next) {
    const auto total = std::chrono::milliseconds(std::llround(options.deadline * 1000));
    return std::make_unique<dns_sources::deadline_source>(next, total);
}

// None without --guards.
static std::unique_ptr<dns_sources::guard_source> guard_of(const answer_options &options,
                                                           source &next) {
    return options.guards ? std::make_unique<dns_sources::guard_source>(next, block_list_zones())
                          : nullptr;
}

static void give(const answer_options &options, const std::string &client,
                 dns_sources::given_source *given) {
    if (!options.ptr.empty() && client.empty()) {
        throw failure("--ptr: names the client, and there is no --ip");
    }
    const std::string address = options.ptr.empty() ? "" : decision::session_address(client);
    for (const std::string &name : options.ptr) {
        if (const auto problem = given->add_ptr(address.empty() ? client : address, name)) {
            throw failure("--ptr: " + *problem);
        }
    }
    for (size_t i = 0; i + 2 < options.answers.size(); i += 3) {
        if (const auto problem =
                given->add(options.answers[i], options.answers[i + 1], options.answers[i + 2])) {
            throw failure("--answer: " + *problem);
        }
    }
}

static std::unique_ptr<dns_sources::given_source>
given_of(const answer_options &options, const std::string &client, source &next) {
    auto given = std::make_unique<dns_sources::given_source>(next);
    give(options, client, given.get());
    return given;
}

static std::vector<std::string> remarks_of(const dns_sources::guard_source *guard) {
    std::vector<std::string> remarks;
    if (guard && guard->no_listings()) {
        remarks.push_back("the guards took " + counted(guard->no_listings(), "answer") +
                          " of DNS block lists, which list nobody, for failures");
    }
    if (guard && guard->refusals()) {
        remarks.push_back("the guards took " + counted(guard->refusals(), "refused question") +
                          " for failures");
    }
    return remarks;
}

// --- of a transaction ---

source &answer_stack::system_of(const answer_options &options) {
    if (options.dns == dns_is_off) {
        system_ = std::make_unique<dns_sources::off_source>();
        return *system_;
    }
    system_ = live_dns(options.server);
    deadline_ = deadline_of(options, *system_);
    return *deadline_;
}

answer_stack::answer_stack(const answer_options &options, const std::string &client) {
    source &system = system_of(options);
    guard_ = guard_of(options, system);
    given_ = given_of(options, client, guard_ ? *guard_ : system);
    memo_ = std::make_unique<dns_sources::memo_source>(*given_);
    door_ = std::make_unique<dns_sources::engine_door>(*memo_);
}

std::vector<std::string> answer_stack::remarks() const {
    return remarks_of(guard_.get());
}

// --- of a case ---

case_answers::case_answers(const answer_options &options, const std::string &client)
    : options_(options), client_(client) {
    dns_sources::off_source nobody;
    given_of(options, client, nobody); // what can't be understood is told now
    if (dns() != decision::case_dns::recorded && options.dns != dns_is_off) {
        system_ = live_dns(options.server);
        deadline_ = deadline_of(options, *system_);
        memo_ = std::make_unique<dns_sources::memo_source>(*deadline_);
    }
}

decision::case_dns case_answers::dns() const {
    if (options_.dns == "record-missing") {
        return decision::case_dns::record_missing;
    }
    const bool anew = options_.dns == dns_is_live || options_.dns == dns_is_off;
    return anew ? decision::case_dns::live : decision::case_dns::recorded;
}

source *case_answers::live() {
    return memo_.get();
}

source &case_answers::in_front(source &next) {
    guard_ = guard_of(options_, next);
    given_ = given_of(options_, client_, guard_ ? *guard_ : next);
    return *given_;
}

std::vector<std::string> case_answers::remarks() const {
    return remarks_of(guard_.get());
}

} // namespace quillfence::programs
