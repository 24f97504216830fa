// Requests judged, logged and answered; and in doubt mail passes. Runs under the thread sanitizer,
// too.
#include "policy_judge.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <regex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "../dns_sources/scripted_source.h"
#include "../reliability/engine_drive.h"
#include "call_watch.h"
#include "case_file.h"
#include "event.h"
#include "platform/clock.h"
#include "platform/error_numbers.h"
#include "quillfence-log.h"
#include "quillfence.h"
#include "record_reader.h"
#include "replay.h"
#include "side_by_side.h"
#include "vc_w32.h"

namespace quillfence::testing {
namespace {

using namespace service;
using namespace std::chrono_literals;
using decision::decision_record;
using decision::verdict;
using test_clock = std::chrono::steady_clock;

constexpr char log_path[] = "c:/decisions";
constexpr char dunno[] = "action=DUNNO\n\n";

// Answers questions as the test says, at once or when it is told to.
class scripted_asker : public dns_sources::asker {
  public:
    explicit scripted_asker(std::function<answer(const question &)> say) : say_(std::move(say)) {}
    // What is asked and not answered is forgotten, as no asker may do.
    void ask(const question &asked, listener then) noexcept override {
        {
            const std::lock_guard guard(lock_);
            last_limit_ = asked.limit;
            ++asked_;
            names_.insert(dns_sources::name_key(asked.name) + ' ' +
                          dns_sources::type_word(asked.type));
            if (holds_) {
                held_.emplace_back(asked, std::move(then));
                return;
            }
        }
        then(say_(asked));
    }
    void hold() {
        const std::lock_guard guard(lock_);
        holds_ = true;
    }
    void release() {
        {
            const std::lock_guard guard(lock_);
            holds_ = false;
        }
        answer_held();
    }
    void answer_held() {
        std::deque<std::pair<question, listener>> held;
        {
            const std::lock_guard guard(lock_);
            held.swap(held_);
        }
        for (auto &[asked, then] : held) {
            then(say_(asked));
        }
    }
    size_t held() {
        const std::lock_guard guard(lock_);
        return held_.size();
    }
    size_t asked() {
        const std::lock_guard guard(lock_);
        return asked_;
    }
    void count_anew() {
        const std::lock_guard guard(lock_);
        asked_ = 0;
        names_.clear();
    }
    // How many different questions.
    size_t asked_for() {
        const std::lock_guard guard(lock_);
        return names_.size();
    }
    std::optional<std::chrono::milliseconds> last_limit() {
        const std::lock_guard guard(lock_);
        return last_limit_;
    }

  private:
    const std::function<answer(const question &)> say_;
    std::mutex lock_;
    bool holds_ = false;
    size_t asked_ = 0;
    std::set<std::string> names_;
    std::optional<std::chrono::milliseconds> last_limit_{};
    std::deque<std::pair<question, listener>> held_;
};

// The zones of write_zones().
answer answer_of_zones(const question &asked) {
    static const std::map<std::string, std::vector<std::string>> zones = {
        {"1.2.0.192.in-addr.arpa PTR", {"PTR mail.good.example."}},
        {"2.2.0.192.in-addr.arpa PTR", {"PTR dyn1-192-0-2-2.pool.example."}},
        {"3.2.0.192.in-addr.arpa PTR", {"PTR dyn9-192-0-2-3.pool.example."}},
        {"mail.good.example A", {"A 192.0.2.1"}},
        {"good.example A", {"A 192.0.2.1"}},
        {"tied.example A", {"A 198.51.100.1"}},
        {"9.2.0.192.in-addr.arpa PTR", {"PTR mail.good.example."}},
        {"9.2.0.192.rbl.example A", {"A 127.0.0.2"}},
        {"foe.example A", {"A 192.0.2.1"}},
        {"friend.example A", {"A 192.0.2.1"}},
    };
    const auto known =
        zones.find(dns_sources::name_key(asked.name) + ' ' + dns_sources::type_word(asked.type));
    return known == zones.end() ? answer_of_server(3, {}) : found(known->second);
}

struct asked_for {
    std::string ip = "192.0.2.1";
    std::string helo = "mail.good.example";
    std::string sender = "a@good.example";
    std::string recipient = "b@here.example";
    std::string user = "";
    std::string context = "";
    std::string state = "RCPT";
    std::string more = "";
};

std::string request_of(const asked_for &what) {
    return "request=smtpd_access_policy\nprotocol_state=" + what.state +
           "\nprotocol_name=ESMTP\nhelo_name=" + what.helo + "\nqueue_id=\nsender=" + what.sender +
           "\nrecipient=" + what.recipient + "\nrecipient_count=0\nclient_address=" + what.ip +
           "\nclient_name=unknown\nclient_port=4711\ninstance=1a.2b\nsasl_method=\nsasl_username=" +
           what.user + "\nencryption_protocol=\npolicy_context=" + what.context + "\n" + what.more;
}

const asked_for foe = {.sender = "a@foe.example"};
const asked_for friend_of_all = {.sender = "a@friend.example"};

// Since when the tests' clock began; threads of the judge look at it.
std::atomic<test_clock::rep> moment;

void pass_time(test_clock::duration time) {
    moment += time.count();
}

// One answer, waited for.
class reply {
  public:
    policy_judge::answer_function function() {
        return [this](std::string_view text) {
            const std::lock_guard guard(lock_);
            text_ += text;
            ++count_;
        };
    }
    // "" when none comes.
    std::string wait() {
        for (int i = 0; i < 20000; ++i) {
            {
                const std::lock_guard guard(lock_);
                if (count_ > 0) {
                    return text_;
                }
            }
            std::this_thread::sleep_for(500us);
        }
        return "";
    }
    int count() {
        const std::lock_guard guard(lock_);
        return count_;
    }

