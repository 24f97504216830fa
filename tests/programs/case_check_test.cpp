// One case held against its expectation, where the system or somebody else steps in.
#include "case_check.h"

#include <algorithm>

#include "call_watch.h"
#include "drive_c.h"
#include "platform/error_numbers.h"
#include "started_engine.h"
#include "vc_w32.h"

namespace quillfence::programs {
namespace {

constexpr char path[] = "c:/quillfence/case.json";
constexpr char expects_accept[] =
    "{\"schema\": \"quillfence.case/1\",\n"
    " \"transaction\": {\"ip\": \"10.1.2.3\", \"authuser\": \"\", \"mua\": false,\n"
    "  \"helo\": \"a.example\", \"sender\": \"x@foe.example\", \"recipient\": \"b@c.example\"},\n"
    " \"expect\": {\"verdict\": \"accept\"}}\n";

// The same with what comes.
std::string expects_reject() {
    std::string text = expects_accept;
    return text.replace(text.find("accept"), 6, "reject");
}

class case_check : public testing::drive_test {
  protected:
    case_check() {
        drive.write("c:/quillfence/control/enabled", "1\n");
        drive.write("c:/quillfence/control/rules.enabled", "from_blacklist\n");
        drive.write("c:/quillfence/from_blacklist", "*@foe.example\n");
        drive.write(path, expects_accept);
        vc_set_log_function(nullptr); // as for a run: the lines stand in the records
    }
    case_result checked() const {
        return check_case(path, options);
    }
    case_result updated() {
        options.update = [](const case_result &) {};
        return check_case(path, options);
    }

    const started_engine engine;
    check_options options;
};

TEST_F(case_check, what_came_and_why) {
    const case_result result = checked();
    EXPECT_EQ(result.is, case_outcome::not_as_expected);
    EXPECT_EQ(result.wrong, (std::vector<decision::mismatch>{{"verdict", "accept", "reject"}}));
    EXPECT_EQ(result.decided, "REJECT by from_blacklist");
    EXPECT_EQ(result.entry, "c:/quillfence/from_blacklist:1: *@foe.example (wildcard)");
    EXPECT_EQ(result.reason, "the sender matches an entry");
    EXPECT_EQ(drive.read(path), expects_accept) << "nothing is written unless it is asked for";
}

TEST_F(case_check, nobody_is_asked) {
    std::string routable = expects_accept;
    routable.replace(routable.find("10.1.2.3"), 8, "192.0.2.9");
    drive.write(path, routable);
    testing::call_watch watch;
    const case_result result = checked();
    EXPECT_EQ(result.missing, std::vector<std::string>{"PTR 9.2.0.192.in-addr.arpa."});
    for (const std::string &call : watch.take()) {
        EXPECT_FALSE(call.starts_with("dns_")) << call;
        EXPECT_FALSE(call.starts_with("socket")) << call;
    }
}

TEST_F(case_check, the_correction_is_shown_before_it_is_written) {
    std::string then;
    options.update = [&](const case_result &result) {
        EXPECT_EQ(result.wrong.size(), 1u);
        then = drive.read(path);
    };
    EXPECT_EQ(check_case(path, options).is, case_outcome::as_expected);
    EXPECT_EQ(then, expects_accept);
    EXPECT_EQ(drive.read(path), expects_reject());
}

TEST_F(case_check, a_file_that_somebody_changes_meanwhile_is_left_to_them) {
    options.update = [&](const case_result &) { drive.write(path, "somebody else's"); };
    const case_result result = check_case(path, options);
    EXPECT_EQ(result.is, case_outcome::not_run);
    EXPECT_EQ(result.problem, "has changed while it was tested; it stays as it is");
    EXPECT_EQ(drive.read(path), "somebody else's");
    EXPECT_FALSE(drive.exists(std::string(path) + ".tmp"));
}

TEST_F(case_check, a_full_disk_leaves_the_old_file) {
    for (const char *call : {"temporary_create", "stream_open", "file_sync", "path_replace"}) {
        testing::call_watch watch;
        watch.fail(call, 1, platform::error_disk_full);
        const case_result result = updated();
        EXPECT_EQ(watch.failed(), 1) << call;
        EXPECT_EQ(result.is, case_outcome::not_run) << call;
        EXPECT_EQ(result.problem, "could not be written: No space left on device") << call;
        EXPECT_EQ(drive.read(path), expects_accept) << call;
        EXPECT_FALSE(drive.exists(std::string(path) + ".tmp")) << call;
    }
}

// Whatever call fails, the file is the old one or the new one, and only what was compared passes.
TEST_F(case_check, every_call_fails_once) {
    int failed = 1;
    for (int n = 1; failed; ++n) {
        drive.write(path, expects_accept);
        case_result result;
        {
            testing::call_watch watch;
            watch.fail_any(n, platform::error_access_denied);
            result = updated();
            failed = watch.failed();
        }
        const std::string now = drive.read(path);
        EXPECT_TRUE(now == expects_accept || now == expects_reject()) << n << ": " << now;
        if (result.is == case_outcome::as_expected) {
            EXPECT_EQ(now, expects_reject()) << n << ": an error is no acceptance";
        }
    }
}

} // namespace
} // namespace quillfence::programs
