// Records of all kinds, made of random numbers: every member there and absent, every source, odd
// texts. A record depends on its seed alone, on both builds.
#pragma once

#include <random>

#include "decision_record.h"

namespace quillfence::testing {

class random_record {
  public:
    // odd_texts: control characters, quotes, bytes that are not UTF-8, and NULs where they can be.
    random_record(uint32_t seed, bool odd_texts) : random_(seed), odd_texts_(odd_texts) {}

    decision::decision_record make() {
        decision::decision_record r;
        r.id = text();
        r.time = some() ? "2026-11-22T04:51:13.123Z" : "";
        r.engine = {"1.0.0", "linux-x86_64"};
        r.config = configuration();
        r.transaction = transaction();
        r.extra = extra();
        r.facts = {some(), some(),  some(),
                   some(), texts(), some() ? std::optional(below(1000)) : std::nullopt};
        r.decision = the_decision();
        if (some()) {
            r.report = report();
        }
        repeat(4, [&] { r.rules.push_back(rule()); });
        repeat(2, [&] { r.block_maps.push_back(block_map()); });
        repeat(2, [&] { r.dns_block_lists.push_back(dns_block_list()); });
        repeat(3, [&] { r.dns.push_back(dns()); });
        repeat(2, [&] { r.missing.push_back(missing()); });
        repeat(2, [&] { r.notes.push_back({some() ? "info" : "warning", text()}); });
        repeat(2, [&] { r.errors.push_back({"vc_file", "vc_open", text()}); });
        return r;
    }

    uint32_t below(uint32_t limit) {
        return static_cast<uint32_t>(random_() % limit);
    }
    bool some() {
        return below(2);
    }

    // May be empty; never with a NUL, as the engine's texts end there.
    std::string text() {
        static const char *const odd[] = {
            "\"",   "\\",   "/",        "\n",           "\x01",
            "\x7f", "\xff", "\xc3\xa4", "\xed\xa0\x80", "\xf0\x9f\x90\x9e",
            "\xc3", "<b>"};
        std::string made;
        repeat(8, [&] {
            made += odd_texts_ && !below(4) ? odd[below(std::size(odd))]
                                            : std::string(1, static_cast<char>('a' + below(26)));
        });
        return made;
    }
    std::string some_text() {
        return text() + "x";
    }

    decision::transaction transaction() {
        decision::transaction t;
        t.stage = some() ? "RCPT" : "MAIL";
        t.ip = maybe(text());
        t.port = maybe(text());
        t.tls = some() ? std::optional(some()) : std::nullopt;
        t.authuser = maybe(text());
        t.mua = some() ? std::optional(some()) : std::nullopt;
        t.helo = maybe(text());
        t.sender = maybe(text());
        t.recipient = maybe(text());
        return t;
    }

    decision::source source() {
        using namespace decision;
        switch (below(11)) {
        case 1:
            return list_source{text(), number(), text(), some() ? "wildcard" : "whole text"};
        case 2:
            return range_source{text(), number(), text(), text(), text()};
        case 3:
            return expression_source{text(), number(), text(), text(), number()};
        case 4:
            return block_map_source{text(), 1 + below(3), text()};
        case 5:
            return sender_network_source{text(), number(), text()};
        case 6:
            return registry_source{text(), text()};
        case 7:
            return folder_source{text(), text()};
        case 8:
            return address_map_source{text()};
        case 9:
            return built_in_source{text(), text()};
        case 10:
            return file_source{text(), number()};
        default:
            return {};
        }
    }

    decision::rule_record rule() {
        decision::rule_record r;
        r.n = 1 + below(31);
        r.rule = some_text();
        r.decision = any_outcome();
        if (some()) {
            r.report = any_outcome();
        }
        if (!below(4)) {
            r.would = any_outcome();
        }
        r.kind = some() ? "mua" : "";
        r.reason = text();
        r.fact = some() ? "helo" : "";
        r.value = text();
        r.from = source();
        r.exempted_by = source();
        if (some()) {
            r.looked_at = number();
            r.us = number();
        }
        repeat(2, [&] { r.names.push_back({text(), source(), source()}); });
        repeat(2, [&] { r.near_misses.push_back({"parent_domain", text(), source()}); });
        repeat(3, [&] { r.dns.push_back(number()); });
        return r;
    }

