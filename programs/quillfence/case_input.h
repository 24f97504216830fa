// A case from a file: the document itself, or a bundle with the files of its configuration.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "case_file.h"
#include "program.h"
#include "temporary_folder.h"

namespace quillfence::programs {

// Why there is no case: "cases/a.json:3: expect.verdict: is no verdict".
class wrong_case : public failure {
  public:
    wrong_case(const std::string &path, uint32_t line, const std::string &problem);
    const uint32_t line; // of the file; 0 when it is about none
    const std::string problem;
};

class case_input {
  public:
    // Reads it, and unpacks a bundle into a folder that goes with the object. To be called while
    // c: is this system's own (surroundings.h). Throws a wrong_case, and a failure when there is no
    // room for a bundle.
    explicit case_input(const std::string &path);

    const decision::test_case &what() const {
        return case_;
    }
    decision::test_case &what() {
        return case_;
    }
    bool is_bundle() const {
        return folder_.has_value();
    }
    // The document as it stands in the file, or in the bundle.
    const std::string &text() const {
        return text_;
    }
    // What takes the place of drive c: for this case: that of the bundle, else `otherwise`.
    std::string drive_c(const std::string &otherwise) const;

  private:
    void unpack(const std::string &path);

    std::optional<temporary_folder> folder_; // of a bundle
    std::string text_;
    decision::test_case case_;
};

} // namespace quillfence::programs
