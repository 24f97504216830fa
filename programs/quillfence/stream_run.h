// What the subcommands have in common that judge a stream of transactions: the options that say
// where it and its DNS answers come from, and the surroundings of the run.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "answers.h"
#include "answers_file.h"
#include "batch.h"
#include "checked_asker.h"
#include "command_line.h"
#include "live_asker.h"
#include "shared_asker.h"
#include "trouble_count.h"

namespace quillfence::programs {

struct stream_arguments {
    std::vector<std::string> inputs; // none: standard input
    std::string from;
    uint64_t jobs = 0; // 0: the processors

    std::string dns = "recorded"; // or "off", "live", a file
    std::string server;
    double deadline = 10;
    uint64_t questions = 1024;
    bool guards = false;
};

// The options that fill them; borrowed until the command line has been understood.
option input_files(stream_arguments *to);
option_group input_options(stream_arguments *to);
option_group dns_options(stream_arguments *to);

// The run that they ask for, without answers and configuration. Throws a failure for an unknown
// format.
decision::batch_options options_of(const stream_arguments &arguments);

// Whether all inputs can be opened, before the first is judged: throws a failure for one that
// can't. Their size, nothing when it is not known.
std::optional<uint64_t> check_inputs(const std::vector<std::string> &inputs);

// Where a run's DNS answers come from.
class stream_answers {
  public:
    // Throws a failure. The engine's names of files must be in place.
    explicit stream_answers(const stream_arguments &arguments);
    // A run that was interrupted has questions on their way: they are ended first.
    ~stream_answers();
    stream_answers(const stream_answers &) = delete;
    stream_answers &operator=(const stream_answers &) = delete;

    // Borrowed by the run.
    void put_into(const stream_arguments &arguments, decision::batch_options *options);

    // What was wrong with the DNS, a sentence each.
    std::vector<std::string> remarks() const;

  private:
    void open_live(const stream_arguments &arguments);
    void check(const dns_sources::question &asked, dns_sources::answer *got);

    decision::answers_file file_;
    dns_sources::off_source nobody_; // behind the memo
    std::unique_ptr<dns_sources::memo_source> memo_;
    std::unique_ptr<dns_sources::answer_guard> guard_;
    dns_sources::trouble_count troubles_;
    std::unique_ptr<dns_sources::live_asker> live_; // and in front of it:
    std::unique_ptr<dns_sources::checked_asker> checked_;
    std::unique_ptr<dns_sources::shared_asker> shared_;
};

// While it lives the engine's lines go into the records alone, and lack of memory ends one
// transaction instead of the program.
class quiet_engine {
  public:
    quiet_engine();
    ~quiet_engine();
    quiet_engine(const quiet_engine &) = delete;
    quiet_engine &operator=(const quiet_engine &) = delete;
};

// While it lives Ctrl-C is a wish.
class interruptible {
  public:
    interruptible(); // throws a failure when that can't be
    ~interruptible();
    interruptible(const interruptible &) = delete;
    interruptible &operator=(const interruptible &) = delete;
};

// Writes to standard output; returns 0 or a Win32 error number.
uint32_t write_out(std::string_view lines);
// The same to standard error, for what stands beside the output.
uint32_t write_aside(std::string_view lines);
// Whether such a number says that the reader has gone away: it wants no more, and needs no telling.
bool is_gone(uint32_t error);

// Runs with a bar on standard error, where that is a terminal and the lines go elsewhere.
decision::batch_result run_with_bar(decision::batch_options &options,
                                    std::optional<uint64_t> total);

// Throws a failure when the run could not get to its end, apart from a reader that has gone.
void check_run(const decision::batch_result &result);

} // namespace quillfence::programs
