#include "objects/CXException.h"
#include "objects/ThreadException.h"
#include "qt/settings/CommandLine.h"
#include "qt/settings/PreferenceSource.h"
#include "qt/settings/RegistrySource.h"
#include "qt/settings/SettingsWindow.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"
#include "services/Paths.h"
#include "services/StartUp.h"
#include "text/TextEncoding.h"
#include "threads/CCustomThread.h"

#include <QApplication>

#include <cstdio>

namespace
{
constexpr int kFailed = 1;

int Fail(const QString& subject, const QString& reason)
{
    std::fprintf(stderr, "tev-settings: %s: %s\n", qUtf8Printable(subject), qUtf8Printable(reason));
    return kFailed;
}

/// Empty where there is no folder for it.
CXTString<wchar_t> PlaceFile()
{
    try
    {
        CPathString path = GetUserApplicationDataPath();
        path /= L"settings.pref";
        return path;
    }
    catch (CXException* exception)
    {
        exception->Delete();
        XDeleteThreadException();
        return {};
    }
}

int Run(int argumentCount, char** arguments)
{
    using namespace tev::browser;
    QStringList words;
    for (int i = 1; i < argumentCount; ++i)
    {
        CXTString<wchar_t> word; // names of files may hold any bytes
        XDecodePath(arguments[i], word);
        words << XToQString(word);
    }
    const CommandLine line = ParseCommandLine(words);
    if (line.m_isOver)
    {
        std::fputs(qUtf8Printable(line.m_text), line.m_exitCode == 0 ? stdout : stderr);
        return line.m_exitCode;
    }
    const QString fault = CheckTarget(line);
    if (!fault.isEmpty())
        return Fail(line.m_target, fault);
    tev::EndWithoutDisplay();
    QApplication application(argumentCount, arguments);
    tev::SetUpProgram(QStringLiteral("tev-settings"), XInLanguage(u"Settings", u"Réglages"));
    std::unique_ptr<SettingsSource> source;
    if (line.m_target.isEmpty() || line.m_isKey)
        source = std::make_unique<RegistrySource>();
    else
        source = std::make_unique<PreferenceSource>(line.m_target);
    SettingsWindow window(std::move(source), PlaceFile());
    window.show();
    if (line.m_isKey)
        window.GoTo(RegistrySource::ParsePlace(line.m_target));
    return QApplication::exec();
}
} // namespace

int main(int argumentCount, char** arguments)
{
    InitFerngateApplication();
    const int exitCode = Run(argumentCount, arguments);
    CCustomThread::WaitEndOfThreads(false);
    return exitCode;
}
