#include "loaded_configuration.h"

#include "program.h"

namespace quillfence::programs {

loaded_configuration load_configuration(const std::string &user_dir) {
    constexpr int tries = 3;
    std::string changed;
    for (int i = 0; i < tries; ++i) {
        owned_snapshot_report told;
        loaded_configuration loaded(
            snapshot_load(user_dir.empty() ? nullptr : user_dir.c_str(), &told.it));
        if (!loaded && !told.it.changed) {
            throw failure("there is not enough memory for the configuration");
        }
        if (loaded) {
            for (size_t at = 0; at < told.it.unread_count; ++at) {
                complain(file_error(told.it.unread[at].path, told.it.unread[at].error));
            }
            return loaded;
        }
        changed = told.it.changed;
    }
    throw failure(changed + ": changes while the configuration is read; try again, or with a copy");
}

} // namespace quillfence::programs
