#include "pattern_lines.h"

#include <charconv>

#include "text.h"
#include "vc_w32.h"

namespace quillfence::data_files {

static constexpr std::string_view first_line = "# quillfence pattern lines 1";
static constexpr std::string_view digest_mark = "# sha256 ";

std::string pattern_lines_text(const std::string &digest,
                               const std::vector<pattern_origin> &origins) {
    std::string text = std::string(first_line) + "\n" + std::string(digest_mark) + digest + "\n";
    uint64_t expression = 0;
    for (const pattern_origin &origin : origins) {
        std::string list = origin.list;
        vc_sanitize(list.data()); // a line end in a name would make two lines of it
        text +=
            std::to_string(++expression) + "\t" + std::to_string(origin.line) + "\t" + list + "\n";
    }
    return text;
}

// Takes a number and the TAB behind it off the front of a line.
static bool take_number(std::string_view *line, uint32_t *number) {
    const char *const end = line->data() + line->size();
    const auto [behind, error] = std::from_chars(line->data(), end, *number);
    if (error != std::errc() || behind == end || *behind != '\t') {
        return false;
    }
    line->remove_prefix(static_cast<size_t>(behind + 1 - line->data()));
    return true;
}

// Understands the lines behind the two of the head; false with the problem of the first wrong one.
static bool read_origins(const std::vector<text_line> &lines, pattern_lines *read) {
    for (size_t i = 2; i < lines.size(); ++i) {
        std::string_view rest = lines[i].text;
        uint32_t expression = 0;
        pattern_origin origin;
        if (!take_number(&rest, &expression) || !take_number(&rest, &origin.line) || rest.empty() ||
            expression != i - 1) {
            read->problem = "line " + std::to_string(lines[i].number) + " is not \"" +
                            std::to_string(i - 1) + " TAB line TAB list\"";
            return false;
        }
        origin.list = rest;
        read->origins.push_back(std::move(origin));
    }
    return true;
}

pattern_lines read_pattern_lines(const std::string &compiled_path, const std::string &digest) {
    pattern_lines read;
    std::string bytes;
    if (const uint32_t error = read_file(compiled_path + pattern_lines_suffix, &bytes)) {
        if (!is_missing(error)) {
            read.is = pattern_lines::state::wrong;
            read.problem = "can't be read: " + system_text(error);
        }
        return read;
    }
    const std::vector<text_line> lines = lines_of(bytes);
    read.is = pattern_lines::state::wrong;
    if (lines.size() < 2 || lines[0].text != first_line ||
        !lines[1].text.starts_with(digest_mark)) {
        read.problem = "it does not begin with \"" + std::string(first_line) + "\" and a digest";
        return read;
    }
    if (lines[1].text.substr(digest_mark.size()) != digest) {
        read.is = pattern_lines::state::stale;
    } else if (read_origins(lines, &read)) {
        read.is = pattern_lines::state::current;
    } else {
        read.origins.clear();
    }
    return read;
}

} // namespace quillfence::data_files
