// A source that says what a test tells it to, and keeps what it was asked.
#pragma once

#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "source.h"
#include "words.h"

namespace quillfence::dns_sources {

// For messages of tests.
inline std::ostream &operator<<(std::ostream &out, const answer &got) {
    out << "status " << got.status << " said " << got.said;
    if (got.response_code) {
        out << " code " << *got.response_code;
    }
    for (const record &one : got.records) {
        out << " [" << one.text << "]";
    }
    return out << " tries " << got.tries
               << (got.missing_name.empty() ? "" : " missing " + got.missing_name);
}

} // namespace quillfence::dns_sources

namespace quillfence::testing {

using dns_sources::answer;
using dns_sources::answer_of_server;
using dns_sources::answer_of_status;
using dns_sources::question;
using dns_sources::record;

constexpr uint16_t type_a = 1;
constexpr uint16_t type_cname = 5;
constexpr uint16_t type_ptr = 12;
constexpr uint16_t type_mx = 15;
constexpr uint16_t type_aaaa = 28;

constexpr uint32_t servfail = 9002;
constexpr uint32_t nxdomain = 9003;
constexpr uint32_t refused = 9005;
constexpr uint32_t no_records = 9501;
constexpr uint32_t timed_out = 1460;

class scripted_source : public dns_sources::source {
  public:
    explicit scripted_source(std::function<answer(const question &)> say) : say_(std::move(say)) {}
    // The same to every question.
    explicit scripted_source(answer always)
        : say_([always = std::move(always)](const question &) { return always; }) {}

    answer ask(const question &asked) override {
        {
            const std::lock_guard guard(lock_);
            asked_.push_back(asked.name + " " + dns_sources::type_word(asked.type));
            last_ = asked;
        }
        return say_(asked);
    }
    // "NAME TYPE" of each question; forgotten here.
    std::vector<std::string> asked() {
        const std::lock_guard guard(lock_);
        std::vector<std::string> taken;
        taken.swap(asked_);
        return taken;
    }
    question last() {
        const std::lock_guard guard(lock_);
        return last_;
    }

  private:
    std::function<answer(const question &)> say_;
    std::mutex lock_;
    std::vector<std::string> asked_;
    question last_;
};

inline question ask_for(const std::string &name, uint16_t type = type_a) {
    return {name, type, 0, std::nullopt};
}

// A found answer with these texts, "A 192.0.2.1".
inline answer found(const std::vector<std::string> &texts) {
    std::vector<record> records;
    for (const std::string &text : texts) {
        records.push_back({*dns_sources::type_of_word(text.substr(0, text.find(' '))), text});
    }
    return answer_of_server(0, records);
}

using texts = std::vector<std::string>;

inline texts texts_of(const answer &got) {
    texts all;
    for (const record &one : got.records) {
        all.push_back(one.text);
    }
    return all;
}

} // namespace quillfence::testing
