#include "quillfence-log.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "failing_memory.h"
#include "platform/clock.h"
#include "platform/observer.h"
#include "platform/process.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char directory[] = "c:/quillfence/log/";
constexpr char hourly_file[] = "c:/quillfence/log/.counterv2.dat.hourly";

int64_t moment;

bool chosen_moment(platform::time_of_day *now) {
    *now = {moment, 0};
    return true;
}

bool no_moment(platform::time_of_day *) {
    return false;
}

void set_zone(const char *zone) {
    platform::environment_set("TZ", zone);
    platform::time_zone_changed();
}

std::string le32(uint32_t value) {
    std::string bytes(4, '\0');
    for (size_t i = 0; i < 4; ++i) {
        bytes[i] = static_cast<char>(value >> (8 * i));
    }
    return bytes;
}

// A record's 32 bytes: stamp, ham, spam, exempt, rate limit, second rate limit, MTA, MUA.
std::string record(std::vector<uint32_t> fields) {
    fields.resize(8);
    std::string bytes;
    for (const uint32_t field : fields) {
        bytes += le32(field);
    }
    return bytes;
}

// A whole file: header and records by index, zeros elsewhere.
std::string file_with(uint32_t header, size_t size,
                      const std::vector<std::pair<size_t, std::vector<uint32_t>>> &records) {
    std::string bytes(size, '\0');
    bytes[0] = 2;
    bytes.replace(1, 4, le32(header));
    for (const auto &[index, fields] : records) {
        bytes.replace(5 + 32 * index, 32, record(fields));
    }
    return bytes;
}

std::string month_file(int month) {
    char path[64];
    snprintf(path, sizeof path, "c:/quillfence/log//.counterv2.dat.%02d", month);
    return path;
}

class journal : public drive_test {
  protected:
    journal() {
        drive.make_folder("c:/quillfence/log");
        set_zone("UTC0");
        platform::set_clock_stand_in(chosen_moment);
        moment = 1700000000; // 2023-11-14 22:13:20 UTC, a Tuesday
    }
    ~journal() override {
        platform::set_clock_stand_in(nullptr);
        platform::set_call_observer(nullptr);
        set_zone(nullptr);
    }
    smtp_state session = [] {
        smtp_state state{};
        state.ip = const_cast<char *>("192.0.2.1");
        state.port = const_cast<char *>("4711");
        state.helo = const_cast<char *>("mail.example.com");
        state.mail_from = const_cast<char *>("alice@example.com");
        state.rcpt_to = const_cast<char *>("bob@example.net");
        return state;
    }();
    std::string logged(const char *rule, uint8_t type) {
        drive.remove("c:/quillfence/log/qflog");
        log_message(&session, rule, type);
        return drive.read("c:/quillfence/log/qflog");
    }
    std::string prefix() const {
        return "2023-11-14 22:13:20 quillfence[" +
               std::to_string(static_cast<int>(platform::thread_id())) + "]: ";
    }
};

constexpr char rest[] =
    "mua=[no:(null)],ip=[192.0.2.1:(null)],port=<4711>,tls=<no>,"
    "helo=<mail.example.com>,from=<alice@example.com>,rcpt=<bob@example.net>\r\n";

// --- the line ---

TEST_F(journal, every_type_has_its_name) {
    const struct {
        uint8_t type;
        const char *want;
    } cases[] = {
        {0, "HAM: "},
        {1, "SPAM[require_helo]: "},
        {2, "EXEMPT[require_helo]: "},
        {3, "RATELIMIT[require_helo]: "},
        {4, "RATELIMIT[require_helo]: "}, // printed like 3 on purpose
        {5, "NDR: "},
        {6, "QUARANTINE[require_helo]: "},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(logged("require_helo", c.type), prefix() + c.want + rest) << int{c.type};
    }
}

// The samples of the format page, whose thread has the number 4242.
std::vector<std::string> lines_of_the_page() {
    const std::string number = std::to_string(static_cast<int>(platform::thread_id()));
    std::ifstream page(QF_MAIL_LOG_PAGE);
    std::vector<std::string> found;
    for (std::string line; std::getline(page, line);) {
        if (const size_t at = line.find("[4242]:"); line.starts_with("    2") && at < line.size()) {
            found.push_back(line.replace(at + 1, 4, number).substr(4) + "\r\n");
        }
    }
    return found;
}

TEST_F(journal, the_lines_of_the_page) {
    const smtp_state usual = session;
    std::vector<std::string> written{logged("require_helo", log_type_spam)};
    session.mua = session.tls = 1;
    session.auth_user = const_cast<char *>("carol");
    session.rdns = const_cast<char *>("host.example.com");
    written.push_back(logged("from_whitelist", log_type_ham));
    session = usual;
    session.rdns_resolves = resolves_tempfail;
    written.push_back(logged("from_whitelist", log_type_exempt));
    session = usual;
    session.port = session.helo = nullptr;
    session.mail_from = const_cast<char *>("");
    written.push_back(logged(nullptr, log_type_quarantine));
    EXPECT_EQ(written, lines_of_the_page());
}

