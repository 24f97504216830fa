#include "tiny_rex_storage.h"

#include <bit>

#include "byte_cursor.h"
#include "evidence.h"
#include "platform/file.h"
#include "read_ahead.h"
#include "step_budget.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "tiny_rex_storage";

namespace {

constexpr char damaged_block[] = "a block of the file is damaged"; // to whoever asks
constexpr size_t node_size = 16;
static_assert(sizeof(TRexNode) == node_size);

bool rewind_stream(FILE *stream, const char *function) {
    if (::fseek(stream, 0, SEEK_SET) != 0) {
        QF_ERROR_AS(function, "failed to rewind file position: %s", ::strerror(errno));
        return false;
    }
    return true;
}

TRexNode node_from_bytes(const unsigned char *bytes) {
    const auto field = [bytes](int n) { return static_cast<int32_t>(load_le32(bytes + n * 4)); };
    return {field(0), field(1), field(2), field(3)};
}

void node_to_bytes(const TRexNode *node, unsigned char *bytes) {
    const int32_t fields[] = {node->type, node->left, node->right, node->next};
    for (const int32_t field : fields) {
        store_le32(bytes, static_cast<uint32_t>(field));
        bytes += sizeof field;
    }
}

void drop_nodes(TRex *expression) {
    ::free(expression->nodes);
    expression->nodes = nullptr;
}

// Judges a block's count.
bool count_is_sane(int32_t count, const char *function) {
    if (count == 0) {
        QF_ERROR_AS(function, "node count size of zero read: invalid regex");
        tell_failure(nullptr, 0, damaged_block);
        return false;
    }
    if (count < 0 || count > trs_max_nodes) {
        QF_ERROR_AS(function, "block size %d exceeds sane boundaries",
                    static_cast<int32_t>(static_cast<uint32_t>(count) * node_size));
        tell_failure(nullptr, 0, damaged_block);
        return false;
    }
    return true;
}

// Reads the four bytes of a block's count into the record.
bool read_count(FILE *stream, TRex *expression, const char *function) {
    unsigned char bytes[4] = {};
    errno = 0;
    const size_t got = ::fread(bytes, 1, sizeof bytes, stream);
    expression->nallocated = static_cast<int32_t>(load_le32(bytes));
    if (got == sizeof bytes) {
        return true;
    }
    if (::feof(stream)) {
        QF_DEBUG_AS(function, "end of file. terminating");
        return false;
    }
    tell_failure(nullptr, 0, damaged_block);
    QF_ERROR_AS(function, "Error reading node block size: %s", ::strerror(errno));
    QF_ERROR_AS(function, "nallocated is %d", expression->nallocated);
    QF_ERROR_AS(function, "bytes read is %d", static_cast<int>(got));
    return false;
}

// Reads the nodes one by one into the record's array.
bool read_nodes(FILE *stream, TRex *expression, const char *function) {
    for (int32_t read = 0; read < expression->nallocated; ++read) {
        unsigned char bytes[node_size];
        if (::fread(bytes, 1, sizeof bytes, stream) != sizeof bytes) {
            QF_ERROR_AS(function, "short read when attempting to read node #%d", read);
            tell_failure(nullptr, 0, damaged_block);
            return false;
        }
        expression->nodes[read] = node_from_bytes(bytes);
    }
    return true;
}

} // namespace

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
    if (::fread(bytes, 1, sizeof bytes, stream) != sizeof bytes) {
        QF_ERROR("failed to read header bit: %s", ::strerror(errno));
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
    if (::fflush(stream) != 0) {
        QF_ERROR("failed to flush STDIO buffers: %s", ::strerror(errno));
        return 0;
    }
    if (const int failure = platform::stream_truncate(stream, 0)) {
        QF_ERROR("failed to truncate file: %s", ::strerror(failure));
        return 0;
    }
    unsigned char bytes[4];
    store_le32(bytes, trs_magic);
    if (::fwrite(bytes, 1, sizeof bytes, stream) != sizeof bytes) {
        QF_ERROR("failed to write header: %s", ::strerror(errno));
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
    if (::fwrite(count, 1, sizeof count, stream) != sizeof count) {
        QF_ERROR("Error writing node block size: %s", ::strerror(errno));
        return 0;
    }
    for (int32_t i = 0; i < expression->nsize; ++i) {
        unsigned char bytes[node_size];
        node_to_bytes(&expression->nodes[i], bytes);
        ::fwrite(bytes, 1, sizeof bytes, stream); // not tested, on purpose
    }
    return 1;
}

int trs_next(FILE *stream, TRex *expression) {
    if (!stream || ::feof(stream) || !expression) {
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
        ::calloc(static_cast<size_t>(expression->nallocated), sizeof(TRexNode)));
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

namespace {

// A piece of the file in memory, larger than any block. Its bytes are a whole number of integers
// away from the start of the file, so that the nodes in it are aligned.
struct window {
    FILE *stream;
    size_t used;
    size_t filled;
    alignas(TRexNode) unsigned char bytes[96 * 1024];
};

// Fills up behind what is left.
void refill(window *w) {
    move_rest_to_front(w->bytes, &w->used, &w->filled);
    w->filled += ::fread(w->bytes + w->filled, 1, sizeof w->bytes - w->filled, w->stream);
}

bool holds(window *w, size_t size) {
    if (w->filled - w->used < size) {
        refill(w);
    }
    return w->filled - w->used >= size;
}

// The nodes of a block, where they are. Their integers become the host's, in place.
TRexNode *nodes_in_place(unsigned char *bytes, int32_t count) {
    auto *nodes = reinterpret_cast<TRexNode *>(bytes);
    if constexpr (std::endian::native != std::endian::little) {
        for (int32_t i = 0; i < count; ++i) {
            nodes[i] = node_from_bytes(bytes + static_cast<size_t>(i) * node_size);
        }
    }
    return nodes;
}

enum class next_block : uint8_t {
    lent,    // the record has its nodes
    refused, // its count, which is all that was used, is not sane
    cut,     // it is not whole; nothing was used
};

// Lends the next block to the record, with the lines that trs_next writes.
next_block lend_block(window *w, TRex *expression) {
    if (!holds(w, sizeof(int32_t))) {
        return next_block::cut;
    }
    const auto count = static_cast<int32_t>(load_le32(w->bytes + w->used));
    const bool sane = count > 0 && count <= trs_max_nodes;
    const size_t size = sizeof count + (sane ? static_cast<size_t>(count) * node_size : 0);
    if (!holds(w, size)) {
        return next_block::cut;
    }
    QF_DEBUG_AS("trs_next", "read nallocated value of %d", count);
    w->used += size;
    if (!count_is_sane(count, "trs_next")) {
        return next_block::refused;
    }
    *expression = {};
    expression->nallocated = count;
    expression->nodes = nodes_in_place(w->bytes + w->used - size + sizeof count, count);
    return next_block::lent;
}

// Gives the bytes that are not used back to the stream.
bool back_to_stream(window *w) {
    const auto left = static_cast<long>(w->filled - w->used);
    w->used = w->filled = 0;
    return ::fseek(w->stream, -left, SEEK_CUR) == 0;
}

// Matches with what is left of the run's steps.
bool matches_within_budget(TRex *expression, const char *text, const char *end) {
    const bool matched = __trex_match_within(expression, text, end, steps_to_take(trex_most_steps));
    take_steps(expression->steps);
    return matched;
}

// Tells the expression that matched, the last one that was looked at.
void tell_match(pattern_search *search, const TRex &expression) {
    search->expression = search->expressions;
    search->nodes = expression.nodes;
    search->node_count = expression.nallocated;
    tell(&evidence_sink::searched_patterns, *search);
}

// Reads the next block, which the window could not lend, the long way, with every line that this
// may need. Reading goes on where it stops.
bool matches_long_way(window *w, const char *text, const char *end, pattern_search *search) {
    TRex expression = {};
    const bool read = trs_next(w->stream, &expression);
    search->expressions += read;
    const bool matched = read && matches_within_budget(&expression, text, end);
    if (matched) {
        tell_match(search, expression);
    }
    drop_nodes(&expression);
    return matched;
}

bool any_block_matches(window *w, const char *text, pattern_search *search) {
    const char *const end = text + ::strlen(text);
    TRex expression;
    for (;;) {
        next_block next;
        while ((next = lend_block(w, &expression)) != next_block::cut) {
            ++search->expressions;
            if (next == next_block::lent && matches_within_budget(&expression, text, end)) {
                tell_match(search, expression);
                return true;
            }
            if (steps_are_spent()) {
                tell_failure(search->path, 0, "the steps of this run are spent");
                return false;
            }
        }
        if (!back_to_stream(w)) {
            tell_failure(search->path, 0, "the file can't be read from a place");
            return false;
        }
        if (matches_long_way(w, text, end, search)) {
            return true;
        }
        if (::feof(w->stream) || ::ferror(w->stream)) {
            return false;
        }
    }
}

} // namespace

int compiled_regex_match(const char *path, const char *text) {
    if (!text || is_empty(path)) {
        QF_EINVAL();
        return 0;
    }
    pattern_search search = {.path = path, .subject = text};
    if (!vc_file_exists_ex(path, vc_type_file)) {
        tell(&evidence_sink::searched_patterns, search);
        return 0;
    }
    const platform::stream_ptr stream(platform::stream_open(path, "rb"));
    if (stream) { // the window is buffer enough
        ::setvbuf(stream.get(), nullptr, _IONBF, 0);
    }
    if (!trs_valid_file(stream.get())) {
        QF_ERROR("file [%s] is not a valid vellumcraft generated regex file", path);
        tell_failure(path, 0, "not a file of compiled patterns");
        return 0;
    }
    const heap_ptr<window> w(static_cast<window *>(::malloc(sizeof(window))));
    if (!w) {
        QF_ENOMEM();
        return 0;
    }
    w->stream = stream.get();
    w->used = w->filled = 0;
    search.existed = true;
    const bool matched = any_block_matches(w.get(), text, &search);
    if (!matched) {
        tell(&evidence_sink::searched_patterns, search);
    }
    return matched;
}

} // namespace quillfence
