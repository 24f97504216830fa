#include "log_moment.h"

#include <charconv>
#include <chrono>

namespace quillfence::decision {

namespace {

constexpr int64_t second = 1000;
constexpr int64_t minute = 60 * second;
constexpr int64_t hour = 60 * minute;
constexpr int64_t day = 24 * hour;

// Takes a text apart from its front; once something was not there, all else fails.
struct taking {
    std::string_view left;
    bool good = true;

    int digits(size_t count) {
        int number = 0;
        if (left.size() < count) {
            good = false;
            return 0;
        }
        for (const char c : left.substr(0, count)) {
            good = good && c >= '0' && c <= '9';
            number = number * 10 + (c - '0');
        }
        left.remove_prefix(count);
        return good ? number : 0;
    }
    bool take(std::string_view any_of) {
        const bool there = !left.empty() && any_of.find(left.front()) != std::string_view::npos;
        left.remove_prefix(there ? 1 : 0);
        return there;
    }
    void need(std::string_view any_of) {
        good = take(any_of) && good;
    }
};

struct moment {
    int64_t at = 0;
    bool has_time = false;
    bool has_seconds = false;
    bool has_offset = false;
};

int64_t take_date(taking &text) {
    using namespace std::chrono;
    const int y = text.digits(4);
    text.need("-");
    const int m = text.digits(2);
    text.need("-");
    const int d = text.digits(2);
    const year_month_day date{year(y), month(static_cast<unsigned>(m)),
                              std::chrono::day(static_cast<unsigned>(d))};
    text.good = text.good && date.ok();
    return text.good ? sys_days(date).time_since_epoch().count() * day : 0;
}

// Digits behind a point, as milliseconds.
int64_t take_fraction(taking &text) {
    int64_t part = 0;
    int64_t unit = second;
    const size_t before = text.left.size();
    while (!text.left.empty() && text.left.front() >= '0' && text.left.front() <= '9') {
        unit /= 10;
        part += (text.left.front() - '0') * unit;
        text.left.remove_prefix(1);
    }
    text.good = text.good && text.left.size() < before;
    return part;
}

int64_t take_time(taking &text, moment *made) {
    const int h = text.digits(2);
    text.need(":");
    const int m = text.digits(2);
    text.good = text.good && h < 24 && m < 60;
    int64_t at = h * hour + m * minute;
    if (text.good && text.take(":")) {
        const int s = text.digits(2);
        text.good = text.good && s <= 60; // a leap second
        made->has_seconds = true;
        at += s * second + (text.take(".") ? take_fraction(text) : 0);
    }
    return at;
}

int64_t take_offset(taking &text) {
    if (text.take("Zz")) {
        return 0;
    }
    const bool west = text.left.starts_with('-');
    text.need("+-");
    const int h = text.digits(2);
    text.need(":");
    const int m = text.digits(2);
    text.good = text.good && h < 24 && m < 60;
    return (west ? 1 : -1) * (h * hour + m * minute);
}

std::optional<moment> read_parts(std::string_view text) {
    taking in{text};
    moment made;
    made.at = take_date(in);
    if (in.good && in.take("Tt ")) {
        made.has_time = true;
        made.at += take_time(in, &made);
        if (in.good && !in.left.empty()) {
            made.has_offset = true;
            made.at += take_offset(in);
        }
    }
    return in.good && in.left.empty() ? std::optional(made) : std::nullopt;
}

std::optional<int64_t> read_ago(std::string_view text) {
    static constexpr struct {
        char letter;
        int64_t milliseconds;
    } units[] = {{'s', second}, {'m', minute}, {'h', hour}, {'d', day}, {'w', 7 * day}};
    constexpr int64_t most = 100'000; // of the unit
    int64_t count = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc() || stop + 1 != end || count < 0 || count > most) {
        return std::nullopt;
    }
    for (const auto &unit : units) {
        if (*stop == unit.letter) {
            return count * unit.milliseconds;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<int64_t> read_moment(std::string_view text) {
    const auto parts = read_parts(text);
    return parts && parts->has_seconds && parts->has_offset ? std::optional(parts->at)
                                                            : std::nullopt;
}

std::optional<int64_t> read_asked_moment(std::string_view text, int64_t now) {
    const int64_t today = now - now % day;
    if (text == "today") {
        return today;
    }
    if (text == "yesterday") {
        return today - day;
    }
    if (const auto ago = read_ago(text)) {
        return now - *ago;
    }
    const auto parts = read_parts(text);
    return parts ? std::optional(parts->at) : std::nullopt;
}

} // namespace quillfence::decision
