#include "batch.h"

#include <algorithm>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "answers_so_far.h"
#include "case_dns.h"
#include "change_line.h"
#include "conveyor.h"
#include "engine_door.h"
#include "explain.h"
#include "load_reader.h"
#include "memo_asker.h"
#include "off_source.h"
#include "platform/interruption.h"
#include "platform/surroundings.h"

namespace quillfence::decision {

// A transaction that is put aside until its DNS answers have come.
struct waiting_transaction {
    waiting_transaction(batch_load &of, batch_item &at, input_transaction given,
                        dns_sources::memo_source *memo, std::chrono::milliseconds deadline)
        : load(of), item(at), input(std::move(given)), answers(memo, deadline) {}

    batch_load &load;
    batch_item &item;
    const input_transaction input;
    answers_so_far answers;
};

namespace {

constexpr char no_memory[] = "out of memory";

// While answers are on their way thousands of transactions wait; else each thread has enough to do
// with a few loads.
conveyor_bounds bounds_of(const batch_options &options) {
    constexpr size_t waiting_loads = 64;
    return {.loads = options.live ? waiting_loads : size_t{2} * options.jobs + 2};
}

explain_options explaining(const batch_options &options) {
    const bool whole = options.form == batch_form::whole;
    explain_options made;
    made.user_dir = options.user_dir;
    made.report = options.report || whole || options.form == batch_form::line;
    made.near_misses = whole;
    made.files = whole;
    made.times = whole;
    made.all_names = whole;
    made.quiet_rules = whole || options.compared; // what they matched is compared and counted
    made.all = options.hits;
    made.configuration = options.configuration;
    made.pattern_lines = options.pattern_lines;
    made.substitutes = options.substitutes;
    return made;
}

explain_options explaining_after(const batch_options &options) {
    explain_options made = explaining(options);
    if (options.compared) {
        made.configuration = options.compared->configuration;
        made.pattern_lines = options.compared->pattern_lines;
        made.substitutes = options.compared->substitutes;
    }
    return made;
}

// Nothing but the verdict.
explain_options explaining_verdict(const batch_options &options) {
    explain_options made = explaining(options);
    made.all = made.report = made.near_misses = made.files = made.times = made.quiet_rules = false;
    return made;
}

// While it lives the calling thread finds drive c: there; "" changes nothing.
class drive_scope {
  public:
    explicit drive_scope(const std::string &folder)
        : before_(platform::exchange_drive_root(folder.empty() ? nullptr : folder.c_str())) {}
    ~drive_scope() {
        platform::exchange_drive_root(before_);
    }
    drive_scope(const drive_scope &) = delete;
    drive_scope &operator=(const drive_scope &) = delete;

  private:
    const char *const before_;
};

// A transaction judged with the configuration, and with the one to compare with. It is used for one
// transaction after the other.
struct judgement {
    explain_result first{};
    explain_result second{};
    bool has_second = false; // else second is of no transaction
    std::vector<entry_hit> hits{};

    const char *failed() const {
        return first.failed ? first.failed : has_second ? second.failed : nullptr;
    }
};

// What all threads of a run share.
struct run {
    explicit run(const batch_options &with) : options(with), belt(bounds_of(with)) {
        if (with.live) {
            live.emplace(*with.memo, *with.live, with.questions);
        }
    }

    const batch_options &options;
    conveyor belt;
    std::optional<dns_sources::memo_asker> live{}; // ends before the conveyor does
};

// Judges loads, on a thread of its own.
class worker {
  public:
    explicit worker(run &of)
        : all_(of), explaining_(explaining(of.options)),
          explaining_after_(explaining_after(of.options)),
          explaining_verdict_(explaining_verdict(of.options)) {
        if (all_.options.recorded) {
            walk_.emplace(*all_.options.recorded, all_.options.otherwise);
        }
    }

    void work() {
        for (;;) {
            const conveyor::work next = all_.belt.take();
            if (next.load) {
                judge_load(*next.load);
            } else if (next.again) {
                go_on(next.again);
            } else {
                return;
            }
        }
    }

  private:
    void judge_load(batch_load &load) {
        size_t done = 0;
        for (batch_item &item : load.items) {
            if (all_.belt.stopped()) {
                break;
            }
            done += begin(load, item);
        }
        if (done > 0) {
            all_.belt.finish(&load, done);
        }
    }

    // Whether the item is done, and is not put aside.
    bool begin(batch_load &load, batch_item &item) {
        try {
            input_result input = item.too_long ? input_result{std::nullopt, {1, "it is too long"}}
                                               : read_input(load.format, load.text_of(item));
            if (!input.read) {
                refuse(load, item, input.problem);
                return true;
            }
            if (all_.options.live) {
                return judge_live(load, item, std::move(*input.read));
            }
            judge_at_once(load, item, *input.read);
        } catch (const std::bad_alloc &) {
            lose(item);
        }
        return true;
    }

    // --- without the DNS ---

