// The configuration read once, for programs that ask it about many transactions: set in a call
// context (call_context.h), it answers in the files' place, with the same results, evidence and
// ERROR lines. Nothing in it changes, so that any number of threads may use it at once.
//
//     snapshot_report report;
//     frozen_files *const frozen = snapshot_load(nullptr, &report);
//     call_context context = {.configuration = frozen};
//
// It takes at most three times the files' size and 50 MiB; a form for which there is no room is
// left out, and a look then goes through the file's bytes. While it is loaded there is one form
// more.
//
// Frozen are the files of the catalogue (configuration.h) that decide something, a user's own
// lists, the block maps that the control files name, and the mail server's table of its domains.
// A block map above largest_frozen_file is kept open and read by offset; one that is replaced
// meanwhile answers as it was, one that is written to in place as it is, and one that is cut
// answers as one that is cut short.
//
// All else is left to the files: what can't be read, another file above largest_frozen_file, map
// names behind the first most_frozen_maps; and what the engine asks of others, which are the
// registry, the mail server's other files and the country database.
#pragma once

#include "frozen_files.h"

namespace quillfence {

inline constexpr uint64_t largest_frozen_file = 64u << 20;
inline constexpr uint32_t most_frozen_maps = 1000;

struct unread_file {
    char *path;
    uint32_t error; // Win32's number
};

// What there is to say of a loading. Release it also when nothing was loaded.
struct snapshot_report {
    unread_file *unread; // what is there and can't be read
    size_t unread_count;
    char *changed; // a path that was another one at the end than when it was read; null for none
};

// Reads the configuration.
//   user_dir  the recipient's own lists; null for none
//   report    is filled, whatever it held before
// Returns what snapshot_free releases. Null when something changed meanwhile, which report->changed
// names: all files are read a second time and compared. Null, too, without memory (ERROR: ENOMEM).
// Files that can't be read do not make it null: a program that wants all of them looks at the
// report.
frozen_files *snapshot_load(const char *user_dir, snapshot_report *report);

// The same with another limit than largest_frozen_file.
frozen_files *__load_snapshot(const char *user_dir, snapshot_report *report, uint64_t largest);

// Whether every file is still what was read: all of them are read once more. 1 or 0.
int snapshot_is_current(const frozen_files *files);

// How much memory it takes, in bytes.
uint64_t snapshot_size(const frozen_files *files);

void snapshot_free(frozen_files *files);               // null is accepted
void snapshot_report_release(snapshot_report *report); // and clears it

} // namespace quillfence
