// Bundles: a case with the files that its decision rests on, in one plain tar file.
//
//     case.json                        the case
//     c/quillfence/                    folders that the engine looks into, empty or not
//     c/quillfence/from_blacklist      the consulted files, as the case's config.files has them
//
// docs/formats/bundle.md describes it. Unpacked, its folder c is a drive c: (--drive-c).
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "case_file.h"
#include "tar_unpack.h"

namespace quillfence::decision {

inline constexpr char bundled_case[] = "case.json";
inline constexpr char bundled_drive_c[] = "c";

struct bundle_options {
    // Of each block map only what it answered about this client (cut_map.h), instead of the whole.
    bool cut_maps = false;
    tar_limits limits{};
};

struct written_bundle {
    std::string problem; // "" when it is whole; else it begins with the path that it is about
    std::vector<tar_entry> entries;
    std::vector<std::string> cut; // names of the maps that were cut
};

// Writes a captured case and its consulted files, front to back; the caller brings the stream to
// the disk. Every file must be what it was when it was consulted: one whose size or digest differs,
// that is missing now or was missing then, is a problem, and what was written up to there is of no
// use. A digest that the case lacks is added to it, those of cut maps are replaced. The list of
// lines beside a file of compiled patterns (".lines") goes along, since the record names its lines.
// To be called while the drive and the registry are those of the decision, as they were for it.
written_bundle write_bundle(FILE *to, const test_case &which, const bundle_options &options = {});

// Whether a file that begins with these bytes is a bundle: a tar file whose first entry is the
// case. 512 bytes are enough.
bool is_bundle(std::string_view bytes);

// Unpacks a bundle as unpack_tar() does; a tar file whose first entry is not the case is a problem.
unpacked_tar unpack_bundle(const std::string &path, const std::string &folder,
                           const tar_limits &limits = {});

// Where a path of the engine lies below the folder of an unpacked bundle, in the letters of the
// engine's path: "<folder>/c/quillfence/control/enabled". "" when it has no place in a bundle.
std::string place_in_bundle(const std::string &folder, std::string_view path);

} // namespace quillfence::decision
