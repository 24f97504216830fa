#include "line_input.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "platform/edit.h"
#include "platform/file.h"
#include "program.h"
#include "read_ahead.h"

namespace quillfence::programs {

static constexpr size_t piece_size = 256 * 1024;
static constexpr size_t max_line_length = 1024 * 1024;

static uint64_t size_of(const open_file &file) {
    uint64_t size = 0;
    return file.is_open() && !file.size(&size) ? size : 0;
}

line_input::line_input(const std::string &path)
    : name_(path == "-" ? "standard input" : path), from_(begin(path)), piece_(piece_size),
      buffer_(piece_size), bar_("reading " + name_, size_of(file_)) {}

platform::file_handle line_input::begin(const std::string &path) {
    if (path == "-") {
        return platform::file_standard_input();
    }
    if (const uint32_t error = file_.open(path)) {
        throw failure(file_error(path, error));
    }
    return file_.handle();
}

void line_input::append(std::string_view text) {
    move_rest_to_front(buffer_.data(), &used_, &filled_);
    if (buffer_.size() - filled_ < text.size()) {
        buffer_.resize(std::max(buffer_.size() * 2, filled_ + text.size()));
    }
    std::memcpy(buffer_.data() + filled_, text.data(), text.size());
    filled_ += text.size();
}

void line_input::say_encoding() {
    if (!encoding_said_ && !decoder_.remark().empty()) {
        programs::complain(name_ + ": " + std::string(decoder_.remark()));
        encoding_said_ = true;
    }
}

// Reads on; false at the end of the file.
bool line_input::fill() {
    if (at_end_) {
        return false;
    }
    uint32_t got = 0;
    if (const uint32_t error =
            platform::file_read(from_, piece_.data(), static_cast<uint32_t>(piece_.size()), &got)) {
        throw failure(file_error(name_, error));
    }
    at_end_ = got == 0;
    append(at_end_ ? decoder_.finish() : decoder_.decode({piece_.data(), got}));
    say_encoding();
    done_ += got;
    if (at_end_) {
        bar_.wipe();
    } else {
        bar_.show(done_);
    }
    return true;
}

bool line_input::next(std::string_view *line) {
    size_t searched = 0;
    const char *end = nullptr;
    for (;;) {
        const char *const begin = buffer_.data() + used_;
        const size_t held = filled_ - used_;
        end = static_cast<const char *>(std::memchr(begin + searched, '\n', held - searched));
        if (end || held > max_line_length) {
            break;
        }
        searched = held;
        if (!fill()) {
            break;
        }
    }
    const char *const begin = buffer_.data() + used_;
    if (!end && used_ == filled_) {
        return false;
    }
    ++number_;
    const size_t length = end ? static_cast<size_t>(end - begin) : filled_ - used_;
    if (length > max_line_length) {
        throw failure(name_ + ":" + std::to_string(number_) +
                      ": the line is longer than 1 MiB; is this a text file?");
    }
    used_ += length + (end ? 1 : 0);
    *line = {begin, length};
    if (end && line->ends_with('\r')) {
        line->remove_suffix(1);
    }
    return true;
}

void line_input::complain(const std::string &text) {
    complain(number_, text);
}

void line_input::complain(uint64_t line, const std::string &text) {
    bar_.wipe();
    complain_at(name_, line, weight::error, text);
    ++complaints_;
}

void line_input::warn(uint64_t line, const std::string &text) {
    bar_.wipe();
    complain_at(name_, line, weight::warning, text);
}

// --- files that would destroy each other --------------------------------------------------------

namespace fs = std::filesystem;

static fs::path native_path(const std::string &path) {
    char native[4096];
    return platform::path_native(path.c_str(), native, sizeof native) == 0 ? native : "";
}

static bool are_same_file(const fs::path &one, const fs::path &other) {
    std::error_code ignored; // one that is missing is no other
    return fs::equivalent(one, other, ignored);
}

void refuse_same_file(const std::string &input, const std::string &output) {
    if (are_same_file(native_path(input), native_path(output))) {
        throw failure(output + ": is the input itself; name another file to write to");
    }
}

// What writing replaces: behind all links.
static fs::path place_of_output(const std::string &path) {
    char target[platform::longest_replaced_path];
    return native_path(platform::path_target(path.c_str(), target, sizeof target) == 0 ? target
                                                                                       : path);
}

static fs::path folder_of(const fs::path &path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

static bool are_same_output(const std::string &one, const std::string &other) {
    const fs::path first = place_of_output(one);
    const fs::path second = place_of_output(other);
    return are_same_file(first, second) || (first.filename() == second.filename() &&
                                            are_same_file(folder_of(first), folder_of(second)));
}

void refuse_overwriting(const std::vector<std::string> &inputs,
                        const std::vector<std::string> &outputs) {
    for (size_t i = 0; i < outputs.size(); ++i) {
        for (const std::string &input : inputs) {
            refuse_same_file(input, outputs[i]);
        }
        for (size_t other = 0; other < i; ++other) {
            if (!outputs[i].empty() && !outputs[other].empty() &&
                are_same_output(outputs[i], outputs[other])) {
                throw failure(outputs[i] + ": would be written twice; name another file to write "
                                           "to");
            }
        }
    }
}

} // namespace quillfence::programs
