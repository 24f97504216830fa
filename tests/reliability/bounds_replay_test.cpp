// Whole runs with the longest arguments, and with configurations and answers that have no end.
#include "cost.h"
#include "engine_test.h"
#include "owned_rule.h"
#include "run.h"
#include "step_budget.h"
#include "vc_file.h"

namespace quillfence::testing {
namespace {

class bounds_replay : public engine_test {
  protected:
    bounds_replay() {
        for (const client &who : clients) { // what is looked for once in the life of the process
            vc_json_free(replay(who));
            decide(who);
        }
        dns_script::asked();
    }
    preparation written(const char *path) {
        return [this, path](const std::string &input) { drive.write(path, input); };
    }
};

// Both flavours of a run. Some refuse what they get.
void run(const client &who) {
    vc_json_free(replay(who));
    decide(who);
    dns_script::asked();
}

void run_with_texts(const std::string &text) {
    run({"", "192.0.2.1", text.c_str(), text.c_str(), text.c_str()});
}
void run_with_address(const std::string &text) {
    run({"", text.c_str(), "mail.good.example", "a@good.example", "b@here.example"});
}

constexpr char letters[] = "a";
constexpr char dots[] = ".";
constexpr char labels[] = "a.";
constexpr char at_signs[] = "@";
constexpr char blanks[] = " ";
constexpr char comments[] = "()";
constexpr char open_comments[] = "(";
constexpr char quotes[] = "\"";
constexpr char phrases[] = "\"a\"";
constexpr char brackets[] = "<";
constexpr char backslashes[] = "\\";
constexpr char percent_signs[] = "%s";
constexpr char macros[] = "%IP%";
constexpr char colons[] = ":";
constexpr char digits[] = "1.";
constexpr char high_bytes[] = "\xFF";

std::string long_user(size_t size) {
    return rows_of(size, "a", "", "@good.example");
}
std::string long_domain(size_t size) {
    return rows_of(size, "a.", "a@", "example");
}
std::string bracketed(size_t size) {
    return rows_of(size, "()", "<a@good.example>", "");
}

// Values whose macros bring further macros along. Uncut, the first three make 6.6 GB.
TEST_F(bounds_replay, a_notice_is_small_work_whatever_a_client_sends) {
    const std::string large(65535, 'x');
    const auto many = [](const char *macro, size_t size) { return rows_of(size, macro); };
    const struct {
        const char *name;
        std::string rejection, helo, from, rcpt;
    } cases[] = {
        {"macros in macros", "%HELO%", many("%FROM%", 1000), many("%RCPT%", 1000),
         many("%TO%", 1000)},
        {"as large as they come", "%HELO%", many("%FROM%", 65535), many("%RCPT%", 65535),
         many("%TO%", 65535)},
        {"plain, everywhere", many("%HELO%%FROM%%RCPT%%TO%", 65535), large, large, large},
        {"macros into nothing", many("%HELO%%FROM%%RCPT%%TO%", 65535), "", "", ""},
        {"macros that form macros", "%HELO%" + many("LO%", 65535), "%HE", "", ""},
        {"a template of 1 MB", many("%HELO%%FROM%", 1000000), many("%FROM%", 65535),
         many("%RCPT%", 65535), large},
        {"a value of 100 KB", "%HELO%", many("%FROM%", 100000), many("%RCPT%", 100000),
         many("%TO%", 100000)},
    };
    for (const auto &c : cases) {
        const session state("192.0.2.1");
        session::put(&state->helo, c.helo.c_str());
        session::put(&state->mail_from, c.from.c_str());
        session::put(&state->rcpt_to, c.rcpt.c_str());
        const owned_rule rule = plain_rule("some_rule", c.rejection.c_str());
        char *notice = nullptr;
        const cost spent =
            cost_of([&] { notice = build_rejection_notice(rule.get(), state, nullptr); });
        EXPECT_NE(notice, nullptr) << c.name;
        EXPECT_LE(spent.bytes, 1U << 20) << c.name;
        EXPECT_LE(spent.allocations, 8U) << c.name;
        EXPECT_LE(spent.steps, 4000000U) << c.name;
        EXPECT_GT(spent.steps, 1000U) << c.name;
        free(notice);
    }
}

// An argument has at most 128 KiB on Linux, and a command line 32 KiB on Windows.
TEST_F(bounds_replay, the_longest_arguments_cost_as_much_as_they_are_long) {
    static constexpr growing_input rows[] = {
        {"letters", row<letters>, run_with_texts, 1000, 100, every_byte},
        {"dots", row<dots>, run_with_texts, 1000, 100, every_byte},
        {"labels", row<labels>, run_with_texts, 1000, 100, every_byte},
        {"at signs", row<at_signs>, run_with_texts, 1000, 100, every_byte},
        {"blanks", row<blanks>, run_with_texts, 1000, 100, every_byte},
        {"comments", row<comments>, run_with_texts, 1000, 100, every_byte},
        {"open comments", row<open_comments>, run_with_texts, 1000, 100, every_byte},
        {"quotes", row<quotes>, run_with_texts, 1000, 100, every_byte},
        {"phrases", row<phrases>, run_with_texts, 1000, 100, every_byte},
        {"brackets", row<brackets>, run_with_texts, 1000, 100, every_byte},
        {"backslashes", row<backslashes>, run_with_texts, 1000, 100, every_byte},
        {"percent signs", row<percent_signs>, run_with_texts, 1000, 100, every_byte},
        {"macros", row<macros>, run_with_texts, 1000, 100, every_byte},
        {"bytes above ASCII", row<high_bytes>, run_with_texts, 1000, 100, every_byte},
        {"a user", long_user, run_with_texts, 1000, 100, every_byte},
        {"a domain", long_domain, run_with_texts, 1000, 100, every_byte},
        {"comments behind an address", bracketed, run_with_texts, 1000, 100, every_byte},
        {"an address of letters", row<letters>, run_with_address, 1000, 100, every_byte},
        {"an address of colons", row<colons>, run_with_address, 1000, 100, every_byte},
        {"an address of digits", row<digits>, run_with_address, 1000, 100, every_byte},
    };
    for (const growing_input &input : rows) {
        expect_in_step(input, 60'000);
        log.take(); // what is no address is told
    }
}

constexpr char rule_names[] = "require_helo\n";
constexpr char no_names[] = "\n";
constexpr char map_names[] = "one\n";
constexpr char list_lines[] = "*@other.example\n";
constexpr char forgeries[] = "other.example:192.0.2.1\n";

void run_good_client(const std::string &) {
    run(clients[0]);
}
void run_listed_client(const std::string &) {
    run(clients[4]);
}

TEST_F(bounds_replay, a_configuration_costs_as_much_as_it_is_long) {
    static const struct {
        const char *path;
        growing_input input;
    } cases[] = {
        {"c:/quillfence/control/rules.enabled",
         {"enabled rules", row<rule_names>, run_good_client, 1000, 100, every_byte}},
        {"c:/quillfence/control/rules.enabled",
         {"enabled rules without names", row<no_names>, run_good_client, 1000, 100, every_byte}},
        {"c:/quillfence/bms/lists_to_update",
         {"block maps that hit", row<map_names>, run_listed_client, 1000, 200, every_byte}},
        {"c:/quillfence/control/bms.enabled",
         {"enabled block maps", row<map_names>, run_good_client, 1000, 200, every_byte}},
        {"c:/quillfence/from_whitelist",
         {"a whitelist", row<list_lines>, run_good_client, 1000, 100, every_byte}},
        {"c:/quillfence/control/valid_domain_ips",
         {"sender forgery", row<forgeries>, run_good_client, 1000, 100, every_byte}},
    };
    for (const auto &c : cases) {
        const std::string before = drive.read(c.path);
        expect_in_step(c.input, 8'000, written(c.path));
        drive.write(c.path, before);
        log.take();
    }
}

// Each name is looked up in the pattern files, by up to nine lookups in a report and a decision.
TEST_F(bounds_replay, the_names_of_a_client_cost_as_much_as_there_are) {
    constexpr uint64_t lookups = 9 * (96 * 1024 + 4096);
    static const char *names[] = {"dyn1-192-0-2-1.pool.example", "mail.good.example",
                                  "not a domain", "1-2-3-4"};
    for (const char *name : names) {
        const growing_input input = {name,   row<letters>, run_good_client,
                                     30'000, lookups,      every_byte};
        expect_in_step(input, 50, [&](const std::string &text) {
            dns.ptr("1.2.0.192.in-addr.arpa.", lines(text.size(), name));
        });
    }
}

// As many as fit into one answer over TCP. None of them is looked up.
TEST_F(bounds_replay, thousands_of_names_cost_less_than_a_hundred) {
    dns.ptr("1.2.0.192.in-addr.arpa.", lines(100, "dyn1.good.example"));
    const cost hundred = cost_of([] { run(clients[0]); });
    dns.ptr("1.2.0.192.in-addr.arpa.", lines(3'600, "dyn1.good.example"));
    const cost thousands = cost_of([] { run(clients[0]); });
    EXPECT_LT(thousands.calls, hundred.calls - 3 * 100 * 2);
    EXPECT_LT(thousands.steps, 3'600U * 1000);
}

// A pattern that looks innocent, and the name that makes it take all steps that it gets.
TEST_F(bounds_replay, the_patterns_of_a_run_take_the_run_s_steps_and_no_more) {
    constexpr uint64_t given = 1'000'000;
    std::string bytes = drive.read(dyna_regex_file).substr(0, 4);
    write_patterns(dyna_regex_file, "[0-9]+[0-9]+[0-9]+x");
    const std::string block = drive.read(dyna_regex_file).substr(4);
    for (int i = 0; i < 20; ++i) {
        bytes += block;
    }
    for (const char *path : {dyna_regex_file, spam_regex_file, confirmed_regex_file}) {
        drive.write(path, bytes);
    }
    dns.ptr("1.2.0.192.in-addr.arpa.", lines(100, std::string(255, '1')));
    const cost spent = cost_of([] {
        const step_scope steps(given);
        run(clients[0]);
    });
    // The report's; in the decision another rule hits first.
    EXPECT_EQ(log.errors(), (lines{std::string("dyna_regex_hook: ") + ptr_steps_spent_line,
                                   std::string("spam_regex_hook: ") + ptr_steps_spent_line,
                                   std::string("confirmed_regex_hook: ") + ptr_steps_spent_line}));
    EXPECT_LE(spent.steps, 60 * given + 1'000'000);
}

} // namespace
} // namespace quillfence::testing
