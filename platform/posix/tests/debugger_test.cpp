// The debugger as Linux knows it: another process that traces this one.
#include "platform/process.h"

#include <csignal>

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "skip.h"

namespace quillfence::platform {
namespace {

constexpr int may_not_be_traced = 2;

TEST(debugger, a_traced_process_has_one) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const bool traced = ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
        _exit(!traced ? may_not_be_traced : debugger_present() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == may_not_be_traced) {
        QF_SKIP("this machine allows no tracing");
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(debugger, without_one_a_break_ends_the_process) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGTRAP, SIG_DFL);
        debugger_break();
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTRAP);
}

} // namespace
} // namespace quillfence::platform
