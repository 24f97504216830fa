#include "answers_so_far.h"

#include <mutex>
#include <optional>
#include <utility>

#include "vc_dns.h"

namespace quillfence::decision {

using dns_sources::answer;
using dns_sources::question;

// What the engine takes for an answer stays one; a failure is asked again.
static bool is_final(const answer &given) {
    return vc_dns_code(given.status) != vc_dns_failed;
}

// An answer that was asked for before the fetch() that is to bring it.
class answers_so_far::early_answer {
  public:
    // On any thread.
    void come(answer got) {
        dns_sources::asker::listener told;
        {
            const std::lock_guard guard(lock_);
            if (!then_) {
                got_ = std::move(got);
                return;
            }
            told = std::move(then_);
        }
        told(std::move(got));
    }
    // Nothing when it has not come.
    std::optional<answer> take() {
        const std::lock_guard guard(lock_);
        return std::exchange(got_, std::nullopt);
    }
    // When it has come, or when it does.
    void tell(dns_sources::asker::listener then) {
        std::optional<answer> got;
        {
            const std::lock_guard guard(lock_);
            if (!got_) {
                then_ = std::move(then);
                return;
            }
            got = std::exchange(got_, std::nullopt);
        }
        then(std::move(*got));
    }

  private:
    std::mutex lock_; // of what follows
    std::optional<answer> got_;
    dns_sources::asker::listener then_;
};

// Asks, and waits a little. Whether the answer has come.
bool answers_so_far::comes_soon(asked_question *one) {
    constexpr int most_waits = 8; // other answers and parts of this one can come before it
    question asked = one->question;
    asked.limit = left_.limit_of(asked);
    if (!asked.limit) {
        return false;
    }
    one->answers.reserve(one->answers.size() + 1);
    const auto early = std::make_shared<early_answer>();
    early_asker_->ask(asked, [early](answer got) { early->come(std::move(got)); });
    std::optional<answer> got = early->take();
    for (int i = 0; !got && i < most_waits && (*waits_)(); ++i) {
        got = early->take();
    }
    if (!got) {
        one->early = early;
        waits_ = nullptr;
        return false;
    }
    left_.judge(&*got);
    one->answers.push_back(std::move(*got));
    return true;
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
        if (waits_ && comes_soon(&known)) {
            wanted_.pop_back();
            known.wanted = false;
            return known.answers[known.next++];
        }
    }
    return dns_sources::answer_of_status(dns_sources::status_missing);
}

struct answers_so_far::fetched_question {
    question asked;
    bool in_time;
    dns_sources::asker::listener then;
    std::shared_ptr<early_answer> early; // null: it has to be asked for
};

void answers_so_far::fetch(dns_sources::asker &asker, const std::function<void()> &then) {
    std::vector<fetched_question> all;
    for (asked_question *const one : wanted_) {
        one->answers.reserve(one->answers.size() + 1);
        all.push_back({one->question, true,
                       [this, one, then](answer given) {
                           left_.judge(&given);
                           one->answers.push_back(std::move(given));
                           if (--outstanding_ == 0) {
                               then();
                           }
                       },
                       std::move(one->early)});
        fetched_question &last = all.back();
        const auto limit = left_.limit_of(last.asked);
        last.in_time = limit.has_value();
        last.asked.limit = limit;
    }
    wanted_.clear();
    outstanding_ = all.size();
    for (fetched_question &one : all) {
        if (one.early) {
            one.early->tell(std::move(one.then));
        } else if (one.in_time) {
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
