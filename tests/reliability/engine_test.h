// A test of the started engine over a configuration with a file of every kind, and a DNS that
// answers from a script.
#pragma once

#include "engine_drive.h"
#include "running_engine.h"

namespace quillfence::testing {

class engine_test : public drive_test {
  protected:
    engine_test() {
        write_configuration(drive);
        write_zones(&dns);
    }
    dns_script dns;

  private:
    running_engine engine_;
};

} // namespace quillfence::testing
