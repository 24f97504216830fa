// quillfence explain with another server's drive c: and registry: the copy lies in the folder
// c:/quillfence/copy.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/file.h"
#include "platform/surroundings.h"
#include "quillfence_program.h"
#include "test_registry.h"

namespace quillfence::programs {
namespace {

constexpr char mail_key[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail Enable\\Mail Enable]\n";

struct outcome {
    int status;
    std::string out, complaint;
};

class explain_surroundings : public ::testing::Test {
  protected:
    // This system's server lets all mail pass.
    explain_surroundings() {
        drive.write("c:/quillfence/control/enabled", "0\n");
        drive.write("c:/quillfence/copy/quillfence/control/enabled", "1\n");
        drive.write("c:/quillfence/copy/quillfence/from_blacklist", "a@spammer.example\n");
    }
    static outcome explain(const std::vector<std::string> &options) {
        std::vector<std::string> words = {"quillfence",  "explain",    "--dns",  "off",
                                          "--ip",        "192.0.2.1",  "--helo", "x.example",
                                          "--recipient", "b@c.example"};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char *> arguments;
        for (std::string &word : words) {
            arguments.push_back(word.data());
        }
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        const int status = run_quillfence(static_cast<int>(arguments.size()), arguments.data());
        std::string out = ::testing::internal::GetCapturedStdout();
        return {status, out, ::testing::internal::GetCapturedStderr()};
    }
    testing::drive_c drive;
    testing::test_registry store;
    const std::string copy = drive.native("c:/quillfence/copy");
};

bool holds(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST_F(explain_surroundings, the_copy_decides) {
    const std::vector<std::string> spam = {"--sender", "a@spammer.example", "--verdict-exit"};
    const outcome own = explain(spam);
    EXPECT_EQ(own.status, 0) << own.complaint;
    EXPECT_TRUE(holds(own.out, "ACCEPT")) << own.out;

    std::vector<std::string> copied = spam;
    copied.insert(copied.end(), {"--drive-c", copy});
    const outcome other = explain(copied);
    EXPECT_EQ(other.status, 1) << other.complaint;
    EXPECT_TRUE(holds(other.out, "REJECT by from_blacklist")) << other.out;
    EXPECT_TRUE(holds(other.out, "c:/quillfence/from_blacklist:1")) << other.out;

    EXPECT_EQ(explain(spam).status, 0) << "the system's own again";
}

TEST_F(explain_surroundings, the_export_decides) {
    drive.write("c:/quillfence/copy/Config/DOMAIN.TAB", "hosted.example\t1\r\n");
    drive.write("c:/quillfence/copy/server.reg",
                std::string("REGEDIT4\n") + mail_key +
                    "\"Configuration Directory\"=\"c:\\\\Config\"\n");
    const std::vector<std::string> local = {
        "--sender", "a@hosted.example", "--rule", "local_require_auth", "--all", "--drive-c", copy};
    const outcome without = explain(local);
    EXPECT_FALSE(holds(without.out, "would be       hit")) << without.out;
    std::vector<std::string> exported = local;
    exported.insert(exported.end(), {"--registry", copy + "/server.reg"});
    const outcome with = explain(exported);
    EXPECT_TRUE(holds(with.out, "would be       hit")) << with.out << with.complaint;
}

// A list that is tried and the page lie beside the server's files, on this system's drives.
TEST_F(explain_surroundings, other_files_are_this_systems) {
    const std::string page = drive.native("c:/quillfence/page.html");
    const outcome tried =
        explain({"--drive-c", copy, "--sender", "a@other.example", "--with-list", "from_blacklist",
                 "*@other.example", "--html", page, "--verdict-exit"});
    EXPECT_EQ(tried.status, 1) << tried.complaint << tried.out;
    EXPECT_TRUE(holds(drive.read("c:/quillfence/page.html"), "a@other.example"));
    EXPECT_FALSE(drive.exists("c:/quillfence/copy/quillfence/page.html"));
    EXPECT_EQ(drive.read("c:/quillfence/copy/quillfence/from_blacklist"), "a@spammer.example\n");
}

TEST_F(explain_surroundings, a_user_has_a_folder_in_the_copy) {
    drive.write("c:/quillfence/copy/users/b/from_whitelist", "a@spammer.example\n");
    for (const std::string &folder : {std::string("c:/users/b"), copy + "/users/b"}) {
        const outcome exempt =
            explain({"--drive-c", copy, "--sender", "a@spammer.example", "--user-dir", folder});
        EXPECT_TRUE(holds(exempt.out, "from_whitelist")) << exempt.out << exempt.complaint;
        EXPECT_FALSE(holds(exempt.out, "REJECT")) << folder << exempt.out;
    }
}

TEST_F(explain_surroundings, what_is_not_there_is_told) {
    const std::string none = drive.native("c:/quillfence/none");
    const std::string own = drive.native("c:/quillfence");
    const struct {
        std::vector<std::string> options;
        std::string want;
    } cases[] = {
        {{"--drive-c", none}, none + ": is no folder; --drive-c is the folder that holds"},
        {{"--drive-c", own}, "quillfence: is no folder; --drive-c is the folder that holds"},
        {{"--drive-c", copy, "--registry", none}, none + ": is no file; --registry is an export"},
        {{"--drive-c", copy, "--user-dir", "c:/users/none"}, "c:/users/none: is no folder"},
    };
    for (const auto &c : cases) {
        std::vector<std::string> options = c.options;
        options.insert(options.end(), {"--sender", "a@spammer.example"});
        const outcome refused = explain(options);
        EXPECT_EQ(refused.status, 2) << c.want;
        EXPECT_TRUE(holds(refused.complaint, c.want)) << refused.complaint;
        EXPECT_EQ(refused.out, "");
        EXPECT_EQ(explain({"--sender", "a@spammer.example", "--verdict-exit"}).status, 0)
            << "the system's own again";
    }
}

} // namespace
} // namespace quillfence::programs
