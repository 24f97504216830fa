#include "vc_dns.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "call_watch.h"
#include "dns_script.h"
#include "drive_c.h"
#include "evidence.h"
#include "failing_memory.h"
#include "platform/dns.h"
#include "platform/net.h"
#include "platform/process.h"
#include "vc_nulltermlist.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr uint16_t type_a = 1;
constexpr uint16_t type_cname = 5;
constexpr uint16_t type_ptr = 12;
constexpr uint16_t type_mx = 15;
constexpr uint16_t type_aaaa = 28;

constexpr uint32_t found = 0;
constexpr uint32_t servfail = 9002;
constexpr uint32_t nxdomain = 9003;
constexpr uint32_t refused = 9005;
constexpr uint32_t no_records = 9501;
constexpr uint32_t timed_out = 1460;

const std::string einval = std::strerror(EINVAL);
const std::string enomem = std::strerror(ENOMEM);

// The lines of one function, without its name, as "D text" and "E text".
lines lines_of(log_capture &log, const std::string &function) {
    lines kept;
    const std::string middle = " " + function + ": ";
    for (const std::string &line : log.transcript()) {
        if (line.compare(1, middle.size(), middle) == 0) {
            kept.push_back(line.substr(0, 2) + line.substr(1 + middle.size()));
        }
    }
    return kept;
}

// "name type" of every question, in order.
lines questions(dns_script &dns) {
    lines texts;
    for (const dns_question &question : dns.asked()) {
        texts.push_back(question.name + " " + std::to_string(question.type));
    }
    return texts;
}

// --- the context of the calling thread ---

// A source that has one answer to every question, and keeps what it was asked.
struct one_answer {
    uint32_t status = 0;
    const char *target = "from.the.source.example"; // of a PTR record
    lines asked;
    bool details_wanted = false;
    bool details_lack_memory = false;
    dns_source source{this, ask};

    static uint32_t ask(void *context, const char *name, uint16_t type, uint32_t options,
                        platform::dns_record **records, platform::dns_details *details) {
        const allocation_pause pause;
        auto *const self = static_cast<one_answer *>(context);
        self->asked.push_back(std::string(name) + " " + std::to_string(type) + " " +
                              std::to_string(options));
        self->details_wanted = details;
        *records = self->status ? nullptr : platform::dns_new_record(type, self->target);
        if (details) {
            details->status = self->status;
            details->response_code = 4;
            details->no_memory = self->details_lack_memory;
            platform::dns_details_add(details, type, "A 192.0.2.1");
        }
        return self->status;
    }
};

// What was told of each question, with what the details say.
struct told_questions {
    lines told;
    evidence_sink sink{};

    told_questions() {
        sink.context = this;
        sink.dns_answered = [](void *context, const auto *fact) noexcept {
            static_cast<told_questions *>(context)->told.push_back(
                std::string(fact->name) + " " + std::to_string(fact->type) + " attempt " +
                std::to_string(fact->attempt) + " status " + std::to_string(fact->status) +
                " code " + std::to_string(fact->code) + " rcode " +
                std::to_string(fact->details->response_code) + " said " +
                std::to_string(fact->details->status) +
                (fact->details->records ? std::string(" ") + fact->details->records->text : ""));
        };
    }
};

TEST(vc_dns_context, a_source_is_asked_in_place_of_the_system) {
    log_capture log;
    dns_script dns;
    one_answer answers;
    call_context context{.evidence = nullptr, .dns = &answers.source, .configuration = nullptr};
    char **names = nullptr;
    {
        const call_scope scope(&context);
        EXPECT_EQ(vc_resolv_WIN32("host.example.", type_mx, 0), 0);
        EXPECT_EQ(vc_lookup_reverse_dns(&names, "192.0.2.1", 1, 0), 0);
        EXPECT_FALSE(answers.details_wanted) << "nobody asks";
        ASSERT_NE(names, nullptr);
        EXPECT_STREQ(names[0], "from.the.source.example");
        answers.status = 9003;
        EXPECT_EQ(vc_has_a_or_mx("host.example", 1), 1);
    }
    vc_lstfree(&names, free);
    EXPECT_EQ(answers.asked,
              (lines{"host.example. 15 0", "1.2.0.192.in-addr.arpa. 12 2", "host.example. 1 2",
                     "host.example. 28 2", "host.example. 15 2"}));
    EXPECT_EQ(questions(dns), lines{});
    EXPECT_EQ(vc_resolv_WIN32("host.example.", type_mx, 0), 1) << "the context has gone";
    EXPECT_EQ(questions(dns), lines{"host.example. 15"});
}

TEST(vc_dns_context, every_question_is_told) {
    log_capture log;
    one_answer answers;
    told_questions told;
    call_context context{.evidence = &told.sink, .dns = &answers.source, .configuration = nullptr};
    const call_scope scope(&context);
    EXPECT_EQ(vc_resolv_A("host.example.", 0), 0);
    answers.status = 9005;
    EXPECT_EQ(vc_resolv_WIN32("host.example.", type_mx, 0), 1);
    answers.status = 9002;
    char **names = nullptr;
    EXPECT_EQ(vc_lookup_reverse_dns(&names, "192.0.2.1", 1, 0), 2);
    const std::string reverse = "1.2.0.192.in-addr.arpa. 12 attempt ";
    const std::string failed = " status 9002 code 2 rcode 4 said 9002 A 192.0.2.1";
    EXPECT_EQ(told.told,
              (lines{"host.example. 1 attempt 1 status 0 code 0 rcode 4 said 0 A 192.0.2.1",
                     "host.example. 15 attempt 1 status 9005 code 1 rcode 4 said 9005 A 192.0.2.1",
                     reverse + "1" + failed, reverse + "2" + failed, reverse + "3" + failed}));
}

