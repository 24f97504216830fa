// What a folder may hold after a loss of power. What was written and not yet synced may be there,
// or missing, or a part of it, in any order; what was synced is there. Of the folder's names the
// same holds: a file that is synced has its contents, by whatever name it is found.
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "crash.h"

namespace quillfence::testing {

using named_files = std::map<std::string, std::string>; // contents by name

namespace power {

using kind = file_change::kind;
using choice = std::vector<bool>; // for each pending change whether it has happened

constexpr size_t sector = 512;

inline bool is_of_names(const file_change &change) {
    return change.what == kind::create || change.what == kind::rename ||
           change.what == kind::link || change.what == kind::unlink;
}

inline void apply_name(const file_change &change, folder_state *state) {
    auto &names = state->names;
    switch (change.what) {
    case kind::create:
        names[change.name] = change.file;
        state->files.try_emplace(change.file);
        break;
    case kind::rename:
        names.erase(change.name);
        names[change.to] = change.file;
        break;
    case kind::link:
        names[change.to] = change.file;
        break;
    default:
        names.erase(change.name);
        break;
    }
}

inline void apply_bytes(const file_change &change, folder_state *state) {
    std::string &bytes = state->files[change.file];
    if (change.what == kind::truncate) {
        bytes.resize(change.at);
        return;
    }
    bytes.resize(std::max(bytes.size(), change.at + change.bytes.size()));
    bytes.replace(change.at, change.bytes.size(), change.bytes);
}

// Names are renamed and linked by the file that they have then.
inline std::vector<file_change> with_files(const folder_state &before,
                                           std::vector<file_change> changes) {
    std::map<std::string, uint64_t> names = before.names;
    for (file_change &change : changes) {
        if (change.what == kind::rename || change.what == kind::link) {
            change.file = names[change.name];
        }
        if (is_of_names(change)) {
            folder_state now = {names, {}};
            apply_name(change, &now);
            names = now.names;
        }
    }
    return changes;
}

// All that happened up to one of them, all but one, one alone.
inline std::set<choice> choices(size_t count) {
    std::set<choice> all;
    for (size_t i = 0; i <= count; ++i) {
        choice up_to(count, false);
        std::fill_n(up_to.begin(), i, true);
        all.insert(up_to);
        if (i < count) {
            choice but_one(count, true);
            but_one[i] = false;
            all.insert(but_one);
            choice alone(count, false);
            alone[i] = true;
            all.insert(alone);
        }
    }
    return all;
}

// How the last of the writes that happened may have got to the disk.
enum class last_write : uint8_t { whole, first_sectors, length_alone };

inline file_change cut(file_change change, last_write how, uint64_t size_now) {
    if (change.what != kind::write || how == last_write::whole) {
        return change;
    }
    if (how == last_write::first_sectors) {
        const size_t end = (change.at + change.bytes.size() - 1) / sector * sector;
        change.bytes.resize(end > change.at ? end - change.at : 0);
    } else {
        change.what = kind::truncate;
        change.at = std::max<uint64_t>(size_now, change.at + change.bytes.size());
    }
    return change;
}

inline void apply_chosen(const std::vector<file_change> &bytes, const choice &chosen,
                         last_write how, folder_state *state) {
    size_t last = bytes.size();
    for (size_t i = 0; i < bytes.size(); ++i) {
        last = chosen[i] ? i : last;
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (chosen[i]) {
            const uint64_t size = state->files[bytes[i].file].size();
            apply_bytes(i == last ? cut(bytes[i], how, size) : bytes[i], state);
        }
    }
}

inline named_files files_of(const folder_state &state) {
    named_files files;
    for (const auto &[name, file] : state.names) {
        const auto found = state.files.find(file);
        files[name] = found == state.files.end() ? "" : found->second;
    }
    return files;
}

} // namespace power

// Every state that the model knows when the power goes behind so many of the changes.
inline std::set<named_files> after_power_loss(const folder_state &before,
                                              const std::vector<file_change> &all_changes,
                                              size_t done) {
    using namespace power;
    const std::vector<file_change> changes = with_files(before, all_changes);
    folder_state durable = before;
    std::vector<file_change> names;
    std::vector<file_change> bytes;
    for (size_t i = 0; i < done; ++i) {
        const file_change &change = changes[i];
        if (change.what == kind::sync_folder) {
            for (const file_change &name : names) {
                apply_name(name, &durable);
            }
            names.clear();
        } else if (change.what == kind::sync) {
            for (const file_change &write : bytes) {
                if (write.file == change.file) {
                    apply_bytes(write, &durable);
                }
            }
            std::erase_if(bytes, [&](const auto &write) { return write.file == change.file; });
        } else {
            (is_of_names(change) ? names : bytes).push_back(change);
        }
    }
    std::set<named_files> states;
    for (const choice &of_names : choices(names.size())) {
        folder_state named = durable;
        for (size_t i = 0; i < names.size(); ++i) {
            if (of_names[i]) {
                apply_name(names[i], &named);
            }
        }
        for (const choice &of_bytes : choices(bytes.size())) {
            for (const last_write how :
                 {last_write::whole, last_write::first_sectors, last_write::length_alone}) {
                folder_state state = named;
                apply_chosen(bytes, of_bytes, how, &state);
                states.insert(files_of(state));
            }
        }
    }
    return states;
}

} // namespace quillfence::testing
