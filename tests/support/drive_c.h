// A drive c: of the test's own. On Linux it is a fresh temporary directory named by
// QUILLFENCE_DRIVE_C; on Windows it is the folder c:/quillfence of the Wine prefix, which must not
// exist before. Everything in it goes away with the object.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "log_capture.h"

namespace quillfence::testing {

class drive_c {
  public:
    drive_c(); // with the folder c:/quillfence in it
    ~drive_c();
    drive_c(const drive_c &) = delete;
    drive_c &operator=(const drive_c &) = delete;

    // Paths are as the program knows them, as in "c:/quillfence/control/enabled". Missing
    // folders on the way to a file are made.
    void write(const std::string &path, const std::string &bytes) const;
    std::string read(const std::string &path) const; // fails the test when missing
    bool exists(const std::string &path) const;
    void make_folder(const std::string &path) const;
    // Another name for a file or folder, also one that differs in letter case alone.
    void rename(const std::string &from, const std::string &to) const;
    void remove(const std::string &path) const; // a file or a whole folder; missing is fine

    // Where a path of the program lies for the system itself.
    std::string native(const std::string &path) const;

  private:
    std::string root_;
};

// A test with a drive c: and a log capture.
class drive_test : public logged_test {
  protected:
    drive_c drive;
};
class traced_drive_test : public traced_test {
  protected:
    drive_c drive;
};

} // namespace quillfence::testing