    void judge_at_once(batch_load &load, batch_item &item, const input_transaction &input) {
        if (walk_) {
            const auto rewind = [this] { walk_->rewind(); };
            rewind();
            judge(item, input, *walk_, rewind);
        } else if (input.dns.empty() || all_.options.no_answers) {
            judge(item, input, off_, [] {});
        } else {
            dns_sources::recorded_source own;
            if (const auto why = add_answers(own, input.dns)) {
                refuse(load, item, {1, *why});
                return;
            }
            judge(item, input, own, [&own] { own.rewind(); });
        }
        settle(load, item, input);
    }

    // --- with the DNS ---

    bool judge_live(batch_load &load, batch_item &item, input_transaction input) {
        return judge_or_wait(std::make_shared<waiting_transaction>(
            load, item, std::move(input), all_.options.memo, all_.options.deadline));
    }

    // Whether the transaction is done; else it is put aside, and may be with another thread
    // already.
    bool judge_or_wait(const std::shared_ptr<waiting_transaction> &one) {
        judge(one->item, one->input, one->answers,
              [&answers = one->answers] { answers.begin_again(); });
        if (!one->answers.lacks_answers() || made_.failed()) {
            settle(one->load, one->item, one->input);
            return true;
        }
        one->answers.fetch(*all_.live, [belt = &all_.belt, one] { belt->resume(one); });
        return false;
    }

    void go_on(const std::shared_ptr<waiting_transaction> &one) {
        try {
            one->answers.rewind();
            if (!judge_or_wait(one)) {
                return;
            }
        } catch (const std::bad_alloc &) {
            lose(one->item);
        }
        all_.belt.finish(&one->load, 1);
    }

    // --- with one configuration, or with both ---

    // Into made_. rewind() makes the answers begin anew.
    template <class Rewind>
    void judge(const batch_item &item, const input_transaction &input, dns_sources::source &answers,
               const Rewind &rewind) {
        const batch_comparison *const with = all_.options.compared;
        made_.has_second = false;
        explain_now(item, input, answers, explaining_, with ? with->drive_c_before : "",
                    &made_.first);
        if (with && !made_.first.failed) {
            rewind();
            made_.has_second = true;
            explain_now(item, input, answers, explaining_after_, with->drive_c_after,
                        &made_.second);
        }
        if (all_.options.hits && !made_.first.failed) {
            made_.hits = hits_of(made_.first.record, *all_.options.hits->control);
            for (size_t i = 0; i < made_.hits.size() && !made_.failed(); ++i) {
                judge_without(item, input, answers, rewind, &made_.hits[i]);
            }
        }
    }

    // What the verdict would be if the entry were not there.
    template <class Rewind>
    void judge_without(const batch_item &item, const input_transaction &input,
                       dns_sources::source &answers, const Rewind &rewind, entry_hit *hit) {
        if (!hit->may_matter) {
            return;
        }
        const left_out_entry entry{hit->entry.file.c_str(), hit->entry.place};
        rewind();
        explaining_verdict_.left_out = &entry;
        made_.has_second = true;
        explain_now(item, input, answers, explaining_verdict_, "", &made_.second);
        explaining_verdict_.left_out = nullptr;
        const verdict without = made_.second.record.decision.is;
        hit->is_open = without == verdict::undecided;
        hit->is_only = !hit->is_open && without != made_.first.record.decision.is;
    }

    static void explain_now(const batch_item &item, const input_transaction &input,
                            dns_sources::source &answers, explain_options &with,
                            const std::string &drive_c, explain_result *result) {
        const drive_scope scope(drive_c);
        dns_sources::engine_door door(answers);
        with.dns = door.slots();
        with.id = input.id.empty() ? std::to_string(item.number) : input.id;
        with.time = input.time;
        explain(input.transaction, with, result);
        if (door.failed() && !result->failed) {
            result->failed = no_memory;
        }
    }

    // --- what comes of it ---

    // The name of the input, where there are several.
    std::string_view name_of(const batch_load &load) const {
        return all_.options.inputs.size() > 1 ? std::string_view(load.input) : "";
    }

    void settle(const batch_load &load, batch_item &item, const input_transaction &input) {
        if (const char *const why = made_.failed()) {
            refuse(load, item, {1, why});
            return;
        }
        decision_record &record = made_.first.record;
        record.extra = input.extra;
        batch_outcome &outcome = item.outcome;
        if (all_.options.compared) {
            compare(outcome, record, made_.second.record);
        } else if (all_.options.hits) {
            outcome.hits = std::move(made_.hits);
            outcome.judged = true;
        } else {
            outcome.judged =
                append_record(outcome.line, all_.options.form, record, item.line, name_of(load));
        }
        outcome.is = record.decision.is;
        outcome.by = record.decision.by;
        outcome.missing = std::move(record.missing);
        item.done = true;
    }

    void compare(batch_outcome &outcome, const decision_record &before,
                 const decision_record &after) {
        const batch_comparison &with = *all_.options.compared;
        outcome.compared =
            std::make_unique<decision_change>(compare_decisions(before, after, with.control));
        outcome.judged = true;
        const decision_change &made = *outcome.compared;
        if (with.lines && (made.is_change || (with.other_entries && made.is_other_entry))) {
            append_change(outcome.line, made);
        }
    }

