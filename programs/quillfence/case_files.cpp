#include "case_files.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "text.h"

namespace quillfence::programs {

static bool is_folder(const std::string &path) {
    uint32_t attributes = 0;
    return platform::path_attributes(path.c_str(), &attributes) == 0 &&
           (attributes & platform::attribute_directory);
}

static bool is_called_case(const std::string &name) {
    const std::string lowered = data_files::lower(name);
    return lowered.ends_with(".json") || lowered.ends_with(".tar");
}

namespace {

class search {
  public:
    void add(const std::string &path) {
        if (is_folder(path)) {
            add_folder(path);
        } else if (data_files::may_be_file(path)) {
            found_.push_back({path, ""});
        } else {
            found_.push_back({path, data_files::system_text(platform::error_file_not_found)});
        }
    }
    std::vector<case_file> take() {
        return std::move(found_);
    }

  private:
    void add_folder(const std::string &folder);
    void look_into(const std::string &folder);
    uint32_t names_of(const std::string &folder, std::vector<std::string> *names) const;
    bool is_new(const std::string &folder);

    std::vector<case_file> found_;
    std::set<std::string> seen_; // folders, by the one path that no link is on
};

} // namespace

void search::add_folder(const std::string &folder) {
    const size_t before = found_.size();
    seen_.clear();
    look_into(folder);
    if (found_.size() == before) {
        found_.push_back({folder, "holds no cases (*.json, *.tar)"});
    }
    std::sort(found_.begin() + static_cast<std::ptrdiff_t>(before), found_.end(),
              [](const case_file &a, const case_file &b) { return a.path < b.path; });
}

bool search::is_new(const std::string &folder) {
    char native[4096];
    if (platform::path_native(folder.c_str(), native, sizeof native) != 0) {
        return true; // listing it will tell why
    }
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(native, error);
    return error || seen_.insert(real.string()).second;
}

uint32_t search::names_of(const std::string &folder, std::vector<std::string> *names) const {
    platform::directory_listing *listing = nullptr;
    if (const uint32_t error = platform::directory_open(folder.c_str(), &listing)) {
        return error;
    }
    platform::directory_entry entry = {};
    uint32_t error = 0;
    while ((error = platform::directory_next(listing, &entry)) == 0) {
        names->emplace_back(entry.name);
    }
    platform::directory_close(listing);
    return error == platform::error_no_more_files ? 0 : error;
}

void search::look_into(const std::string &folder) {
    if (!is_new(folder)) {
        return;
    }
    std::vector<std::string> names;
    if (const uint32_t error = names_of(folder, &names)) {
        found_.push_back({folder, data_files::system_text(error)});
    }
    for (const std::string &name : names) {
        const std::string path = data_files::joined(folder, name);
        if (name == "." || name == "..") {
            continue;
        }
        if (is_folder(path)) {
            look_into(path);
        } else if (is_called_case(name)) {
            found_.push_back({path, ""});
        }
    }
}

std::vector<case_file> case_files_of(const std::vector<std::string> &paths) {
    search all;
    for (const std::string &path : paths) {
        all.add(path);
    }
    return all.take();
}

} // namespace quillfence::programs
