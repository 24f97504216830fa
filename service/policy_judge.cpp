#include "policy_judge.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "doubt_events.h"
#include "engine_door.h"
#include "explain.h"
#include "guard_source.h"
#include "json_writer.h"
#include "mail_journal.h"
#include "off_source.h"
#include "outstanding.h"
#include "platform/clock.h"
#include "record_writer.h"
#include "utc_text.h"
#include "vc_w32.h"

namespace quillfence::service {

using decision::decision_record;
using decision::verdict;
using clock = policy_judge_options::clock;

static constexpr std::string_view dunno = "action=DUNNO\n\n";
static constexpr char answered_member[] = "answered";

namespace {

// The engine's ERROR lines are in the records.
int drop_line(int, const char *, ...) {
    return 0;
}

} // namespace

// --- the judge's heart --------------------------------------------------------------------------

class policy_judge::core : public std::enable_shared_from_this<policy_judge::core> {
  public:
    explicit core(const policy_judge_options &with) : options(with), journal_(with.user_dir) {}

    void start();
    void stop() noexcept;
    // Nobody is woken for it when it shall be begun by begin_all().
    void take_on(std::string text, answer_function answer, bool at_once) noexcept;
    void answer_overdue() noexcept;

    // --- for workers ---

    // The next one to look at; null at the end.
    request *next();
    // Sees to it that all are begun: one by the caller, when it wants one and there is one.
    request *share_out(bool wants_one) noexcept;
    // The request has been put aside, and shall be looked at again.
    void resume(request &one) noexcept;
    // Nobody is woken for those that are resumed by it.
    void gather(const std::function<void()> &bring) noexcept;
    // It has been answered: it is no longer outstanding. It may be gone then.
    void finish(request &one) noexcept;

    // Answers it, when nobody has taken it.
    void pass(request &one, doubt why, std::string_view text) noexcept;
    void note(doubt why, std::string_view text) noexcept;
    static void reply(request &one, std::string_view text) noexcept;

    void log(std::string_view line) noexcept;
    void journalise(smtp_state *state, const decision::decision &made) noexcept;
    bool is_overdue(const request &one) const {
        return options.now() - one.came >= options.deadline;
    }

    const policy_judge_options options;

  private:
    bool admit(const request_ptr &one, bool at_once);
    void watch_deadlines();
    void watch_deadline(std::unique_lock<std::mutex> &guard);
    const request *oldest_waiting() const;

    mail_journal journal_;
    doubt_events events_;
    std::atomic<std::thread::id> gathers_{}; // the thread that does

