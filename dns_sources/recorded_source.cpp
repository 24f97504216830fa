#include "recorded_source.h"

namespace quillfence::dns_sources {

void recorded_source::add(std::string_view name, uint16_t type, answer given) {
    const std::lock_guard guard(lock_);
    recorded_[{name_key(name), type}].answers.push_back(std::move(given));
}

answer recorded_source::ask(const question &asked) {
    const auto key = std::make_pair(name_key(asked.name), asked.type);
    const std::lock_guard guard(lock_);
    const auto place = recorded_.find(key);
    if (place == recorded_.end()) {
        return answer_of_status(status_missing);
    }
    sequence &all = place->second;
    const answer &given = all.answers[all.next];
    if (all.next + 1 < all.answers.size()) {
        ++all.next;
    }
    return given;
}

void recorded_source::rewind() {
    const std::lock_guard guard(lock_);
    for (auto &[key, all] : recorded_) {
        all.next = 0;
    }
}

} // namespace quillfence::dns_sources
