#include "known_sender_forgery_funcs.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "platform/error_numbers.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char list[] = "c:/quillfence/control/valid_domain_ips";

// The set of a file, written as "domain=address/prefix,..." a domain, addresses in hexadecimal.
std::vector<std::string> loaded(ksf_domain_set *set) {
    std::vector<std::string> texts;
    for (size_t i = 0; set && i < set->domain_count; ++i) {
        std::string text = set->domains[i].name;
        for (size_t n = 0; n < set->domains[i].network_count; ++n) {
            char network[32];
            snprintf(network, sizeof network, "%c%08x/%d", n ? ',' : '=',
                     set->domains[i].networks[n].address, set->domains[i].networks[n].prefix);
            text += network;
        }
        texts.push_back(text);
    }
    ksf_free_list(set);
    return texts;
}

class ksf : public traced_drive_test {
  protected:
    std::vector<std::string> load(const std::string &bytes) {
        drive.write(list, bytes);
        log.take();
        return loaded(ksf_load_list(list));
    }
    // The module's own DEBUG lines of the last load, without the functions' names.
    lines trace() {
        lines own;
        for (const log_line &line : log.take()) {
            if (line.source == "known_sender_forgery/known_sender_forgery_funcs") {
                own.push_back(line.message);
            }
        }
        return own;
    }
    int check(const char *ip, const char *domain) {
        const int answer = ksf_check_domain_to_ip_restriction(ip, domain, list);
        log.debugs();
        return answer;
    }
};

TEST_F(ksf, a_line_ties_a_domain_to_its_networks) {
    EXPECT_EQ(load("example.org : 192.0.2.0/24, 198.51.100.7\n"),
              lines{"example.org=c0000200/24,c6336407/32"});
    EXPECT_EQ(trace(),
              (lines{"stored IP range from [192.0.2.0/24]", "stored IP range from [198.51.100.7]",
                     "stored domain/IPs range from [example.org : 192.0.2.0/24, "
                     "198.51.100.7]",
                     "skipping blank line"}));
}

