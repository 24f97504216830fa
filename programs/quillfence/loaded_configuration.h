// The configuration read once, for subcommands that judge many transactions.
#pragma once

#include <memory>
#include <string>

#include "snapshot.h"

namespace quillfence::programs {

struct snapshot_releaser {
    void operator()(frozen_files *files) const {
        snapshot_free(files);
    }
};
using loaded_configuration = std::unique_ptr<frozen_files, snapshot_releaser>;

// The engine must have been started. What can't be read is complained about, and read for every
// transaction. Throws a failure when the configuration changes while it is read, and does so three
// times, or when there is no memory.
loaded_configuration load_configuration(const std::string &user_dir);

} // namespace quillfence::programs
