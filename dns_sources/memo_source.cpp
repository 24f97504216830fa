#include "memo_source.h"

#include <utility>

#include "guard_source.h"
#include "platform/error_numbers.h"
#include "vc_dns.h"

namespace quillfence::dns_sources {

namespace {

constexpr unsigned failures_enough = 3;
constexpr size_t most_zones = 100'000;

std::string key_of(const question &asked) {
    return std::to_string(asked.type) + " " + name_key(asked.name);
}

size_t bytes_of(const std::string &key, const answer &got) {
    constexpr size_t around = 128; // what the map needs
    size_t bytes = around + key.size() + sizeof(answer) + got.server.size();
    for (const record &one : got.records) {
        bytes += sizeof(record) + one.text.size();
    }
    return bytes;
}

// Whether the servers did not do their work. A name without records was answered, and what was
// never asked says nothing about them.
bool is_servers_failure(uint32_t status) {
    switch (status) {
    case platform::dns_status_no_records:
    case platform::error_invalid_name:
    case status_missing:
    case status_deadline:
        return false;
    default:
        return vc_dns_code(status) == vc_dns_failed;
    }
}

std::string without_labels(const std::string &name, int count) {
    size_t from = 0;
    while (count-- > 0) {
        from = name.find('.', from) + 1;
    }
    return name.substr(from);
}

} // namespace

std::string zone_of(std::string_view name) {
    constexpr int host_nibbles = 16;
    const std::string key = name_key(name);
    constexpr size_t whole_ipv6 = 72; // 32 nibbles with their dots, and "ip6.arpa"
    if (key.size() == whole_ipv6 && key.ends_with(".ip6.arpa")) {
        return without_labels(key, host_nibbles);
    }
    const std::string list = block_list_zone(key);
    if (list == "in-addr.arpa") {
        return without_labels(key, 1);
    }
    if (!list.empty()) {
        return list;
    }
    return key;
}

memo_source::memo_source(source &next, memo_choice choice) : next_(next), choice_(choice) {}

std::string memo_source::watched_zone(const question &asked) const {
    return choice_.leaves_zones_alone ? zone_of(asked.name) : "";
}

std::optional<answer> memo_source::known(const std::string &key, const std::string &zone) {
    const std::lock_guard guard(lock_);
    if (auto answered = remembered(key)) {
        return answered;
    }
    const auto status = reason_to_leave(zone);
    return status ? std::optional(answer_of_status(*status)) : std::nullopt;
}

std::optional<answer> memo_source::known(const question &asked) {
    return known(key_of(asked), watched_zone(asked));
}

answer memo_source::ask(const question &asked) {
    const std::string key = key_of(asked);
    const std::string zone = watched_zone(asked);
    if (auto at_hand = known(key, zone)) {
        return std::move(*at_hand);
    }
    answer got = next_.ask(asked);
    learn(key, zone, asked, got);
    return got;
}

void memo_source::learn(const question &asked, const answer &got) {
    learn(key_of(asked), watched_zone(asked), asked, got);
}

void memo_source::learn(const std::string &key, const std::string &zone, const question &asked,
                        const answer &got) {
    const std::lock_guard guard(lock_);
    count(zone, asked, got);
    if (vc_dns_code(got.status) != vc_dns_failed) {
        keep(key, got);
    }
}

// What was asked for since the memory was half full is young.
std::optional<answer> memo_source::remembered(const std::string &key) {
    const auto young = young_.find(key);
    if (young != young_.end()) {
        return young->second;
    }
    const auto old = old_.find(key);
    if (old == old_.end()) {
        return std::nullopt;
    }
    answer known = old->second;
    keep(key, known);
    return known;
}

void memo_source::keep(const std::string &key, const answer &got) {
    const size_t bytes = bytes_of(key, got);
    if (young_bytes_ + bytes > choice_.bytes / 2) {
        old_ = std::exchange(young_, {});
        young_bytes_ = 0;
    }
    if (bytes > choice_.bytes / 2) {
        return;
    }
    answer kept = got;
    kept.tries = 0;
    kept.microseconds.reset();
    if (young_.insert_or_assign(key, std::move(kept)).second) {
        young_bytes_ += bytes;
    }
}

std::optional<uint32_t> memo_source::reason_to_leave(const std::string &zone) const {
    const auto place = zones_.find(zone);
    if (zone.empty() || place == zones_.end() || place->second.count < failures_enough) {
        return std::nullopt;
    }
    return place->second.status;
}

// Whether the servers had too little time to be judged by their silence.
static bool was_hurried(const question &asked, const answer &got) {
    constexpr std::chrono::seconds fair{3};
    return got.status == platform::dns_status_timeout && asked.limit && *asked.limit < fair;
}

void memo_source::count(const std::string &zone, const question &asked, const answer &got) {
    if (zone.empty() || was_hurried(asked, got)) {
        return;
    }
    if (!is_servers_failure(got.status)) {
        zones_.erase(zone);
        return;
    }
    if (zones_.size() >= most_zones && !zones_.contains(zone)) {
        zones_.clear(); // they get another chance
    }
    failures &so_far = zones_[zone];
    so_far.status = got.status;
    ++so_far.count;
}

std::vector<std::string> memo_source::zones_left_alone() const {
    const std::lock_guard guard(lock_);
    std::vector<std::string> names;
    for (const auto &[zone, so_far] : zones_) {
        if (so_far.count >= failures_enough) {
            names.push_back(zone);
        }
    }
    return names;
}

} // namespace quillfence::dns_sources