TEST_F(journal, without_its_folder_nothing_is_logged_or_counted) {
    session.user_dirs = nullptr;
    drive.remove("c:/quillfence/log");
    log_message(&session, "require_helo", log_type_spam);
    EXPECT_FALSE(drive.exists("c:/quillfence/log"));
    log.take();
}

TEST_F(journal, a_missing_rule_is_NULL) {
    EXPECT_EQ(logged(nullptr, 1), prefix() + "SPAM[NULL]: " + rest);
    EXPECT_EQ(logged(nullptr, 0), prefix() + "HAM: " + rest);
}

TEST_F(journal, a_type_above_6_or_no_session_writes_nothing) {
    log_message(&session, "rule", 7);
    log_message(&session, "rule", 255);
    log_message(nullptr, "rule", 1);
    EXPECT_FALSE(drive.exists("c:/quillfence/log/qflog"));
    EXPECT_FALSE(drive.exists(hourly_file));
}

TEST_F(journal, the_session_fields) {
    session.mua = 1;
    session.auth_user = const_cast<char *>("carol");
    session.tls = 1;
    session.rdns = const_cast<char *>("host.example.com");
    EXPECT_EQ(logged(nullptr, 0),
              prefix() + "HAM: mua=[yes:carol],ip=[192.0.2.1:host.example.com],port=<4711>,"
                         "tls=<yes>,helo=<mail.example.com>,from=<alice@example.com>,"
                         "rcpt=<bob@example.net>\r\n");
    session.auth_user = nullptr;
    EXPECT_NE(logged(nullptr, 0).find("mua=[yes:(null)]"), std::string::npos);
    session.mua = 0; // the user is shown for a mail user agent only
    session.auth_user = const_cast<char *>("carol");
    EXPECT_NE(logged(nullptr, 0).find("mua=[no:(null)]"), std::string::npos);
}

TEST_F(journal, absent_fields) {
    session = {};
    EXPECT_EQ(logged(nullptr, 0), prefix() + "HAM: mua=[no:(null)],ip=[(null):(null)],"
                                             "port=<(unknown)>,tls=<no>,helo=<(null)>,"
                                             "from=<(null)>,rcpt=<(null)>\r\n");
}

TEST_F(journal, the_reverse_name) {
    char *names[] = {const_cast<char *>("first.example"), const_cast<char *>("second.example"),
                     nullptr};
    session.ptr_results = names;
    EXPECT_NE(logged(nullptr, 0).find("ip=[192.0.2.1:first.example]"), std::string::npos);
    session.rdns_resolves = resolves_tempfail; // an answer goes before a time-out
    EXPECT_NE(logged(nullptr, 0).find("ip=[192.0.2.1:first.example]"), std::string::npos);
    session.rdns = names[1];
    EXPECT_NE(logged(nullptr, 0).find("ip=[192.0.2.1:second.example]"), std::string::npos);
    session.rdns = nullptr;
    names[0] = nullptr;
    EXPECT_NE(logged(nullptr, 0).find("ip=[192.0.2.1:(timeout)]"), std::string::npos);
    session.ptr_results = nullptr;
    EXPECT_NE(logged(nullptr, 0).find("ip=[192.0.2.1:(timeout)]"), std::string::npos);
    session.rdns_resolves = resolves_no;
    EXPECT_NE(logged(nullptr, 0).find("ip=[192.0.2.1:(null)]"), std::string::npos);
}

TEST_F(journal, lines_are_appended_whole_whatever_their_length) {
    std::string helo(70000, 'h');
    session.helo = helo.data();
    log_message(&session, nullptr, 0);
    session.helo = const_cast<char *>("short");
    log_message(&session, nullptr, 0);
    const std::string bytes = drive.read("c:/quillfence/log/qflog");
    EXPECT_NE(bytes.find("helo=<" + helo + ">,from=<alice@example.com>"), std::string::npos);
    EXPECT_NE(bytes.find("rcpt=<bob@example.net>\r\n" + prefix()), std::string::npos);
    EXPECT_TRUE(
        bytes.ends_with("helo=<short>,from=<alice@example.com>,rcpt=<bob@example.net>\r\n"));
}

TEST_F(journal, the_program_name_can_be_set) {
    ql_set_program_name("connector");
    EXPECT_NE(logged(nullptr, 0).find(" connector["), std::string::npos);
    ql_set_program_name(nullptr);
    EXPECT_NE(logged(nullptr, 0).find(" (null)["), std::string::npos);
    ql_set_program_name("quillfence");
}

