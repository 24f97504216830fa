// A test of the engine in one world at random after another.
#pragma once

#include <optional>

#include "explaining.h"
#include "random_world.h"

namespace quillfence::testing {

class world_test : public logged_test {
  protected:
    explicit world_test(unsigned seed) : random(seed) {}
    ~world_test() override {
        log.take();
    }
    // A world in place of the last one.
    void next_world() {
        drive_now = random_world(random);
        dns.emplace();
        script_world(drive_now, &*dns);
        write_world(drive_now, drive, registry);
    }

    running_engine engine;
    drive_c drive;
    test_registry registry;
    std::optional<dns_script> dns;
    random_numbers random;
    world drive_now;
    explain_options options;
};

} // namespace quillfence::testing
