// Runs a fuzz target once over every file of a corpus folder: the form that a target has in an
// ordinary build. A file that breaks a promise ends the process; its name stands last in the
// output.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> corpus_files(const char *folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder, error)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const fs::path &file) {
    std::printf("%s\n", file.filename().string().c_str());
    std::fflush(stdout);
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    if (!stream.is_open() || stream.bad()) {
        std::printf("can't be read\n");
        return false;
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return true;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
        return 2;
    }
    const std::vector<fs::path> files = corpus_files(argv[1]);
    if (files.empty()) {
        std::fprintf(stderr, "%s: no corpus\n", argv[1]);
        return 1;
    }
    const bool replayed = std::all_of(files.begin(), files.end(), replay);
    std::printf("%zu inputs replayed\n", files.size());
    return replayed ? 0 : 1;
}
