#include "platform/posix/text/SystemTextLock.h"

#include "platform/ForkHandlers.h"

namespace tev::platform
{
namespace
{
SystemLock g_systemTextLock;

void LockSystemText()
{
    g_systemTextLock.lock();
}

void UnlockSystemText()
{
    g_systemTextLock.unlock();
}

const ForkHandler g_forkOfSystemText(ForkRank::SystemText, &LockSystemText, &UnlockSystemText, &UnlockSystemText);
} // namespace

SystemTextGuard::SystemTextGuard() noexcept : m_guard(g_systemTextLock) {}
} // namespace tev::platform
