// The sums over the records of a log. The memory they take is bounded, whatever comes.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "log_record.h"
#include "top_table.h"

namespace quillfence::decision {

struct verdict_counts {
    std::array<uint64_t, 3> of{}; // by the verdict's number
    uint64_t all() const {
        return of[0] + of[1] + of[2];
    }
};

// How long questions took, as far as that is known.
struct question_times {
    uint64_t count = 0;
    double sum = 0;
    double longest = 0;
    void add(double ms);
};

// What a DNS block list said. A question that was refused, by the server or by the list's own
// answer for that (127.255.255.x), is counted as refused and as nothing else.
struct list_health {
    uint64_t asked = 0;
    uint64_t listed = 0;
    uint64_t not_listed = 0;
    uint64_t refused = 0;
    uint64_t no_listing = 0; // an answer that lists nobody
    uint64_t failed = 0;
    question_times times;
};

// What the DNS said to one type of question: each attempt counts.
struct question_health {
    uint64_t asked = 0;
    uint64_t found = 0;
    uint64_t no_name = 0;
    uint64_t refused = 0;
    uint64_t failed = 0;
    question_times times;
};

class log_tally {
  public:
    static constexpr size_t most_days = 366; // the newest ones
    static constexpr size_t most_hours = 24; // likewise
    static constexpr size_t most_zones = 1000;
    static constexpr size_t most_words = 1000; // of rules, and of types

    void add(const log_record &record);

    const verdict_counts &all() const {
        return all_;
    }
    // The moments of the oldest and the newest record that has one; nothing without any.
    std::optional<int64_t> oldest() const {
        return oldest_;
    }
    std::optional<int64_t> newest() const {
        return newest_;
    }
    uint64_t answers(log_answer which) const {
        return answers_[static_cast<size_t>(which)];
    }
    // By "reject by from_blacklist".
    const std::map<std::string, uint64_t> &decisions() const {
        return decisions_;
    }
    // By the moment of their beginning.
    const std::map<int64_t, verdict_counts> &days() const {
        return days_;
    }
    const std::map<int64_t, verdict_counts> &hours() const {
        return hours_;
    }
    const top_table &clients() const {
        return clients_;
    }
    const top_table &senders() const {
        return senders_;
    }
    const top_table &domains() const { // of the senders
        return domains_;
    }
    const std::map<std::string, list_health> &lists() const {
        return lists_;
    }
    const std::map<std::string, question_health> &questions() const {
        return questions_;
    }

  private:
    void add_time(const log_record &record);
    void add_people(const log_record &record);
    void add_list(const log_record &record, const dns_block_list_record &list);
    void add_question(const dns_record &question);

    verdict_counts all_;
    std::optional<int64_t> oldest_;
    std::optional<int64_t> newest_;
    std::array<uint64_t, 6> answers_{};
    std::map<std::string, uint64_t> decisions_;
    std::map<int64_t, verdict_counts> days_;
    std::map<int64_t, verdict_counts> hours_;
    top_table clients_;
    top_table senders_;
    top_table domains_;
    std::map<std::string, list_health> lists_;
    std::map<std::string, question_health> questions_;
};

} // namespace quillfence::decision
