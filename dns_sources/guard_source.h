// Answers that are none: a resolver in trouble must not stop all mail. They get statuses that the
// engine takes for failures; what the server said stands beside it.
#pragma once

#include <atomic>
#include <set>

#include "source.h"

namespace quillfence::dns_sources {

struct guard_choice {
    // The answer of a block list counts only when it has addresses and all of them are in
    // 127.0.0.0/8 and outside 127.255.255.0/24, in which lists say that they refuse to answer.
    bool block_lists = true;
    // REFUSED to any question, which the engine takes for "does not exist".
    bool refusals = true;
};

class answer_guard {
  public:
    // block_lists are the zones of DNS block lists, with final dot or without.
    explicit answer_guard(const std::vector<std::string> &block_lists, guard_choice choice = {});

    // Called by several threads at once.
    void check(const question &asked, answer *got);

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
    std::atomic<uint64_t> no_listings_ = 0;
    std::atomic<uint64_t> refusals_ = 0;
};

class guard_source : public source {
  public:
    // Borrows the source; the rest as above.
    guard_source(source &next, const std::vector<std::string> &block_lists,
                 guard_choice choice = {})
        : next_(next), guard_(block_lists, choice) {}

    answer ask(const question &asked) override;

    uint64_t no_listings() const {
        return guard_.no_listings();
    }
    uint64_t refusals() const {
        return guard_.refusals();
    }

  private:
    source &next_;
    answer_guard guard_;
};

// The zone of a name that begins with the four numbers of an address in reverse; "" for others. In
// the form of name_key.
std::string block_list_zone(std::string_view name);

} // namespace quillfence::dns_sources
