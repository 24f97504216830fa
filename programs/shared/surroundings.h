// Another server's drive c: and registry in place of this system's own.
#pragma once

#include <string>

namespace quillfence::programs {

// While it lives, names below c: are looked up in the one folder, and the registry is the one
// export; an empty text leaves the system's own. What the program makes for its user, outside of
// the server's files, is opened before or behind it. Throws a failure when there is no such folder
// or file.
class surroundings {
  public:
    surroundings(const std::string &drive_c, const std::string &registry);
    ~surroundings();
    surroundings(const surroundings &) = delete;
    surroundings &operator=(const surroundings &) = delete;
};

} // namespace quillfence::programs
