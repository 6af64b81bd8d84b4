#pragma once

#include "tests/support/System.h"
#include "tests/support/Testing.h"

namespace tev::test
{
constexpr int kChildDied = -1;

/// Runs the work in a child made by fork. Its result, or kChildDied when a signal ended it; it may take half a minute.
template <class WORK>
int ResultInChild(WORK&& work)
{
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(30);
        _exit(std::forward<WORK>(work)());
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : kChildDied;
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

    bool EndsWell()
    {
        int status = 0;
        const bool waited = m_process > 0 && waitpid(m_process, &status, 0) == m_process;
        m_process = -1;
        return waited && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    void Kill() const { kill(m_process, SIGKILL); }

private:
    pid_t m_process;
};
} // namespace tev::test