TEST_F(journal, dates_and_times_have_two_digits_a_field) {
    moment = 1704164645; // 2024-01-02 03:04:05 UTC
    EXPECT_TRUE(logged(nullptr, 0).starts_with("2024-01-02 03:04:05 quillfence["));
}

TEST_F(journal, local_time_of_a_zone_with_a_half_hour) {
    set_zone("IST-5:30");
    EXPECT_TRUE(logged(nullptr, 0).starts_with("2023-11-15 03:43:20 quillfence["));
}

// --- user directories ---

TEST_F(journal, user_directories_get_the_same_line_and_count) {
    for (const char *user : {"c:/quillfence/users/a", "c:/quillfence/users/b/"}) {
        drive.make_folder(user);
        vc_append_list_entry(&session.user_dirs, user, strlen(user) + 1, 1);
    }
    const std::string line = logged("require_helo", 1);
    EXPECT_EQ(drive.read("c:/quillfence/users/a/qflog"), line);
    EXPECT_EQ(drive.read("c:/quillfence/users/b/qflog"), line);
    const std::string counted = file_with(0, 997, {{13, {1699920000, 0, 1, 0, 0, 0, 1, 0}}});
    EXPECT_EQ(drive.read(month_file(11)), counted);
    EXPECT_EQ(drive.read("c:/quillfence/users/a/.counterv2.dat.11"), counted);
    EXPECT_EQ(drive.read("c:/quillfence/users/b/.counterv2.dat.11"), counted);
    EXPECT_EQ(drive.read("c:/quillfence/users/a/.counterv2.dat.hourly"), drive.read(hourly_file));
    vc_destroy_list(&session.user_dirs, free);
}

class journal_trace : public traced_drive_test {};

TEST_F(journal_trace, fresh_files_and_user_directories_are_traced) {
    drive.make_folder("c:/quillfence/log");
    drive.make_folder("c:/quillfence/users/a");
    smtp_state session{};
    vc_append_list_entry(&session.user_dirs, "c:/quillfence/users/a", 22, 1);
    const auto trace_of_a_message = [&] {
        log.take();
        log_message(&session, nullptr, 0);
        lines own;
        for (const log_line &line : log.take()) {
            if (line.source == "quillfence-log") {
                own.push_back(line.function + ": " + line.message);
            }
        }
        return own;
    };
    const lines fresh = {"ql_initialise_stat_file: Initialised stat file",
                         "ql_initialise_stat_file_hourly: Initialised hourly stat file"};
    const std::string user =
        "log_message: attempting to log to user directory: c:/quillfence/users/a/qflog";
    EXPECT_EQ(trace_of_a_message(), (lines{fresh[0], fresh[1], user, fresh[0], fresh[1]}));
    EXPECT_EQ(trace_of_a_message(), lines{user}) << "the files are there now";
    vc_destroy_list(&session.user_dirs, free);
}

TEST_F(journal, a_user_directory_that_is_missing_costs_only_itself) {
    drive.make_folder("c:/quillfence/users/b");
    for (const char *user : {"c:/quillfence/users/a", "", "c:/quillfence/users/b"}) {
        vc_append_list_entry(&session.user_dirs, user, strlen(user) + 1, 1);
    }
    const std::string line = logged(nullptr, 0);
    EXPECT_EQ(drive.read("c:/quillfence/users/b/qflog"), line);
    EXPECT_FALSE(drive.exists("c:/quillfence/users/a"));
    EXPECT_EQ(log.errors(), (lines{"vc_open_ex: unknown error opening - got error code 3",
                                   "log_message: failed to open or create user log...",
                                   "__build_path: Invalid argument"}));
    vc_destroy_list(&session.user_dirs, free);
}

TEST_F(journal, a_missing_log_directory_stops_everything) {
    drive.remove("c:/quillfence/log");
    drive.make_folder("c:/quillfence/users/a");
    vc_append_list_entry(&session.user_dirs, "c:/quillfence/users/a", 22, 1);
    log_message(&session, nullptr, 0);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 3"});
    EXPECT_FALSE(drive.exists("c:/quillfence/users/a/qflog"));
    vc_destroy_list(&session.user_dirs, free);
}

TEST_F(journal, without_a_clock_nothing_is_written) {
    platform::set_clock_stand_in(no_moment);
    log_message(&session, nullptr, 0);
    quillfence_increment_counter(directory, 0, 0);
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_FALSE(drive.exists("c:/quillfence/log/qflog"));
    EXPECT_FALSE(drive.exists(hourly_file));
}

// --- counting ---

