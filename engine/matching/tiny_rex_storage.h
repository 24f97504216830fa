// Compiled pattern files: node arrays of the expression engine, one after another.
#pragma once

#include <cstdio>

#include "tiny_rex.h"

namespace quillfence {

int trs_valid_file(FILE *stream);
int trs_set_header(FILE *stream);
int trs_store(FILE *stream, const TRex *expression);
int trs_next(FILE *stream, TRex *expression);
int compiled_regex_match(const char *path, const char *text);

} // namespace quillfence
