#include "tar_writer.h"

#include <cerrno>
#include <cstring>

#include "tar_header.h"
#include "text.h"

namespace quillfence::decision {

tar_writer::tar_writer(FILE *to, const tar_limits &limits) : to_(to), limits_(limits) {}

void tar_writer::fail(std::string why) {
    if (problem_.empty()) {
        problem_ = std::move(why);
    }
}

void tar_writer::put(const void *bytes, size_t size) {
    if (problem_.empty() && std::fwrite(bytes, 1, size, to_) != size) {
        fail(std::string("can't be written: ") + std::strerror(errno));
    }
}

static std::string why_not(const tar_entry &entry, const tar_limits &limits, uint64_t entries,
                           uint64_t total, tar_names *names) {
    std::string why = why_no_tar_name(entry.name);
    if (why.empty()) {
        why = why_beyond(entry, limits, entries, total);
    }
    return why.empty() ? names->add(entry.name, entry.folder) : why;
}

bool tar_writer::begin(const tar_entry &entry) {
    if (!problem_.empty()) {
        return false;
    }
    const std::string why = why_not(entry, limits_, entries_, total_, &names_);
    if (!why.empty()) {
        fail(data_files::quoted(entry.name) + ": " + why);
        return false;
    }
    ++entries_;
    total_ += entry.size;
    const std::string header = tar_header_of(entry);
    put(header.data(), header.size());
    return true;
}

void tar_writer::add_folder(const std::string &name, int64_t time) {
    begin({.name = name, .folder = true, .time = time});
}

void tar_writer::begin_file(const std::string &name, uint64_t size, int64_t time) {
    if (begin({.name = name, .size = size, .time = time})) {
        name_ = name;
        size_ = left_ = size;
    }
}

void tar_writer::write(const void *bytes, size_t size) {
    if (problem_.empty() && size > left_) {
        fail(data_files::quoted(name_) + ": is longer than it was");
    }
    put(bytes, size);
    left_ -= problem_.empty() ? size : 0;
}

void tar_writer::end_file() {
    if (problem_.empty() && left_) {
        fail(data_files::quoted(name_) + ": is shorter than it was");
    }
    static constexpr tar_block zeros = {};
    put(zeros.data(), tar_padding(size_));
}

void tar_writer::add_file(const std::string &name, std::string_view bytes, int64_t time) {
    begin_file(name, bytes.size(), time);
    write(bytes.data(), bytes.size());
    end_file();
}

void tar_writer::finish() {
    static constexpr tar_block zeros = {};
    put(zeros.data(), zeros.size());
    put(zeros.data(), zeros.size());
}

} // namespace quillfence::decision
