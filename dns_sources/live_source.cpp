#include "live_source.h"

#include <new>
#include <utility>

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

// Records of which there is no text: those beyond the bounds of the details. The engine wants all
// names of a PTR answer.
std::string text_of(const platform::dns_record &record) {
    char type[platform::dns_type_name_size];
    std::string text = platform::dns_type_name(record.type, type);
    return record.target ? text + " " + record.target + "." : text;
}

std::vector<record> all_records(const platform::dns_details &details,
                                const platform::dns_record *records) {
    std::vector<record> all;
    for (const auto *one = details.records; one; one = one->next) {
        all.push_back({one->type, one->text});
    }
    if (details.left_out == 0) {
        return all;
    }
    uint32_t place = 0;
    for (; records; records = records->next, ++place) {
        if (place >= details.record_count) {
            all.push_back({records->type, text_of(*records)});
        }
    }
    return all;
}

answer to_answer(uint32_t status, const platform::dns_details &details,
                 const platform::dns_record *records) {
    answer made = answer_of_status(status);
    made.records = all_records(details, records);
    if (made.records.size() < details.record_count + details.left_out) {
        made.left_out = details.left_out; // next to an error there are only the details
    }
    if (details.response_code >= 0) {
        made.response_code = static_cast<uint32_t>(details.response_code);
    }
    made.server = details.server;
    made.transport = details.transport;
    made.tries = details.tries;
    if (details.microseconds >= 0) {
        made.microseconds = details.microseconds;
    }
    return made;
}

int64_t limit_of(const question &asked) {
    if (!asked.limit) {
        return -1;
    }
    return asked.limit->count() < 0 ? 0 : asked.limit->count();
}

answer ask_client(platform::dns_client *client, const question &asked) {
    platform::dns_client_limit(client, limit_of(asked));
    known_details details;
    platform::dns_record *found = nullptr;
    const uint32_t status = platform::dns_client_query(client, asked.name.c_str(), asked.type,
                                                       asked.options, &found, &details.it);
    const std::unique_ptr<platform::dns_record, records_releaser> records(found);
    if (status == platform::error_not_enough_memory || details.it.no_memory) {
        throw std::bad_alloc();
    }
    return to_answer(status, details.it, found);
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
