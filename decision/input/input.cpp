#include "input.h"

#include <algorithm>

#include "input_formats.h"
#include "json_writer.h"
#include "vc_dns.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence::decision {

namespace {

struct format_row {
    std::string_view name;
    bool is_line; // a unit is one line
    input_result (*read)(std::string_view unit);
};

// In the order of input_format.
constexpr format_row formats[] = {
    {"json", false, read_json_input},      {"policy", false, read_policy_input},
    {"tsv", true, read_tsv_input},         {"qflog", true, read_qflog_input},
    {"postfix", true, read_postfix_input}, {"exim", true, read_exim_input},
};

std::string_view without_cr(std::string_view line) {
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

// Takes a line off the text, without its end.
std::string_view take_line(std::string_view *text) {
    const size_t end = std::min(text->find('\n'), text->size());
    const std::string_view line = text->substr(0, end);
    text->remove_prefix(std::min(end + 1, text->size()));
    return without_cr(line);
}

bool is_blank(std::string_view line) {
    return std::all_of(line.begin(), line.end(), is_space);
}

// Takes lines up to and with the one that ends the unit, which is told by `ends`.
template <class Ends>
std::string_view take_lines(std::string_view *text, Ends ends) {
    const char *const begin = text->data();
    const char *end = begin;
    while (!text->empty()) {
        const std::string_view line = take_line(text);
        end = line.data() + line.size();
        if (ends(line)) {
            break;
        }
    }
    return {begin, static_cast<size_t>(end - begin)};
}

bool is_policy_line(std::string_view line) {
    const size_t equals = line.find('=');
    return equals != 0 && equals != std::string_view::npos &&
           std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(equals),
                       [](char c) { return is_letter(c) || is_digit(c) || c == '_'; });
}

bool is_tsv_line(std::string_view line) {
    return line.size() > 1 && line[1] == '\t';
}

// "2026-11-22 04:51:13 program[": the log's own look.
bool is_qflog_line(std::string_view line) {
    return line.find(": mua=[") != std::string_view::npos;
}

} // namespace

std::optional<input_format> input_format_of_name(std::string_view name) {
    for (size_t i = 0; i < std::size(formats); ++i) {
        if (formats[i].name == name) {
            return static_cast<input_format>(i);
        }
    }
    return std::nullopt;
}

std::string_view input_format_name(input_format format) {
    return formats[static_cast<size_t>(format)].name;
}

std::optional<input_format> input_format_of_content(std::string_view text) {
    std::string_view line;
    while (is_blank(line) && !text.empty()) {
        line = take_line(&text);
    }
    if (line.starts_with('{')) {
        return input_format::json;
    }
    if (is_tsv_line(line)) {
        return input_format::tsv;
    }
    if (is_qflog_line(line)) {
        return input_format::qflog;
    }
    if (is_postfix_line(line)) {
        return input_format::postfix;
    }
    if (is_exim_line(line)) {
        return input_format::exim;
    }
    return is_policy_line(line) ? std::optional(input_format::policy) : std::nullopt;
}

std::string_view take_input(input_format format, std::string_view *text, uint32_t *line) {
    uint32_t skipped = 0;
    for (std::string_view rest = *text; !rest.empty() && is_blank(take_line(&rest)); ++skipped) {
        *text = rest;
    }
    if (line) {
        *line = skipped;
    }
    if (format == input_format::policy) {
        return take_lines(text, [](std::string_view one) { return one.empty(); });
    }
    std::string_view ahead = *text;
    const bool indented = format == input_format::json && take_line(&ahead) == "{";
    return take_lines(text, [indented](std::string_view one) { return !indented || one == "}"; });
}

input_result read_input(input_format format, std::string_view unit) {
    const format_row &row = formats[static_cast<size_t>(format)];
    if (is_blank(unit)) {
        return {};
    }
    if (row.is_line && unit.size() > longest_line) {
        return refused("the line is too long");
    }
    if (row.is_line && unit.find('\0') != std::string_view::npos) {
        return refused("the line holds a NUL");
    }
    return row.read(unit);
}

// --- what the formats share ---

input_result refused(std::string text, uint32_t line) {
    return {std::nullopt, {line, std::move(text)}};
}

input_result several_ways() {
    return refused("the line can be read in several ways");
}

void add_extra(std::vector<extra_member> *extra, std::string_view name, std::string_view value) {
    std::string json;
    json_writer writer(json, json_layout::one_line);
    writer.text(value);
    writer.finish();
    extra->emplace_back(name, std::move(json));
}

bool is_address(std::string_view text) {
    static constexpr size_t longest_address = 45;
    if (text.empty() || text.size() > longest_address ||
        text.find('\0') != std::string_view::npos) {
        return false;
    }
    const std::string address(text);
    uint8_t binary[16];
    return vc_inet_pton(vc_family_ipv4, address.c_str(), binary) ||
           vc_inet_pton(vc_family_ipv6, address.c_str(), binary);
}

bool is_log_moment(std::string_view text) {
    static constexpr std::string_view form = "0000-00-00 00:00:00";
    static_assert(form.size() == log_moment_size);
    bool good = text.size() == form.size();
    for (size_t i = 0; good && i < form.size(); ++i) {
        good = form[i] == '0' ? is_digit(text[i]) : text[i] == form[i];
    }
    return good;
}

bool is_number(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
}

} // namespace quillfence::decision
