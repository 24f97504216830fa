// Where there is no policyd.
#include "policyd_command.h"

namespace quillfence::programs {

exit_status policyd(const policyd_arguments &) {
    throw failure("policyd runs on Linux alone; on this system 'quillfence batch --from policy' "
                  "judges the same requests");
}

} // namespace quillfence::programs