TEST_F(ksf, lines_that_are_skipped_say_why) {
    const struct {
        const char *name, *text;
        lines trace;
    } cases[] = {
        {"blank", "\n", {"skipping blank line", "skipping blank line"}},
        {"white space", " \t\r", {"skipping blank line (after trim)"}},
        {"comment", "  # example.org:192.0.2.1", {"skipping comment line"}},
        {"no colon",
         "example.org 192.0.2.1",
         {"invalid number of elements in domain/ip range line: 1",
          "Ignored unparseable line [example.org 192.0.2.1]"}},
        {"two colons",
         "example.org:2001:db8",
         {"invalid number of elements in domain/ip range line: 3",
          "Ignored unparseable line [example.org:2001:db8]"}},
        {"no domain",
         " : 192.0.2.1",
         {"invalid domain - empty", "Ignored unparseable line [: 192.0.2.1]"}},
        {"bad domain",
         "Example : 192.0.2.1",
         {"domain example is not valid", "Ignored unparseable line [Example : 192.0.2.1]"}},
        {"no networks",
         "example.org: ",
         {"invalid ip set string - blank", "Ignored unparseable line [example.org:]"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(load(c.text), lines{}) << c.name;
        EXPECT_EQ(trace(), c.trace) << c.name;
    }
}

TEST_F(ksf, items_that_are_dropped_say_why) {
    const struct {
        const char *name, *item;
        lines trace;
    } cases[] = {
        {"host bits",
         "192.0.2.1/24",
         {"cidr is not valid given the prefix. addr: -1073741311 prefix: 24"}},
        {"two slashes",
         "192.0.2.0/24/1",
         {"invalid cidr format - number of elements not as expected: 3"}},
        {"no address", "/24", {"failed to convert ip to host byte order"}},
        {"bad address", "192.0.2/24", {"failed to convert ip to host byte order"}},
        {"blank in front of the slash",
         "192.0.2.0 /24",
         {"failed to convert ip to host byte order"}},
        {"long address", "192.000000000000.2.0/24", {"failed to convert ip to host byte order"}},
        {"prefix 33", "192.0.2.0/33", {"cidr has invalid prefix"}},
        {"huge prefix", "0.0.0.0/99999999999999999999", {"cidr has invalid prefix"}},
        {"host bits under prefix 0",
         "1.0.0.0/0",
         {"cidr is not valid given the prefix. addr: 16777216 prefix: 0"}},
        {"host bits under a prefix below 0, which is masked",
         "0.0.0.1/-1",
         {"cidr is not valid given the prefix. addr: 1 prefix: -1"}},
        {"neither", "mail", {"failed to convert ip mail to host byte order"}},
        {"empty", "", {"failed to convert ip  to host byte order"}},
        {"leading zero", "192.0.2.01", {"failed to convert ip 192.0.2.01 to host byte order"}},
    };
    for (const auto &c : cases) {
        const std::string line = "example.org:198.51.100.7," + std::string(c.item);
        EXPECT_EQ(load(line), lines{"example.org=c6336407/32"}) << c.name;
        lines want = {"stored IP range from [198.51.100.7]"};
        want.insert(want.end(), c.trace.begin(), c.trace.end());
        want.push_back("Failed to parse [" + std::string(c.item) + "] as CIDR or IP");
        want.push_back("stored domain/IPs range from [" + line + "]");
        EXPECT_EQ(trace(), want) << c.name;
    }
}

TEST_F(ksf, a_line_whose_items_were_all_dropped_is_not_stored) {
    EXPECT_EQ(load("example.org:192.0.2.1/24\nexample.org:198.51.100.7"),
              lines{"example.org=c6336407/32"});
    EXPECT_EQ(trace(), (lines{"cidr is not valid given the prefix. addr: -1073741311 prefix: 24",
                              "Failed to parse [192.0.2.1/24] as CIDR or IP",
                              "Ignored unparseable line [example.org:192.0.2.1/24]",
                              "stored IP range from [198.51.100.7]",
                              "stored domain/IPs range from [example.org:198.51.100.7]"}));
    drive.write(list, "example.org:192.0.2.1/24");
    EXPECT_EQ(check("203.0.113.1", "example.org"), 1);
}

TEST_F(ksf, networks_keep_what_was_written) {
    EXPECT_EQ(load("EXAMPLE.org:0.0.0.0,0.0.0.0/0,128.0.0.0/1,10.0.0.0/ 8,10.0.0.0/-1,"
                   "192.0.2.4/30x,255.255.255.255"),
              lines{"example.org=00000000/32,00000000/0,80000000/1,0a000000/8,0a000000/-1,"
                    "c0000204/30,ffffffff/32"});
    // All bits belong to a /32; an address has up to 15 characters.
    EXPECT_EQ(load(" example.org\t:\t192.0.2.1/32 , 192.0.2.2/31,198.151.100.128/25 \r"),
              lines{"example.org=c0000201/32,c0000202/31,c6976480/25"});
}

TEST_F(ksf, a_carriage_return_is_white_space) {
    EXPECT_EQ(load("example.org:192.0.2.1\r\nexample.net:192.0.2.2\r\n"),
              (lines{"example.org=c0000201/32", "example.net=c0000202/32"}));
}

TEST_F(ksf, a_nul_ends_its_line_only) {
    EXPECT_EQ(load(std::string("example.org:192.0.2.1\0,x\nexample.net:192.0.2.2", 46)),
              (lines{"example.org=c0000201/32", "example.net=c0000202/32"}));
}

TEST_F(ksf, files_that_cannot_be_loaded) {
    EXPECT_EQ(load(""), lines{});
    EXPECT_EQ(trace(), lines{"empty file"});
    drive.remove(list);
    EXPECT_EQ(ksf_load_list(list), nullptr);
    EXPECT_EQ(log.errors(), (lines{"ksf_load_list: Failed to read domain/ip list file: "
                                   "c:/quillfence/control/valid_domain_ips",
                                   "ksf_load_list: Unable to load KSF list: "
                                   "c:/quillfence/control/valid_domain_ips"}));
    EXPECT_FALSE(drive.exists(list)) << "a lookup never creates a file";
    EXPECT_EQ(ksf_get_domain_ip_sets_from_file(list), nullptr);
    EXPECT_EQ(trace().back(), "Unable to load list: c:/quillfence/control/valid_domain_ips");
    drive.write(list, "example.org:192.0.2.1");
    {
        call_watch calls;
        calls.fail("file_read", 1, platform::error_io_device);
        EXPECT_EQ(ksf_load_list(list), nullptr);
        EXPECT_EQ(calls.failed(), 1);
    }
    const lines errors = log.errors();
    ASSERT_GE(errors.size(), 2u);
    EXPECT_EQ(errors[errors.size() - 2], "ksf_load_list: Failed to read domain/ip list file: "
                                         "c:/quillfence/control/valid_domain_ips");
    EXPECT_EQ(errors.back(), "ksf_load_list: Unable to load KSF list: "
                             "c:/quillfence/control/valid_domain_ips");
    EXPECT_EQ(ksf_load_list(nullptr), nullptr);
    EXPECT_EQ(ksf_load_list(""), nullptr);
    EXPECT_EQ(log.errors(), lines(2, "ksf_load_list: Invalid argument"));
    ksf_free_list(nullptr);
}

TEST_F(ksf, the_networks_decide) {
    drive.write(list, "example.org : 192.0.2.0/24, 198.51.100.7\n"
                      "twice.example : 192.0.2.1\n"
                      "twice.example : 192.0.2.2\n"
                      "zero.example : 0.0.0.0/0\n"
                      "negative.example : 10.0.0.0/-1\n"
                      "half.example : 128.0.0.0/1\n");
    const struct {
        const char *ip, *domain;
        int may_send;
    } cases[] = {
        {"192.0.2.0", "example.org", 1},
        {"192.0.2.55", "example.org", 1},
        {"192.0.2.255", "example.org", 1},
        {"192.0.3.0", "example.org", 0},
        {"192.0.1.255", "example.org", 0},
        {"198.51.100.7", "example.org", 1},
        {"198.51.100.8", "example.org", 0},
        {"203.0.113.1", "example.org", 0},
        {"203.0.113.1", " \tExample.ORG ", 0},
        {"203.0.113.1", "mail.example.org", 1}, // no parent domains
        {"203.0.113.1", "example.net", 1},
        {"192.0.2.1", "twice.example", 1},
        {"192.0.2.2", "twice.example", 0},  // only the first record counts
        {"203.0.113.1", "zero.example", 0}, // a prefix of 0 holds 0.0.0.0 alone
        {"0.0.0.0", "zero.example", 1},
        {"10.0.0.0", "negative.example", 0},
        {"255.255.255.255", "half.example", 1},
        {"127.255.255.255", "half.example", 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(check(c.ip, c.domain), c.may_send) << c.ip << " for " << c.domain;
    }
}

// The file of the format page, and the table of clients below it.
TEST_F(ksf, the_sample_of_the_format_page) {
    std::ifstream page(QF_FORMAT_PAGE);
    ASSERT_TRUE(page.is_open());
    std::string line;
    while (std::getline(page, line) && line != "## A sample") {
    }
    std::string sample;
    std::vector<std::vector<std::string>> rows;
    while (std::getline(page, line)) {
        if (line.starts_with("    ")) {
            sample += line.substr(4) + "\n";
        } else if (line.starts_with("| ") && line.find("may") != std::string::npos) {
            std::vector<std::string> cells;
            std::istringstream text(line.substr(2));
            for (std::string cell; std::getline(text, cell, '|');) {
                cells.push_back(cell.substr(0, cell.find_last_not_of(' ') + 1));
                text.ignore(1);
            }
            rows.push_back(cells);
        }
    }
    drive.write(list, sample);
    ASSERT_EQ(rows.size(), 11u);
    for (const auto &row : rows) {
        ASSERT_EQ(row.size(), 3u);
        EXPECT_EQ(check(row[0].c_str(), row[1].c_str()), row[2] == "may send")
            << row[0] << " " << row[1];
    }
}

TEST_F(ksf, every_doubt_lets_the_mail_pass) {
    drive.write(list, "example.org:192.0.2.1");
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("", "example.org", list), 1);
    EXPECT_EQ(ksf_check_domain_to_ip_restriction(nullptr, "example.org", list), 1);
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("192.0.2.1", "", list), 1);
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("192.0.2.1", nullptr, list), 1);
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("192.0.2.1", "example.org", ""), 1);
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("192.0.2.1", "example.org", nullptr), 1);
    EXPECT_EQ(log.errors(), lines(6, "ksf_check_domain_to_ip_restriction: Invalid argument"));

    EXPECT_EQ(ksf_check_domain_to_ip_restriction("203.0.113.1", " \t", list), 1);
    EXPECT_EQ(log.errors(), lines{"ksf_check_domain_to_ip_restriction: Invalid domain - blank "
                                  "after trimming whitespace"});

    EXPECT_EQ(ksf_check_domain_to_ip_restriction("2001:db8::1", "example.org", list), 1);
    EXPECT_EQ(log.errors(), lines{"ksf_check_domain_to_ip_restriction: failed to convert ip "
                                  "[2001:db8::1] to host order bytes"});
    // It is looked at for a declared domain only.
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("2001:db8::1", "example.net", list), 1);
    EXPECT_EQ(log.errors(), lines{});

    drive.write(list, "");
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("203.0.113.1", "example.org", list), 1);
    EXPECT_EQ(trace(),
              (lines{"empty file", "Unable to load list: c:/quillfence/control/valid_domain_ips",
                     "could not get domains/ips, or none in file"}));
    drive.write(list, "# nothing");
    EXPECT_EQ(ksf_check_domain_to_ip_restriction("203.0.113.1", "example.org", list), 1);
    EXPECT_EQ(trace(),
              (lines{"skipping comment line", "could not get domains/ips, or none in file"}));
}

