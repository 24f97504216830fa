#include "counter_commands.h"

#include <array>

#include "../matching/range_bytes.h"
#include "call_watch.h"
#include "drive_c.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/error_numbers.h"
#include "platform/process.h"

namespace quillfence::data_tool {
namespace {

using namespace testing;

constexpr char directory[] = "c:/quillfence/log";
constexpr uint32_t november_1 = 1698796800; // 2023-11-01 00:00 UTC
constexpr uint32_t day = 86400;
constexpr uint32_t hour = 3600;

using fields = std::array<uint32_t, 8>; // a record as it lies in a file

std::string bytes_of(const fields &record) {
    std::string bytes;
    for (const uint32_t field : record) {
        bytes += little_endian(field);
    }
    return bytes;
}

// A file of records, each at its place from 0.
std::string counter_bytes(size_t size, uint32_t last_update,
                          const std::vector<std::pair<unsigned, fields>> &records) {
    std::string bytes = "\x02" + little_endian(last_update);
    bytes.resize(size);
    for (const auto &[place, record] : records) {
        bytes.replace(5 + 32 * place, 32, bytes_of(record));
    }
    return bytes;
}

class counter_commands_test : public drive_test {
  protected:
    counter_commands_test() {
        set_zone("UTC0");
        drive.make_folder(directory);
    }
    ~counter_commands_test() override {
        set_zone(nullptr);
    }
    static void set_zone(const char *zone) {
        platform::environment_set("TZ", zone);
        platform::time_zone_changed();
    }

