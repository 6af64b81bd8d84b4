#include "qt/settings/CommandLine.h"

#include "qt/settings/PreferenceSource.h"
#include "qt/settings/RegistrySource.h"
#include "qt/toolkit/QtText.h"
#include "services/Paths.h"
#include "services/Version.h"

#include <QFile>

namespace tev::browser
{
namespace
{
constexpr int kWrongUsage = 2;

QString HelpText()
{
    return XInLanguage(
        u"Usage: tev-settings [FILE | KEY]\n"
        u"\n"
        u"Shows and changes the stores of a preference file, or the keys and values of the registry.\n"
        u"\n"
        u"  FILE        a preference file\n"
        u"  KEY         a key of the registry that begins with its root, such as\n"
        u"              HKEY_CURRENT_USER\\Software; without FILE and KEY the whole registry is shown\n"
        u"  --help      print this and exit\n"
        u"  --version   print the version and exit\n"
        u"\n"
        u"Exit codes: 0 when the window was closed, 1 when FILE or KEY cannot be opened or there is no\n"
        u"display, 2 for a wrong command line.\n",
        u"Utilisation : tev-settings [FICHIER | CLÉ]\n"
        u"\n"
        u"Montre et modifie les magasins d'un fichier de préférences, ou les clés et valeurs du registre.\n"
        u"\n"
        u"  FICHIER     un fichier de préférences\n"
        u"  CLÉ         une clé du registre qui commence par sa racine, comme\n"
        u"              HKEY_CURRENT_USER\\Software ; sans FICHIER ni CLÉ, tout le registre est montré\n"
        u"  --help      affiche cette aide\n"
        u"  --version   affiche la version\n"
        u"\n"
        u"Codes de retour : 0 quand la fenêtre est fermée, 1 quand FICHIER ou CLÉ ne peut pas être ouvert ou\n"
        u"qu'il n'y a pas d'écran, 2 pour une ligne de commande erronée.\n");
}

CommandLine WrongUsage(const QString& problem)
{
    return {true, kWrongUsage, QStringLiteral("tev-settings: ") + problem + u'\n', {}, false};
}
} // namespace

CommandLine ParseCommandLine(const QStringList& arguments)
{
    CommandLine line;
    bool hasTarget = false;
    bool areOptions = true;
    for (const QString& argument : arguments)
    {
        if (areOptions && (argument == u"--help" || argument == u"-h"))
            return {true, 0, HelpText(), {}, false};
        if (areOptions && argument == u"--version")
            return {true, 0, QStringLiteral("tev-settings " TEVTOOLS_VERSION_TEXT "\n"), {}, false};
        if (areOptions && argument == u"--")
        {
            areOptions = false;
            continue;
        }
        if (areOptions && argument.startsWith(u'-') && argument.size() > 1)
            return WrongUsage(XInLanguage(u"unknown option: ", u"option inconnue : ") + argument);
        if (hasTarget || argument.isEmpty())
            return WrongUsage(
                XInLanguage(u"one file or key is expected", u"un seul fichier ou une seule clé est attendu"));
        hasTarget = true;
        line.m_target = argument;
    }
    const Place place = RegistrySource::ParsePlace(line.m_target);
    line.m_isKey =
        line.m_target.startsWith(QString::fromStdWString(place.front())) && !fileExists(XFromQString(line.m_target));
    return line;
}

QString CheckTarget(const CommandLine& line)
{
    if (line.m_target.isEmpty())
        return {};
    if (line.m_isKey)
    {
        CRegUtil registry(CRegUtil::kRead);
        const int error = RegistrySource::OpenKey(registry, RegistrySource::ParsePlace(line.m_target));
        return error == 0 ? QString() : RegistryErrorText(error);
    }
    PreferenceSource source(line.m_target);
    if (source.TakesLong()) // what is wrong with it the window says
    {
        QFile file(line.m_target);
        return file.open(QIODevice::ReadOnly) ? QString() : file.errorString();
    }
    const QString fault = source.GetFault();
    Item item;
    return source.ListNodes({})->Next(item) || source.GetFault().isEmpty() ? QString() : fault;
}
} // namespace tev::browser
