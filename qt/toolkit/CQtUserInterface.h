#pragma once

#include "qt/toolkit/QtExport.h"
#include "ui/CUserInterface.h"

#include <memory>

/// The user interface of the library in windows of Qt. Made and destroyed on the thread of the QApplication, between whose
/// constructor and destructor; a host installs it with XSetUserInterface. Qt's own texts get the library's language when it
/// is made, and with each call.
///
/// A call from another thread is shown on the window thread, one after the other, and waits for the answer; also while the
/// window thread itself waits in WaitEndOfThreads, EndThreads or WaitForEnd. Without a QApplication, while no event loop runs,
/// after it has ended, on a silent thread (IsSilentThread) and in a forked child, calls do what those of CUserInterface do:
/// texts go to the log, and the answer is the one that changes nothing. So does a call whose window thread handles no events
/// for ten seconds (SetPatience), because it may wait for the calling thread; and whatever is open when the application quits.
/// Reports that earlier runs left are offered when the event loop starts; a crash is shown by a program of its own
/// (XSetCrashDialog). Nothing is thrown. Safe from several threads at once.
class TEVTOOLS_QT_API CQtUserInterface : public CUserInterface
{
public:
    CQtUserInterface();
    ~CQtUserInterface() override;

    /// How long a call waits for a window thread that handles no events.
    void SetPatience(unsigned int milliseconds);

    void ShowMessage(Severity severity, const CXTString<wchar_t>& text) override;
    bool AskYesNo(const CXTString<wchar_t>& question, bool safeAnswer) override;
    XReportAnswer AskAboutReport(const CXTString<wchar_t>& introduction,
                                 const std::vector<XReportFile>& files) override;
    bool AskForSavePath(const CXTString<wchar_t>& filter, CPathString& path) override;
    /// Folders ("explore:" and the path of a file in it), web pages and mail addresses can be opened.
    void Notify(const CXTString<wchar_t>& title, const CXTString<wchar_t>& text,
                const CXTString<wchar_t>& link) override;
    /// The parent is a QWidget.
    void ShowLines(const std::vector<XColoredLine>& lines, void* parent) override;
    bool IsDarkTheme() override;
    /// The field and its text are overwritten afterwards; the input method and the display may keep what was typed.
    bool AskForPassword(const CPathString& file, CXTString<wchar_t>& password) override;
    bool CanAsk() override;

private:
    class Windows;
    std::unique_ptr<Windows> m_windows;
};