  private:
    std::mutex lock_;
    std::string text_;
    int count_ = 0;
};

class policy_judge_test : public ::testing::Test {
  protected:
    policy_judge_test() {
        vc_set_log_function(nullptr);
        quillfence_init();
        write_configuration(drive);
        drive.write("c:/quillfence/control/bms.enabled", "none\n");
        set_event_stand_in([this](event_severity, std::string_view text) {
            const std::lock_guard guard(lock);
            events.emplace_back(text);
        });
        moment = test_clock::duration(1h).count();
        EXPECT_TRUE(live.load());
        EXPECT_EQ(log.open(log_path), 0u);
        options.configuration = &live;
        options.dns = &dns;
        options.log = &log;
        options.metrics = &metrics;
        options.jobs = 2;
        options.now = [] { return test_clock::time_point(test_clock::duration(moment)); };
    }
    ~policy_judge_test() override {
        judge.reset();
        set_event_stand_in({});
        quillfence_teardown();
        platform::set_clock_stand_in(nullptr);
    }

    policy_judge &running() {
        if (!judge) {
            judge.emplace(options);
        }
        return *judge;
    }
    std::string send(const std::string &text) {
        reply one;
        running().judge(text, one.function());
        const std::string said = one.wait();
        EXPECT_EQ(one.count(), 1);
        return said;
    }
    std::string ask(const asked_for &what) {
        return send(request_of(what));
    }

    std::vector<std::string> lines_of_log() const {
        const std::string text = drive.exists(log_path) ? drive.read(log_path) : "";
        std::vector<std::string> lines;
        size_t begin = 0;
        for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
            lines.push_back(text.substr(begin, end - begin));
        }
        EXPECT_EQ(begin, text.size()) << "a line without its end";
        return lines;
    }
    std::vector<decision_record> records() const {
        std::vector<decision_record> all;
        for (const std::string &line : lines_of_log()) {
            decision::json_problem problem;
            auto record = decision::read_record(line, &problem);
            EXPECT_TRUE(record) << problem.text << ": " << line;
            all.push_back(record.value_or(decision_record()));
        }
        return all;
    }
    static std::string answered(const decision_record &record) {
        std::string value = "absent";
        for (const auto &[name, json] : record.extra) {
            if (name == "answered") {
                EXPECT_EQ(value, "absent") << "twice";
                value = json;
            }
        }
        return value;
    }
    // The value of a counter, "" when there is none.
    std::string counter(const std::string &name) const {
        const std::string text = "\n" + metrics.text();
        const size_t at = text.find("\n" + name + " ");
        if (at == std::string::npos) {
            return "";
        }
        const size_t begin = at + name.size() + 2;
        return text.substr(begin, text.find('\n', begin) - begin);
    }
    std::string doubts(const std::string &reason) const {
        return counter("quillfence_unjudged_total{reason=\"" + reason + "\"}");
    }
    lines told() {
        const std::lock_guard guard(lock);
        return std::exchange(events, {});
    }

    drive_c drive;
    std::mutex lock; // of events
    lines events;
    live_configuration live{{}};
    decision::decision_log log;
    service_metrics metrics;
    scripted_asker dns{answer_of_zones};
    policy_judge_options options;
    std::optional<policy_judge> judge;
};

// --- the answer and its record ------------------------------------------------------------------

TEST_F(policy_judge_test, observing_answers_dunno_and_logs_everything) {
    EXPECT_EQ(ask(asked_for{}), dunno);
    EXPECT_EQ(ask(foe), dunno);
    const auto all = records();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].id, "1a.2b.1");
    EXPECT_EQ(all[0].decision.is, verdict::accept);
    EXPECT_EQ(answered(all[0]), "\"DUNNO\"");
    EXPECT_EQ(all[1].id, "1a.2b.2") << "the recipients of a message share its instance";
    EXPECT_EQ(all[1].decision.is, verdict::reject);
    EXPECT_EQ(all[1].decision.rule, "from_blacklist");
    EXPECT_EQ(answered(all[1]), "\"DUNNO\"");
    EXPECT_EQ(all[1].config.revision, live.now()->files->revision);
    EXPECT_TRUE(
        std::regex_match(all[1].time, std::regex("\\d{4}-\\d\\d-\\d\\dT[0-9:]{8}\\.\\d{3}Z")))
        << all[1].time;
    EXPECT_EQ(all[1].transaction.port, "4711");
    EXPECT_EQ(told(), lines{});
}

