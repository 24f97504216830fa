// Counter files: verdicts are counted in whatever lies in their place.
//
//     the time         32 bits
//     a verdict, mua   a byte each
//     the file
#include "fuzz_support.h"
#include "platform/clock.h"
#include "quillfence-log.h"
#include "vc_w32.h"

namespace quillfence::testing {

namespace {

constexpr char folder[] = "c:/quillfence/log/";

int64_t now;

bool fuzzed_clock(platform::time_of_day *time) {
    *time = {now, 0};
    return true;
}

struct counter_place {
    std::string path;
    uint64_t size;
    int (*valid)(vc_handle file);
    int (*read)(vc_handle file, int index, ql_counter *counter);
    int index;
};

// The record that counting goes to; all zeros when the file can't be read.
ql_counter record_of(const counter_place &place, bool *valid) {
    ql_counter counter = {};
    const vc_handle file = vc_open_ex(place.path.c_str(), 0, 0, 0);
    QF_PROMISE(file != vc_invalid_handle);
    *valid = place.valid(file) && place.read(file, place.index, &counter);
    vc_close(file);
    return counter;
}

uint64_t verdicts(const ql_counter &counter) {
    return uint64_t{counter.ham} + counter.spam + counter.exempt + counter.rate_limit +
           counter.rate_limit_2;
}

// The count after one more verdict, which comes into one field, where 32 bits may wrap.
bool is_one_more(const ql_counter &before, const ql_counter &after) {
    const uint64_t more = verdicts(after) - verdicts(before);
    return more == 1 || more == 1 - (uint64_t{1} << 32);
}

void count_and_check(const counter_place &place, void (*count)(const char *, uint8_t, uint8_t),
                     uint8_t verdict, uint8_t mua) {
    bool valid = false;
    for (int i = 0; i < 2; ++i) {
        const std::string bytes = file_bytes(place.path);
        const ql_counter before = record_of(place, &valid);
        count(folder, verdict, mua);
        const std::string counted = file_bytes(place.path);
        const ql_counter after = record_of(place, &valid);
        QF_PROMISE(valid && counted.size() == place.size);
        if (i == 1 && counted != bytes && verdict < log_type_quarantine) {
            QF_PROMISE(is_one_more(before, after));
            QF_PROMISE(after.stamp == before.stamp);
        }
    }
}

std::string taken_path(char *path) {
    const std::string taken = path;
    free(path);
    return taken;
}

} // namespace

void fuzz_one(fuzz_input &input) {
    now = input.number32();
    const uint8_t verdict = input.byte();
    const uint8_t mua = input.byte();
    const std::string bytes = input.rest();
    platform::set_clock_stand_in(fuzzed_clock);

    int64_t midnight = 0;
    int month = 0;
    int day = 0;
    QF_PROMISE(__absolute_date(&midnight, &month, &day));
    QF_PROMISE(month >= 1 && month <= 12 && day >= 0 && day < ql_days);
    tm fields;
    QF_PROMISE(quillfence::localtime_r(&now, &fields));

    const counter_place daily = {taken_path(ql_get_counter_file(folder, month)), ql_daily_size,
                                 __valid_counter_file, ql_read_counter_day, day};
    const counter_place hourly = {taken_path(ql_get_counter_file_hourly(folder)), ql_hourly_size,
                                  __valid_counter_file_hourly, ql_read_counter_hour,
                                  fields.tm_hour};
    fuzz_drive().write(daily.path, bytes);
    fuzz_drive().write(hourly.path, bytes);
    count_and_check(daily, quillfence_increment_counter, verdict, mua);
    count_and_check(hourly, quillfence_increment_counter_hourly, verdict, mua);
    fuzz_drive().remove(daily.path);
    platform::set_clock_stand_in(nullptr);
}

} // namespace quillfence::testing