TEST_F(journal, types_are_counted_in_their_fields) {
    // type, count in ham, spam, exempt, rate limit, second rate limit
    const struct {
        uint8_t type;
        uint32_t want[5];
    } cases[] = {
        {0, {1, 0, 0, 0, 0}}, {1, {0, 1, 0, 0, 0}}, {2, {0, 0, 1, 0, 0}},
        {3, {0, 0, 0, 1, 0}}, {4, {0, 0, 0, 0, 1}}, {5, {1, 0, 0, 0, 0}}, // NDR is ham
    };
    for (const auto &c : cases) {
        for (const uint8_t mua : {uint8_t{0}, uint8_t{1}}) {
            drive.remove(month_file(11));
            drive.remove(hourly_file);
            quillfence_increment_counter(directory, c.type, mua);
            quillfence_increment_counter_hourly(directory, c.type, mua);
            const std::vector<uint32_t> counts = {c.want[0], c.want[1], c.want[2], c.want[3],
                                                  c.want[4], !mua,      mua};
            std::vector<uint32_t> day = {1699920000};
            day.insert(day.end(), counts.begin(), counts.end());
            std::vector<uint32_t> hour = {1699999200};
            hour.insert(hour.end(), counts.begin(), counts.end());
            EXPECT_EQ(drive.read(month_file(11)), file_with(0, 997, {{13, day}}));
            EXPECT_EQ(drive.read(hourly_file), file_with(1699999200, 773, {{22, hour}}));
        }
    }
}

TEST_F(journal, quarantine_is_spam_through_the_log_only) {
    log_message(&session, "rule", 6);
    EXPECT_EQ(drive.read(month_file(11)),
              file_with(0, 997, {{13, {1699920000, 0, 1, 0, 0, 0, 1}}}));
    quillfence_increment_counter(directory, 6, 0);
    quillfence_increment_counter_hourly(directory, 6, 1);
    EXPECT_EQ(log.errors(), (lines{"quillfence_increment_counter: Unknown log type: 6",
                                   "quillfence_increment_counter_hourly: Unknown log type: 6"}));
    EXPECT_EQ(drive.read(month_file(11)),
              file_with(0, 997, {{13, {1699920000, 0, 1, 0, 0, 0, 2}}}));
    EXPECT_EQ(drive.read(hourly_file),
              file_with(1699999200, 773, {{22, {1699999200, 0, 1, 0, 0, 0, 1, 1}}}));
}

TEST_F(journal, counts_add_up_over_days_and_hours) {
    for (int i = 0; i < 3; ++i) {
        log_message(&session, "rule", 1);
    }
    moment += 86400; // the next day, the same hour
    session.mua = 1;
    log_message(&session, nullptr, 0);
    EXPECT_EQ(drive.read(month_file(11)), file_with(0, 997,
                                                    {{13, {1699920000, 0, 3, 0, 0, 0, 3}},
                                                     {14, {1700006400, 1, 0, 0, 0, 0, 0, 1}}}));
    EXPECT_EQ(drive.read(hourly_file),
              file_with(1700085600, 773, {{22, {1700085600, 1, 0, 0, 0, 0, 0, 1}}}));
}

TEST_F(journal, the_31st_is_the_last_record) {
    moment = 1704067199; // 2023-12-31 23:59:59
    quillfence_increment_counter(directory, 0, 0);
    EXPECT_EQ(drive.read(month_file(12)),
              file_with(0, 997, {{30, {1703980800, 1, 0, 0, 0, 0, 1}}}));
    moment += 1; // the new year
    quillfence_increment_counter(directory, 0, 0);
    EXPECT_EQ(drive.read(month_file(1)), file_with(0, 997, {{0, {1704067200, 1, 0, 0, 0, 0, 1}}}));
}

TEST_F(journal, a_stamp_that_is_set_is_kept) {
    drive.write(month_file(11), file_with(0, 997, {{13, {1699920123, 7}}}));
    quillfence_increment_counter(directory, 0, 0);
    EXPECT_EQ(drive.read(month_file(11)),
              file_with(0, 997, {{13, {1699920123, 8, 0, 0, 0, 0, 1}}}));
}

TEST_F(journal, last_years_month_is_forgotten) {
    const uint32_t midnight = 1699920000;
    const struct {
        const char *name;
        uint32_t stamp;
        bool kept;
    } cases[] = {
        {"31 days", midnight - 2678400, true},
        {"a second more", midnight - 2678401, false},
        {"last year", midnight - 365 * 86400, false},
        {"in the future", midnight + 365 * 86400, true},
        {"never counted", 0, true},
    };
    for (const auto &c : cases) {
        drive.write(month_file(11), file_with(0, 997, {{2, {c.stamp, 9}}}));
        quillfence_increment_counter(directory, 0, 0);
        std::vector<std::pair<size_t, std::vector<uint32_t>>> want = {
            {13, {midnight, 1, 0, 0, 0, 0, 1}}};
        if (c.kept) {
            want.push_back({2, {c.stamp, 9}});
        }
        EXPECT_EQ(drive.read(month_file(11)), file_with(0, 997, want)) << c.name;
    }
}

