// Cases of all kinds, made of random numbers; of a seed alone, on both builds.
#pragma once

#include "case_file.h"
#include "random_record.h"
#include "vcspamrule.h"

namespace quillfence::testing {

class random_case {
  public:
    // odd_texts as of random_record.
    random_case(uint32_t seed, bool odd_texts) : random_(seed, odd_texts) {}

    decision::test_case make() {
        decision::test_case made;
        made.description = random_.text();
        made.captured = random_.some();
        made.record = made.captured ? random_.make() : short_record();
        make_answers(made.record.dns);
        if (!made.captured && random_.some()) {
            made.record.dns.clear();
            made.zonedata = zonedata();
        }
        made.server = server();
        made.expect = expect();
        return made;
    }

    uint32_t below(uint32_t limit) {
        return random_.below(limit);
    }

  private:
    template <class Function>
    void repeat(uint32_t most, Function function) {
        for (uint32_t n = below(most + 1); n; --n) {
            function();
        }
    }
    std::string one_of(std::initializer_list<const char *> words) {
        return words.begin()[below(static_cast<uint32_t>(words.size()))];
    }

    decision::decision_record short_record() {
        const decision::decision_record whole = random_.make();
        decision::decision_record made;
        made.id = whole.id;
        made.time = whole.time;
        made.config.user_dir = whole.config.user_dir;
        made.transaction = whole.transaction;
        made.extra = whole.extra;
        made.dns = whole.dns;
        return made;
    }

    // Answers that a source could have given.
    void make_answers(std::vector<decision::dns_record> &answers) {
        using decision::answer_class;
        for (decision::dns_record &one : answers) {
            one.type = one_of({"A", "AAAA", "MX", "PTR", "TYPE99"});
            one.transport = one_of({"", "udp", "tcp"});
            one.rcode = one_of({"", "NOERROR", "NXDOMAIN", "REFUSED", "RCODE11"});
            for (std::string &record : one.records) {
                record = one_of({"CNAME ", "A ", "TYPE1234 "}) + record;
            }
            one.status = one.is == answer_class::found     ? 0
                         : one.is == answer_class::no_name ? 9003
                                                           : 9002 + below(2);
        }
    }

    std::string domain(uint32_t number) {
        return one_of({"a", "B.c", "7.100.51.198.in-addr.arpa", "x\\\"y\\\\z"}) + "-" +
               std::to_string(number) + one_of({"", ".", ".example."});
    }
    decision::zone_entry zone_entry() {
        switch (below(6)) {
        case 0:
            return {"A", "192.0.2.1"};
        case 1:
            return {"MX", one_of({"10 mail.example", "mail.example.", "0 ."})};
        case 2:
            return {one_of({"PTR", "CNAME", "NS"}), domain(0)};
        case 3:
            return {"AAAA", "2001:db8::1"};
        default:
            return {one_of({"TXT", "SPF"}), valid_text()};
        }
    }
    // What a JSON text can hold.
    std::string valid_text() {
        return one_of({"", "v=spf1 -all", "a \"quote\"\n", "\xc3\xa4"});
    }
    std::vector<decision::zone_name> zonedata() {
        std::vector<decision::zone_name> made;
        repeat(4, [&] {
            decision::zone_name one;
            one.name = domain(static_cast<uint32_t>(made.size()));
            repeat(3, [&] { one.entries.push_back(zone_entry()); });
            if (one.entries.empty() || below(3) == 0) {
                const bool alone = one.entries.empty() && random_.some();
                one.entries.push_back({"", one_of({"TIMEOUT", "SERVFAIL", "REFUSED", "NODATA"})});
                if (alone) {
                    one.entries[0].data = "NXDOMAIN";
                }
            }
            if (below(8) == 0) {
                one.entries.clear();
            }
            made.push_back(std::move(one));
        });
        return made;
    }

    decision::registry_answer registry_value() {
        switch (below(4)) {
        case 0:
            return {random_.text(), random_.text(), "REG_SZ", random_.text(), false};
        case 1:
            return {random_.text(), random_.text(), "REG_DWORD", std::to_string(below(9)), false};
        case 2:
            return {random_.text(), random_.text(), "", "", random_.some()};
        default:
            return {random_.text(), std::nullopt, "", "", random_.some()};
        }
    }
    decision::server_answers server() {
        decision::server_answers made;
        repeat(3, [&] { made.registry.push_back(registry_value()); });
        repeat(2, [&] {
            const bool missing = random_.some();
            made.address_map.push_back({random_.text(), missing ? "" : random_.text(), missing});
        });
        repeat(2, [&] {
            decision::folder_answer folder{random_.text(), {}, random_.some()};
            if (!folder.missing) {
                repeat(3, [&] { folder.names.push_back(random_.text()); });
            }
            made.folders.push_back(std::move(folder));
        });
        return made;
    }

    template <class Make>
    void some_texts(std::vector<std::string> &texts, Make make) {
        if (random_.some()) {
            texts.push_back(make());
            repeat(2, [&] { texts.push_back(make()); });
        }
    }
    void some_set(std::optional<std::vector<std::string>> &texts) {
        if (random_.some()) {
            texts.emplace();
            repeat(2, [&] { texts->push_back(random_.text()); });
        }
    }
    std::string rule() {
        const auto rows = rule_rows();
        return rows[below(static_cast<uint32_t>(rows.size()))].name;
    }
    decision::expectation expect() {
        decision::expectation made;
        const auto text = [&] { return random_.text(); };
        const auto outcome = [&] { return one_of({"hit", "no_hit", "never", "hit_unreported"}); };
        some_texts(made.verdict, [&] { return one_of({"accept", "reject", "undecided"}); });
        some_texts(made.by, [&] { return one_of({"engine_off", "rbl", "nothing"}); });
        some_texts(made.rule, [&] { return random_.some() ? rule() : ""; });
        some_texts(made.where, [&] { return one_of({"base", "user", ""}); });
        some_texts(made.zone, text);
        some_texts(made.notice, text);
        some_texts(made.file, text);
        some_texts(made.entry, text);
        const auto rows = rule_rows();
        for (size_t i = below(8); random_.some() && i < rows.size(); i += 1 + below(9)) {
            some_texts(
                made.rules.emplace_back(rows[i].name, std::vector<std::string>{outcome()}).second,
                outcome);
        }
        some_set(made.maps);
        some_set(made.spam_hits);
        some_set(made.bms_hits);
        return made;
    }

    random_record random_;
};

} // namespace quillfence::testing
