#include "bundle.h"

#include <cstring>
#include <set>

#include "configuration.h"
#include "cut_map.h"
#include "disk_names.h"
#include "file_digest.h"
#include "open_file.h"
#include "pattern_lines.h"
#include "platform/net.h"
#include "session.h"
#include "tar_header.h"
#include "tar_writer.h"
#include "text.h"
#include "utc_text.h"

namespace quillfence::decision {

namespace {

// A file on its way into the bundle.
struct bundled_file {
    std::string path{}; // the engine's
    std::string name{}; // in the bundle
    int64_t time = 0;
    uint64_t size = 0;
    std::string digest{};                 // that the bytes must have
    std::optional<std::string> instead{}; // the bytes, when they are not the file's own
};

// The address that the engine asks block maps for; nothing when it has none to ask for.
std::optional<uint32_t> asked_of_maps(const transaction &of) {
    const std::string ip = of.ip ? session_address(*of.ip) : "";
    const uint32_t address = platform::net_inet_addr(ip.c_str());
    const bool is_asked = address != 0 && address != 0xFFFFFFFF;
    return is_asked ? std::optional(address) : std::nullopt;
}

class bundler {
  public:
    bundler(FILE *to, const test_case &which, const bundle_options &options)
        : case_(which), options_(options), writer_(to, options.limits),
          client_(options.cut_maps ? asked_of_maps(which.record.transaction) : std::nullopt) {}

    written_bundle run() {
        gather();
        if (problem_.empty()) {
            write();
        }
        return {problem_.empty() ? writer_.problem() : problem_, entries_, cut_};
    }

  private:
    void gather();
    void gather_file(config_file *consulted);
    void gather_lines(const std::string &path);
    void gather_folders();
    void gather_folder(const std::string &path);
    bool weigh(config_file *consulted, bundled_file *file);
    void cut(config_file *consulted, bundled_file *file);
    bool is_to_be_cut(const std::string &path) const;
    bool place(const std::string &path, std::string *name);

    void write();
    void write_file(const bundled_file &file);
    void copy(const bundled_file &file);

    void fail(const std::string &path, const std::string &why) {
        if (problem_.empty()) {
            problem_ = path + ": " + why;
        }
    }
    void fail(const std::string &path, uint32_t error) {
        fail(path, data_files::system_text(error));
    }