TEST(vc_dns_context, the_system_is_asked_for_details_too) {
    log_capture log;
    dns_script dns;
    dns.ptr("1.2.0.192.in-addr.arpa.", {"Host.Example"});
    told_questions told;
    call_context context{.evidence = &told.sink, .dns = nullptr, .configuration = nullptr};
    const call_scope scope(&context);
    char **names = nullptr;
    EXPECT_EQ(vc_lookup_reverse_dns(&names, "192.0.2.1", 1, 0), 0);
    vc_lstfree(&names, free);
    EXPECT_EQ(told.told, lines{"1.2.0.192.in-addr.arpa. 12 attempt 1 status 0 code 0 rcode -1 "
                               "said 0 PTR Host.Example."});
}

TEST(vc_dns_context, a_lack_of_memory_is_told) {
    log_capture log;
    one_answer answers;
    lines failures;
    evidence_sink sink{};
    sink.context = &failures;
    sink.could_not_look = [](void *context, const auto *fact) noexcept {
        static_cast<lines *>(context)->push_back(std::string(fact->what) + " " +
                                                 std::to_string(fact->error) + " " + fact->reason);
    };
    call_context context{.evidence = &sink, .dns = &answers.source, .configuration = nullptr};
    const call_scope scope(&context);
    EXPECT_EQ(vc_resolv_WIN32("host.example.", type_a, 0), 0);
    EXPECT_EQ(failures, lines{});
    answers.status = 8;
    EXPECT_EQ(vc_resolv_WIN32("host.example.", type_a, 0), 2);
    EXPECT_EQ(failures, lines{"host.example. 8 no memory"});
    failures.clear();
    answers.status = 0;
    answers.details_lack_memory = true;
    EXPECT_EQ(vc_resolv_WIN32("host.example.", type_a, 0), 0) << "telling changes no result";
    EXPECT_EQ(failures, lines{"host.example. 8 no memory"});
}

// A sink without the slot is nobody who asks about the DNS; and without a context nothing is paid.
TEST(vc_dns_context, nothing_is_left_behind_and_nothing_is_paid) {
    log_capture log;
    dns_script dns;
    dns.answer("host.example.", type_a, 0, {{type_a, ""}, {type_cname, ""}});
    const unsigned long before = allocations_made();
    EXPECT_EQ(vc_resolv_WIN32("host.example.", type_a, 0), 0);
    const unsigned long plain = allocations_made() - before;
    EXPECT_EQ(plain, 0u);
    dns.asked();
    const long live = live_allocations();
    evidence_sink empty{};
    call_context context{.evidence = &empty, .dns = nullptr, .configuration = nullptr};
    {
        const call_scope scope(&context);
        EXPECT_EQ(vc_resolv_WIN32("host.example.", type_a, 0), 0);
    }
    dns.asked();
    EXPECT_EQ(live_allocations(), live);
}

// --- the nine statuses that mean "no such name", and the others ---

struct status_case {
    uint32_t status;
    int want;
};
constexpr status_case status_cases[] = {
    {0, 0},    {9003, 1}, {9005, 1}, {9008, 1}, {9010, 1}, {9601, 1},    {9602, 1}, {9606, 1},
    {9706, 1}, {9714, 1}, {9002, 2}, {9501, 2}, {1460, 2}, {9001, 2},    {9004, 2}, {9009, 2},
    {123, 2},  {9007, 2}, {9502, 2}, {8, 2},    {1, 2},    {9000 + 6, 2}};

TEST(vc_resolv_WIN32, status_to_code) {
    for (const auto &[status, want] : status_cases) {
        SCOPED_TRACE(status);
        log_capture log(true);
        dns_script dns;
        dns.answer("host.example.", type_mx, status, {{type_mx, ""}});
        EXPECT_EQ(vc_resolv_WIN32("host.example.", type_mx, 0), want);
        const std::string number = std::to_string(status);
        const std::string line[] = {"successful lookup [host.example.]",
                                    "received NXDOMAIN response [host.example.]",
                                    "error on lookup [host.example.] code: " + number};
        EXPECT_EQ(log.transcript(), lines{"D vc_resolv_WIN32: " + line[want]});
        EXPECT_EQ(questions(dns), lines{"host.example. 15"}) << "one question, no second try";
    }
}

TEST(vc_resolv_WIN32, no_other_status_says_no_such_name) {
    log_capture log;
    dns_script dns;
    std::vector<uint32_t> no_name;
    for (uint32_t status = 1; status < 12000; ++status) {
        dns.otherwise(status);
        const int code = vc_resolv_WIN32("host.example.", type_a, 0);
        if (code == 1) {
            no_name.push_back(status);
        } else {
            EXPECT_EQ(code, 2) << status;
        }
    }
    EXPECT_EQ(no_name,
              (std::vector<uint32_t>{9003, 9005, 9008, 9010, 9601, 9602, 9606, 9706, 9714}));
}

