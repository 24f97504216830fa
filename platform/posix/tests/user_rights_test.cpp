#include "platform/user_rights.h"

#include <gtest/gtest.h>

#include <grp.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "drive_c.h"

namespace quillfence::testing {
namespace {

using namespace platform;

constexpr char somebody[] = "nobody";

class user_rights : public ::testing::Test {
  protected:
    void SetUp() override {
        drive.write("c:/run/socket", "");
        socket = drive.native("c:/run/socket");
        folder = drive.native("c:/run");
        // What holds the drive is for its owner alone.
        chmod(drive.native("c:/").c_str(), 0755);
        chmod(folder.c_str(), 0755);
    }
    // "" when he may.
    std::string obstacle_of(const char *user) const {
        char obstacle[4096] = "unset";
        const bool can = user_can_connect(user, socket.c_str(), obstacle, sizeof obstacle);
        EXPECT_EQ(can, obstacle[0] == '\0');
        return obstacle;
    }

    drive_c drive;
    std::string socket;
    std::string folder;
};

TEST_F(user_rights, users) {
    EXPECT_TRUE(user_exists("root"));
    EXPECT_FALSE(user_exists("quillfence-no-such-user"));
    EXPECT_FALSE(user_exists(nullptr));
    EXPECT_EQ(obstacle_of("quillfence-no-such-user"), socket);
}

TEST_F(user_rights, root_may_always) {
    chmod(socket.c_str(), 0);
    EXPECT_EQ(obstacle_of("root"), "");
}

TEST_F(user_rights, a_path_that_is_not_there) {
    socket = folder + "/none";
    EXPECT_EQ(obstacle_of("root"), socket);
}

TEST_F(user_rights, others) {
    chmod(socket.c_str(), 0666);
    EXPECT_EQ(obstacle_of(somebody), "");
    chmod(socket.c_str(), 0660);
    EXPECT_EQ(obstacle_of(somebody), socket);
}

// To look at a folder is not enough: one has to pass through it.
TEST_F(user_rights, a_folder_on_the_way) {
    chmod(socket.c_str(), 0666);
    chmod(folder.c_str(), 0744);
    EXPECT_EQ(obstacle_of(somebody), folder);
    chmod(folder.c_str(), 0711);
    EXPECT_EQ(obstacle_of(somebody), "");
}

// Whose the file is comes first, whatever his group or others may.
TEST_F(user_rights, owner_and_group) {
    const passwd *const entry = getpwnam(somebody);
    ASSERT_TRUE(entry);
    const uid_t user = entry->pw_uid;
    const gid_t group = entry->pw_gid;
    if (chown(socket.c_str(), 0, group) != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    chmod(socket.c_str(), 0660);
    EXPECT_EQ(obstacle_of(somebody), "");
    chmod(socket.c_str(), 0606);
    EXPECT_EQ(obstacle_of(somebody), socket);
    ASSERT_EQ(chown(socket.c_str(), user, 0), 0);
    chmod(socket.c_str(), 0600);
    EXPECT_EQ(obstacle_of(somebody), "");
    chmod(socket.c_str(), 0066);
    EXPECT_EQ(obstacle_of(somebody), socket);
}

} // namespace
} // namespace quillfence::testing
