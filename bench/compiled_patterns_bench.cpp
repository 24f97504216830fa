// One host name against a file of patterns, from opening the file to the answer, as it happens for
// each connection: the compiled pattern file beside what other libraries offer for the same task.
// The files lie in the page cache. Every answer is compared with the expected one.
//
// The patterns are those of tests/data/fqrdns.pcre or some of them, and for the largest file the
// same ones with another label before their end.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "call_context.h"
#include "frozen_files.h"
#include "frozen_patterns.h"
#include "platform/file.h"
#include "platform/process.h"
#include "tiny_rex_storage.h"

#ifdef QF_PEER_LIBPCRE2_8
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#endif
#ifdef QF_PEER_RE2
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <re2/set.h>
#pragma GCC diagnostic pop
#endif
#ifdef QF_PEER_LIBHS
#include <hs.h>
#endif

namespace {

using namespace quillfence;

struct name_case {
    const char *title, *name;
    bool want;
};
constexpr name_case names[] = {
    {"plain", "mail.example.org", false},
    {"dynamic_look", "host-192-0-2-33.dynamic.isp.example.net", false},
    {"late_hit", "", true}, // late_name
};
constexpr char late_name[] = "187-190-192-33.optolan.net.ua";

const char *subject_of(const name_case &c) {
    return *c.name ? c.name : late_name;
}

[[noreturn]] void stop(const std::string &why) {
    std::fprintf(stderr, "%s\n", why.c_str());
    std::exit(1);
}

// The patterns of lines "/pattern/ ACTION text".
std::vector<std::string> listed_patterns() {
    std::ifstream list(QF_TEST_DATA "/fqrdns.pcre");
    std::vector<std::string> patterns;
    for (std::string line; std::getline(list, line);) {
        const size_t slash = line.find('/', 1);
        if (line.starts_with("/") && slash != std::string::npos) {
            patterns.push_back(line.substr(1, slash - 1));
        }
    }
    return patterns;
}

// count patterns: of the list as many as that, evenly spread and with the last; for more than it
// has, all of them behind as many derived ones as it takes.
std::vector<std::string> patterns_of(size_t count) {
    const std::vector<std::string> listed = listed_patterns();
    std::vector<std::string> patterns;
    for (size_t i = 1; i <= count && count < listed.size(); ++i) {
        patterns.push_back(listed[i * listed.size() / count - 1]);
    }
    if (!patterns.empty()) {
        return patterns;
    }
    for (size_t i = 0; patterns.size() + listed.size() < count; ++i) {
        std::string derived = listed[i % listed.size()];
        if (derived.ends_with("$")) {
            derived.pop_back();
            patterns.push_back(derived + "\\.n" + std::to_string(i) + "$");
        }
    }
    patterns.insert(patterns.end(), listed.begin(), listed.end());
    return patterns;
}

std::string folder;
std::string file_for(const char *peer, size_t count) {
    return folder + "/" + peer + "-" + std::to_string(count);
}

// A whole file with one read, as a peer's own program would do it.
struct file_bytes {
    explicit file_bytes(const std::string &path) {
        FILE *stream = std::fopen(path.c_str(), "rb");
        size = std::filesystem::file_size(path);
        bytes = static_cast<char *>(std::malloc(size));
        if (!stream || std::fread(bytes, 1, size, stream) != size) {
            stop("can't read " + path);
        }
        std::fclose(stream);
    }
    ~file_bytes() {
        std::free(bytes);
    }
    file_bytes(const file_bytes &) = delete;
    file_bytes &operator=(const file_bytes &) = delete;