TEST_F(journal, invalid_files_are_made_anew) {
    std::string valid = file_with(0, 997, {{1, {1699920000 - 86400, 5}}});
    std::string version = valid;
    version[0] = 3;
    std::string reserved = valid;
    reserved[4] = 1;
    const std::string fresh = file_with(0, 997, {{13, {1699920000, 1, 0, 0, 0, 0, 1}}});
    for (const std::string &bytes :
         {std::string(), valid.substr(0, 996), valid + "x", version, reserved}) {
        drive.write(month_file(11), bytes);
        quillfence_increment_counter(directory, 0, 0);
        EXPECT_EQ(drive.read(month_file(11)), fresh) << bytes.size();
    }
    std::string hourly = file_with(1699999200, 773, {{1, {1699923600, 5}}});
    version = hourly;
    version[0] = 1;
    const std::string fresh_hourly =
        file_with(1699999200, 773, {{22, {1699999200, 1, 0, 0, 0, 0, 1}}});
    for (const std::string &bytes : {std::string(), hourly.substr(0, 772), hourly + "x", version}) {
        drive.write(hourly_file, bytes);
        quillfence_increment_counter_hourly(directory, 0, 0);
        EXPECT_EQ(drive.read(hourly_file), fresh_hourly) << bytes.size();
    }
}

// Every hour holds its own number as ham count; the ones that went by are emptied.
TEST_F(journal, hours_that_went_by_are_emptied) {
    const uint32_t hour_start = 1699999200; // hour 22
    const struct {
        const char *name;
        int64_t last_update;
        std::vector<size_t> emptied;
    } cases[] = {
        {"same hour", hour_start, {}},
        {"half an hour ahead", hour_start + 1800, {}}, // cut toward zero
        {"59 minutes ago", hour_start - 3599, {}},
        {"one hour ago", hour_start - 3600, {22}},
        {"three hours ago", hour_start - 3 * 3600, {22, 21, 20}},
        {"23 hours ago", hour_start - 23 * 3600, {22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11,
                                                  10, 9,  8,  7,  6,  5,  4,  3,  2,  1,  0}},
        {"24 hours ago", hour_start - 24 * 3600, {22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11,
                                                  10, 9,  8,  7,  6,  5,  4,  3,  2,  1,  0,  23}},
        {"30 hours ago", hour_start - 30 * 3600, {22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11,
                                                  10, 9,  8,  7,  6,  5,  4,  3,  2,  1,  0,  23}},
    };
    for (const auto &c : cases) {
        std::vector<std::pair<size_t, std::vector<uint32_t>>> records;
        for (size_t hour = 0; hour < 24; ++hour) {
            records.push_back({hour, {1000, static_cast<uint32_t>(hour) + 1}});
        }
        drive.write(hourly_file, file_with(static_cast<uint32_t>(c.last_update), 773, records));
        for (const size_t hour : c.emptied) {
            records[hour].second = {};
        }
        quillfence_increment_counter_hourly(directory, 1, 0);
        auto &now = records[22].second;
        now.resize(8);
        now[0] = hour_start;
        ++now[2];
        ++now[6];
        EXPECT_EQ(drive.read(hourly_file), file_with(hour_start, 773, records)) << c.name;
    }
}

TEST_F(journal, emptying_wraps_from_hour_0_to_23) {
    moment = 1699923700; // 2023-11-14 01:01:40
    std::vector<std::pair<size_t, std::vector<uint32_t>>> records;
    for (size_t hour = 0; hour < 24; ++hour) {
        records.push_back({hour, {1000, 1}});
    }
    drive.write(hourly_file, file_with(1699923600 - 4 * 3600, 773, records));
    quillfence_increment_counter_hourly(directory, 0, 0);
    for (const size_t hour : {1u, 0u, 23u, 22u}) {
        records[hour].second = {};
    }
    records[1].second = {1699923600, 1, 0, 0, 0, 0, 1};
    EXPECT_EQ(drive.read(hourly_file), file_with(1699923600, 773, records));
}

TEST_F(journal, a_clock_that_was_set_back_counts_nothing) {
    const std::string bytes = file_with(1699999200 + 3600, 773, {{22, {1, 2}}});
    drive.write(hourly_file, bytes);
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(log.errors(), lines{"quillfence_increment_counter_hourly: A negative time "
                                  "difference is not allowed"});
    EXPECT_EQ(drive.read(hourly_file), bytes);
}

TEST_F(journal, a_file_that_was_never_updated_is_not_emptied) {
    drive.write(hourly_file, file_with(0, 773, {{22, {1, 2}}, {21, {1, 3}}}));
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(drive.read(hourly_file),
              file_with(1699999200, 773, {{22, {1699999200, 3, 0, 0, 0, 0, 1}}, {21, {1, 3}}}));
}

