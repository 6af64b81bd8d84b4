#include "text/MessageTexts.h"

#include "text/Language.h"

#include <algorithm>
#include <iterator>

namespace
{
struct TextOfNumber
{
    unsigned id;
    const wchar_t* english;
    const wchar_t* french;
};

constexpr unsigned kColourWithAlpha = 5311;
constexpr unsigned kColour = 5312;
constexpr unsigned kReport = 0xE100;
constexpr unsigned kUnnamedFile = 0xF006;
constexpr unsigned kFileCause = 0xF1A0;
constexpr unsigned kArchiveCause = 0xF1B0;
constexpr unsigned kNoApplicationName = 0xF1D0;

// In the order of their numbers. "%s" stands for the name of the file; the text of an unnamed one is put in its place.
constexpr TextOfNumber kMessageTexts[] = {
    {kColourWithAlpha, L"%d %d %d %d (RGBA)", L"%d %d %d %d (RVBA)"},
    {kColour, L"%d %d %d (RGB)", L"%d %d %d (RVB)"},

    {kReport + 0, L"Error report for %s version %s.", L"Rapport d'erreur pour %s version %s."},
    {kReport + 1, L"Memory dump", L"Vidage mémoire"},
    {kReport + 2, L"Error log", L"Journal d'erreur"},
    {kReport + 3, L"Zip files (*.zip)", L"Fichiers Zip (*.zip)"},
    {kReport + 4, L"Report %s (to be sent to %s).zip", L"Rapport %s (à envoyer à %s).zip"},
    {kReport + 5, L"Send the report by hand", L"Envoi manuel du rapport"},
    {kReport + 6, L"No default mail program is set. Please send the report %s to %s yourself.",
     L"Aucun programme de messagerie par défaut n'est défini. Veuillez envoyer vous-même le rapport %s à %s."},
    {kReport + 7, L"%s version %s has met a problem and must close. A report can be sent to technical support.",
     L"%s version %s a rencontré un problème et doit se fermer. Un rapport peut être envoyé au support technique."},
    {kReport + 8, L"%s version %s has met problems with files. A report can be sent to technical support.",
     L"%s version %s a rencontré des problèmes avec des fichiers. Un rapport peut être envoyé au support technique."},
    {kReport + 9, L"support@example.com", L"support@example.com"},
    {kReport + 10, L"Name", L"Nom"},
    {kReport + 11, L"Description", L"Description"},
    {kReport + 12, L"Size", L"Taille"},
    {kReport + 13, L"Type", L"Type"},
    {kReport + 14, L"Details of the error", L"Détails de l'erreur"},

    {kUnnamedFile, L"a file without a name", L"un fichier sans nom"},

    {kFileCause + 0, L"No error occurred with %s.", L"Aucune erreur ne s'est produite avec %s."},
    {kFileCause + 1, L"An unknown error occurred with %s.", L"Une erreur inconnue s'est produite avec %s."},
    {kFileCause + 2, L"Cannot find %s.", L"Impossible de trouver %s."},
    {kFileCause + 3, L"Cannot reach %s: the path does not exist or is not valid.",
     L"Impossible d'atteindre %s : le chemin n'existe pas ou n'est pas valide."},
    {kFileCause + 4, L"Cannot open %s: too many files are open.",
     L"Impossible d'ouvrir %s : trop de fichiers sont ouverts."},
    {kFileCause + 5, L"Cannot access %s: permission was denied.",
     L"Impossible d'accéder à %s : la permission a été refusée."},
    {kFileCause + 6, L"Cannot use %s: it is not a valid file or is not open.",
     L"Impossible d'utiliser %s : ce n'est pas un fichier valide ou il n'est pas ouvert."},
    {kFileCause + 7, L"Cannot remove %s: it is the current folder.",
     L"Impossible de supprimer %s : c'est le dossier courant."},
    {kFileCause + 8, L"Cannot create %s: the folder is full.", L"Impossible de créer %s : le dossier est plein."},
    {kFileCause + 9, L"Cannot move to the position that was asked for in %s.",
     L"Impossible d'aller à la position demandée dans %s."},
    {kFileCause + 10, L"The device reported an error while it worked on %s.",
     L"Le périphérique a signalé une erreur pendant le traitement de %s."},
    {kFileCause + 11, L"Cannot open %s: it is in use elsewhere.", L"Impossible d'ouvrir %s : il est utilisé ailleurs."},
    {kFileCause + 12, L"Cannot access %s: a part of it is locked.",
     L"Impossible d'accéder à %s : une partie en est verrouillée."},
    {kFileCause + 13, L"Cannot write %s: the disk is full.", L"Impossible d'écrire %s : le disque est plein."},
    {kFileCause + 14, L"Cannot read %s any further: its end was reached.",
     L"Impossible de poursuivre la lecture de %s : la fin est atteinte."},

    {kArchiveCause + 0, L"No error occurred with the objects of %s.",
     L"Aucune erreur ne s'est produite avec les objets de %s."},
    {kArchiveCause + 1, L"An unknown error occurred with the objects of %s.",
     L"Une erreur inconnue s'est produite avec les objets de %s."},
    {kArchiveCause + 2, L"Cannot write to %s: it is open for reading.",
     L"Impossible d'écrire dans %s : il est ouvert en lecture."},
    {kArchiveCause + 3, L"Cannot read %s: it ends too early.", L"Impossible de lire %s : il se termine trop tôt."},
    {kArchiveCause + 4, L"Cannot read from %s: it is open for writing.",
     L"Impossible de lire dans %s : il est ouvert en écriture."},
    {kArchiveCause + 5, L"Cannot read %s: it refers to an object that is not there.",
     L"Impossible de lire %s : il fait référence à un objet absent."},
    {kArchiveCause + 6, L"Cannot read %s: it holds an object of an unknown or unexpected class.",
     L"Impossible de lire %s : il contient un objet d'une classe inconnue ou inattendue."},
    {kArchiveCause + 7, L"Cannot read %s: it was written by another version.",
     L"Impossible de lire %s : il a été écrit par une autre version."},
    {kArchiveCause + 8, L"Cannot read %s: one of its items is larger than the buffer.",
     L"Impossible de lire %s : un de ses éléments dépasse la taille du tampon."},

    {kNoApplicationName, L"Default form of SetPath requires you to specify the appname in the constructor.",
     L"La forme par défaut de SetPath exige d'indiquer le nom de l'application dans le constructeur."},
};
} // namespace

const wchar_t* tev::FindMessageText(unsigned id) noexcept
{
    const auto precedes = [](const TextOfNumber& text, unsigned number) { return text.id < number; };
    const auto* found = std::lower_bound(std::begin(kMessageTexts), std::end(kMessageTexts), id, precedes);
    if (found == std::end(kMessageTexts) || found->id != id)
        return nullptr;
    return XGetLanguage() == XLanguage::French ? found->french : found->english;
}
