#include "temporary_folder.h"

#include <filesystem>
#include <random>

#include "platform/error_numbers.h"
#include "platform/process.h"
#include "platform/scratch_folder.h"
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
    uint32_t error = platform::error_already_exists;
    for (int attempt = 0; error == platform::error_already_exists && attempt < most_attempts;
         ++attempt) {
        path_ = (place / ("quillfence-" + std::to_string(random()))).generic_string();
        error = platform::scratch_folder_make(path_.c_str());
    }
    if (error) {
        throw failure(file_error(place.string() + ": no folder can be made there", error));
    }
}

temporary_folder::~temporary_folder() {
    platform::scratch_folder_remove(path_.c_str()); // there is nobody left to tell
}

} // namespace quillfence::programs
