// Calls that the system itself refuses: by its limits on files and descriptors, by links and names
// that are too long, and, where nothing else does, by a filter on the system calls of one thread.
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "call_watch.h"
#include "drive_c.h"
#include "open_handles.h"
#include "platform/directory.h"
#include "platform/dns.h"
#include "platform/dynamic_library.h"
#include "platform/error_numbers.h"
#include "platform/event_log.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "posix/errors.h"
#include "skip.h"
#include "test_registry.h"

namespace quillfence::platform {
namespace {

// --- refusing ---

constexpr int any_descriptor = -1;

// fstat() is one of these, as the C library likes.
const std::vector<long> fstat_calls = {
#ifdef SYS_fstat
    SYS_fstat,
#endif
#ifdef SYS_newfstatat
    SYS_newfstatat,
#endif
};

// From now on the thread's calls of these numbers fail, all or those on one descriptor.
bool refuse_calls(const std::vector<long> &calls, int with_errno, int descriptor) {
    std::vector<sock_filter> program;
    const auto add = [&program](int code, uint32_t k, size_t if_true = 0, size_t if_false = 0) {
        program.push_back({static_cast<uint16_t>(code), static_cast<uint8_t>(if_true),
                           static_cast<uint8_t>(if_false), k});
    };
    add(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    for (size_t i = 0; i < calls.size(); ++i) { // to the next but one behind the loop
        add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(calls[i]), calls.size() - i, 0);
    }
    add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    if (descriptor != any_descriptor) {
        const uint32_t place = calls.front() == SYS_mmap ? 4 : 0; // among the call's arguments
        add(BPF_LD | BPF_W | BPF_ABS,
            uint32_t{offsetof(seccomp_data, args)} + 8 * place); // lower half
        add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(descriptor), 1, 0);
        add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    }
    add(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(with_errno));
    const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Runs an operation in a thread whose calls are refused. False where the machine has no filters.
bool run_refused(const std::vector<long> &calls, int with_errno,
                 const std::function<void()> &operation, int descriptor = any_descriptor) {
    bool refused = false;
    std::thread([&] {
        free(malloc(100000)); // the thread has its heap
        refused = refuse_calls(calls, with_errno, descriptor);
        if (refused) {
            operation();
        }
    }).join();
    return refused;
}

// A test that needs a filter is skipped without one.
#define RUN_REFUSED(...)                                                                           \
    if (!run_refused(__VA_ARGS__)) {                                                               \
        QF_SKIP("this machine does not filter system calls");                                      \
    }

// The number that the next file gets.
int next_descriptor() {
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    return next;
}

// While one lives, a limit of the process is lower. Growing beyond that of files fails without a
// signal.
class lower_limit {
  public:
    lower_limit(__rlimit_resource_t what, rlim_t limit) : what_(what) {
        getrlimit(what_, &before_);
        const rlimit lower = {limit, before_.rlim_max};
        signal_before_ = signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(setrlimit(what_, &lower), 0);
    }
    ~lower_limit() {
        setrlimit(what_, &before_);
        signal(SIGXFSZ, signal_before_);
    }
    lower_limit(const lower_limit &) = delete;
    lower_limit &operator=(const lower_limit &) = delete;

