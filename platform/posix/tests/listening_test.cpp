#include "platform/listening.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "open_handles.h"
#include "platform/watcher.h"
#include "side_by_side.h"

namespace quillfence::platform {
namespace {

using quillfence::testing::open_handles;

class listening : public ::testing::Test {
  protected:
    listening() {
        char name[] = "/tmp/quillfence-test-XXXXXX";
        folder = mkdtemp(name);
        path = folder + "/socket";
    }
    ~listening() override {
        socket_close(listener);
        std::filesystem::remove_all(folder);
        EXPECT_EQ(open_handles(), handles);
    }
    uint32_t listen_there(uint32_t mode = 0600) {
        return listen_local(path.c_str(), mode, &listener);
    }
    void stop() {
        socket_close(listener);
        listener = invalid_socket;
    }
    bool can_connect() const {
        socket_handle socket = invalid_socket;
        const uint32_t error = connect_local(path.c_str(), &socket);
        socket_close(socket);
        return error == 0;
    }

    const int handles = open_handles();
    std::string folder;
    std::string path;
    socket_handle listener = invalid_socket;
};

// --- Unix sockets ---

TEST_F(listening, a_socket_has_its_rights_whatever_the_mask) {
    for (const mode_t mask : {0u, 022u, 077u, 0777u}) {
        for (const uint32_t mode : {0600u, 0660u, 0666u}) {
            const mode_t before = umask(mask);
            EXPECT_EQ(listen_there(mode), 0u);
            EXPECT_EQ(umask(before), mask);
            struct stat found = {};
            ASSERT_EQ(stat(path.c_str(), &found), 0);
            EXPECT_EQ(found.st_mode, S_IFSOCK | mode);
            stop();
        }
    }
}

TEST_F(listening, one_that_is_left_over_is_replaced) {
    ASSERT_EQ(listen_there(), 0u);
    stop(); // as after kill -9
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_FALSE(can_connect());
    EXPECT_EQ(listen_there(), 0u);
    EXPECT_TRUE(can_connect());
}

TEST_F(listening, one_that_is_listened_on_stays) {
    ASSERT_EQ(listen_there(), 0u);
    socket_handle other = 7;
    EXPECT_EQ(listen_local(path.c_str(), 0600, &other), error_already_exists);
    EXPECT_EQ(other, invalid_socket);
    EXPECT_EQ(remove_local(path.c_str()), error_already_exists);
    EXPECT_TRUE(can_connect());
}

TEST_F(listening, one_whose_queue_is_full_stays) {
    const int full = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(full, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(full, 0), 0);
    socket_handle waiting = invalid_socket;
    ASSERT_EQ(connect_local(path.c_str(), &waiting), 0u);
    EXPECT_EQ(listen_there(), error_already_exists);
    socket_close(waiting);
    close(full);
}

TEST_F(listening, what_is_no_socket_stays) {
    std::ofstream(path) << "text";
    EXPECT_EQ(listen_there(), error_file_exists);
    EXPECT_EQ(remove_local(path.c_str()), error_file_exists);
    EXPECT_EQ(std::filesystem::file_size(path), 4u);
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(listen_there(), error_file_exists);
    std::filesystem::remove(path);
    std::filesystem::create_symlink(folder + "/elsewhere", path);
    EXPECT_EQ(listen_there(), error_file_exists);
}

TEST_F(listening, of_several_at_once_one_listens) {
    ASSERT_EQ(listen_there(), 0u);
    for (int round = 0; round < 20; ++round) {
        stop(); // it is left over
        std::atomic<int> won = 0;
        std::atomic<socket_handle> winner = invalid_socket;
        testing::side_by_side(6, [&](unsigned) {
            socket_handle mine = invalid_socket;
            const uint32_t error = listen_local(path.c_str(), 0600, &mine);
            if (error == 0) {
                ++won;
                winner = mine;
            } else {
                EXPECT_EQ(error, error_already_exists);
            }
        });
        EXPECT_EQ(won, 1);
        EXPECT_TRUE(can_connect());
        listener = winner;
    }
}

TEST_F(listening, a_path_that_does_not_fit) {
    path = folder + "/" + std::string(107 - folder.size() - 1, 's');
    EXPECT_EQ(listen_there(), 0u);
    EXPECT_TRUE(can_connect());
    stop();
    EXPECT_EQ(remove_local(path.c_str()), 0u);
    EXPECT_FALSE(std::filesystem::exists(path));
    path += "s";
    EXPECT_EQ(listen_there(), error_filename_too_long);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(listening, folders_that_are_missing_or_locked) {
    path = folder + "/gone/socket";
    EXPECT_EQ(listen_there(), error_path_not_found);
    path = "";
    EXPECT_EQ(listen_there(), error_path_not_found);
    path = folder + "/socket";
    const int locked = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(locked, LOCK_EX), 0);
    EXPECT_EQ(listen_there(), error_sharing_violation);
    close(locked);
    EXPECT_EQ(listen_there(), 0u);
}

TEST_F(listening, below_the_folder_that_one_is_in) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    EXPECT_EQ(listen_local("socket", 0600, &listener), 0u);
    EXPECT_TRUE(can_connect());
    std::filesystem::current_path(before);
}

// --- TCP ---

TEST_F(listening, loopback_addresses_only) {
    static const struct {
        const char *address;
        bool is;
    } cases[] = {
        {"127.0.0.1", true},  {"127.255.255.254", true},
        {"::1", true},        {"0.0.0.0", false},
        {"::", false},        {"192.0.2.1", false},
        {"128.0.0.1", false}, {"", false},
        {"localhost", false}, {"::ffff:127.0.0.1", false},
        {"127.1", false},     {"127.0.0.1 ", false},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(is_loopback(one.address), one.is) << one.address;
        if (!one.is) {
            EXPECT_EQ(listen_loopback(one.address, 0, &listener), error_invalid_parameter);
        }
    }
}

TEST_F(listening, a_port_that_is_taken) {
    ASSERT_EQ(listen_loopback("127.0.0.1", 0, &listener), 0u);
    const uint16_t port = listening_port(listener);
    EXPECT_GT(port, 0);
    socket_handle other = invalid_socket;
    EXPECT_EQ(listen_loopback("127.0.0.1", port, &other), error_already_exists);
    EXPECT_EQ(connect_loopback("127.0.0.1", port, &other), 0u);
    socket_close(other);
    stop();
    EXPECT_EQ(listen_loopback("127.0.0.1", port, &listener), 0u); // whatever has been there
}

// --- sockets of a service manager ---

// Calls in a new process, which has these descriptors from 3 on; what it returns.
template <class step_type>
int in_new_process(const std::vector<socket_handle> &inherited, const char *process,
                   const char *sockets, step_type step) {
    const pid_t child = fork();
    if (child == 0) {
        for (size_t i = 0; i < inherited.size(); ++i) {
            dup2(fcntl(static_cast<int>(inherited[i]), F_DUPFD, 100), 3 + static_cast<int>(i));
        }
        const std::string own = std::to_string(getpid());
        setenv("LISTEN_PID", process ? process : own.c_str(), 1);
        setenv("LISTEN_FDS", sockets, 1);
        _exit(step());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(listening, inherited) {
    ASSERT_EQ(listen_there(), 0u);
    socket_handle tcp = invalid_socket;
    ASSERT_EQ(listen_loopback("127.0.0.1", 0, &tcp), 0u);
    const auto take = [] {
        socket_handle found[4];
        size_t count = 0;
        if (const uint32_t error = inherited_listeners(found, 4, &count)) {
            return static_cast<int>(100 + error % 100);
        }
        const bool is_right =
            count == 0 || (fcntl(static_cast<int>(found[0]), F_GETFD) == FD_CLOEXEC &&
                           fcntl(static_cast<int>(found[0]), F_GETFL) & O_NONBLOCK);
        size_t again = 0;
        inherited_listeners(found, 4, &again);
        return is_right && again == 0 && !getenv("LISTEN_FDS") ? static_cast<int>(count) : 99;
    };
    const auto error = [](uint32_t number) { return static_cast<int>(100 + number % 100); };
    EXPECT_EQ(in_new_process({listener, tcp}, nullptr, "2", take), 2);
    EXPECT_EQ(in_new_process({listener}, nullptr, "1", take), 1);
    EXPECT_EQ(in_new_process({listener}, "1", "1", take), 0); // another process's
    EXPECT_EQ(in_new_process({listener}, nullptr, "0", take), 0);
    EXPECT_EQ(in_new_process({listener}, nullptr, "x", take), error(error_invalid_parameter));
    EXPECT_EQ(in_new_process({listener}, nullptr, "-1", take), error(error_invalid_parameter));
    EXPECT_EQ(in_new_process({listener}, "x", "1", take), error(error_invalid_parameter));
    EXPECT_EQ(in_new_process({listener}, nullptr, "5", take), error(error_insufficient_buffer));
    socket_handle client = invalid_socket;
    ASSERT_EQ(connect_local(path.c_str(), &client), 0u);
    EXPECT_EQ(in_new_process({client}, nullptr, "1", take), error(error_invalid_handle));
    const int everywhere = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(listen(everywhere, 1), 0); // on 0.0.0.0
    EXPECT_EQ(in_new_process({everywhere}, nullptr, "1", take), error(error_access_denied));
    close(everywhere);
    socket_close(client);
    socket_close(tcp);
}

// --- connections ---

class connected : public listening {
  protected:
    connected() {
        EXPECT_EQ(listen_there(), 0u);
        EXPECT_EQ(connect_local(path.c_str(), &client), 0u);
        EXPECT_EQ(socket_accept(listener, &server), 0u);
    }
    ~connected() override {
        socket_close(client);
        socket_close(server);
    }
    socket_handle client = invalid_socket;
    socket_handle server = invalid_socket;
    char bytes[1024] = {};
    uint32_t moved = 7;
};

TEST_F(connected, nobody_waits) {
    socket_handle another = 7;
    EXPECT_EQ(socket_accept(listener, &another), error_would_wait);
    EXPECT_EQ(another, invalid_socket);
    EXPECT_EQ(socket_receive(server, bytes, sizeof bytes, &moved), error_would_wait);
    EXPECT_EQ(moved, 0u);
    uint32_t error = 0;
    while (!(error = socket_send(server, bytes, sizeof bytes, &moved))) {
    }
    EXPECT_EQ(error, error_would_wait);
    EXPECT_EQ(fcntl(static_cast<int>(server), F_GETFD), FD_CLOEXEC);
}

TEST_F(connected, the_end) {
    ASSERT_EQ(socket_send(client, "abc", 3, &moved), 0u);
    socket_close(client);
    client = invalid_socket;
    EXPECT_EQ(socket_receive(server, bytes, sizeof bytes, &moved), 0u);
    EXPECT_EQ(moved, 3u);
    EXPECT_EQ(socket_receive(server, bytes, sizeof bytes, &moved), 0u);
    EXPECT_EQ(moved, 0u);
    const uint32_t error = socket_send(server, "abc", 3, &moved); // and no SIGPIPE
    EXPECT_TRUE(error == error_no_data || error == error_broken_pipe) << error;
}

TEST_F(connected, no_descriptors) {
    socket_handle waiting = invalid_socket;
    ASSERT_EQ(connect_local(path.c_str(), &waiting), 0u);
    const socket_handle from = listener; // the sanitizers want descriptors to look at an object
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    socket_handle another = invalid_socket;
    EXPECT_EQ(socket_accept(from, &another), error_too_many_open_files);
    EXPECT_EQ(allow_descriptors(before.rlim_cur), before.rlim_cur);
    EXPECT_EQ(socket_accept(from, &another), 0u); // it has gone on waiting
    EXPECT_EQ(allow_descriptors(10), before.rlim_cur);
    if (before.rlim_max != RLIM_INFINITY) {
        EXPECT_EQ(allow_descriptors(before.rlim_max + 1), before.rlim_max);
    }
    setrlimit(RLIMIT_NOFILE, &before);
    socket_close(another);
    socket_close(waiting);
}

// --- the watcher ---

class watching : public connected {
  protected:
    ~watching() override {
        watcher_release(of);
    }
    size_t look(int milliseconds = 0) {
        return watcher_wait(of, events, 8, milliseconds);
    }
    watcher *const of = watcher_create();
    watched_event events[8] = {};
    int tag = 0;
};

TEST_F(watching, what_has_come_is_told_until_it_is_taken) {
    ASSERT_EQ(watcher_add(of, server, &tag, true, false), 0u);
    EXPECT_EQ(look(), 0u);
    ASSERT_EQ(socket_send(client, "abc", 3, &moved), 0u);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(look(), 1u);
        EXPECT_EQ(events[0].tag, &tag);
        EXPECT_TRUE(events[0].readable);
        EXPECT_FALSE(events[0].writable);
    }
    ASSERT_EQ(watcher_change(of, server, &tag, false, true), 0u);
    ASSERT_EQ(look(), 1u);
    EXPECT_FALSE(events[0].readable);
    EXPECT_TRUE(events[0].writable);
    watcher_remove(of, server);
    EXPECT_EQ(look(), 0u);
}

TEST_F(watching, an_end_is_told_as_both) {
    ASSERT_EQ(watcher_add(of, server, &tag, true, false), 0u);
    socket_close(client);
    client = invalid_socket;
    ASSERT_EQ(look(), 1u);
    EXPECT_TRUE(events[0].readable && events[0].writable);
}

TEST_F(watching, waking_ends_one_wait) {
    watcher_wake(of);
    watcher_wake(of);
    EXPECT_EQ(look(-1), 0u);
    EXPECT_EQ(look(1), 0u); // and waited for it
}

} // namespace
} // namespace quillfence::platform
