#include "temporary_folder.h"

#include <filesystem>
#include <random>

#include "platform/process.h"
#include "program.h"

namespace quillfence::programs {

namespace fs = std::filesystem;

static constexpr int most_attempts = 100; // another name each time

static fs::path place_for_folders() {
    char temporary[1024];
    if (const uint32_t error = platform::temp_directory(temporary, sizeof temporary)) {
        throw failure(file_error("the folder for temporary files", error));
    }
    return temporary;
}

temporary_folder::temporary_folder() {
    const fs::path place = place_for_folders();
    std::random_device random;
    std::error_code error;
    for (int attempt = 0; path_.empty() && !error && attempt < most_attempts; ++attempt) {
        const fs::path wanted = place / ("quillfence-" + std::to_string(random()));
        if (fs::create_directory(wanted, error)) {
            path_ = wanted.generic_string();
        }
    }
    if (path_.empty()) {
        throw failure(place.string() + ": no folder can be made there: " + error.message());
    }
    fs::permissions(path_, fs::perms::owner_all, error);
}

temporary_folder::~temporary_folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace quillfence::programs
