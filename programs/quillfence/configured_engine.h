// The engine, started on the configuration that a command line asks for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command_line.h"
#include "started_engine.h"
#include "surroundings.h"
#include "what_if.h"

namespace quillfence::programs {

struct configuration_arguments {
    std::string drive_c;  // "" for this system's own
    std::string registry; // likewise
    std::string user_dir;
    std::vector<std::string> with_list;    // list, line; list, line ...
    std::vector<std::string> without_list; // likewise
};

// The options that fill them; borrowed until the command line has been understood.
option_group configuration_options(configuration_arguments *to);

// Throws a failure when the engine's base folder is not there, or the user's ("" for none).
void check_folders(const std::string &user_dir);
// Makes the changes that are asked for; throws as what_if does.
void change_lists(const configuration_arguments &arguments, what_if *changed);

// While it lives, names below c: and the registry are those that were asked for, and the engine
// runs. Only one at a time. Throws a failure when there is no such folder, file or line.
class configured_engine {
  public:
    explicit configured_engine(const configuration_arguments &arguments)
        : configured_engine(arguments, arguments.user_dir) {}
    // With the user's folder that lists may be named in, when a record has one of its own.
    configured_engine(const configuration_arguments &arguments, const std::string &user_dir);
    configured_engine(const configured_engine &) = delete;
    configured_engine &operator=(const configured_engine &) = delete;

    // What if: for a call context, as long as the object lives; null when nothing is changed.
    // Throws a failure when a changed copy can't be written.
    const file_substitute *substitutes() {
        return changed_.substitutes();
    }
    // What was changed, as sentences.
    const std::vector<std::string> &changes() const {
        return changed_.changes();
    }

  private:
    surroundings chosen_;
    what_if changed_;
    std::optional<started_engine> engine_; // behind the surroundings
};

} // namespace quillfence::programs
