#include "load_reader.h"

#include <new>
#include <utility>

#include "platform/error_numbers.h"
#include "platform/interruption.h"
#include "text.h"

namespace quillfence::decision {

// A load is what one read brings, and no more than this.
static constexpr uint32_t read_size = 32 * 1024;
static constexpr size_t most_items = 128;
// So much of an input is looked at to tell its format.
static constexpr size_t longest_beginning = 64 * 1024;

load_reader::load_reader(const std::vector<std::string> &inputs, std::optional<input_format> format,
                         conveyor *to)
    : inputs_(inputs), format_(format), to_(to), load_(std::make_unique<batch_load>()) {}

void load_reader::run() {
    try {
        for (size_t i = 0; i < inputs_.size() && read_input(inputs_[i]); ++i) {
        }
    } catch (const std::bad_alloc &) {
        failure_ = "out of memory";
    }
    to_->close();
}

bool load_reader::read_input(const std::string &path) {
    input_ = path;
    splitter_.reset();
    beginning_.clear();
    if (path == "-") {
        return read_all(platform::file_standard_input());
    }
    data_files::open_file file;
    if (const uint32_t error = file.open(path)) {
        failure_ = path + ": " + data_files::system_text(error);
        return false;
    }
    return read_all(file.handle());
}

bool load_reader::check_interruption() {
    if (platform::interruption_noted()) {
        interrupted_ = true;
        to_->stop();
    }
    return !to_->stopped();
}

bool load_reader::read_all(platform::file_handle from) {
    std::string piece(read_size, '\0');
    for (;;) {
        uint32_t got = 0;
        const uint32_t error =
            platform::file_read_unless_interrupted(from, piece.data(), read_size, &got);
        if (!check_interruption()) {
            return false;
        }
        if (error) {
            failure_ =
                (input_ == "-" ? "standard input" : input_) + ": " + data_files::system_text(error);
            return false;
        }
        bytes_read_ += got;
        const std::string_view text(piece.data(), got);
        if (splitter_) {
            splitter_->add(text);
        } else {
            beginning_ += text;
            if (!begin_format(got == 0)) {
                return false;
            }
        }
        if (splitter_ && !take_units(got == 0)) {
            return false;
        }
        if (got == 0) {
            return true;
        }
    }
}

// By the first line that looks like something.
static std::optional<input_format> format_of_beginning(std::string_view text) {
    while (!text.empty()) {
        if (const auto format = input_format_of_content(text)) {
            return format;
        }
        text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
    }
    return std::nullopt;
}

// Whole lines alone tell the format. False when they don't, and no more are looked at.
bool load_reader::begin_format(bool at_end) {
    const bool last = at_end || beginning_.size() >= longest_beginning;
    const size_t end = last ? beginning_.size() : beginning_.rfind('\n') + 1;
    const auto format =
        format_ ? format_ : format_of_beginning(std::string_view(beginning_).substr(0, end));
    if (format) {
        used_ = *format;
        splitter_.emplace(used_);
        splitter_->add(beginning_);
        beginning_.clear();
        return true;
    }
    const bool blank = beginning_.find_first_not_of(" \t\r\n") == std::string::npos;
    if (!last || (at_end && blank)) {
        return true;
    }
    failure_ = (input_ == "-" ? "standard input" : input_) +
               ": it looks like no format that is known; name one with --from";
    return false;
}

bool load_reader::take_units(bool at_end) {
    if (at_end) {
        splitter_->end();
    }
    for (input_unit unit; splitter_->next(&unit);) {
        add_unit(unit);
        if ((load_->items.size() == most_items || load_->text.size() >= read_size) && !put_load()) {
            return false;
        }
    }
    return load_->items.empty() || put_load();
}

void load_reader::add_unit(const input_unit &unit) {
    batch_item item;
    item.number = ++count_;
    item.line = unit.line;
    item.begin = load_->text.size();
    item.size = unit.text.size();
    item.too_long = unit.too_long;
    load_->text += unit.text;
    load_->items.push_back(std::move(item));
}

bool load_reader::put_load() {
    load_->input = input_;
    load_->format = used_;
    load_->bytes_read = bytes_read_;
    while (!to_->put(load_)) {
        if (!check_interruption()) {
            return false;
        }
    }
    load_ = std::make_unique<batch_load>();
    return true;
}

} // namespace quillfence::decision
