#include "collected_tree.h"

#include <algorithm>
#include <set>

#include "configuration.h"
#include "file_digest.h"
#include "me_settings.h"
#include "open_file.h"
#include "pattern_lines.h"
#include "platform/edit.h"
#include "platform/process.h"
#include "program.h"
#include "progress.h"
#include "tar_entry.h"
#include "text.h"
#include "vc_text.h"
#include "verify.h"

namespace quillfence::programs {

using namespace data_files;

namespace {

struct wanted_file {
    std::string path;
    std::string name;
    std::string asked_as;
    std::string kind;
};

// How the manifest calls a kind.
const char *word_of(file_kind kind) {
    switch (kind) {
    case file_kind::on_off:
    case file_kind::rule_names:
    case file_kind::map_names:
    case file_kind::zone_names:
        return "control";
    case file_kind::addresses:
    case file_kind::ips:
    case file_kind::other_list:
        return "list";
    case file_kind::ranges:
        return "ranges";
    case file_kind::patterns:
        return "patterns";
    case file_kind::sender_networks:
        return "sender networks";
    case file_kind::mail_log:
        return "mail log";
    case file_kind::daily_counters:
    case file_kind::hourly_counters:
        return "counters";
    }
    return "";
}

bool is_counter(file_kind kind) {
    return kind == file_kind::daily_counters || kind == file_kind::hourly_counters;
}

class collector_of_files {
  public:
    explicit collector_of_files(const collect_choice &choice) : choice_(choice) {
        tree_.base_name = base_name();
    }

    collected_tree run() {
        require_directory(choice_.base, "give the one that holds \"control\" and \"bms\"");
        want_folders();
        want_configuration();
        want_block_maps();
        want_users();
        if (choice_.registry) {
            want_mail_server();
        }
        if (choice_.hosts) {
            want_hosts();
        }
        take_wanted();
        count_unknown("", 0);
        std::sort(tree_.files.begin(), tree_.files.end(),
                  [](const auto &a, const auto &b) { return a.name < b.name; });
        return std::move(tree_);
    }

  private:
    std::string base_name();
    std::string spelled_in_base(const std::string &file);
    void want_folders();
    void want_in_base(const std::string &file, const char *kind);
    void want_elsewhere(const std::string &path, const char *kind);
    void want_configuration();
    void leave_out(const std::string &file, const char *why);
    void leave_out_counters(const configuration_file &file);
    void want_block_maps();
    void want_users();
    void want_mail_server();
    void want_hosts();
    void take_wanted();
    void take(const wanted_file &wanted, progress *bar, uint64_t *done);
    void count_unknown(const std::string &folder, unsigned depth);
    void count_unknown_file(const std::string &file);

