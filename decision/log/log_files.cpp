#include "log_files.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <tuple>

#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "text.h"

namespace quillfence::decision {

// Older ones are opened when it is their turn; a process may not have many open at once.
static constexpr size_t most_open = 200;
static constexpr int most_tries = 3; // when it is rotated in between

// --- names --------------------------------------------------------------------------------------

namespace {

// A rotated log's place: dated ones first, by their dates, then numbers, the highest first.
struct rotation {
    std::string date;
    uint64_t number = 0;
    std::string name;
    auto key() const {
        return std::tuple(date.empty(), date, UINT64_MAX - number, name);
    }
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view without_compression(std::string_view suffix) {
    for (const std::string_view ending : {".gz", ".xz", ".zst", ".bz2"}) {
        if (suffix.ends_with(ending)) {
            return suffix.substr(0, suffix.size() - ending.size());
        }
    }
    return suffix;
}

// What stands behind the log's name in a rotated one's: ".2.gz", "-20261121.gz", "-20261121-04".
std::optional<rotation> rotation_of(std::string_view suffix) {
    constexpr size_t most_digits = 15;
    const std::string_view plain = without_compression(suffix);
    const std::string_view number = plain.substr(std::min<size_t>(1, plain.size()));
    const bool digits = !number.empty() && std::all_of(number.begin(), number.end(), is_digit);
    rotation made;
    if (plain.starts_with('.') && digits && number.size() <= most_digits) {
        made.number = std::stoull(std::string(number));
        return made;
    }
    if (plain.starts_with('-') && number.size() >= 8 &&
        std::all_of(number.begin(), number.end(), [](char c) { return is_digit(c) || c == '-'; })) {
        made.date = number;
        return made;
    }
    return std::nullopt;
}

} // namespace

static uint32_t list_rotations(const std::filesystem::path &folder, std::string_view log,
                               std::vector<rotation> *found) {
    platform::directory_listing *listing = nullptr;
    uint32_t error = platform::directory_open(folder.string().c_str(), &listing);
    if (error) {
        return error;
    }
    platform::directory_entry entry;
    while (!(error = platform::directory_next(listing, &entry))) {
        const std::string_view name = entry.name;
        if (entry.attributes == platform::attribute_directory || !name.starts_with(log)) {
            continue;
        }
        if (auto one = rotation_of(name.substr(log.size()))) {
            one->name = name;
            found->push_back(std::move(*one));
        }
    }
    platform::directory_close(listing);
    return error == platform::error_no_more_files ? 0 : error;
}

std::vector<std::string> rotated_logs(const std::string &path, uint32_t *error) {
    const std::filesystem::path whole(path);
    const std::filesystem::path folder = whole.parent_path();
    std::vector<rotation> found;
    const uint32_t failed =
        list_rotations(folder.empty() ? "." : folder, whole.filename().string(), &found);
    if (error) {
        *error = failed;
    }
    std::sort(found.begin(), found.end(),
              [](const rotation &one, const rotation &other) { return one.key() < other.key(); });
    const std::string front = path.substr(0, path.size() - whole.filename().string().size());
    std::vector<std::string> paths;
    for (const rotation &one : found) {
        paths.push_back(front + one.name);
    }
    paths.push_back(path);
    return paths;
}

// --- opening ------------------------------------------------------------------------------------

namespace {

struct names_of_logs {
    std::vector<std::string> paths; // the oldest first
    std::string failed;             // a folder that can't be read
    uint32_t error = 0;
    bool operator==(const names_of_logs &) const = default;
};

names_of_logs names_of(const std::vector<std::string> &given, bool with_rotated) {
    names_of_logs made;
    for (const std::string &path : given) {
        uint32_t error = 0;
        const bool alone = path == "-" || !with_rotated;
        for (const std::string &one :
             alone ? std::vector<std::string>{path} : rotated_logs(path, &error)) {
            if (std::find(made.paths.begin(), made.paths.end(), one) == made.paths.end()) {
                made.paths.push_back(one);
            }
        }
        if (error && !data_files::is_missing(error)) {
            made.failed = path;
            made.error = error;
        }
    }
    return made;
}

using identities = std::vector<platform::file_identity>;

// The newest first, so that what is rotated meanwhile comes twice, not never. A log that is not
// there is none when there are rotated ones: it is about to be made anew.
opened_logs open_all(const names_of_logs &names, const std::vector<std::string> &given,
                     identities *known) {
    opened_logs made;
    made.failed = names.failed;
    made.error = names.error;
    for (size_t i = names.paths.size(); i-- > 0 && made.failed.empty();) {
        opened_log one{names.paths[i], nullptr};
        if (one.path == "-" || names.paths.size() - i > most_open) {
            made.files.push_back(std::move(one));
            continue;
        }
        one.file = std::make_unique<data_files::open_file>();
        const uint32_t error = one.file->open(one.path);
        const bool is_given = std::find(given.begin(), given.end(), one.path) != given.end();
        if (error &&
            (!data_files::is_missing(error) || (is_given && names.paths.size() == given.size()))) {
            made.failed = one.path;
            made.error = error;
        }
        platform::file_identity identity;
        if (error || platform::file_identify(one.file->handle(), &identity) ||
            std::find(known->begin(), known->end(), identity) != known->end()) {
            continue;
        }
        known->push_back(identity);
        made.files.push_back(std::move(one));
    }
    std::reverse(made.files.begin(), made.files.end());
    return made;
}

} // namespace

opened_logs open_logs(const std::vector<std::string> &paths, bool with_rotated) {
    for (int attempt = 1;; ++attempt) {
        const names_of_logs names = names_of(paths, with_rotated);
        identities known;
        opened_logs made = open_all(names, paths, &known);
        if (!made.failed.empty() || attempt == most_tries || !with_rotated) {
            return made;
        }
        identities now;
        if (names_of(paths, with_rotated) == names) {
            open_all(names, paths, &now);
        }
        if (now == known) {
            return made;
        }
    }
}

} // namespace quillfence::decision
