#include "examples/host/window/CrashWays.h"
#include "examples/host/window/HostWindow.h"
#include "qt/toolkit/QtText.h"

#include <QMenuBar>

namespace host
{
void HostWindow::MakeCrashMenu()
{
    QMenu* const menu = menuBar()->addMenu(XInLanguage(u"&Crash", u"&Planter"));
    for (int i = 0; i < kCrashWayCount; ++i)
        menu->addAction(XInLanguage(kCrashWays[i].m_english, kCrashWays[i].m_french), this,
                        [this, crash = kCrashWays[i].m_crash] { Crash(crash); });
    menu->addSeparator();
    menu->addAction(XInLanguage(u"While loading", u"Pendant le chargement"), this, [this] {
        if (!m_path.IsEmpty())
            StartLoading(m_path, kCrashWays[0].m_crash);
    });
    menu->addAction(XInLanguage(u"Report the opened file", u"Signaler le fichier ouvert"), this, [this] {
        CXArray<CXTString<wchar_t>> files;
        if (!m_path.IsEmpty())
            files.Add(m_path);
        CrashGenerateFilesErrorReport(files, nullptr, false);
    });
}

void HostWindow::Crash(void (*crash)())
{
    try
    {
        crash();
    }
    catch (CXException* e) // the failures after which a program goes on
    {
        Notice(XToQString(XGetExceptionText(e)), false);
        e->Delete();
    }
}
} // namespace host
