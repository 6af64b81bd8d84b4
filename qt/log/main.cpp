#include "objects/CXException.h"
#include "objects/LastFailure.h"
#include "qt/log/LogWindow.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"
#include "services/StartUp.h"
#include "services/Version.h"
#include "text/TextEncoding.h"

#include <QApplication>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace
{
constexpr int kUsageError = 2;

struct Arguments
{
    CXTString<wchar_t> m_path;
    unsigned long long m_line = 0;
    bool m_wantsHelp = false;
    bool m_wantsVersion = false;
    std::string m_error;
    std::string m_failure; ///< why the path has no whole form
};

void Print(std::FILE* file, const QString& text)
{
    std::fputs(qUtf8Printable(text), file);
}

QString HelpText()
{
    return XInLanguage(u"usage: tev-log [FILE] [--line N]\n\n"
                       u"Shows a log of any size, and what is written to it meanwhile.\n\n"
                       u"  --line N    begin at line N\n"
                       u"  --help      this text\n"
                       u"  --version   the version\n\n"
                       u"Exits with 0 when the window is closed, 1 when it cannot be shown, 2 for wrong arguments.\n",
                       u"usage\u00a0: tev-log [FICHIER] [--line N]\n\n"
                       u"Affiche un journal de n'importe quelle taille, et ce qui y est \u00e9crit entre-temps.\n\n"
                       u"  --line N    commencer \u00e0 la ligne N\n"
                       u"  --help      ce texte\n"
                       u"  --version   la version\n\n"
                       u"Rend 0 quand la fen\u00eatre est ferm\u00e9e, 1 quand elle ne peut pas \u00eatre "
                       u"affich\u00e9e, 2 pour de mauvais "
                       u"arguments.\n");
}

bool ParseLine(const char* text, unsigned long long& line)
{
    char* end = nullptr;
    line = text != nullptr && *text >= '0' && *text <= '9' ? std::strtoull(text, &end, 10) : 0;
    return line != 0 && end != nullptr && *end == '\0';
}

Arguments ParseArguments(int argc, char** argv)
{
    Arguments arguments;
    bool isOption = true;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i)
    {
        const std::string argument = argv[i];
        if (isOption && argument == "--")
            isOption = false;
        else if (isOption && (argument == "--help" || argument == "-h"))
            arguments.m_wantsHelp = true;
        else if (isOption && argument == "--version")
            arguments.m_wantsVersion = true;
        else if (isOption && argument == "--line" && i + 1 < argc && ParseLine(argv[i + 1], arguments.m_line))
            ++i;
        else if ((isOption && argument.size() > 1 && argument[0] == '-') || path != nullptr || argument.empty())
            arguments.m_error = argument;
        else
            path = argv[i];
    }
    // Recent files are opened from other folders.
    if (path != nullptr)
    {
        std::error_code failure;
        XDecodePath(std::filesystem::absolute(path, failure).c_str(), arguments.m_path);
        if (failure)
            arguments.m_failure = failure.message();
    }
    return arguments;
}

int Run(QApplication& application, const Arguments& arguments)
{
    try
    {
        LogWindow window(LogSettings::GetPath());
        window.show();
        if (!arguments.m_path.IsEmpty())
            window.Open(arguments.m_path, arguments.m_line);
        return application.exec();
    }
    catch (CXException* exception)
    {
        Print(stderr, QStringLiteral("tev-log: ") + XToQString(XGetExceptionText(exception)) + u'\n');
        exception->Delete();
        return 1;
    }
}
} // namespace

int main(int argc, char** argv)
{
    InitFerngateApplication();
    const Arguments arguments = ParseArguments(argc, argv);
    if (arguments.m_wantsHelp)
    {
        Print(stdout, HelpText());
        return 0;
    }
    if (arguments.m_wantsVersion)
    {
        std::printf("tev-log %s\n", TEVTOOLS_VERSION_TEXT);
        return 0;
    }
    if (!arguments.m_error.empty())
    {
        Print(stderr, QStringLiteral("tev-log: ") + XInLanguage(u"wrong argument: ", u"mauvais argument\u00a0: ") +
                          QString::fromLocal8Bit(arguments.m_error.c_str()) + u'\n' + HelpText());
        return kUsageError;
    }
    if (!arguments.m_failure.empty())
    {
        Print(stderr,
              QStringLiteral("tev-log: ") +
                  XInLanguage(u"the current folder cannot be found: ", u"le dossier courant est introuvable\u00a0: ") +
                  QString::fromLocal8Bit(arguments.m_failure.c_str()) + u'\n');
        return 1;
    }
    tev::EndWithoutDisplay();
    int qtCount = 1; // the arguments are ours
    QApplication application(qtCount, argv);
    tev::SetUpProgram(QStringLiteral("tev-log"), XInLanguage(u"Log viewer", u"Visionneuse de journaux"));
    return Run(application, arguments);
}
