#include "live_source.h"

#include <new>
#include <utility>

#include "live_answer.h"
#include "platform/error_numbers.h"

namespace quillfence::dns_sources {

namespace {

struct records_releaser {
    void operator()(platform::dns_record *records) const {
        platform::dns_release(records);
    }
};

// The details of a question, cleared when they go.
struct known_details {
    platform::dns_details it = platform::dns_no_details();

    known_details() = default;
    ~known_details() {
        platform::dns_details_clear(&it);
    }
    known_details(const known_details &) = delete;
    known_details &operator=(const known_details &) = delete;
};

answer ask_client(platform::dns_client *client, const question &asked) {
    platform::dns_client_limit(client, live_limit(asked));
    known_details details;
    platform::dns_record *found = nullptr;
    const uint32_t status = platform::dns_client_query(client, asked.name.c_str(), asked.type,
                                                       asked.options, &found, &details.it);
    const std::unique_ptr<platform::dns_record, records_releaser> records(found);
    return live_answer(status, details.it, found);
}

} // namespace

live_source::live_source(std::optional<std::string> server) : server_(std::move(server)) {}

uint32_t live_source::take_client(client_ptr *taken) {
    {
        const std::lock_guard guard(lock_);
        if (!idle_.empty()) {
            *taken = std::move(idle_.back());
            idle_.pop_back();
            return platform::error_none;
        }
    }
    platform::dns_client *opened = nullptr;
    const uint32_t error = platform::dns_client_open(server_ ? server_->c_str() : nullptr, &opened);
    taken->reset(opened);
    if (error == platform::error_not_enough_memory) {
        throw std::bad_alloc();
    }
    return error;
}

void live_source::give_back(client_ptr client) {
    const std::lock_guard guard(lock_);
    idle_.push_back(std::move(client));
}

uint32_t live_source::usable() {
    client_ptr client;
    const uint32_t error = take_client(&client);
    if (client) {
        give_back(std::move(client));
    }
    return error;
}

answer live_source::ask(const question &asked) {
    client_ptr client;
    if (const uint32_t error = take_client(&client)) {
        return answer_of_status(error);
    }
    answer got = ask_client(client.get(), asked);
    give_back(std::move(client));
    return got;
}

} // namespace quillfence::dns_sources
