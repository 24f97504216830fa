// The file that "quillfence explain --capture" writes: a case, or a bundle.
#pragma once

#include <string>

#include "case_file.h"
#include "file_output.h"

namespace quillfence::programs {

struct explain_arguments;

class capture {
  public:
    // Begins the file, which nobody but its owner may read, and reads the key that redacting needs.
    // To be called while c: is this system's
    // own (surroundings.h), as commit() is. Throws a failure.
    explicit capture(const explain_arguments &arguments);

    // Writes the case; redacted, or with the files of its configuration, where that was asked for.
    // To be called while the engine is started and c: is that of the decision. Throws a failure
    // when there is no such case.
    void take(const decision::test_case &which);

    // Puts the file in its place, and says on standard error what it holds.
    void commit();

  private:
    decision::test_case redacted(const decision::test_case &which);
    void write_document(const decision::test_case &which);
    void write_with_files(const decision::test_case &which);

    const explain_arguments &wanted_;
    file_output out_;
    std::string key_;      // to redact with; "" for none
    std::string contents_; // in words
};

} // namespace quillfence::programs
