#include "counter_data.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include "data_program.h"
#include "engine_messages.h"
#include "open_file.h"
#include "platform/clock.h"
#include "platform/error_numbers.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::data_tool {

static constexpr int64_t seconds_of_hour = 3600;

namespace {

class counter_file {
  public:
    // A missing file is fine, and not created.
    counter_file(heap_string path, int (*is_valid)(vc_handle)) : path_(path ? path.get() : "") {
        if (!path) {
            throw std::bad_alloc();
        }
        engine_messages messages;
        const uint32_t error = file_.open(path_);
        if (error && error != platform::error_file_not_found) {
            throw failure(file_error(path_, error));
        }
        if (error || is_valid(file_.handle())) {
            return;
        }
        if (const std::string problem = messages.take(); !problem.empty()) {
            throw failure(path_ + ": can't be read: " + problem);
        }
        throw failure(path_ + ": is no counter file, and the next count starts it anew; look at "
                              "it with \"quillfence-data verify\"");
    }

    bool is_open() const {
        return file_.is_open();
    }
    ql_counter day(int index) const {
        ql_counter counter = {};
        check(ql_read_counter_day(file_.handle(), index, &counter));
        return counter;
    }
    ql_counter hour(int index) const {
        ql_counter counter = {};
        check(ql_read_counter_hour(file_.handle(), index, &counter));
        return counter;
    }
    uint32_t last_update() const {
        uint32_t stamp = 0;
        check(ql_read_last_update(file_.handle(), &stamp));
        return stamp;
    }

  private:
    void check(int success) const {
        if (!success) {
            throw failure(path_ + ": can't be read");
        }
    }

    std::string path_;
    open_file file_;
};

} // namespace

static counts counts_of(const ql_counter &record) {
    counts count = {};
    for (size_t i = 0; i < count.size(); ++i) {
        count[i] = record.*counter_fields[i].value;
    }
    return count;
}

static std::string date_text(int year, int month, int day) {
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", year, month, day);
    return text;
}

// The year of a day's midnight. Noon of that day has the same date in the time zone of this machine
// as in the server's, unless they are half the world apart.
static int year_of(uint32_t midnight) {
    tm fields = {};
    return platform::local_time(int64_t{midnight} + 12 * seconds_of_hour, &fields)
               ? fields.tm_year + 1900
               : 1970;
}

static bool read_month(const std::string &directory, int month, counter_totals *totals) {
    const counter_file file(heap_string(ql_get_counter_file(directory.c_str(), month)),
                            __valid_counter_file);
    for (int index = 0; file.is_open() && index < ql_days; ++index) {
        const ql_counter record = file.day(index);
        if (record.stamp) {
            totals->days.push_back({date_text(year_of(record.stamp), month, index + 1),
                                    std::to_string(index + 1), counts_of(record)});
        }
    }
    return file.is_open();
}

// Which of the 24 records is that of the last update. Its stamp says so; in a file that lost it
// the local hour of the update does.
static int last_hour(const std::array<ql_counter, ql_hours> &records, uint32_t last_update) {
    for (int hour = 0; hour < ql_hours; ++hour) {
        if (records[static_cast<size_t>(hour)].stamp == last_update) {
            return hour;
        }
    }
    tm fields = {};
    return platform::local_time(last_update, &fields) ? fields.tm_hour : 0;
}

// The server's clock, whatever the time zone here: the hour is the record's own place, and the date
// goes with the local time that shows this hour.
static std::string hour_text(int64_t stamp, int hour) {
    tm fields = {};
    if (!platform::local_time(stamp, &fields)) {
        return {};
    }
    const int shift = (hour - fields.tm_hour + 36) % 24 - 12;
    if (!platform::local_time(stamp + shift * seconds_of_hour, &fields)) {
        return {};
    }
    char text[64];
    std::snprintf(text, sizeof text, "%s %02d:00",
                  date_text(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday).c_str(),
                  hour);
    return text;
}

static bool read_hours(const std::string &directory, counter_totals *totals) {
    const counter_file file(heap_string(ql_get_counter_file_hourly(directory.c_str())),
                            __valid_counter_file_hourly);
    const uint32_t last_update = file.is_open() ? file.last_update() : 0;
    if (!last_update) {
        return file.is_open();
    }
    std::array<ql_counter, ql_hours> records = {};
    for (int hour = 0; hour < ql_hours; ++hour) {
        records[static_cast<size_t>(hour)] = file.hour(hour);
    }
    const int last = last_hour(records, last_update);
    for (int back = ql_hours - 1; back >= 0; --back) {
        const int hour = (last - back + ql_hours) % ql_hours;
        totals->hours.push_back({hour_text(int64_t{last_update} - back * seconds_of_hour, hour),
                                 (hour < 10 ? "0" : "") + std::to_string(hour),
                                 counts_of(records[static_cast<size_t>(hour)])});
    }
    return true;
}

uint64_t verdicts_of(const counts &of) {
    uint64_t sum = 0;
    for (size_t i = 0; i < verdict_fields; ++i) {
        sum += of[i];
    }
    return sum;
}

counts sum_of(const counts &a, const counts &b) {
    counts sum = a;
    for (size_t i = 0; i < sum.size(); ++i) {
        sum[i] += b[i];
    }
    return sum;
}

counter_totals read_counters(const std::string &directory) {
    require_directory(directory, "give the one that holds \"qflog\"");
    counter_totals totals;
    bool any = false;
    for (int month = 1; month <= 12; ++month) {
        any |= read_month(directory, month, &totals);
    }
    any |= read_hours(directory, &totals);
    if (!any) {
        throw failure(directory + ": holds no counter file (.counterv2.dat.*)");
    }
    std::sort(totals.days.begin(), totals.days.end(),
              [](const counter_row &a, const counter_row &b) { return a.when < b.when; });
    for (const counter_row &day : totals.days) {
        totals.total = sum_of(totals.total, day.count);
    }
    return totals;
}

} // namespace quillfence::data_tool
