#include "services/CProfileTimer.h"

#include "platform/ThreadPriority.h"
#include "services/LogFile.h"
#include "services/ProfileReporter.h"

#include <atomic>
#include <chrono>
#include <ratio>

namespace
{
// Of 100 nanoseconds, so that a thousand times a span of 29 years still fits.
using Ticks = std::chrono::duration<__int64, std::ratio<1, 10000000>>;

std::atomic<tev::ProfileReporter> g_reporter{nullptr};

__int64 ReadCounter() noexcept
{
    return std::chrono::duration_cast<Ticks>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
} // namespace

void tev::SetProfileReporter(ProfileReporter reporter) noexcept
{
    g_reporter = reporter;
}

CProfileTimer::CProfileTimer(int) noexcept : m_frequency(Ticks::period::den) {}

void CProfileTimer::Start() noexcept
{
    m_priority = tev::platform::GetOwnPriority();
    tev::platform::RaiseOwnPriority();
    m_start = ReadCounter();
}

unsigned long CProfileTimer::End(const CXTString<wchar_t>& title)
{
    const __int64 elapsed = ReadCounter() - m_start;
    const auto milliseconds = static_cast<unsigned>(elapsed * 1000 / m_frequency);
    tev::platform::SetOwnPriority(m_priority);
    if (title.IsEmpty())
        return milliseconds;
    CXTString<wchar_t> text;
    text.Format(L"******** %s ********\n%d ms %.4f s\n", title.GetConstBuffer(), milliseconds,
                static_cast<double>(elapsed) / static_cast<double>(m_frequency));
    if (const tev::ProfileReporter reporter = g_reporter)
        reporter(text);
    else
        WriteToLogFile(L"%s", text.GetConstBuffer());
    return milliseconds;
}
