#include "quillfence-log.h"

#include "byte_cursor.h"
#include "configuration.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "quillfence-file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-log";

static constexpr const char *daily_name = name_in_folder(configured("log/.counterv2.dat"));
static constexpr const char *hourly_name = name_in_folder(configured("log/.counterv2.dat.hourly"));
static constexpr const char *mail_log_name = name_in_folder(configured("log/qflog"));
static constexpr unsigned char counter_version = 2;
static constexpr uint32_t header_size = 5;
static constexpr uint32_t record_size = 32;
static constexpr int64_t seconds_an_hour = 3600;
static constexpr int64_t stale_after = 31 * 24 * seconds_an_hour;

// --- records and headers ---

static void counter_to_bytes(const ql_counter *counter, unsigned char *bytes) {
    const uint32_t fields[] = {counter->stamp,  counter->ham,        counter->spam,
                               counter->exempt, counter->rate_limit, counter->rate_limit_2,
                               counter->mta,    counter->mua};
    for (const uint32_t field : fields) {
        store_le32(bytes, field);
        bytes += sizeof field;
    }
}

static ql_counter counter_of_bytes(const unsigned char *bytes) {
    const auto field = [bytes](size_t index) { return load_le32(bytes + 4 * index); };
    return {field(0), field(1), field(2), field(3), field(4), field(5), field(6), field(7)};
}

// Exactly size bytes from the current position.
static int read_exactly(vc_handle file, void *buffer, uint32_t size) {
    uint32_t delivered = 0;
    return vc_read_nonblock(file, buffer, size, 1, 0, &delivered) && delivered == size;
}

static int write_new_file(vc_handle file, uint64_t size) {
    unsigned char bytes[ql_daily_size] = {counter_version};
    static_assert(ql_hourly_size <= ql_daily_size);
    return vc_seek(file, 0, 0) && vc_truncate(file) &&
           vc_write(file, bytes, static_cast<uint32_t>(size)) && vc_seek(file, 0, 0);
}

int ql_initialise_stat_file(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    if (!write_new_file(file, ql_daily_size)) {
        return 0;
    }
    QF_DEBUG("Initialised stat file");
    return 1;
}

int ql_initialise_stat_file_hourly(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    if (!write_new_file(file, ql_hourly_size)) {
        return 0;
    }
    QF_DEBUG("Initialised hourly stat file");
    return 1;
}

// The five bytes in front of the records; the file has the size that they belong to.
static int read_header(vc_handle file, uint64_t size, unsigned char *header) {
    return vc_filesize(file) == size && vc_seek(file, 0, 0) &&
           read_exactly(file, header, header_size) && header[0] == counter_version;
}

int __valid_counter_file(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    unsigned char header[header_size] = {};
    return read_header(file, ql_daily_size, header) && load_le32(header + 1) == 0;
}

