#include "platform/FileSizeSignal.h"

#include "platform/Cancellation.h"

#include <csignal>
#include <ctime>

namespace tev::platform
{
namespace
{
sigset_t FileSizeSignal() noexcept
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGXFSZ);
    return signals;
}
} // namespace

WithoutFileSizeSignal::WithoutFileSizeSignal() noexcept
{
    const sigset_t tooLarge = FileSizeSignal();
    sigset_t before;
    sigemptyset(&before);
    pthread_sigmask(SIG_BLOCK, &tooLarge, &before);
    m_wasBlocked = sigismember(&before, SIGXFSZ) == 1;
}

// The signal of a write that failed meanwhile is pending.
WithoutFileSizeSignal::~WithoutFileSizeSignal()
{
    if (m_wasBlocked)
        return;
    const WithoutCancellation withoutCancellation; // the call below may take it, and a destructor must not
    const sigset_t tooLarge = FileSizeSignal();
    const timespec noWait = {};
    while (sigtimedwait(&tooLarge, nullptr, &noWait) > 0)
    {
    }
    pthread_sigmask(SIG_UNBLOCK, &tooLarge, nullptr);
}
} // namespace tev::platform
