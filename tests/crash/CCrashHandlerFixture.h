#pragma once

#include "crash/CCrashHandler.h"
#include "services/ApplicationName.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/TempFolder.h"
#include "text/Language.h"
#include "ui/CUserInterface.h"

namespace tev::test
{
/// A user interface that sends or saves reports.
class TestUser : public CUserInterface
{
public:
    TestUser() : m_before(XSetUserInterface(this)) {}
    ~TestUser() override { XSetUserInterface(m_before); }

    XReportAnswer AskAboutReport(const CXTString<wchar_t>& introduction, const std::vector<XReportFile>& files) override
    {
        m_introduction = introduction;
        m_files = files;
        if (m_whenAsked)
            m_whenAsked();
        return m_answer;
    }
    bool AskForSavePath(const CXTString<wchar_t>& filter, CPathString& path) override
    {
        m_filter = filter;
        m_proposed = path;
        path = m_savePath;
        return !path.IsEmpty();
    }
    void Notify(const CXTString<wchar_t>& title, const CXTString<wchar_t>& text,
                const CXTString<wchar_t>& link) override
    {
        m_notified = title + L"|" + text + L"|" + link;
    }
    bool CanAsk() override { return m_canAsk; }

    bool m_canAsk = true;
    std::function<void()> m_whenAsked;
    XReportAnswer m_answer;
    CPathString m_savePath;
    CXTString<wchar_t> m_introduction;
    std::vector<XReportFile> m_files;
    CXTString<wchar_t> m_filter;
    CXTString<wchar_t> m_proposed;
    CXTString<wchar_t> m_notified;

private:
    CUserInterface* m_before;
};

/// Callbacks of the handler count in it how often they were asked, or leave their answer; 0 when a test begins.
inline int g_asked = 0;

/// Runs the work in a forked child, which ends with 99 after it.
template <class Work>
int EndOfChild(Work work)
{
    return ResultInChild([&work] {
        work();
        return 99;
    });
}

/// A callback that leaves what a child says which another thread forks meanwhile: 5 where that has no handler.
inline int ForkElsewhere(CCrashHandler*)
{
    std::thread([] { g_asked = EndOfChild([] { _exit(CrashGetHandler() == nullptr ? 5 : 6); }); }).join();
    return 0;
}

class CCrashHandlerTest : public testing::Test
{
protected:
    CCrashHandlerTest()
    {
        XSetLanguage(XLanguage::English);
        g_asked = 0;
    }
    ~CCrashHandlerTest() override
    {
        CrashUninstall();
        XSetLanguage(m_language);
    }

    std::string ProductBytes() const { return CXTString<char>(XGetApplicationName()).GetConstBuffer(); }
    std::wstring Product() const { return XGetApplicationName().GetConstBuffer(); }
    std::set<std::wstring> OwnFiles() const { return {Product() + L".dmp", Product() + L".txt"}; }
    std::wstring CommonPath(const std::string& name) const { return m_folder.WidePath("common/" + name); }
    bool HasReport(const std::string& name) const { return m_folder.Exists("common/" + name); }

    const XLanguage m_language = XGetLanguage();
    const TempFolder m_folder;
    const EnvironmentVariable m_user{"TEVTOOLS_USER_DATA", m_folder.Path("user").string()};
    const EnvironmentVariable m_common{"TEVTOOLS_COMMON_DATA", m_folder.Path("common").string()};
};
using CCrashHandlerThreadTest = CCrashHandlerTest;
} // namespace tev::test
