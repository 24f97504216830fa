// A collected server as one tar file: manifest.json, verify.json, registry.reg, and the files below
// c/quillfence/ and where else the engine finds them. docs/formats/bundle.md describes it.
#pragma once

#include <cstdio>
#include <string>

#include "collected_registry.h"
#include "collected_tree.h"
#include "verify.h"

namespace quillfence::programs {

struct collection {
    std::string base; // as the user named it
    collected_tree tree;
    collected_registry registry;
    std::string registry_from; // "system", the export that it is read from, or "" for none
    verification::tree verified;
    std::string time; // RFC 3339; "" when there is no clock
};

inline constexpr char manifest_schema[] = "quillfence.collection/1";

// The manifest, as JSON on several lines.
std::string manifest_of(const collection &all);

// Writes everything, front to back. "" or the name of a file that is not any more what the manifest
// says of it: then what was written is of no use. Throws a failure, which begins with `path`, when
// the stream can't be written.
std::string write_collection(FILE *to, const std::string &path, const collection &all);

} // namespace quillfence::programs
