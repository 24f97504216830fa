// Compiled pattern files: the node arrays of the expression engine, one after another, so that no
// pattern is parsed when a name is looked up. docs/formats/compiled-patterns.md has the bytes.
//
// The trs_ operations work on a buffered stream, opened in binary mode by the caller
// (platform::stream_open). A file is written with one trs_set_header and one trs_store for each
// expression.
#pragma once

#include <cstdint>
#include <cstdio>

#include "tiny_rex.h"

namespace quillfence {

// The first four bytes of a file, little-endian, and the largest number of nodes in a block.
inline constexpr uint32_t trs_magic = 60345;
inline constexpr int32_t trs_max_nodes = 4095;

// Rewinds the stream and reads the magic; 1 when it is there, else 0. The stream is left behind
// it. A wrong magic is not an error.
// ERROR lines: EINVAL (null stream), "failed to rewind file position: %s", "failed to read header
// bit: %s" (fewer than four bytes).
int trs_valid_file(FILE *stream);

// Empties the file and writes the magic. Returns 1, or 0 after an ERROR line: EINVAL (null
// stream), "failed to rewind file position: %s", "failed to flush STDIO buffers: %s", "failed to
// truncate file: %s", "failed to write header: %s".
int trs_set_header(FILE *stream);

// Writes an expression's nodes in use as one block at the stream's position. Returns 1, or 0 after
// an ERROR line: EINVAL (null, or nothing to write), "allocation %d size exceeds maximum sane
// boundaries" (more than 4095 nodes), "Error writing node block size: %s".
// Kept on purpose: whether the nodes themselves could be written is not tested.
int trs_store(FILE *stream, const TRex *expression);

// Reads the next block into the record: its node array, which replaces and frees the one that the
// record holds, and nallocated. Returns 1, or 0 at the end of the file (with a DEBUG line) and
// after an error; the record then holds no nodes.
// ERROR lines: EINVAL (null, or a stream that is at its end already), "Error reading node block
// size: %s" with "nallocated is %d" and "bytes read is %d", "node count size of zero read: invalid
// regex", "block size %d exceeds sane boundaries" (a count outside 1 to 4095; shows 16 times the
// count in 32 bits), ENOMEM, "short read when attempting to read node #%d".
int trs_next(FILE *stream, TRex *expression);

// 1 when a text as a whole matches at least one expression of a file, without regard to case; else
// 0. A missing file matches nothing, silently. A damaged block costs that block alone: reading
// goes on where the failed read stopped. The file is never written. Asks for no memory; 64 KiB of
// the stack hold a piece of the file.
// The steps come out of the thread's budget, where it has one (step_budget.h); when that is spent
// the answer is 0, without a line.
// ERROR lines: EINVAL (null text, null or empty path), "file [%s] is not a valid vellumcraft
// generated regex file", those of trs_valid_file and trs_next but for ENOMEM, and of trex_match.
int compiled_regex_match(const char *path, const char *text);

} // namespace quillfence
