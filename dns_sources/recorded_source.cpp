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

const std::vector<answer> *recorded_source::answers_to(const question &asked) const {
    const auto place = recorded_.find({name_key(asked.name), asked.type});
    return place == recorded_.end() ? nullptr : &place->second.answers;
}

answer recorded_walk::ask(const question &asked) {
    const std::vector<answer> *const answers = of_.answers_to(asked);
    if (!answers) {
        return otherwise_ ? otherwise_->ask(asked) : answer_of_status(status_missing);
    }
    size_t &next = places_[answers];
    const answer &given = (*answers)[next];
    next += next + 1 < answers->size();
    return given;
}

} // namespace quillfence::dns_sources
