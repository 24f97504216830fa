#include "batch_lines.h"

#include <array>

#include "json_writer.h"
#include "record_words.h"
#include "record_writer.h"

namespace quillfence::decision {

// --- columns ------------------------------------------------------------------------------------

namespace {

enum column : uint8_t {
    id,
    time,
    verdict_,
    by,
    rule,
    file,
    place,
    entry,
    ip,
    ptr,
    helo,
    sender,
    recipient,
    missing,
    error,
    column_count
};

constexpr std::string_view heading = "id\ttime\tverdict\tby\trule\tfile\tplace\tentry\tip\tptr\t"
                                     "helo\tsender\trecipient\tmissing\terror\n";

using columns = std::array<std::string, column_count>;

void append_row(std::string &out, const columns &row) {
    for (size_t i = 0; i < row.size(); ++i) {
        out += i == 0 ? "" : "\t";
        append_column(out, row[i]);
    }
    out += '\n';
}

// --- the entry that decided ---

// File, place in it and entry of each kind of source.
struct entry_columns {
    columns &row;

    void set(const std::string &in, const std::string &at, const std::string &what) const {
        row[file] = in;
        row[place] = at;
        row[entry] = what;
    }
    void operator()(const std::monostate &) const {}
    void operator()(const list_source &from) const {
        set(from.file, std::to_string(from.line), from.entry);
    }
    void operator()(const range_source &from) const {
        set(from.file, std::to_string(from.record), from.low + "-" + from.high);
    }
    void operator()(const expression_source &from) const {
        set(from.file, std::to_string(from.expression), from.pattern);
    }
    void operator()(const block_map_source &from) const {
        set(from.map, std::to_string(from.level), from.network);
    }
    void operator()(const sender_network_source &from) const {
        set(from.file, std::to_string(from.line), from.domain);
    }
    void operator()(const registry_source &from) const {
        set(from.key, "", from.value);
    }
    void operator()(const folder_source &from) const {
        set(from.folder, "", from.name);
    }
    void operator()(const address_map_source &from) const {
        set(from.library, "", "");
    }
    void operator()(const built_in_source &from) const {
        set(std::string(built_in_file), "", from.pattern.empty() ? from.selection : from.pattern);
    }
    void operator()(const file_source &from) const {
        set(from.file, from.line ? std::to_string(from.line) : "", "");
    }
};

const block_map_record *map_that_hit(const decision_record &record) {
    for (const block_map_record &map : record.block_maps) {
        if (map.is == outcome::hit) {
            return &map;
        }
    }
    return nullptr;
}

void set_entry(columns &row, const decision_record &record) {
    const entry_columns to{row};
    const block_map_record *const map =
        record.decision.by == decided_by::block_map ? map_that_hit(record) : nullptr;
    if (map) {
        to.set(map->map, std::to_string(map->level), map->network);
        return;
    }
    if (record.decision.by == decided_by::rbl) {
        to.set("", "", record.decision.zone);
        return;
    }
    for (const rule_record &one : record.rules) {
        if (!record.decision.rule.empty() && one.rule == record.decision.rule) {
            std::visit(to, one.from);
        }
    }
}

void append_to(std::string &list, const std::string &text) {
    list += list.empty() ? text : " " + text;
}

void append_columns(std::string &out, const decision_record &record) {
    columns row;
    row[id] = record.id;
    row[time] = record.time;
    row[verdict_] = word(record.decision.is);
    row[by] = word(record.decision.by);
    row[rule] = record.decision.rule;
    set_entry(row, record);
    row[ip] = record.transaction.ip.value_or("");
    for (const std::string &name : record.facts.ptr) {
        append_to(row[ptr], name);
    }
    row[helo] = record.transaction.helo.value_or("");
    row[sender] = record.transaction.sender.value_or("");
    row[recipient] = record.transaction.recipient.value_or("");
    for (const missing_item &one : record.missing) {
        append_to(row[missing], one.what == "dns" ? one.type + ":" + one.name : one.fact);
    }
    append_row(out, row);
}

// --- the replayer's line ------------------------------------------------------------------------

// Names stand in it as the engine has them, without escapes.
void append_names(std::string &out, std::string_view list, const std::vector<std::string> &names) {
    out.append("\"").append(list).append("\":[");
    for (size_t i = 0; i < names.size(); ++i) {
        out.append(i == 0 ? "\"" : ",\"").append(names[i]).append("\"");
    }
    out += ']';
}

void append_report(std::string &out, const report &made) {
    out += '{';
    append_names(out, "spam_hits", made.spam_hits);
    out += ',';
    append_names(out, "bms_hits", made.bms_hits);
    out += "}\n";
}

} // namespace

// --- all forms ----------------------------------------------------------------------------------

void append_column(std::string &out, std::string_view text) {
    for (const char c : text) {
        switch (c) {
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\\':
            out += "\\\\";
            break;
        default:
            out += c;
        }
    }
}

std::string_view batch_heading(batch_form form) {
    return form == batch_form::tsv ? heading : "";
}

bool append_record(std::string &out, batch_form form, const decision_record &record, uint64_t line,
                   std::string_view input) {
    switch (form) {
    case batch_form::tsv:
        append_columns(out, record);
        return true;
    case batch_form::line:
        if (!record.report || !record.report->failed.empty()) {
            const std::string why = record.report ? record.report->failed : "it was not made";
            append_problem(out, form, "there is no replayer's line: " + why, line, input);
            return false;
        }
        append_report(out, *record.report);
        return true;
    default:
        write_record(out, record,
                     form == batch_form::whole ? record_form::whole : record_form::brief);
        out += '\n';
        return true;
    }
}

void append_problem(std::string &out, batch_form form, std::string_view text, uint64_t line,
                    std::string_view input) {
    if (form == batch_form::tsv) {
        columns row;
        row[verdict_] = "error";
        row[file] = input;
        row[place] = std::to_string(line);
        row[error] = text;
        append_row(out, row);
        return;
    }
    json_writer json(out, json_layout::one_line);
    json.begin_object();
    json.name("error");
    json.text(text);
    if (!input.empty()) {
        json.name("file");
        json.text(input);
    }
    json.name("line");
    json.number(line);
    json.end_object();
    json.finish();
    out += '\n';
}

} // namespace quillfence::decision