TEST(vc_resolv_WIN32, option_byte_means_tcp_only) {
    struct {
        uint8_t option;
        uint32_t want;
    } const cases[] = {{0, 0}, {1, 2}, {2, 2}, {255, 2}};
    for (const auto &[option, want] : cases) {
        SCOPED_TRACE(+option);
        dns_script dns;
        vc_resolv_WIN32("host.example.", type_a, option);
        const auto asked = dns.asked();
        ASSERT_EQ(asked.size(), 1u);
        EXPECT_EQ(asked[0].options, want);
    }
}

class vc_dns : public traced_test {
  protected:
    dns_script dns;
};

TEST_F(vc_dns, resolv_refuses_no_name) {
    EXPECT_EQ(vc_resolv_WIN32(nullptr, type_a, 0), -2);
    EXPECT_EQ(vc_resolv_WIN32("", type_a, 0), -2);
    EXPECT_EQ(log.transcript(),
              (lines{"E vc_resolv_WIN32: " + einval, "E vc_resolv_WIN32: " + einval}));
    EXPECT_EQ(questions(dns), lines{});
}

TEST_F(vc_dns, line_names_the_module) {
    vc_resolv_WIN32("", type_a, 0);
    const auto taken = log.take();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].source, "vc_dns");
}

// --- A, then AAAA ---

TEST_F(vc_dns, resolv_a_combines_two_questions) {
    struct {
        uint32_t a, aaaa;
        int want;
    } const cases[] = {
        {found, servfail, 0},        {nxdomain, found, 0},      {servfail, found, 0},
        {nxdomain, nxdomain, 1},     {refused, nxdomain, 1},    {servfail, timed_out, 2},
        {no_records, no_records, 2}, {nxdomain, no_records, 2}, {no_records, nxdomain, 2},
    };
    for (const auto &[a, aaaa, want] : cases) {
        SCOPED_TRACE(std::to_string(a) + " and " + std::to_string(aaaa));
        dns.answer("h.example.", type_a, a);
        dns.answer("h.example.", type_aaaa, aaaa);
        EXPECT_EQ(vc_resolv_A("h.example.", 1), want);
        EXPECT_EQ(questions(dns),
                  a == found ? lines{"h.example. 1"} : (lines{"h.example. 1", "h.example. 28"}));
    }
}

TEST_F(vc_dns, resolv_a_of_no_name_refuses_both_questions) {
    EXPECT_EQ(vc_resolv_A("", 0), -2);
    EXPECT_EQ(log.errors(), (lines{"vc_resolv_WIN32: " + einval, "vc_resolv_WIN32: " + einval}));
}

// --- address or mail exchanger ---

