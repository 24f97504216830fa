#include "guard_source.h"

namespace quillfence::dns_sources {

namespace {

// One to three digits of at most 255, as they stand in front of a block list's zone.
bool is_octet(std::string_view label) {
    if (label.empty() || label.size() > 3) {
        return false;
    }
    int number = 0;
    for (const char c : label) {
        if (c < '0' || c > '9') {
            return false;
        }
        number = number * 10 + (c - '0');
    }
    return number < 256;
}

bool is_listing(const record &one) {
    return one.text.starts_with("A 127.") && !one.text.starts_with("A 127.255.255.");
}

// Aliases lead to addresses and say nothing themselves.
bool lists_somebody(const std::vector<record> &records) {
    bool any = false;
    for (const record &one : records) {
        if (one.type != platform::dns_type_cname) {
            any = true;
            if (!is_listing(one)) {
                return false;
            }
        }
    }
    return any;
}

} // namespace

std::string block_list_zone(std::string_view name) {
    constexpr int octets = 4;
    for (int i = 0; i < octets; ++i) {
        const size_t dot = name.find('.');
        if (dot == std::string_view::npos || !is_octet(name.substr(0, dot))) {
            return "";
        }
        name.remove_prefix(dot + 1);
    }
    return name_key(name);
}

answer_guard::answer_guard(const std::vector<std::string> &block_lists, guard_choice choice)
    : choice_(choice) {
    for (const std::string &zone : block_lists) {
        zones_.insert(name_key(zone));
    }
}

bool answer_guard::asks_block_list(const question &asked) const {
    return (asked.type == platform::dns_type_a || asked.type == platform::dns_type_aaaa) &&
           zones_.contains(block_list_zone(asked.name));
}

void answer_guard::check(const question &asked, answer *got) const {
    if (choice_.refusals && got->status == platform::dns_status_refused) {
        got->status = status_refusal;
        ++refusals_;
    } else if (choice_.block_lists && got->status == 0 && asks_block_list(asked) &&
               !lists_somebody(got->records)) {
        got->status = status_no_listing;
        ++no_listings_;
    }
}

answer guard_source::ask(const question &asked) {
    answer got = next_.ask(asked);
    guard_.check(asked, &got);
    return got;
}

} // namespace quillfence::dns_sources
