// The findings of a tree, written for people and for programs. What is written is valid whatever
// bytes the names of files have: well-formed UTF-8 stands as it is, any other byte as \xNN.
#pragma once

#include <ostream>

#include "verify.h"

namespace quillfence::verification {

// "file:line: severity: text" for every finding.
void write_lines(const tree &in, std::ostream &out);

// One JSON object: the "base", how many "files" were looked into, the counts of "errors",
// "warnings" and "infos", and "findings", one a line, each with its "id", "severity", "path" below
// the base, "line" (null for a file as a whole), "text", and "mend", what to do about findings of
// this kind (null where nothing is wrong).
void write_json(const tree &in, std::ostream &out);

// A SARIF 2.1.0 log: the kinds of findings are its rules. A base of its own ("c:/quillfence",
// "/srv/q", or a share) becomes the log's BASEDIR, and names are below it; a relative base stands
// in front of the names. A file as a whole is told at its line 1, since some readers leave out
// what has no line.
void write_sarif(const tree &in, std::ostream &out);

// The workflow commands of GitHub Actions, "::error file=...,line=...,title=...::text" for every
// finding, which become remarks beside the files; line 1 for a file as a whole.
void write_commands(const tree &in, std::ostream &out);

} // namespace quillfence::verification