TEST_F(journal, half_hour_zones_have_their_own_hours) {
    set_zone("IST-5:30"); // 03:43:20 on the 15th; the hour began at 21:30 UTC
    quillfence_increment_counter(directory, 0, 0);
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(drive.read(hourly_file),
              file_with(1700000000 - 43 * 60 - 20, 773,
                        {{3, {1700000000 - 43 * 60 - 20, 1, 0, 0, 0, 0, 1}}}));
    EXPECT_EQ(drive.read(month_file(11)),
              file_with(0, 997, {{14, {1699986600, 1, 0, 0, 0, 0, 1}}}));
}

TEST_F(journal, clocks_that_go_forward) {
    set_zone("EST5EDT");
    moment = 1710053999; // 2024-03-10 01:59:59 EST
    quillfence_increment_counter(directory, 0, 0);
    quillfence_increment_counter_hourly(directory, 0, 0);
    moment = 1710054000; // 03:00:00 EDT
    quillfence_increment_counter(directory, 0, 0);
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(drive.read(month_file(3)), file_with(0, 997, {{9, {1710046800, 2, 0, 0, 0, 0, 2}}}));
    EXPECT_EQ(drive.read(hourly_file), file_with(1710054000, 773,
                                                 {{1, {1710050400, 1, 0, 0, 0, 0, 1}},
                                                  {3, {1710054000, 1, 0, 0, 0, 0, 1}}}));
}

TEST_F(journal, clocks_that_go_back) {
    set_zone("EST5EDT");
    moment = 1699163999; // 2023-11-05 01:59:59 EDT
    quillfence_increment_counter(directory, 0, 0);
    quillfence_increment_counter_hourly(directory, 0, 0);
    moment = 1699164000; // 01:00:00 EST, an hour of the same number: it starts anew
    quillfence_increment_counter(directory, 0, 0);
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(drive.read(month_file(11)), file_with(0, 997, {{4, {1699156800, 2, 0, 0, 0, 0, 2}}}));
    EXPECT_EQ(drive.read(hourly_file),
              file_with(1699164000, 773, {{1, {1699164000, 1, 0, 0, 0, 0, 1}}}));
}

TEST_F(journal, directories_that_are_not_there) {
    quillfence_increment_counter("", 0, 0);
    quillfence_increment_counter(nullptr, 0, 0);
    quillfence_increment_counter("c:/quillfence/nowhere", 0, 0);
    EXPECT_EQ(log.errors(), lines{});
    quillfence_increment_counter_hourly("", 0, 0);
    quillfence_increment_counter_hourly(nullptr, 0, 0);
    quillfence_increment_counter_hourly("c:/quillfence/nowhere", 0, 0);
    EXPECT_EQ(
        log.errors(),
        (lines{"quillfence_increment_counter_hourly: the log directory [] does not exist",
               "quillfence_increment_counter_hourly: the log directory [(null)] does not exist",
               "quillfence_increment_counter_hourly: the log directory "
               "[c:/quillfence/nowhere] does not exist"}));
    EXPECT_FALSE(drive.exists("c:/quillfence/nowhere"));
}

// --- failures ---

int writes_until_failure;

uint32_t fail_a_write(const char *call, const char *) {
    return !strcmp(call, "file_write") && --writes_until_failure == 0 ? 112u : 0u;
}

TEST_F(journal, failures_of_the_daily_counter) {
    platform::set_call_observer(fail_a_write);
    writes_until_failure = 1;
    quillfence_increment_counter(directory, 0, 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_write: fatal error on block write (w32) got error code 112",
                     "quillfence_increment_counter: Failed to initialise stat file"}));
}

TEST_F(journal, failures_of_the_hourly_counter) {
    platform::set_call_observer(fail_a_write);
    writes_until_failure = 1;
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(
        log.errors(),
        (lines{"vc_write: fatal error on block write (w32) got error code 112",
               "quillfence_increment_counter_hourly: Failed to initialize hourly stat file"}));
    writes_until_failure = 2; // the last-update field of a fresh file
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_write: fatal error on block write (w32) got error code 112",
                     "quillfence_increment_counter_hourly: Failed to update hourly stat file"}));
    writes_until_failure = 2; // the file is valid now: its record
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_write: fatal error on block write (w32) got error code 112",
                     "ql_write_counter_hour: Failed to write counter record for hour: 22",
                     "quillfence_increment_counter_hourly: Failed to update hourly stat file"}));

    drive.write(hourly_file, file_with(1699999200 - 2 * 3600, 773, {}));
    writes_until_failure = 2; // the second of two hours
    quillfence_increment_counter_hourly(directory, 0, 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_write: fatal error on block write (w32) got error code 112",
                     "ql_clear_counter_hour: Failed to empty hourly stat for hour: 21"}));
    for (const uint32_t hours : {24u, 30u}) {
        drive.write(hourly_file, file_with(1699999200 - hours * 3600, 773, {}));
        writes_until_failure = 1;
        quillfence_increment_counter_hourly(directory, 0, 0);
        EXPECT_EQ(log.errors(),
                  (lines{"vc_write: fatal error on block write (w32) got error code 112",
                         "ql_clear_counter_hour: Failed to empty hourly stat for hour: 22",
                         "quillfence_increment_counter_hourly: Failed to empty hourly stat record "
                         "for all hours"}))
            << hours;
    }
}

