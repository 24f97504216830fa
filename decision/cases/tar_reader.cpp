#include "tar_reader.h"

#include <algorithm>
#include <array>

#include "text.h"

namespace quillfence::decision {

static constexpr uint64_t largest_extension = 64 * 1024; // a pax header or a long name

tar_reader::tar_reader(tar_source from, const tar_limits &limits)
    : from_(std::move(from)), limits_(limits) {}

bool tar_reader::fail(const std::string &why) {
    if (problem_.empty()) {
        problem_ = why;
    }
    return false;
}

bool tar_reader::fail_entry(const std::string &name, const std::string &why) {
    return fail(data_files::quoted(name) + ": " + why);
}

// All of these bytes; fewer are a problem.
bool tar_reader::fill(void *bytes, size_t size) {
    size_t got = 0;
    if (const uint32_t error = from_(bytes, size, &got)) {
        return fail("can't be read: " + data_files::system_text(error));
    }
    if (got < size) {
        return fail(last_.empty() ? "is cut off in its first entry"
                                  : "is cut off in or behind " + data_files::quoted(last_));
    }
    return true;
}

bool tar_reader::read_block(tar_block *block) {
    return fill(block->data(), block->size());
}

// --- contents -----------------------------------------------------------------------------------

bool tar_reader::read(void *bytes, size_t size, size_t *got) {
    *got = 0;
    const auto wanted = static_cast<size_t>(std::min<uint64_t>(size, left_));
    if (!problem_.empty() || !fill(bytes, wanted)) {
        return false;
    }
    *got = wanted;
    left_ -= wanted;
    return true;
}

bool tar_reader::pass_over_rest() {
    char piece[16 * 1024];
    for (size_t got = sizeof piece; got == sizeof piece;) {
        if (!read(piece, sizeof piece, &got)) {
            return false;
        }
    }
    const size_t padding = padding_;
    padding_ = 0;
    return fill(piece, padding);
}

// --- what stands in front of an entry -----------------------------------------------------------

bool tar_reader::read_text(const tar_header &header, std::string *text) {
    if (header.size > largest_extension) {
        return fail_entry(header.name, "is an extended header of " + std::to_string(header.size) +
                                           " bytes, which is too long");
    }
    text->resize(static_cast<size_t>(header.size));
    char padding[tar_block_size];
    return fill(text->data(), text->size()) && fill(padding, tar_padding(header.size));
}

bool tar_reader::take_extension(const tar_header &header, std::string *text) {
    if (header.type == 'L') { // GNU's long name
        next_ = pax_records{text->substr(0, text->find('\0')), {}};
        return true;
    }
    std::string why;
    const auto records = read_pax_records(*text, &why);
    if (!records) {
        return fail_entry(header.name, why);
    }
    if (header.type == 'x') {
        next_ = records;
    } else if (records->path || records->size) {
        return fail_entry(header.name, "gives all entries one name or size");
    }
    return true;
}

bool tar_reader::read_extension(const tar_header &header) {
    std::string text;
    if (next_ && header.type != 'g') {
        return fail_entry(header.name, "is a second extended header in a row");
    }
    return read_text(header, &text) && take_extension(header, &text);
}

static bool is_extension(char type) {
    return type == 'x' || type == 'g' || type == 'L';
}

// A problem that names no entry is told by what stands before.
std::string tar_reader::where_of_header(const std::string &problem) const {
    return problem.front() == '"' ? ""
           : last_.empty()        ? "the first header: "
                                  : "the header behind " + data_files::quoted(last_) + ": ";
}

// The next header of an entry, with its extensions in next_. False at the end, too.
bool tar_reader::read_headers(tar_header *header) {
    tar_block block;
    for (;;) {
        if (!read_block(&block)) {
            return false;
        }
        if (is_zero_block(block)) {
            return read_end();
        }
        std::string why;
        const auto found = read_tar_header(block, &why);
        if (!found) {
            return fail(where_of_header(why) + why);
        }
        if (!is_extension(found->type)) {
            *header = *found;
            return true;
        }
        if (++entries_ > limits_.entries) {
            return fail("has more than " + std::to_string(limits_.entries) + " entries");
        }
        if (!read_extension(*found)) {
            return false;
        }
    }
}

// Behind the first zero block: another one, and nothing but zeros. Always false.
bool tar_reader::read_end() {
    tar_block block;
    if (next_) {
        return fail("ends behind an extended header");
    }
    if (!read_block(&block)) {
        return false;
    }
    for (;;) {
        if (!is_zero_block(block)) {
            return fail("has bytes behind its end");
        }
        size_t got = 0;
        block = {};
        if (const uint32_t error = from_(block.data(), block.size(), &got)) {
            return fail("can't be read: " + data_files::system_text(error));
        }
        if (!got) {
            ended_ = true;
            return false;
        }
    }
}

// --- entries ------------------------------------------------------------------------------------

// What the entry is, when it is neither a file nor a folder.
static const char *other_kind(char type) {
    switch (type) {
    case '\0':
    case '0':
    case '5':
        return "";
    case '1':
        return "is a hard link";
    case '2':
    case 'K':
        return "is a link";
    case '3':
    case '4':
        return "is a device";
    case '6':
        return "is a pipe";
    case 'S':
        return "is a sparse file";
    default:
        return "is neither a file nor a folder";
    }
}

bool tar_reader::make_entry(const tar_header &header, tar_entry *entry) {
    const pax_records said = next_.value_or(pax_records{});
    next_.reset();
    *entry = {.name = said.path.value_or(header.name),
              .folder = header.type == '5',
              .size = said.size.value_or(header.size),
              .time = header.time};
    if (const char *const kind = other_kind(header.type); *kind) {
        return fail_entry(entry->name, kind);
    }
    if (entry->folder && entry->size) {
        return fail_entry(entry->name, "is a folder with contents of its own");
    }
    if (entry->folder && entry->name.ends_with('/')) {
        entry->name.pop_back();
    }
    if (entry->name.starts_with("./")) {
        entry->name.erase(0, 2);
    }
    return true;
}

bool tar_reader::accept(const tar_entry &entry) {
    std::string why = why_no_tar_name(entry.name);
    if (why.empty()) {
        why = why_beyond(entry, limits_, entries_, total_);
    }
    if (why.empty()) {
        why = names_.add(entry.name, entry.folder);
    }
    return why.empty() || fail_entry(entry.name, why);
}

bool tar_reader::next(tar_entry *entry) {
    tar_header header;
    do {
        if (ended_ || !problem_.empty() || !pass_over_rest() || !read_headers(&header) ||
            !make_entry(header, entry)) {
            return false;
        }
    } while (entry->folder && entry->name == "."); // the folder that was packed itself
    if (!accept(*entry)) {
        return false;
    }
    ++entries_;
    total_ += entry->size;
    left_ = entry->size;
    padding_ = tar_padding(entry->size);
    last_ = entry->name;
    return true;
}

} // namespace quillfence::decision
