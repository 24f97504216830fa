#include "tiny_rex_storage.h"

#include <algorithm>
#include <bit>

#include "byte_cursor.h"
#include "evidence.h"
#include "frozen_files.h"
#include "frozen_patterns.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "read_ahead.h"
#include "step_budget.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "tiny_rex_storage";

static constexpr size_t node_size = 16;
static_assert(sizeof(TRexNode) == node_size);

static bool rewind_stream(FILE *stream, const char *function) {
    if (fseek(stream, 0, SEEK_SET) != 0) {
        QF_ERROR_AS(function, "failed to rewind file position: %s", strerror(errno));
        return false;
    }
    return true;
}

static TRexNode node_from_bytes(const unsigned char *bytes) {
    const auto field = [bytes](int n) { return static_cast<int32_t>(load_le32(bytes + n * 4)); };
    return {field(0), field(1), field(2), field(3)};
}

static void node_to_bytes(const TRexNode *node, unsigned char *bytes) {
    const int32_t fields[] = {node->type, node->left, node->right, node->next};
    for (const int32_t field : fields) {
        store_le32(bytes, static_cast<uint32_t>(field));
        bytes += sizeof field;
    }
}

static void drop_nodes(TRex *expression) {
    free(expression->nodes);
    expression->nodes = nullptr;
}

// Judges a block's count.
static bool count_is_sane(int32_t count, const char *function) {
    if (count == 0) {
        QF_ERROR_AS(function, "node count size of zero read: invalid regex");
        return false;
    }
    if (count < 0 || count > trs_max_nodes) {
        QF_ERROR_AS(function, "block size %d exceeds sane boundaries",
                    static_cast<int32_t>(static_cast<uint32_t>(count) * node_size));
        return false;
    }
    return true;
}

static void report_count_failure(const char *function, int reason, int32_t count, size_t got) {
    QF_ERROR_AS(function, "Error reading node block size: %s", strerror(reason));
    QF_ERROR_AS(function, "nallocated is %d", count);
    QF_ERROR_AS(function, "bytes read is %d", static_cast<int>(got));
}

// Reads the four bytes of a block's count into the record.
static bool read_count(FILE *stream, TRex *expression, const char *function) {
    unsigned char bytes[4] = {};
    errno = 0;
    const size_t got = fread(bytes, 1, sizeof bytes, stream);
    expression->nallocated = static_cast<int32_t>(load_le32(bytes));
    if (got == sizeof bytes) {
        return true;
    }
    if (feof(stream)) {
        QF_DEBUG_AS(function, "end of file. terminating");
        return false;
    }
    report_count_failure(function, errno, expression->nallocated, got);
    return false;
}

// Reads the nodes one by one into the record's array.
static bool read_nodes(FILE *stream, TRex *expression, const char *function) {
    for (int32_t read = 0; read < expression->nallocated; ++read) {
        unsigned char bytes[node_size];
        if (fread(bytes, 1, sizeof bytes, stream) != sizeof bytes) {
            QF_ERROR_AS(function, "short read when attempting to read node #%d", read);
            return false;
        }
        expression->nodes[read] = node_from_bytes(bytes);
    }
    return true;
}

int trs_valid_file(FILE *stream) {
    if (!stream) {
        QF_EINVAL();
        return 0;
    }
    errno = 0;
    if (!rewind_stream(stream, __func__)) {
        return 0;
    }
    unsigned char bytes[4];
    if (fread(bytes, 1, sizeof bytes, stream) != sizeof bytes) {
        QF_ERROR("failed to read header bit: %s", strerror(errno));
        return 0;
    }
    return load_le32(bytes) == trs_magic;
}

int trs_set_header(FILE *stream) {
    if (!stream) {
        QF_EINVAL();
        return 0;
    }
    errno = 0;
    if (!rewind_stream(stream, __func__)) {
        return 0;
    }
    if (fflush(stream) != 0) {
        QF_ERROR("failed to flush STDIO buffers: %s", strerror(errno));
        return 0;
    }
    if (const int failure = platform::stream_truncate(stream, 0)) {
        QF_ERROR("failed to truncate file: %s", strerror(failure));
        return 0;
    }
    unsigned char bytes[4];
    store_le32(bytes, trs_magic);
    if (fwrite(bytes, 1, sizeof bytes, stream) != sizeof bytes) {
        QF_ERROR("failed to write header: %s", strerror(errno));
        return 0;
    }
    return 1;
}

int trs_store(FILE *stream, const TRex *expression) {
    if (!stream || !expression || expression->nsize <= 0 || !expression->nodes) {
        QF_EINVAL();
        return 0;
    }
    if (expression->nsize > trs_max_nodes) {
        QF_ERROR("allocation %d size exceeds maximum sane boundaries", expression->nsize);
        return 0;
    }
    QF_DEBUG("writing out nsize %d for node block size", expression->nsize);
    unsigned char count[4];
    store_le32(count, static_cast<uint32_t>(expression->nsize));
    errno = 0;
    if (fwrite(count, 1, sizeof count, stream) != sizeof count) {
        QF_ERROR("Error writing node block size: %s", strerror(errno));
        return 0;
    }
    for (int32_t i = 0; i < expression->nsize; ++i) {
        unsigned char bytes[node_size];
        node_to_bytes(&expression->nodes[i], bytes);
        fwrite(bytes, 1, sizeof bytes, stream); // not tested, on purpose
    }
    return 1;
}