  private:
    template <class Function>
    void repeat(uint32_t most, Function function) {
        for (uint32_t n = below(most + 1); n; --n) {
            function();
        }
    }
    uint32_t number() {
        return some() ? below(100) : static_cast<uint32_t>(random_());
    }
    std::optional<std::string> maybe(std::string value) {
        return some() ? std::optional(std::move(value)) : std::nullopt;
    }
    std::vector<std::string> texts() {
        std::vector<std::string> made;
        // A DNS answer may hold a NUL.
        repeat(3,
               [&] { made.push_back(odd_texts_ && !below(5) ? std::string("a\0b", 3) : text()); });
        return made;
    }
    decision::outcome any_outcome() {
        return static_cast<decision::outcome>(below(9));
    }
    decision::configuration configuration() {
        decision::configuration c;
        c.base = text();
        c.user_dir = text();
        c.revision = some() ? "sha256:" + std::string(64, 'a') : "";
        repeat(3, [&] {
            decision::config_file file;
            file.path = text();
            file.missing = some();
            if (some()) {
                file.bytes = (uint64_t{number()} << 20) + below(1000);
            }
            file.sha256 = some() ? std::string(64, '0') : "";
            file.time = some() ? "2026-11-22T04:51:13Z" : "";
            c.files.push_back(std::move(file));
        });
        return c;
    }
    std::vector<decision::extra_member> extra() {
        static const char *const values[] = {"null",          "-1.5e3", "\"\\u00e4\\n\"",
                                             "{\"a\":[1,2]}", "[]",     "[{},\"x, y\"]"};
        std::vector<decision::extra_member> made;
        repeat(3, [&] {
            const std::string name =
                "x-" + std::to_string(made.size()) + (odd_texts_ ? "\"\n" : "");
            made.emplace_back(name, values[below(std::size(values))]);
        });
        return made;
    }
    decision::decision the_decision() {
        decision::decision d;
        d.is = static_cast<decision::verdict>(below(3));
        d.by = static_cast<decision::decided_by>(below(8));
        d.rule = text();
        d.where = some() ? "base" : "";
        d.maps = texts();
        d.zone = text();
        d.hit_name = text();
        d.notice = text();
        return d;
    }
    decision::report report() {
        if (!below(4)) {
            return {some_text(), {}, {}};
        }
        return {"", texts(), texts()};
    }
    decision::block_map_record block_map() {
        return {text(), any_outcome(), text(), below(4), some()};
    }
    decision::dns_block_list_record dns_block_list() {
        decision::dns_block_list_record l;
        l.zone = text();
        l.is = any_outcome();
        if (some()) {
            l.answer = static_cast<decision::block_list_answer>(below(5));
        }
        l.records = texts();
        repeat(2, [&] { l.dns.push_back(number()); });
        return l;
    }
    decision::dns_record dns() {
        decision::dns_record d;
        d.n = number();
        d.name = text();
        d.type = "PTR";
        d.transport = some() ? "tcp" : "";
        d.server = text();
        d.status = number();
        d.rcode = some() ? "NXDOMAIN" : "";
        d.is = static_cast<decision::answer_class>(below(4));
        d.records = texts();
        d.attempt = 1 + below(3);
        if (some()) {
            d.tries = below(4);
            d.ms = below(1'000'000) / 1000.0;
        }
        d.used_by = texts();
        return d;
    }
    decision::missing_item missing() {
        return some() ? decision::missing_item{"dns", text(), "MX", ""}
                      : decision::missing_item{"fact", "", "", "helo"};
    }

    std::mt19937 random_;
    const bool odd_texts_;
};

} // namespace quillfence::testing
