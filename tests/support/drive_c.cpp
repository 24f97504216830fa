#include "drive_c.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/process.h"

namespace quillfence::testing {

namespace fs = std::filesystem;

namespace {

constexpr char base[] = "c:/quillfence";

#ifdef QF_TEST_REAL_DRIVES
std::string new_root() {
    EXPECT_FALSE(fs::exists(base)) << "c:/quillfence is in use; not touching it";
    return "c:";
}
#else
std::string new_root() {
    static unsigned counter;
    const fs::path root =
        fs::temp_directory_path() / ("quillfence-test-" + std::to_string(platform::process_id()) +
                                     "-" + std::to_string(++counter));
    fs::remove_all(root);
    fs::create_directories(root);
    platform::environment_set("QUILLFENCE_DRIVE_C", root.string().c_str());
    return root.string();
}
#endif

} // namespace

drive_c::drive_c() : root_(new_root()) {
    make_folder(base);
}

drive_c::~drive_c() {
    std::error_code ignored;
#ifdef QF_TEST_REAL_DRIVES
    fs::remove_all(base, ignored);
#else
    fs::remove_all(root_, ignored);
    platform::environment_set("QUILLFENCE_DRIVE_C", nullptr);
#endif
}

std::string drive_c::native(const std::string &path) const {
    return path.starts_with("c:") ? root_ + path.substr(2) : path;
}

void drive_c::write(const std::string &path, const std::string &bytes) const {
    const fs::path target = native(path);
    fs::create_directories(target.parent_path());
    std::ofstream stream(target, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(stream.good()) << path;
}

std::string drive_c::read(const std::string &path) const {
    std::ifstream stream(native(path), std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << path;
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool drive_c::exists(const std::string &path) const {
    return fs::exists(native(path));
}

void drive_c::make_folder(const std::string &path) const {
    fs::create_directories(native(path));
}

// In two steps: Windows takes the one from "a" to "A" for none.
void drive_c::rename(const std::string &from, const std::string &to) const {
    fs::rename(native(from), native(to + ".renamed"));
    fs::rename(native(to + ".renamed"), native(to));
}

void drive_c::remove(const std::string &path) const {
    fs::remove_all(native(path));
}

} // namespace quillfence::testing
