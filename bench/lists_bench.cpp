// A lookup in a list of 100,000 lines, one in ten with a wildcard, beside reading the same file
// line by line and doing nothing with the lines. The value is not in the list, so that every line
// is judged.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <benchmark/benchmark.h>

#include "quillfence-file.h"
#include "vc_text.h"

namespace {

using namespace quillfence;

constexpr int line_count = 100000;
constexpr char missing_sender[] = "somebody.else@mail.example.org";
constexpr char last_sender[] = "the.last@one.example";

std::string make_list() {
    std::mt19937 random(1);
    std::string text = "# senders\n";
    for (int i = 1; i < line_count - 1; ++i) {
        const std::string n = std::to_string(random() % 1000000);
        static constexpr const char *wildcards[] = {"*@domain%.example\n", "*.domain%.example\n",
                                                    "news%*@lists.example\n", "*spam%*\n"};
        std::string line =
            i % 10 == 0 ? wildcards[random() % std::size(wildcards)] : "user%@domain%.example\n";
        for (size_t at = 0; (at = line.find('%', at)) != std::string::npos;) {
            line.replace(at, 1, n);
        }
        text += line;
    }
    return text + last_sender + "\n";
}

class list_file {
  public:
    list_file() : directory_(std::filesystem::temp_directory_path() / "quillfence-lists-bench") {
        std::filesystem::create_directories(directory_);
        const std::string text = make_list();
        std::ofstream(directory_ / "list", std::ios::binary) << text;
        size_ = static_cast<int64_t>(text.size());
    }
    ~list_file() {
        std::filesystem::remove_all(directory_);
    }
    list_file(const list_file &) = delete;
    list_file &operator=(const list_file &) = delete;
    std::string directory() const {
        return directory_.string();
    }
    std::string path() const {
        return (directory_ / "list").string();
    }
    int64_t size() const {
        return size_;
    }

  private:
    std::filesystem::path directory_;
    int64_t size_;
};

const list_file &the_list() {
    static const list_file list;
    return list;
}

void counted(benchmark::State &state) {
    state.SetBytesProcessed(state.iterations() * the_list().size());
}

void list_lookup(benchmark::State &state) {
    const std::string directory = the_list().directory();
    if (!__file_contains_line(directory.c_str(), "list", last_sender, __wildcardmatch)) {
        state.SkipWithError("the last line was not found");
    }
    for (auto _ : state) {
        if (__file_contains_line(directory.c_str(), "list", missing_sender, __wildcardmatch)) {
            state.SkipWithError("found what is not there");
        }
    }
    counted(state);
}
BENCHMARK(list_lookup)->Unit(benchmark::kMillisecond);

// The same with every wildcard line through the expression engine.
int engine_match(const char *pattern, const char *value) {
    if (!std::strchr(pattern, '*')) {
        return _stricmp(pattern, value);
    }
    std::string expression = "^";
    for (const char *c = pattern; *c; ++c) {
        expression += *c == '*' ? ".*" : *c == '.' ? "\\." : std::string(1, *c);
    }
    return __regexmatch((expression + "$").c_str(), value);
}

void list_lookup_engine_only(benchmark::State &state) {
    const std::string directory = the_list().directory();
    for (auto _ : state) {
        if (__file_contains_line(directory.c_str(), "list", missing_sender, engine_match)) {
            state.SkipWithError("found what is not there");
        }
    }
    counted(state);
}
BENCHMARK(list_lookup_engine_only)->Unit(benchmark::kMillisecond);

void bare_getline(benchmark::State &state) {
    const std::string path = the_list().path();
    for (auto _ : state) {
        FILE *const stream = std::fopen(path.c_str(), "r");
        char *line = nullptr;
        size_t room = 0;
        int lines = 0;
        while (getline(&line, &room, stream) >= 0) {
            ++lines;
        }
        std::free(line);
        std::fclose(stream);
        if (lines != line_count) {
            state.SkipWithError("lines are missing");
        }
    }
    counted(state);
}
BENCHMARK(bare_getline)->Unit(benchmark::kMillisecond);

void bare_std_getline(benchmark::State &state) {
    const std::string path = the_list().path();
    for (auto _ : state) {
        std::ifstream stream(path, std::ios::binary);
        int lines = 0;
        for (std::string line; std::getline(stream, line);) {
            ++lines;
        }
        if (lines != line_count) {
            state.SkipWithError("lines are missing");
        }
    }
    counted(state);
}
BENCHMARK(bare_std_getline)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
