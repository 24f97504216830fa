// The mail log and the counters of verdicts.
//
// Every verdict becomes one line of the file "qflog" (docs/formats/mail-log.md) and one count in
// each of two fixed-size binary files: a daily counter file per calendar month and an hourly one of
// the last 24 hours (docs/formats/counters.md). All three lie in "c:/quillfence/log/" and, once
// more, in each user directory of the session. Nothing locks them, and nothing waits for the disk.
// A line is appended with one write, whatever its length, so that the lines of several processes
// never mix; a record of a counter is written with one write, too, but read before: two processes
// that count at once
// can lose a count.
#pragma once

#include <cstdint>

#include "configuration.h"
#include "smtp_state.h"
#include "vc_file.h"

namespace quillfence {

// Log types.
enum : uint8_t {
    log_type_ham = 0,
    log_type_spam = 1,
    log_type_exempt = 2,
    log_type_rate_limit = 3,
    log_type_rate_limit_2 = 4, // printed like 3, counted apart
    log_type_ndr = 5,          // counted as ham
    log_type_quarantine = 6,   // counted as spam, by log_message only
};

inline constexpr const char *ql_global_directory = quillfence_log_dir;

// One counter record; 32 bytes in a file, little-endian, in this order.
struct ql_counter {
    uint32_t stamp; // local midnight, or the start of the local hour; UTC seconds
    uint32_t ham;
    uint32_t spam;
    uint32_t exempt;
    uint32_t rate_limit;
    uint32_t rate_limit_2;
    uint32_t mta;
    uint32_t mua;
};

inline constexpr int ql_days = 31;
inline constexpr int ql_hours = 24;
inline constexpr uint64_t ql_daily_size = 997;  // 5 + 31 * 32
inline constexpr uint64_t ql_hourly_size = 773; // 5 + 24 * 32

// The program name in a log line. The text is borrowed for the life of the process.
void ql_set_program_name(const char *name);

// Writes the line and counts, globally and in every user directory. A null session or a type
// above 6 is ignored. A log that can't be opened is not counted in its directory either.
// ERROR lines: ENOMEM; "failed to open or create user log..."; those of vc_file and of the
// counters.
void log_message(smtp_state *state, const char *rule_name, uint8_t log_type);

// Count one verdict in a directory. An empty or missing directory is passed over, by the daily
// counter silently, by the hourly one with "the log directory [%s] does not exist".
// ERROR lines: "Failed to build path to stats counter data file", "Failed to initialise stat
// file", "Unknown log type: %d" (the MUA or MTA field is counted all the same); hourly: "Failed to
// build path to hourly counter file", "Failed to initialize hourly stat file", "A negative time
// difference is not allowed", "Failed to empty hourly stat record for all hours", "Failed to
// update hourly stat file".
void quillfence_increment_counter(const char *directory, uint8_t log_type, uint8_t mua);
void quillfence_increment_counter_hourly(const char *directory, uint8_t log_type, uint8_t mua);

// The paths of the two files as new heap strings, null without memory. The directory is used
// unchanged, so one that ends in "/" gives a doubled slash. month: 1 to 12.
char *ql_get_counter_file(const char *directory, int month);
char *ql_get_counter_file_hourly(const char *directory);

// Per-file operations on an open file: 1 or 0. A day is 0 to 30, an hour 0 to 23 (ERROR: EINVAL
// otherwise, and for the invalid handle or a null record). A record that ends early is not read.

// Empties the file, writes the version byte and zeros over the whole size, and seeks back to 0.
int ql_initialise_stat_file(vc_handle file);
int ql_initialise_stat_file_hourly(vc_handle file);
// Size, version and (daily) the reserved field are right.
int __valid_counter_file(vc_handle file);
int __valid_counter_file_hourly(vc_handle file);

int ql_seek_to_counter_day(vc_handle file, int day);
int ql_read_counter_day(vc_handle file, int day, ql_counter *counter);
int ql_write_counter_day(vc_handle file, int day, const ql_counter *counter);

int ql_seek_to_counter_hour(vc_handle file, int hour);
int ql_read_counter_hour(vc_handle file, int hour, ql_counter *counter);
// Writes the last-update field and then the record. ERROR: "Failed to write counter record for
// hour: %d".
int ql_write_counter_hour(vc_handle file, int hour, const ql_counter *counter,
                          uint32_t last_update);
// Zeroes `hours` records (1 to 24), from the given hour backwards, wrapping from 0 to 23. ERROR:
// "Failed to empty hourly stat for hour: %d" with the hour that failed.
int ql_clear_counter_hour(vc_handle file, int hour, int hours);
int ql_read_last_update(vc_handle file, uint32_t *last_update);

// Today: local midnight (UTC seconds), month 1 to 12, day of the month counted from 0.
int __absolute_date(int64_t *midnight, int *month, int *day);

} // namespace quillfence
