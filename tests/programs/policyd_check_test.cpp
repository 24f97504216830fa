#include "policyd_check.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "../dns_sources/scripted_source.h"
#include "drive_c.h"
#include "listeners.h"

namespace quillfence::programs {

std::ostream &operator<<(std::ostream &out, const check_line &line) {
    write_report({line}, out);
    return out;
}

} // namespace quillfence::programs

namespace quillfence::testing {
namespace {

using namespace programs;
using dns_sources::source;

constexpr auto ok = check_result::ok;
constexpr auto error = check_result::error;
constexpr auto warning = check_result::warning;

// --- DNS ---

class resolver {
  public:
    answer by_udp = found({"A 192.0.2.1"});
    answer by_tcp = by_udp;

    check_line check() {
        scripted_source dns([this](const question &asked) {
            return asked.options == platform::dns_query_tcp_only ? by_tcp : by_udp;
        });
        check_report report;
        check_resolver(dns, &report);
        return report.size() == 1 ? report[0] : check_line{};
    }
};

answer from(std::string server, answer got) {
    got.server = std::move(server);
    return got;
}

TEST(check_resolver, answers) {
    resolver one;
    one.by_tcp.server = "192.0.2.53:53";
    EXPECT_EQ(one.check(), (check_line{ok, "DNS", "192.0.2.53:53 answers by UDP and TCP"}));
}

// The one that nobody would notice: every answer a late DUNNO.
TEST(check_resolver, no_tcp) {
    resolver one;
    one.by_udp.server = "192.0.2.53:53";
    one.by_tcp = from("192.0.2.53:53", answer_of_status(timed_out));
    const check_line line = one.check();
    EXPECT_EQ(line.is, error);
    EXPECT_TRUE(line.text.starts_with("192.0.2.53:53 answers by UDP and not by TCP")) << line.text;
    EXPECT_NE(line.text.find("Open TCP port 53"), std::string::npos) << line.text;
}

TEST(check_resolver, no_udp) {
    resolver one;
    one.by_udp = answer_of_status(timed_out);
    EXPECT_EQ(one.check().is, error);
    EXPECT_NE(one.check().text.find("not by UDP"), std::string::npos);
}

TEST(check_resolver, silence) {
    resolver one;
    one.by_udp = one.by_tcp = from("192.0.2.53:53", answer_of_status(servfail));
    EXPECT_EQ(one.check(),
              (check_line{error, "DNS",
                          "192.0.2.53:53 does not answer; start a resolver, or name another one in "
                          "/etc/resolv.conf or with --server"}));
}

TEST(check_resolver, refusal) {
    resolver one;
    one.by_udp = one.by_tcp = answer_of_server(5, {});
    EXPECT_EQ(one.check().is, error);
    EXPECT_TRUE(one.check().text.starts_with("the resolver refuses to answer (REFUSED); "));
}

TEST(check_resolver, trouble_behind_it_is_no_error) {
    resolver one;
    one.by_udp = one.by_tcp = answer_of_server(2, {});
    EXPECT_EQ(one.check().is, warning);
    EXPECT_TRUE(one.check().text.starts_with("the resolver says SERVFAIL about example.com.; "));
}

// What a list says about its test address, and about 127.0.0.1.
check_line list_that_says(const answer &listed, const answer &unlisted) {
    scripted_source dns([&](const question &asked) {
        EXPECT_EQ(asked.type, type_a);
        return asked.name == "2.0.0.127.rbl.example."   ? listed
               : asked.name == "1.0.0.127.rbl.example." ? unlisted
                                                        : answer_of_status(0);
    });
    check_report report;
    check_block_lists(dns, {"rbl.example"}, &report);
    EXPECT_EQ(dns.asked(),
              (std::vector<std::string>{"2.0.0.127.rbl.example. A", "1.0.0.127.rbl.example. A"}));
    return report.size() == 1 ? report[0] : check_line{};
}

TEST(check_block_lists, every_answer) {
    const answer no_name = answer_of_server(3, {});
    const answer listing = found({"A 127.0.0.2"});
    static const struct {
        const char *name;
        answer listed, unlisted;
        check_result is;
        const char *beginning;
    } cases[] = {
        {"in order", listing, no_name, ok, "lists 127.0.0.2 and does not list 127.0.0.1"},
        {"an alias in front", found({"CNAME x.example.", "A 127.0.0.4"}), no_name, ok, "lists"},
        {"refusing", found({"A 127.255.255.254"}), found({"A 127.255.255.254"}), error,
         "refuses to answer this resolver (127.255.255.254)"},
        {"refusing the second", listing, found({"A 127.255.255.252"}), error,
         "refuses to answer this resolver (127.255.255.252)"},
        {"listing everybody", listing, listing, error,
         "lists 127.0.0.1, and so probably everybody (127.0.0.2)"},
        {"a parked domain", found({"A 192.0.2.80"}), found({"A 192.0.2.80"}), error,
         "answers 192.0.2.80, which is no listing"},
        {"a parked domain for all but the test", listing, found({"A 192.0.2.80"}), error,
         "answers 192.0.2.80, which is no listing"},
        {"no listing", found({"A 192.0.2.80"}), no_name, error, "answers 192.0.2.80"},
        {"empty", no_name, no_name, error,
         "does not list 127.0.0.2, its own test address (NXDOMAIN)"},
        {"no records", answer_of_server(0, {}), no_name, error, "does not list 127.0.0.2"},
        {"refused", answer_of_server(5, {}), answer_of_server(5, {}), error,
         "does not list 127.0.0.2, its own test address (REFUSED)"},
        {"failing", answer_of_server(2, {}), answer_of_server(2, {}), error,
         "can't be asked (SERVFAIL)"},
        {"silent", answer_of_status(timed_out), answer_of_status(timed_out), error,
         "can't be asked (no answer)"},
    };
    for (const auto &one : cases) {
        const check_line line = list_that_says(one.listed, one.unlisted);
        EXPECT_EQ(line.is, one.is) << one.name;
        EXPECT_EQ(line.subject, "rbl.example") << one.name;
        EXPECT_TRUE(line.text.starts_with(one.beginning)) << one.name << ": " << line.text;
    }
}

TEST(check_block_lists, a_line_that_is_no_name_is_not_asked) {
    scripted_source dns(answer_of_status(0));
    check_report report;
    check_block_lists(dns, {"a..b"}, &report);
    EXPECT_EQ(dns.asked(), std::vector<std::string>());
    EXPECT_EQ(report, (check_report{
                          {error, "a..b", "is no domain name; correct that line of rbl.enabled"}}));
}

// --- files ---

class check_files : public ::testing::Test {
  protected:
    void SetUp() override {
        drive.make_folder("c:/log");
    }
    check_report report;
    drive_c drive;
};

TEST_F(check_files, a_log_that_is_not_there_yet) {
    check_log("c:/log/policyd.log", &report);
    EXPECT_EQ(report, (check_report{{ok, "c:/log/policyd.log", "can be made"}}));
    EXPECT_FALSE(drive.exists("c:/log/policyd.log"));
    EXPECT_FALSE(drive.exists("c:/log/policyd.log.check"));
}

TEST_F(check_files, a_log_without_a_folder) {
    check_log("c:/nowhere/policyd.log", &report);
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0].is, error);
    EXPECT_TRUE(report[0].text.starts_with("can't be made: No such file or directory; "))
        << report[0].text;
}

