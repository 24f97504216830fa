#include "compiled_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "data_program.h"
#include "engine_messages.h"
#include "platform/file.h"
#include "tiny_rex_storage.h"

namespace quillfence::data_tool {

static trex_ptr empty_expression() {
    trex_ptr expression(static_cast<TRex *>(std::calloc(1, sizeof(TRex))));
    if (!expression) {
        throw std::bad_alloc();
    }
    return expression;
}

static uint64_t position_of(FILE *stream) {
    return static_cast<uint64_t>(std::ftell(stream));
}

static void add_damage(std::vector<file_block> *blocks, uint64_t offset, std::string what) {
    if (blocks->empty() || blocks->back().expression) {
        blocks->push_back({nullptr, offset, std::move(what)});
    }
}

std::vector<file_block> read_compiled_file(const std::string &path) {
    engine_messages messages;
    const platform::stream_ptr stream(platform::stream_open(path.c_str(), "rb"));
    if (!stream) {
        throw failure(path + ": " + std::strerror(errno));
    }
    if (!trs_valid_file(stream.get())) {
        if (std::ferror(stream.get())) {
            throw failure(path + ": " + messages.take());
        }
        throw failure(path + ": is no compiled pattern file: it does not begin with the bytes "
                             "B9 EB 00 00; make one with \"quillfence-data regex compile\"");
    }
    std::vector<file_block> blocks;
    while (!std::feof(stream.get()) && !std::ferror(stream.get())) {
        const uint64_t offset = position_of(stream.get());
        trex_ptr expression = empty_expression();
        if (trs_next(stream.get(), expression.get())) {
            blocks.push_back({std::move(expression), offset, ""});
            continue;
        }
        std::string what = messages.take();
        if (what.empty() && position_of(stream.get()) > offset) {
            what = "the file ends inside a count";
        }
        if (!what.empty()) {
            add_damage(&blocks, offset, std::move(what));
        }
    }
    if (std::ferror(stream.get())) {
        throw failure(path + ": could not be read to its end");
    }
    return blocks;
}

} // namespace quillfence::data_tool