    std::mutex lock_; // of what follows
    std::condition_variable work_;
    std::condition_variable end_;
    outstanding_requests outstanding_;
    request_queue queue_;
    unsigned idle_ = 0;
    uint64_t numbered_ = 0;
    bool stops_ = false;
    std::vector<std::thread> threads_; // the caller's alone
};

// --- in and out ---------------------------------------------------------------------------------

void policy_judge::core::reply(request &one, std::string_view text) noexcept {
    try {
        one.answer(text);
    } catch (...) {
        // Whoever asked can't be reached.
    }
}

void policy_judge::core::note(doubt why, std::string_view text) noexcept {
    if (options.metrics) {
        options.metrics->in_doubt(why);
    }
    if (!text.empty()) {
        events_.tell(why, text, options.now());
    }
}

void policy_judge::core::pass(request &one, doubt why, std::string_view text) noexcept {
    if (!one.take()) {
        return;
    }
    note(why, text);
    if (options.metrics) {
        options.metrics->answered(policy_answer::dunno);
    }
    reply(one, dunno);
}

// False when there are too many, or it is the end.
bool policy_judge::core::admit(const request_ptr &one, bool at_once) {
    bool wakes = false;
    {
        const std::lock_guard guard(lock_);
        if (stops_ || outstanding_.count() >= options.most_outstanding) {
            return false;
        }
        one->number = ++numbered_;
        outstanding_.add(one);
        queue_.put(one.get());
        wakes = at_once && idle_ > 0;
    }
    if (wakes) {
        work_.notify_one(); // without the lock, for which he would only wait
    }
    return true;
}

void policy_judge::core::take_on(std::string text, answer_function answer, bool at_once) noexcept {
    request_ptr one;
    try {
        one = std::make_shared<request>();
    } catch (const std::bad_alloc &) {
        request lost;
        lost.answer = std::move(answer);
        pass(lost, doubt::no_memory, "a request was passed: there is not enough memory");
        return;
    }
    one->text = std::move(text);
    one->answer = std::move(answer);
    one->came = options.now();
    if (!admit(one, at_once)) {
        pass(*one, doubt::overload, "requests were passed: too many are outstanding");
    }
}

request *policy_judge::core::next() {
    std::unique_lock guard(lock_);
    ++idle_;
    work_.wait(guard, [this] { return stops_ || !queue_.empty(); });
    --idle_;
    return stops_ ? nullptr : queue_.take();
}

request *policy_judge::core::share_out(bool wants_one) noexcept {
    request *own = nullptr;
    size_t helpers = 0;
    {
        const std::lock_guard guard(lock_);
        own = wants_one && !stops_ ? queue_.take() : nullptr;
        helpers = std::min<size_t>(queue_.count(), idle_);
    }
    for (; helpers > 0; --helpers) {
        work_.notify_one();
    }
    return own;
}

void policy_judge::core::resume(request &one) noexcept {
    {
        const std::lock_guard guard(lock_);
        if (!one.self || stops_) {
            return;
        }
        queue_.put(&one);
    }
    if (gathers_ != std::this_thread::get_id()) {
        work_.notify_one();
    }
}

void policy_judge::core::gather(const std::function<void()> &bring) noexcept {
    gathers_ = std::this_thread::get_id();
    bring();
    gathers_ = std::thread::id();
}

void policy_judge::core::finish(request &one) noexcept {
    request_ptr last;
    const std::lock_guard guard(lock_);
    last = outstanding_.remove(&one);
}

void policy_judge::core::log(std::string_view line) noexcept {
    const uint32_t error = options.log->write(line);
    if (options.metrics) {
        options.metrics->log_written(error == 0);
    }
    if (error) {
        events_.log_lost(options.log->path(), error, options.now());
    }
}

void policy_judge::core::journalise(smtp_state *state, const decision::decision &made) noexcept {
    try {
        const std::string problem = journal_.note(state, made);
        if (!problem.empty()) {
            events_.not_counted(problem, options.now());
        }
    } catch (const std::bad_alloc &) {
        note(doubt::no_memory, "a decision was not counted: there is not enough memory");
    }
}

// --- deadlines ----------------------------------------------------------------------------------

void policy_judge::core::answer_overdue() noexcept {
    for (;;) {
        request_ptr one;
        {
            const std::lock_guard guard(lock_);
            const request *const oldest = oldest_waiting();
            if (!oldest || !is_overdue(*oldest)) {
                break;
            }
            one = oldest->self;
        }
        pass(*one, doubt::deadline, "requests were passed: they were not decided in time");
    }
    events_.settle(options.now());
}

// The oldest that nobody has answered yet; null for none.
const request *policy_judge::core::oldest_waiting() const {
    const request *one = outstanding_.oldest();
    while (one && one->taken) {
        one = one->younger;
    }
    return one;
}

// What comes while it sleeps is not due before it wakes.
void policy_judge::core::watch_deadline(std::unique_lock<std::mutex> &guard) {
    const request *const oldest = oldest_waiting();
    clock::duration left = options.deadline;
    if (oldest) {
        left -= options.now() - oldest->came;
    }
    constexpr clock::duration longest = std::chrono::seconds(10); // events are held back till then
    end_.wait_for(guard, std::min(left, longest), [this] { return stops_; });
}

void policy_judge::core::watch_deadlines() {
    std::unique_lock guard(lock_);
    while (!stops_) {
        watch_deadline(guard);
        guard.unlock();
        answer_overdue();
        guard.lock();
    }
}

// --- one transaction judged ---------------------------------------------------------------------

namespace {

std::string time_now() {
    platform::time_of_day now{};
    return platform::clock_now(&now) ? decision::utc_text(now.seconds, now.microseconds / 1000)
                                     : std::string();
}

bool lacks_answers(const decision_record &record) {
    return std::any_of(record.missing.begin(), record.missing.end(),
                       [](const decision::missing_item &one) { return one.what == "dns"; });
}

// Why it is not known what to decide, for the events.
std::string reason_of(const decision_record &record) {
    for (const decision::missing_item &one : record.missing) {
        if (one.what == "fact") {
            return "requests were passed: they do not tell: " + one.fact;
        }
    }
    return "requests were passed: they could not be decided";
}

void set_member(std::vector<decision::extra_member> *extra, std::string_view name,
                std::string_view value) {
    std::erase_if(*extra, [name](const auto &member) { return member.first == name; });
    std::string json;
    decision::json_writer writer(json, decision::json_layout::one_line);
    writer.text(value);
    writer.finish();
    extra->emplace_back(name, std::move(json));
}

} // namespace

// Judges requests, on a thread of its own.
class judging_thread {
  public:
    explicit judging_thread(const std::shared_ptr<policy_judge::core> &of);
    void work();
    // `waits` as of begin_all(); null for none.
    void look_at_one(request &one, const std::function<bool()> *waits) noexcept;