    void refuse(const batch_load &load, batch_item &item, const json_problem &why) {
        const uint64_t line = item.line + std::max(why.line, 1u) - 1;
        item.outcome.line.clear();
        append_problem(item.outcome.line, all_.options.form, why.text, line, name_of(load));
        item.done = true;
    }

    // Without memory even for what is wrong.
    static void lose(batch_item &item) {
        item.outcome = {}; // the writer says it
        item.done = true;
    }

    run &all_;
    explain_options explaining_;
    explain_options explaining_after_;
    explain_options explaining_verdict_;
    judgement made_; // of one transaction after the other
    std::optional<dns_sources::recorded_walk> walk_;
    dns_sources::off_source off_;
};

// Writes what is finished, and counts it.
class writer {
  public:
    writer(run &of, batch_result &to) : all_(of), result_(to) {}

    // Until all is written, or the user wants no more.
    void write_all() {
        put(all_.options.compared || all_.options.hits ? "" : batch_heading(all_.options.form));
        while (!result_.write_error && !all_.belt.is_over()) {
            if (const std::unique_ptr<batch_load> load = all_.belt.next()) {
                write_load(*load);
            }
            if (platform::interruption_noted() && !all_.belt.is_over()) {
                result_.interrupted = true;
                all_.belt.stop();
            }
        }
    }

    // When it was stopped: what is done up to the first transaction that is not.
    void write_leftover() {
        bool whole = true;
        while (whole && !result_.write_error) {
            const std::unique_ptr<batch_load> load = all_.belt.leftover();
            whole = load && write_load(*load);
        }
    }

  private:
    // Whether all of it was done.
    bool write_load(const batch_load &load) {
        std::string lines;
        for (const batch_item &item : load.items) {
            if (!item.done) {
                put(lines);
                return false;
            }
            add(lines, load, item);
        }
        put(lines);
        if (all_.options.progress) {
            all_.options.progress(result_.sums.transactions + result_.sums.refused,
                                  load.bytes_read);
        }
        return true;
    }

    void add(std::string &lines, const batch_load &load, const batch_item &item) {
        if (item.outcome.line.empty() && !item.outcome.judged) {
            append_problem(lines, all_.options.form, no_memory, item.line,
                           all_.options.inputs.size() > 1 ? std::string_view(load.input) : "");
        }
        lines += item.outcome.line;
        count(item.outcome);
        if (item.outcome.compared && all_.options.compared->note) {
            all_.options.compared->note(*item.outcome.compared);
        }
        if (all_.options.hits && item.outcome.judged) {
            all_.options.hits->note(item.outcome.hits);
        }
    }

    void count(const batch_outcome &outcome) {
        batch_sums &sums = result_.sums;
        if (!outcome.judged) {
            ++sums.refused;
            return;
        }
        ++sums.transactions;
        ++sums.verdicts[static_cast<size_t>(outcome.is)];
        std::vector<std::string> kinds;
        for (const missing_item &one : outcome.missing) {
            std::string kind = one.what == "dns" ? one.type + " answers" : one.fact;
            if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) {
                ++sums.missing[kind];
                kinds.push_back(std::move(kind));
            }
        }
    }

    void put(std::string_view lines) {
        if (!lines.empty() && !result_.write_error) {
            result_.write_error = all_.options.write(lines);
        }
    }

    run &all_;
    batch_result &result_;
};

// The threads of a run, which end with it.
class thread_group {
  public:
    explicit thread_group(run &of) : all_(of) {}
    ~thread_group() {
        all_.belt.stop();
        join();
    }
    thread_group(const thread_group &) = delete;
    thread_group &operator=(const thread_group &) = delete;

    // Throws when the system gives no thread.
    void start(load_reader &reader) {
        threads_.emplace_back([&reader] { reader.run(); });
        for (unsigned i = 0; i < std::max(all_.options.jobs, 1u); ++i) {
            threads_.emplace_back([this] { worker(all_).work(); });
        }
    }
    void join() {
        for (std::thread &thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

  private:
    run &all_;
    std::vector<std::thread> threads_;
};

} // namespace

batch_result run_batch(const batch_options &options) {
    batch_result result;
    run all(options);
    load_reader reader(options.inputs, options.format, &all.belt);
    thread_group threads(all);
    try {
        threads.start(reader);
    } catch (const std::system_error &error) {
        result.failure = std::string("the threads can't be started: ") + error.what();
        return result;
    }
    writer out(all, result);
    out.write_all();
    if (result.write_error) {
        all.belt.stop();
    }
    threads.join();
    out.write_leftover();
    result.failure = reader.failure();
    result.interrupted |= reader.interrupted();
    result.most_loads = all.belt.most_loads();
    result.most_bytes = all.belt.most_bytes();
    return result;
}

} // namespace quillfence::decision
