// Owners of what loading a configuration gives (snapshot.h).
#pragma once

#include <memory>

#include "snapshot.h"

namespace quillfence {

struct snapshot_releaser {
    void operator()(frozen_files *files) const {
        snapshot_free(files);
    }
};
using owned_snapshot = std::unique_ptr<frozen_files, snapshot_releaser>;

struct owned_snapshot_report {
    snapshot_report it{};

    owned_snapshot_report() = default;
    ~owned_snapshot_report() {
        snapshot_report_release(&it);
    }
    owned_snapshot_report(const owned_snapshot_report &) = delete;
    owned_snapshot_report &operator=(const owned_snapshot_report &) = delete;
};

} // namespace quillfence