TEST_F(journal, a_path_that_can_not_be_built_is_told) {
    const struct {
        void (*count)(const char *directory, uint8_t log_type, uint8_t mua);
        const char *want;
    } cases[] = {
        {quillfence_increment_counter,
         "quillfence_increment_counter: Failed to build path to stats counter data file"},
        {quillfence_increment_counter_hourly,
         "quillfence_increment_counter_hourly: Failed to build path to hourly counter file"},
    };
    for (const auto &c : cases) {
        lines told;
        sweep_allocations([&] { c.count(directory, 0, 0); },
                          [&](unsigned) {
                              for (const std::string &line : log.errors()) {
                                  told.push_back(line);
                              }
                          });
        EXPECT_EQ(std::count(told.begin(), told.end(), c.want), 1) << c.want;
    }
}

TEST_F(journal, a_counter_failure_never_loses_the_line) {
    platform::set_call_observer(fail_a_write);
    for (int nth = 2; nth < 6; ++nth) {
        drive.remove("c:/quillfence/log/qflog");
        drive.remove(month_file(11));
        drive.remove(hourly_file);
        writes_until_failure = nth; // the first write is the line
        log_message(&session, nullptr, 0);
        EXPECT_EQ(drive.read("c:/quillfence/log/qflog"), prefix() + "HAM: " + rest) << nth;
        EXPECT_FALSE(log.errors().empty()) << nth;
    }
}

// --- single operations ---

TEST_F(journal, days_and_hours_outside_of_the_file_are_refused) {
    drive.write(month_file(1), file_with(0, 997, {}));
    const vc_handle file = vc_open_ex(month_file(1).c_str(), 0, 1, 0);
    ql_counter counter{};
    for (const int day : {-1, 31, 1000}) {
        EXPECT_EQ(ql_seek_to_counter_day(file, day), 0);
        EXPECT_EQ(ql_read_counter_day(file, day, &counter), 0);
        EXPECT_EQ(ql_write_counter_day(file, day, &counter), 0);
    }
    for (const int hour : {-1, 24}) {
        EXPECT_EQ(ql_seek_to_counter_hour(file, hour), 0);
        EXPECT_EQ(ql_read_counter_hour(file, hour, &counter), 0);
        EXPECT_EQ(ql_write_counter_hour(file, hour, &counter, 0), 0);
        EXPECT_EQ(ql_clear_counter_hour(file, hour, 1), 0);
    }
    EXPECT_EQ(ql_clear_counter_hour(file, 0, 0), 0);
    EXPECT_EQ(ql_clear_counter_hour(file, 0, 25), 0);
    EXPECT_EQ(ql_read_counter_day(file, 0, nullptr), 0);
    EXPECT_EQ(ql_write_counter_hour(file, 0, nullptr, 0), 0);
    EXPECT_EQ(ql_read_last_update(file, nullptr), 0);
    const lines errors = log.errors();
    EXPECT_EQ(errors.size(), 22u);
    for (const std::string &error : errors) {
        EXPECT_TRUE(error.starts_with("ql_") && error.ends_with(": Invalid argument")) << error;
    }
    EXPECT_EQ(ql_seek_to_counter_day(file, 30), 1);
    EXPECT_EQ(vc_tell(file), 5 + 30 * 32);
    EXPECT_EQ(ql_seek_to_counter_hour(file, 23), 1);
    EXPECT_EQ(vc_tell(file), 5 + 23 * 32);
    vc_close(file);
    EXPECT_EQ(drive.read(month_file(1)), file_with(0, 997, {}));
}

TEST_F(journal, the_invalid_handle_is_refused) {
    ql_counter counter{};
    uint32_t stamp = 0;
    EXPECT_EQ(ql_initialise_stat_file(vc_invalid_handle), 0);
    EXPECT_EQ(ql_initialise_stat_file_hourly(vc_invalid_handle), 0);
    EXPECT_EQ(__valid_counter_file(vc_invalid_handle), 0);
    EXPECT_EQ(__valid_counter_file_hourly(vc_invalid_handle), 0);
    EXPECT_EQ(ql_read_counter_day(vc_invalid_handle, 0, &counter), 0);
    EXPECT_EQ(ql_write_counter_hour(vc_invalid_handle, 0, &counter, 0), 0);
    EXPECT_EQ(ql_clear_counter_hour(vc_invalid_handle, 0, 1), 0);
    EXPECT_EQ(ql_read_last_update(vc_invalid_handle, &stamp), 0);
    EXPECT_EQ(log.errors(), (lines{"ql_initialise_stat_file: Invalid argument",
                                   "ql_initialise_stat_file_hourly: Invalid argument",
                                   "__valid_counter_file: Invalid argument",
                                   "__valid_counter_file_hourly: Invalid argument",
                                   "ql_read_counter_day: Invalid argument",
                                   "ql_write_counter_hour: Invalid argument",
                                   "ql_clear_counter_hour: Invalid argument",
                                   "ql_read_last_update: Invalid argument"}));
}

