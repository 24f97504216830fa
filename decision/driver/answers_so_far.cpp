#include "answers_so_far.h"

#include <optional>

#include "vc_dns.h"

namespace quillfence::decision {

using dns_sources::answer;
using dns_sources::question;

// What the engine takes for an answer stays one; a failure is asked again.
static bool is_final(const answer &given) {
    return vc_dns_code(given.status) != vc_dns_failed;
}

answer answers_so_far::ask(const question &asked) {
    asked_question &known = asked_[{dns_sources::name_key(asked.name), asked.type}];
    if (known.next < known.answers.size()) {
        return known.answers[known.next++];
    }
    if (!known.answers.empty() && is_final(known.answers.back())) {
        return known.answers.back();
    }
    if (!known.wanted) {
        if (auto remembered = memo_ ? memo_->known(asked) : std::nullopt) {
            known.answers.push_back(std::move(*remembered));
            return known.answers[known.next++];
        }
        known.question = asked;
        known.wanted = true;
        wanted_.push_back(&known);
    }
    return dns_sources::answer_of_status(dns_sources::status_missing);
}

struct answers_so_far::fetched_question {
    question asked;
    bool in_time;
    dns_sources::asker::listener then;
};

void answers_so_far::fetch(dns_sources::asker &asker, const std::function<void()> &then) {
    std::vector<fetched_question> all;
    for (asked_question *const one : wanted_) {
        one->answers.reserve(one->answers.size() + 1);
        all.push_back({one->question, true, [this, one, then](answer given) {
                           left_.judge(&given);
                           one->answers.push_back(std::move(given));
                           if (--outstanding_ == 0) {
                               then();
                           }
                       }});
        fetched_question &last = all.back();
        const auto limit = left_.limit_of(last.asked);
        last.in_time = limit.has_value();
        last.asked.limit = limit;
    }
    wanted_.clear();
    outstanding_ = all.size();
    for (fetched_question &one : all) {
        if (one.in_time) {
            asker.ask(one.asked, std::move(one.then));
        } else {
            one.then(dns_sources::answer_of_status(dns_sources::status_deadline));
        }
    }
}

void answers_so_far::begin_again() {
    for (auto &[key, known] : asked_) {
        known.next = 0;
    }
}

void answers_so_far::rewind() {
    wanted_.clear();
    for (auto &[key, known] : asked_) {
        known.wanted = false;
    }
    begin_again();
}

} // namespace quillfence::decision
