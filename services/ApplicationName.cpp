#include "services/ApplicationName.h"

#include "base/NeverDestroyed.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/HeldOverFork.h"
#include "platform/FileInformation.h"
#include "services/ApplicationNameObserver.h"
#include "services/CPathString.h"

#include <atomic>

namespace
{
struct ChosenName
{
    tev::LibraryLock m_lock;
    CXTString<wchar_t> m_name X_GUARDED_BY(m_lock);
};

std::atomic<void (*)()> g_observer{nullptr};

ChosenName& Chosen()
{
    static tev::NeverDestroyed<ChosenName> chosen;
    return chosen.Get();
}

CXCriticalSection& ChosenLock() noexcept
{
    return Chosen().m_lock;
}

const tev::HeldOverFork<&ChosenLock> g_nameHeldOverFork(tev::platform::ForkRank::ApplicationName);
} // namespace

CXTString<wchar_t> XGetApplicationName()
{
    ChosenName& chosen = Chosen();
    {
        const tev::LockGuard guard(chosen.m_lock);
        if (!chosen.m_name.IsEmpty())
            return chosen.m_name;
    }
    return CPathString(tev::platform::ExecutablePath().c_str()).GetTitle();
}

void XSetApplicationName(const CXTString<wchar_t>& name)
{
    if (name.FindOneOf(L"/\\") >= 0 || name == L"." || name == L"..")
        CXInvalidArgException::Throw();
    {
        ChosenName& chosen = Chosen();
        const tev::LockGuard guard(chosen.m_lock);
        chosen.m_name = name;
    }
    if (void (*const observer)() = g_observer.load())
        observer();
}

void tev::SetApplicationNameObserver(void (*observer)()) noexcept
{
    g_observer.store(observer);
}