    char *bytes;
    size_t size;
};

void write_compiled(const std::string &path, const std::vector<std::string> &patterns) {
    FILE *stream = platform::stream_open(path.c_str(), "w+b");
    if (!stream || !trs_set_header(stream)) {
        stop("can't write " + path);
    }
    for (const std::string &pattern : patterns) {
        TRex *expression = trex_compile_ex(pattern.c_str(), trex_fold_case);
        if (!expression || !trs_store(stream, expression)) {
            stop("can't store " + pattern);
        }
        trex_free(expression);
    }
    std::fclose(stream);
}

void write_list(const std::string &path, const std::vector<std::string> &patterns) {
    std::ofstream stream(path, std::ios::binary);
    for (const std::string &pattern : patterns) {
        stream << pattern << "\n";
    }
}

std::vector<std::string> read_list(const std::string &path) {
    std::vector<std::string> patterns;
    std::ifstream stream(path, std::ios::binary);
    for (std::string line; std::getline(stream, line);) {
        patterns.push_back(line);
    }
    return patterns;
}

void prepare(size_t count) {
    const std::vector<std::string> patterns = patterns_of(count);
    write_compiled(file_for("compiled", count), patterns);
    write_list(file_for("list", count), patterns);
}

bool with_compiled_file(size_t count, const char *name) {
    return compiled_regex_match(file_for("compiled", count).c_str(), name) == 1;
}

// The file as a program has it that has read its configuration beforehand.
bool with_frozen_file(size_t count, const char *name) {
    struct frozen {
        std::string path, bytes;
        frozen_file row = {};
        frozen_files files = {};
    };
    static std::map<size_t, frozen> all;
    frozen &one = all[count];
    if (one.path.empty()) {
        one.path = file_for("compiled", count);
        std::ifstream in(one.path, std::ios::binary);
        one.bytes.assign(std::istreambuf_iterator<char>(in), {});
        one.row.path = one.path.data();
        one.row.bytes = one.bytes.data();
        one.row.size = one.bytes.size();
        one.files.rows = &one.row;
        one.files.row_count = 1;
        if (!frozen_patterns_make(one.bytes.data(), one.bytes.size(), &one.row.patterns) ||
            !one.row.patterns || !index_frozen_files(&one.files)) {
            stop("the patterns can't be read beforehand");
        }
    }
    call_context context = {.configuration = &one.files};
    const call_scope scope(&context);
    return compiled_regex_match(one.path.c_str(), name) == 1;
}

#ifdef QF_PEER_LIBPCRE2_8
pcre2_code *pcre2_compiled(const std::string &pattern) {
    int number;
    PCRE2_SIZE offset;
    return pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.c_str()), pattern.size(),
                         PCRE2_CASELESS, &number, &offset, nullptr);
}

bool pcre2_hits(const pcre2_code *code, const char *name, size_t length, pcre2_match_data *data) {
    return pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(name), length, 0, 0, data, nullptr) >= 0;
}

void prepare_pcre2(size_t count) {
    std::vector<const pcre2_code *> codes;
    for (const std::string &pattern : patterns_of(count)) {
        codes.push_back(pcre2_compiled(pattern));
    }
    uint8_t *bytes;
    PCRE2_SIZE size;
    pcre2_serialize_encode(codes.data(), static_cast<int32_t>(codes.size()), &bytes, &size,
                           nullptr);
    std::ofstream(file_for("pcre2", count), std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes), static_cast<std::streamsize>(size));
}

bool with_pcre2_serialised(size_t count, const char *name) {
    const file_bytes file(file_for("pcre2", count));
    const auto *data = reinterpret_cast<const uint8_t *>(file.bytes);
    std::vector<pcre2_code *> codes(static_cast<size_t>(pcre2_serialize_get_number_of_codes(data)));
    pcre2_serialize_decode(codes.data(), static_cast<int32_t>(codes.size()), data, nullptr);
    pcre2_match_data *scratch = pcre2_match_data_create(32, nullptr);
    const size_t length = std::strlen(name);
    bool hit = false;
    for (size_t i = 0; i < codes.size() && !hit; ++i) {
        hit = pcre2_hits(codes[i], name, length, scratch);
    }
    for (pcre2_code *code : codes) {
        pcre2_code_free(code);
    }
    pcre2_match_data_free(scratch);
    return hit;
}

template <bool jit>
bool with_pcre2_compiled(size_t count, const char *name) {
    pcre2_match_data *scratch = pcre2_match_data_create(32, nullptr);
    const size_t length = std::strlen(name);
    bool hit = false;
    for (const std::string &pattern : read_list(file_for("list", count))) {
        pcre2_code *code = pcre2_compiled(pattern);
        if (jit) {
            pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
        }
        hit = pcre2_hits(code, name, length, scratch);
        pcre2_code_free(code);
        if (hit) {
            break;
        }
    }
    pcre2_match_data_free(scratch);
    return hit;
}
#endif

#ifdef QF_PEER_RE2
bool with_re2_set(size_t count, const char *name) {
    RE2::Options options;
    options.set_case_sensitive(false);
    options.set_max_mem(1 << 30);
    RE2::Set set(options, RE2::UNANCHORED);
    for (const std::string &pattern : read_list(file_for("list", count))) {
        set.Add(pattern, nullptr);
    }
    set.Compile();
    return set.Match(name, nullptr);
}
#endif

