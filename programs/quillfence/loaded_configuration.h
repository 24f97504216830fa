// The configuration read once, for subcommands that judge many transactions.
#pragma once

#include <string>

#include "snapshot_owners.h"

namespace quillfence::programs {

using loaded_configuration = owned_snapshot;

// The engine must have been started. What can't be read is complained about, and read for every
// transaction. Throws a failure when the configuration changes while it is read, and does so three
// times, or when there is no memory.
loaded_configuration load_configuration(const std::string &user_dir);

} // namespace quillfence::programs