  private:
    void look_at(request &one) noexcept;
    void advance(request &one);
    bool read(request &one);
    bool prepare(request &one);
    void judge(request &one);
    void explain(request &one, dns_sources::source &answers);
    bool waits_for_answers(request &one);
    void settle(request &one);
    void write_down(request &one, const policy_action &action, bool in_time);
    void count(const request &one, const policy_action &action, bool in_time);

    const std::shared_ptr<policy_judge::core> all_;
    decision::explain_options explaining_;
    decision::explain_result made_; // of one transaction after the other
    dns_sources::off_source off_;
    std::string line_;
    std::string reply_;
    const std::function<bool()> *waits_ = nullptr;
    bool took_ = false; // the current request, and has not answered it
};

judging_thread::judging_thread(const std::shared_ptr<policy_judge::core> &of) : all_(of) {
    explaining_.user_dir = of->options.user_dir;
    explaining_.report = false;
    explaining_.near_misses = false;
    explaining_.files = false;
    explaining_.times = false;
    explaining_.quiet_rules = false;
    explaining_.all_names = false;
    explaining_.keep_session = of->options.counters;
}

void judging_thread::work() {
    while (request *const one = all_->next()) {
        look_at_one(*one, nullptr);
    }
}

void judging_thread::look_at_one(request &one, const std::function<bool()> *waits) noexcept {
    waits_ = waits;
    vc_log_listener silence = {drop_line};
    vc_set_thread_log_listener(&silence);
    look_at(one);
    vc_set_thread_log_listener(nullptr);
}

// However it ends, the request is answered, or put aside.
void judging_thread::look_at(request &one) noexcept {
    took_ = false;
    doubt why = doubt::no_memory;
    std::string_view text = "requests were passed: there is not enough memory";
    try {
        advance(one);
        return;
    } catch (const std::bad_alloc &) {
    } catch (...) {
        why = doubt::failure;
        text = "requests were passed: they could not be judged";
    }
    if (took_) {
        one.taken = false; // nobody else has answered it
    }
    all_->pass(one, why, text);
    all_->finish(one);
}

void judging_thread::advance(request &one) {
    if (one.input) {
        one.answers->rewind();
        judge(one);
    } else if (read(one) && prepare(one)) {
        judge(one);
    } else {
        all_->finish(one);
    }
}

// Whether it is one to judge; else it has been answered. One that was answered because it had to
// wait for too long is judged, too: it shall be in the log.
bool judging_thread::read(request &one) {
    decision::input_result input = decision::read_input(decision::input_format::policy, one.text);
    if (!input.read) {
        const std::string why = input.problem.text.empty() ? "it is empty" : input.problem.text;
        all_->pass(one, doubt::bad_request,
                   "a request can't be read: line " +
                       std::to_string(std::max(input.problem.line, 1u)) + ": " + why);
        return false;
    }
    if (input.read->transaction.stage != "RCPT") {
        all_->pass(one, doubt::other_state, "");
        return false;
    }
    one.input = std::move(input.read);
    one.text = std::string();
    return true;
}

// Whether there is something to judge it with; else it has been answered.
bool judging_thread::prepare(request &one) {
    one.tree = all_->options.configuration->now();
    if (!one.tree) {
        all_->pass(one, doubt::no_configuration, "requests were passed: there is no configuration");
        return false;
    }
    if (all_->options.dns) {
        const auto waited =
            std::chrono::duration_cast<std::chrono::milliseconds>(all_->options.now() - one.came);
        const std::chrono::milliseconds for_questions = all_->options.deadline * 3 / 4 - waited;
        one.answers.emplace(nullptr, std::max(for_questions, std::chrono::milliseconds(0)));
    }
    return true;
}

void judging_thread::explain(request &one, dns_sources::source &answers) {
    dns_sources::engine_door door(answers);
    const std::string &instance = one.input->id;
    explaining_.dns = door.slots();
    explaining_.configuration = one.tree->files.get();
    explaining_.pattern_lines = &one.tree->pattern_lines;
    explaining_.id = (instance.empty() ? "" : instance + '.') + std::to_string(one.number);
    explaining_.time = time_now();
    decision::explain(one.input->transaction, explaining_, &made_);
    if (door.failed()) {
        throw std::bad_alloc();
    }
}

void judging_thread::judge(request &one) {
    if (one.answers) {
        one.answers->be_patient(waits_ ? all_->options.dns : nullptr, waits_);
        dns_sources::guard_source guarded(*one.answers, one.tree->guard);
        explain(one, guarded);
    } else {
        explain(one, off_);
    }
    if (made_.failed) {
        all_->pass(one,
                   std::string_view(made_.failed) == "out of memory" ? doubt::no_memory
                                                                     : doubt::failure,
                   std::string("requests were passed: ") + made_.failed);
        all_->finish(one);
    } else if (!waits_for_answers(one)) {
        settle(one);
        all_->finish(one);
    }
}

// Whether it lacks answers that may come; then it has been put aside, and may be with another
// thread already.
bool judging_thread::waits_for_answers(request &one) {
    if (!one.answers || !one.answers->lacks_answers() || one.taken) {
        return false;
    }
    one.answers->fetch(*all_->options.dns, [all = all_, self = one.self] { all->resume(*self); });
    return true;
}

// Logged before it is answered, so that the log has whatever was answered.
void judging_thread::settle(request &one) {
    policy_action action = action_of(made_.record.decision, all_->options.how);
    reply_.assign("action=").append(action.text).append("\n\n");
    const bool in_time = took_ = one.take();
    if (!in_time) {
        action = {};
    }
    count(one, action, in_time);
    if (all_->options.log) {
        write_down(one, action, in_time);
    }
    if (made_.judged) {
        all_->journalise(made_.judged.get(), made_.record.decision);
    }
    if (in_time) {
        took_ = false;
        policy_judge::core::reply(one, reply_);
    }
}

void judging_thread::write_down(request &one, const policy_action &action, bool in_time) {
    decision_record &record = made_.record;
    record.extra = std::move(one.input->extra);
    set_member(&record.extra, answered_member, action.text);
    if (!in_time) {
        record.notes.push_back(
            {"warning", "it was answered before it was decided: its time was used up"});
    }
    line_.clear();
    write_record(line_, record, decision::record_form::brief);
    line_ += '\n';
    all_->log(line_);
}

void judging_thread::count(const request &one, const policy_action &action, bool in_time) {
    service_metrics *const metrics = all_->options.metrics;
    const decision_record &record = made_.record;
    if (metrics) {
        metrics->decided(record, std::chrono::duration_cast<std::chrono::microseconds>(
                                     all_->options.now() - one.came));
        if (in_time) {
            metrics->answered(action.is);
        }
    }
    if (record.decision.is == verdict::undecided && in_time) {
        const bool too_late = one.answers && lacks_answers(record);
        all_->note(too_late ? doubt::deadline : doubt::failure,
                   too_late ? "requests were passed: the DNS did not answer in time"
                            : reason_of(record));
    }
}

// --- the threads --------------------------------------------------------------------------------

void policy_judge::core::start() {
    threads_.emplace_back([this] { watch_deadlines(); });
    for (unsigned i = 0; i < std::max(options.jobs, 1u); ++i) {
        threads_.emplace_back([self = shared_from_this()] { judging_thread(self).work(); });
    }
}

void policy_judge::core::stop() noexcept {
    {
        const std::lock_guard guard(lock_);
        stops_ = true;
    }
    work_.notify_all();
    end_.notify_all();
    for (std::thread &thread : threads_) {
        thread.join();
    }
    threads_.clear();
    for (;;) {
        request_ptr one;
        {
            const std::lock_guard guard(lock_);
            if (!outstanding_.oldest()) {
                return;
            }
            one = outstanding_.remove(outstanding_.oldest());
        }
        pass(*one, doubt::stopping, "");
    }
}

policy_judge::policy_judge(const policy_judge_options &with)
    : core_(std::make_shared<core>(with)), own_(std::make_unique<judging_thread>(core_)) {
    try {
        core_->start();
    } catch (...) {
        core_->stop();
        throw;
    }
}

policy_judge::~policy_judge() {
    stop();
}

void policy_judge::judge(std::string request, answer_function answer) noexcept {
    core_->take_on(std::move(request), std::move(answer), true);
}

void policy_judge::take_on(std::string request, answer_function answer) noexcept {
    core_->take_on(std::move(request), std::move(answer), false);
}

void policy_judge::begin_all(bool here, const std::function<bool()> &waits) noexcept {
    if (request *const one = core_->share_out(here)) {
        judges_here_ = true;
        own_->look_at_one(*one, waits ? &waits : nullptr);
        judges_here_ = false;
    }
}

void policy_judge::gather(const std::function<void()> &bring) noexcept {
    if (judges_here_) {
        bring(); // the next begin_all() may be a second away
    } else {
        core_->gather(bring);
    }
}

void policy_judge::answer_overdue() noexcept {
    core_->answer_overdue();
}

void policy_judge::stop() noexcept {
    core_->stop();
}

} // namespace quillfence::service
