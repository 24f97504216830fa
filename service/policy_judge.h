// Answers requests of mail servers: each is read, judged by the engine on the configuration in
// force, written to the decision log and answered, in this order.
//
//     judge() -> [queue] -> worker: judged -> logged -> answered
//                   ^          | answers are missing
//                   +- DNS <---+
//
// No thread waits for the DNS: a transaction that lacks answers is put aside, and judged anew when
// they have come. (But a thread that has nothing else to do may wait a little, and then one
// judgement is enough: begin_all.) The configuration that it began with is the one that it ends
// with.
//
// In doubt mail passes, with "action=DUNNO": a request that can't be read, no configuration yet, no
// memory, an engine that fails, more requests than can be outstanding, and a request that has
// waited until its deadline. Each is counted, and told as an event, of one kind once a minute. What
// is not of the stage RCPT is DUNNO as well. A record has of all these only the one whose deadline
// was over, which is judged all the same.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "asker.h"
#include "decision_log.h"
#include "live_configuration.h"
#include "policy_action.h"
#include "service_metrics.h"

namespace quillfence::service {

class judging_thread;

struct policy_judge_options {
    const live_configuration *configuration = nullptr; // borrowed, as all that is pointed to
    enforcement how{};
    std::string user_dir{};            // as live_configuration's
    dns_sources::asker *dns = nullptr; // null: nobody is asked, and what is missing is undecided
    decision::decision_log *log = nullptr; // null: none
    bool counters = false;                 // the engine's mail log and counters as well
    service_metrics *metrics = nullptr;    // may be null
    unsigned jobs = 1;                     // threads that judge

    // Each request is answered after so long, whatever has become of it. Its DNS questions get
    // three quarters, so that what they bring can still be judged and logged.
    std::chrono::milliseconds deadline{8000};
    // Requests that have come and are not answered; one more is answered at once.
    size_t most_outstanding = 2000;

    using clock = std::chrono::steady_clock;
    clock::time_point (*now)() = clock::now;
};

class policy_judge {
  public:
    // Called with the whole reply, "action=DUNNO\n\n".
    using answer_function = std::function<void(std::string_view reply)>;

    // Starts the threads; throws when the system gives none.
    explicit policy_judge(const policy_judge_options &with);
    ~policy_judge(); // as stop()
    policy_judge(const policy_judge &) = delete;
    policy_judge &operator=(const policy_judge &) = delete;

    // The text of one request, without the empty line that ends it. `answer` is called once, on any
    // thread, perhaps before this returns; it does not call back.
    void judge(std::string request, answer_function answer) noexcept;

    // The same in two steps, for a thread that may have several: what was taken on is begun by the
    // next begin_all(). That leaves all to the judge's threads but one, which it judges itself
    // (`here`, for one thread at a time), so that a single request costs no change of threads.
    void take_on(std::string request, answer_function answer) noexcept;
    // What it lacks of DNS answers it asks for as it goes, and waits for them as long as `waits`
    // does, which returns whether something has come; null: it is put aside at once.
    void begin_all(bool here, const std::function<bool()> &waits = nullptr) noexcept;
    // The same for DNS answers that come on this thread while `bring` runs: what they let go on is
    // begun by the next begin_all(), or, when one is at work (its `waits` brings them), by the
    // judge's threads. By one thread at a time.
    void gather(const std::function<void()> &bring) noexcept;

    // Answers what is beyond its deadline. A thread of the judge does so in time; for tests with a
    // clock of their own.
    void answer_overdue() noexcept;

    // What is outstanding is answered DUNNO, and the threads end; what is being judged is answered
    // as ever. Whatever comes from now on is DUNNO.
    void stop() noexcept;

    class core; // of policy_judge.cpp

  private:
    std::shared_ptr<core> core_;          // DNS answers may come when the judge is gone
    std::unique_ptr<judging_thread> own_; // of whoever begins all here
    std::atomic<bool> judges_here_ = false;
};

} // namespace quillfence::service