int trs_next(FILE *stream, TRex *expression) {
    if (!stream || feof(stream) || !expression) {
        QF_EINVAL();
        return 0;
    }
    drop_nodes(expression);
    if (!read_count(stream, expression, __func__)) {
        return 0;
    }
    QF_DEBUG("read nallocated value of %d", expression->nallocated);
    if (!count_is_sane(expression->nallocated, __func__)) {
        return 0;
    }
    expression->nodes = static_cast<TRexNode *>(
        calloc(static_cast<size_t>(expression->nallocated), sizeof(TRexNode)));
    if (!expression->nodes) {
        QF_ENOMEM();
        return 0;
    }
    if (!read_nodes(stream, expression, __func__)) {
        drop_nodes(expression);
        return 0;
    }
    return 1;
}

// --- Lookup ---

namespace {

// A piece of the file in memory, no smaller than any block. Its bytes are a whole number of
// integers away from the start of the file, so that the nodes in it are aligned.
struct window {
    vc_handle file;
    const char *rest; // in place of the file: bytes that are in memory, borrowed
    uint64_t rest_size;
    uint32_t error; // of the read that failed
    bool at_end;    // nothing more to read
    size_t used;
    size_t filled;
    alignas(TRexNode) unsigned char bytes[64 * 1024];
};
static_assert(sizeof window::bytes >= trs_max_nodes * node_size);

// One name against a file.
struct lookup {
    const char *name;
    const char *end;
    uint64_t steps_left;
    uint32_t left_out;      // an expression that counts as not there, from 1; 0 for none
    pattern_search *search; // what there is to tell of it
};

enum class next_block : uint8_t {
    lent,    // the record has its nodes
    refused, // its count, which is all that was used, is not sane
    none,    // the file ends, or can't be read
};

} // namespace

static uint32_t take_from_memory(window *w, uint32_t room) {
    const auto moved = static_cast<uint32_t>(std::min<uint64_t>(room, w->rest_size));
    memcpy(w->bytes + w->filled, w->rest, moved);
    w->rest += moved;
    w->rest_size -= moved;
    return moved;
}

// Moves what is left to the front and reads behind it.
static void refill(window *w) {
    move_rest_to_front(w->bytes, &w->used, &w->filled);
    uint32_t moved = 0;
    const auto room = static_cast<uint32_t>(sizeof w->bytes - w->filled);
    if (w->rest) {
        moved = take_from_memory(w, room);
    } else {
        w->error = platform::file_read(w->file, w->bytes + w->filled, room, &moved);
    }
    w->filled += moved;
    w->at_end = w->error || !moved;
}

static size_t left_in(const window *w) {
    return w->filled - w->used;
}

static inline bool holds(window *w, size_t size) {
    while (left_in(w) < size && !w->at_end) {
        refill(w);
    }
    return left_in(w) >= size;
}

// The nodes of a block, where they are. Their integers become the host's, in place.
static TRexNode *nodes_in_place(unsigned char *bytes, int32_t count) {
    auto *nodes = reinterpret_cast<TRexNode *>(bytes);
    if constexpr (std::endian::native != std::endian::little) {
        for (int32_t i = 0; i < count; ++i) {
            nodes[i] = node_from_bytes(bytes + static_cast<size_t>(i) * node_size);
        }
    }
    return nodes;
}

// Where a count should be there are fewer than four bytes. The lines are those of trs_next.
static next_block end_of_blocks(const window *w) {
    static constexpr char function[] = "trs_next";
    if (!w->error) {
        QF_DEBUG_AS(function, "end of file. terminating");
        return next_block::none;
    }
    unsigned char bytes[4] = {};
    memcpy(bytes, w->bytes + w->used, left_in(w));
    report_count_failure(function, platform::errno_of(w->error),
                         static_cast<int32_t>(load_le32(bytes)), left_in(w));
    return next_block::none;
}

// Lends the next block to the record, with the lines that trs_next writes.
static next_block lend_block(window *w, TRex *expression) {
    static constexpr char function[] = "trs_next";
    if (!holds(w, sizeof(int32_t))) {
        return end_of_blocks(w);
    }
    const auto count = static_cast<int32_t>(load_le32(w->bytes + w->used));
    QF_DEBUG_AS(function, "read nallocated value of %d", count);
    w->used += sizeof count;
    if (!count_is_sane(count, function)) {
        return next_block::refused;
    }
    const size_t size = static_cast<size_t>(count) * node_size;
    if (!holds(w, size)) {
        QF_ERROR_AS(function, "short read when attempting to read node #%d",
                    static_cast<int32_t>(left_in(w) / node_size));
        return next_block::none;
    }
    expression->nallocated = count;
    expression->nodes = nodes_in_place(w->bytes + w->used, count);
    w->used += size;
    return next_block::lent;
}