TEST_F(policy_judge_test, enforced_is_refused_with_the_notice) {
    options.how.all = true;
    const std::string said = ask(foe);
    const auto all = records();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(said, "action=550 5.7.1 " + all[0].decision.notice + "\n\n");
    EXPECT_EQ(answered(all[0]), "\"550 5.7.1 " + all[0].decision.notice + "\"");
    EXPECT_EQ(ask(asked_for{}), dunno);
    EXPECT_EQ(ask(friend_of_all), dunno);
    EXPECT_EQ(counter("quillfence_answers_total{answer=\"reject\"}"), "1");
    EXPECT_EQ(counter("quillfence_answers_total{answer=\"dunno\"}"), "2");
}

TEST_F(policy_judge_test, warned_and_exempted) {
    options.how = {.all = true, .warn = {"from_blacklist"}, .exempt_passes = true};
    EXPECT_TRUE(ask(foe).starts_with("action=WARN from_blacklist: "));
    EXPECT_EQ(ask(friend_of_all), "action=OK\n\n");
    const auto all = records();
    EXPECT_TRUE(answered(all[0]).starts_with("\"WARN from_blacklist: "));
    EXPECT_EQ(answered(all[1]), "\"OK\"");
}

// What the client says of it does not count, and stands there once.
TEST_F(policy_judge_test, the_answer_in_the_log_is_ours) {
    EXPECT_EQ(ask({.more = "answered=OK\nanother=x\n"}), dunno);
    EXPECT_EQ(answered(records()[0]), "\"DUNNO\"");
    const auto extra = records()[0].extra;
    EXPECT_TRUE(std::find(extra.begin(), extra.end(), decision::extra_member("another", "\"x\"")) !=
                extra.end());
}

TEST_F(policy_judge_test, other_stages_pass_without_a_record) {
    options.how.all = true;
    for (const char *state : {"CONNECT", "EHLO", "HELO", "MAIL", "DATA", "END-OF-MESSAGE", "VRFY",
                              "ETRN", "", "rcpt"}) {
        asked_for other = foe;
        other.state = state;
        EXPECT_EQ(ask(other), dunno) << state;
    }
    EXPECT_EQ(records().size(), 0u);
    EXPECT_EQ(doubts("other_state"), "10");
    EXPECT_EQ(told(), lines{});
}

// Own users at home have names that the PTR rules would refuse.
TEST_F(policy_judge_test, submission_and_authenticated_users_are_muas) {
    drive.write("c:/quillfence/control/rules.enabled", "check_dynamic_reverse_dns\n");
    ASSERT_TRUE(live.load());
    options.how.all = true;
    const asked_for at_home = {.ip = "192.0.2.2"};
    EXPECT_TRUE(ask(at_home).starts_with("action=550 "));
    asked_for user = at_home;
    user.user = "alice";
    EXPECT_EQ(ask(user), dunno);
    asked_for submitting = at_home;
    submitting.context = "submission";
    EXPECT_EQ(ask(submitting), dunno);
    const auto all = records();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].transaction.mua, false);
    EXPECT_EQ(all[1].transaction.mua, true);
    EXPECT_EQ(all[2].transaction.mua, true);
}

// --- the DNS ------------------------------------------------------------------------------------

TEST_F(policy_judge_test, nobody_waits_while_answers_are_on_their_way) {
    options.jobs = 1;
    dns.hold();
    std::vector<reply> waiting(20);
    for (reply &one : waiting) {
        running().judge(request_of({.ip = "192.0.2.9"}), one.function());
    }
    EXPECT_EQ(ask({.ip = "10.0.0.1", .sender = "a@friend.example"}), dunno) << "it asks nobody";
    EXPECT_EQ(waiting[0].count(), 0);
    dns.release();
    for (reply &one : waiting) {
        EXPECT_EQ(one.wait(), dunno);
    }
}

TEST_F(policy_judge_test, each_question_is_asked_once_and_within_the_time) {
    options.deadline = 8s;
    EXPECT_EQ(ask({.ip = "192.0.2.9"}), dunno);
    const size_t first = dns.asked();
    EXPECT_GT(first, 0u);
    ASSERT_TRUE(dns.last_limit());
    EXPECT_LE(*dns.last_limit(), 6s);
    ask({.ip = "192.0.2.9"});
    EXPECT_EQ(dns.asked(), 2 * first) << "nothing is remembered";
}

// A listing refuses; a resolver in trouble refuses nobody.
TEST_F(policy_judge_test, resolvers_in_trouble_refuse_nobody) {
    options.how.all = true;
    drive.write("c:/quillfence/control/rules.enabled",
                "resolve_helo_domain\nvalid_from_domain\nrequire_ptr\nvalid_ptr\n"
                "check_dynamic_reverse_dns\n");
    ASSERT_TRUE(live.load());
    EXPECT_TRUE(ask({.ip = "192.0.2.9", .helo = "mail.good.example"}).starts_with("action="));
    const struct {
        const char *name;
        answer always;
    } resolvers[] = {
        {"refuses everything", answer_of_server(5, {})},
        {"answers everything so", found({"A 127.255.255.254"})},
        {"answers with itself", found({"A 192.0.2.53"})},
        {"fails", answer_of_server(2, {})},
        {"is silent", answer_of_status(timed_out)},
    };
    for (const auto &resolver : resolvers) {
        SCOPED_TRACE(resolver.name);
        judge.reset();
        scripted_asker troubled([&resolver](const question &) { return resolver.always; });
        options.dns = &troubled;
        for (const client &who : {clients[0], clients[1]}) {
            EXPECT_EQ(ask({.ip = who.ip, .helo = who.helo, .sender = who.sender}), dunno);
        }
        EXPECT_GT(troubled.asked(), 0u);
        judge.reset();
    }
}

