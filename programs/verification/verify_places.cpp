// What lies where: names that the engine does not know, that are in the wrong place, or that an
// edit has left.
#include "verify.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "list_files.h"
#include "text.h"

namespace quillfence::verification {

namespace {

// The folders of texts that are written by hand, and so may end up in the other one. "" is the base
// folder.
constexpr std::array<std::string_view, 2> text_folders = {"", "control"};

// Where a text of this name belongs; "" when nowhere in particular.
std::string right_place(std::string_view name) {
    for (const configuration_file &file : configuration_files) {
        for (const std::string_view folder : text_folders) {
            if (file.kind != file_kind::ranges && joined(folder, name) == path_in_base(file)) {
                return path_in_base(file);
            }
        }
    }
    return {};
}

bool holds(const std::vector<std::string> &names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// --- letter case ---

// The engine's name that differs from this one in letter case alone; null when there is none.
const char *known_in_other_letters(const std::string &file) {
    for (const configuration_file &known : configuration_files) {
        if (file != path_in_base(known) && lower(file) == path_in_base(known)) {
            return path_in_base(known);
        }
    }
    return nullptr;
}

// Whether there was something to say.
bool verify_letters(tree &in, const std::string &file, const std::vector<std::string> &names) {
    const char *const known = known_in_other_letters(file);
    if (!known) {
        return false;
    }
    if (holds(names, parts_of(known).name)) {
        in.add(file, 0, "name-in-other-letters",
               std::string("is not read: ") + known +
                   " is there as well, and differs in letter "
                   "case alone");
    } else {
        in.add(file, 0, "name-taken-in-other-letters", std::string("is read for ") + known);
    }
    return true;
}

// --- leftovers of edits ---

struct leftover {
    std::string_view ending;
    bool is_backup; // of what was there, else what was to come
};
constexpr leftover leftovers[] = {{".tmp", false}, {".new", false}, {".bak", true}};

// Whether the file is one that an editor or the compiler replaces.
bool is_replaced(const std::string &file) {
    return find_configuration_file(file) || file.ends_with(range_suffix) ||
           file.starts_with("bms/") || file.starts_with("dynaregex/");
}

bool verify_leftover(tree &in, const std::string &file) {
    for (const leftover &one : leftovers) {
        const std::string of =
            file.substr(0, file.size() - std::min(file.size(), one.ending.size()));
        if (!file.ends_with(one.ending) || !is_replaced(of)) {
            continue;
        }
        if (!one.is_backup) {
            in.add(file, 0, "edit-leftover",
                   "was left by an edit of " + printable(of) + " that did not end; " +
                       (in.has(of) ? "that file is whole, delete this one"
                                   : "that file was never there, make the edit again and delete "
                                     "this one"));
        } else if (in.has(of)) {
            in.add(file, 0, "edit-leftover",
                   "was left by an edit of " + printable(of) + ", which is whole; delete this one");
        } else {
            in.add(file, 0, "edit-leftover-is-all",
                   "is what is left of " + printable(of) +
                       ", which is missing; rename it to that name");
        }
        return true;
    }
    return false;
}

// --- folders ---

void verify_no_folders(tree &in) {
    for (const configuration_file &file : configuration_files) {
        const path_parts parts = parts_of(path_in_base(file));
        if (holds(in.list_folders(parts.directory == "." ? "" : parts.directory), parts.name)) {
            in.add(path_in_base(file), 0, "folder-in-place-of-file",
                   "is a folder, where the engine looks for a file");
        }
    }
}

} // namespace

void verify_other_files(tree &in) {
    for (const std::string_view folder : text_folders) {
        const std::vector<std::string> names = in.list(std::string(folder));
        for (const std::string &name : names) {
            const std::string file = joined(folder, name);
            const std::string right = right_place(name);
            if (right == file ||
                (folder.empty() && file.ends_with(range_suffix) && !known_in_other_letters(file))) {
                continue;
            }
            if (verify_leftover(in, file) || verify_letters(in, file, names)) {
                continue;
            }
            if (right.empty()) {
                in.add(file, 0, "unknown-file", "the engine reads no file of this name");
            } else {
                in.add(file, 0, "file-in-wrong-folder",
                       "lies in the wrong folder: the engine reads " + right);
            }
        }
    }
    for (const char *const folder : {"bms", "dynaregex"}) {
        for (const std::string &name : in.list(folder)) {
            verify_leftover(in, joined(folder, name));
        }
    }
    verify_no_folders(in);
}

} // namespace quillfence::verification