TEST_F(check_files, a_log_stays_as_it_is) {
    drive.write("c:/log/policyd.log", "{}\n");
    check_log("c:/log/policyd.log", &report);
    ASSERT_FALSE(report.empty());
    EXPECT_EQ(report[0], (check_line{ok, "c:/log/policyd.log", "can be written"}));
    EXPECT_EQ(drive.read("c:/log/policyd.log"), "{}\n");
}

TEST_F(check_files, a_folder_in_place_of_a_log) {
    check_log("c:/log", &report);
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0].is, error);
}

TEST_F(check_files, metrics) {
    check_metrics("c:/log/quillfence.prom", &report);
    EXPECT_EQ(report, (check_report{{ok, "c:/log/quillfence.prom", "can be written"}}));
    EXPECT_FALSE(drive.exists("c:/log/quillfence.prom"));
}

TEST_F(check_files, metrics_that_nobody_collects) {
    check_metrics("c:/log/quillfence.txt", &report);
    ASSERT_EQ(report.size(), 2u);
    EXPECT_EQ(report[1].is, warning);
    EXPECT_EQ(report[1].text,
              "does not end in .prom; node_exporter's textfile collector passes it over");
}

TEST_F(check_files, metrics_without_a_folder) {
    check_metrics("c:/nowhere/quillfence.prom", &report);
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0].is, error);
}

TEST_F(check_files, a_configuration_that_is_not_there) {
    check_configuration(drive.native("c:/no-such"), &report);
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0].is, error);
}

