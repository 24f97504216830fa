// A configuration that is released with its scope.
#pragma once

#include <memory>

#include "snapshot.h"

namespace quillfence::testing {

struct snapshot_deleter {
    void operator()(frozen_files *files) const {
        snapshot_free(files);
    }
};
using owned_snapshot = std::unique_ptr<frozen_files, snapshot_deleter>;

} // namespace quillfence::testing
