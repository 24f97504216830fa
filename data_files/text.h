// Texts and files for the commands.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillfence::data_files {

// The text with every byte outside 0x20-0x7E as \xNN: what a terminal can show as it is.
std::string printable(std::string_view text);
// The same in double quotes, cut to its first 60 bytes and "..." when it is longer.
std::string quoted(std::string_view text);
// A JSON string, quotes included, of printable(text).
std::string json_text(std::string_view text);
std::string lower(std::string_view text);

// directory, "/" unless it ends in a separator, name; the name alone for an empty directory.
std::string joined(std::string_view directory, std::string_view name);
// A path's folder ("." when it names none) and the name in it.
struct path_parts {
    std::string directory;
    std::string name;
};
path_parts parts_of(std::string_view path);

// All bytes of a file that exists; it is never created. 0 or a Win32 error number.
uint32_t read_file(const std::string &path, std::string *bytes);
// What the system says about such a number, as in "No such file or directory".
std::string system_text(uint32_t error);
// Whether such a number says that there is no file of that name.
bool is_missing(uint32_t error);
// False for a folder and for nothing. True also when the system does not say: opening the file
// then tells why.
bool may_be_file(const std::string &path);

// The physical lines of a file, numbered from 1: split at LF; an LF at the end ends the last line.
struct text_line {
    uint32_t number;
    std::string_view text; // borrowed; a CR at its end stays
};
std::vector<text_line> lines_of(std::string_view bytes);

} // namespace quillfence::data_files