TEST_F(vc_dns, has_a_or_mx_combines_three_questions) {
    struct {
        const char *name;
        uint32_t a, aaaa, mx;
        int want;
    } const cases[] = {
        {"IPv4 address", found, servfail, servfail, 0},
        {"IPv6 address only", no_records, found, servfail, 0},
        {"mail exchanger only", no_records, no_records, found, 0},
        {"mail exchanger only, addresses said not to exist", nxdomain, nxdomain, found, 0},
        {"exists nowhere", nxdomain, nxdomain, nxdomain, 1},
        {"refused everywhere counts as non-existence", refused, refused, refused, 1},
        {"a name without these records", no_records, no_records, no_records, 2},
        {"a silent server", timed_out, timed_out, timed_out, 2},
        {"mail exchanger question fails", nxdomain, nxdomain, servfail, 2},
        {"address questions fail", servfail, servfail, nxdomain, 2},
        {"one address question fails", nxdomain, servfail, nxdomain, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        dns.answer("d.example.", type_a, c.a);
        dns.answer("d.example.", type_aaaa, c.aaaa);
        dns.answer("d.example.", type_mx, c.mx);
        EXPECT_EQ(vc_has_a_or_mx("d.example", 0), c.want);
    }
}

TEST_F(vc_dns, has_a_or_mx_lines_and_questions) {
    dns.answer("a.example.", type_a, found);
    EXPECT_EQ(vc_has_a_or_mx("a.example", 0), 0);
    EXPECT_EQ(lines_of(log, "vc_has_a_or_mx"), lines{"D domain [a.example] found A record"});
    EXPECT_EQ(questions(dns), lines{"a.example. 1"});

    dns.answer("six.example.", type_aaaa, found);
    EXPECT_EQ(vc_has_a_or_mx("six.example", 0), 0);
    EXPECT_EQ(lines_of(log, "vc_has_a_or_mx"), lines{"D domain [six.example] found A record"});
    EXPECT_EQ(questions(dns), (lines{"six.example. 1", "six.example. 28"}));

    EXPECT_EQ(vc_has_a_or_mx("none.example", 0), 1);
    EXPECT_EQ(lines_of(log, "vc_has_a_or_mx"),
              lines{"D domain [none.example] no A record found. Seeking MX"});
    EXPECT_EQ(questions(dns), (lines{"none.example. 1", "none.example. 28", "none.example. 15"}));
}

TEST_F(vc_dns, has_a_or_mx_asks_nothing_of_what_is_no_domain) {
    for (const char *domain : {"ab", "host", ".a.b", "a.b.", "1.2.3.4", "a..b", "a_b.example"}) {
        EXPECT_EQ(vc_has_a_or_mx(domain, 0), -1) << domain;
        EXPECT_EQ(lines_of(log, "vc_has_a_or_mx"),
                  lines{"D domain [" + std::string(domain) + "] flagged as invalid."});
    }
    EXPECT_EQ(vc_has_a_or_mx(nullptr, 0), -2);
    EXPECT_EQ(vc_has_a_or_mx("", 0), -2);
    EXPECT_EQ(lines_of(log, "vc_has_a_or_mx"), (lines{"E " + einval, "E " + einval}));
    EXPECT_EQ(questions(dns), lines{});
}

TEST_F(vc_dns, has_a_or_mx_without_memory) {
    int code = 0;
    const unsigned failed = sweep_allocations(
        [&] { code = vc_has_a_or_mx("d.example", 0); },
        [&](unsigned n) {
            EXPECT_EQ(code, 2) << n;
            EXPECT_EQ(log.errors(),
                      lines{"vc_has_a_or_mx: out of memory error resolving A/MX for d.example"});
            EXPECT_EQ(questions(dns), lines{});
        });
    EXPECT_EQ(failed, 1u);
    EXPECT_EQ(code, 1);
}

// --- reverse names ---

TEST_F(vc_dns, arpa_names) {
    struct {
        const char *address, *want;
    } const cases[] = {
        {"192.0.2.1", "1.2.0.192.in-addr.arpa."},
        {"255.254.1.0", "0.1.254.255.in-addr.arpa."},
        {"::1", "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.ip6.arpa."},
        {"2001:DB8::AbCd",
         "d.c.b.a.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa."},
    };
    for (const auto &[address, want] : cases) {
        char *out = strdup("an old name");
        EXPECT_EQ(vc_arpa(&out, address), 1);
        EXPECT_STREQ(out, want);
        EXPECT_EQ(lines_of(log, "vc_arpa"),
                  (lines{"D parameter [" + std::string(address) + "]",
                         "D [" + std::string(address) + "] converts to " + want}));
        free(out);
    }
}

TEST_F(vc_dns, arpa_of_no_address_keeps_the_old_name) {
    char *out = strdup("old");
    for (const char *address : {"", "1.2.3", "01.2.3.4", "1.2.3.4.", "host", "::g"}) {
        EXPECT_EQ(vc_arpa(&out, address), 0) << address;
        EXPECT_STREQ(out, "old");
        EXPECT_EQ(lines_of(log, "vc_arpa"),
                  (lines{"D parameter [" + std::string(address) + "]", "E Address is not an IP"}));
    }
    EXPECT_EQ(vc_arpa(&out, nullptr), 0);
    EXPECT_EQ(lines_of(log, "vc_arpa"), (lines{"D parameter [(null)]", "E Address is not an IP"}));
    EXPECT_EQ(vc_arpa(nullptr, "192.0.2.1"), 0);
    EXPECT_EQ(log.errors(), lines{"vc_arpa: " + einval});
    free(out);
}

TEST_F(vc_dns, arpa_without_memory_keeps_the_old_name) {
    char *out = strdup("old");
    int result = 0;
    const unsigned failed =
        sweep_allocations([&] { result = vc_arpa(&out, "192.0.2.1"); },
                          [&](unsigned n) {
                              EXPECT_EQ(result, 0) << n;
                              EXPECT_STREQ(out, "old");
                              EXPECT_EQ(log.errors(), lines{"vc_arpa: " + enomem});
                          });
    EXPECT_EQ(failed, 1u);
    EXPECT_STREQ(out, "1.2.0.192.in-addr.arpa.");
    free(out);
}

// --- PTR lookups ---

constexpr char client[] = "192.0.2.1";
constexpr char client_arpa[] = "1.2.0.192.in-addr.arpa.";

class vc_lookup_reverse_dns_test : public vc_dns {
  protected:
    ~vc_lookup_reverse_dns_test() override {
        vc_lstfree(&names, free);
    }
    int look_up(uint8_t first_only = 0) {
        return vc_lookup_reverse_dns(&names, client, 1, first_only);
    }
    lines found_names() const {
        lines texts;
        for (char **name = names; name && *name; ++name) {
            texts.push_back(*name);
        }
        return texts;
    }
    void put_old_name() {
        vc_lstcat(&names, strdup("old.example"));
    }
    char **names = nullptr;
};

TEST_F(vc_lookup_reverse_dns_test, all_names_in_order_with_their_case) {
    put_old_name();
    log.take();
    dns.ptr(client_arpa, {"Mail.Example", "b.example", "a.example"});
    EXPECT_EQ(look_up(), 0);
    EXPECT_EQ(found_names(), (lines{"Mail.Example", "b.example", "a.example"}));
    EXPECT_EQ(lines_of(log, "vc_lookup_reverse_dns"),
              (lines{"D Found a PTR result. Record data states: [Mail.Example]",
                     "D calculated number of characters to be 12",
                     "D Found a PTR result. Record data states: [b.example]",
                     "D calculated number of characters to be 9",
                     "D Found a PTR result. Record data states: [a.example]",
                     "D calculated number of characters to be 9"}));
    const auto asked = dns.asked();
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].name, client_arpa);
    EXPECT_EQ(asked[0].type, type_ptr);
    EXPECT_EQ(asked[0].options, 2u);
}

