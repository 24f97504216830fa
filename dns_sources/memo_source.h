// Remembers the answers of a run. What was found, and what does not exist, is asked once; a failure
// is asked again whenever the engine asks again. It knows no lifetimes: for the run of one program,
// not for a service.
//
// A remembered answer is told with no tries and no time, since no question was sent.
#pragma once

#include <map>
#include <mutex>
#include <unordered_map>

#include "source.h"

namespace quillfence::dns_sources {

struct memo_choice {
    // A zone whose servers failed three times without an answer in between is left alone for the
    // rest of the run: questions get the last failure's status. For runs of many transactions. A
    // silence within a limit of less than 3 seconds says nothing about the servers.
    bool leaves_zones_alone = false;
    // About the memory that the answers may take. When it is full, those that were not asked for
    // since it was half full are forgotten.
    size_t bytes = size_t{64} << 20;
};

class memo_source : public source {
  public:
    // Borrows the source that is asked for the rest.
    explicit memo_source(source &next, memo_choice choice = {});

    answer ask(const question &asked) override;
    // The answer that ask() would give without asking anybody; nothing when there is none.
    std::optional<answer> known(const question &asked);
    // An answer that somebody else has fetched.
    void learn(const question &asked, const answer &got);

    // The zones that are left alone, sorted.
    std::vector<std::string> zones_left_alone() const;

  private:
    struct failures {
        unsigned count = 0;
        uint32_t status = 0; // of the last one
    };
    using answers = std::unordered_map<std::string, answer>;

    std::string watched_zone(const question &asked) const; // "" for none
    std::optional<answer> known(const std::string &key, const std::string &zone);
    std::optional<answer> remembered(const std::string &key);
    std::optional<uint32_t> reason_to_leave(const std::string &zone) const;
    void learn(const std::string &key, const std::string &zone, const question &asked,
               const answer &got);
    void keep(const std::string &key, const answer &got);
    void count(const std::string &zone, const question &asked, const answer &got);

    source &next_;
    const memo_choice choice_;
    mutable std::mutex lock_; // of what follows
    answers young_;
    answers old_;
    size_t young_bytes_ = 0;
    std::map<std::string, failures> zones_;
};

// The zone whose servers a question is about, as far as a name tells: a block list's; of a reverse
// name that of the /24 or /64; else the name itself. In the form of name_key.
std::string zone_of(std::string_view name);

} // namespace quillfence::dns_sources
