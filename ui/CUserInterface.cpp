#include "ui/CUserInterface.h"

#include "base/NeverDestroyed.h"
#include "objects/ResultOr.h"
#include "services/LogFile.h"
#include "services/ProfileReporter.h"
#include "services/UserMessage.h"

#include <atomic>

namespace
{
std::atomic<CUserInterface*> g_userInterface{nullptr};

/// Failing to log a message is ignored: there is no other place to report it.
void WriteLine(const CXTString<wchar_t>& text) noexcept
{
    static_cast<void>(tev::ResultOr(false, [&text] {
        WriteToLogFile(L"%s\n", text.GetConstBuffer());
        return true;
    }));
}

void ShowProfile(const CXTString<wchar_t>& text)
{
    XGetUserInterface().ShowMessage(CUserInterface::Severity::Information, text);
}
} // namespace

CUserInterface::~CUserInterface() = default;

void CUserInterface::ShowMessage(Severity, const CXTString<wchar_t>& text)
{
    WriteLine(text);
}

bool CUserInterface::AskYesNo(const CXTString<wchar_t>& question, bool safeAnswer)
{
    WriteLine(question);
    return safeAnswer;
}

XReportAnswer CUserInterface::AskAboutReport(const CXTString<wchar_t>& introduction, const std::vector<XReportFile>&)
{
    WriteLine(introduction);
    return {};
}

bool CUserInterface::AskForSavePath(const CXTString<wchar_t>&, CPathString&)
{
    return false;
}

void CUserInterface::Notify(const CXTString<wchar_t>& title, const CXTString<wchar_t>& text,
                            const CXTString<wchar_t>& link)
{
    WriteLine(title);
    WriteLine(text);
    if (!link.IsEmpty())
        WriteLine(link);
}

void CUserInterface::ShowLines(const std::vector<XColoredLine>& lines, void*)
{
    for (const XColoredLine& line : lines)
        WriteLine(line.m_text);
}

bool CUserInterface::IsDarkTheme()
{
    return false;
}

bool CUserInterface::CanAsk()
{
    return true;
}

bool CUserInterface::AskForPassword(const CPathString&, CXTString<wchar_t>&)
{
    return false;
}

CUserInterface& XGetUserInterface() noexcept
{
    static tev::NeverDestroyed<CUserInterface> substitute;
    CUserInterface* const host = g_userInterface.load(std::memory_order_acquire);
    return host != nullptr ? *host : substitute.Get();
}

void tev::ShowUserMessage(const CXTString<wchar_t>& text)
{
    XGetUserInterface().ShowMessage(CUserInterface::Severity::Warning, text);
}

CUserInterface* XSetUserInterface(CUserInterface* userInterface) noexcept
{
    tev::SetProfileReporter(userInterface != nullptr ? ShowProfile : nullptr);
    return g_userInterface.exchange(userInterface, std::memory_order_acq_rel);
}
