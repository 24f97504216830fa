#include "decision_log.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "decision_record.h"
#include "json_reader.h"
#include "platform/error_numbers.h"

namespace quillfence::decision {

using platform::file_handle;

// Whether the file ends in the middle of a line: somebody was cut short. False when that can't be
// found out, as of a device.
static bool ends_torn(const std::string &path) {
    file_handle file = platform::invalid_file;
    if (platform::file_open(path.c_str(), {}, &file)) {
        return false;
    }
    uint64_t size = 0;
    char last = '\n';
    uint32_t moved = 0;
    if (!platform::file_size(file, &size) && size > 0 &&
        !platform::file_seek(file, -1, platform::seek_origin::end, nullptr)) {
        platform::file_read(file, &last, 1, &moved);
    }
    platform::file_close(file);
    return last != '\n';
}

// --- a record that was cut short ----------------------------------------------------------------

static constexpr std::string_view beginning_of_records = R"({"schema":"quillfence.decision/)";
static constexpr uint64_t piece_size = 64 << 10;

static bool read_exactly(file_handle file, uint64_t at, char *bytes, uint64_t size) {
    while (size > 0) {
        uint32_t moved = 0;
        if (platform::file_read_at(file, static_cast<int64_t>(at), bytes,
                                   static_cast<uint32_t>(size), &moved) ||
            moved == 0) {
            return false;
        }
        at += moved;
        bytes += moved;
        size -= moved;
    }
    return true;
}

// What stands behind the last line end. Nothing when it can't be read, or is too long.
static std::optional<std::string> tail_of(file_handle file, uint64_t size) {
    std::string tail;
    while (tail.size() < std::min(size, longest_record)) {
        const uint64_t left = size - tail.size();
        std::string piece(std::min(left, piece_size), '\0');
        if (!read_exactly(file, left - piece.size(), piece.data(), piece.size())) {
            return std::nullopt;
        }
        const size_t line_end = piece.rfind('\n');
        if (line_end != std::string::npos) {
            return piece.substr(line_end + 1) + tail;
        }
        tail.insert(0, piece);
    }
    return tail.size() == size ? std::optional(tail) : std::nullopt;
}

// Whether it begins as a record does and ends too early.
static bool is_cut_short(std::string_view tail) {
    const size_t compared = std::min(tail.size(), beginning_of_records.size());
    if (compared == 0 || tail.substr(0, compared) != beginning_of_records.substr(0, compared)) {
        return false;
    }
    json_problem problem;
    return json_document(tail, &problem).empty();
}

// How many bytes it has cut off: of a record that was cut short, while nobody else writes there.
static uint64_t cut_torn_record(const std::string &path) try {
    file_handle file = platform::invalid_file;
    if (platform::file_open(path.c_str(), {.write = true, .lock = true}, &file)) {
        return 0;
    }
    uint64_t size = 0;
    uint64_t cut = 0;
    if (!platform::file_size(file, &size)) {
        const std::optional<std::string> tail = tail_of(file, size);
        if (tail && is_cut_short(*tail) &&
            !platform::file_seek(file, static_cast<int64_t>(size - tail->size()),
                                 platform::seek_origin::begin, nullptr) &&
            !platform::file_truncate(file)) {
            cut = tail->size();
        }
    }
    platform::file_close(file);
    return cut;
} catch (const std::bad_alloc &) {
    return 0;
}

// --- opening ------------------------------------------------------------------------------------

static constexpr platform::file_options as_log = {.append = true,
                                                  .among_writers = true,
                                                  .of_owner = true,
                                                  .when = platform::disposition::open_always};
static constexpr int tries_for_lock = 50;
static constexpr std::chrono::milliseconds between_tries(10);

// *is_known receives whether others can see that it is open as a log.
static uint32_t open_log(const std::string &path, file_handle *file, bool *is_known) {
    uint32_t error = platform::file_open(path.c_str(), as_log, file);
    for (int i = 1; i < tries_for_lock && error == platform::error_sharing_violation; ++i) {
        std::this_thread::sleep_for(between_tries);
        error = platform::file_open(path.c_str(), as_log, file);
    }
    *is_known = error == 0;
    if (!error || error == platform::error_sharing_violation) {
        return error;
    }
    platform::file_options without_lock = as_log;
    without_lock.among_writers = false;
    return platform::file_open(path.c_str(), without_lock, file);
}

// Opens it, and cuts a torn record off before anything is written there.
static uint32_t open_and_mend(const std::string &path, file_handle *file, uint64_t *cut) {
    bool is_known = false;
    const uint32_t error = open_log(path, file, &is_known);
    if (error || !is_known || !ends_torn(path)) {
        return error; // where a log can't be known as one, another one may be writing unseen
    }
    platform::file_close(*file); // it counts as another one, too
    *cut = cut_torn_record(path);
    return open_log(path, file, &is_known);
}

decision_log::~decision_log() {
    if (file_ != platform::invalid_file) {
        platform::file_close(file_);
    }
}

uint32_t decision_log::open(const std::string &path) {
    path_ = path;
    return reopen();
}

uint32_t decision_log::reopen() {
    file_handle fresh = platform::invalid_file;
    cut_ = 0;
    if (const uint32_t error = open_and_mend(path_, &fresh, &cut_)) {
        return error;
    }
    const std::lock_guard guard(lock_);
    torn_ = ends_torn(path_);
    std::swap(file_, fresh);
    if (fresh != platform::invalid_file) {
        platform::file_close(fresh);
    }
    return 0;
}

uint32_t decision_log::append(std::string_view text) {
    uint32_t moved = 0;
    const uint32_t error =
        platform::file_write(file_, text.data(), static_cast<uint32_t>(text.size()), &moved);
    if (error) {
        return error;
    }
    if (moved > 0) {
        torn_ = text[moved - 1] != '\n';
    }
    return moved == text.size() ? platform::error_none : platform::error_disk_full;
}

uint32_t decision_log::write(std::string_view line) noexcept {
    const std::lock_guard guard(lock_);
    if (!torn_) {
        return append(line);
    }
    try {
        return append("\n" + std::string(line));
    } catch (const std::bad_alloc &) {
        return platform::error_not_enough_memory;
    }
}

} // namespace quillfence::decision
