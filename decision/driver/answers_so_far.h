// DNS answers for many transactions at once. A transaction is judged with the answers that are at
// hand; each answer that it lacks is missing to it, and is asked for meanwhile. When all of these
// have come it is judged anew, and so on, until it lacks none: thousands may wait for their answers
// while a few threads judge. A thread that has nothing else to do may wait a little instead.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "asker.h"
#include "memo_source.h"
#include "source.h"
#include "time_left.h"

namespace quillfence::decision {

// The answers that one transaction has so far: those to each question in the order in which they
// came, as a failure is asked again when the engine asks again. Used by one thread at a time.
class answers_so_far : public dns_sources::source {
  public:
    // What the memo (borrowed; null: there is none) has is at hand. All that is asked for is
    // within `total` from now.
    answers_so_far(dns_sources::memo_source *memo, std::chrono::milliseconds total)
        : memo_(memo), left_(total) {}

    dns_sources::answer ask(const dns_sources::question &asked) override;

    // From now on what is missing is asked for as soon as it is wanted, and at hand after all when
    // it comes while `waits` does: it waits a little, and returns whether something has come. After
    // the first that does not come so soon nothing is waited for any more. Both are borrowed; null:
    // as before.
    void be_patient(dns_sources::asker *asker, const std::function<bool()> *waits) {
        early_asker_ = waits ? asker : nullptr;
        waits_ = waits;
    }

    // Whether an answer was missing since the last rewind().
    bool lacks_answers() const {
        return !wanted_.empty();
    }
    // Asks for all of them. `then` is called once, on the thread that has the last answer, perhaps
    // before this returns; nothing here is touched behind it, and this has to live until then.
    // Throws before anything was asked.
    void fetch(dns_sources::asker &asker, const std::function<void()> &then);
    // Before the transaction is judged anew.
    void rewind();
    // Before it is judged once more with the answers that are at hand: what it lacks is kept.
    void begin_again();

  private:
    class early_answer;
    struct asked_question {
        dns_sources::question question;
        std::vector<dns_sources::answer> answers;
        size_t next = 0;
        bool wanted = false;
        std::shared_ptr<early_answer> early{}; // on its way, for the next fetch()
    };
    struct fetched_question;

    bool comes_soon(asked_question *one);

    dns_sources::memo_source *const memo_;
    const dns_sources::time_left left_;
    std::map<std::pair<std::string, uint16_t>, asked_question> asked_;
    std::vector<asked_question *> wanted_;
    dns_sources::asker *early_asker_ = nullptr;
    const std::function<bool()> *waits_ = nullptr;
    std::atomic<size_t> outstanding_ = 0;
};

} // namespace quillfence::decision
