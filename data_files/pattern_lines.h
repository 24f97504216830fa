// Which line of which list each expression of a compiled pattern file was made from: a text file
// "<compiled file>.lines" that the compiler writes beside it. The engine never reads it.
//
//     # quillfence pattern lines 1
//     # sha256 <digest of the compiled file, 64 hexadecimal digits>
//     <expression, from 1> TAB <line of the list, from 1> TAB <the list's name>
//
// docs/formats/pattern-lines.md describes it. It speaks of one version of the compiled file only,
// the one with that digest.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillfence::data_files {

struct pattern_origin {
    uint32_t line = 0; // of the list, from 1
    std::string list;  // its name as it was given to the compiler, control bytes as '?'
};

inline constexpr char pattern_lines_suffix[] = ".lines";

// The text of such a file; origins are in the order of the expressions.
std::string pattern_lines_text(const std::string &digest,
                               const std::vector<pattern_origin> &origins);

struct pattern_lines {
    enum class state {
        missing, // there is no such file
        stale,   // it speaks of another version of the compiled file
        wrong,   // it can't be read, or is none
        current,
    };
    state is = state::missing;
    std::string problem;                 // of a wrong one: what is wrong, with the line
    std::vector<pattern_origin> origins; // of a current one, in the order of the expressions
};

// Reads what stands beside a compiled file whose digest is this one.
pattern_lines read_pattern_lines(const std::string &compiled_path, const std::string &digest);

} // namespace quillfence::data_files
