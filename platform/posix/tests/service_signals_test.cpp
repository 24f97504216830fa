#include "platform/service_signals.h"

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/interruption.h"

namespace quillfence::platform {
namespace {

bool is_readable(intptr_t descriptor) {
    pollfd one = {static_cast<int>(descriptor), POLLIN, 0};
    return poll(&one, 1, 0) == 1;
}

class signalled : public ::testing::Test {
  protected:
    signalled() {
        EXPECT_EQ(interruption_listen(), 0u);
        EXPECT_EQ(hang_up_listen(), 0u);
        EXPECT_EQ(file_pipe(&reader, &writer), 0u);
    }
    ~signalled() override {
        hang_up_ignore();
        interruption_ignore();
        file_close(reader);
        file_close(writer);
    }
    file_handle reader = invalid_file;
    file_handle writer = invalid_file;
};

TEST_F(signalled, a_hang_up_is_taken_once) {
    EXPECT_FALSE(hang_up_taken());
    EXPECT_FALSE(is_readable(hang_up_descriptor()));
    for (int i = 0; i < 100'000; ++i) { // more than a pipe holds
        raise(SIGHUP);
    }
    EXPECT_TRUE(is_readable(hang_up_descriptor()));
    EXPECT_TRUE(hang_up_taken());
    EXPECT_FALSE(hang_up_taken());
    EXPECT_FALSE(is_readable(hang_up_descriptor()));
    EXPECT_FALSE(interruption_noted());
}

TEST_F(signalled, afterwards_it_is_as_it_was) {
    hang_up_ignore();
    struct sigaction now {};
    sigaction(SIGHUP, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
    EXPECT_FALSE(hang_up_taken());
    hang_up_ignore(); // a second time is nothing
}

TEST_F(signalled, an_interruption_can_be_watched_for) {
    EXPECT_FALSE(is_readable(interruption_descriptor()));
    raise(SIGTERM);
    EXPECT_TRUE(is_readable(interruption_descriptor()));
    EXPECT_TRUE(interruption_noted());
}

TEST_F(signalled, a_second_one_finds_what_was_there_before) {
    raise(SIGTERM);
    struct sigaction now {};
    sigaction(SIGTERM, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
    interruption_ignore();
    static int came;
    came = 0;
    std::signal(SIGTERM, [](int) { ++came; });
    EXPECT_EQ(interruption_listen(), 0u);
    raise(SIGTERM);
    EXPECT_TRUE(interruption_noted());
    EXPECT_EQ(came, 0);
    raise(SIGTERM);
    EXPECT_EQ(came, 1);
    std::signal(SIGTERM, SIG_DFL);
    interruption_ignore();
    EXPECT_EQ(interruption_listen(), 0u); // as the others expect it
}

TEST_F(signalled, what_a_stream_is_waited_for) {
    uint32_t put = 0;
    file_write(writer, "a", 1, &put);
    EXPECT_EQ(await_input(reader), awaited::input);
    raise(SIGHUP);
    EXPECT_EQ(await_input(reader), awaited::hang_up);
    raise(SIGTERM);
    EXPECT_EQ(await_input(reader), awaited::interruption);
}

TEST_F(signalled, the_end_of_a_stream_is_input) {
    file_close(writer);
    writer = invalid_file;
    EXPECT_EQ(await_input(reader), awaited::input);
}

// --- the service manager ---

class managed : public ::testing::Test {
  protected:
    void listen(const std::string &name) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path);
        if (name[0] == '@') {
            address.sun_path[0] = '\0';
        }
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        ASSERT_EQ(bind(manager, reinterpret_cast<sockaddr *>(&address), size), 0);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~managed() override {
        close(manager);
        unsetenv("NOTIFY_SOCKET");
    }
    std::string heard() const {
        char bytes[256];
        const ssize_t got = recv(manager, bytes, sizeof bytes, MSG_DONTWAIT);
        return got < 0 ? "" : std::string(bytes, static_cast<size_t>(got));
    }
    const int manager = socket(AF_UNIX, SOCK_DGRAM, 0);
};

TEST_F(managed, a_path) {
    char folder[] = "/tmp/quillfence-test-XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    const std::string path = std::string(folder) + "/notify";
    listen(path);
    EXPECT_EQ(tell_service_manager("READY=1"), 0u);
    EXPECT_EQ(heard(), "READY=1");
    unlink(path.c_str());
    rmdir(folder);
}

TEST_F(managed, an_abstract_name) {
    listen("@quillfence-test-" + std::to_string(getpid()));
    EXPECT_EQ(tell_service_manager("RELOADING=1\nMONOTONIC_USEC=5"), 0u);
    EXPECT_EQ(heard(), "RELOADING=1\nMONOTONIC_USEC=5");
}

TEST_F(managed, nobody_asked) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(tell_service_manager("READY=1"), 0u);
    setenv("NOTIFY_SOCKET", "", 1);
    EXPECT_EQ(tell_service_manager("READY=1"), 0u);
}

TEST_F(managed, what_can_not_be_reached) {
    setenv("NOTIFY_SOCKET", "/nowhere/at/all", 1);
    EXPECT_EQ(tell_service_manager("READY=1"), error_file_not_found);
    setenv("NOTIFY_SOCKET", std::string(200, 'x').c_str(), 1);
    EXPECT_EQ(tell_service_manager("READY=1"), error_filename_too_long);
}

} // namespace
} // namespace quillfence::platform