  private:
    __rlimit_resource_t what_;
    rlimit before_ = {};
    sighandler_t signal_before_;
};

class failures : public ::testing::Test {
  protected:
    failures() : handles(testing::open_handles()) {}
    ~failures() override {
        EXPECT_EQ(testing::open_handles(), handles);
    }
    int handles;
    testing::drive_c drive;
};

constexpr char a[] = "c:/quillfence/a";
constexpr char b[] = "c:/quillfence/b";
const std::string too_long = "c:/quillfence/" + std::string(NAME_MAX + 1, 'x');

// --- files ---

TEST_F(failures, a_new_file_that_can_not_be_looked_at_is_not_open) {
    drive.write(a, "abc");
    file_handle file = 12345;
    uint32_t error = 0;
    RUN_REFUSED(fstat_calls, EIO, [&] { error = file_open(a, {}, &file); });
    EXPECT_EQ(error, uint32_t{error_io_device});
    EXPECT_EQ(file, invalid_file);
}

TEST_F(failures, a_file_that_can_not_be_emptied_is_not_open) {
    drive.write(a, "abc");
    file_handle file = 12345;
    uint32_t error = 0;
    RUN_REFUSED({SYS_ftruncate}, EIO,
                [&] { error = file_open(a, {.when = disposition::create_always}, &file); });
    EXPECT_EQ(error, uint32_t{error_io_device});
    EXPECT_EQ(file, invalid_file);
    EXPECT_EQ(drive.read(a), "abc");
}

TEST_F(failures, a_mapping_without_room) {
    drive.write(a, "abc");
    file_handle file = invalid_file;
    file_mapping mapping = {nullptr, 12345};
    uint32_t error = 0;
    const auto open_and_map = [&] {
        file_open(a, {}, &file);
        error = file_map(file, &mapping);
        file_close(file);
    };
    RUN_REFUSED({SYS_mmap}, ENOMEM, open_and_map, next_descriptor());
    EXPECT_EQ(error, uint32_t{error_not_enough_memory});
    EXPECT_EQ(mapping.bytes, nullptr);
    EXPECT_EQ(mapping.size, 0u);
}

TEST_F(failures, no_descriptor_is_left) {
    drive.write(a, "abc");
    file_handle reader = 1;
    file_handle writer = 1;
    uint32_t of_pipe = 0;
    uint32_t of_file = 0;
    bool debugger = true;
    {
        const lower_limit none(RLIMIT_NOFILE, static_cast<rlim_t>(next_descriptor()));
        of_pipe = file_pipe(&reader, &writer);
        of_file = file_open(a, {}, &writer);
        debugger = debugger_present();
    }
    EXPECT_EQ(of_pipe, uint32_t{error_too_many_open_files});
    EXPECT_EQ(of_file, uint32_t{error_too_many_open_files});
    EXPECT_EQ(reader, invalid_file);
    EXPECT_EQ(writer, invalid_file);
    EXPECT_FALSE(debugger) << "what can't be read tells of none";
}

TEST_F(failures, a_stream_that_can_not_be_flushed_is_not_cut) {
    FILE *const full = stream_open("/dev/full", "r+b");
    ASSERT_NE(full, nullptr);
    fputc('x', full);
    EXPECT_EQ(stream_truncate(full, 0), ENOSPC);
    fclose(full);
}

// --- copies ---

TEST_F(failures, a_copy_that_grows_too_large_is_removed) {
    drive.write(a, std::string(1000, 'a'));
    for (const char *before : {"", "older"}) {
        drive.write(b, before);
        uint32_t error = 0;
        {
            const lower_limit half(RLIMIT_FSIZE, 500);
            error = path_copy(a, b);
        }
        EXPECT_EQ(error, uint32_t{error_file_too_large});
        EXPECT_FALSE(drive.exists(b));
        EXPECT_EQ(drive.read(a).size(), 1000u);
    }
}

TEST_F(failures, a_copy_onto_what_can_not_be_looked_at) {
    drive.write(a, "abc");
    drive.write(b, "older");
    uint32_t error = 0;
    const int destination = next_descriptor() + 1; // behind the source
    RUN_REFUSED(
        fstat_calls, EIO, [&] { error = path_copy(a, b); }, destination);
    EXPECT_EQ(error, uint32_t{error_io_device});
    EXPECT_EQ(drive.read(b), "older");
}

TEST_F(failures, a_copy_onto_what_can_not_be_emptied_is_removed) {
    drive.write(a, "abc");
    drive.write(b, "older");
    uint32_t error = 0;
    RUN_REFUSED({SYS_ftruncate}, EIO, [&] { error = path_copy(a, b); });
    EXPECT_EQ(error, uint32_t{error_io_device});
    EXPECT_FALSE(drive.exists(b));
}

// Some systems tell only then that bytes were lost.
TEST_F(failures, a_copy_that_can_not_be_closed_is_removed) {
    drive.write(a, "abc");
    uint32_t error = 0;
    const int destination = next_descriptor() + 1;
    RUN_REFUSED(
        {SYS_close}, EIO, [&] { error = path_copy(a, b); }, destination);
    close(destination); // which the refused call did not
    EXPECT_EQ(error, uint32_t{error_io_device});
    EXPECT_FALSE(drive.exists(b));
}

TEST_F(failures, a_folder_does_not_take_the_place_of_a_file) {
    drive.write(a, "abc");
    drive.make_folder(b);
    EXPECT_EQ(path_replace(b, a), uint32_t{error_access_denied});
    EXPECT_EQ(path_replace(b, "c:/quillfence/a/below"), uint32_t{error_path_not_found});
    EXPECT_EQ(drive.read(a), "abc");
}

// --- folders ---

TEST_F(failures, names_and_links_that_lead_nowhere) {
    ASSERT_EQ(symlink("to-self", drive.native("c:/quillfence/to-self").c_str()), 0);
    directory_listing *listing = nullptr;
    EXPECT_EQ(directory_open(too_long.c_str(), &listing), uint32_t{error_filename_too_long});
    EXPECT_EQ(directory_open("c:/quillfence/to-self", &listing),
              uint32_t{error_cannot_resolve_filename});
    EXPECT_EQ(listing, nullptr);
    EXPECT_EQ(directory_create(too_long.c_str()), uint32_t{error_filename_too_long});
    EXPECT_EQ(directory_create("c:/quillfence/to-self/below"),
              uint32_t{error_cannot_resolve_filename});
}

TEST_F(failures, a_missing_name_in_a_folder_that_is_too_long_to_look_up) {
    std::string path(PATH_MAX, 'x');
    path += "/a";
    EXPECT_EQ(error_of_errno_for(ENOENT, path.c_str()), uint32_t{error_path_not_found});
}

// --- the process ---

TEST_F(failures, the_folder_for_temporary_files_has_no_slash_at_its_end) {
    char found[16];
    for (const auto &[given, want] :
         {std::pair("/tmp///", "/tmp"), std::pair("///", "/"), std::pair("", "/tmp")}) {
        environment_set("TMPDIR", given);
        EXPECT_EQ(temp_directory(found, sizeof found), 0u);
        EXPECT_STREQ(found, want) << given;
    }
    environment_set("TMPDIR", nullptr);
}

TEST_F(failures, an_event_log_of_a_name_that_is_too_long_is_standard_error) {
    environment_set("QUILLFENCE_EVENT_LOG", ("c:/" + std::string(PATH_MAX, 'x')).c_str());
    ::testing::internal::CaptureStderr();
    event_log *const log = event_log_open("Quillfence");
    event_log_report(log, event_type::error, 0, "a", "seen");
    event_log_close(log);
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(written.substr(0, 70),
              "error Quillfence: QUILLFENCE_EVENT_LOG can't be opened (File name too ");
    EXPECT_EQ(written.substr(written.size() - 14), "error a: seen\n");
    environment_set("QUILLFENCE_EVENT_LOG", nullptr);
}

// A file that was opened in its place would get the events.
TEST_F(failures, a_closed_standard_error_is_no_other_file) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(STDERR_FILENO);
        prepare_standard_streams();
        file_handle file = invalid_file;
        file_open("/etc/hosts", {}, &file);
        _exit(file == STDERR_FILENO || fcntl(STDERR_FILENO, F_GETFD) < 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// The loader is asked for a path; for a bare name only where somebody says where to look.
TEST_F(failures, the_loader_is_asked_for_paths) {
    environment_set("LD_LIBRARY_PATH", nullptr);
    testing::call_watch watch;
    EXPECT_EQ(library_open("no-such-library.dll"), nullptr);
    EXPECT_EQ(watch.count("library_open"), 0);
    EXPECT_EQ(library_open("/no/such/library.dll"), nullptr);
    EXPECT_EQ(watch.count("library_open"), 1);
}

TEST_F(failures, a_question_without_a_random_number_is_not_asked) {
    dns_record *records = nullptr;
    uint32_t error = 0;
    bool refused = false;
    RUN_REFUSED({SYS_getrandom}, ENOSYS, [&] {
        char byte;
        refused = getrandom(&byte, 1, 0) < 0;
        error = refused ? dns_query("a.example.", dns_type_a, 0, &records) : 0;
    });
    if (!refused) {
        QF_SKIP("random numbers take another way here");
    }
    EXPECT_EQ(error, uint32_t{error_gen_failure});
    EXPECT_EQ(records, nullptr);
}

// --- the registry ---

class registry_failures : public failures {
  protected:
    static uint32_t open() {
        registry_key *key = nullptr;
        const uint32_t error =
            registry_open(registry_root::local_machine, testing::test_key, registry_read, &key);
        EXPECT_EQ(key != nullptr, error == 0);
        registry_close(key);
        return error;
    }
    // Sets a value of so many bytes in a key that is there.
    static uint32_t set(uint32_t size) {
        registry_key *key = nullptr;
        EXPECT_EQ(registry_open(registry_root::local_machine, testing::test_key,
                                registry_read | registry_write, &key),
                  0u);
        const std::string data(size, 'x');
        const uint32_t error = registry_set(key, "value", registry_binary, data.data(), size);
        registry_close(key);
        return error;
    }
    std::string text() const {
        std::string bytes(1 << 16, '\0');
        FILE *const stream = fopen(store.file().c_str(), "rb");
        bytes.resize(stream ? fread(bytes.data(), 1, bytes.size(), stream) : 0);
        if (stream) {
            fclose(stream);
        }
        return bytes;
    }
    testing::test_registry store;
};

TEST_F(registry_failures, an_export_that_can_not_be_looked_at_or_read) {
    store.create(testing::test_key);
    uint32_t error = 0;
    RUN_REFUSED(fstat_calls, EIO, [&] { error = open(); });
    EXPECT_EQ(error, uint32_t{error_io_device});
    RUN_REFUSED({SYS_pread64}, EIO, [&] { error = open(); });
    EXPECT_EQ(error, uint32_t{error_io_device});
    EXPECT_EQ(open(), 0u);
}

// Bytes that somebody cuts off a mapped file end the program that looks at them.
TEST_F(registry_failures, an_export_is_not_mapped) {
    store.create(testing::test_key);
    uint32_t error = 1;
    RUN_REFUSED(
        {SYS_mmap}, ENOMEM, [&] { error = open(); }, next_descriptor());
    EXPECT_EQ(error, 0u);
}

TEST_F(registry_failures, an_export_of_a_name_that_is_too_long) {
    environment_set("QUILLFENCE_REGISTRY", ("c:/" + std::string(PATH_MAX, 'x')).c_str());
    EXPECT_EQ(open(), uint32_t{error_filename_too_long});
    environment_set("QUILLFENCE_REGISTRY", store.file().c_str());
}

TEST_F(registry_failures, somebody_else_is_changing_it) {
    store.create(testing::test_key);
    const std::string before = text();
    const int other = ::open(store.file().c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    EXPECT_EQ(set(1), uint32_t{error_sharing_violation});
    EXPECT_EQ(text(), before);
    close(other);
    EXPECT_EQ(set(1), 0u);
}

// Half a change is taken back.
TEST_F(registry_failures, a_change_that_grows_too_large) {
    store.create(testing::test_key);
    const std::string before = text();
    uint32_t error = 0;
    {
        const lower_limit little(RLIMIT_FSIZE, before.size() + 100);
        error = set(1000);
    }
    EXPECT_EQ(error, uint32_t{error_file_too_large});
    EXPECT_EQ(text(), before);
}

TEST_F(registry_failures, a_change_that_can_not_even_be_taken_back) {
    store.create(testing::test_key);
    const std::string before = text();
    uint32_t error = 0;
    {
        const lower_limit little(RLIMIT_FSIZE, before.size() + 100);
        RUN_REFUSED({SYS_ftruncate}, EIO, [&] { error = set(1000); });
    }
    EXPECT_EQ(error, uint32_t{error_io_device});
    EXPECT_TRUE(text().starts_with(before)) << "what was there is there";
    EXPECT_EQ(text().size(), before.size() + 100);
    EXPECT_EQ(set(1), 0u) << "what follows is read all the same";
}

TEST_F(registry_failures, wrong_arguments) {
    store.set_dword(testing::test_key, "a", 7);
    registry_key *key = nullptr;
    ASSERT_EQ(registry_open(registry_root::local_machine, testing::test_key, registry_read, &key),
              0u);
    char data[4];
    uint32_t size = sizeof data;
    uint32_t count = 0;
    EXPECT_EQ(registry_query(key, "a", nullptr, data, nullptr), uint32_t{error_invalid_parameter});
    EXPECT_EQ(registry_query(nullptr, "a", nullptr, data, &size), uint32_t{error_invalid_handle});
    EXPECT_EQ(registry_enumerate(nullptr, 0, data, &size), uint32_t{error_invalid_handle});
    EXPECT_EQ(registry_count(nullptr, &count, nullptr), uint32_t{error_invalid_handle});
    EXPECT_EQ(registry_set(nullptr, "a", registry_binary, data, 1), uint32_t{error_invalid_handle});
    registry_close(key);
}

} // namespace
} // namespace quillfence::platform