#ifdef QF_PEER_LIBHS
void prepare_hyperscan(size_t count) {
    const std::vector<std::string> patterns = patterns_of(count);
    std::vector<const char *> texts;
    std::vector<unsigned> ids;
    for (const std::string &pattern : patterns) {
        ids.push_back(static_cast<unsigned>(texts.size()));
        texts.push_back(pattern.c_str());
    }
    const std::vector<unsigned> flags(texts.size(), HS_FLAG_CASELESS | HS_FLAG_SINGLEMATCH);
    hs_database_t *database;
    hs_compile_error_t *error;
    if (hs_compile_multi(texts.data(), flags.data(), ids.data(),
                         static_cast<unsigned>(texts.size()), HS_MODE_BLOCK, nullptr, &database,
                         &error) != HS_SUCCESS) {
        stop(error->message);
    }
    char *bytes;
    size_t size;
    hs_serialize_database(database, &bytes, &size);
    std::ofstream(file_for("hyperscan", count), std::ios::binary)
        .write(bytes, static_cast<std::streamsize>(size));
    hs_free_database(database);
    std::free(bytes);
}

bool with_hyperscan(size_t count, const char *name) {
    const file_bytes file(file_for("hyperscan", count));
    hs_database_t *database = nullptr;
    hs_scratch_t *scratch = nullptr;
    hs_deserialize_database(file.bytes, file.size, &database);
    hs_alloc_scratch(database, &scratch);
    const auto stop_at_hit = [](unsigned, unsigned long long, unsigned long long, unsigned,
                                void *hit) {
        *static_cast<bool *>(hit) = true;
        return 1;
    };
    bool hit = false;
    hs_scan(database, name, static_cast<unsigned>(std::strlen(name)), 0, scratch, stop_at_hit,
            &hit);
    hs_free_scratch(scratch);
    hs_free_database(database);
    return hit;
}

// With the database and its scratch at hand, for as many names as there are.
bool with_ready_hyperscan(size_t count, const char *name) {
    struct ready {
        hs_database_t *database = nullptr;
        hs_scratch_t *scratch = nullptr;
    };
    static std::map<size_t, ready> all;
    ready &one = all[count];
    if (!one.database) {
        const file_bytes file(file_for("hyperscan", count));
        hs_deserialize_database(file.bytes, file.size, &one.database);
        hs_alloc_scratch(one.database, &one.scratch);
    }
    const auto stop_at_hit = [](unsigned, unsigned long long, unsigned long long, unsigned,
                                void *hit) {
        *static_cast<bool *>(hit) = true;
        return 1;
    };
    bool hit = false;
    hs_scan(one.database, name, static_cast<unsigned>(std::strlen(name)), 0, one.scratch,
            stop_at_hit, &hit);
    return hit;
}
#endif

using way = bool (*)(size_t count, const char *name);

void open_to_answer(benchmark::State &state, way answer, size_t count, const name_case &c) {
    const char *subject = subject_of(c);
    if (answer(count, subject) != c.want) {
        state.SkipWithError("a wrong answer");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(answer(count, subject));
    }
}

constexpr struct {
    const char *title;
    way answer;
} ways[] = {
    {"compiled_pattern_file", with_compiled_file},
    {"read_beforehand", with_frozen_file},
#ifdef QF_PEER_LIBPCRE2_8
    {"pcre2_serialised", with_pcre2_serialised},
    {"pcre2_compiled", with_pcre2_compiled<false>},
    {"pcre2_compiled_jit", with_pcre2_compiled<true>},
#endif
#ifdef QF_PEER_RE2
    {"re2_set", with_re2_set},
#endif
#ifdef QF_PEER_LIBHS
    {"hyperscan_deserialised", with_hyperscan},
    {"hyperscan_ready", with_ready_hyperscan},
#endif
};

} // namespace

int main(int argc, char **argv) {
    folder = (std::filesystem::temp_directory_path() /
              ("quillfence-bench-" + std::to_string(platform::process_id())))
                 .string();
    std::filesystem::create_directories(folder);
    const size_t listed = listed_patterns().size();
    for (const size_t count : {size_t{5}, size_t{138}, listed, size_t{10'000}}) {
        prepare(count);
#ifdef QF_PEER_LIBPCRE2_8
        prepare_pcre2(count);
#endif
#ifdef QF_PEER_LIBHS
        prepare_hyperscan(count);
#endif
        for (const auto &w : ways) {
            for (const name_case &c : names) {
                const std::string title = std::to_string(count) + "/" + c.title + "/" + w.title;
                benchmark::RegisterBenchmark(title.c_str(), open_to_answer, w.answer, count, c)
                    ->Unit(benchmark::kMicrosecond);
            }
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(folder);
}