TEST_F(journal, a_record_that_ends_early_is_not_read) {
    drive.write(month_file(1), file_with(0, 997, {}).substr(0, 996));
    const vc_handle file = vc_open_ex(month_file(1).c_str(), 0, 0, 0);
    ql_counter counter{};
    EXPECT_EQ(ql_read_counter_day(file, 30, &counter), 0);
    EXPECT_EQ(ql_read_counter_day(file, 29, &counter), 1);
    vc_close(file);
}

TEST_F(journal, initialising_empties_a_longer_file) {
    drive.write(month_file(1), std::string(5000, 'x'));
    const vc_handle file = vc_open_ex(month_file(1).c_str(), 0, 1, 0);
    EXPECT_EQ(ql_initialise_stat_file(file), 1);
    EXPECT_EQ(vc_tell(file), 0);
    vc_close(file);
    EXPECT_EQ(drive.read(month_file(1)), file_with(0, 997, {}));
}

TEST_F(journal, today) {
    int64_t midnight = 0;
    int month = 0;
    int day = 0;
    ASSERT_EQ(__absolute_date(&midnight, &month, &day), 1);
    EXPECT_EQ(midnight, 1699920000);
    EXPECT_EQ(month, 11);
    EXPECT_EQ(day, 13);
    EXPECT_EQ(__absolute_date(nullptr, &month, &day), 0);
    EXPECT_EQ(__absolute_date(&midnight, nullptr, &day), 0);
    EXPECT_EQ(__absolute_date(&midnight, &month, nullptr), 0);
    EXPECT_EQ(log.errors(), lines(3, "__absolute_date: Invalid argument"));
}

TEST_F(journal, midnight_of_a_day_whose_clock_has_changed_since) {
    set_zone("EST5EDT");
    const struct {
        int64_t moment, midnight;
    } cases[] = {
        {1710054000, 1710046800}, // 2024-03-10 03:00 EDT, the day began in EST
        {1699164000, 1699156800}, // 2023-11-05 01:00 EST, the day began in EDT
    };
    for (const auto &c : cases) {
        moment = c.moment;
        int64_t midnight = 0;
        int month = 0;
        int day = 0;
        EXPECT_EQ(__absolute_date(&midnight, &month, &day), 1);
        EXPECT_EQ(midnight, c.midnight);
    }
}

TEST_F(journal, paths) {
    EXPECT_STREQ(heap_string(ql_get_counter_file("c:/quillfence/log/", 3)).get(),
                 "c:/quillfence/log//.counterv2.dat.03");
    EXPECT_STREQ(heap_string(ql_get_counter_file_hourly("c:/x")).get(),
                 "c:/x/.counterv2.dat.hourly");
    EXPECT_EQ(ql_get_counter_file("", 3), nullptr);
    EXPECT_EQ(ql_get_counter_file_hourly(nullptr), nullptr);
    EXPECT_EQ(log.errors().size(), 2u);
}

// The hex dump of the format page is a file that the counter goes on with.
TEST_F(journal, the_sample_of_the_format_page) {
    std::ifstream page(QF_FORMAT_PAGE);
    ASSERT_TRUE(page.is_open());
    std::string bytes;
    for (std::string line; std::getline(page, line);) {
        if (line.size() < 15 || line.compare(0, 6, "    00") != 0 || line[10] != ' ') {
            continue;
        }
        std::istringstream hex(line.substr(12, 47));
        for (std::string byte; hex >> byte;) {
            bytes += static_cast<char>(std::stoi(byte, nullptr, 16));
        }
    }
    ASSERT_EQ(bytes.size(), 64u); // the first four lines of the daily sample
    bytes.resize(997);
    drive.write(month_file(11), bytes);
    moment = 1698796800; // 2023-11-01 00:00:00
    quillfence_increment_counter(directory, 1, 1);
    EXPECT_EQ(drive.read(month_file(11)), file_with(0, 997,
                                                    {{0, {1698796800, 12, 4, 1, 0, 0, 15, 2}},
                                                     {1, {1698883200, 7, 0, 0, 2, 0, 9}}}));
}

} // namespace
} // namespace quillfence::testing
