#include "text.h"

#include <algorithm>
#include <cstring>

#include "open_file.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "vc_text.h"

namespace quillfence::data_files {

std::string printable(std::string_view text) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string shown;
    for (const char c : text) {
        if (is_printable(c)) {
            shown += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            shown += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return shown;
}

std::string quoted(std::string_view text) {
    static constexpr size_t longest = 60;
    const char *const end = text.size() > longest ? "...\"" : "\"";
    return '"' + printable(text.substr(0, longest)) + end;
}

std::string json_text(std::string_view text) {
    std::string json = "\"";
    for (const char c : printable(text)) {
        if (c == '"' || c == '\\') {
            json += '\\';
        }
        json += c;
    }
    return json + '"';
}

std::string lower(std::string_view text) {
    std::string lowered(text);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(), to_lower);
    return lowered;
}

static bool is_separator(char c) {
    return c == '/' || c == '\\';
}

std::string joined(std::string_view directory, std::string_view name) {
    std::string path(directory);
    if (!path.empty() && !is_separator(path.back())) {
        path += '/';
    }
    return path.append(name);
}

path_parts parts_of(std::string_view path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string_view::npos) {
        return {".", std::string(path)};
    }
    return {std::string(path.substr(0, slash + 1)), std::string(path.substr(slash + 1))};
}

uint32_t read_file(const std::string &path, std::string *bytes) {
    static constexpr size_t piece = 1 << 16;
    bytes->clear();
    open_file file;
    uint32_t error = file.open(path);
    size_t got = piece;
    while (!error && got == piece) {
        const size_t size = bytes->size();
        bytes->resize(size + piece);
        error = file.read(bytes->data() + size, piece, &got);
        bytes->resize(size + got);
    }
    return error;
}

std::string system_text(uint32_t error) {
    return std::strerror(platform::errno_of(error));
}

bool is_missing(uint32_t error) {
    return error == platform::error_file_not_found || error == platform::error_path_not_found;
}

bool may_be_file(const std::string &path) {
    uint32_t attributes = 0;
    const uint32_t error = platform::path_attributes(path.c_str(), &attributes);
    return error ? !is_missing(error) : attributes == platform::attribute_normal;
}

std::vector<text_line> lines_of(std::string_view bytes) {
    std::vector<text_line> lines;
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = std::min(bytes.find('\n', at), bytes.size());
        lines.push_back({static_cast<uint32_t>(lines.size() + 1), bytes.substr(at, end - at)});
        at = end + 1;
    }
    return lines;
}

} // namespace quillfence::data_files