    collect_choice choice_;
    collected_tree tree_;
    decision::disk_names names_;
    std::vector<wanted_file> wanted_;
    std::set<std::string> known_; // below the base folder, by their letters on the disk
};

} // namespace

// --- names --------------------------------------------------------------------------------------

std::string collector_of_files::base_name() {
    const std::string name = decision::archive_name(choice_.base);
    const bool on_drive = name.size() > 1 && name[1] == '/';
    return on_drive ? names_.spelled(name) : "c/quillfence"; // a copy of it
}

std::string collector_of_files::spelled_in_base(const std::string &file) {
    return names_.spelled_below(choice_.base, file);
}

void collector_of_files::want_in_base(const std::string &file, const char *kind) {
    const std::string spelled = spelled_in_base(file);
    if (known_.insert(spelled).second) {
        wanted_.push_back({joined(choice_.base, spelled), joined(tree_.base_name, spelled),
                           spelled == file ? "" : joined(tree_.base_name, file), kind});
    }
}

void collector_of_files::want_elsewhere(const std::string &path, const char *kind) {
    const std::string asked = decision::archive_name(path);
    if (asked.empty()) {
        tree_.failures.push_back({path, "is not a whole path on a drive"});
        return;
    }
    const std::string name = names_.spelled(asked);
    wanted_.push_back({path, name, name == asked ? "" : asked, kind});
}

// --- what the engine knows ----------------------------------------------------------------------

// Where a symbolic link leads to; "" when the path is none.
static std::string link_of(const std::string &path) {
    char target[platform::longest_replaced_path];
    const uint32_t error = platform::path_target(path.c_str(), target, sizeof target);
    return error || path == target ? "" : target;
}

void collector_of_files::want_folders() {
    std::set<std::string> folders = {""};
    for (const configuration_file &file : configuration_files) {
        const std::string folder = parts_of(path_in_base(file)).directory;
        folders.insert(folder == "." ? "" : folder);
    }
    for (const std::string &folder : folders) {
        const std::string spelled = spelled_in_base(folder);
        const std::string path = joined(choice_.base, spelled);
        uint32_t attributes = 0;
        if (platform::path_attributes(path.c_str(), &attributes) ||
            attributes != platform::attribute_directory) {
            continue;
        }
        const std::string name =
            spelled.empty() ? tree_.base_name : joined(tree_.base_name, spelled);
        tree_.folders.push_back(name);
        if (const std::string link = link_of(path); !link.empty()) {
            tree_.links.push_back({name, link});
        }
    }
}

void collector_of_files::leave_out(const std::string &file, const char *why) {
    const std::string spelled = spelled_in_base(file);
    const std::string path = joined(choice_.base, spelled);
    open_file opened;
    uint64_t bytes = 0;
    if (!may_be_file(path)) {
        return;
    }
    known_.insert(spelled);
    if (!opened.open(path)) {
        opened.size(&bytes);
    }
    tree_.left_out.push_back({joined(tree_.base_name, spelled), why, bytes});
}

void collector_of_files::leave_out_counters(const configuration_file &file) {
    static constexpr char why[] = "counters decide nothing";
    if (file.kind == file_kind::hourly_counters) {
        leave_out(path_in_base(file), why);
        return;
    }
    for (int month = 1; month <= 12; ++month) {
        leave_out(std::string(path_in_base(file)) + (month < 10 ? ".0" : ".") +
                      std::to_string(month),
                  why);
    }
}

void collector_of_files::want_configuration() {
    for (const configuration_file &file : configuration_files) {
        if (is_counter(file.kind)) {
            leave_out_counters(file);
        } else if (file.kind == file_kind::mail_log && !choice_.with_log) {
            leave_out(path_in_base(file), "the mail log, which --with-log takes along");
        } else {
            want_in_base(path_in_base(file), word_of(file.kind));
        }
        const std::string lines = std::string(path_in_base(file)) + pattern_lines_suffix;
        if (file.kind == file_kind::patterns &&
            may_be_file(joined(choice_.base, spelled_in_base(lines)))) {
            want_in_base(lines, "lines of patterns");
        }
    }
}

void collector_of_files::want_block_maps() {
    verification::tree lists{.base = choice_.base, .findings = {}};
    for (const std::string &map : verification::named_maps(lists)) {
        const std::string name = "bms/" + map;
        if (decision::why_no_tar_name(name).empty()) {
            want_in_base(name, "block map");
        } else {
            tree_.left_out.push_back(
                {joined(tree_.base_name, name),
                 "a list of block maps names it, and " + decision::why_no_tar_name(name)});
        }
    }
}

void collector_of_files::want_users() {
    for (const std::string &folder : choice_.user_dirs) {
        require_directory(folder, "--user-dir is a user's own folder of lists");
        const std::string name = decision::archive_name(folder);
        if (!name.empty()) {
            tree_.folders.push_back(names_.spelled(name));
        }
        for (const configuration_file &file : configuration_files) {
            if (is_list(file) || file.kind == file_kind::ranges) {
                want_elsewhere(joined(folder, path_in_base(file)), "user's list");
            }
        }
    }
}

void collector_of_files::want_mail_server() {
    for (const char *const key : {me_key, me_key_32}) {
        if (const heap_string folder(me_configuration_directory(key)); folder) {
            want_elsewhere(std::string(folder.get()) + "\\DOMAIN.TAB", "mail server's domains");
            return;
        }
    }
}

void collector_of_files::want_hosts() {
    char path[4096];
    if (!platform::hosts_file_path(path, sizeof path)) {
        want_elsewhere(path, "hosts file");
    }
}

// --- what is there ------------------------------------------------------------------------------

// Opens it and takes its size, time and digest; all that is read is what it has at the beginning.
static uint32_t weigh(collected_file *file, progress *bar, uint64_t *done) {
    open_file opened;
    uint32_t error = opened.open(file->path);
    error = error ? error : opened.size(&file->size);
    error = error ? error : opened.changed(&file->time);
    running_digest digest;
    std::vector<char> piece(64 * 1024);
    for (uint64_t left = file->size; !error && left;) {
        size_t got = 0;
        const auto wanted = static_cast<size_t>(std::min<uint64_t>(piece.size(), left));
        error = opened.read(piece.data(), wanted, &got);
        if (!error && !got) {
            file->size -= left; // it has just become shorter
            break;
        }
        digest.add(piece.data(), got);
        left -= got;
        bar->show(*done += got);
    }
    file->digest = digest.text();
    return error;
}

void collector_of_files::take(const wanted_file &wanted, progress *bar, uint64_t *done) {
    collected_file file{
        .path = wanted.path, .name = wanted.name, .asked_as = wanted.asked_as, .kind = wanted.kind};
    if (!may_be_file(file.path)) {
        tree_.missing.push_back(file.name);
        return;
    }
    if (const std::string why = decision::why_no_tar_name(file.name); !why.empty()) {
        tree_.left_out.push_back({file.name, why});
        return;
    }
    const uint32_t error = weigh(&file, bar, done);
    if (is_missing(error)) {
        tree_.missing.push_back(file.name);
    } else if (error) {
        tree_.failures.push_back({file.name, system_text(error)});
    } else {
        file.link = link_of(file.path);
        tree_.files.push_back(std::move(file));
    }
}

static uint64_t size_of(const std::string &path) {
    open_file opened;
    uint64_t size = 0;
    return opened.open(path) || opened.size(&size) ? 0 : size;
}

void collector_of_files::take_wanted() {
    std::set<std::string> taken;
    uint64_t total = 0;
    for (const wanted_file &wanted : wanted_) {
        total += size_of(wanted.path);
    }
    progress bar("reading", total);
    uint64_t done = 0;
    for (const wanted_file &wanted : wanted_) {
        if (taken.insert(wanted.name).second) {
            take(wanted, &bar, &done);
        }
    }
}

// --- the rest -----------------------------------------------------------------------------------

void collector_of_files::count_unknown_file(const std::string &file) {
    if (known_.contains(file)) {
        return;
    }
    if (++tree_.unknown <= most_unknown_names) {
        tree_.unknown_names.push_back(joined(tree_.base_name, file));
    }
}

// Links to folders are not followed: they could lead round in a circle.
void collector_of_files::count_unknown(const std::string &folder, unsigned depth) {
    static constexpr unsigned deepest = 8;
    const auto listed =
        names_.in_folder(folder.empty() ? choice_.base : joined(choice_.base, folder));
    if (listed.error) {
        tree_.failures.push_back(
            {folder.empty() ? tree_.base_name : joined(tree_.base_name, folder),
             "can't be listed: " + system_text(listed.error)});
    }
    for (const auto &each : listed.names) {
        const std::string file = joined(folder, each.name);
        if (tree_.unknown >= most_unknown_files) {
            return;
        }
        if (!each.folder) {
            count_unknown_file(file);
        } else if (depth < deepest && link_of(joined(choice_.base, file)).empty()) {
            count_unknown(file, depth + 1);
        }
    }
}

collected_tree collect_tree(const collect_choice &choice) {
    return collector_of_files(choice).run();
}

} // namespace quillfence::programs
