// Entries of a list that somebody may have meant for a value, and that do not match it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillfence::data_files {

struct near_entry {
    std::string what; // "parent_domain", "whole_domain", "trailing_blank", "network", "letter_case"
    std::string text; // why it does not count
    std::string file;
    uint32_t line = 0; // 0: the file as a whole
    std::string entry;
    bool operator==(const near_entry &) const = default;
};

// Lists above this size are not looked through.
inline constexpr uint64_t largest_near_list = 8u << 20;
// The most that are given for a list.
inline constexpr size_t most_near_entries = 5;

// The near misses of a value in a list file; path is the engine's. What is read in its place
// (path_to_read) is looked through, and path named.
//   parent_domain   "*@example.org" for x@mail.example.org
//   whole_domain    "example.org" for x@example.org
//   trailing_blank  the value, or a pattern for it, with white space at its end
//   network         a network or range of addresses, where single addresses are compared
//   letter_case     a file of the same name in other letters lies beside it and is not read
std::vector<near_entry> near_entries(const std::string &path, const std::string &value);

// The same of a list's bytes, but for letter_case.
std::vector<near_entry> near_entries_in(const std::string &path, std::string_view bytes,
                                        const std::string &value);

} // namespace quillfence::data_files
