// The configuration of a service that runs for months: read once, and read anew when somebody has
// edited it. What is being judged with the old one ends with the old one, which goes with its last
// user.
//
// A look at the files (their stamps, not their bytes) costs some thirty system calls. Twice a
// second there is one; a change is taken once nothing has changed for a second more, so that an
// editor that writes several files is not overtaken. So an edit counts after at most two seconds. A
// configuration that can't be read, or changes while it is read, is not taken: the old one stays.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "event.h"
#include "guard_source.h"
#include "pattern_line_files.h"
#include "platform/file.h"
#include "snapshot_owners.h"

namespace quillfence::service {

// One loading of it; nothing in it changes, but for what the guard counts.
struct loaded_tree {
    loaded_tree(owned_snapshot read, dns_sources::guard_choice guards);

    const owned_snapshot files;
    const decision::pattern_line_files pattern_lines;
    const std::vector<std::string> zones; // of its DNS block lists
    const dns_sources::answer_guard guard;
};

class live_configuration {
  public:
    using clock = std::chrono::steady_clock;

    struct options {
        std::string user_dir{}; // the recipient's own lists; "" for none
        dns_sources::guard_choice guards{};
        // Of each loading: the tree, null when there is none, and what there is to say. By the
        // thread that loads; may be empty.
        std::function<void(const loaded_tree *, std::string_view)> told{};
        clock::time_point (*now)() = clock::now;
    };
    static constexpr std::chrono::milliseconds between_looks{500};
    static constexpr std::chrono::seconds still_for{1};
    // A configuration that could not be read is tried again when it changes, and otherwise so
    // often.
    static constexpr std::chrono::seconds until_tried_again{30};

    // The engine must have been started. Nothing is read yet.
    explicit live_configuration(options with);
    ~live_configuration(); // as stop()
    live_configuration(const live_configuration &) = delete;
    live_configuration &operator=(const live_configuration &) = delete;

    // What is in force; null as long as none could be loaded. From any thread.
    std::shared_ptr<const loaded_tree> now() const;

    // Reads it at once, changed or not. False: the old one stays, and was told why.
    bool load();
    // Looks once, and loads what has been still for long enough.
    void look();

    // Looks again and again, on a thread of its own, until it is stopped. Throws when the system
    // gives no thread.
    void start();
    void stop();

  private:
    // What a look sees of a path.
    struct sight {
        uint32_t error = 0;
        platform::path_stamp stamp{};
        bool operator==(const sight &) const = default;
    };
    using sights = std::vector<sight>;

    sights see() const;
    bool load_locked();
    std::string try_to_load(bool *in_motion);
    void watch(const snapshot_report &report);
    void watch_catalogue();
    bool is_due(const sights &seen);

    const options with_;
    mutable std::mutex tree_lock_;
    std::shared_ptr<const loaded_tree> tree_;

    std::mutex lock_; // of what follows
    std::vector<std::string> paths_;
    sights seen_;    // by the last look
    sights settled_; // what was loaded, or could not be
    bool failed_ = false;
    clock::time_point still_since_{};
    clock::time_point tried_{};

    std::mutex wait_lock_; // of what follows
    std::condition_variable wake_;
    bool stops_ = false;
    std::thread thread_;
};

} // namespace quillfence::service
