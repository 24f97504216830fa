#include "utc_text.h"

#include <chrono>
#include <cstdio>

namespace quillfence::decision {

std::string utc_text(int64_t seconds, int milliseconds) {
    using namespace std::chrono;
    const sys_seconds moment{std::chrono::seconds(seconds)};
    const sys_days day = floor<days>(moment);
    const year_month_day date(day);
    const hh_mm_ss time(moment - day);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    std::string whole = text;
    if (milliseconds >= 0) {
        std::snprintf(text, sizeof text, ".%03d", milliseconds);
        whole += text;
    }
    return whole + 'Z';
}

} // namespace quillfence::decision