TEST_F(vc_lookup_reverse_dns_test, first_only_stops_after_one) {
    dns.ptr(client_arpa, {"one.example", "two.example"});
    EXPECT_EQ(look_up(1), 0);
    EXPECT_EQ(found_names(), lines{"one.example"});
}

TEST_F(vc_lookup_reverse_dns_test, aliases_and_empty_names_are_passed_over) {
    dns.answer(client_arpa, type_ptr, 0,
               {{type_cname, ""}, {type_ptr, ""}, {type_ptr, "late.example"}});
    EXPECT_EQ(look_up(1), 0);
    EXPECT_EQ(found_names(), lines{"late.example"});
}

TEST_F(vc_lookup_reverse_dns_test, answer_without_a_name) {
    put_old_name();
    const std::vector<std::vector<dns_script::record>> answers = {
        {}, {{type_cname, ""}}, {{type_cname, ""}, {type_cname, ""}}, {{type_ptr, ""}}};
    for (const auto &records : answers) {
        dns.answer(client_arpa, type_ptr, 0, records);
        EXPECT_EQ(look_up(), -1);
        EXPECT_EQ(found_names(), lines{"old.example"});
        EXPECT_EQ(questions(dns).size(), 1u) << "an answer is not asked for again";
    }
}

TEST_F(vc_lookup_reverse_dns_test, name_is_cut_at_1023_bytes) {
    dns.ptr(client_arpa, {std::string(1023, 'x'), std::string(1024, 'y'), std::string(5000, 'z')});
    EXPECT_EQ(look_up(), 0);
    EXPECT_EQ(found_names(),
              (lines{std::string(1023, 'x'), std::string(1023, 'y'), std::string(1023, 'z')}));
}

TEST_F(vc_lookup_reverse_dns_test, two_hundred_names) {
    lines many;
    for (int i = 0; i < 200; ++i) {
        many.push_back("host-" + std::to_string(i) + ".example");
    }
    dns.ptr(client_arpa, many);
    EXPECT_EQ(look_up(), 0);
    EXPECT_EQ(found_names(), many);
}

TEST_F(vc_lookup_reverse_dns_test, status_to_code_and_attempts) {
    put_old_name();
    for (const auto &[status, want] : status_cases) {
        if (status == found) {
            continue;
        }
        SCOPED_TRACE(status);
        log.take();
        dns.answer(client_arpa, type_ptr, status);
        EXPECT_EQ(look_up(), want);
        EXPECT_EQ(questions(dns).size(), want == 1 ? 1u : 3u);
        EXPECT_EQ(lines_of(log, "vc_lookup_reverse_dns"),
                  want == 1 ? lines{"D [192.0.2.1] lookup result NXDOMAIN"}
                            : lines{"D [192.0.2.1] " + std::string(std::strerror(103))});
        EXPECT_EQ(found_names(), lines{"old.example"});
    }
}

TEST_F(vc_lookup_reverse_dns_test, a_later_attempt_may_succeed) {
    for (unsigned failures : {1u, 2u}) {
        dns.ptr(client_arpa, {"found.example"});
        dns.fail_first(client_arpa, type_ptr, servfail, failures);
        EXPECT_EQ(look_up(), 0);
        EXPECT_EQ(found_names(), lines{"found.example"});
        EXPECT_EQ(questions(dns).size(), failures + 1);
    }
    dns.answer(client_arpa, type_ptr, nxdomain);
    dns.fail_first(client_arpa, type_ptr, timed_out, 2);
    EXPECT_EQ(look_up(), 1);
    EXPECT_EQ(questions(dns).size(), 3u);
}

TEST_F(vc_lookup_reverse_dns_test, refuses_bad_arguments) {
    EXPECT_EQ(vc_lookup_reverse_dns(nullptr, client, 0, 0), -2);
    EXPECT_EQ(vc_lookup_reverse_dns(&names, nullptr, 0, 0), -2);
    EXPECT_EQ(vc_lookup_reverse_dns(&names, "", 0, 0), -2);
    EXPECT_EQ(vc_lookup_reverse_dns(&names, client, 0, 2), -2);
    EXPECT_EQ(vc_lookup_reverse_dns(&names, client, 0, 255), -2);
    EXPECT_EQ(log.errors(), lines(5, "vc_lookup_reverse_dns: " + einval));
    EXPECT_EQ(vc_lookup_reverse_dns(&names, "not an address", 0, 0), 2);
    EXPECT_EQ(log.errors(), lines{"vc_arpa: Address is not an IP"});
    EXPECT_EQ(questions(dns), lines{});
}

TEST_F(vc_lookup_reverse_dns_test, without_memory_the_old_list_stays) {
    put_old_name();
    log.take();
    dns.ptr(client_arpa, {"one.example", "two.example"});
    int code = 0;
    const lines want = {"vc_arpa: " + enomem, "vc_lookup_reverse_dns: " + enomem,
                        "vc_lookup_reverse_dns: " + enomem, "vc_lookup_reverse_dns: " + enomem};
    const unsigned failed = sweep_allocations([&] { code = look_up(); },
                                              [&](unsigned n) {
                                                  EXPECT_EQ(code, 2) << n;
                                                  EXPECT_EQ(log.errors(), lines{want.at(n - 1)});
                                                  EXPECT_EQ(found_names(), lines{"old.example"});
                                              });
    EXPECT_EQ(failed, want.size());
    EXPECT_EQ(found_names(), (lines{"one.example", "two.example"}));
}

