// A process that is killed before or after one of its system calls.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace moxel::test {

enum class Outcome { stopped, ended, cannotTrace };

/// Runs `work` in a child process and kills that at the given one of the moments at which it begins or ends a
/// system call, counted from 0; `ended` when it has fewer.
inline Outcome runUntilSystemCall(int moment, const std::function<void()> &work) {
    constexpr int cannotTraceStatus = 77;
    const pid_t child = ::fork();
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            ::_exit(cannotTraceStatus);
        ::raise(SIGSTOP);
        work();
        ::_exit(0);
    }
    const auto wait = [child] {
        int status = 0;
        while (::waitpid(child, &status, 0) < 0 && errno == EINTR)
            continue;
        return status;
    };
    int status = wait();
    for (int i = 0; WIFSTOPPED(status) && i <= moment; ++i) {
        if (::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0)
            break;
        status = wait();
    }
    if (WIFEXITED(status))
        return WEXITSTATUS(status) == cannotTraceStatus ? Outcome::cannotTrace : Outcome::ended;
    ::kill(child, SIGKILL);
    (void)wait();
    return Outcome::stopped;
}

} // namespace moxel::test
