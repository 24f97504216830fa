#include "engine_door.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "platform/error_numbers.h"

namespace quillfence::dns_sources {

namespace {

struct records_releaser {
    void operator()(platform::dns_record *records) const {
        platform::dns_release(records);
    }
};
using engine_records = std::unique_ptr<platform::dns_record, records_releaser>;

// The name that a PTR record points to, without its final dot; none for other records.
std::optional<std::string> target_of(const record &one) {
    constexpr std::string_view front = "PTR ";
    if (one.type != platform::dns_type_ptr || !one.text.starts_with(front)) {
        return std::nullopt;
    }
    std::string target = one.text.substr(front.size());
    if (target.ends_with('.')) {
        target.pop_back();
    }
    return target;
}

// The engine's form of an answer.
engine_records engine_records_of(const std::vector<record> &records) {
    engine_records first;
    platform::dns_record *last = nullptr;
    for (const record &one : records) {
        const auto target = target_of(one);
        platform::dns_record *const made =
            platform::dns_new_record(one.type, target ? target->c_str() : nullptr);
        if (!made) {
            throw std::bad_alloc();
        }
        if (last) {
            last->next = made;
        } else {
            first.reset(made);
        }
        last = made;
    }
    return first;
}

void fill_details(const answer &got, platform::dns_details *details) {
    *details = platform::dns_no_details();
    details->status = got.said;
    details->transport = got.transport;
    details->tries = got.tries;
    details->microseconds = got.microseconds.value_or(-1);
    details->response_code = got.response_code ? static_cast<int32_t>(*got.response_code) : -1;
    const size_t length = std::min(got.server.size(), sizeof details->server - 1);
    std::memcpy(details->server, got.server.data(), length);
    for (const record &one : got.records) {
        platform::dns_details_add(details, one.type, one.text.c_str());
    }
    details->left_out += got.left_out;
}

} // namespace

engine_door::engine_door(source &answers) : answers_(answers), slots_{this, ask} {}

uint32_t engine_door::ask(void *context, const char *name, uint16_t type, uint32_t options,
                          platform::dns_record **records, platform::dns_details *details) noexcept {
    auto *const self = static_cast<engine_door *>(context);
    *records = nullptr;
    if (details) {
        *details = platform::dns_no_details();
    }
    try {
        return self->answer_engine({name, type, options, std::nullopt}, records, details);
    } catch (...) {
        self->failed_ = true;
    }
    if (details) {
        details->status = platform::error_not_enough_memory;
    }
    return platform::error_not_enough_memory;
}

uint32_t engine_door::answer_engine(const question &asked, platform::dns_record **records,
                                    platform::dns_details *details) {
    const answer got = answers_.ask(asked);
    if (got.status == status_missing) {
        note_missing(asked, got);
    }
    if (got.status == platform::error_not_enough_memory) {
        throw std::bad_alloc();
    }
    engine_records made;
    if (got.status == 0) {
        made = engine_records_of(got.records);
    }
    if (details) {
        fill_details(got, details);
        if (details->no_memory) {
            failed_ = true;
        }
    }
    *records = made.release();
    return got.status;
}

void engine_door::note_missing(const question &asked, const answer &got) {
    question wanted = asked;
    if (!got.missing_name.empty()) {
        wanted.name = got.missing_name;
    }
    const std::lock_guard guard(lock_);
    const auto same = [&wanted](const question &one) {
        return one.type == wanted.type && name_key(one.name) == name_key(wanted.name);
    };
    if (std::none_of(missing_.begin(), missing_.end(), same)) {
        missing_.push_back(std::move(wanted));
    }
}

std::vector<question> engine_door::missing() const {
    const std::lock_guard guard(lock_);
    return missing_;
}

} // namespace quillfence::dns_sources