TEST_F(policy_judge_test, listed_clients_are_refused_and_without_guards_everybody) {
    options.how.all = true;
    drive.write("c:/quillfence/control/rules.enabled", "no_such_rule\n");
    ASSERT_TRUE(live.load());
    EXPECT_TRUE(ask({.ip = "192.0.2.9"}).starts_with("action=550 "));
    EXPECT_EQ(records().back().decision.zone, "rbl.example");
    judge.reset();
    live_configuration unguarded({.guards = {.block_lists = false, .refusals = false}});
    ASSERT_TRUE(unguarded.load());
    options.configuration = &unguarded;
    scripted_asker wrong([](const question &) { return found({"A 127.255.255.254"}); });
    options.dns = &wrong;
    EXPECT_TRUE(ask(asked_for{}).starts_with("action=550 ")) << "what the guard is there for";
    judge.reset();
}

TEST_F(policy_judge_test, without_a_dns_what_needs_it_is_undecided) {
    options.dns = nullptr;
    options.how.all = true;
    EXPECT_EQ(ask(asked_for{}), dunno);
    EXPECT_TRUE(ask(foe).starts_with("action=550 ")) << "a list needs none";
    EXPECT_EQ(records()[0].decision.is, verdict::undecided);
    EXPECT_EQ(doubts("deadline"), "0");
    EXPECT_EQ(doubts("failure"), "1");
}

// --- every record can be replayed ---------------------------------------------------------------

TEST_F(policy_judge_test, every_record_of_the_log_replays_to_its_verdict) {
    drive.write("c:/quillfence/control/rules.enabled",
                "require_helo\nresolve_helo_domain\nvalid_from_domain\nrequire_ptr\nvalid_ptr\n"
                "check_dynamic_reverse_dns\nknown_sender_forgery\n");
    ASSERT_TRUE(live.load());
    const auto ask_all = [this] {
        for (const char *ip : {"192.0.2.1", "192.0.2.2", "192.0.2.3", "192.0.2.9", "192.0.2.75"}) {
            for (const char *sender : {"a@good.example", "a@tied.example", "", "a@no.such.example",
                                       "a@foe.example", "a\xFF@friend.example"}) {
                for (const char *helo : {"mail.good.example", "no.such.example", "x"}) {
                    EXPECT_EQ(ask({.ip = ip, .helo = helo, .sender = sender}), dunno);
                }
            }
        }
        judge.reset();
    };
    ask_all();
    for (const answer &always :
         {answer_of_server(5, {}), found({"A 127.255.255.254"}), answer_of_status(timed_out)}) {
        scripted_asker troubled([&always](const question &) { return always; });
        options.dns = &troubled;
        ask_all();
    }
    std::map<verdict, int> verdicts;
    for (const std::string &line : lines_of_log()) {
        decision::json_problem problem;
        const auto kept = decision::read_case(line, &problem);
        ASSERT_TRUE(kept) << problem.text << ": " << line;
        const auto record = decision::read_record(line, &problem);
        ASSERT_TRUE(record);
        const decision::replay_result again = decision::replay(*kept, {});
        EXPECT_EQ(again.failed, nullptr);
        EXPECT_EQ(again.record.decision, record->decision) << line;
        ++verdicts[record->decision.is];
    }
    EXPECT_GT(verdicts[verdict::accept], 10);
    EXPECT_GT(verdicts[verdict::reject], 10);
}

// --- in doubt mail passes -----------------------------------------------------------------------

TEST_F(policy_judge_test, what_is_no_request_passes) {
    options.how.all = true;
    const std::string bad[] = {
        "",
        "no equals sign\n",
        "=x\n",
        "client_address=192.0.2.5\nclient_address=192.0.2.6\n",
        std::string("client_address=192.0.2.5\nsender=a\0@foe.example\n", 47),
        "protocol_state=RCPT\nfoo=bar\n",
        "sender=" + std::string(5000, 'x') + "\n",
        std::string(70000, 'a'),
    };
    for (const std::string &text : bad) {
        EXPECT_EQ(send(text), dunno) << text.substr(0, 60);
    }
    std::string many;
    for (int i = 0; i < 300; ++i) {
        many += "a" + std::to_string(i) + "=b\n";
    }
    EXPECT_EQ(send(many), dunno);
    EXPECT_EQ(doubts("bad_request"), "9");
    EXPECT_EQ(records().size(), 0u);
    const lines said = told();
    ASSERT_EQ(said.size(), 1u) << "one event a minute";
    EXPECT_TRUE(said[0].starts_with("a request can't be read: line 1: ")) << said[0];
}

// What is missing is said, once a minute.
TEST_F(policy_judge_test, a_request_that_lacks_facts_passes) {
    options.how.all = true;
    EXPECT_EQ(send("client_address=192.0.2.1\nsender=a@good.example\nrecipient=b@here.example\n"),
              dunno);
    EXPECT_EQ(records()[0].decision.is, verdict::undecided);
    EXPECT_EQ(doubts("failure"), "1");
    const lines said = told();
    ASSERT_EQ(said.size(), 1u);
    EXPECT_TRUE(said[0].starts_with("requests were passed: they do not tell: ")) << said[0];
}

