// JSON documents that go away with their scope.
#pragma once

#include <memory>

#include "vc_json.h"

namespace quillfence::testing {

struct json_releaser {
    void operator()(vc_json *node) const {
        vc_json_free(node);
    }
};
using json = std::unique_ptr<vc_json, json_releaser>;

} // namespace quillfence::testing
