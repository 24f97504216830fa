#include "hits_output.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "batch_lines.h"
#include "json_writer.h"
#include "program.h"
#include "text.h"

namespace quillfence::programs {

using decision::hit_row;

// --- for programs -------------------------------------------------------------------------------

static std::string tsv_text(const std::vector<hit_row> &rows) {
    std::string out = "file\tplace\tentry\tmatched\tdecided\tonly\topen\n";
    for (const hit_row &row : rows) {
        decision::append_column(out, row.entry.file);
        out += '\t' + std::to_string(row.entry.place) + '\t';
        decision::append_column(out, row.entry.text);
        for (const uint64_t count :
             {row.counts.matched, row.counts.decided, row.counts.only, row.counts.open}) {
            out += '\t' + std::to_string(count);
        }
        out += '\n';
    }
    return out;
}

static std::string json_text(const std::vector<hit_row> &rows) {
    std::string out;
    for (const hit_row &row : rows) {
        decision::json_writer json(out, decision::json_layout::one_line);
        json.begin_object();
        json.name("file");
        json.text(row.entry.file);
        json.name("place");
        json.number(uint64_t{row.entry.place});
        json.name("entry");
        json.text(row.entry.text);
        json.name("matched");
        json.number(row.counts.matched);
        json.name("decided");
        json.number(row.counts.decided);
        json.name("only");
        json.number(row.counts.only);
        json.name("open");
        json.number(row.counts.open);
        json.end_object();
        json.finish();
        out += '\n';
    }
    return out;
}

// --- for people ---------------------------------------------------------------------------------

static constexpr size_t most_shown = 20; // of a file
static constexpr size_t widest_entry = 36;

static std::string shown(const std::string &entry) {
    const std::string text = data_files::printable(entry);
    return text.size() <= widest_entry ? text : text.substr(0, widest_entry - 3) + "...";
}

static void append_row(std::string &out, const hit_row &row) {
    char numbers[128];
    std::snprintf(numbers, sizeof numbers, "%9llu %8llu %8llu %7llu %6u  ",
                  static_cast<unsigned long long>(row.counts.matched),
                  static_cast<unsigned long long>(row.counts.decided),
                  static_cast<unsigned long long>(row.counts.only),
                  static_cast<unsigned long long>(row.counts.open), row.entry.place);
    out += numbers + shown(row.entry.text) + '\n';
}

static void append_file(std::string &out, std::span<const hit_row> rows) {
    std::vector<hit_row> hit;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(hit),
                 [](const hit_row &row) { return row.counts.matched > 0; });
    std::stable_sort(hit.begin(), hit.end(), [](const hit_row &one, const hit_row &other) {
        return one.counts.matched > other.counts.matched;
    });
    const size_t unused = rows.size() - hit.size();
    out += (out.empty() ? "" : "\n") + data_files::printable(rows.front().entry.file) + ": " +
           counted(rows.size(), "entry", "entries") + ", " + std::to_string(unused) + " unused\n";
    if (!hit.empty()) {
        out += "  matched  decided     only    open  place  entry\n";
    }
    for (size_t i = 0; i < std::min(hit.size(), most_shown); ++i) {
        append_row(out, hit[i]);
    }
    if (hit.size() > most_shown) {
        out += "  and " + std::to_string(hit.size() - most_shown) + " more that matched\n";
    }
}

static std::string table_text(const std::vector<hit_row> &rows) {
    std::string out;
    for (auto begin = rows.begin(); begin != rows.end();) {
        const auto end = std::find_if(begin, rows.end(), [&](const hit_row &row) {
            return row.entry.file != begin->entry.file;
        });
        append_file(out, {begin, end});
        begin = end;
    }
    return out.empty() ? "The configuration has no entries.\n" : out;
}

std::string hits_text(const std::vector<hit_row> &rows, hits_form form) {
    switch (form) {
    case hits_form::tsv:
        return tsv_text(rows);
    case hits_form::json:
        return json_text(rows);
    default:
        return table_text(rows);
    }
}

} // namespace quillfence::programs