TEST_F(policy_judge_test, without_a_configuration_everything_passes) {
    live_configuration none({});
    options.configuration = &none;
    options.how.all = true;
    EXPECT_EQ(ask(foe), dunno);
    EXPECT_EQ(doubts("no_configuration"), "1");
    EXPECT_EQ(records().size(), 0u);
    EXPECT_EQ(told(), lines{"requests were passed: there is no configuration"});
    EXPECT_TRUE(none.load());
    EXPECT_TRUE(ask(foe).starts_with("action=550 ")) << "from the moment on that there is one";
}

TEST_F(policy_judge_test, beyond_the_deadline_it_passes_and_the_record_says_so) {
    options.how.all = true;
    dns.hold();
    reply late;
    running().judge(request_of(foe), late.function());
    while (dns.held() == 0) {
        std::this_thread::yield();
    }
    pass_time(options.deadline - 1ms);
    judge->answer_overdue();
    EXPECT_EQ(late.count(), 0);
    pass_time(1ms);
    judge->answer_overdue();
    EXPECT_EQ(late.wait(), dunno);
    EXPECT_EQ(records().size(), 0u) << "it has not been decided";
    judge->answer_overdue();
    EXPECT_EQ(doubts("deadline"), "1");
    dns.release();
    while (records().empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(late.count(), 1);
    const auto all = records();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(answered(all[0]), "\"DUNNO\"");
    EXPECT_TRUE(std::any_of(all[0].notes.begin(), all[0].notes.end(), [](const auto &note) {
        return note.text == "it was answered before it was decided: its time was used up";
    }));
    EXPECT_EQ(told(), lines{"requests were passed: they were not decided in time"});
}

// With the judge's own thread and the system's clock, and a DNS that never answers.
TEST_F(policy_judge_test, silent_dns_costs_the_deadline_and_no_more) {
    options.now = test_clock::now;
    options.deadline = 300ms;
    options.jobs = 1;
    dns.hold();
    std::vector<reply> replies(200);
    const auto begin = test_clock::now();
    for (reply &one : replies) {
        running().judge(request_of(asked_for{}), one.function());
    }
    for (reply &one : replies) {
        EXPECT_EQ(one.wait(), dunno);
    }
    EXPECT_GE(test_clock::now() - begin, 300ms);
    EXPECT_EQ(doubts("deadline"), "200");
    judge->stop();
    for (reply &one : replies) {
        EXPECT_EQ(one.count(), 1);
    }
    dns.release(); // to a judge that has ended
}

TEST_F(policy_judge_test, more_than_can_be_outstanding_pass_at_once) {
    options.most_outstanding = 3;
    options.how.all = true;
    dns.hold();
    std::vector<reply> waiting(3);
    for (reply &one : waiting) {
        running().judge(request_of(foe), one.function());
    }
    for (int i = 0; i < 5; ++i) {
        reply one;
        judge->judge(request_of(foe), one.function());
        EXPECT_EQ(one.count(), 1) << "before it returns";
        EXPECT_EQ(one.wait(), dunno);
    }
    EXPECT_EQ(doubts("overload"), "5");
    while (dns.held() < 3) {
        std::this_thread::yield();
    }
    dns.release();
    for (reply &one : waiting) {
        EXPECT_TRUE(one.wait().starts_with("action=550 "));
    }
    EXPECT_TRUE(ask(foe).starts_with("action=550 ")) << "there is room again";
    EXPECT_EQ(told(), lines{"requests were passed: too many are outstanding"});
}

TEST_F(policy_judge_test, at_the_end_what_is_outstanding_passes) {
    dns.hold();
    std::vector<reply> waiting(10);
    for (reply &one : waiting) {
        running().judge(request_of(foe), one.function());
    }
    judge->stop();
    for (reply &one : waiting) {
        EXPECT_EQ(one.wait(), dunno);
    }
    reply after;
    judge->judge(request_of(foe), after.function());
    EXPECT_EQ(after.wait(), dunno);
    dns.release();
    judge.reset();
    for (reply &one : waiting) {
        EXPECT_EQ(one.count(), 1);
    }
}

// --- the log ------------------------------------------------------------------------------------

TEST_F(policy_judge_test, a_log_that_can_not_be_written_is_counted_and_answered) {
    options.how.all = true;
    {
        call_watch calls;
        calls.fail("file_write", 1, platform::error_disk_full, true);
        EXPECT_TRUE(ask(foe).starts_with("action=550 "));
        EXPECT_TRUE(ask(foe).starts_with("action=550 "));
    }
    EXPECT_TRUE(ask(foe).starts_with("action=550 "));
    EXPECT_EQ(records().size(), 1u);
    EXPECT_EQ(counter("quillfence_log_records_total{result=\"lost\"}"), "2");
    const lines said = told();
    ASSERT_EQ(said.size(), 1u);
    EXPECT_TRUE(said[0].starts_with("c:/decisions: a record is lost: ")) << said[0];
}

TEST_F(policy_judge_test, the_record_is_there_before_the_answer) {
    std::atomic<size_t> seen = 0;
    std::atomic<bool> done = false;
    running().judge(request_of(foe), [&](std::string_view) {
        seen = records().size();
        done = true;
    });
    while (!done) {
        std::this_thread::yield();
    }
    EXPECT_EQ(seen, 1u);
}

TEST_F(policy_judge_test, no_log_is_no_log) {
    options.log = nullptr;
    EXPECT_EQ(ask(foe), dunno);
    EXPECT_EQ(records().size(), 0u);
}

// --- the engine's own log and counters ----------------------------------------------------------

bool chosen_moment(platform::time_of_day *now) {
    *now = {1700000000, 0};
    return true;
}

TEST_F(policy_judge_test, counters_are_what_the_engine_writes) {
    platform::set_clock_stand_in(chosen_moment);
    options.counters = true;
    options.jobs = 1;
    const asked_for requests[] = {
        foe, friend_of_all, asked_for{}, {.sender = ""}, {.user = "alice"}, {.ip = "192.0.2.9"}};
    for (const asked_for &one : requests) {
        ask(one);
    }
    judge.reset();
    const auto contents = [this](const char *name) {
        const std::string path = std::string("c:/quillfence/log/") + name;
        // The number of the thread is another one.
        return std::regex_replace(drive.read(path), std::regex("quillfence\\[[-0-9]+\\]"), "q");
    };
    const char *const names[] = {"qflog", ".counterv2.dat.11", ".counterv2.dat.hourly"};
    std::vector<std::string> kept;
    for (const char *name : names) {
        kept.push_back(contents(name));
    }
    drive.remove("c:/quillfence/log");
    drive.make_folder("c:/quillfence/log");
    // The same by the engine's own calls.
    const struct {
        const char *rule;
        uint8_t type;
        const char *rdns;
    } expected[] = {{"from_blacklist", log_type_spam, "mail.good.example"},
                    {"from_whitelist", log_type_exempt, "mail.good.example"},
                    {nullptr, log_type_ham, "mail.good.example"},
                    {nullptr, log_type_ndr, "mail.good.example"},
                    {nullptr, log_type_ham, "mail.good.example"},
                    {"block_rbl_lists (rbl.example)", log_type_spam, "mail.good.example"}};
    for (size_t i = 0; i < std::size(requests); ++i) {
        const asked_for &one = requests[i];
        const bool bounce = one.sender.empty();
        std::string rdns = expected[i].rdns ? expected[i].rdns : "";
        smtp_state state{};
        state.ip = const_cast<char *>(one.ip.c_str());
        state.port = const_cast<char *>("4711");
        state.helo = const_cast<char *>(one.helo.c_str());
        state.mail_from = const_cast<char *>(bounce ? "bounce message" : one.sender.c_str());
        state.rcpt_to = const_cast<char *>(one.recipient.c_str());
        state.mua = !one.user.empty();
        state.auth_user = const_cast<char *>(one.user.c_str());
        state.ndr = bounce;
        state.rdns = rdns.empty() ? nullptr : rdns.data();
        log_message(&state, expected[i].rule, expected[i].type);
    }
    for (size_t i = 0; i < std::size(names); ++i) {
        EXPECT_EQ(kept[i], contents(names[i])) << names[i];
    }
}

TEST_F(policy_judge_test, no_count_is_lost_between_threads) {
    platform::set_clock_stand_in(chosen_moment);
    options.counters = true;
    options.jobs = 4;
    std::vector<reply> replies(400);
    for (reply &one : replies) {
        running().judge(request_of(foe), one.function());
    }
    for (reply &one : replies) {
        EXPECT_EQ(one.wait(), dunno);
    }
    const std::string daily = drive.read("c:/quillfence/log/.counterv2.dat.11");
    const size_t spam = 5 + 32 * 13 + 8; // the 14th
    const auto count = static_cast<unsigned char>(daily[spam]) +
                       256u * static_cast<unsigned char>(daily[spam + 1]);
    EXPECT_EQ(count, 400u);
}

// --- in two steps -------------------------------------------------------------------------------

// How many of so many requests, taken on before all are begun, were answered on this thread.
// Another one may be faster.
class in_two_steps : public policy_judge_test {
  protected:
    in_two_steps() {
        options.dns = nullptr;
    }
    size_t answered_here(size_t at_once, bool here) {
        std::atomic<size_t> mine = 0;
        std::vector<reply> replies(at_once);
        for (reply &one : replies) {
            running().take_on(request_of(foe), [&, say = one.function()](std::string_view text) {
                mine += std::this_thread::get_id() == self_;
                say(text);
            });
        }
        running().begin_all(here);
        for (reply &one : replies) {
            EXPECT_EQ(one.wait(), dunno);
            EXPECT_EQ(one.count(), 1);
        }
        return mine;
    }

  private:
    const std::thread::id self_ = std::this_thread::get_id();
};

TEST_F(in_two_steps, one_is_judged_by_who_begins_all) {
    size_t mine = 0;
    for (int i = 0; i < 100; ++i) {
        const size_t now = answered_here(1, true);
        EXPECT_LE(now, 1u);
        mine += now;
    }
    EXPECT_GT(mine, 50u);
    EXPECT_LE(answered_here(10, true), 1u);
    EXPECT_EQ(records().size(), 110u);
}

TEST_F(in_two_steps, who_must_not_be_kept_judges_none) {
    for (const size_t count : {1u, 10u}) {
        EXPECT_EQ(answered_here(count, false), 0u);
    }
    running().begin_all(true); // nothing is left
    EXPECT_EQ(records().size(), 11u);
}

TEST_F(in_two_steps, answers_that_are_missing_are_not_waited_for) {
    options.dns = &dns;
    dns.hold();
    reply one;
    running().take_on(request_of({}), one.function());
    running().begin_all(true);
    while (dns.held() == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(one.count(), 0);
    dns.release();
    EXPECT_EQ(one.wait(), dunno);
}

// Nobody is woken for answers that are gathered: who gathers them begins what they were for, too.
TEST_F(in_two_steps, what_gathered_answers_were_for_is_begun_with_the_rest) {
    options.dns = &dns;
    dns.hold();
    const std::thread::id self = std::this_thread::get_id();
    size_t mine = 0;
    for (int i = 0; i < 100; ++i) {
        reply one;
        bool is_mine = false;
        running().take_on(request_of({}), [&, say = one.function()](std::string_view text) {
            is_mine = std::this_thread::get_id() == self;
            say(text);
        });
        while (one.count() == 0) {
            running().begin_all(true);
            judge->gather([&] { dns.answer_held(); });
        }
        EXPECT_EQ(one.wait(), dunno);
        mine += is_mine;
    }
    EXPECT_GT(mine, 50u) << "some may be taken by a thread that was awake";
    EXPECT_EQ(records().size(), 100u);
}

// Answers that come soon are waited for, so that nothing is put aside.
TEST_F(in_two_steps, answers_that_come_soon_are_waited_for) {
    options.dns = &dns;
    dns.hold();
    const std::function<bool()> waits = [&] {
        dns.answer_held();
        return true;
    };
    const asked_for kinds[] = {{}, {.ip = "192.0.2.2"}};
    size_t at_once = 0;
    for (size_t i = 0; i < 100; ++i) {
        reply one;
        running().take_on(request_of(kinds[i % 2]), one.function());
        judge->begin_all(true, waits);
        at_once += one.count() == 1;
        while (one.count() == 0) { // another thread was awake, and has taken it
            dns.answer_held();
        }
        EXPECT_EQ(one.wait(), dunno);
    }
    EXPECT_GT(at_once, 50u);
    const auto all = records();
    ASSERT_EQ(all.size(), 100u);
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_TRUE(all[i].missing.empty());
        EXPECT_EQ(all[i].decision.rule, i % 2 ? "check_dynamic_reverse_dns" : "");
    }
}

// What one waits for brings answers of others: they do not wait until all are begun again.
TEST_F(in_two_steps, answers_of_others_that_come_meanwhile_let_them_go_on) {
    options.dns = &dns;
    dns.hold();
    size_t meanwhile = 0;
    const std::function<bool()> waits = [&] {
        meanwhile += dns.held() > 0;
        judge->gather([&] { dns.answer_held(); });
        return true;
    };
    for (int i = 0; i < 20; ++i) {
        reply other;
        running().take_on(request_of({}), other.function());
        judge->begin_all(true);
        while (dns.held() == 0) {
            std::this_thread::yield();
        }
        reply own;
        judge->take_on(request_of({.ip = "192.0.2.2"}), own.function());
        judge->begin_all(true, waits);
        EXPECT_EQ(other.wait(), dunno);
        while (own.count() == 0) { // another thread was awake, and has taken it
            dns.answer_held();
        }
    }
    EXPECT_GT(meanwhile, 0u);
    EXPECT_EQ(records().size(), 40u);
}

// One that does not come so soon is not asked for again, and nothing else is waited for.
TEST_F(in_two_steps, answers_that_do_not_come_soon_are_not_asked_for_twice) {
    options.dns = &dns;
    dns.hold();
    int waited = 0;
    const std::function<bool()> waits = [&] {
        ++waited;
        return false;
    };
    size_t requests = 0;
    for (; waited == 0; ++requests) { // or another thread was awake, and has taken it
        dns.count_anew();
        reply one;
        running().take_on(request_of({.ip = "192.0.2." + std::to_string(requests)}),
                          one.function());
        judge->begin_all(true, waits);
        EXPECT_LE(waited, 1);
        while (one.count() == 0) {
            judge->gather([&] { dns.answer_held(); });
            judge->begin_all(false);
        }
        EXPECT_EQ(one.wait(), dunno);
        EXPECT_GT(dns.asked(), 0u);
        EXPECT_EQ(dns.asked(), dns.asked_for()) << "nothing is asked twice";
    }
    const auto all = records();
    ASSERT_EQ(all.size(), requests);
    EXPECT_TRUE(all.back().missing.empty());
}

// They come on another thread: before they are waited for, meanwhile, afterwards.
TEST_F(in_two_steps, answers_may_come_at_any_time) {
    options.dns = &dns;
    dns.hold();
    std::atomic<bool> is_over = false;
    std::thread answering([&] {
        while (!is_over) {
            dns.answer_held();
        }
    });
    std::deque<reply> replies(300);
    int turn = 0;
    const std::function<bool()> waits = [&turn] { return ++turn % 3 != 0; };
    for (reply &one : replies) {
        running().take_on(request_of({}), one.function());
        judge->begin_all(true, waits);
    }
    for (reply &one : replies) {
        EXPECT_EQ(one.wait(), dunno);
        EXPECT_EQ(one.count(), 1);
    }
    is_over = true;
    answering.join();
    EXPECT_EQ(records().size(), replies.size());
}

// It is answered while it waits, and judged for the log all the same.
TEST_F(in_two_steps, what_waits_beyond_the_deadline_has_a_record) {
    options.jobs = 1;
    std::atomic<int> said = 0;
    std::atomic<bool> goes_on = false;
    running().judge(request_of(friend_of_all), [&](std::string_view) {
        for (++said; !goes_on;) {
            std::this_thread::yield(); // the only thread of the judge
        }
    });
    while (said == 0) {
        std::this_thread::yield();
    }
    reply waiting;
    running().take_on(request_of(foe), waiting.function());
    pass_time(options.deadline);
    judge->answer_overdue();
    EXPECT_EQ(waiting.wait(), dunno);
    EXPECT_EQ(counter("quillfence_unjudged_total{reason=\"deadline\"}"), "1");
    EXPECT_EQ(records().size(), 1u);
    judge->begin_all(true);
    goes_on = true;
    EXPECT_EQ(waiting.count(), 1);
    EXPECT_EQ(counter("quillfence_unjudged_total{reason=\"deadline\"}"), "1");
    const auto all = records();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1].transaction.sender, foe.sender);
    EXPECT_EQ(answered(all[1]), "\"DUNNO\"");
    ASSERT_FALSE(all[1].notes.empty());
    EXPECT_TRUE(all[1].notes.back().text.starts_with("it was answered before it was decided"));
}