int __valid_counter_file_hourly(vc_handle file) {
    if (file == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    unsigned char header[header_size] = {};
    return read_header(file, ql_hourly_size, header);
}

// --- single records ---

// Seeks to a record for the named operation, after checking its arguments.
static int seek_to_record(const char *operation, vc_handle file, int index, int count,
                          bool arguments_present) {
    if (file == vc_invalid_handle || index < 0 || index >= count || !arguments_present) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    return vc_seek(file, static_cast<int32_t>(header_size) + index * int32_t{record_size}, 0);
}

static int read_record(const char *operation, vc_handle file, int index, int count,
                       ql_counter *counter) {
    unsigned char bytes[record_size] = {};
    if (!seek_to_record(operation, file, index, count, counter != nullptr) ||
        !read_exactly(file, bytes, sizeof bytes)) {
        return 0;
    }
    *counter = counter_of_bytes(bytes);
    return 1;
}

static int write_record(const char *operation, vc_handle file, int index, int count,
                        const ql_counter *counter) {
    if (!seek_to_record(operation, file, index, count, counter != nullptr)) {
        return 0;
    }
    unsigned char bytes[record_size];
    counter_to_bytes(counter, bytes);
    return vc_write(file, bytes, sizeof bytes);
}

int ql_seek_to_counter_day(vc_handle file, int day) {
    return seek_to_record(__func__, file, day, ql_days, true);
}

int ql_read_counter_day(vc_handle file, int day, ql_counter *counter) {
    return read_record(__func__, file, day, ql_days, counter);
}

int ql_write_counter_day(vc_handle file, int day, const ql_counter *counter) {
    return write_record(__func__, file, day, ql_days, counter);
}

int ql_seek_to_counter_hour(vc_handle file, int hour) {
    return seek_to_record(__func__, file, hour, ql_hours, true);
}

int ql_read_counter_hour(vc_handle file, int hour, ql_counter *counter) {
    return read_record(__func__, file, hour, ql_hours, counter);
}

int ql_write_counter_hour(vc_handle file, int hour, const ql_counter *counter,
                          uint32_t last_update) {
    if (file == vc_invalid_handle || hour < 0 || hour >= ql_hours || !counter) {
        QF_EINVAL();
        return 0;
    }
    unsigned char bytes[sizeof last_update];
    store_le32(bytes, last_update);
    if (!vc_seek(file, 1, 0) || !vc_write(file, bytes, sizeof bytes)) {
        return 0;
    }
    if (!write_record(__func__, file, hour, ql_hours, counter)) {
        QF_ERROR("Failed to write counter record for hour: %d", hour);
        return 0;
    }
    return 1;
}

int ql_clear_counter_hour(vc_handle file, int hour, int hours) {
    if (file == vc_invalid_handle || hour < 0 || hour >= ql_hours || hours < 1 ||
        hours > ql_hours) {
        QF_EINVAL();
        return 0;
    }
    static constexpr ql_counter empty{};
    for (; hours > 0; --hours) {
        if (!write_record(__func__, file, hour, ql_hours, &empty)) {
            QF_ERROR("Failed to empty hourly stat for hour: %d", hour);
            return 0;
        }
        hour = hour ? hour - 1 : ql_hours - 1;
    }
    return 1;
}

int ql_read_last_update(vc_handle file, uint32_t *last_update) {
    if (file == vc_invalid_handle || !last_update) {
        QF_EINVAL();
        return 0;
    }
    unsigned char bytes[sizeof *last_update] = {};
    if (!vc_seek(file, 1, 0) || !read_exactly(file, bytes, sizeof bytes)) {
        return 0;
    }
    *last_update = load_le32(bytes);
    return 1;
}

// --- paths and moments ---

char *ql_get_counter_file(const char *directory, int month) {
    char *path = nullptr;
    if (is_empty(directory)) {
        QF_EINVAL();
        return nullptr;
    }
    vc_asprintf(&path, "%s/%s.%02d", directory, daily_name, month);
    return path;
}

char *ql_get_counter_file_hourly(const char *directory) {
    char *path = nullptr;
    if (is_empty(directory)) {
        QF_EINVAL();
        return nullptr;
    }
    vc_asprintf(&path, "%s/%s", directory, hourly_name);
    return path;
}

// Now, in UTC seconds and as local time.
static int local_now(int64_t *seconds, tm *fields) {
    platform::time_of_day now;
    if (!platform::clock_now(&now) || !quillfence::localtime_r(&now.seconds, fields)) {
        return 0;
    }
    *seconds = now.seconds;
    return 1;
}

int __absolute_date(int64_t *midnight, int *month, int *day) {
    if (!midnight || !month || !day) {
        QF_EINVAL();
        return 0;
    }
    int64_t seconds = 0;
    tm fields;
    if (!local_now(&seconds, &fields)) {
        return 0;
    }
    *month = fields.tm_mon + 1;
    *day = fields.tm_mday - 1;
    fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
    fields.tm_isdst = -1; // the clock may have changed since midnight
    *midnight = platform::from_local_time(&fields);
    return *midnight != -1;
}

// --- counting ---

static void count_verdict(const char *operation, ql_counter *counter, uint8_t log_type,
                          uint8_t mua) {
    static constexpr uint32_t ql_counter::*fields[] = {
        &ql_counter::ham,        &ql_counter::spam,         &ql_counter::exempt,
        &ql_counter::rate_limit, &ql_counter::rate_limit_2, &ql_counter::ham, // NDR
    };
    ++(mua ? counter->mua : counter->mta);
    if (log_type < sizeof fields / sizeof *fields) {
        ++(counter->*fields[log_type]);
    } else {
        QF_ERROR_AS(operation, "Unknown log type: %d", log_type);
    }
}

// A record of last year's month, or one that can't be read.
static int is_stale(vc_handle file, uint32_t midnight) {
    unsigned char records[ql_daily_size - header_size] = {};
    if (!vc_seek(file, int32_t{header_size}, 0) || !read_exactly(file, records, sizeof records)) {
        return 1;
    }
    for (size_t day = 0; day < size_t{ql_days}; ++day) {
        const int64_t stamp = load_le32(records + day * record_size);
        if (stamp && int64_t{midnight} - stamp > stale_after) {
            return 1;
        }
    }
    return 0;
}

static void count_day(vc_handle file, uint32_t midnight, int day, uint8_t log_type, uint8_t mua) {
    static constexpr char operation[] = "quillfence_increment_counter";
    if ((!__valid_counter_file(file) || is_stale(file, midnight)) &&
        !ql_initialise_stat_file(file)) {
        QF_ERROR_AS(operation, "Failed to initialise stat file");
        return;
    }
    ql_counter counter;
    if (!ql_read_counter_day(file, day, &counter)) {
        return;
    }
    if (!counter.stamp) {
        counter.stamp = midnight;
    }
    count_verdict(operation, &counter, log_type, mua);
    ql_write_counter_day(file, day, &counter);
}

void quillfence_increment_counter(const char *directory, uint8_t log_type, uint8_t mua) {
    int64_t midnight = 0;
    int month = 0;
    int day = 0;
    if (is_empty(directory) || !vc_file_exists_ex(directory, vc_type_directory) ||
        !__absolute_date(&midnight, &month, &day)) {
        return;
    }
    const heap_string path(ql_get_counter_file(directory, month));
    if (!path) {
        QF_ERROR("Failed to build path to stats counter data file");
        return;
    }
    const vc_handle file = vc_open_ex(path.get(), 0, 1, 0);
    if (file != vc_invalid_handle) {
        count_day(file, static_cast<uint32_t>(midnight), day, log_type, mua);
        vc_close(file);
    }
}

// Empties the records of the hours that have gone by since the last update.
static int forget_old_hours(vc_handle file, int64_t hour_start, int hour) {
    static constexpr char operation[] = "quillfence_increment_counter_hourly";
    uint32_t last_update = 0;
    if (!ql_read_last_update(file, &last_update)) {
        return 0;
    }
    if (!last_update) {
        return 1;
    }
    const int64_t elapsed = (hour_start - last_update) / seconds_an_hour;
    if (elapsed < 0) {
        QF_ERROR_AS(operation, "A negative time difference is not allowed");
        return 0;
    }
    if (elapsed >= ql_hours) {
        if (!ql_clear_counter_hour(file, hour, ql_hours)) {
            QF_ERROR_AS(operation, "Failed to empty hourly stat record for all hours");
            return 0;
        }
        return 1;
    }
    return elapsed == 0 || ql_clear_counter_hour(file, hour, static_cast<int>(elapsed));
}

static void count_hour(vc_handle file, int64_t hour_start, int hour, uint8_t log_type,
                       uint8_t mua) {
    static constexpr char operation[] = "quillfence_increment_counter_hourly";
    if (!__valid_counter_file_hourly(file) && !ql_initialise_stat_file_hourly(file)) {
        QF_ERROR_AS(operation, "Failed to initialize hourly stat file");
        return;
    }
    ql_counter counter;
    if (!forget_old_hours(file, hour_start, hour) || !ql_read_counter_hour(file, hour, &counter)) {
        return;
    }
    const auto stamp = static_cast<uint32_t>(hour_start);
    counter.stamp = stamp;
    count_verdict(operation, &counter, log_type, mua);
    if (!ql_write_counter_hour(file, hour, &counter, stamp)) {
        QF_ERROR_AS(operation, "Failed to update hourly stat file");
    }
}

void quillfence_increment_counter_hourly(const char *directory, uint8_t log_type, uint8_t mua) {
    if (is_empty(directory) || !vc_file_exists_ex(directory, vc_type_directory)) {
        QF_ERROR("the log directory [%s] does not exist", text_or_null(directory));
        return;
    }
    int64_t seconds = 0;
    tm fields;
    if (!local_now(&seconds, &fields)) {
        return;
    }
    // Counted back from now, which holds in zones with half hours and in the hour of a clock
    // change.
    const int64_t hour_start = seconds - fields.tm_min * 60 - fields.tm_sec;
    const heap_string path(ql_get_counter_file_hourly(directory));
    if (!path) {
        QF_ERROR("Failed to build path to hourly counter file");
        return;
    }
    const vc_handle file = vc_open_ex(path.get(), 0, 1, 0);
    if (file != vc_invalid_handle) {
        count_hour(file, hour_start, fields.tm_hour, log_type, mua);
        vc_close(file);
    }
}

// --- the mail log ---

static const char *program_name = "quillfence";

void ql_set_program_name(const char *name) {
    program_name = name;
}

// The client's reverse name as the log shows it.
static const char *shown_reverse_name(const smtp_state *state) {
    const char *const name = known_reverse_name(state);
    const bool failed = state->rdns_resolves == resolves_tempfail;
    return name ? name : failed ? "(timeout)" : "(null)";
}

// The whole line as a new string; null without memory (vc_asprintf says so).
static char *log_line(const smtp_state *state, const char *rule_name, uint8_t log_type,
                      const tm *now, uint32_t thread) {
    static constexpr const char *names[] = {"HAM",       "SPAM", "EXEMPT",    "RATELIMIT",
                                            "RATELIMIT", "NDR",  "QUARANTINE"};
    const bool named = log_type != log_type_ham && log_type != log_type_ndr;
    const char *rule = rule_name ? rule_name : "NULL";
    char *line = nullptr;
    vc_asprintf(&line,
                "%04d-%02d-%02d %02d:%02d:%02d %s[%d]: %s%s%s%s: mua=[%s:%s],ip=[%s:%s],port=<%s>,"
                "tls=<%s>,helo=<%s>,from=<%s>,rcpt=<%s>\r\n",
                now->tm_year + 1900, now->tm_mon + 1, now->tm_mday, now->tm_hour, now->tm_min,
                now->tm_sec, text_or_null(program_name), static_cast<int>(thread), names[log_type],
                named ? "[" : "", named ? rule : "", named ? "]" : "", yes_or_no(state->mua),
                text_or_null(state->mua ? state->auth_user : nullptr), text_or_null(state->ip),
                shown_reverse_name(state), state->port ? state->port : "(unknown)",
                yes_or_no(state->tls), text_or_null(state->helo), text_or_null(state->mail_from),
                text_or_null(state->rcpt_to));
    return line;
}

// Appends the line to the open log and closes it.
static void append_line(vc_handle log, const char *line) {
    vc_append(log, line, static_cast<uint32_t>(strlen(line)));
    vc_close(log);
}

static void count_in(const char *directory, uint8_t log_type, uint8_t mua) {
    const uint8_t counted = log_type == log_type_quarantine ? uint8_t{log_type_spam} : log_type;
    quillfence_increment_counter(directory, counted, mua);
    quillfence_increment_counter_hourly(directory, counted, mua);
}

static void log_for_user(const char *directory, const char *line, uint8_t log_type, uint8_t mua) {
    static constexpr char operation[] = "log_message";
    const heap_string path(__build_path(directory, mail_log_name));
    if (!path) {
        return;
    }
    QF_DEBUG_AS(operation, "attempting to log to user directory: %s", path.get());
    const vc_handle log = vc_open_append(path.get());
    if (log == vc_invalid_handle) {
        QF_ERROR_AS(operation, "failed to open or create user log...");
        return;
    }
    append_line(log, line);
    count_in(directory, log_type, mua);
}

void log_message(smtp_state *state, const char *rule_name, uint8_t log_type) {
    if (!state || log_type > log_type_quarantine) {
        return;
    }
    int64_t seconds = 0;
    tm now;
    if (!local_now(&seconds, &now)) {
        return;
    }
    const uint32_t thread = platform::thread_id();
    const heap_string path(__build_path(ql_global_directory, mail_log_name));
    const heap_string line(log_line(state, rule_name, log_type, &now, thread));
    if (!path || !line) {
        QF_ENOMEM();
        return;
    }
    const vc_handle log = vc_open_append(path.get());
    if (log == vc_invalid_handle) {
        return;
    }
    append_line(log, line.get());
    count_in(ql_global_directory, log_type, state->mua);
    for (const vc_list_entry *entry = state->user_dirs; entry; entry = entry->next) {
        log_for_user(static_cast<const char *>(entry->data), line.get(), log_type, state->mua);
    }
}

} // namespace quillfence
