#include "named_list.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include "configuration.h"
#include "near_names.h"
#include "program.h"
#include "quillfence-file.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::programs {
namespace {

// A file of the catalogue, in the base folder or the user's.
struct known_file {
    std::string path; // as the engine spells it
    const configuration_file *file = nullptr;
    bool of_user = false;
};

} // namespace

// --- paths --------------------------------------------------------------------------------------

static bool is_rooted(std::string_view path) {
    return path.starts_with('/') || path.starts_with('\\');
}

static bool is_whole(std::string_view path) {
    return (path.size() > 1 && path[1] == ':') || is_rooted(path);
}

// Paths that name one file are one text: single slashes, no folder ".", small letters.
static std::string plain(std::string_view path) {
    std::string made = is_rooted(path) ? "/" : "";
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find_first_of("/\\", at), path.size());
        const std::string_view part = path.substr(at, end - at);
        if (!part.empty() && part != ".") {
            made += (made.empty() || made.ends_with('/') ? "" : "/") + data_files::lower(part);
        }
        at = end + 1;
    }
    return made;
}

std::string path_in(const std::string &folder, const char *name) {
    const heap_string path(__build_path(folder.c_str(), name));
    if (!path) {
        throw std::bad_alloc();
    }
    return path.get();
}

static std::vector<known_file> known_files(const std::string &user_dir) {
    std::vector<known_file> all;
    for (const configuration_file &file : configuration_files) {
        all.push_back({file.path, &file});
    }
    for (const configuration_file &file : configuration_files) {
        if (!user_dir.empty()) {
            all.push_back({path_in(user_dir, path_in_base(file)), &file, true});
        }
    }
    return all;
}

// --- what is asked ------------------------------------------------------------------------------

static constexpr char no_lines[] = "is no list of lines";
static constexpr char not_asked[] = "is asked by no decision";
static constexpr char not_of_users[] =
    "is not asked: of a user's own lists only those that exempt are";

// Why a line in it changes nothing; null when it may.
static const char *why_not(const known_file &known) {
    const configuration_file &file = *known.file;
    switch (file.kind) {
    case file_kind::addresses:
    case file_kind::ips: {
        const bool refuses = file.opposite && !file.decides;
        return known.of_user && refuses ? not_of_users : nullptr;
    }
    case file_kind::on_off:
    case file_kind::rule_names:
    case file_kind::map_names:
    case file_kind::zone_names:
    case file_kind::sender_networks:
        return known.of_user ? not_of_users : nullptr;
    case file_kind::ranges:
    case file_kind::patterns:
        return no_lines;
    case file_kind::other_list:
    case file_kind::mail_log:
    case file_kind::daily_counters:
    case file_kind::hourly_counters:
        break;
    }
    return not_asked;
}

// --- the name -----------------------------------------------------------------------------------

// In the base folder first, as most names have no other.
static const known_file *find_named(const std::vector<known_file> &all, const std::string &name) {
    const std::string path = plain(name);
    const std::string in_base = is_whole(name) ? path : plain(quillfence_base_dir + name);
    for (const known_file &one : all) {
        const std::string known = plain(one.path);
        if (known == in_base || (one.of_user && known == path)) {
            return &one;
        }
    }
    return nullptr;
}

// What of a path lies in the folder; nothing when it lies elsewhere.
static std::optional<std::string> part_in(const std::string &folder, const std::string &path) {
    const std::string start = plain(folder) + '/';
    const bool is_in = !folder.empty() && path.starts_with(start);
    return is_in ? std::optional(path.substr(start.size())) : std::nullopt;
}

// The names of lists that may have been meant.
static std::vector<std::string> near_lists(const std::string &name, const std::string &user_dir) {
    const std::string path = is_whole(name) ? plain(name) : plain(quillfence_base_dir + name);
    const auto in_base = part_in(quillfence_base_dir, path);
    const auto in_user = part_in(user_dir, plain(name));
    std::vector<std::string> names;
    for (const known_file &one : known_files(user_dir)) {
        if (one.of_user == in_user.has_value() && !why_not(one)) {
            names.push_back(path_in_base(*one.file));
        }
    }
    names = data_files::near_names(
        in_user ? *in_user : in_base.value_or(data_files::parts_of(path).name), names);
    for (std::string &near : names) {
        near = in_user ? path_in(user_dir, near.c_str()) : near;
    }
    return names;
}

[[noreturn]] static void refuse_unknown(const std::string &name, const std::string &user_dir) {
    const std::string near = data_files::did_you_mean(near_lists(name, user_dir));
    throw failure(data_files::quoted(name) + " is no list that a decision asks" +
                  (near.empty() ? "; docs/explain.md has their names" : near));
}

std::string path_of_list(const std::string &name, const std::string &user_dir) {
    const std::vector<known_file> all = known_files(user_dir);
    const known_file *const one = find_named(all, name);
    if (!one) {
        refuse_unknown(name, user_dir);
    }
    if (const char *const why = why_not(*one)) {
        throw failure(one->path + ' ' + why);
    }
    return one->path;
}

} // namespace quillfence::programs
