#include "log_reading.h"

#include <optional>

#include "log_lines.h"
#include "platform/interruption.h"
#include "program.h"
#include "rate_bar.h"
#include "text.h"

namespace quillfence::programs {

using decision::log_bytes;
using decision::log_line;
using decision::log_lines;
using decision::opened_log;
using decision::opened_logs;

namespace {

constexpr uint64_t lines_between = 256; // two looks at the bar and at what reads the output

// One run over several files.
struct log_run {
    log_sifter &sifter;
    const std::function<bool()> &go_on;
    rate_bar bar;
    uint64_t read_before = 0; // of the files that are done
    log_reading state{};

    bool is_over() const {
        return state.interrupted || state.gone;
    }
    void look_up(const log_bytes &bytes) {
        bar.show(sifter.lines(), read_before + bytes.taken());
        state.interrupted = platform::interruption_noted();
        state.gone = !go_on();
    }
};

} // namespace

log_bytes::source log_source(platform::file_handle from) {
    return [from](void *to, uint32_t size, uint32_t *got) {
        return platform::file_read_unless_interrupted(from, to, size, got);
    };
}

opened_logs open_logs_or_fail(const std::vector<std::string> &paths, bool with_rotated) {
    opened_logs logs = decision::open_logs(paths, with_rotated);
    if (!logs.failed.empty()) {
        throw failure(file_error(logs.failed, logs.error));
    }
    return logs;
}

static void read_bytes(log_run &run, const std::string &name, platform::file_handle from) {
    log_bytes bytes(log_source(from));
    log_lines lines(bytes);
    log_line line;
    while (!run.is_over() && lines.next(&line)) {
        run.sifter.sift(line, name);
        if (run.sifter.lines() % lines_between == 0) {
            run.look_up(bytes);
        }
    }
    run.look_up(bytes);
    if (run.is_over()) {
        return;
    }
    if (!bytes.problem().empty()) {
        run.sifter.refuse(name, bytes.problem());
    } else if (lines.rest(&line)) {
        run.sifter.sift(line, name);
    }
    run.read_before += bytes.taken();
}

static void read_log(log_run &run, opened_log &log) {
    if (log.path == "-") {
        read_bytes(run, "standard input", platform::file_standard_input());
        return;
    }
    if (!log.file) {
        log.file = std::make_unique<data_files::open_file>();
        if (const uint32_t error = log.file->open(log.path)) {
            run.sifter.refuse(log.path, data_files::system_text(error));
            return;
        }
    }
    read_bytes(run, log.path, log.file->handle());
}

// Nothing when it is not known.
static std::optional<uint64_t> size_of(const opened_logs &logs) {
    uint64_t total = 0;
    for (const opened_log &log : logs.files) {
        uint64_t size = 0;
        if (!log.file || log.file->size(&size)) {
            return std::nullopt;
        }
        total += size;
    }
    return total;
}

log_reading read_logs(opened_logs &logs, log_sifter &sifter, bool visible,
                      const std::function<bool()> &go_on) {
    log_run run{sifter, go_on, rate_bar(size_of(logs), visible)};
    for (opened_log &log : logs.files) {
        if (run.is_over()) {
            break;
        }
        read_log(run, log);
    }
    return run.state;
}

} // namespace quillfence::programs
