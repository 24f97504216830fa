// The files of cases below the paths that somebody names.
#pragma once

#include <string>
#include <vector>

namespace quillfence::programs {

// A case or bundle, or what stands in its place.
struct case_file {
    std::string path;    // as it was named, or the named folder's with the names below it
    std::string problem; // why nothing can be read there; "" for a file
    bool operator==(const case_file &) const = default;
};

// A path of a file is that file, whatever it is called. Of a folder it is every *.json and *.tar in
// it and below it, in the order of their paths byte by byte. Each folder below it is looked into
// once, however many links lead there, so that links in circles come to an end. What is missing,
// can't be read or holds no cases has its place in the list, with the problem.
std::vector<case_file> case_files_of(const std::vector<std::string> &paths);

} // namespace quillfence::programs
