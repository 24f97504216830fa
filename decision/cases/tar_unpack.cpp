#include "tar_unpack.h"

#include <set>

#include "new_file.h"
#include "open_file.h"
#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "tar_reader.h"
#include "text.h"

namespace quillfence::decision {

namespace {

// One walk over the archive.
class walk {
  public:
    explicit walk(const std::string &path, const tar_limits &limits)
        : path_(path), error_(file_.open(path)),
          reader_([this](void *bytes, size_t size,
                         size_t *got) { return error_ ? error_ : file_.read(bytes, size, got); },
                  limits) {}
    tar_reader &reader() {
        return reader_;
    }
    std::string problem() const {
        return error_                      ? path_ + ": " + data_files::system_text(error_)
               : reader_.problem().empty() ? ""
                                           : path_ + ": " + reader_.problem();
    }

  private:
    std::string path_;
    data_files::open_file file_;
    uint32_t error_;
    tar_reader reader_;
};

// Makes what an archive holds, below one folder.
class unpacker {
  public:
    explicit unpacker(const std::string &folder) : folder_(folder) {}

    void make(const tar_entry &entry, tar_reader *from) {
        make_folders(entry.folder ? entry.name + '/' : entry.name);
        if (!entry.folder && problem_.empty()) {
            make_file(entry, from);
        }
    }
    const std::string &problem() const {
        return problem_;
    }

  private:
    // All folders on the way to a name, each once.
    void make_folders(const std::string &name) {
        for (size_t end = name.find('/'); end != std::string::npos && problem_.empty();
             end = name.find('/', end + 1)) {
            const std::string part = name.substr(0, end);
            if (made_.insert(part).second) {
                check(part, platform::directory_create(place_of(part).c_str()));
            }
        }
    }
    void make_file(const tar_entry &entry, tar_reader *from) {
        new_file file;
        check(entry.name, file.create(place_of(entry.name)));
        char piece[64 * 1024];
        for (size_t got = sizeof piece; got == sizeof piece && problem_.empty();) {
            if (!from->read(piece, sizeof piece, &got)) {
                return; // the archive's own problem
            }
            check(entry.name, file.write(piece, got));
        }
        check(entry.name, file.close());
    }
    std::string place_of(const std::string &name) const {
        return data_files::joined(folder_, name);
    }
    void check(const std::string &name, uint32_t error) {
        if (error && problem_.empty()) {
            problem_ = place_of(name) + ": could not be made: " + data_files::system_text(error);
        }
    }

    std::string folder_;
    std::string problem_;
    std::set<std::string> made_;
};

} // namespace

static std::string why_not_empty(const std::string &folder) {
    platform::directory_listing *listing = nullptr;
    if (const uint32_t error = platform::directory_open(folder.c_str(), &listing)) {
        return folder + ": " + data_files::system_text(error);
    }
    platform::directory_entry entry = {};
    uint32_t error = 0;
    bool found = false;
    while (!found && !(error = platform::directory_next(listing, &entry))) {
        const std::string_view name = entry.name;
        found = name != "." && name != "..";
    }
    platform::directory_close(listing);
    return found ? folder + ": is not empty"
           : error == platform::error_no_more_files
               ? ""
               : folder + ": can't be listed: " + data_files::system_text(error);
}

static std::string prepare(const std::string &folder) {
    const uint32_t error = platform::directory_create(folder.c_str());
    if (error == platform::error_already_exists) {
        return why_not_empty(folder);
    }
    return error ? folder + ": could not be made: " + data_files::system_text(error) : "";
}

static std::string look_through(const std::string &path, const tar_limits &limits,
                                std::vector<tar_entry> *entries) {
    walk through(path, limits);
    for (tar_entry entry; through.reader().next(&entry);) {
        entries->push_back(entry);
    }
    return through.problem();
}

unpacked_tar unpack_tar(const std::string &path, const std::string &folder,
                        const tar_limits &limits) {
    unpacked_tar result;
    result.problem = look_through(path, limits, &result.entries);
    if (result.problem.empty()) {
        result.problem = prepare(folder);
    }
    if (!result.problem.empty()) {
        return result;
    }
    walk again(path, limits);
    unpacker unpack(folder);
    for (tar_entry entry; unpack.problem().empty() && again.reader().next(&entry);) {
        unpack.make(entry, &again.reader());
    }
    result.problem = unpack.problem().empty() ? again.problem() : unpack.problem();
    return result;
}

} // namespace quillfence::decision
