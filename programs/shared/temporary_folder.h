// A folder for what a program needs while it runs, for its user alone.
#pragma once

#include <string>

namespace quillfence::programs {

// Made where the system keeps such things; goes with the object, with everything in it, and when
// the program is told to end (platform/scratch_folder.h). (That of a killed program stays: its name
// begins with "quillfence-".) Throws a failure when none can be made.
class temporary_folder {
  public:
    temporary_folder();
    ~temporary_folder();
    temporary_folder(const temporary_folder &) = delete;
    temporary_folder &operator=(const temporary_folder &) = delete;

    // With "/" between folders, and none at the end.
    const std::string &path() const {
        return path_;
    }

  private:
    std::string path_;
};

} // namespace quillfence::programs
