#include "qt/settings/CommandLine.h"
#include "qt/settings/PreferenceSource.h"
#include "qt/settings/RegistrySource.h"
#include "qt/settings/SettingsWindow.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"
#include "services/StartUp.h"
#include "text/TextEncoding.h"
#include "threads/CCustomThread.h"

#include <QApplication>

#include <cstdio>

namespace
{
constexpr int kFailed = 1;

/// Qt ends a program that finds no display.
bool HasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

int Fail(const QString& subject, const QString& reason)
{
    std::fprintf(stderr, "tev-settings: %s: %s\n", qUtf8Printable(subject), qUtf8Printable(reason));
    return kFailed;
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
    if (!HasDisplay())
        return Fail(QStringLiteral("DISPLAY"), XInLanguage(u"there is no display", u"il n'y a pas d'écran"));
    QApplication application(argumentCount, arguments);
    tev::SetUpProgram(QStringLiteral("tev-settings"), XInLanguage(u"Settings", u"Réglages"));
    std::unique_ptr<SettingsSource> source;
    if (line.m_target.isEmpty() || line.m_isKey)
        source = std::make_unique<RegistrySource>();
    else
        source = std::make_unique<PreferenceSource>(line.m_target);
    SettingsWindow window(std::move(source));
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
