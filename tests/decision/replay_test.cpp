// Cases: what was decided is decided again, from what the case holds alone.
#include "replay.h"

#include <algorithm>
#include <set>

#include "call_watch.h"
#include "explaining.h"
#include "me_address_map.h"
#include "me_settings.h"
#include "platform/error_numbers.h"
#include "random_world.h"
#include "words.h"

namespace quillfence::testing {
namespace {

constexpr char mail_server[] = "SOFTWARE\\Mail Enable";
constexpr char postoffices[] = "c:/quillfence/mail/Postoffices";

// A source that is asked of everything once too often.
class counting_source : public dns_sources::source {
  public:
    dns_sources::answer ask(const dns_sources::question &asked) override {
        ++count;
        names.insert(asked.name);
        return dns_sources::answer_of_server(3, {});
    }
    unsigned count = 0;
    std::set<std::string> names;
};

// Without what a moment brings along.
decision_record timeless(decision_record record) {
    for (dns_record &answer : record.dns) {
        answer.ms.reset();
    }
    for (rule_record &rule : record.rules) {
        rule.us.reset();
    }
    return record;
}

// The case as a file would have it.
test_case kept(const test_case &which) {
    std::string text;
    write_case(text, which);
    json_problem problem;
    std::optional<test_case> read = read_case(text, &problem);
    EXPECT_TRUE(read) << problem.line << ": " << problem.text;
    return read ? std::move(*read) : test_case();
}

std::vector<std::string> texts_of(const std::vector<note> &notes) {
    std::vector<std::string> texts;
    for (const note &each : notes) {
        texts.push_back(each.text);
    }
    return texts;
}

bool has(const std::vector<note> &notes, const std::string &text) {
    const auto texts = texts_of(notes);
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

test_case captured(const transaction &what, explain_options options) {
    options.capture = true;
    explain_result result = explain(what, options);
    EXPECT_EQ(result.failed, nullptr);
    return kept(captured_case(std::move(result.record), std::move(result.server)));
}

replay_result replayed(const test_case &which, const replay_options &options = {}) {
    replay_result result = replay(which, options);
    EXPECT_EQ(result.failed, nullptr) << result.detail;
    return result;
}

// --- at random ---

class random_replays : public logged_test {
  protected:
    random_replays() {
        quillfence_init();
    }
    ~random_replays() override {
        quillfence_teardown();
        forget_address_map();
        log.take();
    }
    size_t below(size_t count) {
        return std::uniform_int_distribution<size_t>(0, count - 1)(random);
    }
    // The whitelist of the mailbox that the stand-in for the address map names, with a file at
    // times that hides those behind it.
    void write_whitelist(const transaction &what) {
        const std::string to = what.recipient.value_or("");
        const size_t at = to.find('@');
        const std::string from = what.sender.value_or("");
        if (at == std::string::npos || from.find('@') == std::string::npos || below(2)) {
            return;
        }
        const std::string folder = std::string(postoffices) + '/' + to.substr(at + 1) +
                                   "/MAILBOXES/" + to.substr(0, at) + "/Senders/Whitelist/";
        drive.write(folder + "aa@other.example.LST", "");
        drive.write(folder + (below(2) ? "zz@other.example.LST" : "b-note.txt"), "");
        if (below(2)) {
            drive.write(folder + (below(2) ? from : from.substr(from.find('@') + 1)) + ".LST", "");
        }
    }
    void forget_a_fact(transaction *what) {
        switch (below(12)) {
        case 0:
            what->helo.reset();
            break;
        case 1:
            what->sender.reset();
            break;
        case 2:
            what->recipient.reset();
            break;
        case 3:
            what->ip.reset();
            break;
        default:
            break;
        }
    }
    void fail_some(dns_script *dns, const transaction &what) {
        if (what.ip && below(3) == 0) {
            const size_t times = 1 + below(3);
            for (const char *name : {"1.2.0.192.in-addr.arpa.", "7.100.51.198.in-addr.arpa."}) {
                dns->fail_first(name, platform::dns_type_ptr, platform::dns_status_timeout,
                                static_cast<unsigned>(times));
            }
        }
    }
    void forget_mail_server() const {
        for (const uint32_t view : {0u, platform::registry_view_32}) {
            registry.create(mail_server, view);
            registry.remove(mail_server, view);
        }
        drive.remove(postoffices);
    }

    drive_c drive;
    test_registry registry;
    random_numbers random{20261122};
};

TEST_F(random_replays, a_case_is_its_own_replay) {
    unsigned answers = 0;
    unsigned names = 0;
    unsigned exempt = 0;
    for (int i = 0; i < 500; ++i) {
        const world now = random_world(random);
        std::optional<dns_script> dns(std::in_place);
        script_world(now, &*dns);
        write_world(now, drive, registry);
        transaction what = random_transaction(random);
        forget_a_fact(&what);
        write_whitelist(what);
        fail_some(&*dns, what);
        explain_options options;
        options.all = i % 3 == 0;
        options.report = i % 5 != 0;
        options.id = std::to_string(i);
        const test_case which = captured(what, options);
        log.take();

        dns.emplace(); // knows nothing
        dns->otherwise(platform::dns_status_timeout);
        dns_script::asked();
        forget_mail_server();
        call_watch watch;
        const replay_result again = replayed(which);
        for (const std::string &call : watch.take()) {
            EXPECT_FALSE(call.starts_with("registry") || call.starts_with("library") ||
                         call.starts_with("dns"))
                << call;
        }
        EXPECT_EQ(timeless(again.record), timeless(which.record));
        EXPECT_EQ(again.server, which.server);
        EXPECT_EQ(again.differences, std::vector<file_difference>());
        answers += static_cast<unsigned>(which.record.dns.size());
        for (const folder_answer &folder : which.server.folders) {
            names += static_cast<unsigned>(folder.names.size());
        }
        const auto &from = rule_of(which.record, "from_whitelist").from;
        exempt += std::holds_alternative<folder_source>(from);
        log.take();
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(answers, 500u);
    EXPECT_GT(names, 100u);
    EXPECT_GT(exempt, 5u);
}

// --- one by one ---

class replays : public explain_test {
  protected:
    replays() {
        options.capture = true;
    }
    ~replays() override {
        forget_address_map();
    }
    test_case of(const char *name) {
        for (const client &who : clients) {
            if (std::string(who.name) == name) {
                return captured(transaction_of(who), options);
            }
        }
        ADD_FAILURE() << "no client " << name;
        return {};
    }
    // To the mailbox that has the whitelist below.
    test_case to_bob(const std::string &sender) {
        transaction what = transaction_of(clients[0]);
        what.ip = "10.1.2.3";
        what.sender = sender;
        what.recipient = "bob@example.net";
        return captured(what, options);
    }
    const std::string folder =
        "c:/quillfence/mail/Postoffices/example.net/MAILBOXES/bob/Senders/Whitelist/";
};

TEST_F(replays, everything_of_the_case_is_handed_through) {
    test_case which = of("good");
    which.record.id = "ticket 12";
    which.record.time = "2026-11-22T04:51:13.123Z";
    which.record.extra = {{"queue", "\"A1\""}};
    EXPECT_TRUE(which.captured);
    EXPECT_EQ(timeless(replayed(which).record), timeless(which.record));
}

TEST_F(replays, an_answer_that_is_not_there_is_missing_and_named) {
    drive.write("c:/quillfence/bms/one", std::string(1024, '\0')); // lists nobody
    test_case which = of("good");
    const auto is_ptr = [](const dns_record &answer) { return answer.type == "PTR"; };
    const auto place = std::find_if(which.record.dns.begin(), which.record.dns.end(), is_ptr);
    ASSERT_NE(place, which.record.dns.end());
    const missing_item question{"dns", place->name, "PTR", ""};
    which.record.dns.erase(place);
    counting_source live;
    const replay_result result = replayed(which, {.live = &live});
    EXPECT_EQ(result.record.decision.is, verdict::undecided);
    EXPECT_EQ(result.record.decision.by, decided_by::missing);
    EXPECT_EQ(result.record.missing, std::vector<missing_item>{question});
    EXPECT_EQ(live.count, 0u) << "the network is off";
    EXPECT_TRUE(dns_script::asked().size() > 0) << "by the capture";
}

TEST_F(replays, what_is_missing_is_asked_on_request_alone) {
    test_case which = of("good");
    const std::string name = which.record.dns.front().name;
    which.record.dns.erase(which.record.dns.begin());
    counting_source live;
    replay_result result = replayed(which, {.dns = case_dns::record_missing, .live = &live});
    EXPECT_EQ(live.names, std::set<std::string>{name});
    EXPECT_TRUE(result.record.missing.empty());
    EXPECT_EQ(result.record.dns.front().rcode, "NXDOMAIN") << "and stands in the record";
    live.count = 0;
    result = replayed(which, {.dns = case_dns::live, .live = &live});
    EXPECT_GT(live.count, 1u);
    for (const dns_record &answer : result.record.dns) {
        EXPECT_EQ(answer.rcode, "NXDOMAIN") << answer.name;
    }
    result = replayed(which, {.dns = case_dns::live});
    EXPECT_FALSE(result.record.missing.empty()) << "there is nobody to ask";
}

TEST_F(replays, something_can_stand_in_front_of_the_answers) {
    const test_case which = of("good");
    counting_source front;
    const replay_result result = replayed(
        which, {.in_front = [&](dns_sources::source &) -> dns_sources::source & { return front; }});
    EXPECT_GT(front.count, 0u);
    EXPECT_NE(timeless(result.record), timeless(which.record));
}

TEST_F(replays, attempts_come_in_their_order_and_a_time_that_was_used_up_stays_so) {
    test_case which = of("good");
    dns_record failed = which.record.dns.front();
    ASSERT_EQ(failed.type, "PTR");
    failed.status = platform::dns_status_timeout;
    failed.rcode.clear();
    failed.records.clear();
    failed.is = answer_class::failure;
    which.record.dns.insert(which.record.dns.begin(), failed);
    replay_result result = replayed(which);
    ASSERT_GE(result.record.dns.size(), 2u);
    EXPECT_EQ(result.record.dns[0].is, answer_class::failure);
    EXPECT_EQ(result.record.dns[1].is, answer_class::found);
    EXPECT_EQ(result.record.dns[1].attempt, 2u);

    for (dns_record &answer : which.record.dns) {
        answer.is = answer_class::missing;
        answer.status = platform::dns_status_timeout;
        answer.rcode.clear();
        answer.records.clear();
    }
    result = replayed(which);
    EXPECT_EQ(result.record.dns.front().status, uint32_t{platform::dns_status_timeout});
    EXPECT_NE(texts_of(result.record.notes).back().find("the time for DNS questions"),
              std::string::npos);
}

TEST_F(replays, files_that_differ_are_named) {
    const test_case which = of("good");
    const std::string list = "c:/quillfence/from_blacklist";
    const std::string there = drive.read(list);
    drive.write(list, '#' + there.substr(1));
    replay_result result = replayed(which);
    EXPECT_EQ(result.differences, (std::vector<file_difference>{{list, "differs"}}));
    EXPECT_TRUE(has(result.record.notes, "not as captured: " + list + " differs"));
    drive.remove(list);
    EXPECT_EQ(replayed(which).differences, (std::vector<file_difference>{{list, "is missing"}}));
    drive.write(list, there);
    EXPECT_EQ(replayed(which).differences, std::vector<file_difference>());
    drive.remove(list);
    const test_case without = of("good");
    EXPECT_EQ(replayed(without).differences, std::vector<file_difference>());
    drive.write(list, "");
    EXPECT_EQ(replayed(without).differences,
              (std::vector<file_difference>{{list, "is there now"}}));
}

TEST_F(replays, a_large_file_has_its_digest) {
    std::string large = "x@nobody.example\n";
    large += std::string(9u << 20, '#');
    drive.write("c:/quillfence/from_blacklist", large);
    const test_case which = of("good");
    for (const config_file &file : which.record.config.files) {
        if (file.path == "c:/quillfence/from_blacklist") {
            EXPECT_EQ(file.sha256.size(), 64u);
            EXPECT_EQ(file.time, "");
        }
    }
    EXPECT_EQ(timeless(replayed(which).record), timeless(which.record));
    large.back() = '!';
    drive.write("c:/quillfence/from_blacklist", large);
    EXPECT_EQ(replayed(which).differences.size(), 1u);
}

// --- the mail server ---

TEST_F(replays, the_mail_servers_answers_come_from_the_case) {
    registry.set_text(me_key, me_configuration_value, "c:\\quillfence\\mail");
    registry.set_dword(me_connector_key, me_white_list_status, 1, platform::registry_view_32);
    registry.set_text(me_white_list_key, "192.0.2.*", "", platform::registry_view_32);
    drive.write(folder + "alice@example.com.LST", "");
    drive.write(folder + "notes.txt", "");
    drive.write(folder + "zoe@example.com.LST", "");
    const test_case alice = to_bob("alice@example.com");
    const test_case zoe = to_bob("zoe@example.com");
    ASSERT_EQ(alice.record.decision.rule, "from_whitelist");
    ASSERT_NE(zoe.record.decision.by, decided_by::exempt) << "hidden behind a file";
    EXPECT_EQ(alice.server.folders.at(0).names, std::vector<std::string>{"alice@example.com.LST"});
    EXPECT_EQ(zoe.server.folders.at(0).names,
              (std::vector<std::string>{"alice@example.com.LST", "notes.txt"}));
    EXPECT_EQ(zoe.server.address_map, (std::vector<address_map_answer>{
                                          {"bob@example.net", "[SF:example.net/bob]", false}}));
    const std::vector<registry_answer> looks = {
        {me_connector_key, me_white_list_status, "REG_DWORD", "1", false},
        {me_white_list_key, "10.1.2.3", "", "", true},
        {me_white_list_key, "192.0.2.*", "", "", false},
        {me_key, me_configuration_value, "REG_SZ", "c:\\quillfence\\mail", false}};
    for (const registry_answer &look : looks) {
        const auto &all = zoe.server.registry;
        EXPECT_NE(std::find(all.begin(), all.end(), look), all.end())
            << look.key << ' ' << look.value.value_or("");
    }

    registry.remove(mail_server);
    registry.remove(mail_server, platform::registry_view_32);
    drive.remove(folder + "alice@example.com.LST");
    drive.remove(folder + "notes.txt");
    EXPECT_EQ(timeless(replayed(alice).record), timeless(alice.record));
    EXPECT_EQ(timeless(replayed(zoe).record), timeless(zoe.record));
}

TEST_F(replays, a_value_of_another_type_counts_as_not_read_again) {
    registry.set_dword(me_key, me_configuration_value, 7);
    registry.set_text(me_key_32, me_configuration_value, "c:\\quillfence\\mail");
    drive.write("c:/quillfence/mail/DOMAIN.TAB", "example.net\tx\n");
    const test_case which = to_bob("alice@example.net");
    log.take();
    EXPECT_FALSE(which.record.errors.empty());
    registry.remove(mail_server);
    registry.remove("SOFTWARE\\Wow6432Node\\Mail Enable");
    EXPECT_EQ(timeless(replayed(which).record), timeless(which.record));
    log.take();
}

TEST_F(replays, a_recipient_that_is_not_known_is_missed_again) {
    registry.set_text(me_key, me_configuration_value, "c:\\quillfence\\mail");
    drive.write("c:/quillfence/mail/DOMAIN.TAB", "example.net\tx\n");
    transaction what = transaction_of(clients[0]);
    what.sender = "alice@example.net";
    what.recipient.reset();
    const test_case which = captured(what, options);
    EXPECT_EQ(rule_of(which.record, "from_whitelist").decision, outcome::undecided)
        << "a mailbox might have a whitelist";
    registry.remove(mail_server);
    EXPECT_EQ(timeless(replayed(which).record), timeless(which.record));
    EXPECT_EQ(replayed(which).server, which.server);
}

TEST_F(replays, what_a_case_does_not_hold_of_the_server_counts_as_missing_and_is_said) {
    registry.set_text(me_key, me_configuration_value, "c:\\quillfence\\mail");
    drive.write(folder + "alice@example.com.LST", "");
    test_case which = to_bob("alice@example.com");
    ASSERT_EQ(which.record.decision.by, decided_by::exempt);
    which.server.folders.clear();
    const replay_result result = replayed(which);
    EXPECT_NE(result.record.decision.by, decided_by::exempt);
    EXPECT_TRUE(has(result.record.notes,
                    "the case does not hold the folder c:\\quillfence\\mail\\Postoffices\\"
                    "example.net\\MAILBOXES\\bob\\Senders\\Whitelist; it counts as missing"));
}

// --- short cases ---

TEST_F(replays, a_short_case_has_this_systems_mail_server_unless_it_tells_of_one) {
    registry.set_text(me_key, me_configuration_value, "c:\\quillfence\\mail");
    drive.write(folder + "alice@example.com.LST", "");
    test_case which;
    which.record.transaction = to_bob("alice@example.com").record.transaction;
    which.zonedata.emplace();
    EXPECT_EQ(replayed(which).record.decision.by, decided_by::exempt);
    which.server.address_map = {{"bob@example.net", "[SF:example.net/carol]", false}};
    const replay_result other = replayed(which);
    EXPECT_NE(other.record.decision.by, decided_by::exempt);
    EXPECT_TRUE(other.record.report) << "a short case has one";
    EXPECT_FALSE(replayed(which, {.report = false}).record.report);
}

TEST_F(replays, zone_data_by_hand) {
    test_case which;
    which.record.transaction = transaction_of(clients[0]);
    which.record.transaction.ip = "192.0.2.77";
    which.zonedata = {{"77.2.0.192.in-addr.arpa", {{"PTR", "mail.by-hand.example"}}}};
    const decision_record record = replayed(which).record;
    EXPECT_EQ(record.facts.ptr, std::vector<std::string>{"mail.by-hand.example"});
    EXPECT_FALSE(record.missing.empty()) << "the rest of the names";
    which.zonedata = {{"no..name", {{"PTR", "x.example"}}}};
    const replay_result refused = replay(which, {});
    EXPECT_STREQ(refused.failed, "a DNS answer of the case can't be used");
    EXPECT_NE(refused.detail.find("no..name"), std::string::npos) << refused.detail;
}

// --- what is refused ---

TEST_F(replays, paths_that_lead_to_another_machine_are_not_gone) {
    test_case which = of("good");
    which.record.config.files.push_back({"//elsewhere/share/file", false, 1, "", ""});
    call_watch watch;
    EXPECT_EQ(replayed(which).differences,
              (std::vector<file_difference>{{"//elsewhere/share/file", "is on another machine"}}));
    which.server.registry.push_back(
        {me_key, me_configuration_value, "REG_SZ", "\\\\elsewhere\\share", false});
    watch.take();
    EXPECT_STREQ(replay(which, {}).failed, "a path of the case leads to another machine");
    which.server.registry.clear();
    which.record.config.user_dir = "\\/elsewhere/share/";
    EXPECT_STREQ(replay(which, {}).failed, "a path of the case leads to another machine");
    EXPECT_TRUE(watch.take().empty());
}

} // namespace
} // namespace quillfence::testing
