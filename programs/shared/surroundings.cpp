#include "surroundings.h"

#include "open_file.h"
#include "platform/file.h"
#include "platform/surroundings.h"
#include "program.h"
#include "text.h"

namespace quillfence::programs {

static void require_drive(const std::string &folder) {
    static constexpr char advice[] = "--drive-c is the folder that holds quillfence/";
    require_directory(folder, advice);
    require_directory(data_files::joined(folder, "quillfence"), advice);
}

// The export's path as it is now, before c: is another.
static std::string export_path(const std::string &registry) {
    if (!data_files::may_be_file(registry)) {
        throw failure(registry + ": is no file; --registry is an export (.reg)");
    }
    char native[4096];
    if (const uint32_t error = platform::path_native(registry.c_str(), native, sizeof native)) {
        throw failure(file_error(registry, error));
    }
    return native;
}

surroundings::surroundings(const std::string &drive_c, const std::string &registry) {
    const std::string registry_file = registry.empty() ? "" : export_path(registry);
    if (!drive_c.empty()) {
        require_drive(drive_c);
        if (const uint32_t error = platform::set_drive_root(drive_c.c_str())) {
            throw failure(file_error(drive_c, error));
        }
    }
    if (!registry.empty()) {
        platform::set_registry_export(registry_file.c_str()); // it fits, as the name above did
    }
}

surroundings::~surroundings() {
    platform::set_drive_root(nullptr);
    platform::set_registry_export(nullptr);
}

} // namespace quillfence::programs