    test_case case_;
    bundle_options options_;
    tar_writer writer_;
    std::optional<uint32_t> client_; // as the maps were asked, network byte order
    disk_names names_;
    std::set<std::string> folders_;
    std::set<std::string> seen_;
    std::vector<bundled_file> files_;
    std::vector<tar_entry> entries_;
    std::vector<std::string> cut_;
    std::string problem_;
};

} // namespace

static constexpr char changed[] = "has changed since it was consulted";

// --- what goes into it --------------------------------------------------------------------------

bool bundler::place(const std::string &path, std::string *name) {
    *name = archive_name(path);
    if (name->empty()) {
        fail(path, "has no place in a bundle, since it is not a whole path on a drive");
        return false;
    }
    *name = names_.spelled(*name);
    return true;
}

// The file as it is now against what is known of it.
bool bundler::weigh(config_file *consulted, bundled_file *file) {
    data_files::open_file opened;
    uint32_t error = opened.open(consulted->path);
    error = error ? error : opened.size(&file->size);
    error = error ? error : opened.changed(&file->time);
    if (!error && consulted->sha256.empty()) {
        error = data_files::digest_of_file(consulted->path, &file->digest);
    }
    if (error) {
        fail(consulted->path, error);
        return false;
    }
    const bool other_size = consulted->bytes && *consulted->bytes != file->size;
    const bool other_time = !consulted->time.empty() && consulted->time != utc_text(file->time);
    if (other_size || other_time) {
        fail(consulted->path, changed);
        return false;
    }
    if (!consulted->sha256.empty()) {
        file->digest = consulted->sha256;
    }
    consulted->bytes = file->size;
    consulted->sha256 = file->digest;
    consulted->time.clear();
    return true;
}

bool bundler::is_to_be_cut(const std::string &path) const {
    if (!options_.cut_maps || !path.starts_with(quillfence_block_maps_dir)) {
        return false;
    }
    const std::string_view name = std::string_view(path).substr(
        path.find_first_not_of('/', sizeof quillfence_block_maps_dir - 2));
    for (const block_map_record &map : case_.record.block_maps) {
        if (map.map == name) {
            return true;
        }
    }
    return false;
}

void bundler::cut(config_file *consulted, bundled_file *file) {
    if (!client_) {
        fail(consulted->path, "can't be cut, since the case has no address that it was asked for");
        return;
    }
    std::string digest;
    uint32_t error = data_files::digest_of_file(consulted->path, &digest);
    data_files::open_file map;
    error = error ? error : map.open(consulted->path);
    if (!error) {
        file->instead = cut_map(map, *client_, &error);
    }
    if (error) {
        fail(consulted->path, error);
        return;
    }
    if (digest != file->digest) {
        fail(consulted->path, changed);
        return;
    }
    file->size = file->instead->size();
    file->digest = data_files::digest_of(*file->instead);
    consulted->bytes = file->size;
    consulted->sha256 = file->digest;
    cut_.push_back(file->name);
}

// A folder stands in the bundle when it is there; a drive needs no entry.
void bundler::gather_folder(const std::string &path) {
    uint32_t attributes = 0;
    std::string name;
    if (path.empty()) {
        return;
    }
    const uint32_t error = platform::path_attributes(path.c_str(), &attributes);
    if (error && !data_files::is_missing(error)) {
        fail(path, error);
    } else if (attributes == platform::attribute_directory && place(path, &name) &&
               name.find('/') != std::string::npos) {
        folders_.insert(name);
    }
}

void bundler::gather_file(config_file *consulted) {
    gather_folder(data_files::parts_of(consulted->path).directory);
    if (consulted->missing) {
        uint32_t attributes = 0;
        const uint32_t error = platform::path_attributes(consulted->path.c_str(), &attributes);
        if (error && !data_files::is_missing(error)) { // a loop of links, say
            fail(consulted->path, "can't be looked at, nor could it when it was consulted");
        } else if (attributes == platform::attribute_normal) {
            fail(consulted->path, "was missing when it was consulted, and is there now");
        }
        return;
    }
    bundled_file file;
    file.path = consulted->path;
    if (!place(file.path, &file.name) || !weigh(consulted, &file)) {
        return;
    }
    if (is_to_be_cut(file.path)) {
        cut(consulted, &file);
    }
    if (seen_.insert(file.name).second) {
        files_.push_back(std::move(file));
    }
}

void bundler::gather_lines(const std::string &path) {
    static constexpr char patterns[] = ".cregexes";
    config_file lines;
    lines.path = path + data_files::pattern_lines_suffix;
    if (path.ends_with(patterns) && data_files::may_be_file(lines.path)) {
        gather_file(&lines);
    }
}

void bundler::gather_folders() {
    const configuration &config = case_.record.config;
    for (const std::string &folder :
         {config.base, config.user_dir, std::string(quillfence_block_maps_dir),
          std::string(quillfence_control_dir)}) {
        gather_folder(folder);
    }
}

void bundler::gather() {
    gather_folders();
    for (config_file &consulted : case_.record.config.files) {
        gather_file(&consulted);
        if (!consulted.missing) {
            gather_lines(consulted.path);
        }
    }
}

// --- writing ------------------------------------------------------------------------------------

// The file's bytes, which must be those that were digested.
void bundler::copy(const bundled_file &file) {
    data_files::open_file opened;
    uint32_t error = opened.open(file.path);
    data_files::running_digest digest;
    std::vector<char> piece(64 * 1024);
    uint64_t copied = 0;
    for (size_t got = piece.size(); !error && got == piece.size() && writer_.problem().empty();
         copied += got) {
        error = opened.read(piece.data(), piece.size(), &got);
        if (copied + got > file.size) {
            break;
        }
        digest.add(piece.data(), got);
        writer_.write(piece.data(), got);
    }
    if (error) {
        fail(file.path, error);
    } else if (copied != file.size || digest.text() != file.digest) {
        fail(file.path, changed);
    }
}

void bundler::write_file(const bundled_file &file) {
    writer_.begin_file(file.name, file.size, file.time);
    if (file.instead) {
        writer_.write(file.instead->data(), file.instead->size());
    } else if (writer_.problem().empty()) {
        copy(file);
    }
    if (problem_.empty()) {
        writer_.end_file();
        entries_.push_back({.name = file.name, .size = file.size, .time = file.time});
    }
}

void bundler::write() {
    std::string json;
    write_case(json, case_);
    json += '\n';
    writer_.add_file(bundled_case, json, 0);
    entries_.push_back({.name = bundled_case, .size = json.size()});
    for (const std::string &folder : folders_) {
        writer_.add_folder(folder, 0);
        entries_.push_back({.name = folder, .folder = true});
    }
    for (const bundled_file &file : files_) {
        if (problem_.empty() && writer_.problem().empty()) {
            write_file(file);
        }
    }
    writer_.finish();
}

written_bundle write_bundle(FILE *to, const test_case &which, const bundle_options &options) {
    return bundler(to, which, options).run();
}

// --- reading ------------------------------------------------------------------------------------

static constexpr char no_bundle[] = "is no bundle: a tar file that begins with case.json";

static bool is_case(std::string_view name) {
    return name == bundled_case || (name.starts_with("./") && name.substr(2) == bundled_case);
}

bool is_bundle(std::string_view bytes) {
    tar_block block;
    std::string why;
    if (bytes.size() < block.size()) {
        return false;
    }
    std::memcpy(block.data(), bytes.data(), block.size());
    const auto header = read_tar_header(block, &why);
    return header && is_case(header->name);
}

unpacked_tar unpack_bundle(const std::string &path, const std::string &folder,
                           const tar_limits &limits) {
    data_files::open_file file;
    tar_block block = {};
    size_t got = 0;
    uint32_t error = file.open(path);
    error = error ? error : file.read(block.data(), block.size(), &got);
    if (error) {
        return {path + ": " + data_files::system_text(error), {}};
    }
    if (!is_bundle({block.data(), got})) {
        return {path + ": " + no_bundle, {}};
    }
    return unpack_tar(path, folder, limits);
}

std::string place_in_bundle(const std::string &folder, std::string_view path) {
    const std::string name = archive_name(path);
    return name.empty() ? "" : data_files::joined(folder, name);
}

} // namespace quillfence::decision