TEST_F(in_two_steps, at_the_end_what_was_not_begun_passes) {
    reply one;
    running().judge(request_of(foe), one.function());
    one.wait();
    reply other;
    running().take_on(request_of(foe), other.function());
    judge->stop();
    EXPECT_EQ(other.wait(), dunno);
    judge->begin_all(true);
    EXPECT_EQ(other.count(), 1);
}

TEST_F(policy_judge_test, counters_that_can_not_be_kept_are_told_once) {
    drive.remove("c:/quillfence/log");
    options.counters = true;
    EXPECT_EQ(ask(foe), dunno);
    EXPECT_EQ(ask(foe), dunno);
    EXPECT_EQ(told().size(), 1u);
}

// --- edits under load ---------------------------------------------------------------------------

TEST_F(policy_judge_test, what_began_with_a_configuration_ends_with_it) {
    options.how.all = true;
    const std::string first = live.now()->files->revision;
    dns.hold();
    reply old;
    running().judge(request_of(foe), old.function());
    while (dns.held() == 0) {
        std::this_thread::yield();
    }
    drive.write("c:/quillfence/from_blacklist", "*@other.example\n");
    ASSERT_TRUE(live.load());
    dns.release();
    EXPECT_TRUE(old.wait().starts_with("action=550 "));
    EXPECT_EQ(ask(foe), dunno);
    const auto all = records();
    EXPECT_EQ(all[0].config.revision, first);
    EXPECT_EQ(all[1].config.revision, live.now()->files->revision);
}

