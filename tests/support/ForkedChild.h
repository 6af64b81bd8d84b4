#pragma once

#include <cstdlib>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

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
} // namespace tev::test
