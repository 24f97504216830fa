#include "case_input.h"

#include "bundle.h"
#include "open_file.h"
#include "text.h"

namespace quillfence::programs {

// A desk has no room for what a bundle could hold at most.
static constexpr decision::tar_limits bundle_limits = {
    .entries = 10'000, .file_size = uint64_t{2} << 30, .total_size = uint64_t{4} << 30};

wrong_case::wrong_case(const std::string &path, uint32_t at, const std::string &what)
    : failure(path + (at ? ':' + std::to_string(at) : "") + ": " + what), line(at), problem(what) {}

static bool begins_as_bundle(const std::string &path) {
    char bytes[512];
    size_t got = 0;
    data_files::open_file file;
    uint32_t error = file.open(path);
    error = error ? error : file.read(bytes, sizeof bytes, &got);
    if (error) {
        throw wrong_case(path, 0, file_problem(path, error));
    }
    return decision::is_bundle({bytes, got});
}

// The document, if it is not larger than its reader would take. Complaints have the name `shown`.
static std::string document_of(const std::string &path, const std::string &shown) {
    static constexpr uint64_t largest = decision::json_limits().bytes;
    data_files::open_file file;
    uint64_t size = 0;
    uint32_t error = file.open(path);
    error = error ? error : file.size(&size);
    if (!error && size > largest) {
        throw wrong_case(
            shown, 0, "is larger than a case may be (" + std::to_string(largest >> 20) + " MiB)");
    }
    std::string bytes(error ? 0 : static_cast<size_t>(size), '\0');
    size_t got = 0;
    error = error ? error : file.read(bytes.data(), bytes.size(), &got);
    if (error) {
        throw wrong_case(shown, 0, data_files::system_text(error));
    }
    bytes.resize(got);
    return bytes;
}

void case_input::unpack(const std::string &path) {
    folder_.emplace();
    const decision::unpacked_tar unpacked =
        decision::unpack_bundle(path, folder_->path() + "/bundle", bundle_limits);
    if (!unpacked.problem.empty()) {
        throw failure(unpacked.problem);
    }
}

case_input::case_input(const std::string &path) {
    std::string document = path;
    std::string in_bundle; // what a problem begins with
    if (begins_as_bundle(path)) {
        unpack(path);
        document = folder_->path() + "/bundle/" + decision::bundled_case;
        in_bundle = std::string(decision::bundled_case) + ": ";
    } else if (data_files::lower(path).ends_with(".tar")) {
        throw wrong_case(path, 0, "is no bundle, which is a tar file that begins with case.json");
    }
    text_ = document_of(document, path);
    decision::json_problem problem;
    auto read = decision::read_case(text_, &problem);
    if (!read) {
        throw wrong_case(path, problem.line, in_bundle + problem.text);
    }
    case_ = *std::move(read);
}

std::string case_input::drive_c(const std::string &otherwise) const {
    return folder_ ? folder_->path() + "/bundle/" + decision::bundled_drive_c : otherwise;
}

} // namespace quillfence::programs