// --- conversions ---

TEST_F(vc_dns, pton_and_ntop) {
    struct {
        int family;
        const char *text;
        std::vector<unsigned char> bytes;
    } const cases[] = {
        {2, "192.0.2.255", {192, 0, 2, 255}},
        {2, "0.0.0.0", {0, 0, 0, 0}},
        {23, "2001:db8::1", {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
        {23, "::", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto &[family, text, bytes] : cases) {
        std::vector<unsigned char> binary(bytes.size(), 0xEE);
        EXPECT_EQ(vc_inet_pton(family, text, binary.data()), 1) << text;
        EXPECT_EQ(binary, bytes) << text;
        char back[64] = "";
        EXPECT_EQ(vc_inet_ntop(family, binary.data(), back, sizeof back), back);
        EXPECT_STREQ(back, text);
    }
    unsigned char binary[16];
    for (const char *text :
         {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "01.2.3.4", "1.2.3.4 ", "::1"}) {
        EXPECT_EQ(vc_inet_pton(2, text, binary), 0) << text;
    }
    for (const char *text : {"", "1.2.3.4", ":::", "1::2::3", "12345::", "::1 "}) {
        EXPECT_EQ(vc_inet_pton(23, text, binary), 0) << text;
    }
}

TEST_F(vc_dns, conversions_refuse_bad_arguments) {
    unsigned char binary[16] = {};
    char text[64];
    for (int family : {0, 1, 10, -1, 24}) {
        EXPECT_EQ(vc_inet_pton(family, "192.0.2.1", binary), 0) << family;
        EXPECT_EQ(vc_inet_ntop(family, binary, text, sizeof text), nullptr) << family;
        EXPECT_EQ(log.errors(), (lines{"vc_inet_pton: " + einval, "vc_inet_ntop: " + einval}));
    }
    EXPECT_EQ(vc_inet_pton(2, nullptr, binary), 0);
    EXPECT_EQ(vc_inet_pton(2, "192.0.2.1", nullptr), 0);
    EXPECT_EQ(log.errors(), lines(2, "vc_inet_pton: " + einval));
    EXPECT_EQ(vc_inet_ntop(2, nullptr, text, sizeof text), nullptr);
    EXPECT_EQ(vc_inet_ntop(2, binary, nullptr, sizeof text), nullptr);
    EXPECT_EQ(vc_inet_ntop(2, binary, text, 0), nullptr);
    EXPECT_EQ(log.errors(), lines(3, "vc_inet_ntop: " + einval));
}

TEST_F(vc_dns, ntop_does_not_cut) {
    const unsigned char binary[4] = {192, 0, 2, 1};
    char text[10] = "";
    EXPECT_EQ(vc_inet_ntop(2, binary, text, 9), nullptr);
    EXPECT_STREQ(vc_inet_ntop(2, binary, text, 10), "192.0.2.1");
}

platform::net_status preparation_result;

platform::net_status failing_preparation(const char *, int *error) {
    *error = 10091;
    return preparation_result;
}

TEST_F(vc_dns, conversions_that_are_not_at_hand) {
    using platform::net_status;
    struct {
        net_status result;
        std::string pton, ntop;
    } const cases[] = {
        {net_status::no_library, "Error ws2_32.dll cannot be loaded",
         "Error ws2_32.dll cannot be loaded"},
        {net_status::startup_failed, "WSAStartup error: 10091", "WSAStartup error: 10091"},
        {net_status::no_entry, "Error could not locate inet_pton in ws2_32.dll",
         "Error could not locate inet_ntop in ws2_32.dll"},
    };
    unsigned char binary[4] = {192, 0, 2, 1};
    char text[64];
    for (const auto &c : cases) {
        preparation_result = c.result;
        platform::set_net_prepare_stand_in(failing_preparation);
        EXPECT_EQ(vc_inet_pton(2, "192.0.2.1", binary), 0);
        EXPECT_EQ(vc_inet_ntop(2, binary, text, sizeof text), nullptr);
        platform::set_net_prepare_stand_in(nullptr);
        EXPECT_EQ(log.errors(), (lines{"vc_inet_pton: " + c.pton, "vc_inet_ntop: " + c.ntop}));
        EXPECT_EQ(vc_inet_pton(2, "192.0.2.1", binary), 1) << "works again afterwards";
    }
}

TEST_F(vc_dns, inet_addr_is_in_network_order) {
    const uint32_t address = vc_inet_addr("192.0.2.1");
    const unsigned char want[4] = {192, 0, 2, 1};
    EXPECT_EQ(std::memcmp(&address, want, 4), 0);
    EXPECT_EQ(log.transcript(), lines{"D vc_inet_addr: [192.0.2.1] converted to 16908480"});
    EXPECT_EQ(vc_inet_addr("no address"), 0xFFFFFFFFu);
    EXPECT_EQ(log.transcript(), lines{"D vc_inet_addr: [no address] converted to 4294967295"});
    EXPECT_EQ(vc_inet_addr(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(log.errors(), lines{"vc_inet_addr: " + einval});
}

TEST_F(vc_dns, compress_ipv6) {
    struct {
        const char *text, *want;
    } const cases[] = {
        {"2001:0DB8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
        {"::1", "::1"},
        {"0:0:0:0:0:0:0:0", "::"},
        {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
        {"::FFFF:192.0.2.1", "::ffff:192.0.2.1"},
    };
    for (const auto &[text, want] : cases) {
        char out[vc_ipv6_text_size] = "";
        EXPECT_EQ(vc_compress_ipv6(text, out), 1) << text;
        EXPECT_STREQ(out, want);
        EXPECT_EQ(lines_of(log, "vc_compress_ipv6"),
                  lines{"D Converted [" + std::string(text) + "] to [" + want + "]"});
    }
}

platform::net_status no_ntop(const char *entry, int *) {
    return std::strcmp(entry, "inet_ntop") ? platform::net_status::ok
                                           : platform::net_status::no_entry;
}

TEST_F(vc_dns, compress_ipv6_failures) {
    char out[vc_ipv6_text_size] = "";
    EXPECT_EQ(vc_compress_ipv6(nullptr, out), 0);
    EXPECT_EQ(vc_compress_ipv6("::1", nullptr), 0);
    EXPECT_EQ(vc_compress_ipv6("192.0.2.1", out), 0);
    EXPECT_EQ(vc_compress_ipv6("", out), 0);
    EXPECT_EQ(log.errors(), lines(4, "vc_compress_ipv6: " + einval));
    platform::set_net_prepare_stand_in(no_ntop);
    EXPECT_EQ(vc_compress_ipv6("::1", out), 0);
    platform::set_net_prepare_stand_in(nullptr);
    EXPECT_EQ(log.errors(),
              (lines{"vc_inet_ntop: Error could not locate inet_ntop in ws2_32.dll",
                     "vc_compress_ipv6: failed to convert structure back to string"}));
}

// --- the hosts file ---

constexpr char hosts_file[] = "c:/quillfence/hosts";

class vc_gethostent_test : public traced_drive_test {
  protected:
    vc_gethostent_test() {
        platform::set_hosts_file_stand_in(hosts_file);
    }
    ~vc_gethostent_test() override {
        platform::set_hosts_file_stand_in(nullptr);
        vc_destroy_list(&names, free);
    }
    lines found_names() const {
        lines texts;
        for (const vc_list_entry *entry = names; entry; entry = entry->next) {
            const auto *text = static_cast<const char *>(entry->data);
            EXPECT_EQ(entry->size, std::strlen(text) + 1);
            texts.push_back(text);
        }
        return texts;
    }
    vc_list_entry *names = nullptr;
};

// Stands first: the path is formed once a process, so only the first attempts can fail.
TEST_F(vc_gethostent_test, path_is_formed_once) {
    drive.write(hosts_file, "192.0.2.1 host\n");
    call_watch calls;
    calls.fail("mutex_create", 1, 8);
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), -1);
    EXPECT_EQ(log.errors(), lines{"vc_gethostent: Error locking mutex: 8"});
    calls.fail("hosts_file_path", 1, 5);
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), -1);
    EXPECT_EQ(log.errors(), lines{"vc_gethostent: Cannot retrieve system directory: [5]?"});
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1);
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1);
    EXPECT_EQ(calls.count("hosts_file_path"), 2) << "one that failed, one that was kept";
    EXPECT_EQ(calls.count("mutex_create"), 2) << "likewise";
    EXPECT_EQ(calls.count("mutex_lock"), 3);
    EXPECT_EQ(calls.count("mutex_unlock"), 3);
}

TEST_F(vc_gethostent_test, names_of_an_address) {
    struct {
        const char *name, *file, *address;
        lines want;
    } const cases[] = {
        {"one name", "192.0.2.1 host\n", "192.0.2.1", {"host"}},
        {"several names behind blanks and tabs",
         "192.0.2.1\t a \t b\tc  \n",
         "192.0.2.1",
         {"a", "b", "c"}},
        {"several lines", "192.0.2.1 a\n192.0.2.2 b\n192.0.2.1 c\n", "192.0.2.1", {"a", "c"}},
        {"comment line", "#192.0.2.1 a\n192.0.2.1 b\n", "192.0.2.1", {"b"}},
        {"comment behind the names", "192.0.2.1 a b# c\n", "192.0.2.1", {"a", "b"}},
        {"comment right behind a blank", "192.0.2.1 #a\n", "192.0.2.1", {}},
        {"comment without a line end", "192.0.2.1 a #", "192.0.2.1", {"a"}},
        {"last line without a line end does not count",
         "192.0.2.1 a\n192.0.2.1 b",
         "192.0.2.1",
         {"a"}},
        {"line without a blank", "192.0.2.1\n", "192.0.2.1", {}},
        {"comment right behind the address", "192.0.2.1# a\n", "192.0.2.1", {}},
        {"empty lines", "\n\r\n192.0.2.1 a\n\n", "192.0.2.1", {"a"}},
        {"CR LF", "192.0.2.1 a b\r\n192.0.2.1 c\r\n", "192.0.2.1", {"a", "b", "c"}},
        {"a lone CR is part of the name", "192.0.2.1 a\rb\n", "192.0.2.1", {"a\rb"}},
        {"empty file", "", "192.0.2.1", {}},
        {"the other family", "::1 six\n127.0.0.1 four\n", "127.0.0.1", {"four"}},
        {"IPv6 in another form", "2001:0DB8:0:0::1 six\n", "2001:db8::1", {"six"}},
        {"IPv6 asked for in another form", "2001:db8::1 six\n", "2001:DB8:0:0:0:0:0:1", {"six"}},
        {"name kept as it is", "192.0.2.1 Host.Example.\n", "192.0.2.1", {"Host.Example."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        drive.write(hosts_file, c.file);
        EXPECT_EQ(vc_gethostent(c.address, &names), static_cast<int>(c.want.size()));
        EXPECT_EQ(found_names(), c.want);
        vc_destroy_list(&names, free);
    }
}

TEST_F(vc_gethostent_test, appends_to_the_list) {
    drive.write(hosts_file, "192.0.2.1 b\n");
    char old[] = "a";
    ASSERT_EQ(vc_append_list_entry(&names, old, sizeof old, 1), 1);
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1);
    EXPECT_EQ(found_names(), (lines{"a", "b"}));
}

TEST_F(vc_gethostent_test, line_longer_than_the_buffer_falls_apart) {
    // 1023 bytes are read; they hold no line end and are skipped. The rest begins with a name.
    const std::string head = "192.0.2.1 " + std::string(1013, 'x');
    drive.write(hosts_file, head + "y z\n192.0.2.1 a\n");
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1);
    EXPECT_EQ(found_names(), lines{"a"});
    EXPECT_EQ(lines_of(log, "vc_gethostent"), lines{"E Address[y] in /etc/hosts is not an IP"});
    vc_destroy_list(&names, free);
    // With its line end the longest line has 1023 bytes.
    drive.write(hosts_file, "192.0.2.1 " + std::string(1012, 'x') + "\n");
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1);
    EXPECT_EQ(found_names(), lines{std::string(1012, 'x')});
}

