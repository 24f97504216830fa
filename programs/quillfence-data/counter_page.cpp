// The counters as a page for a browser. Everything is in the one file: styles, drawings, no
// scripts. What colours tell is told by patterns and words as well.
#include "counter_commands.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "text.h"

namespace quillfence::data_tool {

namespace {

constexpr char style[] = R"(
:root { color-scheme: light dark; --page: #fbfbf9; --ink: #1f2328; --soft: #5f666d;
  --line: #d9dad6; --ham: #2f6fb5; --spam: #d9722b; --exempt: #2a9485; --limit: #8566b0; }
@media (prefers-color-scheme: dark) {
  :root { --page: #16181c; --ink: #e6e6e3; --soft: #a0a6ad; --line: #33373d;
    --ham: #6ea8e8; --spam: #f0a060; --exempt: #5fc7b8; --limit: #b79be0; } }
body { margin: 0 auto; padding: 2rem 1.5rem 4rem; max-width: 62rem; background: var(--page);
  color: var(--ink); font: 16px/1.5 system-ui, "Segoe UI", sans-serif; }
h1 { font-size: 1.6rem; font-weight: 600; margin: 0; }
h2 { font-size: 1.1rem; font-weight: 600; margin: 2.5rem 0 .5rem; }
p { margin: .25rem 0; color: var(--soft); }
dl { display: flex; flex-wrap: wrap; gap: 1rem 2.5rem; margin: 1.5rem 0; }
dt { color: var(--soft); font-size: .9rem; }
dd { margin: 0; font-size: 1.6rem; font-variant-numeric: tabular-nums; }
dd small { font-size: .9rem; color: var(--soft); }
ul { display: flex; flex-wrap: wrap; gap: .25rem 1.5rem; margin: 1rem 0 0; padding: 0;
  list-style: none; }
li svg { width: 1rem; height: 1rem; vertical-align: -.15rem; margin-right: .4rem; }
svg.chart { display: block; width: 100%; height: auto; }
svg text { fill: var(--soft); font: 12px system-ui, "Segoe UI", sans-serif; }
svg .grid { stroke: var(--line); }
.fill-ham { fill: var(--ham); } .fill-spam { fill: var(--spam); }
.fill-exempt { fill: var(--exempt); } .fill-limit { fill: var(--limit); }
.mark { fill: none; stroke: var(--page); stroke-width: 1.5; } .dot { fill: var(--page); }
.ham { fill: var(--ham); } .spam { fill: url(#spam); } .exempt { fill: url(#exempt); }
.limit { fill: url(#limit); }
.table { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { padding: .3rem .75rem; text-align: right; font-weight: 400; white-space: nowrap; }
th:first-child { text-align: left; padding-left: 0; }
thead th { color: var(--soft); font-size: .9rem; }
tbody tr, tfoot tr { border-top: 1px solid var(--line); }
tfoot th, tfoot td { font-weight: 600; }
)";

// Drawn once; the charts and the legend refer to them.
constexpr char patterns[] =
    R"svg(<svg width="0" height="0" style="position:absolute" aria-hidden="true">
<pattern id="spam" width="6" height="6" patternUnits="userSpaceOnUse" patternTransform="rotate(45)"><rect class="fill-spam" width="6" height="6"/><path class="mark" d="M0 0V6"/></pattern>
<pattern id="exempt" width="6" height="6" patternUnits="userSpaceOnUse"><rect class="fill-exempt" width="6" height="6"/><circle class="dot" cx="3" cy="3" r="1.2"/></pattern>
<pattern id="limit" width="6" height="6" patternUnits="userSpaceOnUse"><rect class="fill-limit" width="6" height="6"/><path class="mark" d="M0 3H6"/></pattern>
</svg>
)svg";

// What is stacked in a bar, from the bottom up.
struct series {
    const char *css;
    const char *title;
    uint64_t (*value)(const counts &of);
};
constexpr std::array<series, 4> all_series = {{
    {"ham", "Ham", [](const counts &of) { return of[0]; }},
    {"spam", "Spam", [](const counts &of) { return of[1]; }},
    {"exempt", "Exempt", [](const counts &of) { return of[2]; }},
    {"limit", "Rate limit", [](const counts &of) { return of[3] + of[4]; }},
}};

// 1234567 as "1 234 567", with narrow spaces that do not break.
std::string number_text(uint64_t number) {
    const std::string digits = std::to_string(number);
    std::string text;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i && (digits.size() - i) % 3 == 0) {
            text += "&#8239;";
        }
        text += digits[i];
    }
    return text;
}

// The next of 4, 8, 12, 16, 20, 24, 32, 40, 80, ... that is not below the number: it has four equal
// parts.
uint64_t round_up(uint64_t number) {
    for (uint64_t power = 1;; power *= 10) {
        for (const uint64_t factor : {4u, 8u, 12u, 16u, 20u, 24u, 32u}) {
            if (factor * power >= number) {
                return factor * power;
            }
        }
    }
}

// --- charts ---

constexpr double chart_width = 960;
constexpr double chart_height = 240;
constexpr double left = 64;
constexpr double top = 12;
constexpr double bottom = 24;
constexpr double plot_height = chart_height - top - bottom;
constexpr double plot_width = chart_width - left;

struct bar {
    std::string label;
    std::string when;
    counts count = {};
};

std::string bar_title(const bar &one) {
    std::string title = one.when + ": ";
    const char *separator = "";
    for (const series &part : all_series) {
        title += separator + number_text(part.value(one.count)) + ' ' + lower(part.title);
        separator = ", ";
    }
    return title;
}

class chart {
  public:
    // most: the verdicts that the scale must have room for
    chart(std::string id, std::string title, std::vector<bar> bars, uint64_t most)
        : id_(std::move(id)), title_(std::move(title)), bars_(std::move(bars)),
          scale_(round_up(most)) {}

    void write(std::ostream &out) const {
        out << "<svg class=\"chart\" viewBox=\"0 0 " << chart_width << ' ' << chart_height
            << "\" role=\"img\" aria-labelledby=\"" << id_ << "\">\n<title id=\"" << id_ << "\">"
            << title_ << "</title>\n";
        write_grid(out);
        for (size_t i = 0; i < bars_.size(); ++i) {
            write_bar(i, out);
        }
        out << "</svg>\n";
    }

  private:
    double height_of(uint64_t value) const {
        return plot_height * static_cast<double>(value) / static_cast<double>(scale_);
    }

    void write_grid(std::ostream &out) const {
        for (uint64_t part = 0; part <= 4; ++part) {
            const uint64_t value = scale_ / 4 * part;
            const double y = top + plot_height - height_of(value);
            out << "<path class=\"grid\" d=\"M" << left << ' ' << y << 'H' << chart_width
                << "\"/><text x=\"" << left - 8 << "\" y=\"" << y + 4 << "\" text-anchor=\"end\">"
                << number_text(value) << "</text>\n";
        }
    }

    void write_bar(size_t index, std::ostream &out) const {
        const bar &one = bars_[index];
        const double slot = plot_width / static_cast<double>(bars_.size());
        const double x = left + slot * static_cast<double>(index);
        out << "<g><title>" << bar_title(one) << "</title>";
        double y = top + plot_height;
        for (const series &part : all_series) {
            const double height = height_of(part.value(one.count));
            if (height > 0) {
                y -= height;
                out << "<rect class=\"" << part.css << "\" x=\"" << x + slot * 0.15 << "\" y=\""
                    << y << "\" width=\"" << slot * 0.7 << "\" height=\"" << height << "\"/>";
            }
        }
        out << "<text x=\"" << x + slot / 2 << "\" y=\"" << chart_height - 6
            << "\" text-anchor=\"middle\">" << one.label << "</text></g>\n";
    }

    std::string id_;
    std::string title_;
    std::vector<bar> bars_;
    uint64_t scale_;
};

int days_of_month(int year, int month) {
    static constexpr std::array<int, 12> days = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return days[static_cast<size_t>(month - 1)] + (month == 2 && leap ? 1 : 0);
}

// A bar for every day of the month "2023-11", counted or not.
std::vector<bar> bars_of_month(const std::vector<counter_row> &days, const std::string &month) {
    const int last = days_of_month(std::stoi(month.substr(0, 4)), std::stoi(month.substr(5)));
    std::vector<bar> bars;
    for (int day = 1; day <= last; ++day) {
        const std::string label = std::to_string(day);
        bars.push_back({label, month + (day < 10 ? "-0" : "-") + label});
    }
    for (const counter_row &row : days) {
        const auto at = std::find_if(bars.begin(), bars.end(),
                                     [&row](const bar &one) { return one.when == row.when; });
        if (at != bars.end()) {
            at->count = row.count;
        }
    }
    return bars;
}

std::string month_title(const std::string &month) {
    static constexpr std::array<const char *, 12> names = {
        "January", "February", "March",     "April",   "May",      "June",
        "July",    "August",   "September", "October", "November", "December"};
    return names[static_cast<size_t>(std::stoi(month.substr(5)) - 1)] + (' ' + month.substr(0, 4));
}

// "2023-11" and so on, the latest first.
std::vector<std::string> months_of(const std::vector<counter_row> &days) {
    std::vector<std::string> months;
    for (const counter_row &row : days) {
        months.push_back(row.when.substr(0, 7));
    }
    months.erase(std::unique(months.begin(), months.end()), months.end());
    std::reverse(months.begin(), months.end());
    return months;
}

uint64_t most_of(const std::vector<counter_row> &rows) {
    uint64_t most = 0;
    for (const counter_row &row : rows) {
        most = std::max(most, verdicts_of(row.count));
    }
    return most;
}

// All months have one scale, so that they can be compared.
void write_days(const counter_totals &totals, std::ostream &out) {
    const uint64_t most = most_of(totals.days);
    for (const std::string &month : months_of(totals.days)) {
        const std::string title = month_title(month);
        out << "<h2>" << title << "</h2>\n";
        chart("month-" + month, "Verdicts per day, " + title, bars_of_month(totals.days, month),
              most)
            .write(out);
    }
}

void write_hours(const counter_totals &totals, std::ostream &out) {
    if (totals.hours.empty()) {
        return;
    }
    std::vector<bar> bars;
    for (const counter_row &row : totals.hours) {
        bars.push_back({row.label, row.when, row.count});
    }
    const std::string title = "24 hours to " + totals.hours.back().when;
    out << "<h2>" << title << "</h2>\n";
    chart("hours", "Verdicts per hour, " + title, bars, most_of(totals.hours)).write(out);
}

// --- words and tables ---

void write_total(const char *title, uint64_t value, uint64_t all, std::ostream &out) {
    out << "<div><dt>" << title << "</dt><dd>" << number_text(value);
    if (all) {
        const uint64_t tenths = (value * 1000 + all / 2) / all;
        out << " <small>" << tenths / 10 << '.' << tenths % 10 << "&#8239;%</small>";
    }
    out << "</dd></div>\n";
}

void write_head(const counter_totals &totals, std::ostream &out) {
    const uint64_t all = verdicts_of(totals.total);
    out << "<h1>Quillfence counters</h1>\n";
    if (totals.days.empty()) {
        out << "<p>No day has been counted yet.</p>\n";
    } else {
        out << "<p>" << totals.days.front().when << " to " << totals.days.back().when << ", "
            << counted(totals.days.size(), "day") << " with mail</p>\n";
    }
    out << "<dl>\n";
    write_total("Verdicts", all, 0, out);
    for (const series &part : all_series) {
        write_total(part.title, part.value(totals.total), all, out);
    }
    out << "</dl>\n<ul>\n";
    for (const series &part : all_series) {
        out << "<li><svg viewBox=\"0 0 16 16\" aria-hidden=\"true\"><rect class=\"" << part.css
            << "\" width=\"16\" height=\"16\"/></svg>" << part.title << "</li>\n";
    }
    out << "</ul>\n";
}

void write_cells(const counts &count, std::ostream &out) {
    for (const uint64_t value : count) {
        out << "<td>" << number_text(value) << "</td>";
    }
}

void write_table(const char *title, const char *first, const std::vector<counter_row> &rows,
                 std::ostream &out) {
    if (rows.empty()) {
        return;
    }
    counts total = {};
    out << "<h2>" << title << "</h2>\n<div class=\"table\"><table>\n<thead><tr><th scope=\"col\">"
        << first << "</th>";
    for (const counter_field &field : counter_fields) {
        out << "<th scope=\"col\">" << field.title << "</th>";
    }
    out << "</tr></thead>\n<tbody>\n";
    for (const counter_row &row : rows) {
        out << "<tr><th scope=\"row\">" << row.when << "</th>";
        write_cells(row.count, out);
        out << "</tr>\n";
        total = sum_of(total, row.count);
    }
    out << "</tbody>\n<tfoot><tr><th scope=\"row\">Total</th>";
    write_cells(total, out);
    out << "</tr></tfoot>\n</table></div>\n";
}

} // namespace

std::string counter_page(const counter_totals &totals) {
    std::ostringstream out;
    out.exceptions(std::ios::badbit); // else a page without memory would end early
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<title>Quillfence counters</title>\n<style>"
        << style << "</style>\n</head>\n<body>\n"
        << patterns;
    write_head(totals, out);
    write_hours(totals, out);
    write_days(totals, out);
    write_table("Days", "Day", totals.days, out);
    write_table("Hours", "Hour", totals.hours, out);
    out << "</body>\n</html>\n";
    return out.str();
}

} // namespace quillfence::data_tool
