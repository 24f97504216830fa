// Which of the lists that a decision asks somebody means by a name.
#pragma once

#include <string>

namespace quillfence::programs {

// The path under which the engine will ask for the list: named by its place in the base folder
// ("from_blacklist", "control/rules.enabled"), or by a whole path, in whatever slashes and letter
// case. The lists are those of lines in configuration.h, and in the user's folder ("" for none)
// those that exempt; the folder may be spelled in another way than it is here. The list need not
// exist. Throws a failure for anything else, since what it held would change no decision.
std::string path_of_list(const std::string &name, const std::string &user_dir);

// The path of a file in a folder, as the engine puts the two together and tells it in its evidence.
std::string path_in(const std::string &folder, const char *name);

} // namespace quillfence::programs