TEST_F(vc_gethostent_test, lines) {
    drive.write(hosts_file, "bogus a\n192.0.2.2 b\n::1 c\n192.0.2.1 d\n");
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1);
    EXPECT_EQ(lines_of(log, "vc_gethostent"), (lines{"E Address[bogus] in /etc/hosts is not an IP",
                                                     "D [192.0.2.2] doesn't match [192.0.2.1]"}));
    EXPECT_EQ(vc_gethostent("2001:DB8::2", &names), 0);
    EXPECT_EQ(lines_of(log, "vc_gethostent"), (lines{"E Address[bogus] in /etc/hosts is not an IP",
                                                     "D [::1] doesn't match [2001:db8::2]"}));
    // The address ends at the first blank, also where it has not begun.
    drive.write(hosts_file, " 192.0.2.1 a\n192.0.2.1 b\n");
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1);
    EXPECT_EQ(lines_of(log, "vc_gethostent"), lines{"E Address[] in /etc/hosts is not an IP"});
}

TEST_F(vc_gethostent_test, failures) {
    EXPECT_EQ(vc_gethostent("host", &names), -1);
    EXPECT_EQ(log.errors(), lines{"vc_gethostent: Address[host] is not an IP"});
    EXPECT_EQ(vc_gethostent(nullptr, &names), -1);
    EXPECT_EQ(lines_of(log, "vc_gethostent"), lines{"E Address[(null)] is not an IP"});
    EXPECT_EQ(vc_gethostent("192.0.2.1", nullptr), -1);
    EXPECT_EQ(log.errors(), lines{"vc_gethostent: " + einval});
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), -1);
    EXPECT_EQ(log.errors(), lines{"vc_gethostent: Failed to open c:/quillfence/hosts"});
    EXPECT_FALSE(drive.exists(hosts_file)) << "a lookup creates nothing";
    EXPECT_EQ(names, nullptr);
}

