#include "live_configuration.h"

#include <algorithm>
#include <new>
#include <utility>

#include "configuration.h"
#include "frozen_files.h"
#include "text.h"

namespace quillfence::service {

// --- one loading --------------------------------------------------------------------------------

static std::vector<std::string> zones_of(const frozen_files &files) {
    static constexpr const configuration_file &list = configured("rbl.enabled");
    std::vector<std::string> zones;
    const frozen_file *const row = find_frozen_file(&files, list.path);
    if (row && row->bytes) {
        for (const data_files::text_line &line : data_files::lines_of({row->bytes, row->size})) {
            zones.emplace_back(line.text);
        }
    }
    return zones;
}

loaded_tree::loaded_tree(owned_snapshot read, dns_sources::guard_choice guards)
    : files(std::move(read)), pattern_lines(*files), zones(zones_of(*files)), guard(zones, guards) {
}

static std::string unread_text(const snapshot_report &told) {
    const unread_file &first = told.unread[0];
    std::string text = std::string(first.path) + ": " + data_files::system_text(first.error);
    if (told.unread_count > 1) {
        text += ", and " + std::to_string(told.unread_count - 1) + " more";
    }
    return text;
}

// --- what is watched ----------------------------------------------------------------------------

live_configuration::live_configuration(options with) : with_(std::move(with)) {}

live_configuration::~live_configuration() {
    stop();
}

live_configuration::sights live_configuration::see() const {
    sights seen(paths_.size());
    for (size_t i = 0; i < paths_.size(); ++i) {
        seen[i].error = platform::path_stamp_of(paths_[i].c_str(), &seen[i].stamp);
    }
    return seen;
}

// Before anything was loaded: every file that has a place.
void live_configuration::watch_catalogue() {
    for (const configuration_file &file : configuration_files) {
        paths_.emplace_back(file.path);
    }
}

// What can't be read is looked at as well, until that changes.
void live_configuration::watch(const snapshot_report &report) {
    for (size_t i = 0; i < report.unread_count; ++i) {
        const std::string path = report.unread[i].path;
        if (std::find(paths_.begin(), paths_.end(), path) == paths_.end()) {
            paths_.push_back(path);
        }
    }
}

// --- loading ------------------------------------------------------------------------------------

// "" when it is loaded, else why it is not; *in_motion then tells that it changed meanwhile.
std::string live_configuration::try_to_load(bool *in_motion) {
    owned_snapshot_report told;
    const char *const user_dir = with_.user_dir.empty() ? nullptr : with_.user_dir.c_str();
    owned_snapshot files(snapshot_load(user_dir, &told.it));
    if (!files) {
        *in_motion = told.it.changed;
        return told.it.changed ? std::string(told.it.changed) + ": changes while it is read"
                               : "there is not enough memory";
    }
    if (told.it.unread_count > 0) {
        watch(told.it);
        return unread_text(told.it);
    }
    std::vector<std::string> paths;
    for (size_t i = 0; i < files->row_count; ++i) {
        paths.emplace_back(files->rows[i].path);
    }
    paths_ = std::move(paths);
    // What changes from here on has another stamp; what has changed by then is found here.
    seen_ = see();
    if (!snapshot_is_current(files.get())) {
        *in_motion = true;
        return "it changes while it is read";
    }
    auto tree = std::make_shared<const loaded_tree>(std::move(files), with_.guards);
    const std::lock_guard guard(tree_lock_);
    tree_ = std::move(tree);
    return "";
}

bool live_configuration::load_locked() {
    if (paths_.empty()) {
        watch_catalogue();
    }
    std::string problem;
    bool in_motion = false;
    try {
        problem = try_to_load(&in_motion);
    } catch (const std::bad_alloc &) {
        problem = "there is not enough memory";
    }
    failed_ = !problem.empty();
    tried_ = still_since_ = with_.now();
    if (failed_) {
        seen_ = see();
    }
    settled_ = in_motion ? sights() : seen_; // what moved is not waited for to move again
    if (!with_.told) {
        return !failed_;
    }
    const std::shared_ptr<const loaded_tree> tree = now();
    if (!failed_) {
        with_.told(tree.get(),
                   std::string("the configuration is loaded: ") + tree->files->revision);
    } else {
        with_.told(nullptr, "the configuration can't be loaded: " + problem +
                                (tree ? "; the one before stays in force"
                                      : "; nothing is judged until it can"));
    }
    return !failed_;
}

bool live_configuration::load() {
    const std::lock_guard guard(lock_);
    return load_locked();
}

// --- looking ------------------------------------------------------------------------------------

bool live_configuration::is_due(const sights &seen) {
    const clock::time_point now = with_.now();
    if (seen != seen_) {
        seen_ = seen;
        still_since_ = now;
        return false;
    }
    if (seen == settled_) {
        return failed_ && now - tried_ >= until_tried_again;
    }
    return now - still_since_ >= still_for;
}

void live_configuration::look() {
    const std::lock_guard guard(lock_);
    if (is_due(see())) {
        load_locked();
    }
}

std::shared_ptr<const loaded_tree> live_configuration::now() const {
    const std::lock_guard guard(tree_lock_);
    return tree_;
}

void live_configuration::start() {
    thread_ = std::thread([this] {
        std::unique_lock guard(wait_lock_);
        while (!wake_.wait_for(guard, between_looks, [this] { return stops_; })) {
            guard.unlock();
            try {
                look();
            } catch (const std::bad_alloc &) {
                // The next look may have more.
            }
            guard.lock();
        }
    });
}

void live_configuration::stop() {
    {
        const std::lock_guard guard(wait_lock_);
        stops_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

} // namespace quillfence::service
