// Compiled pattern files: looked up, read block by block, and stored again.
//
//     a name to look up
//     a pattern, to be stored behind what can be read of the file
//     the file

#include "fuzz_support.h"
#include "platform/file.h"
#include "tiny_rex_storage.h"

namespace quillfence::testing {

namespace {

constexpr char given[] = "c:/quillfence/dynaregex/dyna.cregexes";
constexpr char stored[] = "c:/quillfence/dynaregex/stored.cregexes";
constexpr int most_blocks = 1000; // a reader that does not come forward is seen before it

platform::stream_ptr open_stream(const char *path, const char *mode) {
    platform::stream_ptr stream(platform::stream_open(path, mode));
    QF_PROMISE(stream);
    return stream;
}

// Calls use(expression) for every block that can be read.
template <class Use>
void each_block(const char *path, Use use) {
    const platform::stream_ptr stream = open_stream(path, "rb");
    if (!trs_valid_file(stream.get())) {
        return;
    }
    TRex expression = {};
    int blocks = 0;
    while (trs_next(stream.get(), &expression)) {
        QF_PROMISE(expression.nodes && expression.nallocated > 0);
        QF_PROMISE(expression.nallocated <= trs_max_nodes);
        QF_PROMISE(++blocks < most_blocks);
        use(&expression);
    }
    QF_PROMISE(!expression.nodes);
}

void add_nodes(std::string *all, const TRex *expression) {
    all->append(reinterpret_cast<const char *>(expression->nodes),
                static_cast<size_t>(expression->nallocated) * sizeof(TRexNode));
}

// Stores every block again; what is read back is the same.
void store_again() {
    std::string nodes;
    {
        const platform::stream_ptr out = open_stream(stored, "w+b");
        QF_PROMISE(trs_set_header(out.get()));
        each_block(given, [&](TRex *expression) {
            add_nodes(&nodes, expression);
            expression->nsize = expression->nallocated;
            QF_PROMISE(trs_store(out.get(), expression));
        });
    }
    std::string read_back;
    each_block(stored, [&](const TRex *expression) { add_nodes(&read_back, expression); });
    QF_PROMISE(read_back == nodes);
}

// A pattern matches out of a file what it matches in memory.
void store_pattern(const std::string &pattern, const std::string &name) {
    TRex *expression = trex_compile_ex(pattern.c_str(), trex_fold_case);
    if (expression && expression->nsize <= trs_max_nodes) {
        const platform::stream_ptr out = open_stream(stored, "w+b");
        QF_PROMISE(trs_set_header(out.get()) && trs_store(out.get(), expression));
    }
    if (expression && expression->nsize <= trs_max_nodes) {
        QF_PROMISE(compiled_regex_match(stored, name.c_str()) ==
                   trex_match(expression, name.c_str()));
    }
    trex_free(expression);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string name = input.line();
    const std::string pattern = input.line();
    const std::string bytes = input.rest();
    fuzz_drive().write(given, bytes);
    const int matched = compiled_regex_match(given, name.c_str());
    QF_PROMISE(matched == 0 || matched == 1);
    store_again();
    store_pattern(pattern, name);
    QF_PROMISE(file_bytes(given) == bytes);
}

} // namespace quillfence::testing
