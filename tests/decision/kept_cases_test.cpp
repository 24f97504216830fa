// Cases that each build has captured, replayed by both: the decision of a server on Windows comes
// out on a desk with Linux, and the other way round.
//
// The files in kept_cases/<build> were written by this very program:
//
//     QUILLFENCE_KEEP_CASES=<folder> kept_cases_test
//
// makes them anew in the folder of its build below the named one. The first test makes each case
// once more and compares, so that they stay what the build captures.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "explaining.h"
#include "me_address_map.h"
#include "me_settings.h"
#include "replay.h"

namespace quillfence::testing {
namespace {

const std::string builds[] = {"linux-x86_64", "windows-x86_64"};

struct kept {
    const char *name;
    const char *ip;
    const char *sender;
    decided_by by;
    const char *rule; // that decides
};
// What each is about: an address in a pattern of the registry; a file in a mailbox's folder; one
// hidden behind a file that is no entry; a domain that is hosted by the second key, since the first
// one's value is of another type; the DNS and a block map; a list.
constexpr kept cases[] = {
    {"ip_pattern", "198.51.100.7", "x@elsewhere.example", decided_by::exempt, "ip_whitelist"},
    {"mailbox", "10.1.2.3", "alice@example.com", decided_by::exempt, "from_whitelist"},
    {"hidden", "10.1.2.3", "zoe@example.com", decided_by::nothing, ""},
    {"other_type", "192.0.2.1", "me@hosted.example", decided_by::rule, "local_require_auth"},
    {"block_map", "192.0.2.1", "a@good.example", decided_by::block_map, "block_lists"},
    {"blacklist", "192.0.2.2", "a@foe.example", decided_by::rule, "from_blacklist"},
};

class kept_cases : public explain_test {
  protected:
    ~kept_cases() override {
        forget_address_map();
        log.take();
    }
    void write_mail_server(const std::string &name) {
        const std::string folder =
            "c:/quillfence/mail/Postoffices/example.net/MAILBOXES/bob/Senders/Whitelist/";
        for (const char *file : {"alice@example.com.LST", "notes.txt", "zoe@example.com.LST"}) {
            drive.write(folder + file, "");
        }
        drive.write("c:/quillfence/mail/DOMAIN.TAB", "hosted.example\tx\n");
        drive.write("c:/quillfence/control/rules.enabled",
                    "check_ip_reverse_dns\nlocal_require_auth\nfrom_blacklist\n");
        if (name == "other_type") {
            registry.set_dword(me_key, me_configuration_value, 7);
            registry.set_text(me_key_32, me_configuration_value, "c:\\quillfence\\mail");
        } else {
            registry.set_text(me_key, me_configuration_value, "c:\\quillfence\\mail");
        }
        registry.set_dword(me_connector_key, me_white_list_status, 1, platform::registry_view_32);
        for (const char *value : {"192.168.1.1", "198.51.100.*"}) {
            registry.set_text(me_white_list_key, value, "", platform::registry_view_32);
        }
    }
    void forget_mail_server() const {
        for (const char *key : {"SOFTWARE\\Mail Enable", "SOFTWARE\\Wow6432Node\\Mail Enable"}) {
            registry.create(key);
            registry.remove(key);
        }
        drive.remove("c:/quillfence/mail/Postoffices");
    }
    test_case made(const kept &which) {
        transaction what = transaction_of(clients[0]);
        what.ip = which.ip;
        what.sender = which.sender;
        what.recipient = "bob@example.net";
        options.capture = true;
        options.id = which.name;
        explain_result result = explain(what, options);
        EXPECT_EQ(result.failed, nullptr);
        log.take();
        return captured_case(std::move(result.record), std::move(result.server));
    }
    static std::string place(const std::string &folder, const std::string &build,
                             const kept &which) {
        return folder + '/' + build + '/' + which.name + ".json";
    }
    static test_case read(const std::string &build, const kept &which) {
        std::ostringstream text;
        text << std::ifstream(place(QF_KEPT_CASES, build, which), std::ios::binary).rdbuf();
        json_problem problem;
        auto made = read_case(text.str(), &problem);
        EXPECT_TRUE(made) << build << ' ' << which.name << ": " << problem.text;
        return made ? *std::move(made) : test_case();
    }
    static void keep(const std::string &folder, const test_case &what, const kept &which) {
        const std::string path = place(folder, what.record.engine.build, which);
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::string text;
        write_case(text, what);
        std::ofstream(path, std::ios::binary) << text << '\n';
    }
};

decision_record comparable(decision_record record) {
    record.engine.version.clear();
    for (dns_record &answer : record.dns) {
        answer.ms.reset();
    }
    return record;
}

TEST_F(kept_cases, this_build_captures_what_it_did) {
    const char *const folder = std::getenv("QUILLFENCE_KEEP_CASES");
    for (const kept &each : cases) {
        write_mail_server(each.name);
        const test_case now = made(each);
        forget_mail_server();
        if (folder) {
            keep(folder, now, each);
            continue;
        }
        const test_case then = read(now.record.engine.build, each);
        EXPECT_EQ(comparable(now.record), comparable(then.record)) << each.name;
        EXPECT_EQ(now.server, then.server) << each.name;
        EXPECT_EQ(now.expect, then.expect) << each.name;
    }
}

TEST_F(kept_cases, both_builds_decide_the_cases_of_both_alike) {
    write_mail_server("");
    forget_mail_server();
    for (const std::string &build : builds) {
        for (const kept &each : cases) {
            const test_case then = read(build, each);
            EXPECT_EQ(then.record.engine.build, build);
            const replay_result result = replay(then, {.times = false});
            log.take();
            ASSERT_EQ(result.failed, nullptr) << result.detail;
            const decision_record &now = result.record;
            EXPECT_EQ(now.decision, then.record.decision) << build << ' ' << each.name;
            EXPECT_EQ(now.decision.by, each.by) << build << ' ' << each.name;
            EXPECT_EQ(now.decision.rule, each.rule) << build << ' ' << each.name;
            EXPECT_EQ(now.rules, then.record.rules) << build << ' ' << each.name;
            EXPECT_EQ(now.report, then.record.report) << build << ' ' << each.name;
            EXPECT_EQ(result.server, then.server) << build << ' ' << each.name;
            EXPECT_TRUE(now.missing.empty()) << build << ' ' << each.name;
            EXPECT_EQ(result.differences, std::vector<file_difference>()) << build << each.name;
        }
    }
}

} // namespace
} // namespace quillfence::testing