// Matches with what is left of the run's steps.
static bool matches(lookup *l, TRex *expression) {
    if (l->search->expressions == l->left_out) {
        return false;
    }
    const uint32_t most =
        l->steps_left < trex_most_steps ? static_cast<uint32_t>(l->steps_left) : trex_most_steps;
    const bool matched = __trex_match_within(expression, l->name, l->end, most);
    l->steps_left -= expression->steps;
    if (matched) {
        l->search->expression = l->search->expressions;
        l->search->nodes = expression->nodes;
        l->search->node_count = expression->nallocated;
    }
    return matched;
}

static void tell_steps_spent(const lookup *l) {
    tell_failure(l->search->path, 0, "the steps of this run are spent");
}

static bool any_block_matches(window *w, lookup *l) {
    TRex expression = {};
    while (l->steps_left) {
        const next_block next = lend_block(w, &expression);
        if (next == next_block::none) {
            if (w->error) {
                tell_failure(l->search->path, w->error);
            }
            return false;
        }
        ++l->search->expressions;
        if (next == next_block::lent && matches(l, &expression)) {
            return true;
        }
    }
    tell_steps_spent(l);
    return false;
}

// The same with what was decoded beforehand.
static bool any_frozen_matches(const frozen_patterns *patterns, lookup *l) {
    pattern_walk walk;
    TRex expression = {};
    frozen_patterns_begin(patterns, l->name, l->end, &walk);
    while (l->steps_left && frozen_patterns_next(&walk, &expression)) {
        l->search->expressions = walk.index + 1;
        if (matches(l, &expression)) {
            return true;
        }
    }
    if (l->steps_left) {
        l->search->expressions = frozen_patterns_count(patterns);
    } else {
        tell_steps_spent(l);
    }
    return false;
}

// Whether the file begins as it must. The lines are those of trs_valid_file.
static bool has_magic(window *w) {
    if (!holds(w, sizeof(uint32_t))) {
        QF_ERROR_AS("trs_valid_file", "failed to read header bit: %s",
                    strerror(w->error ? platform::errno_of(w->error) : 0));
        return false;
    }
    w->used = sizeof(uint32_t);
    return load_le32(w->bytes) == trs_magic;
}

static void report_invalid_file(const char *path) {
    QF_ERROR_AS("compiled_regex_match", "file [%s] is not a valid vellumcraft generated regex file",
                path);
    tell_failure(path, 0, "not a file of compiled patterns");
}

// Runs a lookup with what is left of the thread's steps, and tells of it.
template <class Lookup>
static bool within_steps(pattern_search *search, Lookup look_up) {
    const char *const text = search->subject;
    const uint64_t before = steps_left();
    lookup l = {text, text + strlen(text), before, place_left_out(search->path), search};
    const bool matched = look_up(&l);
    take_steps(before - l.steps_left);
    tell(&evidence_sink::searched_patterns, *search); // its nodes may lie in a window
    return matched;
}

// Walks through a file, or through the bytes of a frozen one.
static bool bytes_match(vc_handle file, const frozen_file *frozen, pattern_search *search) {
    window w; // its bytes are not touched before they are read
    w.file = file;
    w.rest = frozen ? frozen->bytes : nullptr;
    w.rest_size = frozen ? frozen->size : 0;
    w.error = 0;
    w.at_end = false;
    w.used = w.filled = 0;
    if (!has_magic(&w)) {
        report_invalid_file(search->path);
        return false;
    }
    return within_steps(search, [&w](lookup *l) { return any_block_matches(&w, l); });
}

static bool frozen_matches(const frozen_file *frozen, pattern_search *search) {
    search->existed = true;
    if (!frozen->patterns) {
        return bytes_match(vc_invalid_handle, frozen, search);
    }
    return within_steps(search,
                        [frozen](lookup *l) { return any_frozen_matches(frozen->patterns, l); });
}

int compiled_regex_match(const char *path, const char *text) {
    if (!text || is_empty(path)) {
        QF_EINVAL();
        return 0;
    }
    pattern_search search = {.path = path, .subject = text};
    const frozen_file *const frozen = frozen_file_of(path);
    if (frozen && frozen->bytes) {
        return frozen_matches(frozen, &search);
    }
    vc_handle file = vc_invalid_handle;
    if (platform::file_open(path, {.when = platform::disposition::open_existing}, &file)) {
        if (vc_file_exists_ex(path, vc_type_file)) {
            QF_ERRNO_AS("trs_valid_file", EINVAL);
            report_invalid_file(path);
        } else {
            tell(&evidence_sink::searched_patterns, search);
        }
        return 0;
    }
    search.existed = true;
    const bool matched = bytes_match(file, nullptr, &search);
    platform::file_close(file);
    return matched;
}

} // namespace quillfence
