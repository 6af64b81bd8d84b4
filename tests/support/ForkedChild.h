#pragma once

#include "tests/support/System.h"
#include "tests/support/Testing.h"

namespace tev::test
{
constexpr int kBySignal = 128;

/// Waits for a child's end. Its exit code, kBySignal plus the signal that ended it, or -1 without a child.
inline int ResultOf(pid_t child)
{
    int status = 0;
    if (child <= 0 || waitpid(child, &status, 0) != child)
        return -1;
    return WIFSIGNALED(status) ? kBySignal + WTERMSIG(status) : WEXITSTATUS(status);
}

/// Runs the work in a child made by fork, where it may take half a minute. As ResultOf; the exit code is the work's result.
template <class WORK>
int ResultInChild(WORK&& work)
{
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(30);
        _exit(std::forward<WORK>(work)());
    }
    return ResultOf(child);
}

/// A child made by fork that does the work and reports whether it went well. The destructor waits for its end.
class ChildProcess
{
public:
    explicit ChildProcess(const std::function<bool()>& work) : m_process(fork())
    {
        if (m_process == 0)
            _exit(work() ? 0 : 1);
    }
    ~ChildProcess() { EndsWell(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool EndsWell() { return ResultOf(std::exchange(m_process, -1)) == 0; }
    void Kill() const { kill(m_process, SIGKILL); }

private:
    pid_t m_process;
};
} // namespace tev::test
