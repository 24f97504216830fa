// The test program once more, which ends itself at a call of the seam.
#include "crash.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "platform/observer.h"
#include "platform/process.h"
#include "win32/system.h"

namespace quillfence::testing {

// Under Wine a process costs half a second.
const unsigned calls_between_kills = 8;

namespace {

constexpr char order_variable[] = "QUILLFENCE_TEST_DOOMED"; // "<call> <operation>"
constexpr UINT killed_status = 77;
constexpr size_t longest_order = 200;

unsigned calls_left;

uint32_t count_down(const char *, const char *) {
    if (--calls_left == 0) {
        TerminateProcess(GetCurrentProcess(), killed_status);
    }
    return 0;
}

HANDLE start_again() {
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, sizeof program);
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    const HANDLE nowhere = CreateFileA("NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                       &inherited, OPEN_EXISTING, 0, nullptr);
    STARTUPINFOA start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = nowhere;
    start.hStdError = nowhere;
    PROCESS_INFORMATION made = {};
    const bool started = CreateProcessA(program, nullptr, nullptr, nullptr, TRUE, 0, nullptr,
                                        nullptr, &start, &made);
    CloseHandle(nowhere);
    if (!started) {
        return nullptr;
    }
    CloseHandle(made.hThread);
    return made.hProcess;
}

} // namespace

bool killed_at(unsigned n, const std::string &name, const std::function<void()> &) {
    platform::environment_set(order_variable, (std::to_string(n) + " " + name).c_str());
    HANDLE process = nullptr;
    DWORD error = 0;
    for (int i = 0; i < 3 && !process; ++i) { // Wine has failed to once, on a busy machine
        process = start_again();
        error = GetLastError();
    }
    platform::environment_set(order_variable, nullptr);
    if (!process) {
        ADD_FAILURE() << "the program does not start: " << error;
        return false;
    }
    WaitForSingleObject(process, INFINITE);
    DWORD status = 1;
    GetExitCodeProcess(process, &status);
    CloseHandle(process);
    EXPECT_TRUE(status == 0 || status == killed_status) << name << ": " << status;
    return status == killed_status;
}

std::string doomed_operation() {
    char order[longest_order];
    const uint32_t length = platform::environment_variable(order_variable, order, sizeof order);
    if (length == 0 || length >= sizeof order) {
        return {};
    }
    char *name = nullptr;
    calls_left = static_cast<unsigned>(strtoul(order, &name, 10));
    platform::set_call_observer(count_down);
    return name + 1;
}

} // namespace quillfence::testing
