// Answers that are none: a resolver in trouble must not stop all mail. They get statuses that the
// engine takes for failures; what the server said stands beside it.
#pragma once

#include <atomic>
#include <optional>
#include <set>
#include <utility>

#include "source.h"

namespace quillfence::dns_sources {

struct guard_choice {
    // The answer of a block list counts only when it has addresses and all of them are in
    // 127.0.0.0/8 and outside 127.255.255.0/24, in which lists say that they refuse to answer.
    bool block_lists = true;
    // REFUSED to any question, which the engine takes for "does not exist".
    bool refusals = true;
};

// What looks at the answers, for any number of sources, askers and threads at once.
class answer_guard {
  public:
    // block_lists are the zones of DNS block lists, with final dot or without.
    explicit answer_guard(const std::vector<std::string> &block_lists, guard_choice choice = {});

    // Makes the answer what the engine shall see.
    void check(const question &asked, answer *got) const;

    // How often the guard stepped in.
    uint64_t no_listings() const {
        return no_listings_;
    }
    uint64_t refusals() const {
        return refusals_;
    }

  private:
    bool asks_block_list(const question &asked) const;

    guard_choice choice_;
    std::set<std::string> zones_;
    mutable std::atomic<uint64_t> no_listings_ = 0;
    mutable std::atomic<uint64_t> refusals_ = 0;
};

class guard_source : public source {
  public:
    // Borrows the source and the guard.
    guard_source(source &next, const answer_guard &guard) : next_(next), guard_(guard) {}
    // Borrows the source; the guard is its own.
    guard_source(source &next, const std::vector<std::string> &block_lists,
                 guard_choice choice = {})
        : next_(next), own_(std::in_place, block_lists, choice), guard_(*own_) {}

    answer ask(const question &asked) override;

    uint64_t no_listings() const {
        return guard_.no_listings();
    }
    uint64_t refusals() const {
        return guard_.refusals();
    }

  private:
    source &next_;
    const std::optional<answer_guard> own_;
    const answer_guard &guard_;
};

// The zone of a name that begins with the four numbers of an address in reverse; "" for others. In
// the form of name_key.
std::string block_list_zone(std::string_view name);

} // namespace quillfence::dns_sources
