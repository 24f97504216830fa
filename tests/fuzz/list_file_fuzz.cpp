// List files: looked up in with every matcher, walked, edited, and looked up in again.
//
//     which matcher and which edit   a byte
//     the entry
//     its comment
//     the file
#include "fuzz_support.h"
#include "quillfence-file.h"
#include "vc_file.h"
#include "vc_text.h"

namespace quillfence::testing {

namespace {

constexpr char folder[] = "c:/quillfence";
constexpr char list[] = "from_whitelist";
constexpr char list_path[] = "c:/quillfence/from_whitelist";
constexpr size_t longest_line = 1022;

// A hopeless pattern takes all the steps that there are, for each line anew. The targets of the
// patterns look for such; here a list is asked for patterns when it is short.
constexpr size_t longest_pattern_list = 200;
constexpr list_matcher matchers[] = {_stricmp, __wildcardmatch, __regexmatch};

size_t lines_seen;

void count_line(const char *line, uint32_t length) {
    QF_PROMISE(strlen(line) <= length);
    ++lines_seen;
}

bool is_message(const char *text) {
    static const char *const messages[] = {list_bad_add,   list_bad_comment, list_opposite,
                                           list_no_memory, list_open_failed, list_exists,
                                           list_not_found, list_bad_del};
    for (const char *message : messages) {
        if (text && !strcmp(text, message)) {
            return true;
        }
    }
    return !text;
}

int lookup(const std::string &value, list_matcher matcher) {
    const int found = __file_contains_line(folder, list, value.c_str(), matcher);
    QF_PROMISE(found == 0 || found == 1);
    return found;
}

// Everything that only reads.
void read_list(const std::string &value, size_t how_many_matchers) {
    for (size_t i = 0; i < how_many_matchers; ++i) {
        lookup(value, matchers[i]);
    }
    lines_seen = 0;
    QF_PROMISE(vc_iterate_file(folder, list, count_line));
    QF_PROMISE(lines_seen <= file_bytes(list_path).size());
    vc_list_entry *entries = vc_file_to_list(folder, list);
    QF_PROMISE((entries == nullptr) == file_bytes(list_path).empty());
    vc_destroy_list(&entries, free);
    vc_file_to_int(folder, list);
}

// Whether a line that holds this entry reads back as the entry, whatever stands around it.
bool is_plain(const std::string &entry) {
    return !entry.empty() && !is_space(entry.front()) && entry.front() != '#' &&
           entry.size() < longest_line && entry.find('\r') == std::string::npos;
}

// What an edit leaves: nothing temporary, and on failure the old bytes.
void check_edit(const char *message, const std::string &before) {
    QF_PROMISE(is_message(message));
    QF_PROMISE(!message || file_bytes(list_path) == before);
    QF_PROMISE(!fuzz_drive().exists(std::string(list_path) + ".tmp"));
}

const char *add(const std::string &entry, const char *comment, list_matcher matcher) {
    const std::string before = file_bytes(list_path);
    const char *message = vc_add_entry(folder, list, entry.c_str(), comment, matcher);
    check_edit(message, before);
    return message;
}

const char *del(const std::string &entry, uint8_t keep_entry, list_matcher matcher) {
    const std::string before = file_bytes(list_path);
    const char *message = vc_del_entry(folder, list, entry.c_str(), keep_entry, matcher);
    check_edit(message, before);
    return message;
}

// Comparing whole texts, an entry that is added is there, and one that is deleted is not.
void add_and_delete(const std::string &entry, const std::string &comment) {
    if (!is_plain(entry)) {
        return;
    }
    const bool there = lookup(entry, _stricmp);
    const char *message = add(entry, nullptr, _stricmp);
    QF_PROMISE(there ? message == list_exists || !strcmp(message, list_exists) : !message);
    QF_PROMISE(lookup(entry, _stricmp));
    add(entry, comment.c_str(), _stricmp);
    QF_PROMISE(lookup(entry, _stricmp));
    del(entry, 1, _stricmp);
    QF_PROMISE(lookup(entry, _stricmp));
    QF_PROMISE(!del(entry, 0, _stricmp));
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const uint8_t choice = input.byte();
    const std::string entry = input.line();
    const std::string comment = input.line();
    const std::string bytes = input.rest();
    fuzz_drive().write(list_path, bytes);
    const size_t usable = bytes.size() > longest_pattern_list ? 2 : 3;
    read_list(entry, usable);
    QF_PROMISE(file_bytes(list_path) == bytes);

    const list_matcher matcher = matchers[choice % usable];
    add(entry, choice & 4 ? comment.c_str() : nullptr, matcher);
    del(entry, (choice & 8) != 0, matcher);
    add_and_delete(entry, comment);
    read_list(entry, usable);
}

} // namespace quillfence::testing
