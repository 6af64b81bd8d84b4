// A host application that lives on the library: it opens models and scenes, shows them, and lets plug-ins add to them.
// usage: host [--plug-ins FOLDER] [FILE]

#include "examples/host/window/HostWindow.h"
#include "qt/toolkit/CQtUserInterface.h"
#include "qt/toolkit/QtText.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QTimer>

namespace
{
int ReportEachCrash(CCrashHandler*)
{
    return 1;
}

void RunWindow(const QCommandLineParser& arguments, const host::PlugIns& plugIns)
{
    host::HostWindow window(GetUserApplicationDataPath() / L"host.prefs", plugIns);
    window.show();
    if (!arguments.positionalArguments().isEmpty())
    {
        QTimer::singleShot(0, &window, [&window, &arguments] {
            // Recent files are opened from other folders.
            window.Open(XFromQString(QFileInfo(arguments.positionalArguments().constFirst()).absoluteFilePath()));
        });
    }
    QApplication::exec();
}
} // namespace

int main(int argumentCount, char** arguments)
{
    InitFerngateApplication();
    XSetApplicationName(L"host");
    QApplication application(argumentCount, arguments);
    QApplication::setApplicationDisplayName(XInLanguage(u"Host", u"H\u00f4te"));
    QCommandLineParser parser;
    const QCommandLineOption plugInFolder(
        QStringLiteral("plug-ins"), XInLanguage(u"Folder of plug-ins", u"Dossier des modules"),
        QStringLiteral("folder"), QApplication::applicationDirPath() + QStringLiteral("/host-plugins"));
    parser.addOption(plugInFolder);
    parser.addPositionalArgument(QStringLiteral("file"),
                                 XInLanguage(u"A model or a scene", u"Un mod\u00e8le ou une sc\u00e8ne"));
    parser.addHelpOption();
    parser.process(application);

    if (!SetLogFile(L"host.log", xLogAppend, 0xFF)) // which another copy has open
        SetLogFile(L"host.log", xLogNumber, 0xFF);
    CQtUserInterface userInterface;
    constexpr unsigned kPatienceMs = 2000; // with a window that may be what has crashed
    userInterface.SetPatience(kPatienceMs);
    XSetUserInterface(&userInterface);
    CrashInstall(ReportEachCrash, L"Host", L"1.0", xCrashReport);
    CrashThreadInstall();
    host::RegisterFileTypes();
    try
    {
        const host::PlugIns plugIns(XFromQString(parser.value(plugInFolder)));
        RunWindow(parser, plugIns);
        CCustomThread::WaitEndOfThreads(true); // plug-ins are closed after their workers
    }
    catch (CXException* e)
    {
        WriteToLogFile(L"ends: %s\n", XGetExceptionText(e));
        e->Delete();
    }
    CrashThreadUninstall();
    CrashUninstall();
    XSetUserInterface(nullptr);
    CloseLogFile();
    return 0;
}