    void put(const std::string &suffix, const std::string &bytes) const {
        drive.write(std::string(directory) + "/.counterv2.dat." + suffix, bytes);
    }
    void put_sample() const {
        put("11", counter_bytes(997, 0,
                                {{0, {november_1, 12, 3, 1, 0, 0, 15, 1}},
                                 {1, {november_1 + day, 7, 0, 0, 2, 0, 9, 0}}}));
        const uint32_t last = november_1 + day + 2 * hour;
        put("hourly", counter_bytes(773, last,
                                    {{2, {last, 5, 0, 0, 1, 4, 10, 0}},
                                     {23, {last - 3 * hour, 1000, 200, 0, 0, 0, 1200, 0}}}));
    }
    static outcome show(counter_form form) {
        return outcome_of(counter_show, counter_arguments{directory, form, ""});
    }
    static std::string page() {
        return counter_page(read_counters(directory));
    }
};

TEST_F(counter_commands_test, table) {
    put_sample();
    const std::string out = show(counter_form::table).out;
    EXPECT_TRUE(out.starts_with(
        "day         ham  spam  exempt  rate_limit  rate_limit_2  mta  mua\n"
        "2023-11-01   12     3       1           0             0   15    1\n"
        "2023-11-02    7     0       0           2             0    9    0\n"
        "total        19     3       1           2             0   24    1\n"
        "\n"
        "hour               ham  spam  exempt  rate_limit  rate_limit_2   mta  mua\n"
        "2023-11-01 03:00     0     0       0           0             0     0    0\n"))
        << out;
    EXPECT_TRUE(out.ends_with(
        "2023-11-01 23:00  1000   200       0           0             0  1200    0\n"
        "2023-11-02 00:00     0     0       0           0             0     0    0\n"
        "2023-11-02 01:00     0     0       0           0             0     0    0\n"
        "2023-11-02 02:00     5     0       0           1             4    10    0\n"
        "total             1005   200       0           1             4  1210    0\n"))
        << out;
}

TEST_F(counter_commands_test, csv) {
    put_sample();
    const std::string out = show(counter_form::csv).out;
    EXPECT_TRUE(out.starts_with("period,start,ham,spam,exempt,rate_limit,rate_limit_2,mta,mua\n"
                                "day,2023-11-01,12,3,1,0,0,15,1\n"
                                "day,2023-11-02,7,0,0,2,0,9,0\n"
                                "hour,2023-11-01 03:00,0,0,0,0,0,0,0\n"))
        << out;
    EXPECT_TRUE(out.ends_with("hour,2023-11-02 02:00,5,0,0,1,4,10,0\n")) << out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1 + 2 + 24);
}

TEST_F(counter_commands_test, json) {
    put("11", counter_bytes(997, 0, {{0, {november_1, 12, 3, 1, 0, 0, 15, 1}}}));
    EXPECT_EQ(show(counter_form::json).out,
              "{\"total\":{\"ham\":12,\"spam\":3,\"exempt\":1,\"rate_limit\":0,\"rate_limit_2\":0,"
              "\"mta\":15,\"mua\":1},\"days\":[{\"start\":\"2023-11-01\",\"ham\":12,\"spam\":3,"
              "\"exempt\":1,\"rate_limit\":0,\"rate_limit_2\":0,\"mta\":15,\"mua\":1}],"
              "\"hours\":[]}\n");
}

TEST_F(counter_commands_test, months_in_the_order_of_their_years) {
    put("01", counter_bytes(997, 0, {{30, {1706659200, 1, 0, 0, 0, 0, 1, 0}}})); // 2024-01-31
    put("11", counter_bytes(997, 0, {{0, {november_1, 2, 0, 0, 0, 0, 2, 0}}}));
    EXPECT_EQ(show(counter_form::csv).out,
              "period,start,ham,spam,exempt,rate_limit,rate_limit_2,mta,mua\n"
              "day,2023-11-01,2,0,0,0,0,2,0\n"
              "day,2024-01-31,1,0,0,0,0,1,0\n");
}

// A copy of the files is shown by the server's clock, not by the desk's.
TEST_F(counter_commands_test, another_time_zone) {
    put_sample();
    const std::string at_home = show(counter_form::csv).out;
    set_zone("EST5");
    EXPECT_EQ(show(counter_form::csv).out, at_home);
    set_zone("CET-1");
    EXPECT_EQ(show(counter_form::csv).out, at_home);
}

// The record of the last update is known by its stamp, and without that by the time of day.
TEST_F(counter_commands_test, a_last_update_that_no_record_has) {
    put("hourly", counter_bytes(773, november_1 + 2 * hour,
                                {{2, {0, 5, 0, 0, 0, 0, 5, 0}}, {3, {0, 1, 0, 0, 0, 0, 1, 0}}}));
    const std::string out = show(counter_form::csv).out;
    EXPECT_NE(out.find("\nhour,2023-10-31 03:00,1,0,0,0,0,1,0\n"), std::string::npos) << out;
    EXPECT_TRUE(out.ends_with("\nhour,2023-11-01 02:00,5,0,0,0,0,5,0\n")) << out;
}

// As on Windows for an hour before 1970.
TEST_F(counter_commands_test, hours_without_a_local_time) {
    put_sample();
    std::string out;
    {
        call_watch watch;
        watch.fail("local_time", 1, platform::error_invalid_parameter, true);
        out = show(counter_form::csv).out;
    }
    EXPECT_NE(out.find("\nday,1970-11-01,12,3,1,0,0,15,1\n"), std::string::npos) << out;
    EXPECT_TRUE(out.ends_with("\nhour,,5,0,0,1,4,10,0\n")) << out;
    {
        call_watch watch; // the days ask twice, each hour twice
        watch.fail("local_time", 4, platform::error_invalid_parameter);
        out = show(counter_form::csv).out;
    }
    EXPECT_NE(out.find("\nhour,,0,0,0,0,0,0,0\n"), std::string::npos) << out;
}

TEST_F(counter_commands_test, sums_beyond_32_bits) {
    put("11", counter_bytes(997, 0,
                            {{0, {november_1, 0xFFFFFFFF, 0, 0, 0, 0, 0, 0}},
                             {1, {november_1 + day, 0xFFFFFFFF, 0, 0, 0, 0, 0, 0}}}));
    EXPECT_NE(show(counter_form::json).out.find("{\"total\":{\"ham\":8589934590,"),
              std::string::npos);
}

TEST_F(counter_commands_test, nothing_to_show) {
    EXPECT_EQ(show(counter_form::table).failure,
              "c:/quillfence/log: holds no counter file (.counterv2.dat.*)");
    EXPECT_FALSE(drive.exists("c:/quillfence/log/.counterv2.dat.11"));
    EXPECT_EQ(outcome_of(counter_show, counter_arguments{"c:/quillfence/none", {}, ""}).failure,
              "c:/quillfence/none: is no folder; give the one that holds \"qflog\"");
}

TEST_F(counter_commands_test, files_that_were_never_counted_in) {
    put("11", counter_bytes(997, 0, {}));
    put("hourly", counter_bytes(773, 0, {}));
    EXPECT_EQ(show(counter_form::table).out,
              "day    ham  spam  exempt  rate_limit  rate_limit_2  mta  mua\n"
              "total    0     0       0           0             0    0    0\n");
    EXPECT_NE(page().find("No day has been counted yet."), std::string::npos);
}

TEST_F(counter_commands_test, another_file) {
    put("11", "hello");
    EXPECT_EQ(show(counter_form::table).failure,
              "c:/quillfence/log/.counterv2.dat.11: is no counter file, and the next count starts "
              "it anew; look at it with \"quillfence-data verify\"");
}

// --- the page ---

TEST_F(counter_commands_test, page_needs_nothing_from_elsewhere) {
    put_sample();
    const std::string html = page();
    for (const char *const word : {"<script", "http", "src=", "href=", "@import", "//"}) {
        EXPECT_EQ(html.find(word), std::string::npos) << word;
    }
}

TEST_F(counter_commands_test, page_tells_everything_in_words) {
    put_sample();
    const std::string html = page();
    for (const char *const text :
         {"<html lang=\"en\">", "<p>2023-11-01 to 2023-11-02, 2 days with mail</p>",
          "<dt>Verdicts</dt><dd>25</dd>", "<dt>Ham</dt><dd>19 <small>76.0&#8239;%</small></dd>",
          "<dt>Rate limit</dt><dd>2 <small>8.0&#8239;%</small></dd>", "</svg>Exempt</li>",
          "<h2>November 2023</h2>",
          "<title id=\"month-2023-11\">Verdicts per day, November 2023</title>",
          "<title>2023-11-01: 12 ham, 3 spam, 1 exempt, 0 rate limit</title>",
          "<title>2023-11-30: 0 ham, 0 spam, 0 exempt, 0 rate limit</title>",
          "<h2>24 hours to 2023-11-02 02:00</h2>",
          "<title>2023-11-02 02:00: 5 ham, 0 spam, 0 exempt, 5 rate limit</title>",
          "<tr><th scope=\"row\">2023-11-01 23:00</th><td>1&#8239;000</td><td>200</td>",
          "@media (prefers-color-scheme: dark)"}) {
        EXPECT_NE(html.find(text), std::string::npos) << text;
    }
    EXPECT_EQ(html.find("2023-11-31"), std::string::npos) << "November has 30 days";
}

// The bars of 2023-11-01 on a scale of 0 to 16: 12 of 16 is 0.75 of the height of 204.
TEST_F(counter_commands_test, page_draws_to_scale) {
    put_sample();
    const std::string html = page();
    const size_t at = html.find("<title>2023-11-01: 12 ham");
    ASSERT_NE(at, std::string::npos);
    const std::string bars = html.substr(at, html.find("</g>", at) - at);
    EXPECT_NE(bars.find("<rect class=\"ham\" x=\"68.48\" y=\"63\" width=\"20.9067\" "
                        "height=\"153\"/>"),
              std::string::npos)
        << bars;
    EXPECT_NE(bars.find("<rect class=\"spam\" x=\"68.48\" y=\"24.75\" width=\"20.9067\" "
                        "height=\"38.25\"/>"),
              std::string::npos)
        << bars;
}

TEST_F(counter_commands_test, page_file) {
    put_sample();
    constexpr char file[] = "c:/quillfence/counters.html";
    drive.write(file, "an older page");
    const outcome result = outcome_of(counter_show, counter_arguments{directory, {}, file});
    EXPECT_EQ(result.out, "c:/quillfence/counters.html: 2 days, 24 hours\n");
    EXPECT_EQ(drive.read(file), page());
    EXPECT_EQ(
        outcome_of(counter_show, counter_arguments{directory, {}, "c:/quillfence/none/a"}).status,
        exit_status::failed);
}

} // namespace
} // namespace quillfence::data_tool