TEST_F(ksf, the_sender_domain_is_the_text_behind_the_last_at_sign) {
    const heap_string domain(ksf_parse_mail_from_domain("alice@Example.ORG"));
    ASSERT_TRUE(domain);
    EXPECT_STREQ(domain.get(), "example.org");
    EXPECT_EQ(trace(), lines{});

    EXPECT_EQ(ksf_parse_mail_from_domain(nullptr), nullptr);
    EXPECT_EQ(ksf_parse_mail_from_domain(""), nullptr);
    EXPECT_EQ(trace(), lines(2, "empty or NULL MAIL FROM argument - possible bounce"));
    EXPECT_EQ(ksf_parse_mail_from_domain("alice"), nullptr);
    EXPECT_EQ(ksf_parse_mail_from_domain("alice@b@example.org"), nullptr);
    EXPECT_EQ(trace(), lines(2, "email address is not valid"));
}

// Records from all over a file of 20,000 lines are found, and none is mixed up with another.
TEST_F(ksf, many_lines) {
    std::string bytes;
    for (int i = 0; i < 20000; ++i) {
        bytes += "d" + std::to_string(i) + ".example:10." + std::to_string(i / 256) + "." +
                 std::to_string(i % 256) + ".0/24\n";
    }
    drive.write(list, bytes);
    for (int i = 0; i < 20000; i += 5000) {
        const std::string domain = "d" + std::to_string(i) + ".example";
        const std::string ip = "10." + std::to_string(i / 256) + "." + std::to_string(i % 256);
        EXPECT_EQ(check((ip + ".77").c_str(), domain.c_str()), 1) << domain;
        EXPECT_EQ(check("192.0.2.1", domain.c_str()), 0) << domain;
    }
}

} // namespace
} // namespace quillfence::testing