TEST_F(check_files, findings_of_a_configuration) {
    drive.write("c:/quillfence/control/enabled", "1\n");
    drive.write("c:/quillfence/control/rules.enabled", "no_such_rule\n");
    check_configuration(drive.native("c:/quillfence"), &report);
    ASSERT_GE(report.size(), 1u);
    bool named = false;
    for (const check_line &line : report) {
        named |= line.is != ok && line.subject == "control/rules.enabled:1";
    }
    EXPECT_TRUE(named) << ::testing::PrintToString(report);
}

TEST_F(check_files, block_maps_are_not_needed) {
    drive.write("c:/quillfence/control/enabled", "1\n");
    check_configuration(drive.native("c:/quillfence"), &report);
    ASSERT_EQ(report.size(), 2u) << ::testing::PrintToString(report);
    EXPECT_EQ(report[0].is, ok);
    EXPECT_EQ(report[1].is, warning);
    EXPECT_EQ(report[1].subject, "bms/lists_to_update");
}

// --- listening ---

class check_listening_test : public check_files {
  protected:
    void SetUp() override {
        drive.make_folder("c:/run");
        path = drive.native("c:/run/policy");
        place = "unix:" + path;
        for (const char *const folder : {"c:/", "c:/run"}) {
            std::filesystem::permissions(drive.native(folder), std::filesystem::perms(0755));
        }
    }
    void check(uint32_t mode = 0666, const std::vector<const char *> &users = {}) {
        check_listening({place}, mode, users, &report);
    }

    std::string path;
    std::string place;
};

TEST_F(check_listening_test, nothing_stays) {
    check();
    EXPECT_EQ(report, (check_report{{ok, place, "can be listened to"}}));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(check_listening_test, no_folder) {
    place = "unix:" + drive.native("c:/none") + "/policy";
    check();
    EXPECT_EQ(report, (check_report{{error, place,
                                     "can't be listened to: No such file or directory; "
                                     "make its folder"}}));
}

TEST_F(check_listening_test, a_file_in_the_way_stays) {
    drive.write("c:/run/policy", "mine");
    check();
    EXPECT_EQ(report,
              (check_report{{error, place, "can't be listened to: what is there is no socket"}}));
    EXPECT_EQ(drive.read("c:/run/policy"), "mine");
}

TEST_F(check_listening_test, beside_the_running_service) {
    service::listeners running;
    ASSERT_EQ(running.open(place, 0666), std::nullopt);
    check();
    EXPECT_EQ(report, (check_report{{warning, place,
                                     "another program listens there; if that is the service "
                                     "itself, all is well"}}));
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(check_listening_test, whoever_is_let_in) {
    check(0666, {"nobody", "quillfence-no-such-user"});
    EXPECT_EQ(report, (check_report{{ok, place, "can be listened to"},
                                    {ok, place, "the user nobody can connect"}}));
}

TEST_F(check_listening_test, whoever_is_kept_out) {
    check(0600, {"nobody"});
    ASSERT_EQ(report.size(), 2u);
    EXPECT_EQ(report[1].is, error);
    EXPECT_TRUE(report[1].text.starts_with("the user nobody can't connect, as " + path +
                                           " does not let him in; "))
        << report[1].text;
}

TEST_F(check_listening_test, other_addresses_are_refused) {
    place = "inet:192.0.2.1:10040";
    check();
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0].is, error);
    EXPECT_TRUE(report[0].text.starts_with("can't be listened to: is no loopback address"))
        << report[0].text;
}

TEST(check_postfix, as_its_configuration_names_it) {
    EXPECT_EQ(postfix_line("unix:/var/spool/postfix/private/quillfence").text,
              "in Postfix's main.cf this is unix:private/quillfence");
    const check_line outside = postfix_line("unix:/run/quillfence/policy");
    EXPECT_EQ(outside.is, warning);
    EXPECT_TRUE(outside.text.starts_with("Postfix's services can't see it from a chroot"));
}

// --- the report ---

TEST(check_report_text, a_line_each) {
    std::ostringstream out;
    write_report({{ok, "DNS", "answers"}, {warning, "a", "b"}, {error, "c", "d; e\n"}}, out);
    EXPECT_EQ(out.str(), "ok       DNS: answers\nwarning  a: b\nerror    c: d; e\\x0a\n");
    EXPECT_TRUE(has_errors({{error, "c", "d"}}));
    EXPECT_FALSE(has_errors({{warning, "c", "d"}, {ok, "c", "d"}}));
}

} // namespace
} // namespace quillfence::testing
