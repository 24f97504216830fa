// What if this line were in that list, or not? The engine reads changed copies of lists in their
// place; the lists themselves stay as they are.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "call_context.h"
#include "temporary_folder.h"

namespace quillfence::programs {

class what_if {
  public:
    // user_dir is the recipient's own folder of lists, as the engine is given it; "" for none.
    explicit what_if(std::string user_dir) : user_dir_(std::move(user_dir)) {}
    what_if(const what_if &) = delete;
    what_if &operator=(const what_if &) = delete;

    // list is named as named_list.h has it. add puts the line at the end of the list, which need
    // not exist; remove takes every line out that is this text, white space around it left aside.
    // Both throw a failure when that can't be done, remove also when there is no such line.
    void add(const std::string &list, const std::string &line);
    void remove(const std::string &list, const std::string &line);

    // What was changed, as sentences.
    const std::vector<std::string> &changes() const {
        return changes_;
    }
    // Writes the copies; for a call context, as long as the object lives. Null when nothing was
    // changed. Throws a failure when a copy can't be written.
    const file_substitute *substitutes();

  private:
    std::string &text_of(const std::string &path);

    const std::string user_dir_;
    std::map<std::string, std::string> texts_; // the changed lists, by path
    std::vector<std::string> changes_;
    std::optional<temporary_folder> folder_; // of the copies
    std::vector<std::string> copies_;
    std::vector<file_substitute> rows_;
};

} // namespace quillfence::programs
