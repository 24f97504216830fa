#include "started_engine.h"

#include "program.h"
#include "quillfence.h"

namespace quillfence::programs {

started_engine::started_engine() {
    if (!quillfence_init()) {
        throw failure("the engine can't be started");
    }
}

started_engine::~started_engine() {
    quillfence_teardown();
}

} // namespace quillfence::programs