TEST_F(policy_judge_test, edits_and_rotation_under_load_lose_no_answer) {
    constexpr unsigned clients_at_once = 4;
    constexpr int requests_each = 100;
    options.how.all = true;
    std::map<std::string, bool> refuses; // by revision
    const auto take_note = [&] {
        const auto tree = live.now();
        const frozen_file *const list =
            find_frozen_file(tree->files.get(), "c:/quillfence/from_blacklist");
        refuses[tree->files->revision] = std::string(list->bytes).starts_with("*@foe");
    };
    take_note();
    std::atomic<unsigned> running_clients = clients_at_once;
    policy_judge &all = running();
    std::atomic<int> answers = 0;
    size_t rotations = 0;
    std::vector<decision_record> written;
    side_by_side(clients_at_once + 1, [&](unsigned number) {
        if (number < clients_at_once) {
            for (int i = 0; i < requests_each; ++i) {
                reply one;
                all.judge(request_of(foe), one.function());
                answers += one.wait().starts_with("action=");
            }
            --running_clients;
            return;
        }
        while (running_clients > 0) {
            drive.write("c:/quillfence/from_blacklist",
                        rotations % 2 ? "*@foe.example\n" : "*@other.example\n");
            if (live.load()) {
                take_note();
            }
            drive.rename(log_path, std::string(log_path) + "." + std::to_string(rotations++));
            EXPECT_EQ(log.reopen(), 0u);
        }
    });
    judge.reset();
    EXPECT_EQ(answers, static_cast<int>(clients_at_once) * requests_each);
    written = records();
    for (size_t i = 0; i < rotations; ++i) {
        drive.rename(std::string(log_path) + "." + std::to_string(i), log_path);
        const auto some = records();
        written.insert(written.end(), some.begin(), some.end());
    }
    EXPECT_EQ(written.size(), static_cast<size_t>(clients_at_once) * requests_each);
    for (const decision_record &one : written) {
        ASSERT_TRUE(refuses.contains(one.config.revision));
        EXPECT_EQ(one.decision.is == verdict::reject, refuses[one.config.revision]);
    }
}

} // namespace
} // namespace quillfence::testing
