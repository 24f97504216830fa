#include "platform/clock.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "platform/error_numbers.h"
#include "platform/observer.h"
#include "platform/process.h"

namespace quillfence::platform {
namespace {

constexpr char utc[] = "UTC0";
constexpr char india[] = "IST-5:30";  // half an hour, no summer time
constexpr char eastern[] = "EST5EDT"; // summer time from 10 March to 3 November in 2024
constexpr char newfoundland[] = "NST3:30NDT";

// The seconds of the two changes of 2024 in the eastern zone.
constexpr int64_t summer_begins = 1710054000;
constexpr int64_t summer_ends = 1730613600;

class zone : public ::testing::Test {
  protected:
    zone() {
        char buffer[256] = "";
        had_zone = environment_has("TZ");
        environment_variable("TZ", buffer, sizeof buffer);
        zone_before = buffer;
    }
    ~zone() override {
        set(had_zone ? zone_before.c_str() : nullptr);
    }
    static void set(const char *name) {
        ASSERT_TRUE(environment_set("TZ", name));
        time_zone_changed();
    }

  private:
    bool had_zone;
    std::string zone_before;
};

std::string text_of(const tm &fields) {
    char text[128];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d weekday %d day %d dst %d",
             fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
             fields.tm_min, fields.tm_sec, fields.tm_wday, fields.tm_yday, fields.tm_isdst);
    return text;
}

TEST_F(zone, seconds_to_local_fields_and_back) {
    static constexpr struct {
        const char *zone;
        int64_t seconds;
        const char *want;
    } cases[] = {
        {utc, 0, "1970-01-01 00:00:00 weekday 4 day 0 dst 0"},
        {utc, 951782399, "2000-02-28 23:59:59 weekday 1 day 58 dst 0"},
        {utc, 951782400, "2000-02-29 00:00:00 weekday 2 day 59 dst 0"},
        {utc, 0x7fffffff, "2038-01-19 03:14:07 weekday 2 day 18 dst 0"},
        {utc, 0x80000000, "2038-01-19 03:14:08 weekday 2 day 18 dst 0"},
        {utc, 0xffffffff, "2106-02-07 06:28:15 weekday 0 day 37 dst 0"},
        {utc, 0x100000000, "2106-02-07 06:28:16 weekday 0 day 37 dst 0"},
        {india, 1700000000, "2023-11-15 03:43:20 weekday 3 day 318 dst 0"},
        {india, 1721000000, "2024-07-15 05:03:20 weekday 1 day 196 dst 0"},
        {eastern, 1700000000, "2023-11-14 17:13:20 weekday 2 day 317 dst 0"},
        {eastern, summer_begins - 1, "2024-03-10 01:59:59 weekday 0 day 69 dst 0"},
        {eastern, summer_begins, "2024-03-10 03:00:00 weekday 0 day 69 dst 1"},
        {eastern, 1721000000, "2024-07-14 19:33:20 weekday 0 day 195 dst 1"},
        {eastern, summer_ends - 1, "2024-11-03 01:59:59 weekday 0 day 307 dst 1"},
        {eastern, summer_ends, "2024-11-03 01:00:00 weekday 0 day 307 dst 0"},
        {newfoundland, 1700000000, "2023-11-14 18:43:20 weekday 2 day 317 dst 0"},
        {newfoundland, 1721000000, "2024-07-14 21:03:20 weekday 0 day 195 dst 1"},
    };
    for (const auto &c : cases) {
        set(c.zone);
        tm fields = {};
        EXPECT_TRUE(local_time(c.seconds, &fields)) << c.zone << " " << c.seconds;
        EXPECT_EQ(text_of(fields), c.want) << c.zone << " " << c.seconds;
        EXPECT_EQ(from_local_time(&fields), c.seconds) << c.zone << " " << c.want;
    }
}

TEST_F(zone, seconds_beyond_the_calendar) {
    tm fields = {};
    EXPECT_FALSE(local_time(INT64_MAX, &fields));
    EXPECT_FALSE(local_time(INT64_MIN, &fields));
}

tm fields_of(int year, int month, int day, int hour, int minute, int second, int dst) {
    tm fields = {};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = dst;
    return fields;
}

TEST_F(zone, local_fields_to_seconds) {
    static const struct {
        const char *name, *zone;
        tm fields;
        int64_t want;
        const char *want_fields;
    } cases[] = {
        {"midnight before summer time begins", eastern, fields_of(2024, 3, 10, 0, 0, 0, -1),
         summer_begins - 7200, "2024-03-10 00:00:00 weekday 0 day 69 dst 0"},
        {"midnight after it began", eastern, fields_of(2024, 3, 11, 0, 0, 0, -1),
         summer_begins + 21 * 3600, "2024-03-11 00:00:00 weekday 1 day 70 dst 1"},
        {"midnight before it ends", eastern, fields_of(2024, 11, 3, 0, 0, 0, -1),
         summer_ends - 7200, "2024-11-03 00:00:00 weekday 0 day 307 dst 1"},
        {"midnight after it ended", eastern, fields_of(2024, 11, 4, 0, 0, 0, -1),
         summer_ends + 23 * 3600, "2024-11-04 00:00:00 weekday 1 day 308 dst 0"},
        {"the first 1:30 of two", eastern, fields_of(2024, 11, 3, 1, 30, 0, 1), summer_ends - 1800,
         "2024-11-03 01:30:00 weekday 0 day 307 dst 1"},
        {"the second 1:30 of two", eastern, fields_of(2024, 11, 3, 1, 30, 0, 0), summer_ends + 1800,
         "2024-11-03 01:30:00 weekday 0 day 307 dst 0"},
        {"half an hour", india, fields_of(2023, 11, 15, 0, 0, 0, -1), 1699986600,
         "2023-11-15 00:00:00 weekday 3 day 318 dst 0"},
        {"the 32nd of December", utc, fields_of(2023, 12, 32, 0, 0, 0, -1), 1704067200,
         "2024-01-01 00:00:00 weekday 1 day 0 dst 0"},
        {"the 13th month", utc, fields_of(2023, 13, 1, 0, 0, 0, -1), 1704067200,
         "2024-01-01 00:00:00 weekday 1 day 0 dst 0"},
        {"hour -1", utc, fields_of(2024, 1, 1, -1, 0, 0, -1), 1704063600,
         "2023-12-31 23:00:00 weekday 0 day 364 dst 0"},
    };
    for (const auto &c : cases) {
        set(c.zone);
        tm fields = c.fields;
        EXPECT_EQ(from_local_time(&fields), c.want) << c.name;
        EXPECT_EQ(text_of(fields), c.want_fields) << c.name;
    }
}

TEST_F(zone, fields_that_no_time_has) {
    set(utc);
    tm fields = fields_of(1970, 1, 1, 0, 0, 0, -1);
    fields.tm_year = INT_MAX;
    fields.tm_mon = INT_MAX;
    EXPECT_EQ(from_local_time(&fields), -1);
}

TEST_F(zone, a_changed_zone_is_seen) {
    tm fields = {};
    for (const auto &[name, hour] : {std::pair{utc, 22}, {eastern, 17}, {india, 3}, {utc, 22}}) {
        set(name);
        ASSERT_TRUE(local_time(1700000000, &fields)) << name;
        EXPECT_EQ(fields.tm_hour, hour) << name;
    }
}

class clock : public ::testing::Test {
  protected:
    ~clock() override {
        set_clock_stand_in(nullptr);
        set_call_observer(nullptr);
    }
};

TEST_F(clock, is_the_time_of_the_system) {
    const int64_t before = time(nullptr) - 1;
    time_of_day now = {-1, -1};
    ASSERT_TRUE(clock_now(&now));
    EXPECT_GE(now.seconds, before);
    EXPECT_LE(now.seconds, time(nullptr) + 1);
    EXPECT_GE(now.microseconds, 0);
    EXPECT_LT(now.microseconds, 1000000);
}

TEST_F(clock, stand_in_chooses_the_moment) {
    set_clock_stand_in([](time_of_day *now) {
        *now = {1700000000, 900000};
        return true;
    });
    time_of_day now = {};
    ASSERT_TRUE(clock_now(&now));
    EXPECT_EQ(now.seconds, 1700000000);
    EXPECT_EQ(now.microseconds, 900000);
    set_clock_stand_in([](time_of_day *) { return false; });
    EXPECT_FALSE(clock_now(&now));
    set_clock_stand_in(nullptr);
    ASSERT_TRUE(clock_now(&now));
    EXPECT_NE(now.seconds, 1700000000);
}

TEST_F(clock, every_function_can_be_made_to_fail) {
    static std::string observed;
    observed.clear();
    set_call_observer([](const char *call, const char *) -> uint32_t {
        observed += std::string(call) + " ";
        return error_gen_failure;
    });
    time_of_day now = {};
    tm fields = {};
    EXPECT_FALSE(clock_now(&now));
    EXPECT_FALSE(local_time(0, &fields));
    EXPECT_EQ(from_local_time(&fields), -1);
    EXPECT_EQ(observed, "clock_now local_time from_local_time ");
}

} // namespace
} // namespace quillfence::platform
