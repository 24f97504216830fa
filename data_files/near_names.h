// Names that somebody may have meant by one that is none.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillfence::data_files {

// Of the names those that are within a few letters of the given one, or hold it: nearest first,
// three at most.
std::vector<std::string> near_names(std::string_view given, const std::vector<std::string> &names);

// "; did you mean a or b?", to stand behind a complaint; "" for no names.
std::string did_you_mean(const std::vector<std::string> &names);

} // namespace quillfence::data_files
