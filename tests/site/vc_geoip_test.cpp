#include "vc_geoip.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/observer.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char database[] = "c:/quillfence/geo/country.mmdb";

// Made by tests/data/make-country-db.pl.
std::string country_database() {
    std::ifstream stream(QF_COUNTRY_DATABASE, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << QF_COUNTRY_DATABASE;
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string code_of(const char *path, const char *ip) {
    const heap_string code(vc_get_country_code(path, ip));
    return code ? code.get() : "null";
}

class vc_geoip : public drive_test {
  protected:
    vc_geoip() {
        drive.write(database, country_database());
    }
};

TEST_F(vc_geoip, listed_addresses_have_their_code) {
    const struct {
        const char *ip, *want;
    } cases[] = {
        {"192.0.2.0", "DE"},      {"192.0.2.255", "DE"},    {"198.51.100.127", "FR"},
        {"198.51.100.128", "CH"}, {"2001:db8:1::25", "JP"}, {"2001:db8:2:ffff::1", "BR"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(code_of(database, c.ip), c.want) << c.ip;
    }
}

TEST_F(vc_geoip, an_address_that_is_not_in_the_database_is_catch_all) {
    for (const char *ip : {"192.0.3.1", "8.8.8.8", "2001:db8:3::1"}) {
        EXPECT_EQ(code_of(database, ip), "**") << ip;
        EXPECT_EQ(log.errors(), lines{"__vc_get_country_code: Failed to lookup ip string in MMDB"});
    }
}

TEST_F(vc_geoip, an_entry_without_a_code_is_catch_all) {
    EXPECT_EQ(code_of(database, "203.0.113.5"), "**");
    EXPECT_EQ(log.errors(),
              lines{"__vc_get_country_code: Failed to retrieve value from lookup in MMDB"});
}

TEST_F(vc_geoip, a_code_that_is_no_text_is_catch_all) {
    std::string damaged = country_database();
    const size_t at = damaged.find("\x42"
                                   "DE"); // a text of two bytes
    ASSERT_NE(at, std::string::npos);
    damaged[at] = '\x82'; // the same as plain bytes
    drive.write(database, damaged);
    EXPECT_EQ(code_of(database, "192.0.2.1"), "**");
    EXPECT_EQ(log.errors(),
              lines{"__vc_get_country_code: Failed to retrieve value from lookup in MMDB"});
}

TEST_F(vc_geoip, private_addresses_do_not_open_the_database) {
    for (const char *ip :
         {"192.168.1.1", "127.0.0.1", "10.0.0.1", "::1", "fe80::1", "::ffff:192.0.2.1"}) {
        EXPECT_EQ(code_of("c:/quillfence/geo/missing.mmdb", ip), "**") << ip;
    }
}

TEST_F(vc_geoip, a_missing_database_is_catch_all) {
    EXPECT_EQ(code_of("c:/quillfence/geo/missing.mmdb", "192.0.2.1"), "**");
    EXPECT_EQ(log.errors(), lines{"__vc_get_country_code: Failed to open MMDB "
                                  "[c:/quillfence/geo/missing.mmdb]"});
    EXPECT_FALSE(drive.exists("c:/quillfence/geo/missing.mmdb"));
}

TEST_F(vc_geoip, an_empty_database_is_catch_all) {
    drive.write(database, "");
    EXPECT_EQ(code_of(database, "192.0.2.1"), "**");
    EXPECT_EQ(log.errors(), lines{"__vc_get_country_code: Failed to open MMDB "
                                  "[c:/quillfence/geo/country.mmdb]"});
}

TEST_F(vc_geoip, a_path_that_is_too_long_is_a_missing_database) {
    const std::string path = "c:/" + std::string(10000, 'x');
    EXPECT_EQ(code_of(path.c_str(), "192.0.2.1"), "**");
    EXPECT_EQ(log.errors().size(), 1u);
}

TEST_F(vc_geoip, a_malformed_address_is_catch_all) {
    EXPECT_EQ(code_of(database, "not an address"), "**");
    EXPECT_EQ(log.errors(), (lines{"vc_is_unroutable_ip: Address [not an address] is not a valid "
                                   "ipv4 or ipv6 address",
                                   "__vc_get_country_code: Failed to lookup ip string in MMDB"}));
}

TEST_F(vc_geoip, a_damaged_search_tree_is_catch_all) {
    std::string damaged = country_database();
    damaged.replace(0, 6, 6, '\xFF'); // both ways from the first node lead out of the file
    drive.write(database, damaged);
    EXPECT_EQ(code_of(database, "2001:db8:1::25"), "**");
    EXPECT_EQ(log.errors(), lines{"__vc_get_country_code: Failed to lookup ip string in MMDB"});
}

TEST_F(vc_geoip, bad_arguments_give_null) {
    EXPECT_EQ(vc_get_country_code(nullptr, "192.0.2.1"), nullptr);
    EXPECT_EQ(vc_get_country_code("", "192.0.2.1"), nullptr);
    EXPECT_EQ(vc_get_country_code(database, nullptr), nullptr);
    EXPECT_EQ(vc_get_country_code(database, ""), nullptr);
    EXPECT_EQ(log.errors(), lines(4, "vc_get_country_code: Invalid argument"));
    EXPECT_EQ(__vc_get_country_code(nullptr, "192.0.2.1"), nullptr);
    EXPECT_EQ(__vc_get_country_code(database, ""), nullptr);
    EXPECT_EQ(log.errors(), lines(2, "__vc_get_country_code: Invalid argument"));
}

// What stands between the first two backticks.
std::string in_backticks(const std::string &cell) {
    const size_t begin = cell.find('`') + 1;
    return cell.substr(begin, cell.find('`', begin) - begin);
}

// The page's rows: | `address` ... | `answer` | ERROR line |
TEST_F(vc_geoip, the_table_of_the_page) {
    std::ifstream page(QF_COUNTRY_PAGE);
    int rows = 0;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("| `")) {
            ++rows;
            std::istringstream cells(line.substr(2));
            std::string address, answer, error;
            std::getline(cells, address, '|');
            std::getline(cells, answer, '|');
            std::getline(cells, error, '|');
            EXPECT_EQ(code_of(database, in_backticks(address).c_str()), in_backticks(answer))
                << line;
            const lines want =
                error == " " ? lines{}
                             : lines{"__vc_get_country_code:" + error.substr(0, error.size() - 1)};
            EXPECT_EQ(log.errors(), want) << line;
        }
    }
    EXPECT_EQ(rows, 7);
}

// As the page shows the line.
TEST_F(vc_geoip, the_line_of_the_page) {
    std::ifstream page(QF_COUNTRY_PAGE);
    std::string shown;
    for (std::string line; shown.empty() && std::getline(page, line);) {
        shown = line.starts_with("    __vc") ? line.substr(4) : "";
    }
    EXPECT_EQ(code_of("c:/quillfence/geo/missing.mmdb", "192.0.2.1"), "**");
    EXPECT_EQ(log.errors(), lines{shown});
}

// A new file counts from the next question on.
TEST_F(vc_geoip, a_replaced_database_is_asked_at_once) {
    EXPECT_EQ(code_of(database, "192.0.2.1"), "DE");
    std::string other = country_database();
    other.replace(other.find("\x42"
                             "DE") +
                      1,
                  2, "AT");
    drive.write(database, other);
    EXPECT_EQ(code_of(database, "192.0.2.1"), "AT");
}

// Whatever is broken, the answer is a code or the catch-all, never a crash.
TEST_F(vc_geoip, damaged_databases_are_survived) {
    const std::string whole = country_database();
    for (size_t cut = 0; cut < whole.size(); cut += 7) {
        drive.write(database, whole.substr(0, cut));
        EXPECT_NE(code_of(database, "192.0.2.1"), "null") << "cut at " << cut;
    }
    for (size_t at = 0; at < whole.size(); ++at) {
        std::string flipped = whole;
        flipped[at] = static_cast<char>(flipped[at] ^ 0xFF);
        drive.write(database, flipped);
        EXPECT_NE(code_of(database, "192.0.2.1"), "null") << "flipped at " << at;
    }
    log.take();
}

} // namespace
} // namespace quillfence::testing