TEST_F(vc_gethostent_test, without_memory) {
    drive.write(hosts_file, "192.0.2.1 a b\n");
    int count = 0;
    const unsigned failed = sweep_allocations(
        [&] {
            vc_destroy_list(&names, free);
            count = vc_gethostent("192.0.2.1", &names);
        },
        [&](unsigned n) {
            EXPECT_EQ(count, -1) << n;
            EXPECT_EQ(log.errors().size(), 1u) << "told where it happened";
        });
    EXPECT_GE(failed, 4u) << "a node and a copy of each name";
    EXPECT_EQ(found_names(), (lines{"a", "b"}));
}

TEST_F(vc_gethostent_test, mutex_failures) {
    drive.write(hosts_file, "192.0.2.1 a\n");
    call_watch calls;
    calls.fail("mutex_lock", 1, 6);
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), -1);
    EXPECT_EQ(log.errors(), lines{"vc_gethostent: Error locking mutex: 6"});
    calls.fail("mutex_unlock", 1, 288);
    EXPECT_EQ(vc_gethostent("192.0.2.1", &names), 1) << "the names are there all the same";
    EXPECT_EQ(log.errors(), lines{"vc_gethostent: Error unlocking mutex: 288"});
    EXPECT_EQ(found_names(), lines{"a"});
}

} // namespace
} // namespace quillfence::testing
